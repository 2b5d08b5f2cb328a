#pragma once

#include "core/wqstring.h"
#include "protocol/reply.h"
#include "protocol/request.h"

/// "TEST-FileExists". Parameters: 1 path or mask; 7 expand path macros.
/// "200" size, status-change time, modification time, file name, "min", age in whole minutes;
/// "301" when there is no such file.
void ProcessTest_FileExists(const VxRequest& params, QovReply& reply);

/// "TEST-FileCompare". Parameters: 1 mode; 2 first file; then by mode
///   "1" 3 second file; compare 4 times, 5 sizes, 6 contents; 12 and 13 expand macros
///   "2" 3 text; 4 case-sensitive; 5 whole words; 9 expand macros
///   "3" 3 file that holds the text, at most 8 MiB; 11 expand macros
/// "200" equal or found; "301" when a file is missing or cannot be read; "501" for another mode.
void ProcessTest_FileCompare(const VxRequest& params, QovReply& reply);

/// "TEST-FileCRC". Parameter 1: path. "200" the CRC-32; "301" see GetFileCRC.
void ProcessTest_FileCRC(const VxRequest& params, QovReply& reply);

/// Facts of one path; a symbolic link is not followed.
/// @return 1 with the bytes and the times of the last status change and modification (seconds since
///         the epoch), or 0 for no path or one that cannot be examined. Any thread.
int GetFileInfo(const char* path, long& size, long& ctime, long& mtime);

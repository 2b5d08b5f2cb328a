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

/// "TEST-CountFiles". Parameters: 1 folder; 2 mask; 3 include subfolders; 4 TCountFilesMode;
/// 5 its limit; 11 expand path macros.
/// "200" the count; "301" when the folder is missing or unreadable; "501" for a wrong 4 or 5.
void ProcessTest_CountFiles(const VxRequest& params, QovReply& reply);

/// What CountFiles counts.
enum TCountFilesMode {
  cfAllFiles = 0,
  cfOlderThan = 1,    ///< last modified more than `value` minutes ago
  cfNewerThan = 2,    ///< last modified less than `value` minutes ago
  cfBiggerThan = 3,   ///< more than `value` bytes
  cfSmallerThan = 4,  ///< less than `value` bytes
  cfSubFolders = 5,   ///< folders instead of files
};
/// The modes' names.
extern const char* const CountFilesModeName[6];

/// Facts of one path; a symbolic link is not followed.
/// @param size   out: bytes
/// @param ctime  out: time of the last status change, seconds since the epoch
/// @param mtime  out: time of the last modification
/// @return 1, or 0 for no path or one that cannot be examined. Any thread.
int GetFileInfo(const char* path, long& size, long& ctime, long& mtime);

/// Counts the entries of a folder whose names match the mask and that the mode asks for.
/// Deliberate: of the subfolders, those that are hidden or that the process may not write are left
/// out, and a folder in which not even "." is writable may count as unreadable.
/// @param recurse  not 0: the entries of the subfolders too
/// @param value    minutes or bytes, as the mode says
/// @return the count, or -1 when the folder cannot be listed. Any thread.
int CountFiles(String folder, const String& mask, int recurse, TCountFilesMode mode, int value);

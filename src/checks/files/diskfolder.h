#pragma once

#include "core/wqstring.h"
#include "protocol/reply.h"
#include "protocol/request.h"

/// "TEST-UNC": sizes of the file system that holds a path.
/// Parameter 1: the path; a backslash at its end is cut off.
/// "200" total, unused and available bytes; "301" when it cannot be measured; "501" without a path.
void ProcessTest_UNC(const VxRequest& params, QovReply& reply);

/// "TEST-FolderSize": total size of the files in a folder.
/// Parameters: 1 folder, or folder and file mask; 2 include subfolders; 8 expand path macros.
/// "200" bytes; "301" when the folder cannot be listed.
void ProcessTest_FolderSize(const VxRequest& params, QovReply& reply);

/// Measures the file system that holds `path` (symbolic links are followed).
/// @param total  out: size in bytes
/// @param free   out: unused bytes, those kept for the superuser included
/// @param avail  out: unused bytes open to ordinary users, <= free
/// @return 1 with the three sizes set, or 0 with errno as the query left it and the sizes untouched
/// Sizes are doubles: exact to 2^53 bytes. Any thread.
int GetUNCDriveInfo(const char* path, double& total, double& free, double& avail);

/// Adds up the sizes of the files in a folder; hidden files count, symbolic links are neither
/// counted nor entered (but `path` itself may be a link).
/// @param path     a folder, or else a folder and the mask that its files must match
/// @param recurse  not 0: the matching files of all subfolders too, whatever the subfolders' names;
///                 one that cannot be listed, or whose path is too long for the system, counts as 0
/// @return bytes, exact to 2^53, or -1.0 when the folder cannot be listed
/// One listing is open at a time, and depth needs no stack. Any thread.
double GetFolderSize(String path, int recurse);

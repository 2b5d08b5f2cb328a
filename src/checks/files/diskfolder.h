#pragma once

#include "core/wqstring.h"
#include "fs/search.h"
#include "protocol/reply.h"
#include "protocol/request.h"

/// What folders hold, and the disk below them. One listing is open at a time, and depth needs no
/// stack. Any thread.

/// "TEST-UNC": sizes of the file system that holds a path.
/// Parameter 1: the path; a backslash at its end is cut off.
/// "200" total, unused and available bytes; "301" when it cannot be measured; "501" without a path.
void ProcessTest_UNC(const VxRequest& params, QovReply& reply);

/// "TEST-FolderSize": total size of the files in a folder.
/// Parameters: 1 folder, or folder and file mask; 2 include subfolders; 8 expand path macros.
/// "200" bytes; "301" when the folder cannot be listed.
void ProcessTest_FolderSize(const VxRequest& params, QovReply& reply);

/// "TEST-CountFiles". Parameters: 1 folder; 2 mask; 3 include subfolders; 4 TCountFilesMode;
/// 5 its limit; 11 expand path macros.
/// "200" the count; "301" when the folder is missing or unreadable; "501" for a wrong 4 or 5.
void ProcessTest_CountFiles(const VxRequest& params, QovReply& reply);

/// "GetFilesList": the subfolders and files of a folder.
/// Parameters: 1 folder; 2 file mask; then flags: 3 list subfolders, 4 list files, 5 hidden
/// entries too, 6 system entries too, 7 size, 8 status-change time, 9 modification time.
/// "200" the folder listed, number of entries, fields per entry, then the entries' fields, folders
/// first. A folder that cannot be listed has none. "600" when all file checks are off.
void ProcessInfo_GetFileList(const VxRequest& params, QovReply& reply);

/// Measures the file system that holds `path` (symbolic links are followed).
/// @param free   out: unused bytes, those kept for the superuser included
/// @param avail  out: unused bytes open to ordinary users
/// @return 1 with the three sizes in bytes, exact to 2^53, or 0 with errno and the sizes untouched
int GetUNCDriveInfo(const char* path, double& total, double& free, double& avail);

/// Adds up the sizes of the files in a folder; hidden files count, symbolic links are neither
/// counted nor entered (but `path` itself may be a link).
/// @param path     a folder, or else a folder and the mask that its files must match
/// @param recurse  not 0: the matching files of all subfolders too, whatever the subfolders' names;
///                 one that cannot be listed, or whose path is too long for the system, counts as 0
/// @return bytes, exact to 2^53, or -1.0 when the folder cannot be listed
double GetFolderSize(String path, int recurse);

/// What CountFiles counts.
enum TCountFilesMode {
  cfAllFiles = 0,
  cfOlderThan = 1,    ///< last modified more than `value` minutes ago
  cfNewerThan = 2,    ///< last modified less than `value` minutes ago
  cfBiggerThan = 3,   ///< more than `value` bytes
  cfSmallerThan = 4,  ///< less than `value` bytes
  cfSubFolders = 5,   ///< folders instead of files
};
/// The modes' names. Not used by the agent itself.
extern const char* const CountFilesModeName[6];

/// Counts the entries of a folder whose names match the mask and that the mode asks for.
/// Deliberate: of the subfolders, those that are hidden or that the process may not write are left
/// out, and a folder in which not even "." is writable may count as unreadable.
/// @param recurse  not 0: the entries of the subfolders too
/// @param value    minutes or bytes, as the mode says
/// @return the count, or -1 when the folder cannot be listed
int CountFiles(String folder, const String& mask, int recurse, TCountFilesMode mode, int value);

/// Adds the fields of one entry: name, attribute bits, and those asked for of size, status-change
/// time (0 when it cannot be told) and modification time.
/// @param folder  the entry's folder, ends in '/'
void AddFileStr(QovReply& reply, const String& folder, TSearchRec rec, int withSize,
                int withChangeTime, int withTime);

#pragma once

#include "core/wqstring.h"
#include "fs/search.h"
#include "protocol/reply.h"
#include "protocol/request.h"

/// "GetFilesList": the subfolders and files of a folder.
/// Parameters: 1 folder; 2 file mask; then flags: 3 list subfolders, 4 list files, 5 hidden
/// entries too, 6 system entries too, 7 size, 8 status-change time, 9 modification time.
/// "200" the folder listed, number of entries, fields per entry, then the entries' fields, folders
/// first. A folder that cannot be listed has none. "600" when all file checks are off.
void ProcessInfo_GetFileList(const VxRequest& params, QovReply& reply);

/// Adds the fields of one entry: name, attribute bits, and those asked for of size, status-change
/// time (0 when it cannot be told) and modification time.
/// @param folder  the entry's folder, ends in '/'
void AddFileStr(QovReply& reply, const String& folder, TSearchRec rec, int withSize,
                int withChangeTime, int withTime);

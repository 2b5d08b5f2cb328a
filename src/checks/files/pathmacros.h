#pragma once

#include "core/wqstring.h"
#include "protocol/request.h"

/// Paths that name a file by what the folder holds. Any thread.

/// Replaces "%newestfile%", "%oldestfile%", "%newestfolder%" and "%oldestfolder%" (in any case)
/// from left to right by the name of the entry that they tell of, looked for in the folder made of
/// everything before the macro. Age is the modification time; of equal ages the first one listed
/// wins, and symbolic links are never candidates.
/// @return the resolved path, or `path` as it was given when a macro has no candidate
String GetFileUsingSpecialMacros(String path);

/// Parameter `index`, with macros expanded when the flag in parameter `macroFlag` is set.
String GetPath(const VxRequest& params, int index, int macroFlag);

/// Full name of the first entry, not a folder, whose name matches the mask in the last component;
/// "" when there is none. A plain file name gives itself when the file exists.
String GetFirstMatchedFile(const String& mask);

#include "checks/files/pathmacros.h"

#include <stdint.h>
#include <string.h>

#include "checks/gate.h"
#include "fs/paths.h"
#include "fs/search.h"

namespace {

struct TPathMacro {
  const char* text;
  bool folders;
  bool newest;
};
constexpr TPathMacro kPathMacros[] = {
    {"%newestfile%", false, true},
    {"%oldestfile%", false, false},
    {"%newestfolder%", true, true},
    {"%oldestfolder%", true, false},
};

/// The leftmost macro and its position; null for none.
const TPathMacro* FindMacro(const String& path, int& position) {
  const TPathMacro* found = nullptr;
  for (const TPathMacro& macro : kPathMacros) {
    const int at = path.Search(macro.text, 0, 0);
    if (at == 0 || (found != nullptr && at >= position)) continue;
    found = &macro;
    position = at;
  }
  return found;
}

/// Name of the entry of `folder` that the macro stands for, "" for none.
String ChooseEntry(const String& folder, const TPathMacro& macro) {
  String best;
  int64_t bestTime = 0;
  TSearchRec rec;
  const TSearchCloser closer(rec);
  int found = FindFirst(folder, "*", AttrAny, rec, TFacts::kNoReadOnly);
  for (; found == 0; found = FindNext(rec)) {
    const bool isFolder = (rec.Attributes & AttrDirectory) != 0;
    if (isFolder != macro.folders || IsDotName(rec.EntryName)) continue;
    const bool better = macro.newest ? rec.ModifiedTime > bestTime : rec.ModifiedTime < bestTime;
    // Deliberate: the time 0 stands for "none chosen yet", so an entry of that age gives way to
    // whatever follows it.
    if (bestTime != 0 && !better) continue;
    best = rec.EntryName;
    bestTime = rec.ModifiedTime;
  }
  return best;
}

}  // namespace

String GetFileUsingSpecialMacros(String path) {
  String prefix;
  String rest = path;
  int position = 0;
  while (const TPathMacro* macro = FindMacro(rest, position)) {
    prefix += rest.Copy(1, position - 1);
    rest.Delete(1, position - 1 + static_cast<int>(strlen(macro->text)));
    const String name = ChooseEntry(prefix, *macro);
    if (name.Empty()) return path;
    prefix += name;
  }
  return prefix + rest;
}

String GetPath(const VxRequest& params, int index, int macroFlag) {
  const String path = params.GetValue(index);
  return Asked(params, macroFlag) ? GetFileUsingSpecialMacros(path) : path;
}

String GetFirstMatchedFile(const String& mask) {
  constexpr int kNoFolders = AttrAny & ~AttrDirectory;
  const String folder = ExtractFilePath(mask);
  TSearchRec rec;
  const TSearchCloser closer(rec);
  if (FindFirst(folder, ExtractFileName(mask), kNoFolders, rec, TFacts::kNoReadOnly) != 0)
    return "";
  return folder + rec.EntryName;
}

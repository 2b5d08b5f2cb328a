#include "checks/files/filetests.h"

#include <stdint.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "checks/files/filecontent.h"
#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "config/settings.h"
#include "fs/files.h"
#include "fs/paths.h"
#include "fs/search.h"

const char* const CountFilesModeName[6] = {"AllFiles",   "OlderThan",   "NewerThan",
                                           "BiggerThan", "SmallerThan", "SubFolders"};

namespace {

int64_t sec2min(int64_t seconds) { return seconds / 60; }

int64_t now_min() { return sec2min(time(nullptr)); }

/// Parameter `index`, with macros expanded when the flag parameter says so.
String GetPath(const VxRequest& params, int index, int macroFlag) {
  const String path = params.GetValue(index);
  return Asked(params, macroFlag) ? GetFileUsingSpecialMacros(path) : path;
}

constexpr char kNoSuchFile[] = "File doesn`t exist";

/// Answers with a result that is negative for an error.
void AddOutcome(double result, QovReply& reply) {
  if (result < 0) return Refuse(reply, "I/O Error");
  reply.SetResult(kResultDone).AddBoolParam(result != 0);
}

void CompareTwoFiles(const VxRequest& params, const String& first, QovReply& reply) {
  const String second = GetPath(params, 3, 13);
  if (!FileExists(second.CStr())) return Refuse(reply, kNoSuchFile);
  bool equal = !Asked(params, 4) || FileAge(first.CStr()) == FileAge(second.CStr());
  if (equal && Asked(params, 5)) equal = FileSize(first.CStr()) == FileSize(second.CStr());
  const bool read = equal && Asked(params, 6);
  AddOutcome(read ? CompareFiles(first.CStr(), second.CStr()) : equal, reply);
}

void SearchText(const VxRequest& params, const String& file, QovReply& reply) {
  String text = params.GetText(3);
  AddOutcome(FindStrInFile(file.CStr(), text, Asked(params, 4), Asked(params, 5)), reply);
}

void SearchFile(const VxRequest& params, const String& file, QovReply& reply) {
  constexpr int64_t kMaxPatternBytes = 8 * 1024 * 1024;
  const String pattern = params.GetValue(3);
  if (!FileExists(pattern.CStr())) return Refuse(reply, kNoSuchFile);
  if (FileSize(pattern.CStr()) > kMaxPatternBytes) {
    return Refuse(reply, "The size of the second file cannot exceed 8Mb");
  }
  AddOutcome(FindFileInFile(file.CStr(), pattern.CStr()), reply);
}

struct TCompareMode {
  const char* name;  // compared as text
  int macroFlag;     // parameter that asks for macros in the first file
  void (*run)(const VxRequest& params, const String& file, QovReply& reply);
};
constexpr TCompareMode kCompareModes[] = {
    {"1", 12, CompareTwoFiles},
    {"2", 9, SearchText},
    {"3", 11, SearchFile},
    {"4", 12, nullptr},  // takes its file as the others do, then is refused
};

bool IsSubfolder(const TSearchRec& rec) {
  return (rec.Attributes & AttrDirectory) != 0 && !IsDotName(rec.EntryName);
}

/// Whether CountFiles counts the entry found.
bool Counts(const TSearchRec& rec, TCountFilesMode mode, int value) {
  if ((rec.Attributes & AttrDirectory) != 0) return mode == cfSubFolders && IsSubfolder(rec);
  const int64_t minute = sec2min(static_cast<int>(rec.ModifiedTime));
  switch (mode) {
    case cfAllFiles:
      return true;
    case cfOlderThan:
      return minute < now_min() - value;
    case cfNewerThan:
      return minute > now_min() - value;
    case cfBiggerThan:
      return rec.ByteSize > value;
    case cfSmallerThan:
      return rec.ByteSize < value;
    case cfSubFolders:
      return false;
  }
  return false;
}

/// Counts in one folder and adds its subfolders to `waiting`, if that is given.
/// @return the count, or -1
int64_t CountInFolder(const String& folder, const String& mask, TCountFilesMode mode, int value,
                      std::vector<String>* waiting) {
  int64_t count = 0;
  TSearchRec rec;
  const TSearchCloser closer(rec);
  int found = FindFirst(folder, mask, AttrAny, rec, TReadOnly::kUnseen);
  const bool matched = found == 0;
  for (; found == 0; found = FindNext(rec)) {
    if (Counts(rec, mode, value)) ++count;
  }
  FindClose(rec);
  if (matched && waiting == nullptr) return count;
  found = FindFirst(folder, "*", AttrDirectory, rec);
  if (found != 0) return -1;
  for (; found == 0 && waiting != nullptr; found = FindNext(rec)) {
    if (IsSubfolder(rec)) waiting->push_back(folder + rec.EntryName + '/');
  }
  return count;
}

}  // namespace

int GetFileInfo(const char* path, long& size, long& ctime, long& mtime) {
  struct stat facts;
  if (path == nullptr || *path == 0 || lstat(path, &facts) != 0) return 0;
  size = facts.st_size;
  ctime = facts.st_ctime;
  mtime = facts.st_mtime;
  return 1;
}

int CountFiles(String folder, const String& mask, int recurse, TCountFilesMode mode, int value) {
  if (!folder.Empty()) folder = IncludeTrailingPathDelimiter(folder);
  // Subfolders wait here: depth costs neither stack nor descriptors.
  std::vector<String> waiting;
  std::vector<String>* subfolders = recurse != 0 ? &waiting : nullptr;
  int64_t total = CountInFolder(folder, mask, mode, value, subfolders);
  if (total < 0) return -1;
  while (!waiting.empty()) {
    const String next = std::move(waiting.back());
    waiting.pop_back();
    total += std::max<int64_t>(0, CountInFolder(next, mask, mode, value, subfolders));
  }
  return Saturated(total);
}

void ProcessTest_FileExists(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->fileexists, reply)) return;
  String path = GetPath(params, 1, 7);
  long sizeBytes = 0;
  long changed = 0;
  long modified = 0;
  if (GetFileInfo(path.CStr(), sizeBytes, changed, modified) == 0) {
    path = GetFirstMatchedFile(path);
    if (GetFileInfo(path.CStr(), sizeBytes, changed, modified) == 0) {
      return Refuse(reply, "no such file or acess denied");
    }
  }
  reply.SetResult(kResultDone);
  reply.AddIntParam(static_cast<double>(sizeBytes));
  reply.AddTimeParam(time_t{changed});
  reply.AddTimeParam(time_t{modified});
  reply.AddStringParam(path, 1);
  reply.AddStringParam("min", 0);
  reply.AddIntParam(Saturated(sec2min(time(nullptr) - modified)));
}

void ProcessTest_FileCompare(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->comparefiles, reply)) return;
  const String mode = params.GetValue(1);
  const auto* row = std::find_if(std::begin(kCompareModes), std::end(kCompareModes),
                                 [&mode](const TCompareMode& m) { return mode == m.name; });
  const bool known = row != std::end(kCompareModes);
  const String file = known ? GetPath(params, 2, row->macroFlag) : params.GetValue(2);
  if (!FileExists(file.CStr())) return Refuse(reply, kNoSuchFile);
  if (!known || row->run == nullptr) return RefuseParameter(reply);
  row->run(params, file, reply);
}

void ProcessTest_FileCRC(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->filecrc, reply)) return;
  unsigned int crc = 0;
  String error;
  if (GetFileCRC(params.GetValue(1).CStr(), &crc, error) == 0) return Refuse(reply, error.CStr());
  reply.SetResult(kResultDone).AddIntParam(static_cast<double>(crc));
}

void ProcessTest_CountFiles(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->countfiles, reply)) return;
  const String folder = GetPath(params, 1, 11);
  const int mode = qovDecodeInt(params.GetValue(4));
  int value = 0;
  if (mode < cfAllFiles || mode > cfSubFolders || qovDecodeInt(params.GetValue(5), &value) == 0) {
    return RefuseParameter(reply);
  }
  const int count = CountFiles(folder, params.GetValue(2), Asked(params, 3),
                               static_cast<TCountFilesMode>(mode), value);
  if (count == -1) return Refuse(reply, "Folder doesn`t exist or access denied");
  reply.SetResult(kResultDone).AddIntParam(count);
}

#include "checks/files/diskfolder.h"

#include <fnmatch.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "checks/files/filetests.h"
#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "config/settings.h"
#include "fs/files.h"
#include "fs/paths.h"

const char* const CountFilesModeName[6] = {"AllFiles",   "OlderThan",   "NewerThan",
                                           "BiggerThan", "SmallerThan", "SubFolders"};

namespace {

bool IsFolder(const TSearchRec& rec) { return (rec.Attributes & AttrDirectory) != 0; }

/// Adds the sizes of the files of `folder` that match the mask, and puts the subfolders on
/// `waiting` (null: leaves them out), each with the mask behind its name.
/// @return false when the folder cannot be listed
bool AddFolder(const String& folder, const String& mask, double& total,
               std::vector<String>* waiting) {
  TSearchRec rec;
  const TSearchCloser closer(rec);
  // The folder itself is an entry of its own, so that one that can be listed is never empty.
  int found = FindFirst(folder, mask, AttrAny, rec, TFacts::kNoReadOnly, TFolders::kAll);
  if (found != 0) return false;
  // Deliberate: without a folder, the subfolders of the working folder are looked for below "/".
  const String base = IncludeTrailingPathDelimiter(folder);
  for (; found == 0; found = FindNext(rec)) {
    if (!IsFolder(rec)) {
      total += static_cast<double>(rec.ByteSize);
    } else if (waiting != nullptr && !IsDotName(rec.EntryName)) {
      waiting->push_back(base + rec.EntryName + '/' + mask);
    }
  }
  return true;
}

bool AddPath(const String& path, bool isFolder, double& total, std::vector<String>* waiting) {
  if (isFolder) return AddFolder(path, "*", total, waiting);
  return AddFolder(ExtractFilePath(path), ExtractFileName(path), total, waiting);
}

/// Deliberate: a symbolic link is not followed.
bool IsFolderItself(const String& path) {
  struct stat facts;
  return lstat(path.CStr(), &facts) == 0 && S_ISDIR(facts.st_mode);
}

/// Whether CountFiles counts the entry found.
bool Counts(const TSearchRec& rec, TCountFilesMode mode, int value) {
  if (IsFolder(rec)) return mode == cfSubFolders && !IsDotName(rec.EntryName);
  const int64_t minute = static_cast<int>(rec.ModifiedTime) / 60;
  return mode == cfAllFiles || (mode == cfOlderThan && minute < time(nullptr) / 60 - value) ||
         (mode == cfNewerThan && minute > time(nullptr) / 60 - value) ||
         (mode == cfBiggerThan && rec.ByteSize > value) ||
         (mode == cfSmallerThan && rec.ByteSize < value);
}

/// Whether a recursion goes there: deliberate, not into hidden folders nor where nothing may be
/// written.
bool IsOpenFolder(const TSearchRec& rec) {
  return IsFolder(rec) && (rec.Attributes & AttrHidden) == 0 &&
         faccessat(dirfd(rec.DirStream), rec.EntryName, W_OK, 0) == 0;
}

/// Counts in one folder and adds its subfolders to `waiting`, if that is given.
/// @return the count, or -1
int64_t CountInFolder(const String& folder, const String& mask, TCountFilesMode mode, int value,
                      std::vector<String>* waiting) {
  int64_t count = 0;
  TSearchRec rec;
  const TSearchCloser closer(rec);
  const bool byKind = mode == cfAllFiles || mode == cfSubFolders;
  int found = FindFirst(folder, mask, AttrAny, rec, byKind ? TFacts::kKind : TFacts::kNoReadOnly,
                        waiting != nullptr ? TFolders::kAll : TFolders::kMasked);
  bool readable = found == 0 && waiting == nullptr;
  for (; found == 0; found = FindNext(rec)) {
    const bool masked =
        waiting == nullptr || !IsFolder(rec) || fnmatch(mask.CStr(), rec.EntryName, 0) == 0;
    if (masked && Counts(rec, mode, value)) ++count;
    if (waiting == nullptr || !IsOpenFolder(rec)) continue;
    readable = true;
    if (!IsDotName(rec.EntryName)) waiting->push_back(folder + rec.EntryName + '/');
  }
  FindClose(rec);
  // Files matter where no folder will do, not even ".".
  return readable || FindFirst(folder, "*", AttrDirectory, rec) == 0 ? count : -1;
}

/// Any check that works on files lets the server look for them.
bool MayBrowse(const TQovSettings& settings) {
  return settings.foldersize != 0 || settings.countfiles != 0 || settings.fileexists != 0 ||
         settings.filecrc != 0 || settings.comparefiles != 0 || settings.textlog != 0;
}

}  // namespace

int GetUNCDriveInfo(const char* path, double& total, double& free, double& avail) {
  struct statfs64 facts;
  if (statfs64(path, &facts) != 0) return 0;
  const double blockBytes = static_cast<double>(facts.f_bsize);
  total = static_cast<double>(facts.f_blocks) * blockBytes;
  free = static_cast<double>(facts.f_bfree) * blockBytes;
  avail = static_cast<double>(facts.f_bavail) * blockBytes;
  return 1;
}

double GetFolderSize(String path, int recurse) {
  double total = 0;
  std::vector<String> waiting;
  const bool isFolder = DirectoryExists(path.CStr());
  if (!AddPath(path, isFolder, total, recurse != 0 ? &waiting : nullptr)) return -1.0;
  while (!waiting.empty()) {
    const String next = std::move(waiting.back());
    waiting.pop_back();
    // Deliberate: folder and mask are one path again, so a subfolder that holds a folder with the
    // mask as its name is measured as that folder, and nothing beside it.
    AddPath(next, IsFolderItself(next), total, &waiting);
  }
  return total;
}

int CountFiles(String folder, const String& mask, int recurse, TCountFilesMode mode, int value) {
  if (!folder.Empty()) folder = IncludeTrailingPathDelimiter(folder);
  std::vector<String> waiting;
  int64_t total = CountInFolder(folder, mask, mode, value, recurse != 0 ? &waiting : nullptr);
  if (total < 0) return -1;
  while (!waiting.empty()) {
    const String next = std::move(waiting.back());
    waiting.pop_back();
    total += std::max<int64_t>(0, CountInFolder(next, mask, mode, value, &waiting));
  }
  return Saturated(total);
}

void AddFileStr(QovReply& reply, const String& folder, TSearchRec rec, int withSize,
                int withChangeTime, int withTime) {
  reply.AddStringParam(rec.EntryName, 1);
  reply.AddIntParam(rec.Attributes);
  if (withSize != 0) reply.AddIntParam(static_cast<double>(rec.ByteSize));
  if (withChangeTime != 0) {
    long sizeBytes;
    long changed = 0;
    long modified;
    GetFileInfo((folder + rec.EntryName).CStr(), sizeBytes, changed, modified);
    reply.AddTimeParam(time_t{changed});
  }
  if (withTime != 0) reply.AddTimeParam(time_t{rec.ModifiedTime});
}

void ProcessTest_UNC(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->unc, reply)) return;
  String path = params.GetValue(1);
  if (!path.Empty() && path[path.Length()] == '\\') path.Delete(path.Length(), 1);
  if (path.Empty()) {
    reply.SetResult(kResultWrongParameter) += "Path not specified";
    return;
  }
  double sizes[3];
  // Deliberate: the reply carries no reason.
  if (GetUNCDriveInfo(path.CStr(), sizes[0], sizes[1], sizes[2]) == 0) return Refuse(reply, "");
  reply.SetResult(kResultDone);
  for (const double size : sizes) reply.AddIntParam(size);
}

void ProcessTest_FolderSize(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->foldersize, reply)) return;
  const double sizeBytes = GetFolderSize(GetPath(params, 1, 8), Asked(params, 2));
  if (sizeBytes < 0) return Refuse(reply, "Folder/File doesn`t exist or access denied");
  reply.SetResult(kResultDone).AddIntParam(sizeBytes);
}

void ProcessTest_CountFiles(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->countfiles, reply)) return;
  const int mode = qovDecodeInt(params.GetValue(4));
  int value = 0;
  if (mode < cfAllFiles || mode > cfSubFolders || qovDecodeInt(params.GetValue(5), &value) == 0) {
    return RefuseParameter(reply);
  }
  const int count = CountFiles(GetPath(params, 1, 11), params.GetValue(2), Asked(params, 3),
                               static_cast<TCountFilesMode>(mode), value);
  if (count == -1) return Refuse(reply, "Folder doesn`t exist or access denied");
  reply.SetResult(kResultDone).AddIntParam(count);
}

void ProcessInfo_GetFileList(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(MayBrowse(*CurrentSettings()), reply)) return;
  // A path that is no folder is cut back to the folder it lies in.
  String folder = params.GetValue(1);
  if (!DirectoryExists(folder.CStr())) folder = ExtractFilePath(folder);
  folder = IncludeTrailingPathDelimiter(folder);
  String mask = params.GetValue(2);
  if (mask.Empty()) mask = "*";
  const int unwanted = (Asked(params, 5) ? 0 : AttrHidden) | (Asked(params, 6) ? 0 : AttrSystem);
  const int withSize = Asked(params, 7);
  const int withChangeTime = Asked(params, 8);
  const int withTime = Asked(params, 9);
  QovReply entries;
  int count = 0;
  for (const bool folders : {true, false}) {
    if (!Asked(params, folders ? 3 : 4)) continue;
    TSearchRec rec;
    const TSearchCloser closer(rec);
    int found = FindFirst(folder, folders ? "*" : mask, AttrAny & ~unwanted, rec);
    for (; found == 0; found = FindNext(rec)) {
      // Deliberate: "." is left out of the folders, ".." is not.
      if (IsFolder(rec) != folders || (folders && strcmp(rec.EntryName, ".") == 0)) continue;
      AddFileStr(entries, folder, rec, withSize, withChangeTime, withTime);
      ++count;
    }
  }
  reply.SetResult(kResultDone);
  reply.AddStringParam(folder, 1);
  reply.AddIntParam(count);
  reply.AddIntParam(2 + withSize + withChangeTime + withTime);
  reply += entries;
}

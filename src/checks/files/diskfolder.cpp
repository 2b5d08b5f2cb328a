#include "checks/files/diskfolder.h"

#include <sys/stat.h>
#include <sys/vfs.h>

#include <utility>
#include <vector>

#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "config/settings.h"
#include "fs/files.h"
#include "fs/paths.h"
#include "fs/search.h"

namespace {

/// One listing of a folder walk: adds the sizes of the files of `folder` that match the mask, and
/// puts the subfolders on `waiting` (null: leaves them out), each with the mask behind its name.
/// @return false when the folder cannot be listed
bool AddFolder(const String& folder, const String& mask, double& total,
               std::vector<String>* waiting) {
  TSearchRec rec;
  const TSearchCloser closer(rec);
  // The folder itself is an entry of its own, so that one that can be listed is never empty.
  int found = FindFirst(folder, mask, AttrAny, rec, TReadOnly::kUnseen, TFolders::kAll);
  if (found != 0) return false;
  // Deliberate: without a folder, the subfolders of the working folder are looked for below "/".
  const String base = IncludeTrailingPathDelimiter(folder);
  for (; found == 0; found = FindNext(rec)) {
    if ((rec.Attributes & AttrDirectory) == 0) {
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
  // Subfolders wait here: depth costs neither stack nor descriptors.
  std::vector<String> waiting;
  std::vector<String>* subfolders = recurse != 0 ? &waiting : nullptr;
  if (!AddPath(path, DirectoryExists(path.CStr()), total, subfolders)) return -1.0;
  while (!waiting.empty()) {
    const String next = std::move(waiting.back());
    waiting.pop_back();
    // Deliberate: folder and mask are one path again, so a subfolder that holds a folder with the
    // mask as its name is measured as that folder, and nothing beside it.
    AddPath(next, IsFolderItself(next), total, subfolders);
  }
  return total;
}

void ProcessTest_UNC(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->unc, reply)) return;
  String path = params.GetValue(1);
  if (!path.Empty() && path[path.Length()] == '\\') path.Delete(path.Length(), 1);
  if (path.Empty()) {
    reply.SetResult(kResultWrongParameter) += "Path not specified";
    return;
  }
  double total = 0;
  double free = 0;
  double avail = 0;
  if (GetUNCDriveInfo(path.CStr(), total, free, avail) == 0) {
    // Deliberate: the reply carries no reason.
    reply.SetResult(kResultCannot);
    return;
  }
  reply.SetResult(kResultDone);
  reply.AddIntParam(total);
  reply.AddIntParam(free);
  reply.AddIntParam(avail);
}

void ProcessTest_FolderSize(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->foldersize, reply)) return;
  String path = params.GetValue(1);
  if (Asked(params, 8)) path = GetFileUsingSpecialMacros(path);
  const double sizeBytes = GetFolderSize(path, Asked(params, 2));
  if (sizeBytes < 0) return Refuse(reply, "Folder/File doesn`t exist or access denied");
  reply.SetResult(kResultDone).AddIntParam(sizeBytes);
}

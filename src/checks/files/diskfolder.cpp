#include "checks/files/diskfolder.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <limits.h>
#include <stddef.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <string>
#include <utility>
#include <vector>

#include "checks/files/pathmacros.h"
#include "checks/gate.h"
#include "config/settings.h"
#include "core/owned.h"
#include "fs/files.h"
#include "fs/paths.h"
#include "fs/search.h"

namespace {

constexpr char kEveryName[] = "*";

/// Deliberate: a symbolic link is not followed.
TFd OpenFolderAt(int base, const char* path) {
  return TFd(openat(base, path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

/// Opens a folder whose path may be longer than the system takes in one piece.
TFd OpenSubfolder(const std::string& path) {
  const char* rest = path.c_str();
  size_t left = path.size();
  TFd base;
  int at = AT_FDCWD;
  while (left >= PATH_MAX) {
    const void* cut = memrchr(rest, '/', PATH_MAX - 1);
    if (cut == nullptr || cut == rest) return TFd();
    const std::string head(rest, static_cast<const char*>(cut));
    base = TFd(openat(at, head.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (!base) return TFd();
    at = base.Get();
    rest += head.size() + 1;
    left -= head.size() + 1;
  }
  return OpenFolderAt(at, rest);
}

bool IsFolderAt(int folder, const char* name) {
  struct stat facts;
  return fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(facts.st_mode);
}

/// Adds up the files below one folder. Each listing is read to its end before a subfolder is
/// entered, so that depth costs neither descriptors nor stack.
class TFolderWalk {
 public:
  TFolderWalk(const String& folder, const String& mask, bool recurse)
      : path_(folder.Empty() ? "." : folder.CStr()), mask_(mask.CStr()), recurse_(recurse) {}

  double Run() {
    TFd top(open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!top || !List(std::move(top), mask_.c_str())) return -1.0;
    while (!levels_.empty()) {
      TLevel& level = levels_.back();
      if (level.next == level.subfolders.size()) {
        levels_.pop_back();
        continue;
      }
      const bool parentIsOpen = level.next == 0;
      const char* name = level.subfolders.c_str() + level.next;
      level.next += strlen(name) + 1;
      path_.resize(level.pathLength);
      Descend(name);
      Enter(parentIsOpen ? OpenFolderAt(dirfd(listing_.get()), name) : OpenSubfolder(path_),
            level.mask);
    }
    return total_;
  }

 private:
  struct TLevel {
    size_t pathLength;
    const char* mask;
    std::string subfolders;  // names, each with a terminator
    size_t next = 0;
  };

  void Descend(const char* name) {
    if (path_.back() != '/') path_ += '/';
    path_ += name;
  }

  void Enter(TFd folder, const char* mask) {
    if (!folder) return;
    // Deliberate: folder and mask are one path again, so a subfolder that holds a folder with the
    // mask as its name is measured as that folder, and nothing beside it.
    if (IsFolderAt(folder.Get(), mask)) {
      Descend(mask);
      folder = OpenFolderAt(folder.Get(), mask);
      if (!folder) return;
      mask = kEveryName;
    }
    List(std::move(folder), mask);
  }

  /// Adds the folder's files and notes its subfolders; false when nothing in it can be seen.
  bool List(TFd folder, const char* mask) {
    struct stat facts;
    if (fstatat(folder.Get(), ".", &facts, 0) != 0) return false;
    listing_.reset(fdopendir(folder.Get()));
    if (listing_ == nullptr) return false;
    const int descriptor = folder.Release();
    TLevel level{path_.size(), mask, {}};
    while (const dirent* entry = readdir(listing_.get())) Take(descriptor, *entry, level);
    if (!level.subfolders.empty()) levels_.push_back(std::move(level));
    return true;
  }

  void Take(int folder, const dirent& entry, TLevel& level) {
    const char* name = entry.d_name;
    if (entry.d_type == DT_LNK) return;
    if (entry.d_type == DT_DIR) return Note(name, level);
    const bool matches = strcmp(level.mask, kEveryName) == 0 || fnmatch(level.mask, name, 0) == 0;
    if (!matches && entry.d_type != DT_UNKNOWN) return;
    struct stat facts;
    if (fstatat(folder, name, &facts, AT_SYMLINK_NOFOLLOW) != 0 || S_ISLNK(facts.st_mode)) return;
    if (S_ISDIR(facts.st_mode)) return Note(name, level);
    if (matches) total_ += static_cast<double>(facts.st_size);
  }

  void Note(const char* name, TLevel& level) {
    if (!recurse_ || IsDotName(name)) return;
    level.subfolders.append(name, strlen(name) + 1);
  }

  std::string path_;
  std::string mask_;
  bool recurse_;
  double total_ = 0;
  std::vector<TLevel> levels_;
  TDir listing_;  // of the folder listed last
};

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
  if (DirectoryExists(path.CStr())) return TFolderWalk(path, kEveryName, recurse != 0).Run();
  return TFolderWalk(ExtractFilePath(path), ExtractFileName(path), recurse != 0).Run();
}

void ProcessTest_UNC(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->unc, reply)) return;
  String path = params.GetParam(1, 1);
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
  String path = params.GetParam(1, 1);
  const int recurse = qovDecodeBool(params.GetParam(2, 1));
  if (qovDecodeBool(params.GetParam(8, 1)) != 0) path = GetFileUsingSpecialMacros(path);
  const double sizeBytes = GetFolderSize(path, recurse);
  if (sizeBytes < 0) {
    reply.SetResult(kResultCannot) += "Folder/File doesn`t exist or access denied";
    return;
  }
  reply.SetResult(kResultDone).AddIntParam(sizeBytes);
}

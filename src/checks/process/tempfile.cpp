#include "checks/process/tempfile.h"

#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

#include "config/tempfolder.h"
#include "fs/files.h"

int64_t filenumber = 1;
std::mutex fidmutex;

namespace {

constexpr int kMinimumSize = 16;  ///< least buffer, and room kept behind the folder's name
constexpr int64_t kHighestNumber = 999999;
constexpr int kTries = 2000;
constexpr int kCandidateSize = 1024;
constexpr mode_t kNewFileMode = 0666;

/// The modification time of a file that nobody has written since it was made: the first of January
/// 2000, which every file system can hold.
constexpr timespec kUnwritten = {946684800, 0};

std::mutex liveMutex;
std::vector<const char*> livePaths;  // of every TTempFile that has one; under liveMutex

int NextFileNumber() {
  const std::lock_guard<std::mutex> lock(fidmutex);
  if (filenumber > kHighestNumber) filenumber = 0;
  return static_cast<int>(++filenumber);
}

/// Deliberate: text that does not fit is cut, as callers with names of their own rely on.
void AppendCut(char* buf, int size, const char* text) {
  const size_t length = strlen(buf);
  const size_t room = static_cast<size_t>(size) - 1 - length;
  const size_t count = std::min(room, strlen(text));
  memcpy(buf + length, text, count);
  buf[length + count] = 0;
}

bool AppendUnusedName(char* buf, int size) {
  char own[48];
  snprintf(own, sizeof(own), "tmp-%ld-", static_cast<long>(GetUniqueThreadID()));
  AppendCut(buf, size, own);
  const String prefix = buf;
  for (int i = 0; i < kTries; ++i) {
    char candidate[kCandidateSize];
    snprintf(candidate, sizeof(candidate), "%s%d", prefix.CStr(), NextFileNumber());
    if (strlen(candidate) <= static_cast<size_t>(prefix.Length())) return false;
    if (FileExists(candidate)) continue;
    buf[0] = 0;
    AppendCut(buf, size, candidate);
    return true;
  }
  return false;
}

/// In the forked child, which has a copy of the paths: unlinks them when the other end of `socket`
/// closes without a word, as it does when the parent becomes another program.
[[noreturn]] void Keep(int socket) {
  dup2(socket, 0);
  closefrom(1);
  char word;
  ssize_t result;
  while ((result = read(0, &word, 1)) == -1 && errno == EINTR) {
  }
  if (result == 0) {
    for (const char* path : livePaths) unlink(path);
  }
  _exit(0);
}

/// The child that removes the files there are now once this process has become another program.
/// Lives under liveMutex, so that its copy of the paths is whole and stays true.
class TKeeper {
 public:
  TKeeper() {
    int ends[2];
    if (livePaths.empty() || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return;
    parent_ = TFd(ends[0]);
    const TFd child(ends[1]);
    sigset_t all, before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // no handler of the agent runs in the child
    pid_ = fork();
    if (pid_ == 0) Keep(child.Get());
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
  }
  /// The process is still what it was: sends the child away and waits for it.
  ~TKeeper() {
    if (pid_ == -1) return;
    const int error = errno;
    send(parent_.Get(), "", 1, MSG_NOSIGNAL);
    while (waitpid(pid_, nullptr, 0) == -1 && errno == EINTR) {
    }
    errno = error;
  }
  TKeeper(const TKeeper&) = delete;
  TKeeper& operator=(const TKeeper&) = delete;

 private:
  pid_t pid_ = -1;
  TFd parent_;
};

}  // namespace

int64_t GetUniqueThreadID() {
  const auto process = static_cast<int32_t>(static_cast<uint32_t>(getpid()) << 8);
  return process + static_cast<int64_t>(pthread_self());
}

int gettempfilename(char* buf, int size, const char* name) {
  if (buf == nullptr || size < kMinimumSize) return 0;
  buf[0] = 0;
  const String folder = TempFolder().value_or(".") + "/";
  if (folder.Length() + kMinimumSize > size) return 0;
  AppendCut(buf, size, folder.CStr());
  if (name != nullptr) {
    AppendCut(buf, size, name);
    return 1;
  }
  if (AppendUnusedName(buf, size)) return 1;
  buf[0] = 0;
  return 0;
}

TTempFile::~TTempFile() {
  if (path_[0] == 0) return;
  unlink(path_);
  const std::lock_guard<std::mutex> lock(liveMutex);
  std::erase(livePaths, path_);
}

bool TTempFile::Choose(const char* name) {
  if (gettempfilename(path_, sizeof(path_), name) == 0) return false;
  const std::lock_guard<std::mutex> lock(liveMutex);
  livePaths.push_back(path_);
  return true;
}

void RemoveTempFiles() {
  const std::lock_guard<std::mutex> lock(liveMutex);
  for (const char* path : livePaths) unlink(path);
}

int ExecuteAndRemoveTempFiles(const char* path, char* const argv[], char* const envp[]) {
  const std::lock_guard<std::mutex> lock(liveMutex);
  const TKeeper keeper;
  execve(path, argv, envp);
  return errno;
}

TFd TTempFile::Create() {
  TFd fd = CreateFresh(path_, kNewFileMode);
  const timespec times[] = {kUnwritten, kUnwritten};
  if (fd) futimens(fd.Get(), times);
  return fd;
}

TFile TTempFile::OpenText() const {
  // Without O_NONBLOCK a program could put a pipe here and hold the reader for ever.
  TFd fd(open(path_, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  struct stat facts;
  if (!fd || !IsRegularFile(fd.Get(), facts)) return nullptr;
  if (facts.st_mtim.tv_sec == kUnwritten.tv_sec && facts.st_mtim.tv_nsec == kUnwritten.tv_nsec) {
    return nullptr;
  }
  TFile file(fdopen(fd.Get(), "r"));
  if (file) fd.Release();
  return file;
}

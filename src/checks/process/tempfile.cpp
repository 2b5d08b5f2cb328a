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

#include <string>
#include <vector>

#include "config/tempfolder.h"
#include "fs/files.h"

int64_t filenumber = 1;
std::mutex fidmutex;

namespace {

constexpr size_t kMinimumSize = 16;  ///< least buffer, and room kept behind the folder's name
constexpr int kTries = 2000;

/// The modification time of a file that nobody has written since it was made: the first of January
/// 2000, which every file system can hold.
constexpr timespec kUnwritten = {946684800, 0};

std::mutex liveMutex;
std::vector<const char*> livePaths;  // of every TTempFile that has one; under liveMutex

int NextFileNumber() {
  const std::lock_guard<std::mutex> lock(fidmutex);
  if (filenumber > 999999) filenumber = 0;
  return static_cast<int>(++filenumber);
}

/// Unlinks every file. REQUIRES: liveMutex held.
void UnlinkAll() {
  for (const char* path : livePaths) unlink(path);
}

/// Forks a child that has a copy of the paths and unlinks them when the other end of `socket`
/// closes without a word, as it does when this process becomes another program.
pid_t StartKeeper(int socket) {
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);  // no handler of the agent runs in the child
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(socket, 0);
    closefrom(1);
    char word;
    if (read(0, &word, 1) == 0) UnlinkAll();
    _exit(0);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return pid;
}

}  // namespace

int64_t GetUniqueThreadID() {
  const auto process = static_cast<int32_t>(static_cast<uint32_t>(getpid()) << 8);
  return process + static_cast<int64_t>(pthread_self());
}

int gettempfilename(char* buf, int size, const char* name) {
  if (buf == nullptr || size < static_cast<int>(kMinimumSize)) return 0;
  const auto room = static_cast<size_t>(size);
  std::string path = TempFolder().value_or(".").CStr();
  path += '/';
  buf[0] = 0;
  if (path.size() + kMinimumSize > room) return 0;
  // Deliberate: text that does not fit is cut, as callers with names of their own rely on.
  if (name != nullptr) {
    snprintf(buf, room, "%s%s", path.c_str(), name);
    return 1;
  }
  path = (path + "tmp-" + std::to_string(GetUniqueThreadID()) + '-').substr(0, room - 1);
  for (int i = 0; i < kTries; ++i) {
    char candidate[1024];
    snprintf(candidate, sizeof(candidate), "%s%d", path.c_str(), NextFileNumber());
    if (strlen(candidate) <= path.size()) return 0;
    if (FileExists(candidate)) continue;
    snprintf(buf, room, "%s", candidate);
    return 1;
  }
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
  UnlinkAll();
}

int ExecuteAndRemoveTempFiles(const char* path, char* const argv[], char* const envp[]) {
  const std::lock_guard<std::mutex> lock(liveMutex);  // the copy of the paths stays true
  int ends[2] = {-1, -1};
  if (!livePaths.empty()) socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends);
  const TFd parent(ends[0]), child(ends[1]);
  const pid_t keeper = child ? StartKeeper(child.Get()) : -1;
  execve(path, argv, envp);
  const int error = errno;
  send(parent.Get(), "", 1, MSG_NOSIGNAL);  // still the same process: sends the keeper away
  if (keeper != -1) TEMP_FAILURE_RETRY(waitpid(keeper, nullptr, 0));
  return error;
}

TFd TTempFile::Create() {
  TFd fd = CreateFresh(path_, 0666);
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

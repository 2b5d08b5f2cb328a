#include "checks/process/child.h"

#include <errno.h>
#include <fcntl.h>
#include <paths.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <type_traits>
#include <vector>

#include "config/tempfolder.h"

namespace {

std::optional<rlimit> childDescriptors;

std::mutex backgroundMutex;
std::vector<pid_t> background;  // under backgroundMutex

/// The paths at which execvp would look for the program, in its order.
std::vector<std::string> CandidatePaths(const char* program) {
  if (program == nullptr || program[0] == 0) return {};
  if (strchr(program, '/') != nullptr) return {program};
  const char* path = getenv("PATH");
  if (path == nullptr) path = _PATH_DEFPATH;
  std::vector<std::string> result;
  for (const char* rest = path;; ++rest) {
    const size_t length = strcspn(rest, ":");
    result.push_back(std::string(rest, length) + (length != 0 ? "/" : "") + program);
    rest += length;
    if (*rest == 0) return result;
  }
}

/// Whether execvp looks at the next path after this error.
bool SearchGoesOn(int error) {
  return error == EACCES || error == ENOENT || error == ESTALE || error == ENOTDIR ||
         error == ENODEV || error == ETIMEDOUT;
}

/// The environment with TMPDIR set to the folder for temporary files. Nothing changes the entries
/// themselves.
std::vector<char*> ChildEnvironment(std::string& tmpdirEntry) {
  constexpr char kName[] = "TMPDIR=";
  std::vector<char*> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    if (strncmp(*entry, kName, sizeof(kName) - 1) != 0) result.push_back(*entry);
  }
  if (const std::optional<String> folder = TempFolder()) {
    tmpdirEntry = std::string(kName) + folder->CStr();
    result.push_back(tmpdirEntry.data());
  }
  result.push_back(nullptr);
  return result;
}

/// The library's lists of what a child does first. Nothing is left out of them where memory is
/// short.
struct TSpawnLists {
  TSpawnLists() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
  }
  ~TSpawnLists() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  TSpawnLists(const TSpawnLists&) = delete;
  TSpawnLists& operator=(const TSpawnLists&) = delete;

  /// @param add  one of the library's functions that adds an action
  template <class... TArguments>
  void Add(int (*add)(posix_spawn_file_actions_t*, TArguments...),
           std::type_identity_t<TArguments>... arguments) {
    if (add(&actions, arguments...) == ENOMEM) throw std::bad_alloc();
  }

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
};

/// One start, prepared: what the child does between its birth and its program, and the descriptors
/// that this takes, opened here so that nothing in the child can wait.
class TStarter {
 public:
  explicit TStarter(const TChildPlan& plan);
  /// Starts the program at `path`; the result is that of TChild::Start.
  int Try(const char* path, pid_t& pid) const;

 private:
  void Redirect(int target, const char* path);
  int Spawn(const char* path, char* const* argv, pid_t& pid) const;

  char* const* const argv_;
  std::string tmpdirEntry_;
  const std::vector<char*> environment_ = ChildEnvironment(tmpdirEntry_);
  TSpawnLists lists_;
  TFd folder_;
  TFd streams_[3];
};

TStarter::TStarter(const TChildPlan& plan) : argv_(const_cast<char* const*>(plan.argv)) {
  for (int target = 0; target <= 2; ++target) {
    if (plan.streams[target] != nullptr) Redirect(target, plan.streams[target]);
  }
  if (plan.workdir != nullptr && plan.workdir[0] != 0) {
    const std::string inside = std::string(plan.workdir) + "/.";  // opens if it may be entered
    folder_ = TFd(open(inside.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    if (folder_) lists_.Add(&posix_spawn_file_actions_addfchdir_np, folder_.Get());
  }
  lists_.Add(&posix_spawn_file_actions_addclosefrom_np, 3);
  sigset_t signals;
  sigemptyset(&signals);
  posix_spawnattr_setsigmask(&lists_.attributes, &signals);
  sigfillset(&signals);
  posix_spawnattr_setsigdefault(&lists_.attributes, &signals);
  int flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
  if (plan.ownSession) flags |= POSIX_SPAWN_SETSID;
  posix_spawnattr_setflags(&lists_.attributes, static_cast<short>(flags));
}

void TStarter::Redirect(int target, const char* path) {
  const int mode = target == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
  const int flags = O_NOFOLLOW | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
  TFd& stream = streams_[target];
  stream = TFd(open(path, mode | flags, 0666));
  if (stream && fcntl(stream.Get(), F_SETFL, 0) == 0) {
    lists_.Add(&posix_spawn_file_actions_adddup2, stream.Get(), target);
  } else {
    lists_.Add(&posix_spawn_file_actions_addopen, target, _PATH_DEVNULL, O_RDWR, 0);
  }
}

/// A script that was written a moment ago may still be open in another thread's child that is about
/// to execute its own program: "busy" is worth waiting a second.
int TStarter::Spawn(const char* path, char* const* argv, pid_t& pid) const {
  for (int tries = 1;; ++tries) {
    const int error =
        posix_spawn(&pid, path, &lists_.actions, &lists_.attributes, argv, environment_.data());
    if (error != ETXTBSY || tries == 1000) return error;
    usleep(1000);
  }
}

int TStarter::Try(const char* path, pid_t& pid) const {
  // Spares the folders of PATH a process each.
  if (faccessat(folder_ ? folder_.Get() : AT_FDCWD, path, F_OK, 0) != 0) return errno;
  const int error = Spawn(path, argv_, pid);
  if (error != ENOEXEC) return error;
  char shell[] = _PATH_BSHELL;
  std::vector<char*> argv = {shell, const_cast<char*>(path)};
  for (char* const* rest = argv_ + 1; *rest != nullptr; ++rest) argv.push_back(*rest);
  argv.push_back(nullptr);
  return Spawn(shell, argv.data(), pid);
}

/// Where memory is short its end is not collected.
void LeaveInBackground(pid_t pid) try {
  const std::lock_guard<std::mutex> lock(backgroundMutex);
  background.push_back(pid);
} catch (const std::bad_alloc&) {
}

/// True when the child is gone: collected now, or not this process's to collect.
bool Collect(pid_t pid, int& status) {
  const pid_t result = waitpid(pid, &status, WNOHANG);
  if (result == -1) status = SIGKILL;
  return result != 0;
}

}  // namespace

int64_t MonotonicMs() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
}

void SetChildDescriptorLimit(const rlimit& original) { childDescriptors = original; }

int TChild::Start(const TChildPlan& plan) {
  const TStarter starter(plan);
  int error = ENOENT;
  bool denied = false;
  for (const std::string& path :
       CandidatePaths(plan.program != nullptr ? plan.program : plan.argv[0])) {
    error = starter.Try(path.c_str(), pid_);
    if (error == 0) {
      if (childDescriptors) prlimit(pid_, RLIMIT_NOFILE, &*childDescriptors, nullptr);
      process_ = TFd(static_cast<int>(syscall(SYS_pidfd_open, pid_, 0)));
    }
    if (!SearchGoesOn(error)) return error;
    denied |= error == EACCES;
  }
  return denied ? EACCES : error;
}

TChild::~TChild() {
  if (pid_ != -1) LeaveInBackground(pid_);
}

bool TChild::EndedBy(int64_t deadlineMs, int& status) {
  while (!Collect(pid_, status)) {
    const int64_t restMs = deadlineMs - MonotonicMs();
    if (restMs <= 0) return false;
    pollfd end = {process_.Get(), POLLIN, 0};  // without a descriptor: a pause
    poll(&end, 1, static_cast<int>(std::min<int64_t>(restMs, process_ ? 3'600'000 : 10)));
  }
  pid_ = -1;
  return true;
}

bool TChild::Kill() const { return kill(pid_, SIGKILL) == 0; }

void ReapBackgroundChildren() {
  const std::lock_guard<std::mutex> lock(backgroundMutex);
  std::erase_if(background, [](pid_t pid) {
    int status;
    return Collect(pid, status);
  });
}

void PrepareToWaitForChildren() {
  signal(SIGCHLD, SIG_DFL);
  const TFile children(fopen("/proc/thread-self/children", "re"));
  int pid;
  while (children && fscanf(children.get(), "%d", &pid) == 1) {  // NOLINT(cert-err34-c)
    LeaveInBackground(pid);
  }
}

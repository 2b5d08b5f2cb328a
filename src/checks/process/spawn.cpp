#include "checks/process/spawn.h"

#include <errno.h>
#include <fcntl.h>
#include <paths.h>
#include <sched.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "checks/process/runner.h"
#include "checks/process/tempfile.h"
#include "config/tempfolder.h"
#include "core/owned.h"

// The C library's clone by the name that no sanitizer intercepts: ThreadSanitizer's wrapper takes
// the child for a copy of the process and would release its locks twice in the memory both share.
extern "C" int __clone(int (*run)(void*), void* stack, int flags, void* arg,  // NOLINT
                       ...);

// Code that runs in the child while it shares the agent's memory. It never returns to its caller,
// so records that a sanitizer keeps of calls, stack variables and descriptors would go wrong: it is
// not instrumented, and enters the system by bare calls that nothing intercepts.
#define CHILD_CODE __attribute__((no_sanitize("address"), no_sanitize("thread")))

namespace {

constexpr size_t kStackBytes = 16384;
constexpr int kHighestSignal = 64;
constexpr size_t kSignalSetBytes = kHighestSignal / 8;
constexpr int kFallbackHighestFd = 65536;
constexpr int kBusyTries = 1000;
constexpr timespec kBusyPause = {0, 1'000'000};

rlimit childDescriptors;
bool childDescriptorsKnown = false;

}  // namespace

void SetChildDescriptorLimit(const rlimit& original) {
  childDescriptors = original;
  childDescriptorsKnown = true;
}

/// Everything the child needs, prepared before it exists: it may not allocate.
struct TChildCode {
  const TSpawnPlan& plan;
  int failureStatus;
  const char* const* candidates;  ///< paths to try, null-terminated
  char* const* environment;
  char** shellArgv;  ///< arguments for a script without "#!"; slot 1 takes its path

  [[noreturn]] CHILD_CODE void Run() const;

 private:
  CHILD_CODE static void ResetSignals();
  CHILD_CODE void OpenStreams() const;
  CHILD_CODE static void CloseOthers();
  CHILD_CODE void CompleteNotePath() const;
  CHILD_CODE int Execute() const;
  CHILD_CODE void TryExecute(const char* path) const;
  CHILD_CODE void WriteNote(int folder, int error) const;
};

void TChildCode::ResetSignals() {
  static const uint64_t defaultAction[8] = {};  // the kernel's record of SIG_DFL is all zero
  for (int number = 1; number <= kHighestSignal; ++number) {
    syscall(SYS_rt_sigaction, number, defaultAction, nullptr, kSignalSetBytes);
  }
}

void TChildCode::OpenStreams() const {
  for (int target = 0; target <= 2; ++target) {
    const char* path = plan.streams[target];
    if (path == nullptr) continue;
    const int flags = target == 0 ? O_RDONLY : O_WRONLY | O_CREAT | O_TRUNC;
    long fd = syscall(SYS_openat, AT_FDCWD, path, flags | O_NOFOLLOW | O_NOCTTY, 0600);
    if (fd < 0) fd = syscall(SYS_openat, AT_FDCWD, _PATH_DEVNULL, O_RDWR);
    if (fd < 0) {
      syscall(SYS_close, target);
    } else if (fd != target) {
      syscall(SYS_dup3, fd, target, 0);
      if (fd > 2) syscall(SYS_close, fd);
    }
  }
}

void TChildCode::CloseOthers() {
  if (syscall(SYS_close_range, 3U, ~0U, 0U) == 0) return;
  for (int fd = 3; fd < kFallbackHighestFd; ++fd) syscall(SYS_close, fd);
}

void TChildCode::CompleteNotePath() const {
  TExecNote& note = *plan.note;
  char* end = note.path_ + note.prefixLength_;
  long divisor = 1;
  const long pid = syscall(SYS_getpid);
  while (pid / divisor >= 10) divisor *= 10;
  for (; divisor > 0; divisor /= 10) *end++ = static_cast<char>('0' + pid / divisor % 10);
  for (const char* c = ".txt"; *c != 0; ++c) *end++ = *c;
  *end = 0;
}

/// Returns with errno set. A script that was written a moment ago may still be open in another
/// thread's child that is about to execute its own program: "busy" is worth waiting a second.
void TChildCode::TryExecute(const char* path) const {
  for (int i = 0; i < kBusyTries; ++i) {
    syscall(SYS_execve, path, plan.argv, environment);
    if (errno != ETXTBSY) break;
    syscall(SYS_nanosleep, &kBusyPause, nullptr);
    errno = ETXTBSY;
  }
  if (errno != ENOEXEC) return;
  shellArgv[1] = const_cast<char*>(path);
  syscall(SYS_execve, shellArgv[0], shellArgv, environment);
}

/// Tries the candidates as the C library's execvp does; returns the error to report.
int TChildCode::Execute() const {
  int error = ENOENT;
  bool denied = false;
  for (const char* const* candidate = candidates; *candidate != nullptr; ++candidate) {
    TryExecute(*candidate);
    error = errno;
    if (error == EACCES) {
      denied = true;
    } else if (error != ENOENT && error != ESTALE && error != ENOTDIR && error != ENODEV &&
               error != ETIMEDOUT) {
      return error;
    }
  }
  return denied ? EACCES : error;
}

void TChildCode::WriteNote(int folder, int error) const {
  TExecNote& note = *plan.note;
  const long fd = syscall(SYS_openat, folder, note.path_,
                          O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) return;
  note.written_ = true;
  const char* reason = strerrordesc_np(error);
  if (reason == nullptr) reason = "Unknown error";
  const char* const texts[] = {"exec error: ", reason};
  for (const char* text : texts) {
    size_t length = 0;
    while (text[length] != 0) ++length;
    syscall(SYS_write, fd, text, length);
  }
}

void TChildCode::Run() const {
  CloseOthers();  // first: a copy of a descriptor that is open for writing keeps its file "busy"
  ResetSignals();
  if (plan.ownSession) syscall(SYS_setsid);
  OpenStreams();
  // Keeps a relative note path meaning the same after the change of folder.
  const int folder =
      static_cast<int>(syscall(SYS_openat, AT_FDCWD, ".", O_PATH | O_DIRECTORY | O_CLOEXEC));
  if (plan.workdir != nullptr && plan.workdir[0] != 0) syscall(SYS_chdir, plan.workdir);
  const bool noted = plan.note != nullptr && plan.note->path_[0] != 0;
  if (noted) {
    CompleteNotePath();
    syscall(SYS_unlinkat, folder, plan.note->path_, 0);
  }
  if (childDescriptorsKnown) {
    syscall(SYS_prlimit64, 0, RLIMIT_NOFILE, &childDescriptors, nullptr);
  }
  const uint64_t noSignals = 0;
  syscall(SYS_rt_sigprocmask, SIG_SETMASK, &noSignals, nullptr, kSignalSetBytes);
  const int error = Execute();
  if (noted) WriteNote(folder, error);
  for (;;) syscall(SYS_exit_group, failureStatus);
}

namespace {

CHILD_CODE int RunChild(void* code) { static_cast<const TChildCode*>(code)->Run(); }

/// The paths at which execvp would look for the program, in its order.
std::vector<std::string> CandidatePaths(const char* program) {
  if (program == nullptr || program[0] == 0) return {};
  if (strchr(program, '/') != nullptr) return {program};
  const char* path = getenv("PATH");
  if (path == nullptr) path = _PATH_DEFPATH;
  std::vector<std::string> result;
  for (const char* rest = path;; ++rest) {
    const size_t length = strcspn(rest, ":");
    std::string candidate(rest, length);
    if (length != 0) candidate += '/';
    result.push_back(candidate += program);
    rest += length;
    if (*rest == 0) return result;
  }
}

/// The environment with TMPDIR set to the folder for temporary files. The entries stay where they
/// are: nothing changes the environment once threads run.
std::vector<char*> ChildEnvironment(std::string& tmpdirEntry) {
  constexpr char kName[] = "TMPDIR=";
  const std::optional<String> folder = TempFolder();
  std::vector<char*> result;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const bool replaced = folder && strncmp(*entry, kName, sizeof(kName) - 1) == 0;
    if (!replaced) result.push_back(*entry);
  }
  if (folder) {
    tmpdirEntry = std::string(kName) + folder->CStr();
    result.push_back(tmpdirEntry.data());
  }
  result.push_back(nullptr);
  return result;
}

std::vector<char*> ShellArguments(const char* const* argv) {
  static char shell[] = _PATH_BSHELL;
  std::vector<char*> result = {shell, nullptr};
  while (*argv != nullptr && *++argv != nullptr) result.push_back(const_cast<char*>(*argv));
  result.push_back(nullptr);
  return result;
}

/// Runs the child on a stack of its own while this thread stands still. All signals are blocked,
/// so that no handler of the agent runs in the child.
pid_t CloneChild(TChildCode& code) {
  alignas(16) char stack[kStackBytes];
  sigset_t all, before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  const pid_t pid =
      __clone(&RunChild, stack + kStackBytes, CLONE_VM | CLONE_VFORK | SIGCHLD, &code);
  const int error = errno;
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = error;
  return pid;
}

}  // namespace

pid_t SpawnChild(const TSpawnPlan& plan, int failureStatus) {
  const std::vector<std::string> paths =
      CandidatePaths(plan.program != nullptr ? plan.program : plan.argv[0]);
  std::vector<const char*> candidates;
  candidates.reserve(paths.size() + 1);
  for (const std::string& path : paths) candidates.push_back(path.c_str());
  candidates.push_back(nullptr);
  std::string tmpdirEntry;
  const std::vector<char*> environment = ChildEnvironment(tmpdirEntry);
  std::vector<char*> shellArgv = ShellArguments(plan.argv);
  TChildCode code{plan, failureStatus, candidates.data(), environment.data(), shellArgv.data()};
  return CloneChild(code);
}

TExecNote::TExecNote() {
  // The longest process id and ".txt" must fit behind the prefix; without room there is no note.
  constexpr size_t kRoom = sizeof("2147483647.txt");
  gettempfilename(path_, sizeof(path_), "tmpSqov-");
  prefixLength_ = strlen(path_);
  if (prefixLength_ + kRoom > sizeof(path_)) path_[0] = 0;
}

TExecNote::~TExecNote() {
  if (written_) unlink(path_);
}

String TExecNote::Text() const {
  const TFd fd(open(path_, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  char line[255] = {};
  if (!fd || read(fd.Get(), line, sizeof(line) - 1) <= 0) return "exec error";
  line[strcspn(line, "\n")] = 0;
  return line;
}

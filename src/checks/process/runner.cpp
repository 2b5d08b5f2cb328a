#include "checks/process/runner.h"

#include <errno.h>
#include <paths.h>
#include <string.h>
#include <sys/wait.h>

#include <limits>

#include "checks/process/child.h"

namespace {

constexpr int64_t kLookMs = 1000;  ///< time-outs are looked at once a second

struct TPiece {
  const char* bytes;
  size_t length;
  const char* next;  ///< where the rest of the line begins
};

TPiece NextArgument(const char* line) {
  const bool quoted = *line == '"' || *line == '\'';
  const char stop[] = {*line, 0};
  const char* begin = quoted ? line + 1 : line;
  const size_t length = strcspn(begin, quoted ? stop : " \t");
  const char* end = begin + length;
  return {begin, length, *end == 0 ? end : end + 1};
}

int Fail(const String& reason, String& err) {
  err = reason;
  return 0;
}

bool NoProcess(int error) { return error == EAGAIN || error == ENOMEM; }

/// The result of a background start. Deliberate: a program that a signal ended within the first
/// second counts as one that ran, with exit code 0.
int WatchStart(TChild& child, int& exitCode) {
  int status;
  const bool ended = child.EndedBy(MonotonicMs() + kLookMs, status);
  if (ended && WIFEXITED(status)) exitCode = WEXITSTATUS(status);
  return 1;
}

/// Waits for the end. It is noticed at once; only the time-out is looked at in whole seconds.
int WatchToEnd(TChild& child, int timeoutMs, int& exitCode, String& err) {
  const int64_t startMs = MonotonicMs();
  int status;
  for (int64_t elapsedMs = 0; !child.EndedBy(startMs + elapsedMs, status); elapsedMs += kLookMs) {
    if (timeoutMs != 0 && elapsedMs > timeoutMs && !child.Kill()) {
      return Fail("cannot terminate process", err);
    }
  }
  if (WIFSIGNALED(status)) return Fail("abnormal termination", err);
  exitCode = WEXITSTATUS(status);
  return 1;
}

const char* OrNull(const char* path) { return path == nullptr ? _PATH_DEVNULL : path; }

}  // namespace

TArgumentBlock::TArgumentBlock(const char* cmdline) {
  const char* rest = cmdline == nullptr ? "" : cmdline;
  size_t used = 0;
  while (count_ < kMaxArguments) {
    rest += strspn(rest, " ");
    if (*rest == 0) return;
    const TPiece piece = NextArgument(rest);
    if (piece.length + 1 > kBlockBytes - used) return;
    memcpy(bytes_ + used, piece.bytes, piece.length);
    argv_[count_++] = bytes_ + used;
    used += piece.length + 1;
    rest = piece.next;
  }
}

int SystemEx(const char* cmdline, const char* workdir, int timeoutMs, int& exitCode, String& err) {
  return SystemEx2(cmdline, workdir, nullptr, nullptr, nullptr, timeoutMs, exitCode, err);
}

int SystemEx2(const char* cmdline, const char* workdir, const char* inFile, const char* outFile,
              const char* errFile, int timeoutMs, int& exitCode, String& err) {
  err = "";
  const bool background = timeoutMs == kRunInBackground;
  if (background) exitCode = 0;
  ReapBackgroundChildren();
  const TArgumentBlock arguments(cmdline);
  pid_t pid;
  const int error = StartChild({.argv = arguments.Argv(),
                                .workdir = workdir,
                                .streams = {OrNull(inFile), OrNull(outFile), OrNull(errFile)},
                                .ownSession = true},
                               pid);
  if (NoProcess(error)) return Fail("fork error", err);
  if (error != 0)
    return Fail(background ? "exec error" : String("exec error: ") + strerror(error), err);
  TChild child(pid);
  return background ? WatchStart(child, exitCode) : WatchToEnd(child, timeoutMs, exitCode, err);
}

bool RunShell(const char* command) {
  ReapBackgroundChildren();
  const char* const argv[] = {"sh", "-c", command, nullptr};
  pid_t pid;
  const int error = StartChild({.argv = argv, .program = _PATH_BSHELL}, pid);
  if (error != 0) return !NoProcess(error);
  TChild child(pid);
  int status;
  return child.EndedBy(std::numeric_limits<int64_t>::max(), status);
}

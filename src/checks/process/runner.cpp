#include "checks/process/runner.h"

#include <errno.h>
#include <paths.h>
#include <string.h>
#include <sys/wait.h>

#include <limits>

#include "checks/process/child.h"

namespace {

constexpr int64_t kLookMs = 1000;  ///< time-outs are looked at once a second

int Fail(const String& reason, String& err) {
  err = reason;
  return 0;
}

bool NoProcess(int error) { return error == EAGAIN || error == ENOMEM; }

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

TArgumentBlock::TArgumentBlock(const char* line) {
  if (line == nullptr) return;
  size_t used = 0;
  for (int i = 0; i < kMaxArguments; ++i) {
    line += strspn(line, " ");
    if (*line == 0) return;
    const char quote[] = {*line, 0};
    const bool quoted = *line == '"' || *line == '\'';
    if (quoted) ++line;
    const size_t length = strcspn(line, quoted ? quote : " \t");
    if (length + 1 > kBlockBytes - used) return;
    memcpy(bytes_ + used, line, length);
    argv_[i] = bytes_ + used;
    used += length + 1;
    line += length;
    if (*line != 0) ++line;
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
  const TArgumentBlock arguments(cmdline);
  TChild child;
  const int error = child.Start({.argv = arguments.Argv(),
                                 .workdir = workdir,
                                 .streams = {OrNull(inFile), OrNull(outFile), OrNull(errFile)},
                                 .ownSession = true});
  if (NoProcess(error)) return Fail("fork error", err);
  if (error != 0)
    return Fail(background ? "exec error" : String("exec error: ") + strerror(error), err);
  if (!background) return WatchToEnd(child, timeoutMs, exitCode, err);
  int status;
  // Deliberate: a program that a signal ended within the first second counts as one that ran, with
  // exit code 0.
  const bool ended = child.EndedBy(MonotonicMs() + kLookMs, status);
  if (ended && WIFEXITED(status)) exitCode = WEXITSTATUS(status);
  return 1;
}

bool RunShell(const char* command) {
  const char* const argv[] = {"sh", "-c", command, nullptr};
  TChild child;
  const int error = child.Start({.argv = argv, .program = _PATH_BSHELL});
  if (error != 0) return !NoProcess(error);
  int status;
  return child.EndedBy(std::numeric_limits<int64_t>::max(), status);
}

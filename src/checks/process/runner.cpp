#include "checks/process/runner.h"

#include <paths.h>
#include <sys/wait.h>

#include "checks/process/arguments.h"
#include "checks/process/child.h"
#include "checks/process/spawn.h"

namespace {

constexpr int kExecFailed = 255;
constexpr int kShellMissing = 127;  ///< what the C library's system() answers
constexpr int64_t kLookMs = 1000;   ///< time-outs are looked at once a second

int Fail(const String& reason, String& err) {
  err = reason;
  return 0;
}

bool GaveUp(int status, const TExecNote& note) {
  return WIFEXITED(status) && WEXITSTATUS(status) == kExecFailed && note.Written();
}

/// The result of a background start. Deliberate: a program that a signal ended within the first
/// second counts as one that ran, with exit code 0.
int ReportEarlyEnd(int status, const TExecNote& note, int& exitCode, String& err) {
  if (GaveUp(status, note)) return Fail("exec error", err);
  exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : 0;
  return 1;
}

int ReportEnd(int status, const TExecNote& note, int& exitCode, String& err) {
  if (WIFSIGNALED(status)) return Fail("abnormal termination", err);
  if (GaveUp(status, note)) return Fail(note.Text(), err);
  exitCode = WEXITSTATUS(status);
  return 1;
}

int WatchStart(TChild& child, const TExecNote& note, int& exitCode, String& err) {
  child.WaitUntil(MonotonicMs() + kLookMs);
  int status;
  if (child.Ended(status)) return ReportEarlyEnd(status, note, exitCode, err);
  exitCode = 0;
  return 1;
}

/// Waits for the end. It is noticed at once; only the time-out is looked at in whole seconds.
int WatchToEnd(TChild& child, const TExecNote& note, int timeoutMs, int& exitCode, String& err) {
  const int64_t startMs = MonotonicMs();
  for (;;) {
    int status;
    if (child.Ended(status)) return ReportEnd(status, note, exitCode, err);
    const int64_t elapsedSec = (MonotonicMs() - startMs) / kLookMs;
    if (timeoutMs != 0 && elapsedSec * 1000 > timeoutMs && !child.Kill()) {
      return Fail("cannot terminate process", err);
    }
    child.WaitUntil(startMs + (elapsedSec + 1) * kLookMs);
  }
}

const char* OrNull(const char* path) { return path == nullptr ? _PATH_DEVNULL : path; }

}  // namespace

int SystemEx(const char* cmdline, const char* workdir, int timeoutMs, int& exitCode, String& err) {
  return SystemEx2(cmdline, workdir, nullptr, nullptr, nullptr, timeoutMs, exitCode, err);
}

int SystemEx2(const char* cmdline, const char* workdir, const char* inFile, const char* outFile,
              const char* errFile, int timeoutMs, int& exitCode, String& err) {
  err = "";
  ReapBackgroundChildren();
  const TArgumentBlock arguments(cmdline);
  TExecNote note;
  const TSpawnPlan plan = {.argv = arguments.Argv(),
                           .workdir = workdir,
                           .streams = {OrNull(inFile), OrNull(outFile), OrNull(errFile)},
                           .ownSession = true,
                           .note = &note};
  const pid_t pid = SpawnChild(plan, kExecFailed);
  if (pid == -1) return Fail("fork error", err);
  TChild child(pid);
  if (timeoutMs == kRunInBackground) return WatchStart(child, note, exitCode, err);
  return WatchToEnd(child, note, timeoutMs, exitCode, err);
}

int RunShell(const char* command) {
  ReapBackgroundChildren();
  const char* const argv[] = {"sh", "-c", command, nullptr};
  const pid_t pid = SpawnChild({.argv = argv, .program = _PATH_BSHELL}, kShellMissing);
  if (pid == -1) return -1;
  TChild child(pid);
  int status;
  while (!child.Ended(status)) child.WaitUntil(MonotonicMs() + kLookMs);
  return status;
}

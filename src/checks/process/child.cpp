#include "checks/process/child.h"

#include <errno.h>
#include <poll.h>
#include <signal.h>
#include <stdio.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "checks/process/runner.h"

namespace {

constexpr int64_t kFallbackPollMs = 10;
constexpr int64_t kLongestPollMs = 3'600'000;

std::mutex backgroundMutex;
std::vector<pid_t> background;  // under backgroundMutex

void LeaveInBackground(pid_t pid) {
  const std::lock_guard<std::mutex> lock(backgroundMutex);
  background.push_back(pid);
}

/// True when the child is gone: collected now, or not this process's to collect.
bool Collect(pid_t pid, int& status) {
  pid_t result;
  while ((result = waitpid(pid, &status, WNOHANG)) == -1 && errno == EINTR) {
  }
  if (result == -1) status = SIGKILL;
  return result != 0;
}

bool HasEnded(pid_t pid) {
  siginfo_t info = {};
  const int result = waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOHANG | WNOWAIT);
  return result != 0 ? errno != EINTR : info.si_pid != 0;
}

}  // namespace

int64_t MonotonicMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1'000'000;
}

TChild::TChild(pid_t pid)
    : pid_(pid), process_(static_cast<int>(syscall(SYS_pidfd_open, pid, 0))) {}

TChild::~TChild() {
  if (pid_ != -1) LeaveInBackground(pid_);
}

bool TChild::Ended(int& status) {
  if (!Collect(pid_, status)) return false;
  pid_ = -1;
  return true;
}

void TChild::WaitUntil(int64_t deadlineMs) const {
  for (;;) {
    const int64_t restMs = deadlineMs - MonotonicMs();
    if (restMs <= 0) return;
    if (!process_) {
      if (HasEnded(pid_)) return;
      poll(nullptr, 0, static_cast<int>(std::min(restMs, kFallbackPollMs)));
      continue;
    }
    pollfd end = {process_.Get(), POLLIN, 0};
    if (poll(&end, 1, static_cast<int>(std::min(restMs, kLongestPollMs))) > 0) return;
  }
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
  char path[64];
  snprintf(path, sizeof(path), "/proc/self/task/%d/children", getpid());
  const TFile children(fopen(path, "re"));
  int pid;
  while (children && fscanf(children.get(), "%d", &pid) == 1) {  // NOLINT(cert-err34-c)
    LeaveInBackground(pid);
  }
}

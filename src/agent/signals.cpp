#include "agent/signals.h"

#include <pthread.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "agent/control.h"
#include "agent/flags.h"
#include "core/message.h"

namespace {

/// A process that crashes younger than this is not re-executed: it might do nothing else.
constexpr time_t kCrashGuardSec = 180;
/// Limit for reporting a crash, whose thread may hold a lock that the report needs.
constexpr unsigned kCrashReportSec = 5;

std::atomic<bool> reloadMark{false};
std::atomic<bool> crashMark{false};
int wakeDescriptor = -1;
pthread_t mainThread;
sigset_t originalMask;
sigset_t heldMask;
bool answersHangup = false;

void terminate(int) { QovFlags.terminate = 1; }

void Install(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

}  // namespace

void reloadcfg(int) { reloadMark = true; }

void reloadapp(int, siginfo_t* info, void*) {
  const bool faulted = info->si_code > 0;  // else another process sent the signal
  if (faulted) alarm(kCrashReportSec);
  if (faulted && pthread_equal(pthread_self(), mainThread) != 0) {
    AnswerCrash();
    ReloadAgent();
    _exit(128 + SIGSEGV);
  }
  crashMark = true;
  WakeMainLoop();
  while (faulted) pause();
}

void InstallReloadSignal() {
  Install(SIGHUP, &reloadcfg);
  answersHangup = true;
}

void InstallSignals() {
  mainThread = pthread_self();
  wakeDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  sigset_t answered;
  sigemptyset(&answered);
  for (const int signal : {SIGHUP, SIGTERM, SIGINT}) sigaddset(&answered, signal);
  pthread_sigmask(SIG_BLOCK, &answered, &originalMask);
  Install(SIGTERM, &terminate);
  Install(SIGINT, &terminate);
  Install(SIGPIPE, SIG_IGN);

  struct sigaction action = {};
  action.sa_sigaction = &reloadapp;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGSEGV, &action, nullptr);
}

const sigset_t& OriginalSignalMask() { return originalMask; }

void ReleaseSignals() {
  // A handler's mark would be lost with this image: a request to end ends the process instead, and
  // a hang-up may not, as it would until the new image answers it.
  Install(SIGTERM, SIG_DFL);
  Install(SIGINT, SIG_DFL);
  if (answersHangup) Install(SIGHUP, SIG_IGN);
  pthread_sigmask(SIG_SETMASK, &originalMask, &heldMask);
}

void HoldSignals() {
  pthread_sigmask(SIG_SETMASK, &heldMask, nullptr);
  Install(SIGTERM, &terminate);
  Install(SIGINT, &terminate);
  if (answersHangup) Install(SIGHUP, &reloadcfg);
}

void WakeMainLoop() {
  const uint64_t one = 1;
  if (write(wakeDescriptor, &one, sizeof one) < 0) return;  // full: it is awake already
}

int WakeDescriptor() { return wakeDescriptor; }

void ClearWake() {
  uint64_t count;
  if (read(wakeDescriptor, &count, sizeof count) < 0) return;  // nothing to clear
}

bool TakeReloadMark() { return reloadMark.exchange(false); }

void AnswerCrashMark() {
  if (crashMark.exchange(false)) AnswerCrash();
}

void AnswerCrash() {
  Install(SIGSEGV, SIG_DFL);
  showmessage("Segmentation fault!!\n", kNoPeer, msgFail, 0);
  if (time(nullptr) - QovFlags.startTime <= kCrashGuardSec) {
    sigset_t fault;
    sigemptyset(&fault);
    sigaddset(&fault, SIGSEGV);
    pthread_sigmask(SIG_UNBLOCK, &fault, nullptr);
    raise(SIGSEGV);
  }
  showmessage("Restarting..\n", kNoPeer, msgFail, 0);
  QovFlags.reload = 1;
  Install(SIGSEGV, SIG_IGN);
}

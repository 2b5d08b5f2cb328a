#include "agent/crash.h"

#include <pthread.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "agent/flags.h"
#include "agent/session.h"
#include "agent/signals.h"
#include "agent/wake.h"
#include "core/message.h"

namespace {

/// A process that crashes younger than this is not re-executed: it might do nothing else.
constexpr time_t kGuardSec = 180;
/// Limit for answering a crash, whose thread may hold a lock that the answer needs. A port switch
/// that comes first takes six seconds, the wait for a busy program five.
constexpr unsigned kAnswerLimitSec = 20;

std::atomic<bool> crashMark{false};
pthread_t mainThread;

void AnswerCrash() {
  SetSignal(SIGSEGV, SIG_DFL);
  showmessage("Segmentation fault!!\n", kNoPeer, msgFail, 0);
  if (time(nullptr) - QovFlags.startTime <= kGuardSec) {
    sigset_t fault;
    sigemptyset(&fault);
    sigaddset(&fault, SIGSEGV);
    pthread_sigmask(SIG_UNBLOCK, &fault, nullptr);
    raise(SIGSEGV);
  }
  showmessage("Restarting..\n", kNoPeer, msgFail, 0);
  QovFlags.reload = 1;
  SetSignal(SIGSEGV, SIG_IGN);
}

}  // namespace

sigjmp_buf mainLoopCrashed;

void InstallCrashHandler() {
  mainThread = pthread_self();
  struct sigaction action = {};
  action.sa_sigaction = &reloadapp;
  action.sa_flags = SA_SIGINFO;
  sigemptyset(&action.sa_mask);
  sigaction(SIGSEGV, &action, nullptr);
}

void reloadapp(int, siginfo_t* info, void*) {
  const bool faulted = info->si_code > 0;  // else another process sent the signal
  if (faulted) alarm(kAnswerLimitSec);
  crashMark = true;
  // The answer takes memory and locks, which a handler must not: it comes outside of this one. A
  // lock held at the fault stays held; the alarm ends that.
  if (faulted && pthread_equal(pthread_self(), mainThread) != 0) siglongjmp(mainLoopCrashed, 1);
  WakeMainLoop();
  if (!faulted) return;
  DropCrashedSession();
  for (;;) pause();
}

void AnswerCrashMark() {
  if (crashMark.exchange(false)) AnswerCrash();
}

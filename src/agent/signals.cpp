#include "agent/signals.h"

#include <atomic>

#include "agent/flags.h"

namespace {

std::atomic<bool> reloadMark{false};
sigset_t originalMask;
sigset_t heldMask;

void terminate(int) { QovFlags.terminate = 1; }

struct TAnswer {
  int signal;
  void (*handler)(int);
  void (*meanwhile)(int);  ///< what the next image starts with
  bool inForce;
};
// A handler's mark would be lost with the image: a request to end ends the process instead, and a
// hang-up may not, as it would until the new image answers it.
TAnswer answers[] = {{SIGHUP, &reloadcfg, SIG_IGN, false},
                     {SIGTERM, &terminate, SIG_DFL, false},
                     {SIGINT, &terminate, SIG_DFL, false}};

void Answer(TAnswer& answer) {
  SetSignal(answer.signal, answer.handler);
  answer.inForce = true;
}

}  // namespace

void SetSignal(int signal, void (*handler)(int)) {
  struct sigaction action = {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

void reloadcfg(int) { reloadMark = true; }

void InstallReloadSignal() { Answer(answers[0]); }

void InstallSignals() {
  sigfillset(&heldMask);
  // SIGALRM ends a process that cannot answer its crash.
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS, SIGALRM}) {
    sigdelset(&heldMask, signal);
  }
  pthread_sigmask(SIG_SETMASK, &heldMask, &originalMask);
  for (TAnswer* answer : {&answers[1], &answers[2]}) {
    struct sigaction inherited = {};
    sigaction(answer->signal, nullptr, &inherited);
    if (inherited.sa_handler != SIG_IGN) Answer(*answer);
  }
  SetSignal(SIGALRM, SIG_DFL);
  SetSignal(SIGPIPE, SIG_IGN);
  SetSignal(SIGXFSZ, SIG_IGN);  // a log at its size limit loses lines, never the agent
}

const sigset_t& OriginalSignalMask() { return originalMask; }

void ReleaseSignals() {
  for (const TAnswer& answer : answers) {
    if (answer.inForce) SetSignal(answer.signal, answer.meanwhile);
  }
  pthread_sigmask(SIG_SETMASK, &originalMask, nullptr);
}

void HoldSignals() {
  pthread_sigmask(SIG_SETMASK, &heldMask, nullptr);
  for (const TAnswer& answer : answers) {
    if (answer.inForce) SetSignal(answer.signal, answer.handler);
  }
}

bool TakeReloadMark() { return reloadMark.exchange(false); }

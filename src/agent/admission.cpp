#include "agent/admission.h"

#include <pthread.h>
#include <signal.h>
#include <sys/socket.h>

#include <memory>
#include <utility>

#include "agent/session.h"
#include "config/addrfilter.h"
#include "config/settings.h"
#include "config/status.h"
#include "core/iplib.h"
#include "core/message.h"

namespace {

bool IsAdmitted(in_addr peer) {
  const TSettingsView settings = CurrentSettings();
  if (settings->filteractive == 0) return true;
  char dotted[24];
  inet_ntoa_safe(peer, dotted, sizeof dotted);
  return FilterAdmits(dotted, settings->effectivefilter);
}

/// Starts a session thread on which no signal but those of its own faults is delivered.
/// @return 0, or the error number
int StartSession(std::unique_ptr<ThreadParams> params) {
  sigset_t blocked;
  sigset_t former;
  sigfillset(&blocked);
  for (const int signal : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS}) {
    sigdelset(&blocked, signal);
  }
  pthread_sigmask(SIG_SETMASK, &blocked, &former);
  pthread_t thread;
  const int error = pthread_create(&thread, nullptr, &ClientExecute, params.get());
  pthread_sigmask(SIG_SETMASK, &former, nullptr);
  if (error == 0) params.release();  // NOLINT(bugprone-unused-return-value): the session frees it
  return error;
}

}  // namespace

void TAdmission::Admit(TFd socket, in_addr peer) {
  if (!IsAdmitted(peer)) return Refuse(std::move(socket), peer);
  showmessage("TCP connection accepted\n", peer, msgOk, 0);
  auto params = std::make_unique<ThreadParams>(ThreadParams{socket.Get(), peer});
  if (StartSession(std::move(params)) != 0) {
    showmessage("Cannot start session thread, connection closed\n", peer, msgFail, 0);
    return;
  }
  socket.Release();
}

bool TAdmission::DropRefused() {
  const bool any = !refused_.empty();
  refused_.clear();
  return any;
}

void TAdmission::Refuse(TFd socket, in_addr peer) {
  ++AgentStatus.FailedConnections;
  showmessage("TCP connection rejected\n", peer, msgFail, 0);
  // Deliberate: shut down but not closed. Only so many are kept, or strangers would use up the
  // descriptors.
  shutdown(socket.Get(), SHUT_RDWR);
  refused_.push_back(std::move(socket));
  if (refused_.size() > maxRefused_) refused_.pop_front();
}

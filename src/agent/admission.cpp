#include "agent/admission.h"

#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

#include "agent/sessionthread.h"
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

}  // namespace

void TAdmission::Admit(TFd socket, in_addr peer) {
  if (!IsAdmitted(peer)) return Refuse(std::move(socket), peer);
  showmessage("TCP connection accepted\n", peer, msgOk, 0);
  if (StartSession({socket.Get(), peer})) {
    socket.Release();
  } else {
    showmessage("Cannot start session thread, connection closed\n", peer, msgFail, 0);
  }
}

bool TAdmission::DropRefused() {
  const bool any = !refused_.empty();
  refused_.clear();
  return any;
}

void TAdmission::Refuse(TFd socket, in_addr peer) {
  ++AgentStatus.FailedConnections;
  showmessage("TCP connection rejected\n", peer, msgFail, 0);
  shutdown(socket.Get(), SHUT_RDWR);  // Deliberate: not closed, so that no reset follows.
  refused_.push_back(std::move(socket));
  rlimit limit = {};
  getrlimit(RLIMIT_NOFILE, &limit);
  // Only so many are kept, or strangers would use up the descriptors.
  if (refused_.size() > std::min<size_t>(2048, limit.rlim_cur / 2)) refused_.pop_front();
}

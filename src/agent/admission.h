#pragma once

#include <netinet/in.h>

#include <deque>

#include "core/owned.h"

/// Takes in accepted connections: refuses by the address filter, or starts a session. Main thread.
class TAdmission {
 public:
  void Admit(TFd socket, in_addr peer);
  /// Closes what is kept of refused connections; false when there was nothing to close.
  bool DropRefused();

 private:
  void Refuse(TFd socket, in_addr peer);

  std::deque<TFd> refused_;
};

#pragma once

#include "core/owned.h"
#include "core/wqstring.h"

/// Opens the listening socket of the `host` and `port` settings, in up to 3 tries a second apart;
/// `addressLength` gets the size of a peer's address structure in bytes. Returns the descriptor, or
/// 0 with `error` set.
int Listen(unsigned int& addressLength, String& error);

/// The socket being served and the port it stands for. Main thread.
class TListener {
 public:
  /// Opens the socket for the current settings; false with `error` set. Closes a former one first.
  bool Open(String& error);
  void Close() { socket_.Reset(); }
  /// -1 when there is none.
  int Socket() const { return socket_.Get(); }
  /// Follows a changed `port` setting; falls back to the old port, which goes back into the
  /// setting, when the new one cannot be opened. Reports each step; false when none can be opened.
  bool FollowPort();

 private:
  TFd socket_;
  int port_ = 0;
};

#pragma once

#include "core/wqstring.h"

/// Opens the listening socket of the `host` and `port` settings, in up to 3 tries a second apart.
/// @param addressLength  out: size of a peer's address structure in bytes
/// @return the descriptor, or 0 with `error` set
int Listen(unsigned int& addressLength, String& error);

/// The socket being served and the port it stands for. Main thread.
class TListener {
 public:
  ~TListener() { Close(); }
  /// Opens the socket for the current settings; false with `error` set. Closes a former one first.
  bool Open(String& error);
  void Close();
  /// -1 when there is none.
  int Socket() const { return socket_; }
  /// Follows a changed `port` setting and falls back to the old port, which goes back into the
  /// setting, when the new one cannot be opened. Reports each step.
  /// @return false when no port can be opened
  bool FollowPort();

 private:
  int socket_ = -1;
  int port_ = 0;
};

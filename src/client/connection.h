#pragma once

#include <stddef.h>
#include <stdint.h>
#include <sys/socket.h>

#include <chrono>
#include <string>
#include <string_view>

#include "core/owned.h"

using TDeadline = std::chrono::steady_clock::time_point;
/// The moment `timeoutMs` from now; a negative time-out counts as 0.
TDeadline DeadlineIn(int timeoutMs);

enum class TExchangeResult {
  done,
  unknownHost,     ///< the name has no IPv4 address
  refused,         ///< nothing listens on the port
  connectTimeout,  ///< no connection within the time
  replyTimeout,    ///< connected, but the reply did not come, or not whole
  closedSilently,  ///< the peer closed or reset the connection without a byte of reply
  cutReply,        ///< the peer closed or reset it in the middle of the reply
  badReply,        ///< the reply announces an impossible length
  systemError,     ///< anything else
};

struct TExchange {
  TExchangeResult result = TExchangeResult::done;
  std::string error;     ///< one line for a person, "" when done
  std::string reply;     ///< the bytes of the reply packet that came
  size_t wantBytes = 0;  ///< size of the whole reply packet; 4 while its length has not come

  bool Ok() const { return result == TExchangeResult::done; }
};

/// A TCP connection to an agent; after a reply it stays open for more in both directions. Time is
/// taken from the monotonic clock and signals do not shorten a wait. One thread at a time.
class TConnection {
 public:
  /// Connects to a host name or address, IPv4; each address of a name is tried in turn. The name
  /// look-up itself is bounded by the resolver only.
  TExchange Connect(const std::string& host, uint16_t port, TDeadline deadline);
  /// Sends all bytes. A peer that closed is no error here: its reply, if any, is still to be read.
  TExchange Send(std::string_view bytes, TDeadline deadline);
  /// Receives exactly one reply packet.
  TExchange ReceiveReply(TDeadline deadline);
  void Close() { socket_.Reset(); }
  /// The socket, for polling; -1 when not connected. The connection stays its owner.
  int Descriptor() const { return socket_.Get(); }

 private:
  TExchange ConnectTo(const sockaddr* address, socklen_t size, TDeadline deadline);

  TFd socket_;
};

/// Connects, sends one request packet, receives one reply packet and closes, all in `timeoutMs`.
TExchange Exchange(const std::string& host, uint16_t port, int timeoutMs, std::string_view request);

#pragma once

#include <string>
#include <string_view>

#include "core/owned.h"

/// A TCP peer of the agent that sends what it is told. Every wait is bounded.
class TRawPeer {
 public:
  /// Connects to 127.0.0.1:port from `source`; see Connected.
  explicit TRawPeer(int port, const char* source = "127.0.0.1");
  bool Connected() const { return connected_; }
  bool Send(std::string_view bytes);
  /// Everything until the agent closes, or until `limitMs` have passed (Closed tells which).
  std::string ReceiveAll(int limitMs = 10000);
  /// One reply packet, or what came until the agent closed or `limitMs` had passed.
  std::string ReceiveReply(int limitMs = 10000);
  bool Closed() const { return closed_; }
  int Descriptor() const { return socket_.Get(); }

 private:
  template <class TWhole>
  std::string Receive(int limitMs, TWhole isWhole);

  TFd socket_;
  bool connected_ = false;
  bool closed_ = false;
};

/// A loopback TCP port that nobody listens on at the moment, outside the range of outgoing ports.
int FindFreePort();

/// Milliseconds on the monotonic clock.
long long NowMs();

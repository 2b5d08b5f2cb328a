#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "core/owned.h"

/// Milliseconds on the monotonic clock.
inline long long NowMs() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
}

/// Repeats `done` until it holds; false when the limit has passed before.
template <class TCondition>
bool Await(TCondition done, int limitMs = 20000) {
  for (const long long end = NowMs() + limitMs; !done(); usleep(5000)) {
    if (NowMs() >= end) return false;
  }
  return true;
}

/// A loopback TCP port that nobody listens on at the moment, outside the range of outgoing ports.
int FindFreePort();

/// A TCP peer of the agent that sends what it is told. Every wait is bounded.
class TRawPeer {
 public:
  /// Connects to 127.0.0.1:port from `source`; see Connected.
  explicit TRawPeer(int port, const char* source = "127.0.0.1");
  bool Connected() const { return connected_; }
  bool Send(std::string_view bytes);
  /// Everything until the agent closes, or until `limitMs` have passed (Closed tells which).
  std::string ReceiveAll(int limitMs = 10000) { return Receive(limitMs, false); }
  /// One reply packet, or what came until the agent closed or `limitMs` had passed.
  std::string ReceiveReply(int limitMs = 10000) { return Receive(limitMs, true); }
  bool Closed() const { return closed_; }

 private:
  std::string Receive(int limitMs, bool oneReply);

  TFd socket_;
  bool connected_ = false;
  bool closed_ = false;
};

struct TPeerAnswer {
  std::string text{};      ///< sent once a connection, or after each datagram; "": silence
  size_t after = 0;        ///< TCP: bytes of a connection to come first
  bool closeThen = false;  ///< TCP: close after the answer, else when the caller does
  int ignored = 0;         ///< UDP: datagrams not answered at first
  int delayMs = 0;         ///< pause before the answer
};

/// A service on a free loopback port with a thread of its own. Every wait is bounded.
class TLoopbackPeer {
 public:
  enum TKind { kTcp, kUdp };

  explicit TLoopbackPeer(TKind kind, TPeerAnswer answer = {});
  ~TLoopbackPeer();
  int Port() const { return port_; }
  /// The pieces received so far, as they came; waits until they hold `bytes` bytes.
  std::vector<std::string> Received(size_t bytes) const;

 private:
  void ServeConnection();
  void ServeDatagram();
  bool Readable(int fd) const;
  bool Take(const char* bytes, ssize_t count);

  const TPeerAnswer answer_;
  const TFd socket_;
  int port_ = 0;
  int datagrams_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> received_;
  size_t held_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

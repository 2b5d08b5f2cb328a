#pragma once

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "client/vxwire.h"
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

inline constexpr char kPassword[] = "test password";  ///< of every test agent
inline constexpr char kSessionKey[] = "session key";

/// The packet of a request to a test agent.
std::string Packet(const std::string& command, const std::vector<std::string>& params = {});

/// A TCP peer of an agent that sends what it is told. Every wait is bounded.
class TRawPeer {
 public:
  /// Connects to 127.0.0.1:port from `source`; see Open.
  explicit TRawPeer(int port, const char* source = "127.0.0.1");
  /// False when it could not connect, or once the agent's close was received.
  bool Open() const { return static_cast<bool>(socket_); }
  bool Send(std::string_view bytes);
  bool Ask(const std::string& command, const std::vector<std::string>& params = {}) {
    return Send(Packet(command, params));
  }
  /// What comes until the agent closes, until `oneReply` is whole, or within `limitMs`.
  std::string Receive(int limitMs = 20000, bool oneReply = false);
  TReply Reply(bool one = false) { return DecodeReply(Receive(20000, one), kSessionKey); }

 private:
  TFd socket_;
};

struct TPeerAnswer {
  std::string text{};      ///< sent once a connection, or after each datagram; "": silence
  size_t after = 0;        ///< bytes to come first, over a connection or all in all
  bool closeThen = false;  ///< TCP: close after the answer, else when the caller does
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
  void Serve(int fd, bool connection);
  bool Readable(int fd) const;

  const TPeerAnswer answer_;
  const TFd socket_;
  int port_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> received_;
  size_t held_ = 0;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

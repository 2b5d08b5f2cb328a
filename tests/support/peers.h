#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "client/vxwire.h"
#include "core/owned.h"
#include "support/scopes.h"

inline long long NowMs() {
  return std::chrono::steady_clock::now().time_since_epoch() / std::chrono::milliseconds(1);
}

/// Repeats `done` until it holds; false when the limit has passed before.
bool Await(auto done, int limitMs = 20000) {
  for (const long long end = NowMs() + limitMs; !done(); usleep(5000))
    if (NowMs() >= end) return false;
  return true;
}

struct TAddress {
  explicit TAddress(int port = 0, const char* host = "127.0.0.1")
      : in{AF_INET, htons(static_cast<uint16_t>(port)), {inet_addr(host)}, {}} {}
  sockaddr* Get() { return reinterpret_cast<sockaddr*>(&in); }

  sockaddr_in in;
  socklen_t size = sizeof in;
};

/// Bound at the address as the agent binds, with 20 seconds to connect or send; none when taken.
inline TFd Bind(int type, TAddress address) {
  TFd fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  const int on = 1;
  const timeval limit{20, 0};
  setsockopt(fd.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(fd.Get(), address.Get(), address.size) != 0) fd.Reset();
  return fd;
}

/// A loopback TCP port that nobody listens on at the moment, below the range of outgoing ports.
inline int FindFreePort() {
  static std::atomic<int> next{getpid() * 17};
  for (int i = 0; i < 12000; ++i) {
    const int port = 20000 + next++ % 12000;
    if (listen(Bind(SOCK_STREAM, TAddress(port)).Get(), 1) == 0) return port;
  }
  return 0;
}

inline constexpr char kPassword[] = "test password";  ///< of every test agent
inline constexpr char kSessionKey[] = "session key";

inline std::string Packet(const std::string& command, const std::vector<std::string>& params = {}) {
  std::string text = command + "\n";
  for (const std::string& param : params) text += param + "\n";
  return BuildRequest(kPassword, kSessionKey, text + "\r");
}

/// A TCP peer of an agent that sends what it is told. Every wait is bounded.
class TRawPeer {
 public:
  /// Connects to 127.0.0.1:port from `source`; see Open.
  explicit TRawPeer(int port, const char* source = "127.0.0.1")
      : socket_(Bind(SOCK_STREAM, TAddress(0, source))) {
    TAddress address(port);
    if (connect(socket_.Get(), address.Get(), address.size) != 0) socket_.Reset();
  }
  /// False when it could not connect, or once the agent's close was received.
  bool Open() const { return static_cast<bool>(socket_); }
  bool Send(std::string_view bytes) {
    const auto sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    return sent == static_cast<ssize_t>(bytes.size());  // all of it, when there is time
  }
  bool Ask(const std::string& command, const std::vector<std::string>& params = {}) {
    return Send(Packet(command, params));
  }
  /// What comes until the agent closes, until `oneReply` is whole, or within `limitMs`.
  std::string Receive(int limitMs = 20000, bool oneReply = false) {
    std::string all;
    const long long end = NowMs() + limitMs;
    while (Open() && !(oneReply && ReplyBytes(all) <= static_cast<int64_t>(all.size()))) {
      pollfd wait = {socket_.Get(), POLLIN, 0};
      if (poll(&wait, 1, static_cast<int>(std::max(0LL, end - NowMs()))) <= 0) break;
      char buffer[65536];
      const ssize_t got = recv(socket_.Get(), buffer, sizeof buffer, 0);
      if (got <= 0) socket_.Reset();
      all.append(buffer, static_cast<size_t>(std::max<ssize_t>(got, 0)));
    }
    return all;
  }
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
  enum TKind { kTcp = SOCK_STREAM, kUdp = SOCK_DGRAM };

  explicit TLoopbackPeer(TKind kind, TPeerAnswer answer = {})
      : answer_(std::move(answer)), socket_(Bind(kind, TAddress())) {
    listen(socket_.Get(), 8);
    thread_ = std::jthread([this, kind](const std::stop_token& stop) {
      while (kind == kTcp && Readable(socket_.Get(), stop))
        Serve(TFd(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC)).Get(), true, stop);
      Serve(socket_.Get(), false, stop);
    });
  }
  int Port() const {
    TAddress address;
    getsockname(socket_.Get(), address.Get(), &address.size);
    return ntohs(address.in.sin_port);
  }
  /// The pieces received, as they came; waits until they hold `bytes` bytes.
  std::vector<std::string> Received(size_t bytes) const {
    std::vector<std::string> pieces;
    Await([&] {
      const std::lock_guard<std::mutex> lock(mutex_);
      pieces = received_;
      return held_ >= bytes;
    });
    return pieces;
  }

 private:
  static bool Readable(int fd, const std::stop_token& stop) {
    pollfd wait = {fd, POLLIN, 0};
    while (!stop.stop_requested() && poll(&wait, 1, 20) <= 0) continue;
    return !stop.stop_requested();
  }
  void Serve(int fd, bool connection, const std::stop_token& stop) {
    char buf[65536];
    TAddress from;
    bool answered = false;
    for (size_t held = 0;;) {
      if (!answered && held >= answer_.after && (connection || held > 0) && !answer_.text.empty()) {
        usleep(static_cast<useconds_t>(answer_.delayMs) * 1000);
        sendto(fd, answer_.text.data(), answer_.text.size(), MSG_NOSIGNAL, from.Get(), from.size);
        answered = connection;
      }
      if ((connection && answer_.closeThen && held >= answer_.after) || !Readable(fd, stop)) return;
      const ssize_t count = recvfrom(fd, buf, sizeof buf, 0, from.Get(), &from.size);
      if (count <= 0) return;
      held += static_cast<size_t>(count);
      const std::lock_guard<std::mutex> lock(mutex_);
      held_ += received_.emplace_back(buf, static_cast<size_t>(count)).size();
    }
  }

  const TPeerAnswer answer_;
  const TFd socket_;
  mutable std::mutex mutex_;
  std::vector<std::string> received_;
  size_t held_ = 0;
  std::jthread thread_;
};

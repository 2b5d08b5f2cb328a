#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "core/owned.h"

/// A service on a free loopback port with a thread of its own. Every wait is bounded.
class TLoopbackPeer {
 public:
  enum TKind { kTcp, kUdp };
  struct TAnswer {
    std::string text;        ///< sent once a connection, or after each datagram; "": silence
    size_t after = 0;        ///< TCP: bytes of a connection to come first
    bool closeThen = false;  ///< TCP: close after the answer, else when the caller does
    int ignored = 0;         ///< UDP: datagrams not answered at first
    int delayMs = 0;         ///< TCP: pause before the answer
  };

  explicit TLoopbackPeer(TKind kind) : TLoopbackPeer(kind, TAnswer()) {}
  TLoopbackPeer(TKind kind, TAnswer answer);
  ~TLoopbackPeer();
  TLoopbackPeer(const TLoopbackPeer&) = delete;
  TLoopbackPeer& operator=(const TLoopbackPeer&) = delete;

  int Port() const { return port_; }
  /// The pieces received so far, as they came; waits until they hold `bytes` bytes.
  std::vector<std::string> Received(size_t bytes) const;

 private:
  void Serve();
  void ServeConnection();
  void ServeDatagram();
  bool Readable(int fd) const;
  bool Take(const char* bytes, ssize_t count);

  const TKind kind_;
  const TAnswer answer_;
  TFd socket_;
  int port_ = 0;
  int datagrams_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> received_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

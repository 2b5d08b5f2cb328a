#pragma once

#include "core/iplib.h"
#include "core/wqstring.h"

/// A connected client socket. Results are those of core/iplib.h; after each call LastError holds
/// the text of the failure, "" after a success. One thread at a time.
class TSyncSocket {
 public:
  static constexpr int kTcp = 1;
  static constexpr int kUdp = 2;

  explicit TSyncSocket(int mode) : mode_(mode) {}
  ~TSyncSocket() { Disconnect(); }
  TSyncSocket(const TSyncSocket&) = delete;
  TSyncSocket& operator=(const TSyncSocket&) = delete;

  /// TCP: PerformConnect. UDP: fixes the peer of later sends; the time-out is not used and the
  /// host must be a dotted address.
  int Connect(const char* host, int port, int timeoutMs);
  void Disconnect();
  /// Waits up to 5 ms for readability; a peer that has closed still counts as connected.
  bool Connected();
  int SendString(const String& s, int timeoutMs) {
    return SendBuf(s.Data(), s.Length(), timeoutMs);
  }
  /// One send of `len` bytes; the time-out is not used. Returns the bytes accepted, 0 without
  /// sending when len < 1, or kIpNotSent.
  int SendBuf(const char* buf, int len, int timeoutMs);
  /// One chunk of at most 20480 bytes. Returns its size, 0 when the peer closed (no text) or
  /// nothing came in time ("Timeout"), or kIpNotReceived.
  int ReadString(String& out, int timeoutMs);

 private:
  int socket_ = -1;
  int mode_;

 public:
  String LastError;
};

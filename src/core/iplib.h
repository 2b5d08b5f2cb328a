#pragma once

#include <netinet/in.h>
#include <stdint.h>

#include "core/wqstring.h"

/// Blocking IPv4 socket helpers. Each reports failure by one of these results and a text in the
/// caller's String. Any thread; no lock is held during a name look-up.
inline constexpr int kIpOk = 1;
inline constexpr int kIpTimeout = 0;  ///< the text is "Timeout"
inline constexpr int kIpUnresolved = -2;
inline constexpr int kIpNoSocket = -3;
inline constexpr int kIpNotSent = -4;
inline constexpr int kIpNotReceived = -5;
inline constexpr int kIpNotConnected = -6;

/// Generic texts; the helpers have their own. Not used by the agent itself.
extern const char* const ipErrMsg[8];

/// Text of a system error number. Deliberate: always empty with the GNU C library, whose
/// strerror_r returns a pointer, so that texts from system error numbers stay empty in replies.
String GetErrorStr(int errnum);

/// Writes the dotted text of addr into dst, at most size - 1 bytes, and always a terminator at
/// dst[size - 1], size >= 1. Returns dst.
char* inet_ntoa_safe(in_addr addr, char* dst, int size);

/// Address of `host` in network byte order. Deliberate: only dotted text other than
/// "255.255.255.255" succeeds; a name that resolves is refused for its address length.
/// @return kIpOk or kIpUnresolved
int GetHostIP(const char* host, unsigned int* ip, String& err);

/// Address of this host's name, network byte order; 0 when GetHostIP refuses it.
unsigned int GetMyIP();

/// Dotted text of an address in network byte order.
String IP2String(unsigned int ip);

/// Opens a listening TCP socket, close-on-exec, with a backlog of 512; a null host binds every
/// local address.
/// @param addrlen  out, may be null: size of the bound address structure in bytes
/// @return the descriptor, or 0 with `err` set
int TcpListen(const char* host, int port, unsigned int* addrlen, String& err);
int TcpListen(const char* host, const char* service, unsigned int* addrlen, String& err);

/// Waits until one of `events` (as in poll) or trouble shows on the socket. Returns 1 then, 0 when
/// the time is over, -1 with errno set; a negative time is an error.
int WaitForSocket(int sock, short events, int64_t timeoutMs);

/// Waits for data, a negative time in vain, and receives once, at most `size` bytes.
/// @return bytes received; 0 with an empty `err` when the peer closed; kIpTimeout, kIpNotReceived
int ReceiveOnce(int sock, void* buf, int size, int64_t timeoutMs, String& err);

/// Opens a TCP connection to a dotted address or a name.
/// @param sock       out: the descriptor or -1; left open in every case, the caller closes it
/// @param timeoutMs  0 blocks until the system gives up, and leaves the socket blocking;
///                   any other value leaves it non-blocking, a negative one fails
/// @return kIpOk, kIpTimeout, kIpUnresolved, kIpNoSocket or kIpNotConnected
int PerformConnect(int& sock, const char* host, int port, int timeoutMs, String& err);

/// PerformConnect, then closes: a pure reachability probe. Not called by the agent itself.
int TCPConnect(const char* host, int port, int timeoutMs, String& err);

/// Connects, sends sendLen bytes (if > 0), receives once at most recvLen bytes (if > 0).
/// @param timeoutMs  for the connection and once more for the wait for an answer
/// @return as ReceiveOnce, kIpOk when nothing was to be received, or a negative result
int SendReceiveTCPPacket(const char* host, int port, int timeoutMs, void* sendBuf, void* recvBuf,
                         int sendLen, int recvLen, String& err);

/// Sends a datagram of sendLen bytes (if > 0), receives at most recvLen bytes (if > 0).
/// @param timeoutSec  Deliberate: whole seconds, unlike every TCP helper
/// @return byte count of the last transfer, kIpTimeout or a negative result
int SendReceiveUDPPacket(const char* host, int port, int timeoutSec, void* sendBuf, void* recvBuf,
                         int sendLen, int recvLen, String& err);

/// A connected client socket. LastError has the text of a failure, "" after a success. One thread
/// at a time.
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
  /// Closes the socket, if any, and forgets LastError.
  void Disconnect();
  /// Waits up to 5 ms for readability; a peer that has closed still counts as connected. Not called
  /// by the agent itself.
  bool Connected();
  int SendString(const String& s, int timeoutMs) {
    return SendBuf(s.Data(), s.Length(), timeoutMs);
  }
  /// One send of `len` bytes; the time-out is not used. Returns the bytes accepted, 0 without
  /// sending when len < 1, or kIpNotSent.
  int SendBuf(const char* buf, int len, int timeoutMs);
  /// One chunk of at most 20480 bytes; returns as ReceiveOnce. Not called by the agent itself.
  int ReadString(String& out, int timeoutMs);

 private:
  int socket_ = -1;
  int mode_;

 public:
  String LastError;
};

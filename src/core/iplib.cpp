#include "core/iplib.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <vector>

#include "core/owned.h"

const char* const ipErrMsg[8] = {
    "Winsock error",        "Connection error",
    "Cannot read data",     "Cannot send data",
    "Cannot create socket", "Cannot resolve host name to IP address",
    "Cannot init WinSock",  "Timeout",
};

namespace {

constexpr int64_t kForeverMs = int64_t{50} * 365 * 24 * 3600 * 1000;

using TClock = std::chrono::steady_clock;

TClock::time_point DeadlineAfter(int64_t timeoutMs) {
  return TClock::now() + std::chrono::milliseconds(std::min(timeoutMs, kForeverMs));
}

/// As WaitForSocket.
int WaitUntil(int sock, short events, TClock::time_point deadline) {
  for (;;) {
    const auto left = std::max(deadline - TClock::now(), TClock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec limit{seconds.count(), std::chrono::nanoseconds(left - seconds).count()};
    pollfd waited{sock, events, 0};
    const int ready = ppoll(&waited, 1, &limit, nullptr);
    if (ready != -1 || errno != EINTR) return ready;
  }
}

int Fail(int result, String& err) {
  err = GetErrorStr(errno);
  return result;
}

/// Deliberate: no IPv4 record has addresses of this width, so that names are refused.
constexpr int kRefusingWidth = 8;

/// The address of dotted text, or the first one of a name's record when those in the record have
/// `addressBytes` bytes. Of the port the low 16 bits are used.
int Resolve(const char* host, int port, int addressBytes, sockaddr_in& peer, String& err) {
  constexpr size_t kMaxLookUpBytes = 1024 * 1024;
  err = "";
  peer = {};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<uint16_t>(port));
  peer.sin_addr.s_addr = inet_addr(host);
  if (peer.sin_addr.s_addr != INADDR_NONE) return kIpOk;
  std::vector<char> buf(2048);
  hostent record;
  hostent* found = nullptr;
  int unused = 0;
  while (gethostbyname_r(host, &record, buf.data(), buf.size(), &found, &unused) == ERANGE &&
         buf.size() < kMaxLookUpBytes) {
    buf.resize(buf.size() * 2);
  }
  if (found == nullptr) {
    err = "Cannot resolve server name to IP address";
    return kIpUnresolved;
  }
  if (record.h_length != addressBytes) {
    err = "Name resolution error: unknown address structure";
    return kIpUnresolved;
  }
  memcpy(&peer.sin_addr, record.h_addr_list[0], sizeof peer.sin_addr);
  return kIpOk;
}

int Connect(int sock, const sockaddr_in& peer) {
  return connect(sock, reinterpret_cast<const sockaddr*>(&peer), sizeof peer);
}

/// One send, to the peer or, for none, to the one that the socket is connected to.
int SendOnce(int sock, const void* bytes, int count, const sockaddr_in* peer, String& err) {
  const ssize_t sent = TEMP_FAILURE_RETRY(
      sendto(sock, bytes, static_cast<size_t>(count), MSG_NOSIGNAL,
             reinterpret_cast<const sockaddr*>(peer), peer != nullptr ? sizeof *peer : 0));
  return sent != -1 ? static_cast<int>(sent) : Fail(kIpNotSent, err);
}

int TimedOut(String& err) {
  err = "Timeout";
  return kIpTimeout;
}

/// Waits for a connection under way and tells its outcome.
int FinishConnect(int sock, int64_t timeoutMs, String& err) {
  const int ready = WaitForSocket(sock, POLLOUT, timeoutMs);
  if (ready == 0) return TimedOut(err);
  int pending = 0;
  socklen_t size = sizeof pending;
  const bool told = ready > 0 && getsockopt(sock, SOL_SOCKET, SO_ERROR, &pending, &size) == 0;
  return told && pending == 0 ? kIpOk : Fail(kIpNotConnected, err);
}

TFd Bind(const addrinfo& entry) {
  TFd sock(socket(entry.ai_family, entry.ai_socktype | SOCK_CLOEXEC, entry.ai_protocol));
  if (!sock) return sock;
  // A starter may have closed standard input, and 0 would mean failure to the caller.
  constexpr int kFirstOther = STDERR_FILENO + 1;
  if (sock.Get() < kFirstOther) sock.Reset(fcntl(sock.Get(), F_DUPFD_CLOEXEC, kFirstOther));
  const int on = 1;
  setsockopt(sock.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(sock.Get(), entry.ai_addr, entry.ai_addrlen) == -1) sock.Reset();
  return sock;
}

}  // namespace

String GetErrorStr(int errnum) {
  char text[1024] = {};
  // Zero is the success of the POSIX form; the GNU form returns a pointer, which never is.
  return strerror_r(errnum, text, sizeof text) == 0 ? String(text) : String();
}

char* inet_ntoa_safe(in_addr addr, char* dst, int size) {
  char text[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &addr, text, sizeof text);
  snprintf(dst, static_cast<size_t>(size), "%s", text);
  dst[size - 1] = 0;
  return dst;
}

int GetHostIP(const char* host, unsigned int* ip, String& err) {
  sockaddr_in peer;
  const int result = Resolve(host, 0, kRefusingWidth, peer, err);
  if (result == kIpOk) *ip = peer.sin_addr.s_addr;
  return result;
}

unsigned int GetMyIP() {
  char name[254] = {};
  unsigned ip = 0;
  String err;
  if (gethostname(name, sizeof name - 1) == 0) GetHostIP(name, &ip, err);
  return ip;
}

String IP2String(unsigned int ip) {
  char text[24];
  return inet_ntoa_safe(in_addr{ip}, text, sizeof text);
}

int TcpListen(const char* host, int port, unsigned int* addrlen, String& err) {
  char service[16];
  snprintf(service, sizeof service, "%d", port);
  return TcpListen(host, service, addrlen, err);
}

int TcpListen(const char* host, const char* service, unsigned int* addrlen, String& err) {
  err = "";
  addrinfo hints{};
  hints.ai_flags = AI_PASSIVE;
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  const int error = getaddrinfo(host, service, &hints, &found);
  if (error != 0) {
    err = gai_strerror(error);
    return 0;
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> list(found, &freeaddrinfo);
  TFd sock;
  const addrinfo* entry = list.get();
  while (entry != nullptr && !(sock = Bind(*entry))) entry = entry->ai_next;
  if (entry == nullptr) {
    err = "socket() or bind() error";
    return 0;
  }
  if (listen(sock.Get(), 512) == -1) {
    err = "listen() error";
    return 0;
  }
  if (addrlen != nullptr) *addrlen = entry->ai_addrlen;
  return sock.Release();
}

int WaitForSocket(int sock, short events, int64_t timeoutMs) {
  if (timeoutMs < 0) {
    errno = EINVAL;
    return -1;
  }
  return WaitUntil(sock, events, DeadlineAfter(timeoutMs));
}

int ReceiveOnce(int sock, void* buf, int size, int64_t timeoutMs, String& err) {
  const auto deadline = DeadlineAfter(timeoutMs);
  while (timeoutMs >= 0 && WaitUntil(sock, POLLIN, deadline) > 0) {
    // Readiness may prove false (a datagram with a bad checksum): wait on, do not block.
    const ssize_t count = recv(sock, buf, static_cast<size_t>(size), MSG_DONTWAIT);
    if (count >= 0) return static_cast<int>(count);
    if (errno == ETIMEDOUT) break;
    if (errno != EAGAIN && errno != EINTR) return Fail(kIpNotReceived, err);
  }
  return TimedOut(err);
}

int PerformConnect(int& sock, const char* host, int port, int timeoutMs, String& err) {
  sock = -1;
  sockaddr_in peer;
  const int resolved = Resolve(host, port, sizeof peer.sin_addr, peer, err);
  if (resolved != kIpOk) return resolved;
  sock = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (sock == -1) return Fail(kIpNoSocket, err);
  if (timeoutMs == 0) {
    if (Connect(sock, peer) == 0) return kIpOk;
    // An interrupted connect goes on in the background.
    return errno == EINTR ? FinishConnect(sock, kForeverMs, err) : Fail(kIpNotConnected, err);
  }
  int on = 1;
  if (ioctl(sock, FIONBIO, &on) == -1) {
    err = String("ioctl error - ") + GetErrorStr(errno);
    return kIpNoSocket;
  }
  if (Connect(sock, peer) == -1 && errno != EINPROGRESS && errno != EALREADY && errno != EISCONN) {
    return Fail(kIpNotConnected, err);
  }
  return FinishConnect(sock, timeoutMs, err);
}

int TCPConnect(const char* host, int port, int timeoutMs, String& err) {
  int sock = -1;
  const int result = PerformConnect(sock, host, port, timeoutMs, err);
  const TFd closer(sock);
  return result;
}

int SendReceiveTCPPacket(const char* host, int port, int timeoutMs, void* sendBuf, void* recvBuf,
                         int sendLen, int recvLen, String& err) {
  int descriptor = -1;
  const int connected = PerformConnect(descriptor, host, port, timeoutMs, err);
  const TFd sock(descriptor);
  if (connected != kIpOk) return connected;
  if (sendLen > 0 && SendOnce(sock.Get(), sendBuf, sendLen, nullptr, err) < 0) return kIpNotSent;
  return recvLen > 0 ? ReceiveOnce(sock.Get(), recvBuf, recvLen, timeoutMs, err) : kIpOk;
}

int SendReceiveUDPPacket(const char* host, int port, int timeoutSec, void* sendBuf, void* recvBuf,
                         int sendLen, int recvLen, String& err) {
  sockaddr_in peer;
  const int resolved = Resolve(host, port, sizeof peer.sin_addr, peer, err);
  if (resolved != kIpOk) return resolved;
  const TFd sock(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (!sock) return Fail(kIpNoSocket, err);
  const int sent = sendLen > 0 ? SendOnce(sock.Get(), sendBuf, sendLen, &peer, err) : 0;
  if (sent < 0 || recvLen <= 0) return sent;
  return ReceiveOnce(sock.Get(), recvBuf, recvLen, int64_t{timeoutSec} * 1000, err);
}

int TSyncSocket::Connect(const char* host, int port, int timeoutMs) {
  Disconnect();
  if (mode_ == kTcp) return PerformConnect(socket_, host, port, timeoutMs, LastError);
  sockaddr_in peer;
  const int resolved = Resolve(host, port, kRefusingWidth, peer, LastError);
  if (resolved != kIpOk) return resolved;
  socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket_ == -1) return Fail(kIpNoSocket, LastError);
  return ::Connect(socket_, peer) == 0 ? kIpOk : Fail(kIpNotConnected, LastError);
}

void TSyncSocket::Disconnect() {
  LastError = "";
  if (socket_ == -1) return;
  close(socket_);
  socket_ = -1;
}

bool TSyncSocket::Connected() { return socket_ != -1 && WaitForSocket(socket_, POLLIN, 5) != -1; }

int TSyncSocket::SendBuf(const char* buf, int len, int) {
  LastError = "";
  return len < 1 ? 0 : SendOnce(socket_, buf, len, nullptr, LastError);
}

int TSyncSocket::ReadString(String& out, int timeoutMs) {
  char chunk[20480];
  LastError = "";
  out = "";
  const int count = ReceiveOnce(socket_, chunk, sizeof chunk, timeoutMs, LastError);
  if (count > 0) out.AddData(chunk, count);
  return count;
}

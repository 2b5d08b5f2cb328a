#include "core/syncsocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

int TSyncSocket::Connect(const char* host, int port, int timeoutMs) {
  Disconnect();
  if (mode_ == kTcp) return PerformConnect(socket_, host, port, timeoutMs, LastError);
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(static_cast<uint16_t>(port));
  const int resolved = GetHostIP(host, &peer.sin_addr.s_addr, LastError);
  if (resolved != kIpOk) return resolved;
  socket_ = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (socket_ == -1) {
    LastError = GetErrorStr(errno);
    return kIpNoSocket;
  }
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == -1) {
    LastError = GetErrorStr(errno);
    return kIpNotConnected;
  }
  return kIpOk;
}

void TSyncSocket::Disconnect() {
  LastError = "";
  if (socket_ == -1) return;
  close(socket_);
  socket_ = -1;
}

bool TSyncSocket::Connected() {
  constexpr int kLookMs = 5;
  return socket_ != -1 && WaitForSocket(socket_, POLLIN, kLookMs) != -1;
}

int TSyncSocket::SendBuf(const char* buf, int len, int) {
  LastError = "";
  if (len < 1) return 0;
  const ssize_t sent =
      TEMP_FAILURE_RETRY(send(socket_, buf, static_cast<size_t>(len), MSG_NOSIGNAL));
  if (sent != -1) return static_cast<int>(sent);
  LastError = GetErrorStr(errno);
  return kIpNotSent;
}

int TSyncSocket::ReadString(String& out, int timeoutMs) {
  char chunk[20480];
  LastError = "";
  out = "";
  const int count = ReceiveOnce(socket_, chunk, sizeof chunk, timeoutMs, LastError);
  if (count > 0) out.AddData(chunk, count);
  return count;
}

#include "support/rawpeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "client/vxwire.h"

namespace {

sockaddr_in Loopback(const char* address, int port) {
  sockaddr_in result = {};
  result.sin_family = AF_INET;
  result.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address, &result.sin_addr);
  return result;
}

const sockaddr* Generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

bool IsFree(int port) {
  const TFd probe(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(probe.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  const sockaddr_in address = Loopback("127.0.0.1", port);
  return bind(probe.Get(), Generic(address), sizeof address) == 0 && listen(probe.Get(), 1) == 0;
}

}  // namespace

TRawPeer::TRawPeer(int port, const char* source)
    : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  const sockaddr_in from = Loopback(source, 0);
  const sockaddr_in to = Loopback("127.0.0.1", port);
  connected_ = bind(socket_.Get(), Generic(from), sizeof from) == 0 &&
               connect(socket_.Get(), Generic(to), sizeof to) == 0;
}

bool TRawPeer::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

std::string TRawPeer::ReceiveAll(int limitMs) {
  return Receive(limitMs, [](const std::string&) { return false; });
}

std::string TRawPeer::ReceiveReply(int limitMs) {
  return Receive(limitMs, [](const std::string& bytes) {
    return ReplyBytes(bytes) <= static_cast<int64_t>(bytes.size());
  });
}

template <class TWhole>
std::string TRawPeer::Receive(int limitMs, TWhole isWhole) {
  std::string all;
  const long long end = NowMs() + limitMs;
  while (!closed_ && !isWhole(all)) {
    const long long left = end - NowMs();
    pollfd wait = {socket_.Get(), POLLIN, 0};
    if (left <= 0 || poll(&wait, 1, static_cast<int>(left)) <= 0) break;
    char buffer[65536];
    const ssize_t got = recv(socket_.Get(), buffer, sizeof buffer, 0);
    if (got > 0) all.append(buffer, static_cast<size_t>(got));
    closed_ = got <= 0;
  }
  return all;
}

int FindFreePort() {
  constexpr int kFirst = 20000;
  constexpr int kCount = 12000;  // below the range that outgoing connections take
  static std::atomic<int> next{getpid() * 17};
  for (int i = 0; i < kCount; ++i) {
    const int port = kFirst + next++ % kCount;
    if (IsFree(port)) return port;
  }
  return 0;
}

long long NowMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
}

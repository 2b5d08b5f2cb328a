#include "support/peers.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <time.h>

#include "client/vxwire.h"

namespace {

/// The address in the form that system calls take.
struct TAddress {
  explicit TAddress(const char* host = "127.0.0.1", int port = 0) {
    inet_pton(AF_INET, host, &in.sin_addr);
    in.sin_family = AF_INET;
    in.sin_port = htons(static_cast<uint16_t>(port));
  }
  sockaddr* Get() { return reinterpret_cast<sockaddr*>(&in); }

  sockaddr_in in{};
  socklen_t size = sizeof in;
};

/// A socket that is bound to the address; none when it cannot be.
TFd Bind(int type, TAddress address) {
  TFd fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  if (bind(fd.Get(), address.Get(), address.size) != 0) fd.Reset();
  return fd;
}

/// Whether a server like the agent could listen there.
bool IsFree(int port) {
  const TFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  TAddress address("127.0.0.1", port);
  return bind(fd.Get(), address.Get(), address.size) == 0 && listen(fd.Get(), 1) == 0;
}

}  // namespace

long long NowMs() {
  timespec now;
  clock_gettime(CLOCK_MONOTONIC, &now);
  return now.tv_sec * 1000LL + now.tv_nsec / 1000000;
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

TRawPeer::TRawPeer(int port, const char* source) : socket_(Bind(SOCK_STREAM, TAddress(source))) {
  TAddress address("127.0.0.1", port);
  connected_ = connect(socket_.Get(), address.Get(), address.size) == 0;
}

bool TRawPeer::Send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent <= 0) return false;
    bytes.remove_prefix(static_cast<size_t>(sent));
  }
  return true;
}

std::string TRawPeer::Receive(int limitMs, bool oneReply) {
  std::string all;
  const long long end = NowMs() + limitMs;
  while (!closed_ && !(oneReply && ReplyBytes(all) <= static_cast<int64_t>(all.size()))) {
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

TLoopbackPeer::TLoopbackPeer(TKind kind, TPeerAnswer answer, const char* host, int port)
    : answer_(std::move(answer)),
      socket_(Bind(kind == kTcp ? SOCK_STREAM : SOCK_DGRAM, TAddress(host, port))) {
  TAddress address;
  if (kind == kTcp) listen(socket_.Get(), 8);
  if (getsockname(socket_.Get(), address.Get(), &address.size) != 0) return;
  port_ = ntohs(address.in.sin_port);
  thread_ = std::thread([this, kind] {
    while (Readable(socket_.Get())) kind == kTcp ? ServeConnection() : ServeDatagram();
  });
}

TLoopbackPeer::~TLoopbackPeer() {
  stop_ = true;
  if (thread_.joinable()) thread_.join();
}

std::vector<std::string> TLoopbackPeer::Received(size_t bytes) const {
  std::vector<std::string> pieces;
  Await(
      [&] {
        const std::lock_guard<std::mutex> lock(mutex_);
        pieces = received_;
        return held_ >= bytes;
      },
      10000);
  return pieces;
}

bool TLoopbackPeer::Readable(int fd) const {
  pollfd wait = {fd, POLLIN, 0};
  while (!stop_) {
    if (poll(&wait, 1, 20) > 0) return true;
  }
  return false;
}

bool TLoopbackPeer::Take(const char* bytes, ssize_t count) {
  if (count <= 0) return false;
  const std::lock_guard<std::mutex> lock(mutex_);
  received_.emplace_back(bytes, static_cast<size_t>(count));
  held_ += static_cast<size_t>(count);
  return true;
}

void TLoopbackPeer::ServeConnection() {
  const TFd peer(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  const std::string& text = answer_.text;
  char buf[65536];
  bool answered = false;
  for (size_t held = 0;;) {
    if (!answered && held >= answer_.after) {
      usleep(static_cast<useconds_t>(answer_.delayMs) * 1000);
      send(peer.Get(), text.data(), text.size(), MSG_NOSIGNAL);
      answered = true;
    }
    if ((answered && answer_.closeThen) || !Readable(peer.Get())) return;
    const ssize_t count = recv(peer.Get(), buf, sizeof buf, 0);
    if (!Take(buf, count)) return;
    held += static_cast<size_t>(count);
  }
}

void TLoopbackPeer::ServeDatagram() {
  char buf[65536];
  TAddress from;
  const ssize_t count = recvfrom(socket_.Get(), buf, sizeof buf, 0, from.Get(), &from.size);
  if (!Take(buf, count) || answer_.text.empty() || datagrams_++ < answer_.ignored) return;
  usleep(static_cast<useconds_t>(answer_.delayMs) * 1000);
  sendto(socket_.Get(), answer_.text.data(), answer_.text.size(), 0, from.Get(), from.size);
}

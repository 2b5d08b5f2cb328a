#include "support/peers.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>

namespace {

/// A loopback address in the form that system calls take.
struct TAddress {
  explicit TAddress(int port = 0, const char* host = "127.0.0.1")
      : in{AF_INET, htons(static_cast<uint16_t>(port)), {inet_addr(host)}, {}} {}
  sockaddr* Get() { return reinterpret_cast<sockaddr*>(&in); }

  sockaddr_in in;
  socklen_t size = sizeof in;
};

/// A socket at the address, bound as the agent binds; none when that is taken.
TFd Bind(int type, TAddress address) {
  TFd fd(socket(AF_INET, type | SOCK_CLOEXEC, 0));
  const int on = 1;
  setsockopt(fd.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
  if (bind(fd.Get(), address.Get(), address.size) != 0) fd.Reset();
  return fd;
}

}  // namespace

int FindFreePort() {
  constexpr int kFirst = 20000;
  constexpr int kCount = 12000;  // below the range that outgoing connections take
  static std::atomic<int> next{getpid() * 17};
  for (int i = 0; i < kCount; ++i) {
    const int port = kFirst + next++ % kCount;
    if (listen(Bind(SOCK_STREAM, TAddress(port)).Get(), 1) == 0) return port;
  }
  return 0;
}

std::string Packet(const std::string& command, const std::vector<std::string>& params) {
  std::string text = command + "\n";
  for (const std::string& param : params) text += param + "\n";
  return BuildRequest(kPassword, kSessionKey, text + "\r");
}

TRawPeer::TRawPeer(int port, const char* source) : socket_(Bind(SOCK_STREAM, TAddress(0, source))) {
  TAddress address(port);
  if (connect(socket_.Get(), address.Get(), address.size) != 0) socket_.Reset();
}

bool TRawPeer::Send(std::string_view bytes) {
  const ssize_t size = static_cast<ssize_t>(bytes.size());  // a blocking send takes all of it
  return send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL) == size;
}

std::string TRawPeer::Receive(int limitMs, bool oneReply) {
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

TLoopbackPeer::TLoopbackPeer(TKind kind, TPeerAnswer answer)
    : answer_(std::move(answer)),
      socket_(Bind(kind == kTcp ? SOCK_STREAM : SOCK_DGRAM, TAddress())) {
  TAddress address;
  if (kind == kTcp) listen(socket_.Get(), 8);
  getsockname(socket_.Get(), address.Get(), &address.size);
  port_ = ntohs(address.in.sin_port);
  thread_ = std::thread([this, kind] {
    while (Readable(socket_.Get())) {
      if (kind == kUdp) return Serve(socket_.Get(), false);
      Serve(TFd(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC)).Get(), true);
    }
  });
}

TLoopbackPeer::~TLoopbackPeer() {
  stop_ = true;
  thread_.join();
}

std::vector<std::string> TLoopbackPeer::Received(size_t bytes) const {
  std::vector<std::string> pieces;
  Await([&] {
    const std::lock_guard<std::mutex> lock(mutex_);
    pieces = received_;
    return held_ >= bytes;
  });
  return pieces;
}

bool TLoopbackPeer::Readable(int fd) const {
  pollfd wait = {fd, POLLIN, 0};
  while (!stop_ && poll(&wait, 1, 20) <= 0) continue;
  return !stop_;
}

void TLoopbackPeer::Serve(int fd, bool connection) {
  char buf[65536];
  TAddress from;
  bool answered = false;
  for (size_t held = 0;;) {
    if (!answered && held >= answer_.after && (connection || held > 0) && !answer_.text.empty()) {
      usleep(static_cast<useconds_t>(answer_.delayMs) * 1000);
      sendto(fd, answer_.text.data(), answer_.text.size(), MSG_NOSIGNAL, from.Get(), from.size);
      answered = connection;
    }
    if ((connection && answer_.closeThen && held >= answer_.after) || !Readable(fd)) return;
    const ssize_t count = recvfrom(fd, buf, sizeof buf, 0, from.Get(), &from.size);
    if (count <= 0) return;
    held += static_cast<size_t>(count);
    const std::lock_guard<std::mutex> lock(mutex_);
    held_ += received_.emplace_back(buf, static_cast<size_t>(count)).size();
  }
}

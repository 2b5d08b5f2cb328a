#include "support/loopbackpeer.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <utility>

#include "support/rawpeer.h"

TLoopbackPeer::TLoopbackPeer(TKind kind, TAnswer answer)
    : kind_(kind),
      answer_(std::move(answer)),
      socket_(socket(AF_INET, (kind == kTcp ? SOCK_STREAM : SOCK_DGRAM) | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  if (bind(socket_.Get(), generic, size) == 0 && (kind == kUdp || listen(socket_.Get(), 8) == 0) &&
      getsockname(socket_.Get(), generic, &size) == 0) {
    port_ = ntohs(address.sin_port);
  }
  thread_ = std::thread(&TLoopbackPeer::Serve, this);
}

TLoopbackPeer::~TLoopbackPeer() {
  stop_ = true;
  thread_.join();
}

std::vector<std::string> TLoopbackPeer::Received(size_t bytes) const {
  const long long end = NowMs() + 10000;
  for (;;) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      size_t held = 0;
      for (const std::string& piece : received_) held += piece.size();
      if (held >= bytes || NowMs() > end) return received_;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
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
  return true;
}

void TLoopbackPeer::Serve() {
  while (Readable(socket_.Get())) kind_ == kTcp ? ServeConnection() : ServeDatagram();
}

void TLoopbackPeer::ServeConnection() {
  const TFd peer(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  const std::string& text = answer_.text;
  size_t held = 0;
  bool answered = false;
  for (;;) {
    if (!answered && held >= answer_.after) {
      std::this_thread::sleep_for(std::chrono::milliseconds(answer_.delayMs));
      send(peer.Get(), text.data(), text.size(), MSG_NOSIGNAL);
      answered = true;
    }
    if (answered && answer_.closeThen) return;
    char buf[65536];
    if (!Readable(peer.Get())) return;
    const ssize_t count = recv(peer.Get(), buf, sizeof buf, 0);
    if (!Take(buf, count)) return;
    held += static_cast<size_t>(count);
  }
}

void TLoopbackPeer::ServeDatagram() {
  char buf[65536];
  sockaddr_in from{};
  socklen_t size = sizeof from;
  auto* generic = reinterpret_cast<sockaddr*>(&from);
  const ssize_t count = recvfrom(socket_.Get(), buf, sizeof buf, 0, generic, &size);
  if (!Take(buf, count) || answer_.text.empty() || datagrams_++ < answer_.ignored) return;
  sendto(socket_.Get(), answer_.text.data(), answer_.text.size(), 0, generic, size);
}

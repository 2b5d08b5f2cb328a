#include "client/connection.h"

#include <errno.h>
#include <netdb.h>
#include <poll.h>
#include <string.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "client/vxwire.h"
#include "core/iplib.h"

namespace {

constexpr size_t kChunkBytes = 64 * 1024;

void Fail(TExchange& outcome, TExchangeResult result, std::string error) {
  outcome.result = result;
  outcome.error = std::move(error);
}

TExchange Failed(TExchangeResult result, std::string error) {
  TExchange outcome;
  Fail(outcome, result, std::move(error));
  return outcome;
}

TExchange SystemError(const char* what, int code) {
  return Failed(TExchangeResult::systemError, std::string(what) + ": " + strerror(code));
}

/// Returns 1 when one of the events showed, 0 at the deadline, -1 with errno set.
int WaitFor(int fd, short events, TDeadline deadline) {
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return WaitForSocket(fd, events, std::max<int64_t>(left.count(), 0));
}

bool PeerIsGone(int code) { return code == EPIPE || code == ECONNRESET; }

std::string Counts(const TExchange& outcome) {
  if (outcome.wantBytes <= 4) {
    return std::to_string(outcome.reply.size()) + " of the first 4 bytes";
  }
  return std::to_string(outcome.reply.size()) + " of " + std::to_string(outcome.wantBytes) +
         " bytes";
}

void FailClosed(TExchange& outcome) {
  if (outcome.reply.empty()) {
    Fail(outcome, TExchangeResult::closedSilently, "connection closed without a reply");
  } else {
    Fail(outcome, TExchangeResult::cutReply, "reply cut: " + Counts(outcome) + " came");
  }
}

void FailTimedOut(TExchange& outcome) {
  Fail(outcome, TExchangeResult::replyTimeout,
       outcome.reply.empty() ? "timed out without a reply"
                             : "timed out within the reply: " + Counts(outcome) + " came");
}

struct TAddressesFree {
  void operator()(addrinfo* list) const { freeaddrinfo(list); }
};
using TAddresses = std::unique_ptr<addrinfo, TAddressesFree>;

/// Null with `failure` filled in when the name has no address.
TAddresses LookUp(const std::string& host, uint16_t port, TExchange& failure) {
  addrinfo hints = {};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* list = nullptr;
  const int code = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &list);
  if (code == EAI_SYSTEM) {
    failure = SystemError("look-up", errno);
  } else if (code != 0) {
    failure = Failed(TExchangeResult::unknownHost,
                     "unknown host \"" + host + "\": " + gai_strerror(code));
  }
  return TAddresses(code == 0 ? list : nullptr);
}

}  // namespace

TDeadline DeadlineIn(int timeoutMs) {
  return std::chrono::steady_clock::now() + std::chrono::milliseconds(std::max(timeoutMs, 0));
}

TExchange TConnection::Connect(const std::string& host, uint16_t port, TDeadline deadline) {
  Close();
  TExchange outcome;
  const TAddresses addresses = LookUp(host, port, outcome);
  for (const addrinfo* a = addresses.get(); a != nullptr; a = a->ai_next) {
    outcome = ConnectTo(a->ai_addr, a->ai_addrlen, deadline);
    if (outcome.Ok()) break;
  }
  return outcome;
}

TExchange TConnection::ConnectTo(const sockaddr* address, socklen_t size, TDeadline deadline) {
  TFd fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd) return SystemError("socket", errno);
  int error = connect(fd.Get(), address, size) == 0 ? 0 : errno;
  if (error == EINPROGRESS || error == EINTR) {
    const int ready = WaitFor(fd.Get(), POLLOUT, deadline);
    if (ready == -1) return SystemError("poll", errno);
    if (ready == 0) return Failed(TExchangeResult::connectTimeout, "connection timed out");
    socklen_t width = sizeof error;
    if (getsockopt(fd.Get(), SOL_SOCKET, SO_ERROR, &error, &width) == -1) error = errno;
  }
  if (error == ECONNREFUSED) return Failed(TExchangeResult::refused, "connection refused");
  if (error == ETIMEDOUT) return Failed(TExchangeResult::connectTimeout, "connection timed out");
  if (error != 0) return SystemError("connect", error);
  socket_ = std::move(fd);
  return TExchange();
}

TExchange TConnection::Send(std::string_view bytes, TDeadline deadline) {
  while (!bytes.empty()) {
    const ssize_t sent = send(socket_.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (sent >= 0) {
      bytes.remove_prefix(static_cast<size_t>(sent));
      continue;
    }
    if (PeerIsGone(errno)) return TExchange();
    if (errno == EINTR) continue;
    if (errno != EAGAIN) return SystemError("send", errno);
    const int ready = WaitFor(socket_.Get(), POLLOUT, deadline);
    if (ready == -1) return SystemError("poll", errno);
    if (ready == 0) {
      return Failed(
          TExchangeResult::replyTimeout,
          "timed out while sending: " + std::to_string(bytes.size()) + " bytes not taken");
    }
  }
  return TExchange();
}

TExchange TConnection::ReceiveReply(TDeadline deadline) {
  TExchange outcome;
  std::string chunk(kChunkBytes, '\0');
  for (;;) {
    const int64_t want = ReplyBytes(outcome.reply);
    if (want < 0) {
      Fail(outcome, TExchangeResult::badReply, "the reply announces an impossible length");
      return outcome;
    }
    outcome.wantBytes = static_cast<size_t>(want);
    const size_t missing = outcome.wantBytes - outcome.reply.size();
    if (missing == 0) return outcome;
    const ssize_t got = recv(socket_.Get(), chunk.data(), std::min(missing, chunk.size()), 0);
    if (got > 0) {
      outcome.reply.append(chunk, 0, static_cast<size_t>(got));
    } else if (got == 0 || PeerIsGone(errno)) {
      FailClosed(outcome);
      return outcome;
    } else if (errno == EAGAIN) {
      const int ready = WaitFor(socket_.Get(), POLLIN, deadline);
      if (ready == 0) FailTimedOut(outcome);
      if (ready == -1)
        Fail(outcome, TExchangeResult::systemError, SystemError("poll", errno).error);
      if (ready <= 0) return outcome;
    } else if (errno != EINTR) {
      Fail(outcome, TExchangeResult::systemError, SystemError("receive", errno).error);
      return outcome;
    }
  }
}

TExchange Exchange(const std::string& host, uint16_t port, int timeoutMs,
                   std::string_view request) {
  const TDeadline deadline = DeadlineIn(timeoutMs);
  TConnection connection;
  TExchange outcome = connection.Connect(host, port, deadline);
  if (outcome.Ok()) outcome = connection.Send(request, deadline);
  if (outcome.Ok()) outcome = connection.ReceiveReply(deadline);
  return outcome;
}

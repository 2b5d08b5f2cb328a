#include "client/connection.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>

#include <thread>
#include <vector>

#include "client/vxwire.h"
#include "support/rawpeer.h"

namespace {

/// Listens on a loopback port of its own; answers the one connection it accepts when Serve is used.
class TListener {
 public:
  explicit TListener(int backlog = 5) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    address_.sin_family = AF_INET;
    address_.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address_;
    EXPECT_EQ(0, bind(socket_.Get(), Address(), size));
    EXPECT_EQ(0, listen(socket_.Get(), backlog));
    EXPECT_EQ(0, getsockname(socket_.Get(), Address(), &size));
  }
  ~TListener() {
    if (server_.joinable()) server_.join();
  }

  sockaddr* Address() { return reinterpret_cast<sockaddr*>(&address_); }
  uint16_t Port() const { return ntohs(address_.sin_port); }

  /// Takes in `requestBytes`, sends `reply`, then closes, or with `hold` waits for the peer to.
  void Serve(size_t requestBytes, std::string reply, bool hold) {
    server_ = std::thread([this, requestBytes, reply, hold] {
      pollfd entry = {socket_.Get(), POLLIN, 0};
      if (poll(&entry, 1, 20000) != 1) return;
      const TFd peer(accept4(socket_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
      std::string bytes(requestBytes, '\0');
      recv(peer.Get(), bytes.data(), bytes.size(), MSG_WAITALL);
      send(peer.Get(), reply.data(), reply.size(), MSG_NOSIGNAL);
      entry.fd = peer.Get();
      if (hold) poll(&entry, 1, 20000);
    });
  }

 private:
  TFd socket_;
  sockaddr_in address_ = {};
  std::thread server_;
};

}  // namespace

TEST(Connection, TellsEveryEndOfAnExchange) {
  const std::string request = BuildRequest("pw", "k1", "GetInfo\n\r");
  const std::string reply = BuildReply("k1", "200\nOk\n\r");
  const struct {
    const char* name;
    std::string sent;
    bool hold;
    TExchangeResult result;
    const char* error;
  } cases[] = {
      {"whole", reply, true, TExchangeResult::done, ""},
      {"silent close", "", false, TExchangeResult::closedSilently,
       "connection closed without a reply"},
      {"cut in the text", reply.substr(0, 7), false, TExchangeResult::cutReply,
       "reply cut: 7 of 12 bytes came"},
      {"cut in the length", reply.substr(0, 3), false, TExchangeResult::cutReply,
       "reply cut: 3 of the first 4 bytes came"},
      {"silence", "", true, TExchangeResult::replyTimeout, "timed out without a reply"},
      {"stop", reply.substr(0, 7), true, TExchangeResult::replyTimeout,
       "timed out within the reply: 7 of 12 bytes came"},
      {"bad length", "\xff\xff\xff\xff", true, TExchangeResult::badReply,
       "the reply announces an impossible length"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TListener listener;
    listener.Serve(request.size(), c.sent, c.hold);
    const bool timesOut = c.result == TExchangeResult::replyTimeout;
    const TExchange outcome =
        Exchange("127.0.0.1", listener.Port(), timesOut ? 1000 : 10000, request);
    EXPECT_EQ(c.result, outcome.result);
    EXPECT_EQ(c.error, outcome.error);
    EXPECT_EQ(c.sent, outcome.reply);
  }
}

TEST(Connection, TellsWhyItCannotConnect) {
  // A label over 63 characters fails in the resolver itself, nobody is asked.
  TExchange outcome = Exchange(std::string(70, 'x'), 1, 1000, "");
  EXPECT_EQ(TExchangeResult::unknownHost, outcome.result) << outcome.error;
  outcome = Exchange("127.0.0.1", static_cast<uint16_t>(FindFreePort()), 1000, "");
  EXPECT_EQ(TExchangeResult::refused, outcome.result) << outcome.error;

  TListener full(0);
  std::vector<TFd> waiting;  // fill the queue, so that a further connection hangs
  for (int i = 0; i < 4; ++i) {
    waiting.emplace_back(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    connect(waiting.back().Get(), full.Address(), sizeof(sockaddr_in));
  }
  outcome = Exchange("127.0.0.1", full.Port(), 200, "");
  EXPECT_EQ(TExchangeResult::connectTimeout, outcome.result) << outcome.error;
}

TEST(Connection, CarriesSeveralRepliesAndLargeData) {
  const std::string first = BuildReply("k1", "200\n\r");
  const std::string second = BuildReply("k1", std::string(300000, 'x'));
  const std::string upload(3000000, 'u');
  TListener listener;
  listener.Serve(upload.size(), first + second, true);
  const TDeadline deadline = DeadlineIn(10000);
  TConnection connection;
  ASSERT_TRUE(connection.Connect("localhost", listener.Port(), deadline).Ok());
  ASSERT_TRUE(connection.Send(upload, deadline).Ok());
  EXPECT_EQ(first, connection.ReceiveReply(deadline).reply);
  EXPECT_EQ(second, connection.ReceiveReply(deadline).reply);
  connection.Close();
  EXPECT_FALSE(connection.IsOpen());
}

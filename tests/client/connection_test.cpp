#include "client/connection.h"

#include <gtest/gtest.h>

#include "client/vxwire.h"
#include "core/iplib.h"
#include "support/peers.h"

TEST(Connection, TellsEveryEndOfAnExchange) {
  const std::string request = BuildRequest("pw", "k1", "GetInfo\n\r");
  const std::string reply = BuildReply("k1", "200\nOk\n\r");
  const struct {
    std::string sent;
    bool close;
    TExchangeResult result;
    const char* error;
  } cases[] = {
      {reply, false, TExchangeResult::done, ""},
      {"", true, TExchangeResult::closedSilently, "connection closed without a reply"},
      {reply.substr(0, 7), true, TExchangeResult::cutReply, "reply cut: 7 of 12 bytes came"},
      {"\x08", true, TExchangeResult::cutReply, "reply cut: 1 of the first 4 bytes came"},
      {"", false, TExchangeResult::replyTimeout, "timed out without a reply"},
      {reply.substr(0, 7), false, TExchangeResult::replyTimeout,
       "timed out within the reply: 7 of 12 bytes came"},
      {"\xff\xff\xff\xff", false, TExchangeResult::badReply,
       "the reply announces an impossible length"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.error);
    TLoopbackPeer peer(TLoopbackPeer::kTcp, {c.sent, request.size(), c.close});
    const int timeoutMs = c.result == TExchangeResult::replyTimeout ? 1000 : 20000;
    const TExchange outcome =
        Exchange("127.0.0.1", static_cast<uint16_t>(peer.Port()), timeoutMs, request);
    EXPECT_EQ(c.result, outcome.result);
    EXPECT_EQ(c.error, outcome.error);
    EXPECT_EQ(c.sent, outcome.reply);
  }
}

TEST(Connection, TellsWhyItCannotConnect) {
  // A label over 63 characters fails in the resolver itself, nobody is asked.
  EXPECT_EQ(TExchangeResult::unknownHost, Exchange(std::string(70, 'x'), 1, 20000, "").result);
  const auto port = static_cast<uint16_t>(FindFreePort());
  EXPECT_EQ(TExchangeResult::refused, Exchange("127.0.0.1", port, 20000, "").result);

  String error;
  const TFd full(TcpListen("127.0.0.1", port, nullptr, error));
  ASSERT_EQ(0, listen(full.Get(), 0));  // room for one
  TConnection waiting[4];
  TExchange last;
  for (TConnection& one : waiting) last = one.Connect("127.0.0.1", port, DeadlineIn(200));
  EXPECT_EQ(TExchangeResult::connectTimeout, last.result) << last.error;
}

TEST(Connection, CarriesSeveralRepliesAndLargeData) {
  const std::string first = BuildReply("k1", "200\n\r");
  const std::string second = BuildReply("k1", std::string(300000, 'x'));
  const std::string upload(3000000, 'u');
  TLoopbackPeer peer(TLoopbackPeer::kTcp, {first + second, upload.size()});
  const TDeadline deadline = DeadlineIn(20000);
  TConnection connection;
  ASSERT_TRUE(connection.Connect("localhost", static_cast<uint16_t>(peer.Port()), deadline).Ok());
  ASSERT_TRUE(connection.Send(upload, deadline).Ok());
  EXPECT_EQ(first, connection.ReceiveReply(deadline).reply);
  EXPECT_EQ(second, connection.ReceiveReply(deadline).reply);
  connection.Close();
  EXPECT_FALSE(connection.IsOpen());
}

#include <gtest/gtest.h>

#include <map>

#include "client/connection.h"
#include "client/packetfile.h"
#include "client/vxwire.h"
#include "core/iplib.h"
#include "support/peers.h"

static const std::string kText = "GetInfo\nabcdefghij\n\r";
static const std::string kGood = BuildRequest("pw", "k1", kText);
static const std::string kReply = BuildReply("k1", "200\nOk\n\r");

TEST(VxWire, BuildsTheKnownPacket) {
  const char expected[] =
      "\x30\0\0\0\x03\x12\x10\0\x8f\xe4\xc1\x14\x51\x28\x1c\x09\x4a\x65\x78\xe6\xdd\xbf\x5e\xed"
      "\x02\0\x1d\x8e\x14\0\0\0\x64\xfa\x3b\x74\x96\xcf\x56\xcd\xd9\xaa\xa5\x75\x07\x4a\x1a\x92"
      "\xcc\x34\xb5\xba";
  EXPECT_EQ(std::string(expected, 52), kGood);
  EXPECT_EQ(14u, BuildRequest("", "", "").size());
  EXPECT_EQ(32u, MakeSessionKey().size());
  EXPECT_NE(MakeSessionKey(), MakeSessionKey());
}

TEST(VxWire, ReadsARequestOrSaysWhatIsWrong) {
  TRequest request;
  std::string error;
  ASSERT_TRUE(ParseRequest(kGood, "pw", request, error)) << error;
  EXPECT_EQ("k1" + kText, request.sessionKey + request.text);
  const std::map<std::string, std::pair<size_t, char>> damages = {
      {"packet length field says 53 bytes, there are 52", {0, 0x31}},
      {"password proof reaches past the end", {6, 0x27}},
      {"session key reaches past the end", {24, 0x17}},
      {"request length is negative", {31, '\xff'}},
      {"request text reaches past the end", {28, 0x15}},
      {"protocol marker is not 03 12", {5, 0x13}},
      {"password proof does not match", {8, 0}}};
  for (const auto& [expected, damage] : damages) {
    std::string bytes = kGood;
    bytes[damage.first] = damage.second;
    EXPECT_FALSE(ParseRequest(bytes, "pw", request, error));
    EXPECT_EQ(expected, error);
  }
  EXPECT_FALSE(ParseRequest(kGood.substr(0, 13), "pw", request, error));
}

TEST(VxWire, SplitsAReplyAndTellsIncompleteFromDamaged) {
  const TReply reply = DecodeReply(BuildReply("k1", "300\na%0Ab\n\n     5\r"), "k1");
  EXPECT_EQ("300", reply.code);
  EXPECT_EQ((std::vector<std::string>{"a%0Ab", "", "     5"}), reply.values);
  const std::tuple<std::string, TReplyState, size_t> cases[] = {
      {"", TReplyState::incomplete, 4},
      {kReply.substr(0, 11), TReplyState::incomplete, 12},
      {kReply, TReplyState::complete, 12},
      {BuildReply("k1", "200\n\r"), TReplyState::complete, 9},
      {kReply + 'x', TReplyState::damaged, 12},
      {"\xff\xff\xff\xff", TReplyState::damaged, 0},
      {std::string(4, '\0'), TReplyState::damaged, 0},
      {BuildReply("k1", "20x\nOk\n\r"), TReplyState::damaged, 12},
      {BuildReply("k1", "200\nOk\n"), TReplyState::damaged, 11},
      {BuildReply("other key", "200\nOk\n\r"), TReplyState::damaged, 12}};
  for (const auto& [bytes, state, want] : cases) {
    const TReply read = DecodeReply(bytes, "k1");
    EXPECT_EQ(std::tuple(state, bytes.size(), want),
              std::tuple(read.state, read.haveBytes, read.wantBytes));
  }
}

TEST(VxWire, EscapesAsTheAgentDoes) {
  EXPECT_EQ("%a%0D%0A", EncodeText("%a\r\n"));
  EXPECT_EQ("%a\r\n%0a%0B%0", DecodeText("%a%0D%0A%0a%0B%0"));
}

TEST(PacketFile, TellsAWrongPasswordAndAnotherKey) {
  bool valid = true;
  EXPECT_NE(std::string::npos, DescribeRequest(kGood, "x", valid).find("does not match"));
  EXPECT_FALSE(valid);
  EXPECT_NE(std::string::npos, DescribeReply(kReply, "k2", valid).find("another key"));
  EXPECT_NE(std::string::npos, DescribeReply("\x08", "k1", valid).find("cut short"));
  EXPECT_NE(std::string::npos, DescribeReply(kReply, "k1", valid).find("200\\nOk\\n\\r"));
  EXPECT_TRUE(valid);
}

TEST(Connection, TellsEveryEndOfAnExchange) {
  using enum TExchangeResult;
  const std::tuple<std::string, bool, TExchangeResult, const char*> cases[] = {
      {kReply, false, done, ""},
      {"\x08", true, cutReply, "reply cut: 1 of the first 4 bytes came"},
      {kReply.substr(0, 7), false, replyTimeout, "timed out within the reply: 7 of 12 bytes came"},
      {"\xff\xff\xff\xff", false, badReply, "the reply announces an impossible length"}};
  for (const auto& [sent, close, result, error] : cases) {
    TLoopbackPeer peer(TLoopbackPeer::kTcp, {sent, kGood.size(), close});
    const TExchange outcome = Exchange("127.0.0.1", static_cast<uint16_t>(peer.Port()),
                                       result == replyTimeout ? 1000 : 20000, kGood);
    EXPECT_EQ(result, outcome.result) << error;
    EXPECT_EQ(error, outcome.error);
    EXPECT_EQ(sent, outcome.reply);
  }
}

TEST(Connection, DoesNotWaitLongerThanAsked) {
  const auto port = static_cast<uint16_t>(FindFreePort());
  String error;
  const TFd full(TcpListen("127.0.0.1", port, nullptr, error));
  ASSERT_EQ(0, listen(full.Get(), 0));  // room for one
  TConnection waiting[4];
  TExchange last;
  for (TConnection& one : waiting) last = one.Connect("127.0.0.1", port, DeadlineIn(200));
  EXPECT_EQ(TExchangeResult::connectTimeout, last.result) << last.error;
}

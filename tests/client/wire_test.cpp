#include "client/connection.h"
#include "client/packetfile.h"
#include "support/peers.h"

using testing::HasSubstr;

static const std::string kGood = BuildRequest("pw", "k1", "GetInfo\nabcdefghij\n\r");
static const std::string kReply = BuildReply("k1", "200\nOk\n\r");

TEST(VxWire, BuildsTheKnownPacketAndReadsItOrSaysWhatIsWrong) {
  const char expected[] =
      "\x30\0\0\0\x03\x12\x10\0\x8f\xe4\xc1\x14\x51\x28\x1c\x09\x4a\x65\x78\xe6\xdd\xbf\x5e\xed"
      "\x02\0\x1d\x8e\x14\0\0\0\x64\xfa\x3b\x74\x96\xcf\x56\xcd\xd9\xaa\xa5\x75\x07\x4a\x1a\x92"
      "\xcc\x34\xb5\xba";
  EXPECT_EQ(std::string(expected, 52), kGood);
  EXPECT_EQ(14u, BuildRequest("", "", "").size());
  EXPECT_NE(MakeSessionKey(), MakeSessionKey());
  const std::tuple<size_t, char, const char*> damages[] = {
      {0, 0x31, "packet length field says 53 bytes, there are 52"},
      {6, 0x27, "password proof reaches past the end"},
      {24, 0x17, "session key reaches past the end"},
      {31, '\xff', "request length is negative"},
      {28, 0x15, "request text reaches past the end"},
      {5, 0x13, "protocol marker is not 03 12"},
      {8, 0, "password proof does not match"},
      {0, 0x30, ""}};  // none
  TRequest request;
  std::string error;
  for (const auto& [at, byte, wrong] : damages) {
    std::string bytes = kGood;
    bytes[at] = byte;
    const bool valid = ParseRequest(bytes, "pw", request, error);
    EXPECT_EQ(std::tuple(error.empty(), wrong), std::tuple(valid, error));
  }
  EXPECT_EQ("k1GetInfo\nabcdefghij\n\r", request.sessionKey + request.text);
  EXPECT_FALSE(ParseRequest(kGood.substr(0, 13), "pw", request, error));
  EXPECT_FALSE(ParseRequest(std::string((16 << 20) + 1, 'x'), "pw", request, error));
  EXPECT_EQ("longer than the 16 MiB that an agent takes", error);
}

TEST(VxWire, SplitsAReplyAndTellsIncompleteFromDamaged) {
  using enum TReplyState;
  const TReply reply = DecodeReply(BuildReply("k1", "300\na%0Ab\n\n     5\r"), "k1");
  EXPECT_EQ("300", reply.code);
  EXPECT_THAT(reply.values, testing::ElementsAre("a%0Ab", "", "     5"));
  const std::tuple<std::string, TReplyState, size_t> cases[] = {
      {BuildReply("k1", "200\n\r"), complete, 9},     {std::string(), incomplete, 4},
      {BuildReply("k1", "20x\nOk\n\r"), damaged, 12}, {kReply + 'x', damaged, 12},
      {BuildReply("k1", "200\nOk\n"), damaged, 11},   {std::string(4, '\0'), damaged, 0},
      {kReply.substr(0, 11), incomplete, 12},         {"\xff\xff\xff\xff", damaged, 0}};
  for (const auto& [bytes, state, want] : cases) {
    const TReply read = DecodeReply(bytes, "k1");
    EXPECT_EQ(std::tuple(state, bytes.size(), want),
              std::tuple(read.state, read.haveBytes, read.wantBytes));
  }
  bool valid = false;
  EXPECT_THAT(DescribeReply(kReply, "k2", valid), HasSubstr("another key"));
  EXPECT_THAT(DescribeReply("\x08", "k1", valid), HasSubstr("cut short"));
  EXPECT_THAT(DescribeReply(kReply, "k1", valid), HasSubstr("200\\nOk\\n\\r"));
  EXPECT_TRUE(valid);
  EXPECT_EQ("%a%0D%0A", EncodeText("%a\r\n"));
  EXPECT_EQ("%a\r\n%0a%0B%0", DecodeText("%a%0D%0A%0a%0B%0"));
}

TEST(Connection, TellsEveryEndOfAnExchange) {
  using enum TExchangeResult;
  const std::tuple<std::string, bool, TExchangeResult, const char*> cases[] = {
      {kReply, false, done, ""},
      {"\x08", true, cutReply, "reply cut: 1 of the first 4 bytes came"},
      {kReply.substr(0, 7), false, replyTimeout, "timed out within the reply: 7 of 12 bytes came"},
      {"\xff\xff\xff\xff", false, badReply, "the reply announces an impossible length"}};
  for (const auto& [sent, close, result, error] : cases) {
    const TLoopbackPeer peer(TLoopbackPeer::kTcp, {sent, kGood.size(), close});
    const auto port = static_cast<uint16_t>(peer.Port());
    const TExchange end = Exchange("127.0.0.1", port, result == replyTimeout ? 999 : 20000, kGood);
    EXPECT_EQ(std::tuple(sent, result, error), std::tie(end.reply, end.result, end.error));
  }
  const auto port = static_cast<uint16_t>(FindFreePort());
  const TFd full = Bind(SOCK_STREAM, TAddress(port));
  ASSERT_EQ(0, listen(full.Get(), 0));  // room for one
  TConnection waiting[4];
  TExchange last;
  for (TConnection& one : waiting) last = one.Connect("127.0.0.1", port, DeadlineIn(200));
  EXPECT_EQ(connectTimeout, last.result) << last.error;
}

#include "client/vxwire.h"

#include <gtest/gtest.h>

#include <map>

namespace {

constexpr char kText[] = "GetInfo\nabcdefghij\n\r";

}  // namespace

TEST(VxWire, BuildsTheKnownPacket) {
  const char expected[] =
      "\x30\0\0\0\x03\x12\x10\0\x8f\xe4\xc1\x14\x51\x28\x1c\x09\x4a\x65\x78\xe6\xdd\xbf\x5e\xed"
      "\x02\0\x1d\x8e\x14\0\0\0\x64\xfa\x3b\x74\x96\xcf\x56\xcd\xd9\xaa\xa5\x75\x07\x4a\x1a\x92"
      "\xcc\x34\xb5\xba";
  EXPECT_EQ(std::string(expected, 52), BuildRequest("pw", "k1", kText));
  EXPECT_EQ(14u, BuildRequest("", "", "").size());
}

TEST(VxWire, SessionKeysDiffer) {
  EXPECT_EQ(32u, MakeSessionKey().size());
  EXPECT_NE(MakeSessionKey(), MakeSessionKey());
}

TEST(VxWire, ReadsARequestOrSaysWhatIsWrong) {
  const std::string good = BuildRequest("pw", "k1", kText);
  TRequest request;
  std::string error;
  ASSERT_TRUE(ParseRequest(good, "pw", request, error)) << error;
  EXPECT_EQ("k1", request.sessionKey);
  EXPECT_EQ(kText, request.text);

  const std::map<std::string, std::pair<size_t, char>> damages = {
      {"packet length field says 53 bytes, there are 52", {0, 0x31}},
      {"password proof reaches past the end", {6, 0x27}},
      {"session key reaches past the end", {24, 0x17}},
      {"request length is negative", {31, '\xff'}},
      {"request text reaches past the end", {28, 0x15}},
      {"protocol marker is not 03 12", {5, 0x13}},
      {"password proof does not match", {8, 0}}};
  for (const auto& [expected, damage] : damages) {
    std::string bytes = good;
    bytes[damage.first] = damage.second;
    EXPECT_FALSE(ParseRequest(bytes, "pw", request, error));
    EXPECT_EQ(expected, error);
  }
  EXPECT_FALSE(ParseRequest(good.substr(0, 13), "pw", request, error));
  EXPECT_EQ("shorter than the 14 bytes of the fixed fields", error);
}

TEST(VxWire, SplitsAReply) {
  const std::map<std::string, std::vector<std::string>> cases = {
      {"200\n\r", {}},
      {"200\nOk\n\r", {"Ok"}},
      {"300\na%0Ab\n\n     5\n\r", {"a%0Ab", "", "     5"}},
      {"300\nunfinished\r", {"unfinished"}}};
  for (const auto& [text, values] : cases) {
    const TReply reply = DecodeReply(BuildReply("k1", text), "k1");
    EXPECT_EQ(TReplyState::complete, reply.state) << text;
    EXPECT_EQ(text.substr(0, 3), reply.code);
    EXPECT_EQ(values, reply.values);
  }
}

TEST(VxWire, TellsIncompleteFromDamaged) {
  const std::string good = BuildReply("k1", "200\nOk\n\r");
  const std::map<std::string, std::tuple<TReplyState, size_t, size_t>> cases = {
      {"", {TReplyState::incomplete, 0, 4}},
      {good.substr(0, 2), {TReplyState::incomplete, 2, 4}},
      {good.substr(0, 11), {TReplyState::incomplete, 11, 12}},
      {good, {TReplyState::complete, 12, 12}},
      {good + 'x', {TReplyState::damaged, 13, 12}},
      {"\xff\xff\xff\xff", {TReplyState::damaged, 4, 0}},
      {std::string(4, '\0'), {TReplyState::damaged, 4, 0}},
      {BuildReply("k1", "20x\nOk\n\r"), {TReplyState::damaged, 12, 12}},
      {BuildReply("k1", "200\nOk\n"), {TReplyState::damaged, 11, 11}},
      {BuildReply("other key", "200\nOk\n\r"), {TReplyState::damaged, 12, 12}}};
  for (const auto& [bytes, expected] : cases) {
    const TReply reply = DecodeReply(bytes, "k1");
    EXPECT_EQ(expected, std::tuple(reply.state, reply.haveBytes, reply.wantBytes));
  }
}

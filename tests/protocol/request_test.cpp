#include "protocol/request.h"

#include <arpa/inet.h>

#include "client/vxwire.h"
#include "support/scopes.h"

constexpr char kText[] = "TEST-X\n Port = 80 \n\r";

static std::string said;  // the messages since the last parse, address and kind in front of each

static void Keep(const char* format, in_addr address, MsgType kind, int, va_list args) {
  char text[100];
  vsnprintf(text, sizeof text, format, args);
  said += inet_ntoa(address) + std::to_string(kind) + text;
}

static std::string Put(std::string bytes, size_t at, int width, int64_t value) {
  for (; width > 0; --width, value >>= 8) bytes[at++] = static_cast<char>(value);
  return bytes;
}

struct RequestTest : testing::Test {
  RequestTest() {
    Twofish_initialise();
    SetMessageSink(&Keep);
  }
  ~RequestTest() override { SetMessageSink(nullptr); }
  int Parse(const std::string& packet) {
    request = ToString(packet);
    said = "";
    return request.ParseInitRequest("pw", {inet_addr("7.0.0.9")});
  }

  /// The packet as it comes in `count` pieces, the proof looked at after each.
  static VxRequest InPieces(const std::string& packet, size_t count) {
    VxRequest taken;
    for (size_t at = 0, size = packet.size() / count + 1; at < packet.size(); at += size) {
      const std::string piece = packet.substr(at, size);
      taken.TakeBytes(piece.data(), static_cast<int>(piece.size()));
      taken.ForgetIfRefused("pw");
    }
    return taken;
  }

  const std::string good = BuildRequest("pw", "k1", kText);
  VxRequest request;
};

TEST_F(RequestTest, AcceptsAGoodPacketAndKeepsItsKey) {
  ASSERT_EQ(1, Parse(good));
  EXPECT_EQ(said,
            "7.0.0.92<-- TCP packet size: 52\n7.0.0.92<-- QOV packet size: 48\n"
            "7.0.0.92<-- Pswd size: 16\n7.0.0.92<-- Key size: 2\n7.0.0.92<-- Req size: 20\n");
  EXPECT_EQ(kText, ToStd(request));
  request = "another text";
  EXPECT_EQ("k1", ToStd(request.GetSessionKey()));
  EXPECT_EQ(EncodeData("x", "k1", 0), EncodeData("x", *request.SessionCipher(), 0));
  // Deliberate: only a text that reaches past the end is refused.
  EXPECT_EQ(1, Parse(Put(good, 28, 4, 6)));
  EXPECT_EQ("TEST-X", ToStd(request));
  // Deliberate: a proof that was wrong stays so, whatever the password is at the packet's end.
  VxRequest late;
  late.TakeBytes(good.data(), 30);
  late.ForgetIfRefused("other");
  late.TakeBytes(good.data() + 30, static_cast<int>(good.size()) - 30);
  EXPECT_EQ(0, late.ParseInitRequest("pw", {}));
  EXPECT_TRUE((request = InPieces(good, 99)).ParseInitRequest("pw", {}) == 1 && request == kText);
  request = ToString(BuildRequest("", "", ""));
  EXPECT_EQ(1, request.ParseInitRequest("", {}));
}

TEST_F(RequestTest, RefusesEveryDamageWithoutAKeyAndTellsHowFarItCame) {
  const std::string longer = std::string(good).insert(24, 1, '\0');
  const std::pair<const char*, std::vector<std::string>> cases[] = {
      {"TCP packet size: 13", {Put(good, 0, 4, 9).substr(0, 13)}},
      {"TCP packet size: 16777217", {Put(std::string(0x1000001, ' '), 0, 4, 0xFFFFFD)}},
      {"QOV packet size: 48", {good + 'x', good.substr(0, 51)}},
      {"QOV packet size: 2147483647", {Put(good, 0, 4, INT32_MAX)}},
      {"Pswd size: 39", {Put(good, 6, 2, 39)}},
      {"Key size: 23", {Put(good, 24, 2, 23)}},
      {"Req size: 20", {Put(good, 4, 1, 2), Put(good, 5, 1, 0x13)}},
      {"Req size: 21", {Put(good, 28, 4, 21)}},
      {"Req size: -1", {Put(good, 28, 4, -1)}},
      {"Wrong password or MD5 error",
       {Put(good, 23, 1, 0), BuildRequest("", "k1", kText), Put(Put(longer, 0, 4, 49), 6, 2, 17)}}};
  for (const auto& [last, packets] : cases) {
    for (const std::string& packet : packets) {
      ASSERT_EQ(1, Parse(good));
      EXPECT_EQ(0, Parse(packet)) << last;
      EXPECT_EQ(std::string("7.0.0.92<-- ") + last + "\n", said.substr(said.rfind("7.0.0.9")));
      EXPECT_EQ(packet, ToStd(request)) << "the packet is kept";
      EXPECT_TRUE(request.GetSessionKey().Empty() && request.SessionCipher() == nullptr) << last;
      for (const size_t count : {1, 3, 50, 99}) {
        const std::string whole = std::exchange(said, "");
        VxRequest pieces = InPieces(packet, count);
        EXPECT_EQ(request.WholePacket(), pieces.WholePacket()) << last;
        EXPECT_EQ(0, pieces.ParseInitRequest("pw", {inet_addr("7.0.0.9")}));
        EXPECT_EQ(whole, said);
        EXPECT_TRUE(last[0] != 'W' || pieces.Capacity() == 0) << "its bytes are to be let go";
        EXPECT_TRUE(last[0] != 'R' || pieces == request) << last;
      }
    }
  }
}

TEST_F(RequestTest, IsWholeWhenNothingMoreIsWorthWaitingFor) {
  const int64_t cases[][3] = {{48, 51, 0},       {48, 53, 1},       {10, 14, 1},
                              {0, 13, 0},        {-1, 14, 1},       {0xFFFFFC, 14, 0},
                              {0xFFFFFD, 14, 1}, {INT32_MAX, 14, 1}};
  for (const auto& [announced, size, whole] : cases) {
    request = ToString(Put(std::string(static_cast<size_t>(size), '\0'), 0, 4, announced));
    EXPECT_EQ(whole, request.WholePacket()) << announced << " of " << size;
  }
}

TEST_F(RequestTest, ReadsLinesByPositionAndByName) {
  request =
      "no sign\n Port = 80 \nport=81\nPort=82\na==b=\nempty=\n\x7f\xc3\xa9 a\x1f\n\rx\r\r\nlast=x";
  EXPECT_EQ(8, request.GetParamsCount());
  const String all = request.GetParam(0, 0) + request.GetParam(2, 0) + request.GetParam(2, 1) +
                     request.GetParam(9, 1) + request.GetParam(10, 1);
  EXPECT_EQ("no sign Port = 80 Port = 80last=x", all);
  EXPECT_EQ("\xc3\xa9 a|x|\rx\r",
            request.GetValue(7) + '|' + request.GetValue(8) + '|' + request.GetText(8));
  EXPECT_EQ("80=b=", request.GetNamedParam("Port") + request.GetNamedParam("a"));
  // Deliberate: a line without its line feed is none.
  for (const char* s : {"empty", "no sign", "", "last"}) EXPECT_EQ("", request.GetNamedParam(s));
}

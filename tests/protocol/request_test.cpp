#include "protocol/request.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <thread>

#include "client/vxwire.h"
#include "support/scopes.h"

namespace {

constexpr char kText[] = "TEST-X\n Port = 80 \n\r";

std::string& Put(std::string& bytes, int64_t at, int64_t width, int64_t value) {
  for (; width > 0; --width, value >>= 8)
    bytes[static_cast<size_t>(at++)] = static_cast<char>(value);
  return bytes;
}

class RequestTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { Twofish_initialise(); }

  /// Parses a well-formed packet after `damage` has been done to its bytes.
  int ParseDamaged(const std::function<void(std::string& b)>& damage) {
    packet = BuildRequest("pw", "k1", kText);
    damage(packet);
    request = ToString(packet);
    return request.ParseInitRequest("pw", in_addr{});
  }

  std::string packet;
  VxRequest request;
};

}  // namespace

TEST_F(RequestTest, AcceptsAGoodPacketAndReportsItsSizes) {
  TMessageCapture messages;
  ASSERT_EQ(1, ParseDamaged([](std::string&) {}));
  EXPECT_EQ("k1", ToStd(request.GetSessionKey()));
  EXPECT_EQ(
      "<-- TCP packet size: 52\n<-- QOV packet size: 48\n<-- Pswd size: 16\n<-- Key size: 2\n"
      "<-- Req size: 20\n",
      messages.Texts());
  EXPECT_EQ(msgDebug, messages.Messages().at(0).kind);
}

TEST_F(RequestTest, RefusesEveryDamage) {
  const std::map<std::string, std::function<void(std::string & b)>> cases = {
      {"one byte after the request", [](auto& b) { b += 'x'; }},
      {"one byte missing", [](auto& b) { b.pop_back(); }},
      {"13 bytes", [](auto& b) { b.resize(13); }},
      {"nothing", [](auto& b) { b.clear(); }},
      {"first marker byte", [](auto& b) { b[4] = 0x02; }},
      {"second marker byte", [](auto& b) { b[5] = 0x13; }},
      {"first byte of the proof", [](auto& b) { b[8] ^= 1; }},
      {"last byte of the proof", [](auto& b) { b[23] ^= '\x80'; }},
      {"no proof", [](auto& b) { b = BuildRequest("", "k1", kText); }},
      {"proof of another password", [](auto& b) { b = BuildRequest("PW", "k1", kText); }},
      {"part of the proof", [](auto& b) { Put(Put(b.erase(16, 8), 0, 4, 40), 6, 2, 8); }},
      {"over the limit", [](auto& b) { b.resize((16 << 20) + 1), Put(b, 0, 4, (16 << 20) - 3); }},
  };
  for (const auto& [name, damage] : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(0, ParseDamaged(damage));
    EXPECT_EQ(packet, ToStd(request)) << "the packet is kept";
    EXPECT_EQ("", ToStd(request.GetSessionKey()));
    EXPECT_EQ(nullptr, request.SessionCipher());
  }
}

TEST_F(RequestTest, RefusesEveryLengthThatDoesNotFit) {
  const int fields[][2] = {{0, 4}, {6, 2}, {24, 2}, {28, 4}};  // L, P, K, R: index and width
  for (const auto& field : fields) {
    for (const int64_t value : {-1, INT32_MAX, INT32_MIN, INT32_MAX - 3, 0x7FFF, 0x8000, 39, 21}) {
      EXPECT_EQ(0, ParseDamaged([&](std::string& b) { Put(b, field[0], field[1], value); }))
          << "at " << field[0] << ": " << value;
    }
  }
}

// Deliberate: only a text that reaches past the end is refused.
TEST_F(RequestTest, UsesNoMoreTextThanAnnounced) {
  for (const int size : {0, 1, 19}) {
    EXPECT_EQ(1, ParseDamaged([&](std::string& b) { Put(b, 28, 4, size); }));
    EXPECT_EQ(String(kText).Copy(1, size), request);
  }
}

TEST_F(RequestTest, FollowsTheConfiguredPassword) {
  for (const char* password : {"pw", "", "other", "pw"}) {
    request = ToString(BuildRequest(password, "key", kText));
    EXPECT_EQ(1, request.ParseInitRequest(password, in_addr{})) << password;
    EXPECT_EQ(kText, ToStd(request));
    request = ToString(BuildRequest(password, "", ""));
    EXPECT_EQ(1, request.ParseInitRequest(password, in_addr{})) << "empty key and text";
    EXPECT_EQ(0, request.ParseInitRequest(password, in_addr{})) << "no packet any more";
    EXPECT_EQ(nullptr, request.SessionCipher());
  }
}

TEST_F(RequestTest, ServesThreadsUnderDifferentPasswords) {
  const auto parse = [](const char* password) {
    for (int i = 0; i < 50; ++i) {
      VxRequest mine;
      mine = ToString(BuildRequest(password, "key", kText));
      EXPECT_EQ(1, mine.ParseInitRequest(password, in_addr{}));
      EXPECT_EQ(kText, ToStd(mine));
    }
  };
  std::thread other(parse, "old");
  parse("new");
  other.join();
}

TEST_F(RequestTest, IsWholeWhenNothingMoreIsWorthWaitingFor) {
  const int64_t cases[][3] = {{48, 51, 0},       {48, 52, 1},        {48, 53, 1},
                              {10, 14, 1},       {0, 13, 0},         {-1, 13, 0},
                              {-1, 14, 1},       {INT32_MIN, 14, 1}, {INT32_MAX, 14, 1},
                              {0xFFFFFC, 14, 0}, {0xFFFFFD, 14, 1}};  // announced, there, whole
  for (const auto& [announced, size, whole] : cases) {
    std::string bytes(static_cast<size_t>(size), '\0');
    request = ToString(Put(bytes, 0, 4, announced));
    EXPECT_EQ(whole, request.WholePacket()) << announced << " of " << size;
  }
}

TEST_F(RequestTest, ReadsLinesByPositionAndByName) {
  request = "first\n  second \nthird";
  EXPECT_EQ(2, request.GetParamsCount());
  const std::map<int, std::string> lines = {
      {-1, "first"}, {0, "first"}, {1, "first"}, {2, "second"}, {3, "third"}, {4, ""}, {5, ""}};
  for (const auto& [n, line] : lines) EXPECT_EQ(line, ToStd(request.GetParam(n, 1))) << n;
  EXPECT_EQ("  second ", ToStd(request.GetParam(2, 0)));
  EXPECT_EQ("", ToStd(VxRequest().GetParam(1, 1)));
  request = "no sign\n Port = 80 \nport=81\nPort=82\na==b=\nempty=\nlast=x";
  const std::map<std::string, std::string> values = {
      {"Port", "80"}, {"port", "81"},  {"a", "=b="},
      {"empty", ""},  {"no sign", ""}, {"last", ""}};  // a line without its line feed
  for (const auto& [name, value] : values) {
    EXPECT_EQ(value, ToStd(request.GetNamedParam(name.c_str()))) << name;
  }
}

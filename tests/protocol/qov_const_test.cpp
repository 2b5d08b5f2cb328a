#include "protocol/qov_const.h"

#include <gtest/gtest.h>
#include <limits.h>

#include <map>
#include <tuple>

#include "client/vxwire.h"
#include "support/text.h"

TEST(Length, IsLittleEndianInEveryWidth) {
  String s;
  s.SetLength(0x012345);
  EXPECT_EQ(ToString({"\x45\x23\x01\x00", 4}), EncodeLength(s, 4));
  EXPECT_EQ(ToString("\x45\x23"), EncodeLength(s, 2));
  const int expected[] = {0, 254, 65534, 0, -2};  // by width
  for (int width = 0; width <= 4; ++width) {
    EXPECT_EQ(expected[width], DecodeLength("\xFE\xFF\xFF\xFF", width));
  }
  EXPECT_DEATH(EncodeLength("", 5), "qov_const:.*: Assertion `digits<=sizeof\\(len\\)' failed");
  EXPECT_DEATH(DecodeLength("12345", 5), "qov_const:.*Assertion `digits<=sizeof\\(int\\)' failed");
}

TEST(Cipher, AgreesWithThePeer) {
  Twofish_initialise();
  for (const char* key : {"k1", ""}) {
    std::string text;
    for (int size = 0; size <= 70; ++size) {
      const String packet = EncodeData(ToString(text), key, 4);
      EXPECT_EQ(BuildReply(key, text), ToStd(packet)) << size;
      EXPECT_EQ(text, ToStd(DecodeData(packet.Copy(5, size), key))) << size;
      text += static_cast<char>(size * 37);
    }
  }
  EXPECT_EQ("\x8f\xe4\xc1\x14\x51\x28\x1c\x09\x4a\x65\x78\xe6\xdd\xbf\x5e\xed",
            ToStd(EncodePswd("pw")));
  EXPECT_EQ("", ToStd(EncodePswd("")));
}

TEST(Values, NumbersPlainAndCheckedAndBooleanIsExactlyOne) {
  EXPECT_TRUE(qovDecodeBool("1") && qovDecodeBool(ToString({"1\0x", 3})));
  for (const char* text : {"0", "true", " 1", "1 ", "11", ""}) EXPECT_EQ(0, qovDecodeBool(text));
  const std::string huge(30, '9');
  const std::map<std::string, int> accepted = {{"42", 42},           {"-7", -7}, {"", 0},
                                               {"1-2", 1},           {"-", 0},   {huge, INT_MAX},
                                               {"-" + huge, INT_MIN}};
  const std::map<std::string, int> refused = {
      {" \t-7x", -7}, {"+3", 3}, {"abc", 0}, {"0x10", 0}, {"1.5", 1}};
  for (const int good : {1, 0}) {
    for (const auto& [text, plain] : good != 0 ? accepted : refused) {
      SCOPED_TRACE(text);
      EXPECT_EQ(plain, qovDecodeInt(text.c_str()));
      int value = 77;
      double large = 77;
      EXPECT_EQ(good, qovDecodeInt(ToString(text), &value));
      EXPECT_EQ(good, qovDecodeInt64(ToString(text), &large));
      EXPECT_EQ(good != 0 ? plain : 77, value);
      EXPECT_EQ(good != 0 ? qovDecodeInt64(text.c_str()) : 77, large);
    }
  }
  EXPECT_EQ(9007199254740992.0, qovDecodeInt64("9007199254740992"));
  EXPECT_EQ(-0.25, qovDecodeReal(String(" -0.25x")));
}

TEST(Values, TimeKeepsMonthAndYearAsRead) {
  const struct tm t = qovDecodeTime("31122023235958");
  EXPECT_EQ(std::tuple(31, 12, 2023, 23, 59, 58),
            std::tie(t.tm_mday, t.tm_mon, t.tm_year, t.tm_hour, t.tm_min, t.tm_sec));
  for (const char* text : {"", "3112202323595", "311220232359581"}) {
    EXPECT_EQ(0, qovDecodeTime(String(text)).tm_mday) << text;
  }
}

TEST(Values, LineBreaksAreEscaped) {
  const std::string zero("\0\n", 2), escapedZero("\0%0A", 4);
  const std::map<std::string, std::string> both = {
      {"100%", "100%"}, {"a\r\nb", "a%0D%0Ab"}, {"\n\n", "%0A%0A"}, {zero, escapedZero}};
  for (const auto& [plain, escaped] : both) {
    EXPECT_EQ(escaped, ToStd(qovEncodeStrings(ToString(plain))));
    EXPECT_EQ(plain, ToStd(qovDecodeStrings(ToString(escaped))));
    EXPECT_EQ(escaped, EncodeText(plain));
    EXPECT_EQ(plain, DecodeText(escaped));
  }
  for (const char* kept : {"", "%0a", "%0", "%", "%0B", "%1A"}) {
    EXPECT_EQ(kept, ToStd(qovDecodeStrings(String(kept))));
    EXPECT_EQ(kept, DecodeText(kept));
  }
  EXPECT_EQ("\n", ToStd(qovDecodeStrings("%0A", 0)));
  EXPECT_EQ("a", ToStd(qovEncodeStrings("a\nb", 1)));
  EXPECT_EQ("", ToStd(qovEncodeStrings(nullptr, 3)));
}

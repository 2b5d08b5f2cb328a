#include <gtest/gtest.h>
#include <limits.h>
#include <math.h>

#include "client/vxwire.h"
#include "protocol/reply.h"
#include "support/scopes.h"

TEST(Codec, LengthsAreLittleEndianInEveryWidth) {
  EXPECT_EQ(ToString("\x45\x23"), EncodeLength(ToString(std::string(0x012345, ' ')), 2));
  for (int width = 0; const int expected : {0, 254, 65534, 0, -2}) {
    EXPECT_EQ(expected, DecodeLength("\xFE\xFF\xFF\xFF", width++));
  }
  EXPECT_DEATH(EncodeLength("", 5), "qov_const:.*: Assertion `digits<=sizeof\\(len\\)' failed");
  EXPECT_DEATH(DecodeLength("12345", 5), "qov_const:.*Assertion `digits<=sizeof\\(int\\)' failed");
}

TEST(Codec, CipherAndProofAgreeWithThePeer) {
  Twofish_initialise();
  std::string text;
  for (int size = 0; size <= 70; ++size) {
    const String packet = EncodeData(ToString(text), "k1", 4);
    EXPECT_EQ(BuildReply("k1", text), ToStd(packet)) << size;
    EXPECT_EQ(text, ToStd(DecodeData(packet.Copy(5, size), "k1"))) << size;
    text += static_cast<char>(size * 37);
  }
  EXPECT_EQ(BuildRequest("pw", "", "").substr(8, 16), ToStd(EncodePswd("pw")));
  EXPECT_EQ("", ToStd(EncodePswd("")));
}

TEST(Codec, ReadsValues) {
  for (const char* text : {"0", "true", " 1", "1 ", "11", ""}) EXPECT_EQ(0, qovDecodeBool(text));
  EXPECT_EQ(1, qovDecodeBool(String("1")));
  const std::pair<const char*, int> taken[] = {
      {"42", 42}, {"-7", -7}, {"", 0}, {"1-2", 1}, {"99999999999", INT_MAX}};
  for (const auto& [text, plain] : taken) {
    int value = 77;
    double large = 77;
    EXPECT_EQ(1, qovDecodeInt(String(text), &value)) << text;
    EXPECT_EQ(1, qovDecodeInt64(String(text), &large)) << text;
    EXPECT_EQ(plain, value);
    EXPECT_EQ(strtod(text, nullptr), large);
    EXPECT_FALSE(qovDecodeInt(" 1", &value) || qovDecodeInt64("x", &large));
    EXPECT_EQ(plain, value);
  }
  EXPECT_EQ(-7, qovDecodeInt(" \t-7x"));
  EXPECT_EQ(-0.25, qovDecodeReal(String(" -0.25x")));
  // Deliberate: month and year stay as read.
  const struct tm t = qovDecodeTime("31122023235958");
  EXPECT_EQ(std::tuple(31, 12, 2023, 23, 59, 58),
            std::tie(t.tm_mday, t.tm_mon, t.tm_year, t.tm_hour, t.tm_min, t.tm_sec));
  EXPECT_EQ(0, qovDecodeTime(String("311220232359581")).tm_mday);
}

TEST(Codec, EscapesLineBreaks) {
  EXPECT_EQ(ToString({"\0%a%0D%0A", 9}), qovEncodeStrings({"\0%a\r\n", 5}));
  EXPECT_EQ(ToString({"\0%a\r\n", 5}), qovDecodeStrings({"\0%a%0D%0A", 9}));
  for (const char* kept : {"", "%0a", "%0", "%0B", "%1A", "x0A"}) {
    EXPECT_EQ(kept, ToStd(qovDecodeStrings(String(kept))));
  }
  for (const int whole : {0, -1}) {
    EXPECT_EQ("b\n", ToStd(qovDecodeStrings("b%0A", whole)));
    EXPECT_EQ("b%0A", ToStd(qovEncodeStrings("b\n", whole)));
  }
  EXPECT_EQ("a%0", ToStd(qovEncodeStrings("a\nb", 1) + qovDecodeStrings("%0A", 2)));
  EXPECT_EQ("", ToStd(qovEncodeStrings(nullptr, 3) + qovDecodeStrings(nullptr, 3)));
}

TEST(Reply, CollectsOneLineAValue) {
  QovReply reply;
  reply.AddIntParam(5);
  reply.SetResult(kResultFailed) += "reason";
  reply.AddStringParam("a\nb", 1);
  reply.AddStringParam("c\n", 0);
  for (const int b : {7, 0}) reply.AddBoolParam(b);
  reply.AddIntParam(INT_MIN);
  reply.AddVarParams("%s=%d", "x", 3);
  // Deliberate: a raw value that ends a line of its own leaves an empty one behind it.
  std::string text = "300\nreason\na%0Ab\nc\n\n1\n0\n-2147483648\nx=3\n";
  EXPECT_EQ(text, ToStd(reply));
  for (int i = 0; i < 10; ++i) {
    reply.AddStringParam(reply, 0);
    EXPECT_EQ(text += text + '\n', ToStd(reply));
  }
}

TEST(Reply, NumbersTimesAndFormattedLinesAreBounded) {
  for (const auto& [value, lines] :
       {std::pair(5.0, "     5\n5.0000\n"),
        {-0.5, "    -0\n-0.5000\n"},
        {1e300, "1000000000000000052504760255204420\n1000000000000000052504760255204420\n"}}) {
    QovReply reply;
    reply.AddIntParam(value);
    reply.AddRealParam(value);
    EXPECT_EQ(lines, ToStd(reply));
  }
  for (const auto& [size, added] : {std::pair(2047, 2048), {2048, 2048}, {2049, 0}}) {
    QovReply reply;
    reply.AddVarParams("%*d", size, 1);
    EXPECT_EQ(added, reply.Length()) << size;
  }
  const TEnvironment zone("TZ", "UTC-1");
  tzset();
  QovReply reply;
  reply.AddTimeParam(time_t{1700000000});
  struct tm far = {};
  far.tm_year = far.tm_mon = INT_MAX;
  reply.AddTimeParam(far);
  EXPECT_EQ("14112023231320\n0021474836482147485547000000\n", ToStd(reply));
}

TEST(Reply, FinishedPacketIsReadByThePeer) {
  Twofish_initialise();
  QovReply reply;
  for (const std::string key : {"", "k1"}) {
    if (!key.empty()) reply.InitPacket("discarded", ToString(key));
    EXPECT_EQ(key.empty() ? "" : "discarded\n", ToStd(reply));
    reply.SetResult(kResultDone) += "unfinished line";
    reply.FinalizePacket();
    EXPECT_EQ(BuildReply(key, "200\nunfinished line\n\r"), ToStd(reply));
  }
}

#include "protocol/reply.h"

#include <gtest/gtest.h>
#include <limits.h>
#include <math.h>
#include <stdlib.h>

#include <utility>

#include "client/vxwire.h"
#include "support/text.h"

TEST(Reply, CollectsOneLineAValue) {
  QovReply reply;
  reply.AddIntParam(5);
  reply.SetResult(kResultFailed) += "reason";
  reply.AddStringParam("a\nb", 1);
  reply.AddStringParam(String("c\n"), 0);
  reply.AddBoolParam(7);
  reply.AddBoolParam(0);
  reply.AddIntParam(INT_MIN);
  reply.AddVarParams("%s=%d", "x", 3);
  reply.AddStringParam(static_cast<const char*>(nullptr), 1);
  // Deliberate: a raw value that ends a line of its own leaves an empty one behind it.
  EXPECT_EQ("300\nreason\na%0Ab\nc\n\n1\n0\n-2147483648\nx=3\n\n", ToStd(reply));
}

TEST(Reply, NumbersAndFormattedLinesAreBounded) {
  const std::pair<double, const char*> cases[] = {
      {5, "     5\n5.0000\n"},
      {-0.5, "    -0\n-0.5000\n"},
      {1234567, "1234567\n1234567.0000\n"},
      {1e300, "1000000000000000052504760255204420\n1000000000000000052504760255204420\n"},
      {-1e300, "-100000000000000005250476025520442\n-100000000000000005250476025520442\n"},
      {INFINITY, "   inf\n   inf\n"},
      {static_cast<double>(NAN), "   nan\n   nan\n"},
  };
  for (const auto& [value, lines] : cases) {
    QovReply reply;
    reply.AddIntParam(value);
    reply.AddRealParam(value);
    EXPECT_EQ(lines, ToStd(reply));
  }
  const int sizes[][2] = {{2047, 2048}, {2048, 2048}, {2049, 0}, {100000, 0}};
  for (const auto& [size, added] : sizes) {
    QovReply reply;
    reply.AddVarParams("%*d", size, 1);
    EXPECT_EQ(added, reply.Length()) << size;
  }
}

TEST(Reply, TimesAreLocalDigits) {
  setenv("TZ", "UTC-1", 1);
  tzset();
  QovReply reply;
  reply.AddTimeParam(time_t{1700000000});
  struct tm far = {};
  far.tm_year = INT_MAX;
  far.tm_mon = INT_MAX;
  reply.AddTimeParam(far);
  EXPECT_EQ("14112023231320\n0021474836482147485547000000\n", ToStd(reply));
}

TEST(Reply, FinishedPacketIsReadByThePeer) {
  Twofish_initialise();
  for (const bool prepared : {false, true}) {
    QovReply reply;
    if (prepared) {
      reply.InitPacket("discarded", std::make_shared<const TCipherKey>("k1"));
    } else {
      reply.InitPacket("discarded", "k1");
    }
    EXPECT_EQ("discarded\n", ToStd(reply));
    reply.SetResult(kResultDone) += "unfinished line";
    reply.FinalizePacket();
    const TReply answer = DecodeReply(ToStd(reply), "k1");
    EXPECT_EQ(TReplyState::complete, answer.state);
    EXPECT_EQ("200\nunfinished line\n\r", answer.text);
  }
}

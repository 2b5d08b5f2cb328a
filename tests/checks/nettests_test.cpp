#include "checks/nettests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include "support/handlercall.h"
#include "support/loopbackpeer.h"
#include "support/rawpeer.h"

using testing::MatchesRegex;

namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr char kWrong[] = "501\nWrong parameter";

class NetTest : public testing::Test {
 protected:
  static std::string Ask(void (*handler)(const VxRequest&, QovReply&), int port, TParams params) {
    params[1] = kHost;
    params[2] = std::to_string(port);
    return CallHandler(handler, params);
  }
  static std::string Tcp(int port, const char* timeout, const char* data, const char* size) {
    return Ask(ProcessTest_TCP, port, {{3, timeout}, {4, data}, {5, size}});
  }
  static std::string Udp(int port, const char* timeout, const char* attempts, const char* data,
                         const char* size) {
    return Ask(ProcessTest_UDP, port, {{3, timeout}, {4, attempts}, {5, data}, {6, size}});
  }
  const TEnabledTests enabled;
};

}  // namespace

TEST_F(NetTest, AnswersForEveryOutcomeOverTcp) {
  const TLoopbackPeer answering(TLoopbackPeer::kTcp, {"one\r\ntwo", 6});
  const TLoopbackPeer silent(TLoopbackPeer::kTcp);
  const TLoopbackPeer closing(TLoopbackPeer::kTcp, {"", 0, true});
  const TLoopbackPeer endless(TLoopbackPeer::kTcp, {std::string(100000, 'x')});
  const int closed = FindFreePort();
  const struct {
    const char* name;
    int port;
    const char *timeout, *data, *size, *reply;
  } cases[] = {
      {"answer", answering.Port(), "5000", "ab%0D%0Acd", "100", "200\n[0-9]+\none%0D%0Atwo\n"},
      {"partial answer", answering.Port(), "5000", "abcdef", "4", "200\n[0-9]+\none%0D\n"},
      {"nothing wanted", silent.Port(), "5000", "", "0", "200\n[0-9]+\n\n"},
      {"no time-out means two minutes", answering.Port(), "0", "abcdef", "1", "200\n[0-9]+\no\n"},
      {"silence", silent.Port(), "50", "", "1", "301\nTimeout\n0\n"},
      {"closed by the peer", closing.Port(), "5000", "", "1", "301\n\n0\n"},
      {"closed port", closed, "5000", "", "1", "301\n\n-6\n"},
      {"parameter that is no number", silent.Port(), "5s", "", "1", kWrong},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(Tcp(c.port, c.timeout, c.data, c.size), MatchesRegex(c.reply)) << c.name;
  }
  EXPECT_LE(Tcp(endless.Port(), "5000", "", "100000").size(), 8192u + 16);
  EXPECT_EQ(
      "301\nCannot resolve server name to IP address\n-2\n",
      CallHandler(ProcessTest_TCP, {{1, std::string(64, 'x')}, {2, "1"}, {3, "1"}, {5, "1"}}));
}

TEST_F(NetTest, MeasuresTheWholeTcpExchange) {
  const TLoopbackPeer peer(TLoopbackPeer::kTcp, {"x", 0, false, 0, 60});
  int elapsedMs = 0;
  ASSERT_EQ(1, sscanf(Tcp(peer.Port(), "5000", "", "1").c_str(), "200\n%d\nx", &elapsedMs));
  EXPECT_GE(elapsedMs, 60);
}

TEST_F(NetTest, AnswersForEveryOutcomeOverUdp) {
  const TLoopbackPeer answering(TLoopbackPeer::kUdp, {std::string(9000, 'x')});
  const TLoopbackPeer silent(TLoopbackPeer::kUdp);
  const struct {
    const char* name;
    int port;
    const char *timeout, *attempts, *data, *size, *reply;
  } cases[] = {
      {"answer", answering.Port(), "5000", "1", "data", "3", "200\n[0-9]+\nxxx\n"},
      {"nothing wanted", silent.Port(), "5000", "1", "data", "0", "200\n[0-9]+\n\n"},
      {"silence", silent.Port(), "-5000", "2", "ab%0A", "1", "301\nTimeout\n0\n"},
      {"no attempt", silent.Port(), "5000", "0", "data", "1", kWrong},
      {"negative attempts", silent.Port(), "5000", "-1", "data", "1", kWrong},
      {"no data", silent.Port(), "5000", "1", "", "1", kWrong},
      {"parameter that is no number", silent.Port(), "5000", "1", "data", "x", kWrong},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(Udp(c.port, c.timeout, c.attempts, c.data, c.size), MatchesRegex(c.reply))
        << c.name;
  }
  EXPECT_EQ((std::vector<std::string>{"data", "ab\n", "ab\n"}), silent.Received(10));
  EXPECT_THAT(Udp(answering.Port(), "5000", "1", "data", "100000"),
              MatchesRegex("200\n[0-9]+\n" + std::string(8192, 'x') + "\n"));
}

TEST_F(NetTest, RetriesUdpForAWholeSecondEachAndTimesTheLastAttempt) {
  const TLoopbackPeer peer(TLoopbackPeer::kUdp, {"x", 0, false, 1});
  const long long start = NowMs();
  int elapsedMs = -1;
  ASSERT_EQ(1, sscanf(Udp(peer.Port(), "500", "9", "data", "1").c_str(), "200\n%d\nx", &elapsedMs));
  EXPECT_GE(NowMs() - start, 999 + elapsedMs);
  EXPECT_EQ(2u, peer.Received(8).size());
}

TEST(NetGateTest, RefusesDisabledTests) {
  const TEnabledTests disabled(0);
  EXPECT_EQ("600\ntest is not allowed", CallHandler(ProcessTest_TCP, {}));
  EXPECT_EQ("600\ntest is not allowed", CallHandler(ProcessTest_UDP, {}));
}

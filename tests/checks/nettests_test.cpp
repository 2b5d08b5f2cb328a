#include "checks/nettests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include "support/handlercall.h"
#include "support/peers.h"

using testing::MatchesRegex;

namespace {

constexpr char kWrong[] = "501\nWrong parameter";

std::string Tcp(int port, const char* timeout, const char* data, const char* size) {
  const std::string text = std::to_string(port);
  return CallHandler(ProcessTest_TCP,
                     {{1, "127.0.0.1"}, {2, text}, {3, timeout}, {4, data}, {5, size}});
}

std::string Udp(int port, const char* timeout, const char* attempts, const char* data,
                const char* size) {
  const std::string text = std::to_string(port);
  return CallHandler(
      ProcessTest_UDP,
      {{1, "127.0.0.1"}, {2, text}, {3, timeout}, {4, attempts}, {5, data}, {6, size}});
}

TEST(NetTests, AnswerForEveryOutcomeOverTcp) {
  const TEnabledTests enabled;
  const TLoopbackPeer answering(TLoopbackPeer::kTcp, {"one\r\ntwo", 6});
  const TLoopbackPeer silent(TLoopbackPeer::kTcp);
  const TLoopbackPeer closing(TLoopbackPeer::kTcp, {"", 0, true});
  const TLoopbackPeer endless(TLoopbackPeer::kTcp, {std::string(100000, 'x')});
  const TLoopbackPeer late(TLoopbackPeer::kTcp, {"x", 0, false, 0, 60});
  const struct {
    int port;
    const char *timeout, *data, *size, *reply;
  } cases[] = {
      {answering.Port(), "5000", "ab%0D%0Acd", "100", "200\n[0-9]+\none%0D%0Atwo\n"},
      {answering.Port(), "5000", "abcdef", "4", "200\n[0-9]+\none%0D\n"},
      {answering.Port(), "0", "abcdef", "1", "200\n[0-9]+\no\n"},  // 0: two minutes
      {silent.Port(), "5000", "", "0", "200\n[0-9]+\n\n"},
      {silent.Port(), "50", "", "1", "301\nTimeout\n0\n"},
      {closing.Port(), "5000", "", "1", "301\n\n0\n"},
      {FindFreePort(), "5000", "", "1", "301\n\n-6\n"},
      {silent.Port(), "5s", "", "1", kWrong},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(Tcp(c.port, c.timeout, c.data, c.size), MatchesRegex(c.reply));
  }
  EXPECT_LE(Tcp(endless.Port(), "5000", "", "100000").size(), 8192u + 16);
  int elapsedMs = 0;  // of the whole exchange
  ASSERT_EQ(1, sscanf(Tcp(late.Port(), "5000", "", "1").c_str(), "200\n%d\nx", &elapsedMs));
  EXPECT_GE(elapsedMs, 60);
  const TParams noName = {{1, std::string(64, 'x')}, {2, "1"}, {3, "1"}, {5, "1"}};
  ExpectReplies(ProcessTest_TCP, {{noName, "301\nCannot resolve server name to IP address\n-2\n"}});
}

TEST(NetTests, AnswerForEveryOutcomeOverUdp) {
  const TEnabledTests enabled;
  const TLoopbackPeer answering(TLoopbackPeer::kUdp, {std::string(9000, 'x')});
  const TLoopbackPeer silent(TLoopbackPeer::kUdp);
  const struct {
    int port;
    const char *timeout, *attempts, *data, *size;
    std::string reply;
  } cases[] = {
      {answering.Port(), "5000", "1", "data", "3", "200\n[0-9]+\nxxx\n"},
      {answering.Port(), "5000", "1", "data", "100000",
       "200\n[0-9]+\n" + std::string(8192, 'x') + "\n"},
      {silent.Port(), "5000", "1", "data", "0", "200\n[0-9]+\n\n"},
      {silent.Port(), "-5000", "2", "ab%0A", "1", "301\nTimeout\n0\n"},
      {silent.Port(), "5000", "0", "data", "1", kWrong},
      {silent.Port(), "5000", "1", "", "1", kWrong},
      {silent.Port(), "5000", "1", "data", "x", kWrong},
  };
  for (const auto& c : cases) {
    EXPECT_THAT(Udp(c.port, c.timeout, c.attempts, c.data, c.size), MatchesRegex(c.reply));
  }
  EXPECT_EQ((std::vector<std::string>{"data", "ab\n", "ab\n"}), silent.Received(10));
}

TEST(NetTests, RetryUdpForAWholeSecondEachAndTimeTheLastAttempt) {
  const TEnabledTests enabled;
  const TLoopbackPeer peer(TLoopbackPeer::kUdp, {"x", 0, false, 1});
  const long long start = NowMs();
  int elapsedMs = -1;
  ASSERT_EQ(1, sscanf(Udp(peer.Port(), "500", "9", "data", "1").c_str(), "200\n%d\nx", &elapsedMs));
  EXPECT_GE(NowMs() - start, 999 + elapsedMs);
  EXPECT_EQ(2u, peer.Received(8).size());
}

}  // namespace

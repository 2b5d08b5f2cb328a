#include "checks/nettests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdio.h>

#include <thread>

#include "checks/actions.h"
#include "core/iplib.h"
#include "support/handlercall.h"
#include "support/peers.h"
#include "support/scopes.h"

namespace {

using testing::MatchesRegex;
constexpr char kHost[] = "127.0.0.1", kWrong[] = "501\nWrong parameter";
const std::string noName(64, 'x');  // too long for any name server to be asked

/// Asks all at once: each waits for a peer of its own.
void ExpectMatches(THandler handler, const std::vector<TCall>& calls) {
  std::vector<std::thread> threads;
  for (const TCall& call : calls) {
    threads.emplace_back([&call, handler] {
      EXPECT_THAT(CallHandler(handler, call.params), MatchesRegex(call.reply))
          << testing::PrintToString(call.params);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(NetTests, AnswerForEveryOutcome) {
  const TEnabledTests enabled;
  using TPeer = TLoopbackPeer;
  const TPeer answering(TPeer::kTcp, {"one\r\ntwo", 6}), silent(TPeer::kTcp);
  const TPeer closing(TPeer::kTcp, {.closeThen = true}),
      endless(TPeer::kTcp, {std::string(9000, 'x')});
  const TPeer late(TPeer::kTcp, {.text = "x", .delayMs = 100});
  const auto tcp = [](int port, const char* timeout, const char* data, const char* size) {
    return TParams{{1, kHost}, {2, std::to_string(port)}, {3, timeout}, {4, data}, {5, size}};
  };
  const std::string most = "200\n[0-9]+\n" + std::string(8192, 'x') + "\n";
  ExpectMatches(ProcessTest_TCP,
                {{tcp(answering.Port(), "200", "ab \r", "100"), "301\nTimeout\n0\n"},
                 {tcp(answering.Port(), "5000", "ab%0D%0Acd", "4"), "200\n[0-9]+\none%0D\n"},
                 {tcp(late.Port(), "0", "", "1"), "200\n[0-9][0-9][0-9]+\nx\n"},
                 {tcp(silent.Port(), "5000", "", "0"), "200\n[0-9]+\n\n"},
                 {tcp(silent.Port(), "50", "", "1"), "301\nTimeout\n0\n"},
                 {tcp(closing.Port(), "5000", "", "1"), "301\n\n0\n"},
                 {tcp(FindFreePort(), "5000", "", "1"), "301\n\n-6\n"},
                 {{{1, noName}, {2, "1"}, {3, "1"}, {5, "1"}},
                  "301\nCannot resolve server name to IP address\n-2\n"},
                 {tcp(silent.Port(), "5s", "", "1"), kWrong}});
  EXPECT_LE(CallHandler(ProcessTest_TCP, tcp(endless.Port(), "5000", "", "9000")).size(),
            most.size());

  const TPeer many(TPeer::kUdp, {std::string(9000, 'x')}), mute(TPeer::kUdp);
  const TPeer second(TPeer::kUdp, {.text = "x", .ignored = 1}),
      slow(TPeer::kUdp, {.text = "x", .delayMs = 1600});
  const auto udp = [](int port, const char* timeout, const char* attempts, const char* data,
                      const char* size, const std::string& host = kHost) {
    return TParams{{1, host}, {2, std::to_string(port)}, {3, timeout}, {4, attempts}, {5, data},
                   {6, size}};
  };
  const long long start = NowMs();
  ExpectMatches(ProcessTest_UDP,
                {{udp(many.Port(), "5000", "1", "data", "3"), "200\n[0-9]+\nxxx\n"},
                 {udp(many.Port(), "5000", "1", "data", "100000"), most},
                 {udp(mute.Port(), "5000", "1", "data ", "0"), "200\n[0-9]+\n\n"},
                 // The time of the last attempt alone.
                 {udp(second.Port(), "500", "9", "data", "1"), "200\n[0-9]{1,3}\nx\n"},
                 {udp(slow.Port(), "1999", "1", "data", "1"), "301\nTimeout\n0\n"},
                 {udp(1, "0", "3", "data", "1", noName),
                  "301\nCannot resolve server name to IP address\n-2\n"},
                 {udp(mute.Port(), "5000", "0", "data", "1"), kWrong},
                 {udp(mute.Port(), "5000", "1", "", "1"), kWrong},
                 {udp(mute.Port(), "5000", "1", "data", "x"), kWrong}});
  EXPECT_GE(NowMs() - start, 2000) << "three attempts that fail at once";
  EXPECT_EQ((std::vector<std::string>{"data "}), mute.Received(5));
  CallHandler(ProcessTest_UDP, udp(mute.Port(), "-5000", "2", "ab%0A", "1"));
  EXPECT_EQ((std::vector<std::string>{"data ", "ab\n", "ab\n"}), mute.Received(11));
}

TEST(Actions, RunACommand) {
  const TEnabledTests enabled;
  const TTempDir folder;
  folder.File("exit3", "#!/bin/sh\nexit 3\n");
  ExpectReplies(ProcessAct_ExternalCmd,
                {{{{1, "/bin/sh exit3"}, {2, folder.Path()}, {4, "60000"}}, "200\n3\n"},
                 {{{1, "/none"}, {4, "0"}}, "301\nexec error: No such file or directory"},
                 {{{1, "/bin/true"}, {3, "x"}, {4, "0"}}, kWrong},
                 {{{1, ""}, {4, "1s"}}, kWrong},
                 {{{1, " "}, {4, "0"}}, "501\nCommand line to execute is not specified"}});
}

TEST(Actions, SendFirstAndSecondData) {
  const TEnabledTests enabled;
  for (const auto kind : {TLoopbackPeer::kTcp, TLoopbackPeer::kUdp}) {
    const TLoopbackPeer peer(kind);
    TParams params = {{1, kHost},
                      {2, std::to_string(peer.Port())},
                      {4, "PING \r"},
                      {5, "1"},
                      {3, kind == TLoopbackPeer::kTcp ? "0" : "17"},
                      {6, "second"}};
    const long long start = NowMs();
    EXPECT_EQ("200\nData has been sent", CallHandler(ProcessAct_TCPSend, params));
    EXPECT_GE(NowMs() - start, 999);
    EXPECT_EQ((std::vector<std::string>{"PING ", "second"}), peer.Received(11));
  }
  const std::string closed = std::to_string(FindFreePort());
  ExpectReplies(ProcessAct_TCPSend,
                {{{{1, kHost}, {2, closed}, {3, "0"}, {4, "x"}}, "301\n"},
                 {{{1, "localhost"}, {2, closed}, {3, "1"}, {4, "x"}},
                  "301\nName resolution error: unknown address structure"},
                 {{{1, kHost}, {2, closed}, {3, "0"}, {4, "x"}, {5, "1s"}}, kWrong},
                 {{{1, kHost}, {2, closed}, {3, "0"}}, kWrong},
                 {{{2, closed}, {3, "0"}, {4, "x"}}, kWrong}});
}

TEST(Actions, WriteExactSyslogDatagrams) {
  const std::string rest = ' ' + ToStd(IP2String(GetMyIP())) + " WQ QOV: text";
  const struct {
    int facility, severity;
    const char *now, *start;
  } cases[] = {{4, 2, "2026-03-05 09:07:03", "<34>Mar 5 09:07:03"},
               {30, 0, "2026-12-31 23:59:59", "<240>Dec31 23:59:59"},
               {0x7fffffff, 7, "2026-05-01 00:00:00", "<2147483647>May 1 00:00:00"}};
  for (const auto& c : cases) {
    tm local{};
    local.tm_isdst = -1;
    ASSERT_NE(nullptr, strptime(c.now, "%Y-%m-%d %H:%M:%S", &local));
    EXPECT_EQ(c.start + rest,
              ToStd(SyslogDatagram(c.facility, c.severity, mktime(&local), "WQ QOV", "text")));
  }

  const TEnabledTests enabled;
  const TLoopbackPeer peer(TLoopbackPeer::kUdp);
  const auto call = [&](const std::string& host, const char* facility, const char* severity) {
    return TParams{
        {1, host}, {2, std::to_string(peer.Port())}, {3, facility}, {4, severity}, {5, "a%0Ab "}};
  };
  ExpectReplies(ProcessAct_Syslog,
                {{call(kHost, "4", "7"), "200\nSyslog: Data to 127.0.0.1 has been sent"},
                 {call(noName, "4", "0"), "200\nSyslog: Data to " + noName + " has been sent"},
                 {call(kHost, "4", "8"), kWrong},
                 {call(kHost, "4", "-1"), kWrong},
                 {call(kHost, "x", "2"), kWrong},
                 {call("", "4", "2"), kWrong}});
  EXPECT_EQ("<39>" + ToStd(CDateTime()).substr(0, 5), peer.Received(1).front().substr(0, 9));
  EXPECT_THAT(peer.Received(1).front(),
              MatchesRegex("<39>...[ 123][0-9] ..:..:.. [0-9.]+ WQ QOV: a\nb "));
}

}  // namespace

#include "checks/actions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/iplib.h"
#include "support/handlercall.h"
#include "support/peers.h"
#include "support/scopes.h"

namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr char kWrong[] = "501\nWrong parameter";

TEST(Actions, RunACommand) {
  const TEnabledTests enabled;
  const TTempDir folder;
  folder.File("exit3", "#!/bin/sh\nexit 3\n");
  ExpectReplies(ProcessAct_ExternalCmd,
                {{{{1, "/bin/sh exit3"}, {2, folder.Path()}, {4, "60000"}}, "200\n3\n"},
                 {{{1, "/none"}, {4, "0"}}, "301\nexec error: No such file or directory"},
                 {{{1, "/bin/true"}, {3, "x"}, {4, "0"}}, kWrong},
                 {{{1, ""}, {4, "1s"}}, kWrong},
                 {{{4, "0"}}, "501\nCommand line to execute is not specified"}});
}

TEST(Actions, SendFirstAndSecondData) {
  const TEnabledTests enabled;
  for (const auto kind : {TLoopbackPeer::kTcp, TLoopbackPeer::kUdp}) {
    const TLoopbackPeer peer(kind);
    TParams params = {{1, kHost},      {2, std::to_string(peer.Port())},
                      {4, "first%0A"}, {3, kind == TLoopbackPeer::kTcp ? "0" : "17"},
                      {5, "1"},        {6, "second"}};
    const long long start = NowMs();
    EXPECT_EQ("200\nData has been sent", CallHandler(ProcessAct_TCPSend, params));
    EXPECT_GE(NowMs() - start, 999);
    EXPECT_EQ((std::vector<std::string>{"first\n", "second"}), peer.Received(12));
    params[5] = "-1";
    params[6] = "";
    EXPECT_EQ("200\nData has been sent", CallHandler(ProcessAct_TCPSend, params));
    EXPECT_EQ("first\n", peer.Received(18).back());
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
               {-1, 1, "2026-01-10 00:00:00", "<-7>Jan10 00:00:00"},
               {0x7fffffff, 7, "2026-05-01 00:00:00", "<2147483647>May 1 00:00:00"}};
  for (const auto& c : cases) {
    tm local{};
    local.tm_isdst = -1;
    ASSERT_NE(nullptr, strptime(c.now, "%Y-%m-%d %H:%M:%S", &local));
    EXPECT_EQ(c.start + rest,
              ToStd(SyslogDatagram(c.facility, c.severity, mktime(&local), "WQ QOV", "text")));
  }
}

TEST(Actions, LogToASyslogReceiver) {
  const TEnabledTests enabled;
  const TLoopbackPeer peer(TLoopbackPeer::kUdp);
  const std::string noName(64, 'x');  // too long for any name server to be asked
  const auto call = [&](const std::string& host, const char* facility, const char* severity) {
    const std::string port = std::to_string(peer.Port());
    return TParams{{1, host}, {2, port}, {3, facility}, {4, severity}, {5, "a%0Ab"}};
  };
  ExpectReplies(ProcessAct_Syslog,
                {{call(kHost, "4", "2"), "200\nSyslog: Data to 127.0.0.1 has been sent"},
                 {call(noName, "4", "2"), "200\nSyslog: Data to " + noName + " has been sent"},
                 {call(kHost, "4", "8"), kWrong},
                 {call(kHost, "4", "-1"), kWrong},
                 {call(kHost, "x", "2"), kWrong},
                 {call("", "4", "2"), kWrong}});
  EXPECT_THAT(peer.Received(1).front(),
              testing::MatchesRegex("<34>[A-Z][a-z][a-z][ 123][0-9] ..:..:.. "
                                    "[0-9.]+ WQ QOV: a\nb"));
}

}  // namespace

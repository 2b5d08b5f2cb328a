#include "checks/actions.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "core/iplib.h"
#include "support/handlercall.h"
#include "support/loopbackpeer.h"
#include "support/rawpeer.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

constexpr char kHost[] = "127.0.0.1";
constexpr char kWrong[] = "501\nWrong parameter";

class ActionTest : public testing::Test {
 protected:
  const TEnabledTests enabled;
};

time_t LocalTime(int day, int month, int hour, int minute, int second) {
  tm local{};
  local.tm_year = 126;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  local.tm_hour = hour;
  local.tm_min = minute;
  local.tm_sec = second;
  local.tm_isdst = -1;
  return mktime(&local);
}

}  // namespace

TEST_F(ActionTest, RunsACommand) {
  const TTempDir folder;
  folder.File("exit3", "#!/bin/sh\nexit 3\n");
  const std::string script = "/bin/sh " + folder.Path("exit3");
  const struct {
    TParams params;
    std::string reply;
  } cases[] = {
      {{{1, script}, {3, "0"}, {4, "60000"}}, "200\n3\n"},
      {{{1, "/bin/sh exit3"}, {2, folder.Path()}, {4, "60000"}}, "200\n3\n"},
      {{{1, folder.Path("none")}, {4, "0"}}, "301\nexec error: No such file or directory"},
      {{{1, "/bin/true"}, {3, "x"}, {4, "0"}}, kWrong},
      {{{1, ""}, {4, "1s"}}, kWrong},
      {{{4, "0"}}, "501\nCommand line to execute is not specified"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.reply, CallHandler(ProcessAct_ExternalCmd, c.params)) << c.reply;
  }
}

TEST_F(ActionTest, SendsFirstAndSecondData) {
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
}

TEST_F(ActionTest, TellsWhyDataCannotBeSent) {
  const std::string closed = std::to_string(FindFreePort());
  const struct {
    TParams params;
    const char* reply;
  } cases[] = {
      {{{1, kHost}, {2, closed}, {3, "0"}, {4, "x"}}, "301\n"},
      {{{1, "localhost"}, {2, closed}, {3, "1"}, {4, "x"}},
       "301\nName resolution error: unknown address structure"},
      {{{1, kHost}, {2, closed}, {3, "0"}, {4, "x"}, {5, "1s"}}, kWrong},
      {{{1, kHost}, {2, closed}, {3, "0"}}, kWrong},
      {{{2, closed}, {3, "0"}, {4, "x"}}, kWrong},
  };
  for (const auto& c : cases) EXPECT_EQ(c.reply, CallHandler(ProcessAct_TCPSend, c.params));
}

TEST(SyslogTest, WritesExactDatagrams) {
  const std::string own = ToStd(IP2String(GetMyIP()));
  const struct {
    int facility, severity;
    time_t now;
    std::string datagram;
  } cases[] = {
      {4, 2, LocalTime(5, 3, 9, 7, 3), "<34>Mar 5 09:07:03 " + own + " WQ QOV: text"},
      {4, 7, LocalTime(15, 3, 9, 7, 3), "<39>Mar15 09:07:03 " + own + " WQ QOV: text"},
      {30, 0, LocalTime(31, 12, 23, 59, 59), "<240>Dec31 23:59:59 " + own + " WQ QOV: text"},
      {-1, 1, LocalTime(10, 1, 0, 0, 0), "<-7>Jan10 00:00:00 " + own + " WQ QOV: text"},
      {0x7fffffff, 7, LocalTime(1, 5, 0, 0, 0),
       "<2147483647>May 1 00:00:00 " + own + " WQ QOV: text"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.datagram, ToStd(SyslogDatagram(c.facility, c.severity, c.now, "WQ QOV", "text")));
  }
}

TEST_F(ActionTest, LogsToASyslogReceiver) {
  const TLoopbackPeer peer(TLoopbackPeer::kUdp);
  const std::string port = std::to_string(peer.Port());
  const auto log = [&port](const char* host, const char* facility, const char* severity) {
    return CallHandler(ProcessAct_Syslog,
                       {{1, host}, {2, port}, {3, facility}, {4, severity}, {5, "a%0Ab"}});
  };
  EXPECT_EQ("200\nSyslog: Data to 127.0.0.1 has been sent", log(kHost, "4", "2"));
  EXPECT_THAT(peer.Received(1).front(),
              testing::MatchesRegex("<34>[A-Z][a-z][a-z][ 123][0-9] ..:..:.. "
                                    "[0-9.]+ WQ QOV: a\nb"));
  EXPECT_EQ(kWrong, log(kHost, "4", "8"));
  EXPECT_EQ(kWrong, log(kHost, "4", "-1"));
  EXPECT_EQ(kWrong, log(kHost, "x", "2"));
  EXPECT_EQ(kWrong, log("", "4", "2"));
}

TEST_F(ActionTest, AnswersSuccessWhenTheSyslogReceiverCannotBeReached) {
  const std::string noName(64, 'x');  // too long for any name server to be asked
  EXPECT_EQ("200\nSyslog: Data to " + noName + " has been sent",
            CallHandler(ProcessAct_Syslog, {{1, noName}, {4, "2"}}));
}

TEST(ActionGateTest, RefusesDisabledActions) {
  const TEnabledTests disabled(0);
  for (const auto handler : {ProcessAct_ExternalCmd, ProcessAct_TCPSend, ProcessAct_Syslog}) {
    EXPECT_EQ("600\noperation is not allowed", CallHandler(handler, {}));
  }
}

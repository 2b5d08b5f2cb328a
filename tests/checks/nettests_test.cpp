#include "checks/nettests.h"

#include <thread>

#include "checks/actions.h"
#include "core/iplib.h"
#include "support/handlercall.h"
#include "support/peers.h"
#include "support/scopes.h"

namespace {

using TPeer = TLoopbackPeer;
const std::string host = "127.0.0.1", wrong = "501\nWrong parameter", timeout = "301\nTimeout\n0\n";
const std::string noName(64, 'x');  // too long for any name server to be asked
const std::string unresolved = "301\nCannot resolve server name to IP address\n-2\n";

std::string Port(const TPeer& peer) { return std::to_string(peer.Port()); }

struct TRow {
  std::vector<std::string> params;
  std::string reply;  ///< a regular expression
};
/// Asks all at once: many wait.
void ExpectMatches(THandler handler, const std::vector<TRow>& rows) {
  std::vector<std::thread> threads;
  for (const TRow& row : rows) {
    threads.emplace_back([&row, handler] {
      TParams params;
      for (const std::string& param : row.params) params.emplace(params.size() + 1, param);
      EXPECT_THAT(CallHandler(handler, params), testing::MatchesRegex(row.reply))
          << testing::PrintToString(params);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEST(NetTests, AnswerForEveryOutcomeOverTcp) {
  const TEnabledTests enabled;
  const TPeer answering(TPeer::kTcp, {"one\r\ntwo", 6}), silent(TPeer::kTcp);
  const TPeer closing(TPeer::kTcp, {.closeThen = true});
  const TPeer late(TPeer::kTcp, {.text = "x", .delayMs = 100});
  const std::string closed = std::to_string(FindFreePort());
  ExpectMatches(ProcessTest_TCP,
                {{{host, Port(answering), "200", "ab \r", "100"}, timeout},
                 {{host, Port(answering), "5000", "ab%0D%0Acd", "4"}, "200\n[0-9]+\none%0D\n"},
                 {{host, Port(late), "0", "", "1"}, "200\n[0-9][0-9][0-9]+\nx\n"},
                 {{host, Port(silent), "5000", "", "0"}, "200\n[0-9]+\n\n"},
                 {{host, Port(silent), "50", "", "1"}, timeout},
                 {{host, Port(closing), "5000", "", "1"}, "301\n\n0\n"},
                 {{host, closed, "5000", "", "1"}, "301\n\n-6\n"},
                 {{noName, "1", "1", "", "1"}, unresolved},
                 {{host, Port(silent), "5s", "", "1"}, wrong}});
}

TEST(NetTests, AnswerForEveryOutcomeOverUdp) {
  const TEnabledTests enabled;
  const TPeer many(TPeer::kUdp, {std::string(9000, 'x')}), mute(TPeer::kUdp);
  const TPeer second(TPeer::kUdp, {.text = "x", .ignored = 1});
  const TPeer slow(TPeer::kUdp, {.text = "x", .delayMs = 1600});
  const long long start = NowMs();
  ExpectMatches(ProcessTest_UDP,
                {{{host, Port(many), "5000", "1", "data", "3"}, "200\n[0-9]+\nxxx\n"},
                 {{host, Port(many), "5000", "1", "data", "9000"}, "200\n[0-9]+\nx{8192}\n"},
                 {{host, Port(mute), "5000", "1", "data ", "0"}, "200\n[0-9]+\n\n"},
                 {{host, Port(second), "500", "9", "data", "1"}, "200\n[0-9]{1,3}\nx\n"},
                 {{host, Port(slow), "1999", "1", "data", "1"}, timeout},
                 {{noName, "1", "0", "3", "data", "1"}, unresolved},
                 {{host, Port(mute), "5000", "0", "data", "1"}, wrong},
                 {{host, Port(mute), "5000", "1", "", "1"}, wrong},
                 {{host, Port(mute), "5000", "1", "data", "x"}, wrong}});
  EXPECT_GE(NowMs() - start, 2000) << "three attempts that fail at once";
  EXPECT_EQ(std::vector<std::string>{"data "}, mute.Received(5));
  ExpectMatches(ProcessTest_UDP, {{{host, Port(mute), "-5000", "2", "ab%0A", "1"}, timeout}});
  EXPECT_EQ((std::vector<std::string>{"data ", "ab\n", "ab\n"}), mute.Received(11));
}

TEST(Actions, RunCommandsAndSendData) {
  const TEnabledTests enabled;
  const TTempDir folder;
  folder.File("exit3", "#!/bin/sh\nexit 3\n");
  ExpectMatches(ProcessAct_ExternalCmd,
                {{{"/bin/sh exit3", folder.Path(), "", "60000"}, "200\n3\n"},
                 {{"/none", "", "", "0"}, "301\nexec error: No such file or directory"},
                 {{"/bin/true", "", "x", "0"}, wrong},
                 {{"", "", "", "1s"}, wrong},
                 {{" ", "", "", "0"}, "501\nCommand line to execute is not specified"}});
  const TPeer tcp(TPeer::kTcp), udp(TPeer::kUdp);
  const std::string closed = std::to_string(FindFreePort());
  const long long start = NowMs();
  ExpectMatches(
      ProcessAct_TCPSend,
      {{{host, Port(tcp), "0", "PING \r", "1", "second"}, "200\nData has been sent"},
       {{host, Port(udp), "17", "PING \r", "-1", "second"}, "200\nData has been sent"},
       {{host, closed, "0", "x"}, "301\n"},
       {{"localhost", closed, "1", "x"}, "301\nName resolution error: unknown address structure"},
       {{host, closed, "0", "x", "1s"}, wrong},
       {{host, closed, "0", ""}, wrong},
       {{"", closed, "0", "x"}, wrong}});
  EXPECT_GE(NowMs() - start, 999);
  for (const TPeer* peer : {&tcp, &udp}) {
    EXPECT_EQ((std::vector<std::string>{"PING ", "second"}), peer->Received(11));
  }
}

TEST(Actions, WriteExactSyslogDatagrams) {
  const std::string rest = ' ' + ToStd(IP2String(GetMyIP())) + " WQ QOV: text";
  const struct {
    int facility, severity;
    tm time;
    const char* start;
  } cases[] = {{4, 2, {3, 7, 9, 5, 2, 126, 0, 0, -1, 0, nullptr}, "<34>Mar 5 09:07:03"},
               {30, 0, {59, 59, 23, 31, 11, 126, 0, 0, -1, 0, nullptr}, "<240>Dec31 23:59:59"}};
  for (auto c : cases) {
    EXPECT_EQ(c.start + rest,
              ToStd(SyslogDatagram(c.facility, c.severity, mktime(&c.time), "WQ QOV", "text")));
  }
  const TEnabledTests enabled;
  const TPeer peer(TPeer::kUdp);
  ExpectMatches(
      ProcessAct_Syslog,
      {{{host, Port(peer), "4", "7", "a%0Ab "}, "200\nSyslog: Data to " + host + " has been sent"},
       {{noName, "1", "4", "0"}, "200\nSyslog: Data to " + noName + " has been sent"},
       {{host, Port(peer), "4", "8"}, wrong},
       {{host, Port(peer), "4", "-1"}, wrong},
       {{host, Port(peer), "x", "2"}, wrong},
       {{"", Port(peer), "4", "2"}, wrong}});
  const std::string sent = peer.Received(1).front();
  EXPECT_EQ("<39>" + ToStd(CDateTime()).substr(0, 5), sent.substr(0, 9));
  EXPECT_THAT(sent, testing::EndsWith(" WQ QOV: a\nb "));
}

}  // namespace

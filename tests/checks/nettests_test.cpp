#include "checks/nettests.h"

#include "checks/actions.h"
#include "support/handlercall.h"
#include "support/peers.h"

/// This host is called by an address, so that no name server is asked for it.
extern "C" int gethostname(char* name, size_t) noexcept { return strcpy(name, "127.0.0.9"), 0; }

using TPeer = TLoopbackPeer;
const std::string host = "127.0.0.1", wrong = "501\nWrong parameter", timeout = "301\nTimeout\n0\n";
const std::string noName(64, 'x');  // too long for any name server to be asked
const std::string unresolved = "301\nCannot resolve server name to IP address\n-2\n";

/// Host and port of the peer, the first parameters of a request; its port counts modulo 65536.
static std::string At(const TPeer& peer, const std::string& name = host, int more = 0) {
  return name + "," + std::to_string(peer.Port() + more) + ",";
}

TEST(NetTests, AnswerForEveryOutcome) {
  const TPeer answering(TPeer::kTcp, {"one\r\ntwo", 6}), silent(TPeer::kTcp);
  const TPeer late(TPeer::kTcp, {.text = "x", .delayMs = 100});
  ExpectMatches(ProcessTest_TCP,
                {{timeout, At(silent) + "200,ab \r,100"},
                 {"200\n[0-9]+\none%0D\n", At(answering, "localhost") + "5000,ab%0D%0Acd,4"},
                 {"200\n[0-9][0-9][0-9]+\nx\n", At(late) + "0,,1"},
                 {"200\n[0-9]+\n\n", At(late, host, 0x10000) + "5000,,0"},
                 {"301\n\n-6\n", At(late) + "-1,,9|127.255.255.255,9,500,,0"},
                 {wrong, At(late) + "5s,,1"}});
  EXPECT_EQ(TWords{"ab "}, silent.Received(3));
  EXPECT_EQ(TWords{"ab\r\ncd"}, answering.Received(6));

  const TPeer many(TPeer::kUdp, {std::string(9000, 'x')}), mute(TPeer::kUdp), twice(TPeer::kUdp);
  const TPeer second(TPeer::kUdp, {.text = "x", .after = 5, .delayMs = 100});
  const TPeer slow(TPeer::kUdp, {.text = "x", .delayMs = 1600});
  const long long start = NowMs();
  ExpectMatches(ProcessTest_UDP,
                {{"200\n[0-9]+\nxxx\n", At(many) + "5000,1,data,3"},
                 {"200\n[0-9]+\nx{8192}\n", At(many) + "5000,1,data,9000"},
                 {"200\n[0-9]+\n\n", At(mute, "localhost") + "5000,2,data ,0"},
                 {"301\n\n-4\n", host + ",0,5,1,data,99"},
                 {"200\n[0-9]{1,3}\nx\n", At(second) + "500,9,data,1"},
                 {timeout, At(slow) + "1999,1,data,1|" + At(twice) + "-5000,2,ab%0A,1"},
                 {unresolved, noName + ",1,0,3,data,1"},
                 {wrong, At(mute) + "9,0,x,1|" + At(mute) + "9,1,,1|" + At(mute) + "9,1,x,x"}});
  EXPECT_GE(NowMs() - start, 2000) << "three attempts that fail at once";
  EXPECT_EQ(TWords{"data "}, mute.Received(5));
  EXPECT_EQ((TWords{"ab\n", "ab\n"}), twice.Received(6));
  EXPECT_EQ((TWords{"data", "data"}), second.Received(8));
}

TEST(Actions, RunCommandsAndSendData) {
  ExpectMatches(ProcessAct_ExternalCmd,
                {{"301\nabnormal termination", "sleep 60,,,-2"},
                 {wrong, "/bin/true,,x,0|,,,1s"},
                 {"501\nCommand line to execute is not specified", " ,,,0"}});
  const TPeer tcp(TPeer::kTcp), udp(TPeer::kUdp);
  const long long start = NowMs();
  ExpectMatches(ProcessAct_TCPSend,
                {{"200\nData has been sent",
                  At(tcp) + "0,PING \r,1,second|" + At(udp) + "17,PING \r,-1,second"},
                 {"301\nName resolution error: unknown address structure", "localhost,1,1,x"},
                 {wrong, At(tcp) + "0,x,1s|" + At(tcp) + "0|,1,0,x"}});
  EXPECT_GE(NowMs() - start, 999);
  EXPECT_EQ((TWords{"PING ", "second"}), tcp.Received(11));
  EXPECT_EQ((TWords{"PING ", "second"}), udp.Received(11));
}

TEST(Actions, WriteExactSyslogDatagrams) {
  tm time = {3, 7, 9, 5, 2, 126, 0, 0, -1, 0, nullptr};
  EXPECT_EQ("Mar 5 09:07:03", CDateTime(mktime(&time)));
  const TPeer peer(TPeer::kUdp);
  const std::string sent = "200\nSyslog: Data to ";
  ExpectMatches(ProcessAct_Syslog,
                {{sent + host + " has been sent", At(peer) + "30,7,a%0Ab "},
                 {sent + noName + " has been sent", noName + ",1,4,0"},
                 {wrong, At(peer) + "4,8|" + At(peer) + "4,-1|" + At(peer) + "x,2|,1,4,2"}});
  EXPECT_THAT(peer.Received(1).front(),
              testing::MatchesRegex("<247>" + ToStd(CDateTime()).substr(0, 5) +
                                    " [0-9:]{8} 127.0.0.9 WQ QOV: a\nb "));
}

#include "core/iplib.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <tuple>
#include <vector>

#include "core/owned.h"
#include "support/peers.h"
#include "support/text.h"

namespace {

constexpr char kHost[] = "127.0.0.1";
/// Its label is too long for any name server to be asked.
constexpr char kNoName[] = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";

/// Result, received text and error text.
std::tuple<int, std::string, std::string> Exchange(int port, int timeoutMs, int recvLen) {
  char buf[100] = {};
  String err;
  const int result = SendReceiveTCPPacket(kHost, port, timeoutMs, nullptr, buf, 0, recvLen, err);
  return {result, buf, ToStd(err)};
}

}  // namespace

TEST(AddressTest, WritesAndReadsDottedText) {
  char buf[24];
  memset(buf, 'x', sizeof buf);
  EXPECT_STREQ("127.0.0.1", inet_ntoa_safe(in_addr{htonl(0x7f000001)}, buf, sizeof buf));
  EXPECT_EQ(0, buf[23]);
  EXPECT_STREQ("127", inet_ntoa_safe(in_addr{htonl(0x7f000001)}, buf, 4));
  EXPECT_EQ("255.0.2.17", IP2String(htonl(0xff000211)));
  const std::tuple<const char*, int, unsigned, const char*> cases[] = {
      {"10.0.0.1", kIpOk, 0x0a000001, ""},
      {"255.255.255.255", kIpUnresolved, 0, "Name resolution error: unknown address structure"},
      {"localhost", kIpUnresolved, 0, "Name resolution error: unknown address structure"},
      {kNoName, kIpUnresolved, 0, "Cannot resolve server name to IP address"},
  };
  for (const auto& [host, result, address, text] : cases) {
    unsigned ip = 0;
    String err("old");
    EXPECT_EQ(result, GetHostIP(host, &ip, err)) << host;
    EXPECT_EQ(htonl(address), ip) << host;
    EXPECT_EQ(text, err) << host;
  }
}

TEST(ListenTest, ListensOnceAPortAndLeavesNothingOpenAfterwards) {
  String err;
  unsigned size = 0;
  const int port = FindFreePort();
  {
    const TFd listener(TcpListen(kHost, port, &size, err));
    ASSERT_GT(listener.Get(), 0) << ToStd(err);
    EXPECT_EQ(sizeof(sockaddr_in), size);
    EXPECT_EQ(FD_CLOEXEC, fcntl(listener.Get(), F_GETFD));
    const int next = TFd(dup(listener.Get())).Get();
    EXPECT_EQ(0, TcpListen(kHost, port, nullptr, err));
    EXPECT_EQ("socket() or bind() error", err);
    EXPECT_EQ(next, TFd(dup(listener.Get())).Get()) << "a descriptor was left open";
    EXPECT_EQ(kIpOk, TCPConnect(kHost, port, 0, err));
  }
  for (const int timeoutMs : {0, 1500}) {
    EXPECT_EQ(kIpNotConnected, TCPConnect(kHost, port, timeoutMs, err));
  }
  EXPECT_EQ("", err);
  EXPECT_EQ(0, TcpListen(kHost, "no such service", nullptr, err));
  EXPECT_EQ(gai_strerror(EAI_SERVICE), ToStd(err));
}

TEST(ListenTest, NeverReturnsAStandardStream) {
  const TFd input(dup(STDIN_FILENO));
  close(STDIN_FILENO);
  String err;
  const int listener = TcpListen(kHost, FindFreePort(), nullptr, err);
  dup2(input.Get(), STDIN_FILENO);
  const TFd closer(listener);
  EXPECT_GT(listener, STDERR_FILENO) << ToStd(err);
}

TEST(ExchangeTest, TellsTcpOutcomesApart) {
  const TLoopbackPeer silent(TLoopbackPeer::kTcp);
  const TLoopbackPeer closing(TLoopbackPeer::kTcp, {"", 0, true});
  const std::tuple<const char*, int, int, int, int, const char*> cases[] = {
      {"nothing to do", silent.Port(), 5000, 0, kIpOk, ""},
      {"port above 16 bits", silent.Port() + 0x10000, 5000, 0, kIpOk, ""},
      {"closed without data", closing.Port(), 5000, 100, 0, ""},
      {"no time for the answer", silent.Port(), 0, 100, kIpTimeout, "Timeout"},
      {"negative time-out", silent.Port(), -1, 100, kIpNotConnected, ""},
  };
  for (const auto& [name, port, timeoutMs, recvLen, result, err] : cases) {
    EXPECT_EQ(std::tuple(result, "", err), Exchange(port, timeoutMs, recvLen)) << name;
  }
}

TEST(ExchangeTest, SignalsNeitherShortenAWaitNorFailIt) {
  struct sigaction former, action{};
  action.sa_handler = [](int) {};  // no SA_RESTART
  sigaction(SIGALRM, &action, &former);
  const TLoopbackPeer silent(TLoopbackPeer::kTcp);
  const itimerval often = {{0, 2000}, {0, 2000}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  const long long start = NowMs();
  EXPECT_EQ(std::tuple(kIpTimeout, "", "Timeout"), Exchange(silent.Port(), 200, 100));
  EXPECT_GE(NowMs() - start, 199);
  setitimer(ITIMER_REAL, &never, nullptr);
  sigaction(SIGALRM, &former, nullptr);
}

TEST(ExchangeTest, WorksWithDescriptorsAbove1024) {
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < 1100) GTEST_SKIP() << "descriptor limit too low";
  const rlimit raised{1100, limit.rlim_max};
  const TLoopbackPeer answering(TLoopbackPeer::kTcp, {"answer"});
  setrlimit(RLIMIT_NOFILE, &raised);
  std::vector<TFd> taken;
  for (int i = 0; i < 1030; ++i) taken.emplace_back(open("/dev/null", O_RDONLY | O_CLOEXEC));
  EXPECT_EQ("answer", std::get<1>(Exchange(answering.Port(), 5000, 100)));
  taken.clear();
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(SyncSocketTest, TalksOverTcp) {
  const TLoopbackPeer peer(TLoopbackPeer::kTcp, {"answer", 4, true});
  TSyncSocket socket(TSyncSocket::kTcp);
  String out;
  EXPECT_FALSE(socket.Connected());
  EXPECT_EQ(kIpNotSent, socket.SendString("data", 0));
  ASSERT_EQ(kIpOk, socket.Connect("localhost", peer.Port(), 5000));
  EXPECT_EQ(0, socket.ReadString(out, 20));
  EXPECT_EQ("Timeout", socket.LastError);
  EXPECT_EQ(4, socket.SendString("data", 0));
  EXPECT_EQ(6, socket.ReadString(out, 5000));
  EXPECT_EQ("answer", out);
  EXPECT_EQ(0, socket.ReadString(out, 5000));
  EXPECT_TRUE(socket.Connected()) << "a peer that has closed counts as connected";
  socket.Disconnect();
  EXPECT_FALSE(socket.Connected());
}

#include "core/iplib.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include "core/owned.h"
#include "core/syncsocket.h"
#include "support/loopbackpeer.h"
#include "support/rawpeer.h"
#include "support/text.h"

namespace {

constexpr char kHost[] = "127.0.0.1";
/// Its label is too long for any name server to be asked.
constexpr char kNoName[] = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";

struct TExchange {
  int result;
  std::string received;
  String err;
};
TExchange Exchange(int port, int timeoutMs, int recvLen) {
  char buf[100] = {};
  TExchange e;
  e.result = SendReceiveTCPPacket(kHost, port, timeoutMs, nullptr, buf, 0, recvLen, e.err);
  e.received = buf;
  return e;
}

}  // namespace

TEST(AddressTest, WritesDottedTextIntoBuffersOfAnySize) {
  char buf[24];
  memset(buf, 'x', sizeof buf);
  EXPECT_STREQ("127.0.0.1", inet_ntoa_safe(in_addr{htonl(0x7f000001)}, buf, sizeof buf));
  EXPECT_EQ(0, buf[23]);
  EXPECT_STREQ("127", inet_ntoa_safe(in_addr{htonl(0x7f000001)}, buf, 4));
  EXPECT_EQ("255.0.2.17", IP2String(htonl(0xff000211)));
  EXPECT_EQ("", GetErrorStr(ECONNREFUSED));
}

TEST(AddressTest, GetHostIPTakesDottedTextOnly) {
  const struct {
    const char* host;
    int result;
    unsigned ip;
    const char* err;
  } cases[] = {
      {"10.0.0.1", kIpOk, 0x0a000001, ""},
      {"255.255.255.255", kIpUnresolved, 0, "Name resolution error: unknown address structure"},
      {"localhost", kIpUnresolved, 0, "Name resolution error: unknown address structure"},
      {kNoName, kIpUnresolved, 0, "Cannot resolve server name to IP address"},
  };
  for (const auto& c : cases) {
    unsigned ip = 0;
    String err("old");
    EXPECT_EQ(c.result, GetHostIP(c.host, &ip, err)) << c.host;
    EXPECT_EQ(htonl(c.ip), ip) << c.host;
    EXPECT_EQ(c.err, err) << c.host;
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
  EXPECT_EQ(kIpNotConnected, TCPConnect(kHost, port, 0, err));
  EXPECT_EQ(kIpNotConnected, TCPConnect(kHost, port, 1500, err));
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
  const struct {
    const char* name;
    int port, timeoutMs, recvLen, result;
    const char* err;
  } cases[] = {
      {"nothing to do", silent.Port(), 5000, 0, kIpOk, ""},
      {"port above 16 bits", silent.Port() + 0x10000, 5000, 0, kIpOk, ""},
      {"closed without data", closing.Port(), 5000, 100, 0, ""},
      {"no time for the answer", silent.Port(), 0, 100, kIpTimeout, "Timeout"},
      {"negative time-out", silent.Port(), -1, 100, kIpNotConnected, ""},
  };
  for (const auto& c : cases) {
    const TExchange e = Exchange(c.port, c.timeoutMs, c.recvLen);
    EXPECT_EQ(c.result, e.result) << c.name;
    EXPECT_EQ(c.err, e.err) << c.name;
  }
}

TEST(ExchangeTest, SignalsNeitherShortenAWaitNorFailIt) {
  struct sigaction former, action{};
  action.sa_handler = [](int) {};  // no SA_RESTART
  sigaction(SIGUSR1, &action, &former);
  const TLoopbackPeer silent(TLoopbackPeer::kTcp);
  std::atomic<bool> done{false};
  std::thread shooter([&done, target = pthread_self()] {
    while (!done) {
      pthread_kill(target, SIGUSR1);
      usleep(2000);
    }
  });
  const long long start = NowMs();
  const TExchange e = Exchange(silent.Port(), 200, 100);
  const long long elapsed = NowMs() - start;
  done = true;
  shooter.join();
  sigaction(SIGUSR1, &former, nullptr);
  EXPECT_EQ("Timeout", e.err);
  EXPECT_GE(elapsed, 199);
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
  const TExchange e = Exchange(answering.Port(), 5000, 100);
  taken.clear();
  setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_EQ("answer", e.received);
}

TEST(SyncSocketTest, TalksOverTcp) {
  const TLoopbackPeer peer(TLoopbackPeer::kTcp, {"answer", 4, true});
  TSyncSocket socket(TSyncSocket::kTcp);
  String out;
  EXPECT_FALSE(socket.Connected());
  EXPECT_EQ(kIpNotSent, socket.SendString("data", 0));
  ASSERT_EQ(kIpOk, socket.Connect("localhost", peer.Port(), 5000));
  EXPECT_TRUE(socket.Connected());
  EXPECT_EQ(0, socket.ReadString(out, 20));
  EXPECT_EQ("Timeout", socket.LastError);
  EXPECT_EQ(0, socket.SendBuf("data", 0, 0));
  EXPECT_EQ("", socket.LastError);
  EXPECT_EQ(4, socket.SendString("data", 0));
  EXPECT_EQ(6, socket.ReadString(out, 5000));
  EXPECT_EQ("answer", out);
  EXPECT_EQ(0, socket.ReadString(out, 5000));
  EXPECT_EQ("", socket.LastError);
  EXPECT_TRUE(socket.Connected()) << "a peer that has closed counts as connected";
  socket.Disconnect();
  EXPECT_FALSE(socket.Connected());
}

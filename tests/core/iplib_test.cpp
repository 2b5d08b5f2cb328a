#include "core/iplib.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <tuple>

#include "core/owned.h"
#include "support/peers.h"
#include "support/text.h"

namespace {

constexpr char kHost[] = "127.0.0.1";
/// Its label is too long for any name server to be asked.
constexpr const char* kNoName =
    "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";
constexpr const char* kNotFound = "Cannot resolve server name to IP address";
constexpr const char* kOddAddress = "Name resolution error: unknown address structure";

}  // namespace

TEST(AddressTest, WritesAndReadsDottedText) {
  char buf[] = "------";
  EXPECT_STREQ("255.0", inet_ntoa_safe(in_addr{htonl(0xff000211)}, buf, 6));
  EXPECT_EQ("255.0.2.17", IP2String(htonl(0xff000211)));
  for (const auto& [host, result, address, text] : {std::tuple("10.0.0.1", 1, 0x0a000001u, ""),
                                                    {"localhost", -2, 0u, kOddAddress},
                                                    {"255.255.255.255", -2, 0u, kOddAddress},
                                                    {kNoName, -2, 0u, kNotFound}}) {
    unsigned ip = 0;
    String err("old");
    EXPECT_EQ(result, GetHostIP(host, &ip, err)) << host;
    EXPECT_EQ(std::tuple(htonl(address), text), std::tuple(ip, ToStd(err))) << host;
  }
}

TEST(ListenTest, ListensOnceAPortAndLeavesNothingOpenAfterwards) {
  String err("old");
  unsigned size = 0;
  const int port = FindFreePort();
  {
    const TFd input(dup(STDIN_FILENO));
    close(STDIN_FILENO);
    const TFd listener(TcpListen(kHost, port, &size, err));
    dup2(input.Get(), STDIN_FILENO);
    ASSERT_GT(listener.Get(), STDERR_FILENO) << ToStd(err);
    EXPECT_EQ("", err);
    EXPECT_EQ(sizeof(sockaddr_in), size);
    EXPECT_EQ(FD_CLOEXEC, fcntl(listener.Get(), F_GETFD));
    const int next = TFd(dup(listener.Get())).Get();
    EXPECT_EQ(0, TcpListen(kHost, port, nullptr, err));
    EXPECT_EQ("socket() or bind() error", err);
    EXPECT_EQ(kIpOk, TCPConnect(kHost, port, 0, err));
    EXPECT_EQ(next, TFd(dup(listener.Get())).Get()) << "a descriptor was left open";
  }
  EXPECT_EQ(-12, TCPConnect(kHost, port, 0, err) + TCPConnect(kHost, port, 1500, err));
  EXPECT_GT(TFd(TcpListen(kHost, port, nullptr, err)).Get(), 0) << "the port was in use just now";
  EXPECT_EQ(0, TcpListen("::1", port, nullptr, err)) << "addresses of IPv4 only";
  EXPECT_EQ(0, TcpListen(kHost, "no such service", nullptr, err));
  EXPECT_EQ(gai_strerror(EAI_SERVICE), ToStd(err));
}

TEST(ExchangeTest, TellsOutcomesApart) {
  using TPeer = TLoopbackPeer;
  const TPeer silent(TPeer::kTcp), mute(TPeer::kUdp), closing(TPeer::kTcp, {"", 0, true});
  const TPeer answering(TPeer::kTcp, {"answer", 4}), echo(TPeer::kUdp, {"answer"});
  struct TCase {
    decltype(&SendReceiveTCPPacket) exchange;
    const char* host;
    int port, timeout, toSend, toReceive, result;
    const char *received, *error;
  };
  const auto tcp = SendReceiveTCPPacket, udp = SendReceiveUDPPacket;
  const TCase cases[] = {{tcp, kHost, silent.Port() + 0x10000, 0, 0, 0, 1, "", ""},
                         {tcp, kHost, closing.Port(), 5000, 0, 99, 0, "", ""},
                         {tcp, kHost, silent.Port(), 0, 1, 99, 0, "", "Timeout"},
                         {tcp, kHost, silent.Port(), -1, 0, 99, -6, "", ""},
                         {tcp, kNoName, silent.Port(), 5000, 0, 99, -2, "", kNotFound},
                         {tcp, "localhost", answering.Port(), 5000, 4, 3, 3, "ans", ""},
                         {udp, kHost, echo.Port(), 5, 4, 99, 6, "answer", ""},
                         {udp, "localhost", echo.Port(), 5, 1, 0, 1, "", ""},
                         {udp, kHost, mute.Port(), 0, 1, 99, 0, "", "Timeout"},
                         {udp, kNoName, mute.Port(), 5, 4, 99, -2, "", kNotFound},
                         {udp, kHost, 0, 5, 4, 99, -4, "", ""}};
  for (const TCase& c : cases) {
    char sent[] = "data", buf[100] = {};
    String err("old");
    const int result = c.exchange(c.host, c.port, c.timeout, sent, buf, c.toSend, c.toReceive, err);
    EXPECT_EQ(std::tuple(c.result, c.received, c.error),
              std::tuple(result, std::string(buf), ToStd(err)))
        << &c - cases;
  }
}

TEST(SyncSocketTest, TalksOverBothProtocols) {
  const TLoopbackPeer tcp(TLoopbackPeer::kTcp, {"answer", 4, true});
  const TLoopbackPeer udp(TLoopbackPeer::kUdp, {"pong"});
  TSyncSocket stream(TSyncSocket::kTcp), datagrams(TSyncSocket::kUdp);
  String out;
  EXPECT_EQ(kIpNotSent, stream.SendString("data", 0));
  ASSERT_EQ(kIpOk, stream.Connect("localhost", tcp.Port(), 5000));
  EXPECT_EQ(0, stream.ReadString(out, 20));
  EXPECT_EQ("Timeout", stream.LastError);
  EXPECT_EQ(4, stream.SendString("", 0) + stream.SendString("data", 0));
  EXPECT_EQ(6, stream.ReadString(out, 5000));
  EXPECT_EQ("answer", out);
  EXPECT_EQ(0, stream.ReadString(out, 5000));
  EXPECT_EQ("", stream.LastError);
  EXPECT_TRUE(stream.Connected()) << "a peer that has closed counts as connected";
  stream.Disconnect();
  EXPECT_FALSE(stream.Connected());
  EXPECT_EQ(kIpUnresolved, datagrams.Connect("localhost", udp.Port(), 0));
  EXPECT_EQ(kOddAddress, datagrams.LastError);
  ASSERT_EQ(kIpOk, datagrams.Connect(kHost, udp.Port(), 0));
  EXPECT_EQ(4, datagrams.SendString("ping", 0));
  EXPECT_EQ(4, datagrams.ReadString(out, 5000));
}

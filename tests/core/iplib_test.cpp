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

constexpr const char* kHost = "127.0.0.1";
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
                                                    {"255.255.255.255", -2, 0u, kOddAddress},
                                                    {kNoName, -2, 0u, kNotFound}}) {
    unsigned ip = 0;
    String err("old");
    const int got = GetHostIP(host, &ip, err);
    EXPECT_EQ(std::tuple(result, htonl(address), text), std::tuple(got, ip, ToStd(err))) << host;
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
    EXPECT_EQ(std::tuple("", sizeof(sockaddr_in), FD_CLOEXEC),
              std::tuple(ToStd(err), size, fcntl(listener.Get(), F_GETFD)));
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
  const TPeer silent(TPeer::kTcp), answering(TPeer::kTcp, {"answer", 4});
  const TPeer echo(TPeer::kUdp, {"answer"});
  const auto tcp = SendReceiveTCPPacket, udp = SendReceiveUDPPacket;
  // Time-out, bytes to send and to receive at most, result.
  for (const auto& [exchange, host, port, timeout, toSend, room, result, received, text] :
       {std::tuple(tcp, kHost, silent.Port() + 0x10000, 0, 0, 0, 1, "", ""),
        {tcp, kHost, silent.Port(), 0, 1, 99, 0, "", "Timeout"},
        {tcp, kHost, silent.Port(), -1, 0, 99, -6, "", ""},
        {tcp, kNoName, silent.Port(), 5000, 0, 99, -2, "", kNotFound},
        {tcp, "localhost", answering.Port(), 5000, 4, 3, 3, "ans", ""},
        {udp, kHost, echo.Port(), 5, 4, 99, 6, "answer", ""},
        {udp, "localhost", echo.Port(), 5, 1, 0, 1, "", ""},
        {udp, kHost, 0, 5, 4, 99, -4, "", ""}}) {
    char sent[] = "data", buf[100] = {};
    String err("old");
    const int got = exchange(host, port, timeout, sent, buf, toSend, room, err);
    EXPECT_EQ(std::tuple(result, received, text), std::tuple(got, std::string(buf), ToStd(err)))
        << port << (exchange == tcp ? " tcp" : " udp");
  }
}

TEST(SyncSocketTest, ReadsWhatComesInTime) {
  const TLoopbackPeer peer(TLoopbackPeer::kTcp, {"answer", 4, true});
  TSyncSocket socket(TSyncSocket::kTcp);
  const auto read = [&socket](int timeoutMs) {
    String out("old");
    const int count = socket.ReadString(out, timeoutMs);
    return std::to_string(count) + ToStd(out + socket.LastError);
  };
  EXPECT_EQ(kIpNotSent, socket.SendString("data", 0));
  ASSERT_EQ(kIpOk, socket.Connect("localhost", peer.Port(), 5000));
  EXPECT_EQ("0Timeout", read(20));
  EXPECT_EQ(4, socket.SendString("", 0) + socket.SendString("data", 0));
  EXPECT_EQ("6answer", read(5000));
  EXPECT_EQ("0", read(5000));
  EXPECT_TRUE(socket.Connected()) << "a peer that has closed counts as connected";
  socket.Disconnect();
  EXPECT_FALSE(socket.Connected());
}

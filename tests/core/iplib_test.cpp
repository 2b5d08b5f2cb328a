#include "core/iplib.h"

#include <fcntl.h>

#include "support/peers.h"

constexpr const char* kHost = "127.0.0.1";

TEST(ListenTest, ListensOnceAPort) {
  String err("old");
  unsigned size = 0;
  const int port = FindFreePort();
  TFd left;
  {
    const TFd input(dup(STDIN_FILENO));
    close(STDIN_FILENO);
    const TFd listener(TcpListen(kHost, port, &size, err));
    dup2(input.Get(), STDIN_FILENO);
    ASSERT_GT(listener.Get(), STDERR_FILENO) << ToStd(err);
    EXPECT_EQ(std::tuple("", sizeof(sockaddr_in), FD_CLOEXEC),
              std::tuple(ToStd(err), size, fcntl(listener.Get(), F_GETFD)));
    EXPECT_EQ(0, TcpListen(kHost, port, nullptr, err));
    EXPECT_EQ("socket() or bind() error", err);
    EXPECT_EQ(kIpOk, TCPConnect(kHost, port, 0, err));
    EXPECT_EQ("", err);
    left = TFd(accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
  }
  EXPECT_EQ(-12, TCPConnect(kHost, port, 0, err) + TCPConnect(kHost, port, 1500, err));
  const TFd all(TcpListen(nullptr, port, nullptr, err));
  EXPECT_EQ(kIpOk, TCPConnect("127.0.0.2", port, 0, err)) << "beside what was accepted";
  EXPECT_EQ(0, TcpListen("::1", port, nullptr, err)) << "addresses of IPv4 only";
}

TEST(SyncSocketTest, ReadsWhatComesInTime) {
  const TLoopbackPeer peer(TLoopbackPeer::kTcp, {"answer", 4, true});
  TSyncSocket socket(TSyncSocket::kTcp);
  String out, all;
  EXPECT_EQ(kIpNotSent, socket.SendString("data", 0));
  ASSERT_EQ(kIpOk, socket.Connect(kHost, peer.Port(), 5000));
  for (const int timeoutMs : {20, 5000, 5000, -1}) {
    all += std::to_string(socket.ReadString(out, timeoutMs)).c_str();
    all += out + socket.LastError + '|';
    EXPECT_EQ(timeoutMs == 20 ? 4 : 0, socket.SendString(timeoutMs == 20 ? "data" : "", 0));
    EXPECT_EQ("", socket.LastError);
  }
  EXPECT_EQ("0Timeout|6answer|0|0Timeout|", all);
  EXPECT_TRUE(socket.Connected()) << "a peer that has closed counts as connected";
  socket.ReadString(out, -1);
  socket.Disconnect();
  EXPECT_EQ("", socket.LastError);
}

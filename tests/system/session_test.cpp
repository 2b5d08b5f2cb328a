#include <gtest/gtest.h>
#include <poll.h>

#include <thread>

#include "support/process.h"

namespace {

/// Waits until the asking session is the only one: a session is counted down after its close.
bool AwaitAlone(const TAgentProcess& agent) {
  return Await([&] { return agent.Info("ActiveConnections") == "1"; });
}

TEST(SessionTest, CountsItsConnections) {
  TAgentOptions options;
  options.config = "filteractive=1\n";
  const TAgentProcess agent(options);
  TReply info = agent.Ask("GetInfo");
  EXPECT_EQ("1", Named(info, "ActiveConnections"));
  EXPECT_EQ("1", Named(info, "OpenedConnections"));
  EXPECT_EQ("0", Named(info, "FailedConnections"));
  EXPECT_EQ("0", Named(info, "Service"));

  TRawPeer stranger(agent.Port(), "127.0.0.2");
  ASSERT_TRUE(stranger.Connected());
  EXPECT_EQ("", stranger.ReceiveAll());
  EXPECT_TRUE(stranger.Closed());
  info = agent.Ask("GetInfo");
  EXPECT_EQ("2", Named(info, "OpenedConnections"));
  EXPECT_EQ("1", Named(info, "FailedConnections"));
  EXPECT_TRUE(AwaitAlone(agent));
  EXPECT_NE(std::string::npos,
            agent.ReadFile("log2.txt").find("]\t 127.0.0.2\t TCP connection rejected\n"));
  EXPECT_NE(std::string::npos,
            agent.ReadFile("log1.txt").find("]\t 127.0.0.1\t TCP connection accepted\n"));
}

TEST(SessionTest, AssemblesARequestFromItsPieces) {
  const TAgentProcess agent;
  const std::string packet = TAgentProcess::Packet("TEST-Ping");
  TRawPeer peer(agent.Port());
  for (const char byte : packet) {
    ASSERT_TRUE(peer.Send({&byte, 1}));
    std::this_thread::yield();
  }
  const TReply reply = TAgentProcess::Decode(peer.ReceiveAll());
  EXPECT_EQ("500\nnot implemented yet\n\r", reply.text);
  EXPECT_TRUE(peer.Closed());  // by the agent
}

TEST(SessionTest, ClosesWithoutAReplyOnWhatIsNotARequest) {
  const TAgentProcess agent;
  const std::string good = TAgentProcess::Packet("GetInfo");
  std::string wrongProof = good;
  wrongProof[8] = static_cast<char>(wrongProof[8] ^ 1);
  std::string huge = good;
  huge[3] = 0x7f;  // announces two gigabytes
  std::string negative = good;
  negative[3] = static_cast<char>(0x80);
  const struct {
    const char* name;
    std::string bytes;
  } cases[] = {
      {"wrong proof", wrongProof},
      {"one byte too many", good + "x"},
      {"announces too much", huge},
      {"negative length", negative},
      {"nothing but zeros", std::string(14, '\0')},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TRawPeer peer(agent.Port());
    ASSERT_TRUE(peer.Send(c.bytes));
    EXPECT_EQ("", peer.ReceiveAll());
    EXPECT_TRUE(peer.Closed());
  }
  EXPECT_TRUE(agent.WaitFor("<-- Invalid VX request received\n", std::size(cases)));
  EXPECT_TRUE(AwaitAlone(agent));
}

TEST(SessionTest, DropsSilentPeersByTheTimeout) {
  const struct {
    const char* timeout;
    bool dropped;
  } cases[] = {{"1000", true}, {"999", true}, {"-1", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.timeout);
    TAgentOptions options;
    options.config = std::string("timeout=") + c.timeout + "\n";
    const TAgentProcess agent(options);
    TRawPeer peer(agent.Port());
    ASSERT_TRUE(peer.Send("half a packet"));
    peer.ReceiveAll(c.dropped ? 20000 : 2500);
    EXPECT_EQ(c.dropped, peer.Closed());
  }
}

TEST(SessionTest, AnswersTwoHundredAtOnce) {
  const TAgentProcess agent;
  std::vector<TRawPeer> peers;
  for (int i = 0; i < 200; ++i) peers.emplace_back(agent.Port());
  const std::string packet = TAgentProcess::Packet("GetInfo");
  for (TRawPeer& peer : peers) ASSERT_TRUE(peer.Send(packet));
  int right = 0;
  for (TRawPeer& peer : peers) right += TAgentProcess::Decode(peer.ReceiveAll()).code == "200";
  EXPECT_EQ(200, right);
  EXPECT_TRUE(agent.WaitFor("Session closed, wait for next ..\n", 200));
  EXPECT_TRUE(AwaitAlone(agent));
}

TEST(SessionTest, KeepsOnlySoManyRefusedConnections) {
  TAgentOptions options;
  options.config = "filteractive=1\nlogfails=0\n";
  const TAgentProcess agent(options);
  for (int i = 0; i < 3000; ++i) TRawPeer(agent.Port(), "127.0.0.2");
  EXPECT_EQ("3000", Named(agent.Ask("GetInfo"), "FailedConnections"));
  EXPECT_GT(2100, agent.CountDescriptors());
}

}  // namespace

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "built.h"
#include "support/process.h"

using testing::HasSubstr;

namespace {

/// Waits until the asking session is the only one: a session is counted down after its close.
bool AwaitAlone(const TAgentProcess& agent) {
  return Await([&] { return agent.Info("ActiveConnections") == "1"; });
}

TEST(SessionTest, CountsItsConnections) {
  const TAgentProcess agent({.config = "filteractive=1\n"});
  TReply info = agent.Ask("GetInfo");
  EXPECT_EQ("1", Named(info, "ActiveConnections"));
  EXPECT_EQ("1", Named(info, "OpenedConnections"));
  EXPECT_EQ("0", Named(info, "FailedConnections"));

  TRawPeer stranger(agent.Port(), "127.0.0.2");
  ASSERT_TRUE(stranger.Connected());
  EXPECT_EQ("", stranger.ReceiveAll());
  EXPECT_TRUE(stranger.Closed());
  info = agent.Ask("GetInfo");
  EXPECT_EQ("2", Named(info, "OpenedConnections"));
  EXPECT_EQ("1", Named(info, "FailedConnections"));
  EXPECT_TRUE(AwaitAlone(agent));
  EXPECT_THAT(agent.ReadFile("log2.txt"), HasSubstr("]\t 127.0.0.2\t TCP connection rejected\n"));
  EXPECT_THAT(agent.ReadFile("log1.txt"), HasSubstr("]\t 127.0.0.1\t TCP connection accepted\n"));
}

TEST(SessionTest, AssemblesARequestFromItsPieces) {
  const TAgentProcess agent({.config = "host=\n"});
  TRawPeer peer(agent.Port(), "127.0.0.2");  // from where nobody may administrate
  for (const char byte : TAgentProcess::Packet("QUIT")) {
    ASSERT_TRUE(peer.Send({&byte, 1}));
    std::this_thread::yield();
  }
  EXPECT_EQ("600\n\r", TAgentProcess::Decode(peer.ReceiveAll()).text);
  EXPECT_TRUE(peer.Closed());  // by the agent
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.2\t <-- Correct VX request received\n"));
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.2\t --> request processed (600)\n"));
  EXPECT_EQ("500\n\r", agent.Ask("Quit").text);
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.1\t --> request rejected or operation failed (500)\n"));
}

TEST(SessionTest, ClosesWithoutAReplyOnWhatIsNotARequest) {
  const TAgentProcess agent;
  for (const std::string& bytes : {TAgentProcess::Packet("GetInfo") + "x", std::string(14, '\0')}) {
    TRawPeer peer(agent.Port());
    ASSERT_TRUE(peer.Send(bytes));
    EXPECT_EQ("", peer.ReceiveAll());
    EXPECT_TRUE(peer.Closed());
  }
  EXPECT_TRUE(agent.WaitFor("]\t 127.0.0.1\t <-- Invalid VX request received\n", 2));
  EXPECT_TRUE(AwaitAlone(agent));
}

TEST(SessionTest, DropsSilentPeersByTheTimeout) {
  const struct {
    const char* timeout;
    int leastMs;  // since the last chunk
    bool dropped;
  } cases[] = {{"2000", 2000, true}, {"999", 0, true}, {"-1", 0, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.timeout);
    const TAgentProcess agent({.config = std::string("timeout=") + c.timeout + "\n"});
    TRawPeer peer(agent.Port());
    const long long first = NowMs();
    ASSERT_TRUE(peer.Send("half a"));
    peer.ReceiveAll(1500);
    const long long second = NowMs();
    if (!peer.Closed()) peer.Send("packet");
    peer.ReceiveAll(c.dropped ? 20000 : 1500);
    EXPECT_EQ(c.dropped, peer.Closed());
    // On a machine that is busy the first chunk's time may have been over before the second came.
    EXPECT_LE(c.leastMs, NowMs() - (second - first < c.leastMs ? second : first));
  }
}

/// Reserved memory of the serving process, MiB.
long Reserved(const TAgentProcess& agent) {
  const std::string status = ReadFile("/proc/" + std::to_string(agent.Pid()) + "/status");
  return atol(&status[status.find("VmSize:") + 7]) / 1024;
}

TEST(SessionTest, AnswersTwoHundredAtOnce) {
  const TAgentProcess agent;
  // One behind the other: a thread that were not detached would leave its stack of 8 MiB.
  EXPECT_EQ("200", agent.Ask("GetInfo").code);
  const long before = Reserved(agent);
  for (int i = 0; i < 200; ++i) EXPECT_EQ("200", agent.Ask("GetInfo").code);
  EXPECT_GT(1000, Reserved(agent) - before);

  std::vector<TRawPeer> peers;
  for (int i = 0; i < 200; ++i) peers.emplace_back(agent.Port());
  const std::string packet = TAgentProcess::Packet("GetInfo");
  for (TRawPeer& peer : peers) ASSERT_TRUE(peer.Send(packet));
  int right = 0;
  for (TRawPeer& peer : peers) right += TAgentProcess::Decode(peer.ReceiveAll()).code == "200";
  EXPECT_EQ(200, right);
  EXPECT_TRUE(agent.WaitFor("]\t qov\t\t Session closed, wait for next ..\n", 400));
  EXPECT_TRUE(AwaitAlone(agent));
}

TEST(SessionTest, KeepsOnlySoManyRefusedConnections) {
  const TAgentProcess agent({.config = "filteractive=1\nlogfails=0\n"});
  for (int i = 0; i < 3000; ++i) TRawPeer(agent.Port(), "127.0.0.2");
  EXPECT_EQ("3000", agent.Info("FailedConnections"));
  EXPECT_GT(2100, agent.CountDescriptors());
}

TEST(SessionTest, EndsTheAgentWithoutADescriptorToSpare) {
  TAgentProcess agent(
      {.config = "filteractive=1\n",
       .environment = {std::string("LD_PRELOAD=") + QOV_FAULTS, "FAULT_ACCEPT=2 3 24"}});
  TRawPeer refused(agent.Port(), "127.0.0.2");
  EXPECT_EQ("", refused.ReceiveAll());
  // The second call gives up the refused connection and tries again, the third has none to give up.
  EXPECT_EQ("", agent.Ask("GetInfo").code);
  EXPECT_EQ(4, agent.Wait());
  EXPECT_THAT(agent.Console(),
              HasSubstr("]\t qov\t\t Accept fatal error: Too many open files\n\n"));
}

}  // namespace

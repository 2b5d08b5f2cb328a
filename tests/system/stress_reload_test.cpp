#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <memory>
#include <thread>

#include "support/process.h"

namespace {

TEST(StressReloadTest, AnswersThroughAStormOfHangups) {
  TAgentProcess agent({.switches = {"-d", "-v"}});
  const std::string log = agent.Folder().File("watched.log", "one line\n");
  std::vector<std::unique_ptr<TProbe>> readers;
  for (int i = 0; i < 2; ++i) readers.push_back(std::make_unique<TProbe>(agent, "GetSettings"));
  readers.push_back(std::make_unique<TProbe>(
      agent, "TEST-TextLog",
      std::vector<std::string>{log, "line", "0", "1", "1", "0", "1", "0", "0"}));
  auto writer = std::make_unique<TProbe>(agent, "SetSettings",
                                         std::vector<std::string>{"Timeout=5000", "Ping=0"});

  const int hangups = Repeats(400, 2000);
  for (int i = 1; i < hangups; ++i) {
    if (i % 20 == 0) agent.WriteConfig("comment=" + std::to_string(i) + "\n");
    ASSERT_TRUE(agent.Signal(SIGHUP));
    usleep(5000);
  }
  // What is saved is what the agent holds, so the last file comes when nothing is saved any more.
  EXPECT_LT(0, writer->Stop());
  agent.WriteConfig("comment=the last\n");
  ASSERT_TRUE(agent.Signal(SIGHUP));
  EXPECT_TRUE(Await([&] { return agent.Info("Comment") == "the last"; }));
  for (auto& reader : readers) EXPECT_LT(0, reader->Stop());
}

TEST(StressReloadTest, AdmitsNoEmptyProofDuringReloads) {
  const TAgentProcess agent;
  std::atomic<bool> stop{false};
  int tried = 0;
  int admitted = 0;
  std::thread stranger([&] {
    const std::string packet = BuildRequest("", TAgentProcess::kSessionKey, "GetInfo\n\r");
    for (; !stop; ++tried) {
      TRawPeer peer(agent.Port());
      admitted += peer.Send(packet) && !peer.ReceiveAll().empty();
    }
  });
  TProbe probe(agent, "GetInfo");
  constexpr int kReloads = 500;
  int done = 0;
  for (int i = 0; i < kReloads; ++i) done += agent.Ask("ReloadCfg").code == "200";
  EXPECT_LT(0, probe.Stop());
  stop = true;
  stranger.join();
  EXPECT_EQ(kReloads, done);
  EXPECT_LT(0, tried);
  EXPECT_EQ(0, admitted);
}

TEST(StressReloadTest, RestartsWithIdlePeersConnected) {
  constexpr int kIdlePeers = 20;
  const TAgentProcess agent({.config = "timeout=-1\n"});
  const int descriptors = agent.CountDescriptors();
  for (int i = 0; i < Repeats(20, 50); ++i) {
    SCOPED_TRACE(i);
    std::vector<TRawPeer> idle;
    for (int j = 0; j < kIdlePeers; ++j) idle.emplace_back(agent.Port());
    ASSERT_TRUE(
        Await([&] { return agent.Info("ActiveConnections") == std::to_string(kIdlePeers + 1); }));
    ASSERT_EQ("200\nOk\n\r", agent.Ask("ReloadApp").text);
    const long long start = NowMs();
    for (TRawPeer& peer : idle) {
      EXPECT_EQ("", peer.ReceiveAll());
      ASSERT_TRUE(peer.Closed());
    }
    ASSERT_TRUE(Await([&] { return agent.Ask("GetInfo").code == "200"; }));
    EXPECT_GE(5000, NowMs() - start);
    ASSERT_TRUE(Await([&] { return agent.CountDescriptors() == descriptors; }))
        << agent.CountDescriptors() << " for " << descriptors;
  }
}

TEST(StressReloadTest, SwitchesPortsAndFallsBack) {
  TAgentProcess agent;
  const TAgentProcess other;
  int switched = 0;
  int returned = 0;
  for (int i = 1; i <= Repeats(5, 50); ++i) {
    SCOPED_TRACE(i);
    const bool taken = i % 5 == 0;
    const int old = agent.Port();
    const int wanted = taken ? other.Port() : FindFreePort();
    ASSERT_EQ("200", agent.Ask("SetSettings", {"Port=" + std::to_string(wanted)}).code);
    if (taken) {
      ASSERT_TRUE(agent.WaitFor("Return to original port\n", ++returned));
      EXPECT_TRUE(agent.WaitFor("Error: cannot open new port for listening\n", returned));
    } else {
      ASSERT_TRUE(agent.WaitFor("Server port switching .. Ok\n", ++switched));
      EXPECT_TRUE(agent.WaitForPort(false));
      agent.FollowPort(wanted);
    }
    EXPECT_EQ(std::to_string(agent.Port()), agent.Info("Port"));
    EXPECT_EQ(taken ? old : wanted, agent.Port());
  }
  EXPECT_EQ("200", other.Ask("GetInfo").code);
}

}  // namespace

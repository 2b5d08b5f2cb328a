#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include "built.h"
#include "support/process.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

namespace {

const std::string kFaults = std::string("LD_PRELOAD=") + QOV_FAULTS;

TEST(FaultTest, KeepsTheConfigurationWhenItsFileHasNoRoom) {
  const TAgentProcess agent;
  const std::string before = agent.ReadFile("qov.cfg");
  const auto limit = [&](rlim_t bytes) {
    const rlimit size = {bytes, RLIM_INFINITY};
    return prlimit(agent.Pid(), RLIMIT_FSIZE, &size, nullptr) == 0;
  };
  ASSERT_TRUE(limit(before.size()));
  EXPECT_EQ("300\nCannot create new configuration file '" + agent.ConfigPath() + ".New'\n\r",
            agent.Ask("SetSettings", {"Comment=changed"}).text);
  EXPECT_EQ(before, agent.ReadFile("qov.cfg"));
  EXPECT_EQ("", agent.ReadFile("qov.cfg.New") + agent.ReadFile("qov.cfg.Old"));
  EXPECT_EQ("changed", agent.Info("Comment"));  // in memory
  ASSERT_TRUE(limit(RLIM_INFINITY));
  EXPECT_EQ("200", agent.Ask("SetSettings", {"Ping=1"}).code);
  EXPECT_THAT(agent.ReadFile("qov.cfg"), HasSubstr("comment=changed\r\n"));
}

TEST(FaultTest, HasAConfigurationWhenItEndsDuringASave) {
  for (const std::string command : {"ReloadApp", "QUIT"}) {
    TAgentProcess agent({.environment = {kFaults, "FAULT_RENAME_MS=500"}});
    TRawPeer saver(agent.Port());
    ASSERT_TRUE(saver.Send(TAgentProcess::Packet("SetSettings", {"Comment=saved"})));
    ASSERT_TRUE(Await([&] { return fs::exists(agent.ConfigPath() + ".Old"); }));
    EXPECT_EQ("200\nOk\n\r", agent.Ask(command).text);
    EXPECT_TRUE(command == "QUIT" ? agent.Wait() == 0 : agent.WaitFor("Listening...\n", 2));
    EXPECT_THAT(agent.ReadFile("qov.cfg"), HasSubstr("logsuccess=1")) << command;
  }
}

TEST(FaultTest, GoesOnWhenAThreadCannotBeStarted) {
  constexpr int kEvery = 7, kRounds = 20;
  const TAgentProcess agent({.environment = {kFaults, "FAULT_THREADS=" + std::to_string(kEvery)}});
  const int descriptors = agent.CountDescriptors();
  for (int i = 1; i <= kRounds * kEvery; ++i) {
    ASSERT_EQ(i % kEvery == 0 ? "" : "200", agent.Ask("GetInfo").code) << i;
  }
  EXPECT_TRUE(agent.WaitFor("Cannot start session thread, connection closed\n", kRounds));
  EXPECT_TRUE(Await([&] { return agent.CountDescriptors() == descriptors; }));
}

TEST(FaultTest, ALongLookUpOfANameHoldsNobodyElse) {
  const TAgentProcess agent({.environment = {kFaults, "FAULT_LOOKUP_MS=60000"}});
  std::vector<TRawPeer> asking;
  for (const char* command : {"TEST-TCP", "TEST-TCP", "TEST-UDP", "TEST-UDP"}) {
    asking.emplace_back(agent.Port());
    ASSERT_TRUE(asking.back().Send(
        TAgentProcess::Packet(command, {"host.invalid", "9", "1000", "1", "1", "1"})));
  }
  EXPECT_TRUE(Await([&] { return agent.Info("ActiveConnections") == "5"; }));
}

TEST(FaultTest, ServesDescriptorsBeyondAThousand) {
  constexpr int kRefused = 1150;
  rlimit limit;
  getrlimit(RLIMIT_NOFILE, &limit);
  if (limit.rlim_max < 2 * kRefused + 100) GTEST_SKIP() << "takes a higher descriptor limit";
  const TAgentProcess agent({.config = "filteractive=1\nlogfails=0\n"});
  const TLoopbackPeer service(TLoopbackPeer::kTcp, {.text = "hello", .after = 2});
  for (int i = 0; i < kRefused; ++i) TRawPeer(agent.Port(), "127.0.0.2");
  EXPECT_EQ(std::to_string(kRefused), agent.Info("FailedConnections"));
  ASSERT_LT(1024, agent.CountDescriptors());
  // What waits for a descriptor of its own does so beyond the thousandth too.
  EXPECT_EQ(
      "200",
      agent.Ask("TEST-TCP", {"127.0.0.1", std::to_string(service.Port()), "5000", "hi", "5"}).code);
  EXPECT_EQ("200\n0\n\r", agent.Ask("TEST-ExternalPrg", {"/bin/true", "", "", "10"}).text);
}

TEST(StressTest, AnswersThroughAStormOfHangupsFromOneRecord) {
  TAgentProcess agent({.config = "comment=0\nupdateaddr=0\n", .switches = {"-d", "-v"}});
  const std::string log = agent.Folder().File("watched.log", "one line\n");
  // A load starts from an empty password, which nobody may ever see.
  const std::string stranger = BuildRequest("", TAgentProcess::kSessionKey, "GetInfo\n\r");
  std::atomic<int> saved{0}, watched{0}, whole{0}, wrong{0}, admitted{0};
  std::atomic<bool> saving{true}, asking{true};
  std::vector<std::thread> threads;
  const auto repeat = [&](const std::atomic<bool>& while_, auto once) {
    threads.emplace_back([&while_, once] {
      while (while_) once();
    });
  };
  const auto count = [&](bool right, std::atomic<int>& counter) { ++(right ? counter : wrong); };
  repeat(saving, [&] {
    count(agent.Ask("SetSettings", {"Timeout=5000", "Ping=0"}).code == "200", saved);
  });
  repeat(asking, [&] {
    const TReply reply =
        agent.Ask("TEST-TextLog", {log, "line", "0", "1", "1", "0", "1", "0", "0"});
    count(reply.code == "200", watched);
  });
  repeat(asking, [&] {
    const TReply reply = agent.Ask("GetSettings");
    const bool same = Named(reply, "Comment") == Named(reply, "UpdateAddr");
    count(reply.code == "200" && same, whole);
  });
  repeat(asking, [&] {
    TRawPeer peer(agent.Port());
    admitted += peer.Send(stranger) && !peer.ReceiveAll().empty();
  });
  const auto load = [&](const std::string& mark) {
    agent.WriteConfig("comment=" + mark + "\nupdateaddr=" + mark + "\n");
    return agent.Signal(SIGHUP);
  };
  for (int i = 1; i < Repeats(400, 2000); ++i) {
    EXPECT_TRUE(i % 20 == 0 ? load(std::to_string(i)) : agent.Signal(SIGHUP));
    usleep(5000);
  }
  // What is saved is what the agent holds, so the last file comes when nothing is saved any more.
  saving = false;
  threads[0].join();
  EXPECT_TRUE(load("last"));
  EXPECT_TRUE(Await([&] { return agent.Info("Comment") == "last"; }));
  asking = false;
  for (size_t i = 1; i < threads.size(); ++i) threads[i].join();
  EXPECT_TRUE(saved > 0 && watched > 0 && whole > 0);
  EXPECT_EQ(0, wrong);
  EXPECT_EQ(0, admitted);
}

TEST(StressTest, ChangesItsPortAndRestartsWithIdlePeersConnected) {
  constexpr int kIdlePeers = 20;
  TAgentProcess agent({.config = "timeout=-1\n"});
  const int descriptors = agent.CountDescriptors();
  for (int i = 1; i <= Repeats(5, 50); ++i) {
    std::vector<TRawPeer> idle;
    for (int j = 0; j < kIdlePeers; ++j) idle.emplace_back(agent.Port());
    const int port = FindFreePort();
    ASSERT_EQ("200", agent.Ask("SetSettings", {"Port=" + std::to_string(port)}).code);
    ASSERT_TRUE(agent.WaitFor("Server port switching .. Ok\n", i));
    EXPECT_TRUE(agent.WaitForPort(false));
    agent.FollowPort(port);
    ASSERT_TRUE(
        Await([&] { return agent.Info("ActiveConnections") == std::to_string(kIdlePeers + 1); }));
    ASSERT_EQ("200\nOk\n\r", agent.Ask("ReloadApp").text);
    for (TRawPeer& peer : idle) {
      EXPECT_EQ("", peer.ReceiveAll());
      ASSERT_TRUE(peer.Closed()) << i;
    }
    ASSERT_TRUE(Await([&] { return agent.CountDescriptors() == descriptors; }, 5000)) << i;
  }
}

}  // namespace

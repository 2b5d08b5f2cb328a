#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <random>

#include "built.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace {

TEST(StressFaultsTest, KeepsTheConfigurationOnAFullDisk) {
  const TTempDir folder;
  TPrivateMounts mounts;
  if (!mounts.Usable()) GTEST_SKIP() << "mounting takes the superuser";
  ASSERT_TRUE(mounts.AddMemory(folder.Path(), 1024 * 1024));
  const TEnvironment temporary("TMPDIR", folder.Path().c_str());
  const TAgentProcess agent;
  const std::string before = ReadFile(agent.ConfigPath());
  const std::string filler = FillUp(folder.Path());
  EXPECT_EQ("300\nCannot create new configuration file '" + agent.ConfigPath() + ".New'\n\r",
            agent.Ask("SetSettings", {"Comment=changed"}).text);
  EXPECT_EQ(before, ReadFile(agent.ConfigPath()));
  EXPECT_FALSE(fs::exists(agent.ConfigPath() + ".New"));
  EXPECT_FALSE(fs::exists(agent.ConfigPath() + ".Old"));
  EXPECT_EQ("changed", agent.Info("Comment"));  // in memory
  fs::remove(filler);
  EXPECT_EQ("200", agent.Ask("SetSettings", {"Ping=1"}).code);
  EXPECT_THAT(ReadFile(agent.ConfigPath()), testing::HasSubstr("comment=changed\r\n"));
}

/// The configuration without its comment's value.
std::string WithoutComment(std::string text) {
  const size_t at = text.find("\ncomment=");
  return at == std::string::npos ? "" : text.erase(at, text.find('\n', at + 1) - at);
}

TEST(StressFaultsTest, LosesNoConfigurationToAKillDuringASave) {
  std::random_device seeder;
  const unsigned seed = seeder();
  SCOPED_TRACE(seed);
  std::mt19937 random(seed);
  int saved = 0;
  for (int i = 0; i < Repeats(25, 100); ++i) {
    TAgentProcess agent;
    ASSERT_EQ("200", agent.Ask("SetSettings", {"Comment=0"}).code);
    const std::string whole = WithoutComment(ReadFile(agent.ConfigPath()));
    ASSERT_NE("", whole);
    std::vector<std::thread> savers;
    std::atomic<int> count{0};
    for (int j = 0; j < 3; ++j) {
      savers.emplace_back([&] {
        const auto comment = [&] { return "Comment=" + std::string(count % 300, 'x'); };
        while (agent.Ask("SetSettings", {comment()}).code == "200") ++count;
      });
    }
    usleep(std::uniform_int_distribution<useconds_t>(0, 50000)(random));
    EXPECT_TRUE(agent.Signal(SIGKILL));
    for (std::thread& saver : savers) saver.join();
    EXPECT_EQ(whole, WithoutComment(ReadFile(agent.ConfigPath())));
    saved += count;
  }
  EXPECT_LT(0, saved);
}

TEST(StressFaultsTest, HasAConfigurationWhenItEndsDuringASave) {
  for (const char* command : {"ReloadApp", "QUIT"}) {
    SCOPED_TRACE(command);
    TAgentProcess agent(
        {.environment = {std::string("LD_PRELOAD=") + QOV_FAULTS, "FAULT_RENAME_MS=500"}});
    TRawPeer saver(agent.Port());
    ASSERT_TRUE(saver.Send(TAgentProcess::Packet("SetSettings", {"Comment=saved"})));
    ASSERT_TRUE(Await([&] { return fs::exists(agent.ConfigPath() + ".Old"); }));
    EXPECT_EQ("200\nOk\n\r", agent.Ask(command).text);
    if (std::string(command) == "QUIT") {
      EXPECT_EQ(0, agent.Wait());
    } else {
      EXPECT_TRUE(agent.WaitFor("Listening...\n", 2));
    }
    EXPECT_THAT(agent.ReadFile("qov.cfg"), testing::HasSubstr("logsuccess=1"));
  }
}

TEST(StressFaultsTest, GoesOnWhenAThreadCannotBeStarted) {
  constexpr int kEvery = 7;
  const TAgentProcess agent({.environment = {std::string("LD_PRELOAD=") + QOV_FAULTS,
                                             "FAULT_THREADS=" + std::to_string(kEvery)}});
  const int descriptors = agent.CountDescriptors();
  const int rounds = Repeats(20, 100);
  for (int i = 1; i <= rounds * kEvery; ++i) {
    TRawPeer peer(agent.Port());
    ASSERT_TRUE(peer.Send(TAgentProcess::Packet("GetInfo")));
    EXPECT_EQ(i % kEvery == 0 ? "" : "200", TAgentProcess::Decode(peer.ReceiveAll()).code) << i;
    ASSERT_TRUE(peer.Closed());
  }
  EXPECT_TRUE(agent.WaitFor("Cannot start session thread, connection closed\n", rounds));
  EXPECT_TRUE(Await([&] { return agent.CountDescriptors() == descriptors; }));
}

TEST(StressFaultsTest, GoesOnWithoutItsLogFiles) {
  const TTempDir folder;
  const std::string fifo = folder.Path("fifo");
  ASSERT_EQ(0, mkfifo(fifo.c_str(), 0600));
  const std::string stalled = folder.Path("stalled");
  ASSERT_EQ(0, mkfifo(stalled.c_str(), 0600));
  const TFd reader(open(stalled.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  const std::string block(4096, 'x');
  while (write(reader.Get(), block.data(), block.size()) > 0) {
  }
  for (const std::string& log :
       {fifo, stalled, folder.Path(), std::string("/dev/full"), folder.Path("none/log")}) {
    SCOPED_TRACE(log);
    const TAgentProcess agent(
        {.config = "oklogfile=" + log + "\nbadlogfile=" + log + "\nverboselogfile=" + log + "\n",
         .switches = {"-i", "-vd"}});
    for (int i = 0; i < Repeats(10, 200); ++i) ASSERT_TRUE(AnswersInTime(agent, "GetInfo"));
  }
}

TEST(StressFaultsTest, GoesOnWithoutATemporaryFolder) {
  // Nobody can create a file in "/proc", not even the superuser.
  const TAgentProcess agent({.config = "tmpdir=/proc\n"});
  for (int i = 0; i < Repeats(2, 50); ++i) {
    EXPECT_EQ("301", agent.Ask("TEST-ShellScript", {"", "echo 1", "", "10", "1"}).code);
    EXPECT_EQ("300\nCannot create temp file\n\r", agent.Ask("UpgradeCode", {"1000"}).text);
    EXPECT_EQ("200\n0\n\r", agent.Ask("TEST-ExternalPrg", {"/bin/true", "", "", "10"}).text);
    EXPECT_TRUE(AnswersInTime(agent, "GetInfo"));
  }
}

}  // namespace

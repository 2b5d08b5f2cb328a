#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include "built.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace {

/// Starts a program in the background; it writes its process id into the agent's folder.
pid_t StartInBackground(const TAgentProcess& agent, const std::string& program) {
  const std::string file = agent.Folder().Path("child");
  const std::string line = "/bin/sh -c 'echo $$ >" + file + "; exec " + program + "'";
  EXPECT_EQ("200\n0\n\r", agent.Ask("TEST-ExternalPrg", {line, "", "", "-1"}).text);
  return atoi(agent.ReadFile("child").c_str());
}

TEST(ChildrenTest, AreCollectedByALaterImageAndDoNotHoldItsPort) {
  TAgentProcess killed;
  const pid_t collected = StartInBackground(killed, "sleep 60");
  const pid_t orphan = StartInBackground(killed, "sleep 60");
  ASSERT_TRUE(collected > 1 && orphan > 1);
  EXPECT_EQ("200", killed.Ask("ReloadApp").code);
  ASSERT_TRUE(killed.WaitFor("Listening...\n", 2));
  ASSERT_EQ(0, kill(collected, SIGKILL));
  EXPECT_TRUE(Await([&] { return kill(collected, 0) != 0; })) << "a zombie is left";

  killed.Signal(SIGKILL);
  EXPECT_EQ(1000 + SIGKILL, killed.Wait());
  const TAgentProcess next({.switches = {"-i", "-p", std::to_string(killed.Port())}});
  EXPECT_TRUE(killed.WaitForPort(true));
  EXPECT_EQ(0, kill(orphan, SIGKILL)) << "it must still have been running";
}

TEST(ChildrenTest, LeaveNoFilesWhenTheAgentEnds) {
  TAgentProcess agent;
  const auto files = [&] {
    return std::distance(fs::directory_iterator(agent.Folder().Path("tmp")), {});
  };
  std::thread session([&] {
    agent.Ask("TEST-ShellScript", {"/bin/sh %script%", "exec sleep 5", "", "60", "0"});
  });
  EXPECT_TRUE(Await([&] { return files() == 2; })) << "script and output";
  EXPECT_EQ("200", agent.Ask("QUIT").code);
  session.join();
  EXPECT_EQ(0, agent.Wait());
  EXPECT_EQ(0, files());
}

/// The shipped helpers, as an agent runs them.
TEST(ChildrenTest, HelpersCountAndListProcessesAndMeasureCpuUsage) {
  const std::string helpers = std::string(QOV_SOURCE_DIR) + "/packaging/helpers/";
  const TAgentProcess agent({.config = "proccntscript=" + helpers +
                                       "proccount\ncpuusagescript=" + helpers +
                                       "cpuusage\nproclistscript=" + helpers + "proclist\n"});
  const std::string name = "q." + std::to_string(getpid());
  const std::string program = agent.Folder().Path(name);
  fs::copy_file("/bin/sleep", program);
  std::vector<std::unique_ptr<TProcess>> sleepers;
  for (const std::string& line : {program, "-a other " + program, "-a /x/" + name + " /bin/sleep",
                                  "-a '/" + name + "-longer than fifteen bytes' " + program}) {
    sleepers.push_back(std::make_unique<TProcess>(
        std::vector<std::string>{"/bin/bash", "-c", "exec " + line + " 60"},
        std::vector<std::string>{}, "/dev/null"));
  }
  const auto count = [&](const std::string& wanted) {
    const TReply reply = agent.Ask("TEST-Process", {"", wanted});
    return reply.code + " " + (reply.values.empty() ? "" : reply.values[0]);
  };
  EXPECT_TRUE(Await([&] { return count(name) == "200 4"; })) << count(name);
  EXPECT_EQ("200 1", count(name + "-longer than fifteen bytes"));
  EXPECT_EQ("200 0", count("'q?'" + name.substr(2))) << "no pattern";
  EXPECT_EQ("200 0", count("proccount"));
  EXPECT_EQ("301 Script error", count("' '; exit"));
  EXPECT_THAT(agent.Ask("GetProcessesList").text,
              testing::HasSubstr("%0D%0A" + name + "%0D%0A" + name + "%0D%0A"));
  const TReply usage = agent.Ask("TEST-CPU");
  ASSERT_EQ("200", usage.code);
  EXPECT_THAT(usage.values[0], testing::MatchesRegex("(100|[0-9]{1,2})(\\.[0-9]+)?"));
}

}  // namespace

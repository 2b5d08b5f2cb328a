#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>

#include "support/process.h"

namespace {

/// Starts a program in the background; it writes its process id into the agent's folder.
pid_t StartInBackground(const TAgentProcess& agent, const std::string& program) {
  const std::string file = agent.Folder().Path("child");
  const std::string line = "/bin/sh -c 'echo $$ >" + file + "; exec " + program + "'";
  EXPECT_EQ("200\n0\n\r", agent.Ask("TEST-ExternalPrg", {line, "", "", "-1"}).text);
  return atoi(agent.ReadFile("child").c_str());
}

TEST(ChildrenTest, AreCollectedByALaterImageToo) {
  TAgentProcess agent;
  const pid_t child = StartInBackground(agent, "sleep 60");
  ASSERT_GT(child, 1);
  EXPECT_EQ("200", agent.Ask("ReloadApp").code);
  ASSERT_TRUE(agent.WaitFor("Listening...\n", 2));
  ASSERT_EQ(0, kill(child, SIGKILL));
  EXPECT_TRUE(Await([&] { return kill(child, 0) != 0; })) << "a zombie is left";
}

TEST(ChildrenTest, DoNotHoldTheAgentsPort) {
  TAgentProcess killed;
  const pid_t child = StartInBackground(killed, "sleep 60");
  ASSERT_GT(child, 1);
  killed.Signal(SIGKILL);
  EXPECT_EQ(1000 + SIGKILL, killed.Wait());
  TAgentOptions options;
  options.switches = {"-i", "-p", std::to_string(killed.Port())};
  const TAgentProcess next(options);
  EXPECT_TRUE(killed.WaitForPort(true));
  EXPECT_EQ(0, kill(child, SIGKILL)) << "it must still have been running";
}

TEST(ChildrenTest, LeaveNoFilesWhenTheAgentEnds) {
  TAgentProcess agent;
  const std::filesystem::path temp = agent.Folder().Path("tmp");
  const auto files = [&] {
    const std::filesystem::directory_iterator first(temp), end;
    return std::distance(first, end);
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

}  // namespace

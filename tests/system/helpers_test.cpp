#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "built.h"
#include "support/process.h"

namespace {

const std::string kHelpers = std::string(QOV_SOURCE_DIR) + "/packaging/helpers/";

TAgentOptions WithHelpers() {
  TAgentOptions options;
  options.config = "proccntscript=" + kHelpers + "proccount\ncpuusagescript=" + kHelpers +
                   "cpuusage\nproclistscript=" + kHelpers + "proclist\n";
  return options;
}

TEST(HelpersTest, CountAndListProcesses) {
  const TAgentProcess agent(WithHelpers());
  const std::string name = "q." + std::to_string(getpid());
  const std::string program = agent.Folder().File(name);
  ASSERT_EQ(0, system(("cp /bin/sleep " + program).c_str()));
  ASSERT_EQ(0, chmod(program.c_str(), 0755));
  std::vector<pid_t> sleepers;
  const auto start = [&](const std::string& path, std::string argv0) {
    char minute[] = "60";
    char* const argv[] = {argv0.data(), minute, nullptr};
    sleepers.push_back(-1);
    EXPECT_EQ(0, posix_spawn(&sleepers.back(), path.c_str(), nullptr, nullptr, argv, environ));
  };
  start(program, program);
  start(program, "other");
  start("/bin/sleep", "/x/" + name);
  start(program, "/" + name + "-longer than fifteen bytes");

  const auto count = [&](const std::string& wanted) {
    const TReply reply = agent.Ask("TEST-Process", {"", wanted});
    return reply.code + " " + (reply.values.empty() ? "" : reply.values[0]);
  };
  EXPECT_EQ("200 4", count(name));
  EXPECT_EQ("200 1", count(name + "-longer than fifteen bytes"));
  EXPECT_EQ("200 0", count("'q?'" + name.substr(2))) << "no pattern";
  EXPECT_EQ("200 0", count("proccount"));
  EXPECT_EQ("301 Script error", count("' '; exit"));

  EXPECT_THAT(agent.Ask("GetProcessesList").text,
              testing::HasSubstr("%0D%0A" + name + "%0D%0A" + name + "%0D%0A"));
  for (const pid_t pid : sleepers) {
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
  }
}

TEST(HelpersTest, MeasureCpuUsage) {
  const TReply reply = TAgentProcess(WithHelpers()).Ask("TEST-CPU");
  ASSERT_EQ("200", reply.code);
  char* end;
  const double usage = strtod(reply.values[0].c_str(), &end);
  EXPECT_STREQ("", end);
  EXPECT_GE(usage, 0);
  EXPECT_LE(usage, 100);
}

}  // namespace

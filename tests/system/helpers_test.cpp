#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/agentprocess.h"

namespace {

const std::string kHelpers = std::string(QOV_SOURCE_DIR) + "/packaging/helpers/";

TAgentOptions WithHelpers() {
  TAgentOptions options;
  options.config = "proccntscript=" + kHelpers + "proccount\ncpuusagescript=" + kHelpers +
                   "cpuusage\nproclistscript=" + kHelpers + "proclist\n";
  return options;
}

/// A program that sleeps, called `argv0`, until the end.
class TSleeper {
 public:
  TSleeper(const std::string& program, const std::string& argv0) {
    char minute[] = "60";
    char* const argv[] = {const_cast<char*>(argv0.c_str()), minute, nullptr};
    EXPECT_EQ(0, posix_spawn(&pid_, program.c_str(), nullptr, nullptr, argv, environ));
  }
  ~TSleeper() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  TSleeper(const TSleeper&) = delete;
  TSleeper& operator=(const TSleeper&) = delete;

 private:
  pid_t pid_ = -1;
};

TEST(HelpersTest, CountAndListProcesses) {
  const TAgentProcess agent(WithHelpers());
  const std::string name = "q." + std::to_string(getpid());
  const std::string program = agent.Folder().File(name);
  ASSERT_EQ(0, system(("cp /bin/sleep " + program).c_str()));
  ASSERT_EQ(0, chmod(program.c_str(), 0755));
  const TSleeper one(program, program), two(program, "other"), called("/bin/sleep", "/x/" + name);
  const TSleeper longer(program, "/" + name + "-longer than fifteen bytes");

  const auto count = [&](const std::string& wanted) {
    const TReply reply = agent.Ask("TEST-Process", {"", wanted});
    return reply.code + " " + (reply.values.empty() ? "" : reply.values[0]);
  };
  EXPECT_EQ("200 4", count(name));
  EXPECT_EQ("200 1", count(name + "-longer than fifteen bytes"));
  EXPECT_EQ("200 0", count("'q?'" + name.substr(2))) << "no pattern";
  EXPECT_EQ("200 0", count("proccount"));
  EXPECT_EQ("301 Script error", count("' '; exit"));

  const TReply list = agent.Ask("GetProcessesList");
  ASSERT_EQ("200", list.code);
  EXPECT_THAT(list.values[0], testing::HasSubstr("%0D%0A" + name + "%0D%0A" + name + "%0D%0A"));
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

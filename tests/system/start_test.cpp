#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "built.h"
#include "support/process.h"

using testing::HasSubstr;

namespace {

const std::string kFaults = std::string("LD_PRELOAD=") + QOV_FAULTS;

/// Signals that the serving process ignores, as the kernel tells it.
bool Ignores(const TAgentProcess& agent, int signal) {
  const std::string status = ReadFile("/proc/" + std::to_string(agent.Pid()) + "/status");
  const size_t at = status.find("SigIgn:");
  return at != std::string::npos && (strtoull(&status[at + 7], nullptr, 16) >> (signal - 1)) % 2;
}

TEST(StartTest, PrintsEveryStepOnce) {
  const TAgentProcess agent({.config = "filtermarks=11\n", .switches = {"-i", "-vd"}});
  const std::string rule = "-------------------------------------------------------------\n";
  const std::string console = agent.Console();
  EXPECT_EQ(0u, console.find(rule + " Application:  QOV (Orvane for Vextral)\n"
                                    " Version:      1.29j for Linux (Red Hat, Mandrake, SuSE)\n"
                                    " Developer:    "));
  EXPECT_THAT(
      console,
      HasSubstr(rule + "Command line checking .. Ok\n"
                       "Settings checking .. Warning: FilterMarks has less items than FilterList\n"
                       "CPU testing .. Ok\n"
                       "stat.size: 8\n"
                       "srec.size: 8\n"
                       "int64 = double\n"
                       "Basic encyption checking .. Ok\n"
                       "QOV encyption checking .. Ok\n"
                       "Sock testing .. Ok\n"
                       "[qov]["));
  EXPECT_THAT(console, HasSubstr("]\t qov\t\t Listening...\n"));
}

TEST(StartTest, EndsWithTheStatusAndTextOfTheFault) {
  const struct {
    std::vector<std::string> switches;
    const char* config;
    const char* fault;
    int status;
    const char* text;
  } cases[] = {
      {{"-p", "0"},
       "",
       "NONE=",
       1,
       "Command line checking .. Error\nInvalid port number\n\n Usage"},
      {{"-v", "-i"},
       "",
       "NONE=",
       1,
       "Settings checking .. Error\nCannot open configuration file '-i'\n"},
      {{"-i"},
       "qovpath=qov\n",
       "NONE=",
       1,
       "  Full path to the agent is not specified!\n\nPlease check '/"},
      {{"-i"}, "", "CIPHER=1", 3, "Basic encyption checking .. Error\n"},
      {{"-i"}, "", "CIPHER=2", 3, "QOV encyption checking .. Error\n"},
      {{"-i"}, "", "BIND=1 3 98", 4, "Sock testing .. TCP listen error:\nsocket() or"},
      {{"-i"}, "", "BIND=2 4 98", 4, "\nTCP listen error: socket() or bind() error\n\n"},
      {{"-d"}, "", "FORK=1 1 11", 2, "Error initializing daemon: Resource temporarily"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    TAgentProcess agent({.config = c.config,
                         .switches = c.switches,
                         .environment = {kFaults, std::string("FAULT_") + c.fault},
                         .waitForListening = false});
    EXPECT_EQ(c.status, agent.Wait());
    EXPECT_THAT(agent.Console(), HasSubstr(c.text));
  }
}

TEST(StartTest, TakesTheCommandLinePortAtTheThirdTry) {
  const int port = FindFreePort();
  const TAgentProcess agent({.switches = {"-i", "-p", std::to_string(port)},
                             .environment = {kFaults, "FAULT_BIND=1 2 98"}});
  EXPECT_TRUE(TRawPeer(port).Connected());
  EXPECT_FALSE(TRawPeer(agent.Port()).Connected());
  EXPECT_FALSE(std::filesystem::exists(agent.Folder().Path("pid")));  // in the foreground
}

TEST(StartTest, DetachesAndLocksThePidFile) {
  const TAgentProcess first({.switches = {"-d"}});
  EXPECT_THAT(first.Console(), HasSubstr("Sock testing .. Ok\nDaemon started\n"));
  EXPECT_EQ(first.Pid(), getsid(first.Pid()));
  for (const char* stream : {"0", "1", "2"}) {
    const std::string link = "/proc/" + std::to_string(first.Pid()) + "/fd/" + stream;
    EXPECT_EQ("/dev/null", std::filesystem::read_symlink(link)) << stream;
  }
  const std::string pid = first.Folder().Path("pid");
  EXPECT_EQ("200", first.Ask("TEST-FileCRC", {pid}).code);  // which must not end the lock
  TAgentProcess second(
      {.config = "pidfile=" + pid + "\n", .switches = {"-d"}, .waitForListening = false});
  EXPECT_EQ(0, second.Wait());
  ASSERT_TRUE(second.WaitFor("Failed to lock pid file " + pid, 1, "log2.txt"));
  EXPECT_EQ("200", second.Ask("QUIT").code);
  EXPECT_TRUE(second.WaitForPort(false));
  EXPECT_TRUE(std::filesystem::exists(pid));  // not the second one's to remove

  EXPECT_EQ("200", first.Ask("QUIT").code);
  EXPECT_TRUE(first.WaitForPort(false));
  EXPECT_FALSE(std::filesystem::exists(pid));
}

TEST(StartTest, LetsNoHangUpEndADaemonThatStartsAnew) {
  TAgentProcess agent({.switches = {"-d"}});
  const std::string image = agent.Folder().File(
      "image", "#!/bin/sh\nkill -HUP $$\necho alive >" + agent.Folder().Path("state") + "\n");
  ASSERT_EQ(0, chmod(image.c_str(), 0700));
  agent.WriteConfig("qovpath=" + image + "\n");
  EXPECT_EQ("200", agent.Ask("ReloadCfg").code);
  EXPECT_EQ("200", agent.Ask("ReloadApp").code);
  EXPECT_TRUE(agent.WaitFor("alive\n", 1, "state"));
}

TEST(StartTest, IgnoresWhatItsStarterIgnored) {
  const sighandler_t former = signal(SIGINT, SIG_IGN);
  TAgentProcess agent;
  signal(SIGINT, former);
  for (int image = 1; image <= 2; ++image) {
    for (const int signal : {SIGINT, SIGPIPE, SIGXFSZ, SIGTERM}) {
      EXPECT_EQ(signal != SIGTERM, Ignores(agent, signal)) << signal;
    }
    EXPECT_EQ("200", agent.Ask("ReloadApp").code);
    ASSERT_TRUE(agent.WaitFor("Listening...\n", image + 1));
  }
}

}  // namespace

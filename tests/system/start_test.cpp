#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/process.h"

namespace {

constexpr char kRule[] = "-------------------------------------------------------------\n";

TAgentOptions Options(std::vector<std::string> switches, std::string config = "") {
  TAgentOptions options;
  options.switches = std::move(switches);
  options.config = std::move(config);
  options.waitForListening = false;
  return options;
}

TEST(StartTest, PrintsEveryStepOnce) {
  TAgentProcess agent(Options({"-i", "-vd"}, "filtermarks=11\n"));
  ASSERT_TRUE(agent.WaitFor("Listening..."));
  const std::string console = agent.Console();
  EXPECT_EQ(0u, console.find(std::string(kRule) +
                             " Application:  QOV (Orvane for Vextral)\n"
                             " Version:      1.29j for Linux (Red Hat, Mandrake, SuSE)\n"
                             " Developer:    "));
  const std::string steps =
      std::string(kRule) +
      "Command line checking .. Ok\n"
      "Settings checking .. Warning: FilterMarks has less items than FilterList\n"
      "CPU testing .. Ok\n"
      "stat.size: 8\n"
      "srec.size: 8\n"
      "int64 = double\n"
      "Basic encyption checking .. Ok\n"
      "QOV encyption checking .. Ok\n"
      "Sock testing .. Ok\n"
      "[qov][";
  EXPECT_NE(std::string::npos, console.find(steps)) << console;
  EXPECT_NE(std::string::npos, console.find("]\t qov\t\t Listening...\n")) << console;
}

TEST(StartTest, EndsWithTheStatusAndTextOfTheFault) {
  const struct {
    const char* name;
    std::vector<std::string> switches;
    const char* config;
    int status;
    const char* text;
  } cases[] = {
      {"port too large",
       {"-i", "-p", "70000"},
       "",
       1,
       "Command line checking .. Error\nInvalid port number\n\n Usage: qov [-d|-i] [-v|-vd] [-p "
       "<port>] <cfg_file>\n  -d        - daemon mode (default)\n"},
      {"port zero", {"-p", "0"}, "", 1, "Error\nInvalid port number\n\n Usage"},
      {"missing port and file", {"-i", "-vd", "-p"}, "", 1, "Error\nInvalid port number"},
      {"switches in another order make the first one the file",
       {"-v", "-i"},
       "",
       1,
       "Settings checking .. Error\nCannot open configuration file '-i'\nPlease check '-i' file\n"},
      {"mandatory settings",
       {"-i"},
       "password=\nqovpath=qov\n",
       1,
       "  Password is not specified!\n  Full path to the agent is not specified!\n"},
      {"agent path", {"-i"}, "qovpath=/nowhere/qov\n", 1, "  Invalid path to the agent!\n"},
      {"address of another host",
       {"-i"},
       "host=192.0.2.1\n",
       4,
       "Sock testing .. TCP listen error:\nsocket() or bind() error\n\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TAgentProcess agent(Options(c.switches, c.config));
    EXPECT_EQ(c.status, agent.Wait());
    EXPECT_NE(std::string::npos, agent.Console().find(c.text)) << agent.Console();
  }
}

TEST(StartTest, TakesTheCommandLinePortBeforeTheFiles) {
  const int port = FindFreePort();
  TAgentProcess agent(Options({"-i", "-p", std::to_string(port)}));
  ASSERT_TRUE(agent.WaitFor("Listening..."));
  EXPECT_TRUE(TRawPeer(port).Connected());
  EXPECT_FALSE(TRawPeer(agent.Port()).Connected());
}

TEST(StartTest, DetachesAndLocksThePidFile) {
  TAgentOptions options;
  options.switches = {"-d"};
  const TAgentProcess first(options);
  EXPECT_EQ("200", first.Ask("GetInfo").code);
  EXPECT_NE(std::string::npos, first.Console().find("Sock testing .. Ok\nDaemon started\n"));

  options = Options({"-d"}, "pidfile=" + first.Folder().Path("pid") + "\n");
  TAgentProcess second(options);
  EXPECT_EQ(0, second.Wait());
  ASSERT_TRUE(
      second.WaitFor("Failed to lock pid file " + first.Folder().Path("pid"), 1, "log2.txt"));
  EXPECT_EQ("200", second.Ask("GetInfo").code);
  EXPECT_EQ("Ok", second.Ask("QUIT").values.at(0));
  EXPECT_TRUE(second.WaitForPort(false));
  EXPECT_EQ(0, access(first.Folder().Path("pid").c_str(), F_OK));  // not the second one's to remove

  EXPECT_EQ("200", first.Ask("QUIT").code);
  EXPECT_TRUE(first.WaitForPort(false));
  EXPECT_NE(0, access(first.Folder().Path("pid").c_str(), F_OK));
}

TEST(StartTest, LetsNoHangUpEndADaemonThatStartsAnew) {
  TAgentOptions options;
  options.switches = {"-d"};
  TAgentProcess agent(options);
  const std::string image = agent.Folder().File(
      "image", "#!/bin/sh\nkill -HUP $$\necho alive >" + agent.Folder().Path("state") + "\n");
  ASSERT_EQ(0, chmod(image.c_str(), 0700));
  agent.WriteConfig("qovpath=" + image + "\n");
  EXPECT_EQ("200", agent.Ask("ReloadCfg").code);
  EXPECT_EQ("200", agent.Ask("ReloadApp").code);
  EXPECT_TRUE(agent.WaitFor("alive\n", 1, "state"));
}

TEST(StartTest, RefusesAPortThatIsServed) {
  const TAgentProcess first;
  TAgentProcess second(Options({"-i", "-p", std::to_string(first.Port())}));
  EXPECT_EQ(4, second.Wait());
  EXPECT_EQ("200", first.Ask("GetInfo").code);
}

}  // namespace

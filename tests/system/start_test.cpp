#include "support/process.h"

TEST(StartTest, PrintsEveryStepAndEndsAfterTheReply) {
  const int port = FindFreePort();
  // A reply takes longer than the main loop's slice.
  TAgentProcess agent({.config = "filtermarks=11\n",
                       .switches = "-i -vd -p " + std::to_string(port),
                       .faults = "FAULT_BIND='1 2 98' FAULT_SEND_MS=1500"});
  EXPECT_FALSE(TRawPeer(agent.port).Open());
  EXPECT_FALSE(fs::exists(agent.folder.Path("pid")));  // in the foreground
  agent.port = port;
  EXPECT_EQ("200\nOk\n\r", agent.Ask("QUIT").text);
  EXPECT_EQ(0, agent.Wait());
  const std::string rule(61, '-'),
      banner =
          "\n Application:  QOV (Orvane for Vextral)\n Version:      1.29j for Linux (Red Hat, "
          "Mandrake, SuSE)\n Developer:    The qov developers, 2026-2026\n"
          " Web:          https://qov.invalid\n Support:      support@qov.invalid\n",
      steps =
          "\nCommand line checking .. Ok\nSettings checking .. Warning: FilterMarks has less items "
          "than FilterList\nCPU testing .. Ok\nstat.size: 8\nsrec.size: 8\nint64 = double\n"
          "Basic encyption checking .. Ok\nQOV encyption checking .. Ok\nSock testing .. Ok\n[qov]";
  EXPECT_THAT(agent.ReadFile("console"), testing::StartsWith(rule + banner + rule + steps));
}

TEST(StartTest, EndsWithTheStatusAndTextOfTheFault) {
  const std::tuple<const char*, const char*, const char*, int, const char*> cases[] = {
      {"-v -i", "", "", 1, "Settings checking .. Error\nCannot open configuration file '-i'\n"},
      {"-i", "qovpath=qov\n", "", 1, "  Full path to the agent is not specified!\n\nPlease check"},
      {"-i", "", "FAULT_DIGEST='3 3 5'", 3, "QOV encyption checking .. Error\n"},
      {"-i", "", "FAULT_BIND='1 3 98'", 4, "Sock testing .. TCP listen error:\nsocket() or"},
      {"-i", "", "FAULT_BIND='2 4 98'", 4, "\nTCP listen error: socket() or bind() error\n\n"},
      {"-d", "", "FAULT_FORK='1 1 11'", 2, "Error initializing daemon: Resource temporarily"},
  };
  for (const auto& [switches, config, faults, status, text] : cases) {
    TAgentProcess agent({config, switches, faults});
    EXPECT_EQ(status, agent.Wait()) << text;
    EXPECT_TRUE(agent.Holds(text)) << text;
  }
}

TEST(StartTest, DetachesAndLocksThePidFile) {
  const TAgentProcess first({.switches = "-d"});
  EXPECT_TRUE(first.Holds("CPU testing .. Ok\nBasic "));  // and nothing of -vd
  EXPECT_THAT(first.ReadFile("console"), testing::EndsWith("Sock testing .. Ok\nDaemon started\n"));
  EXPECT_EQ(first.Pid(), getsid(first.Pid()));
  EXPECT_EQ(std::to_string(first.Pid()) + "\n", first.ReadFile("pid"));
  for (const char* stream : {"fd/0", "fd/1", "fd/2"})
    EXPECT_EQ("/dev/null", fs::read_symlink(first.Proc(stream))) << stream;
  const std::string pid = first.folder.Path("pid");
  EXPECT_EQ("200", first.Ask("TEST-FileCRC", {pid}).code);  // which must not end the lock
  const TAgentProcess nowhere({.config = "pidfile=/nowhere/pid\n", .switches = "-d"});
  EXPECT_TRUE(nowhere.WaitFor("Failed to create pid file /nowhere/pid\n", 1, "log2.txt"));
  TAgentProcess second({.config = "pidfile=" + pid + "\n", .switches = "-d"});
  EXPECT_EQ(0, second.Wait());
  EXPECT_TRUE(second.WaitFor("Failed to lock pid file " + pid, 1, "log2.txt"));
  // A hang-up of its terminal ends no daemon that starts anew.
  second.folder.File("qov", "#!/bin/sh\nkill -HUP $$\necho alive >" + second.folder.Path("state"));
  EXPECT_EQ("200", second.Ask("ReloadApp").code);
  EXPECT_TRUE(second.WaitFor("alive\n", 1, "state"));
  EXPECT_TRUE(fs::exists(pid));  // not the second one's to remove

  first.WriteConfig("comment=one\n");
  EXPECT_TRUE(first.Signal(SIGHUP) && Await([&] { return first.Info("Comment") == "one"; }));
  first.WriteConfig("comment=two\n");
  for (int i = 0; i < 3; ++i) EXPECT_EQ("one", first.Info("Comment")) << "a load for each hang-up";
  EXPECT_EQ("200", first.Ask("QUIT").code);
  EXPECT_TRUE(first.WaitForPort(false) && Await([&] { return !fs::exists(pid); }));
}

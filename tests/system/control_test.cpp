#include <fcntl.h>
#include <sys/resource.h>

#include "support/process.h"

TEST(ControlTest, RestartsAsItWasStarted) {
  TAgentProcess agent({.shell = "trap '' INT; ulimit -S -n 99; export TMPDIR=/var/tmp; "});
  rlimit files;
  fs::copy_file(QOV_AGENT, agent.program, fs::copy_options::overwrite_existing);
  const auto start = [&] {
    return ReadFile(agent.Proc("cmdline")) + ReadFile(agent.Proc("environ"));
  };
  const std::string first = start();
  for (int image = 1; image <= 3; ++image) {
    EXPECT_EQ(first, start());
    prlimit(agent.Pid(), RLIMIT_NOFILE, nullptr, &files);
    EXPECT_EQ(files.rlim_max, files.rlim_cur);
    const std::string status = ReadFile(agent.Proc("status"));
    const auto ignored = strtoull(&status[status.find("SigIgn:") + 7], nullptr, 16);
    for (const int signal : {SIGINT, SIGPIPE, SIGXFSZ, SIGTERM})
      EXPECT_EQ(signal != SIGTERM, ignored >> (signal - 1) & 1) << signal;
    // A program that is being written is waited for; open for that once it does not run itself.
    TFd writer(open(agent.program.c_str(), O_WRONLY | O_CLOEXEC));
    EXPECT_EQ("200\nOk\n\r", agent.Ask("ReloadApp").text);
    ASSERT_TRUE(agent.WaitFor("Reload request received. Executing..\n", image));
    usleep(100000);
    writer.Reset();
    ASSERT_TRUE(agent.WaitFor("Listening...\n", image + 1));
  }
  EXPECT_TRUE(agent.Signal(SIGTERM));
  EXPECT_EQ(0, agent.Wait());
}

TEST(ControlTest, LivesOnWhenTheNewImageCannotStart) {
  // What asks for it is a session that crashes in its reply, the second one of this agent.
  TAgentProcess agent({"timeout=-1\n", "-d -v", "FAULT_AGE_SEC=181 FAULT_SEND='2 2 0'"});
  fs::remove(agent.program);
  const std::string temp = agent.folder.Path("tmp");
  std::vector<TRawPeer> peers;
  const std::string& folder = agent.folder.Path();
  for (const std::string& wait : {"! -f " + folder + "/done", "-d " + folder}) {
    const std::string script = "while [ " + wait + " ]; do sleep 0.1; done%0Aecho fine";
    peers.emplace_back(agent.port)
        .Ask("TEST-ShellScript", {"/bin/sh %script%", script, "", "60", "1"});
  }
  ASSERT_TRUE(Await([&] { return Count(temp) == 4; })) << "scripts and outputs";
  TRawPeer idle(agent.port), crashing(agent.port);
  EXPECT_TRUE(crashing.Ask("GetInfo") && crashing.Receive().empty() && !crashing.Open());
  ASSERT_TRUE(agent.WaitFor("Restarting..\n", 1, "log2.txt"));
  ASSERT_TRUE(agent.WaitFor("Error: cannot start new instance\n", 1, "log2.txt"));
  EXPECT_TRUE(agent.WaitForPort(false));  // the listening socket stays closed, the pid file gone
  EXPECT_FALSE(fs::exists(agent.folder.Path("pid")));

  // No session is the worse for it, and the agent does not try again.
  agent.port = FindFreePort();
  ASSERT_TRUE(idle.Ask("SetSettings", {"Port=" + std::to_string(agent.port)}));
  EXPECT_EQ("200", idle.Reply().code);
  ASSERT_TRUE(agent.WaitFor("Server port switching .. Ok\n", 1, "log1.txt"));
  EXPECT_FALSE(agent.Holds("cannot start", 2, "log2.txt"));
  agent.folder.File("done");
  EXPECT_EQ("fine", peers[0].Reply().values.at(0));
  EXPECT_TRUE(agent.WaitForSessions(2));
  const std::string sockets = "test $(ls -l " + agent.Proc("fd") + " | grep -c socket:) = 2";
  EXPECT_TRUE(Await([&] { return system(sockets.c_str()) == 0; })) << "it listens, a script runs";
  EXPECT_EQ("200", agent.Ask("QUIT").code);
  EXPECT_TRUE(Await([&] { return Count(temp) == 0; }));
}

TEST(ControlTest, AnswersSignals) {
  // Whatever the tests themselves were started with.
  for (const int inherited : {SIGHUP, SIGINT, SIGTERM}) signal(inherited, SIG_DFL);
  // Signal (0: a connection), exit status (-1: starts anew), text, faults.
  const std::tuple<int, int, const char*, const char*> cases[] = {
      {SIGSEGV, 1000 + SIGSEGV, "Segmentation fault!!\n", "FAULT_AGE_SEC=120"},
      {SIGSEGV, -1, "Segmentation fault!!\n", "FAULT_AGE_SEC=181"},
      {0, 1000 + SIGSEGV, "Segmentation fault!!\n", "FAULT_AGE_SEC=120 FAULT_ACCEPT='1 1 0'"},
      {0, -1, "Restarting..\n", "FAULT_AGE_SEC=181 FAULT_ACCEPT='1 1 0'"},
      {0, 0, "cannot start new instance\n", "FAULT_AGE_SEC=181 FAULT_ACCEPT='1 1 0'"},
      {0, 4, "]\t qov\t\t Accept fatal error: Too many open files\n\n", "FAULT_ACCEPT='1 1 24'"},
      {SIGTERM, 0, "Terminate request received. Terminating..\n", ""},
      {SIGINT, 0, "Terminate request received. Terminating..\n", ""},
      {SIGHUP, 1000 + SIGHUP, "Listening", ""},  // its default action in the foreground
  };
  for (const auto& [signal, status, text, faults] : cases) {
    SCOPED_TRACE(testing::Message() << signal << faults);
    TAgentProcess agent({.faults = faults});
    const bool livesOn = std::string(text).starts_with("cannot start");
    if (livesOn) fs::remove(agent.program);
    signal == 0 ? void(TRawPeer(agent.port)) : void(agent.Signal(signal));
    EXPECT_TRUE(status != -1 || agent.WaitFor("Listening...\n", 2));
    EXPECT_TRUE(!livesOn || (agent.WaitFor(text) && agent.Signal(SIGTERM)));
    EXPECT_EQ(status, agent.Wait(status == -1 ? 0 : 20000));
    EXPECT_TRUE(agent.Holds(text));
  }
}

TEST(StressTest, ChangesItsPortAndRestartsWithIdlePeersConnected) {
  // Two calls at a start, three for the port that is taken, one for the way back.
  TAgentProcess agent({.config = "timeout=-1\n", .faults = "FAULT_BIND='7 99 98'"});
  const auto move = [&](int port) {
    return agent.Ask("SetSettings", {"Port=" + std::to_string(port)}).code == "200";
  };
  const long descriptors = Count(agent.Proc("fd"));
  for (int i = 1; i <= Repeats(2, 50); ++i) {
    std::vector<TRawPeer> idle;
    for (int j = 0; j < 20; ++j) idle.emplace_back(agent.port);
    const int port = FindFreePort();
    ASSERT_TRUE(move(port) && agent.WaitFor("Server port switching .. Ok\n", i));
    EXPECT_TRUE(agent.WaitForPort(false));
    agent.port = port;
    ASSERT_TRUE(agent.WaitForSessions(21));
    ASSERT_EQ("200", agent.Ask("ReloadApp").code);
    for (TRawPeer& peer : idle) ASSERT_TRUE(peer.Receive().empty() && !peer.Open()) << i;
    ASSERT_TRUE(Await([&] { return Count(agent.Proc("fd")) == descriptors; }, 5000)) << i;
  }
  const TLoopbackPeer taken(TLoopbackPeer::kTcp);
  ASSERT_TRUE(move(taken.Port()) && agent.WaitFor("Error: cannot open new port for listening\n"));
  ASSERT_TRUE(agent.WaitFor("Return to original port\n"));
  EXPECT_EQ(std::to_string(agent.port), agent.Info("Port"));
  ASSERT_TRUE(move(FindFreePort()));
  EXPECT_EQ(4, agent.Wait());
  EXPECT_TRUE(agent.Holds("Cannot open original port either. Terminating\n"));
}

/// The shell line by which the client has the agent run another version.
static std::string Upgrade(const TAgentProcess& agent) {
  return "exec " QOV_CLIENT " --config " + agent.configPath + " upgrade " QOV_NEXT " >/dev/null";
}

TEST(UpgradeTest, RunsTheNewProgramOnceItsReplyIsOut) {
  const TAgentProcess agent({.switches = "-i -vd", .faults = "FAULT_SEND_MS=300"});
  const std::string script = agent.folder.Path("tmp/qovupd__.sh");
  TProcess client(Upgrade(agent));
  // Other sessions end, and another one asks for an upgrade, while the last reply is under way.
  std::vector<TRawPeer> others;
  EXPECT_TRUE(Await([&] {
    others.emplace_back(agent.port).Ask("GetInfo");
    return fs::exists(script);
  }));
  others.emplace_back(agent.port).Ask("UpgradeCode", {"1000"});
  EXPECT_EQ(0, client.Wait());
  ASSERT_TRUE(Await([&] { return agent.Info("AgentVersion") == "1.29next"; }));
  EXPECT_TRUE(ReadFile(QOV_NEXT) == ReadFile(agent.program));
  EXPECT_TRUE(agent.WaitFor("srec.size", 2));
  EXPECT_FALSE(fs::exists(agent.folder.Path("tmp/qov__.upd")));
  EXPECT_EQ("200", agent.Ask("QUIT").code);
  // A script that started an agent in the foreground ends after it.
  EXPECT_TRUE(Await([&] { return !fs::exists(script); }));
}

TEST(UpgradeTest, GivesItsClaimBackWhenTheScriptCannotStart) {
  const TAgentProcess agent({.config = "timeout=-1\n", .faults = "FAULT_SEND_MS=1500"});
  TRawPeer later(agent.port);
  TProcess client(Upgrade(agent));
  const std::string script = agent.folder.Path("tmp/qovupd__.sh");
  ASSERT_TRUE(Await([&] { return access(script.c_str(), X_OK) == 0; }));  // it is complete
  fs::remove(script);
  EXPECT_EQ(0, client.Wait());
  EXPECT_TRUE(agent.WaitFor("Upgrade request received. Executing..\n"));
  EXPECT_TRUE(agent.WaitFor("Error: cannot start upgrading script\n"));
  ASSERT_TRUE(later.Ask("UpgradeCode", {"1000"}));
  EXPECT_EQ("200\n\r", later.Reply(true).text);
  EXPECT_FALSE(agent.Holds("Upgrade request received", 2)) << "within a slice of a second";
}

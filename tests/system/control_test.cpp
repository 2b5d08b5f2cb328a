#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>

#include "built.h"
#include "support/process.h"

using testing::HasSubstr;

namespace {

/// What makes an agent's calls fail; see programs/faults.cpp.
std::vector<std::string> Faults(std::vector<std::string> faults) {
  faults.push_back(std::string("LD_PRELOAD=") + QOV_FAULTS);
  return faults;
}

TEST(ControlTest, LoadsTheFileAgainOnHangup) {
  TAgentProcess agent({.switches = {"-d", "-v"}});
  agent.WriteConfig("comment=second\nport=1\n");
  ASSERT_TRUE(agent.Signal(SIGHUP));
  EXPECT_TRUE(Await([&] { return agent.Info("Comment") == "second"; }));  // on the old port

  agent.WriteConfig("comment=third\n");
  EXPECT_EQ("200\nOk\n\r", agent.Ask("ReloadCfg").text);
  EXPECT_EQ("third", agent.Info("Comment"));

  agent.WriteConfig("comment=fourth\nqovpath=\n");
  EXPECT_EQ("300\n  Full path to the agent is not specified!\n\r", agent.Ask("ReloadCfg").text);
  EXPECT_EQ("fourth", agent.Info("Comment"));  // a failed load leaves what the file set
}

TEST(ControlTest, SwitchesThePortAndFallsBack) {
  const TAgentProcess agent;
  const TAgentProcess other;
  const int port = FindFreePort();
  EXPECT_EQ("200", agent.Ask("SetSettings", {"Port=" + std::to_string(port)}).code);
  ASSERT_TRUE(agent.WaitFor("Server port switching .. Ok\n"));
  EXPECT_TRUE(agent.WaitForPort(false));
  TRawPeer peer(port);
  ASSERT_TRUE(
      peer.Send(TAgentProcess::Packet("SetSettings", {"Port=" + std::to_string(other.Port())})));
  EXPECT_EQ("200", TAgentProcess::Decode(peer.ReceiveAll()).code);
  ASSERT_TRUE(agent.WaitFor("Error: cannot open new port for listening\n"));
  ASSERT_TRUE(agent.WaitFor("Return to original port\n"));
  TRawPeer again(port);
  ASSERT_TRUE(again.Send(TAgentProcess::Packet("GetInfo")));
  EXPECT_EQ(std::to_string(port), Named(TAgentProcess::Decode(again.ReceiveAll()), "Port"));

  TAgentProcess without({.environment = Faults({"FAULT_BIND=3 99 98"})});
  EXPECT_EQ("200", without.Ask("SetSettings", {"Port=" + std::to_string(FindFreePort())}).code);
  EXPECT_EQ(4, without.Wait());
  EXPECT_THAT(without.Console(), HasSubstr("Cannot open original port either. Terminating\n"));
}

TEST(ControlTest, EndsOnRequestAfterTheReply) {
  TAgentProcess agent({.environment = Faults({"FAULT_SEND_MS=1500"})});  // longer than a slice
  EXPECT_EQ("200\nOk\n\r", agent.Ask("QUIT").text);
  EXPECT_EQ(0, agent.Wait());
  EXPECT_THAT(agent.Console(), HasSubstr("Terminate request received. Terminating..\n"));
}

TEST(ControlTest, RestartsUnderTheSameProcessId) {
  TAgentProcess agent;
  const auto start = [process = "/proc/" + std::to_string(agent.Pid())] {
    return ReadFile(process + "/cmdline") + ReadFile(process + "/environ");
  };
  const std::string first = start();
  for (int i = 2; i <= 3; ++i) {
    EXPECT_EQ("200\nOk\n\r", agent.Ask("ReloadApp").text);
    ASSERT_TRUE(agent.WaitFor("Listening...\n", i));
    EXPECT_EQ(first, start());
  }
}

TEST(ControlTest, LivesOnWhenTheNewImageCannotStart) {
  TAgentProcess agent({.switches = {"-d", "-v"}});
  agent.WriteConfig("timeout=-1\nqovpath=" + agent.Folder().File("program", "none") + "\n");
  ASSERT_EQ("200", agent.Ask("ReloadCfg").code);
  TRawPeer idle(agent.Port());
  TRawPeer busy(agent.Port());
  const std::string done = agent.Folder().Path("done");
  ASSERT_TRUE(busy.Send(TAgentProcess::Packet(
      "TEST-ShellScript",
      {"/bin/sh %script%", "until [ -f " + done + " ]; do sleep 0.1; done; echo fine", "", "60",
       "1"})));
  const std::filesystem::path temp = agent.Folder().Path("tmp");
  ASSERT_TRUE(Await([&] {
    return std::distance(std::filesystem::directory_iterator(temp), {}) == 2;
  })) << "script and output";
  EXPECT_EQ("200", agent.Ask("ReloadApp").code);
  const char* log = "log2.txt";
  ASSERT_TRUE(agent.WaitFor("Error: cannot start new instance\n", 1, log));
  EXPECT_TRUE(agent.WaitForPort(false));  // the listening socket stays closed, the pid file gone
  EXPECT_FALSE(std::filesystem::exists(agent.Folder().Path("pid")));
  usleep(2500000);
  const std::string messages = agent.ReadFile(log);
  EXPECT_EQ(messages.find("cannot start"), messages.rfind("cannot start"));  // tried once
  // No session is the worse for it.
  agent.Folder().File("done");
  EXPECT_EQ("fine", TAgentProcess::Decode(busy.ReceiveAll()).values.at(0));
  ASSERT_TRUE(idle.Send(TAgentProcess::Packet("QUIT")));
  EXPECT_EQ("200", TAgentProcess::Decode(idle.ReceiveAll()).code);
}

TEST(ControlTest, WaitsForAProgramThatIsBusy) {
  TAgentProcess agent;
  const std::string program = agent.Folder().Path("program");
  std::filesystem::copy_file(QOV_AGENT, program);
  agent.WriteConfig("qovpath=" + program + "\n");
  ASSERT_EQ("200", agent.Ask("ReloadCfg").code);
  TFd writer(open(program.c_str(), O_WRONLY | O_CLOEXEC));
  EXPECT_EQ("200", agent.Ask("ReloadApp").code);
  ASSERT_TRUE(agent.WaitFor("Reload request received. Executing..\n"));
  usleep(200000);
  writer.Reset();
  EXPECT_TRUE(agent.WaitFor("Listening...\n", 2));
}

TEST(ControlTest, AnswersSignals) {
  // Whatever the tests themselves were started with.
  for (const int inherited : {SIGHUP, SIGINT, SIGTERM}) signal(inherited, SIG_DFL);
  const struct {
    int signal;  // 0: the main loop faults
    const char* age;
    int status;  // -1: starts anew
    const char* text;
  } cases[] = {
      {SIGSEGV, "120", 1000 + SIGSEGV, "Segmentation fault!!\n"},
      {SIGSEGV, "181", -1, "Segmentation fault!!\n"},
      {0, "120", 1000 + SIGSEGV, "Segmentation fault!!\n"},
      {0, "181", -1, "Restarting..\n"},
      {SIGTERM, "0", 0, "Terminate request received. Terminating..\n"},
      {SIGINT, "0", 0, "Terminate request received. Terminating..\n"},
      {SIGHUP, "0", 1000 + SIGHUP, "Listening"},  // its default action in the foreground
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.signal << " at " << c.age);
    TAgentProcess agent(
        {.environment = Faults({std::string("FAULT_AGE_SEC=") + c.age,
                                c.signal == 0 ? "FAULT_ACCEPT=1 1 0" : "FAULT_NONE="})});
    c.signal == 0 ? void(TRawPeer(agent.Port())) : void(agent.Signal(c.signal));
    if (c.status == -1) {
      EXPECT_TRUE(agent.WaitFor("Listening...\n", 2));
      EXPECT_EQ(-1, agent.Wait(0));
    } else {
      EXPECT_EQ(c.status, agent.Wait());
    }
    EXPECT_THAT(agent.Console(), HasSubstr(c.text));
  }
}

TEST(ControlTest, DropsTheSessionThatCrashed) {
  TAgentProcess agent(
      {.config = "timeout=-1\n", .environment = Faults({"FAULT_AGE_SEC=181", "FAULT_SEND=2 2 0"})});
  agent.WriteConfig("qovpath=" + agent.Folder().File("program", "none") + "\n");
  EXPECT_EQ("200", agent.Ask("ReloadCfg").code);
  TRawPeer idle(agent.Port());
  TRawPeer crashing(agent.Port());
  ASSERT_TRUE(crashing.Send(TAgentProcess::Packet("GetInfo")));
  EXPECT_EQ("", crashing.ReceiveAll());
  EXPECT_TRUE(crashing.Closed());
  ASSERT_TRUE(agent.WaitFor("Restarting..\n"));
  ASSERT_TRUE(agent.WaitFor("Error: cannot start new instance\n"));
  ASSERT_TRUE(idle.Send(TAgentProcess::Packet("GetInfo")));
  EXPECT_EQ("1", Named(TAgentProcess::Decode(idle.ReceiveAll()), "ActiveConnections"));
}

}  // namespace

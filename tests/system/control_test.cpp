#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>

#include <filesystem>

#include "built.h"
#include "support/process.h"

namespace {

/// Polls the comment until it is `wanted`; the agent acts on a signal within its slice.
bool AwaitComment(const TAgentProcess& agent, const std::string& wanted) {
  return Await([&] { return agent.Info("Comment") == wanted; });
}

TEST(ControlTest, LoadsTheFileAgainOnHangup) {
  TAgentOptions options;
  options.switches = {"-d", "-v"};
  TAgentProcess agent(options);
  agent.WriteConfig("comment=second\nport=1\n");
  ASSERT_TRUE(agent.Signal(SIGHUP));
  EXPECT_TRUE(AwaitComment(agent, "second"));  // on the old port: a load does not change it

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
  EXPECT_TRUE(TRawPeer(port).Connected());
}

TEST(ControlTest, EndsOnRequestAfterTheReply) {
  TAgentProcess agent;
  EXPECT_EQ("200\nOk\n\r", agent.Ask("QUIT").text);
  EXPECT_EQ(0, agent.Wait());
  EXPECT_NE(std::string::npos, agent.Console().find("Terminate request received. Terminating..\n"));
}

TEST(ControlTest, RestartsUnderTheSameProcessId) {
  TAgentProcess agent;
  for (int i = 2; i <= 4; ++i) {
    EXPECT_EQ("200\nOk\n\r", agent.Ask("ReloadApp").text);
    ASSERT_TRUE(agent.WaitFor("Listening...\n", i));
    EXPECT_EQ("200", agent.Ask("GetInfo").code);
  }
  EXPECT_EQ(0, kill(agent.Pid(), 0));
}

TEST(ControlTest, LivesOnWhenTheNewImageCannotStart) {
  TAgentProcess agent;
  const std::string program = agent.Folder().File("program", "not a program");
  agent.WriteConfig("timeout=-1\nqovpath=" + program + "\n");
  ASSERT_EQ("200", agent.Ask("ReloadCfg").code);
  TRawPeer connected(agent.Port());
  EXPECT_EQ("200", agent.Ask("ReloadApp").code);
  ASSERT_TRUE(agent.WaitFor("Error: cannot start new instance\n"));
  EXPECT_TRUE(agent.WaitForPort(false));  // the listening socket stays closed
  const long before = agent.CpuMs();
  EXPECT_EQ(-1, agent.Wait(Repeats(1500, 5000)));
  EXPECT_GT(200, agent.CpuMs() - before);
  ASSERT_TRUE(connected.Send(TAgentProcess::Packet("GetInfo")));
  EXPECT_EQ("200", TAgentProcess::Decode(connected.ReceiveAll()).code);
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
  const struct {
    const char* name;
    int signal;
    int status;
    const char* text;
  } cases[] = {
      {"a young process ends by a fault, sent or not", SIGSEGV, 1000 + SIGSEGV,
       "Segmentation fault!!\n"},
      {"terminate", SIGTERM, 0, "Terminate request received. Terminating..\n"},
      {"interrupt", SIGINT, 0, "Terminate request received. Terminating..\n"},
      {"hang-up keeps its default action in the foreground", SIGHUP, 1000 + SIGHUP, "Listening"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TAgentProcess agent;
    ASSERT_TRUE(agent.Signal(c.signal));
    EXPECT_EQ(c.status, agent.Wait());
    EXPECT_NE(std::string::npos, agent.Console().find(c.text)) << agent.Console();
  }
}

TEST(ControlTest, RefusesAdministrationFromElsewhere) {
  TAgentOptions options;
  options.config = "host=\n";
  const TAgentProcess agent(options);
  for (const char* command :
       {"QUIT", "ReloadApp", "ReloadCfg", "GetSettings", "SetSettings", "UpgradeCode"}) {
    SCOPED_TRACE(command);
    TRawPeer peer(agent.Port(), "127.0.0.2");
    ASSERT_TRUE(peer.Send(TAgentProcess::Packet(command, {"Comment=x", "1000"})));
    EXPECT_EQ("600\n\r", TAgentProcess::Decode(peer.ReceiveAll()).text);
  }
  EXPECT_TRUE(agent.WaitFor("--> request processed (600)\n", 6));
  EXPECT_EQ("200", agent.Ask("GetInfo").code);
}

}  // namespace

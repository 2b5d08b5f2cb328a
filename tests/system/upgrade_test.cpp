#include <gtest/gtest.h>
#include <nettle/md5.h>

#include <filesystem>
#include <memory>

#include "built.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace {

/// What follows the program on the wire: its digest, enciphered.
std::string Trailer(const std::string& program) {
  md5_ctx md5;
  md5_init(&md5);
  md5_update(&md5, program.size(), reinterpret_cast<const uint8_t*>(program.data()));
  std::string digest(MD5_DIGEST_SIZE, '\0');
  md5_digest(&md5, digest.size(), reinterpret_cast<uint8_t*>(digest.data()));
  return BuildReply(TAgentProcess::kSessionKey, digest).substr(4);
}

/// An agent whose executable is a copy of its own.
class TUpgradedAgent {
 public:
  explicit TUpgradedAgent(TAgentOptions options = {})
      : original_(ReadFile(QOV_AGENT)),
        installed_(folder_.File("bin/qov", original_)),
        temporary_(folder_.Folder("tmp")) {
    fs::permissions(installed_, fs::perms::owner_all);
    options.config += "qovpath=" + installed_ + "\ntmpdir=" + temporary_ + "\n";
    options.program = installed_;
    agent_ = std::make_unique<TAgentProcess>(options);
  }

  TAgentProcess* operator->() { return agent_.get(); }
  const std::string& Installed() const { return installed_; }
  /// The words the serving process was started with, each with a zero byte behind it.
  std::string Arguments() const {
    return ReadFile("/proc/" + std::to_string(agent_->Pid()) + "/cmdline");
  }
  bool Untouched() const { return ReadFile(installed_) == original_; }
  std::string NewProgram() const { return temporary_ + "/qov__.upd"; }
  std::string Script() const { return temporary_ + "/qovupd__.sh"; }

  /// Restarts the agent, which gives back what a dropped session has claimed.
  void Restart() {
    ASSERT_EQ("200", agent_->Ask("ReloadApp").code);
    ASSERT_TRUE(agent_->WaitFor("Listening...\n", ++starts_));
  }

 private:
  TTempDir folder_;
  std::string original_;
  std::string installed_;
  std::string temporary_;
  std::unique_ptr<TAgentProcess> agent_;
  int starts_ = 1;
};

/// One session that upgrades an agent.
class TTransfer {
 public:
  TTransfer(TUpgradedAgent& agent, const std::string& size) : agent_(agent), peer_(agent->Port()) {
    EXPECT_TRUE(peer_.Send(TAgentProcess::Packet("UpgradeCode", {size})));
    answer_ = Receive();
  }
  TTransfer(TUpgradedAgent& agent, size_t size) : TTransfer(agent, std::to_string(size)) {}

  const std::string& Answer() const { return answer_; }
  TRawPeer& Peer() { return peer_; }
  std::string Receive() { return TAgentProcess::Decode(peer_.ReceiveReply()).text; }

  /// Sends bytes of the new program and waits until they are in the temporary file, so that what
  /// is sent next begins a piece of its own.
  bool SendPart(const std::string& bytes) {
    if (!peer_.Send(bytes)) return false;
    written_ += bytes.size();
    std::error_code error;
    const long long end = NowMs() + 20000;
    while (fs::file_size(agent_.NewProgram(), error) != written_) {
      if (NowMs() >= end) return false;
      usleep(1000);
    }
    return true;
  }
  /// The agent's last word on a program sent whole, the trailer in one piece with its end.
  std::string Finish(const std::string& program, const std::string& behind = "") {
    EXPECT_TRUE(SendPart(program.substr(0, program.size() - 100)));
    EXPECT_TRUE(peer_.Send(program.substr(program.size() - 100) + Trailer(program) + behind));
    return Receive();
  }

 private:
  TUpgradedAgent& agent_;
  TRawPeer peer_;
  std::string answer_;
  size_t written_ = 0;
};

std::string Pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 7 + i / 251);
  return bytes;
}

const std::string kSmall = Pattern(20000);

TEST(UpgradeTest, RunsTheNewProgramUnderTheSameArguments) {
  const std::string next = ReadFile(QOV_NEXT);
  for (const std::string mode : {"-i", "-d"}) {
    SCOPED_TRACE(mode);
    TUpgradedAgent agent({.switches = {mode, "-vd"}});
    const std::string arguments = agent.Arguments();
    const std::string victim = agent->Folder().File("victim", "untouched");
    fs::create_symlink(victim, agent.NewProgram());
    fs::create_symlink(victim, agent.Script());
    ASSERT_EQ("1.29j", agent->Info("AgentVersion"));

    TTransfer transfer(agent, next.size());
    ASSERT_EQ("200\n\r", transfer.Answer());
    EXPECT_EQ("302\n\r", TTransfer(agent, next.size()).Answer());
    EXPECT_EQ("200\n\r", transfer.Finish(next));
    ASSERT_TRUE(Await([&] { return agent->Info("AgentVersion") == "1.29next"; }));
    ASSERT_TRUE(agent->FindServer(agent.Installed()));
    EXPECT_EQ(arguments, agent.Arguments());
    EXPECT_TRUE(next == ReadFile(agent.Installed()));
    EXPECT_FALSE(fs::exists(agent.NewProgram()));
    EXPECT_EQ("untouched", ReadFile(victim));
    EXPECT_EQ("200", agent->Ask("QUIT").code);
    // A script that started an agent in the foreground ends after it.
    EXPECT_TRUE(Await([&] { return !fs::exists(agent.Script()); }));
  }
}

TEST(UpgradeTest, FollowsTheClient) {
  TUpgradedAgent agent({.switches = {"-d"}});
  const std::string command = std::string(QOV_CLIENT) + " --config " + agent->ConfigPath() +
                              " upgrade " + QOV_NEXT + " > /dev/null";
  EXPECT_EQ(0, system(command.c_str()));
  EXPECT_TRUE(Await([&] { return agent->Info("AgentVersion") == "1.29next"; }));
  EXPECT_TRUE(Await([&] { return !fs::exists(agent.Script()); }));
}

TEST(UpgradeTest, KeepsTheClaimOfACutTransferAndOfARefusedSize) {
  TUpgradedAgent agent;
  for (const std::string size : {"20000", "100"}) {
    SCOPED_TRACE(size);
    {
      TTransfer transfer(agent, size);
      EXPECT_EQ(size == "100" ? "501\nWrong file parameter(s)\n\r" : "200\n\r", transfer.Answer());
      ASSERT_TRUE(transfer.SendPart("x"));  // taken for the program's in both cases
    }
    EXPECT_EQ("302\n\r", TTransfer(agent, kSmall.size()).Answer());
    EXPECT_EQ(1u, fs::file_size(agent.NewProgram()));
    agent.Restart();
    fs::remove(agent.NewProgram());
  }
  EXPECT_EQ("200\n\r", TTransfer(agent, kSmall.size()).Answer());
  EXPECT_TRUE(agent.Untouched());
}

TEST(UpgradeTest, WaitsForTheProgramWithoutALimit) {
  TUpgradedAgent agent({.config = "timeout=1\n"});
  TTransfer transfer(agent, kSmall.size());
  ASSERT_EQ("200\n\r", transfer.Answer());
  usleep(2500000);
  EXPECT_EQ("300\nWrong CRC\n\r", transfer.Finish(kSmall, "x"));
  EXPECT_EQ("200\n\r", TTransfer(agent, kSmall.size()).Answer());  // the claim is given back
}

TEST(UpgradeTest, WaitsForItsReplyAndGuardsItsFiles) {
  // Every reply takes a second: another session ends, and a third one asks for an upgrade, while
  // the reply to the transfer is under way.
  constexpr int kDelayMs = 1000;
  const std::string next = ReadFile(QOV_NEXT);
  for (const bool scriptGoes : {false, true}) {
    TUpgradedAgent agent({.environment = {std::string("LD_PRELOAD=") + QOV_FAULTS,
                                          "FAULT_SEND_MS=" + std::to_string(kDelayMs)}});
    TTransfer transfer(agent, next.size());
    ASSERT_TRUE(transfer.SendPart(next));
    TRawPeer other(agent->Port());
    ASSERT_TRUE(other.Send(TAgentProcess::Packet("GetInfo")));
    usleep(kDelayMs * 1000 / 2);
    TRawPeer later(agent->Port());
    ASSERT_TRUE(transfer.Peer().Send(Trailer(next)));
    ASSERT_TRUE(Await([&] { return fs::exists(agent.Script()); }));
    if (scriptGoes) fs::remove(agent.Script());
    TRawPeer third(agent->Port());
    ASSERT_TRUE(third.Send(TAgentProcess::Packet("UpgradeCode", {"1000"})));
    EXPECT_EQ("200\n\r", transfer.Receive());
    if (!scriptGoes) {
      EXPECT_TRUE(Await([&] { return agent->Info("AgentVersion") == "1.29next"; }));
      EXPECT_TRUE(next == ReadFile(agent.Installed()));
      continue;
    }
    EXPECT_TRUE(agent->WaitFor("Upgrade request received. Executing..\n"));
    EXPECT_TRUE(agent->WaitFor("Error: cannot start upgrading script\n"));
    EXPECT_TRUE(agent.Untouched());
    ASSERT_TRUE(later.Send(TAgentProcess::Packet("UpgradeCode", {"1000"})));
    EXPECT_EQ("200\n\r", TAgentProcess::Decode(later.ReceiveReply()).text);  // the claim as well
  }
}

}  // namespace

#include <gtest/gtest.h>
#include <nettle/md5.h>

#include <filesystem>
#include <memory>

#include "built.h"
#include "support/process.h"

namespace fs = std::filesystem;

namespace {

/// An agent whose executable is a copy of its own.
class TUpgradedAgent {
 public:
  explicit TUpgradedAgent(TAgentOptions options = {})
      : installed_(folder_.File("bin/qov", ReadFile(QOV_AGENT))) {
    fs::permissions(installed_, fs::perms::owner_all);
    options.config += Config();
    options.program = installed_;
    agent_ = std::make_unique<TAgentProcess>(options);
  }

  TAgentProcess* operator->() { return agent_.get(); }
  const std::string& Installed() const { return installed_; }
  std::string Config() const {
    return "qovpath=" + installed_ + "\ntmpdir=" + folder_.Path() + "\n";
  }
  std::string NewProgram() const { return folder_.Path("qov__.upd"); }
  std::string Script() const { return folder_.Path("qovupd__.sh"); }

 private:
  TTempDir folder_;
  std::string installed_;
  std::unique_ptr<TAgentProcess> agent_;
};

/// The answer to "UpgradeCode" over this connection.
std::string Announce(TRawPeer& peer, const std::string& size) {
  EXPECT_TRUE(peer.Send(TAgentProcess::Packet("UpgradeCode", {size})));
  return TAgentProcess::Decode(peer.ReceiveReply()).text;
}

TEST(UpgradeTest, RunsTheNewProgramUnderTheSameArguments) {
  for (const std::string mode : {"-i", "-d"}) {
    SCOPED_TRACE(mode);
    TUpgradedAgent agent({.switches = {mode, "-vd"}});
    const auto arguments = [&] {
      return ReadFile("/proc/" + std::to_string(agent->Pid()) + "/cmdline");
    };
    const std::string before = arguments();
    TProcess client({QOV_CLIENT, "--config", agent->ConfigPath(), "upgrade", QOV_NEXT}, {},
                    agent->Folder().Path("client"));
    EXPECT_EQ(0, client.Wait());
    ASSERT_TRUE(Await([&] { return agent->Info("AgentVersion") == "1.29next"; }));
    ASSERT_TRUE(agent->FindServer(agent.Installed()));
    EXPECT_EQ(before, arguments());
    EXPECT_TRUE(ReadFile(QOV_NEXT) == ReadFile(agent.Installed()));
    EXPECT_FALSE(fs::exists(agent.NewProgram()));
    EXPECT_EQ("200", agent->Ask("QUIT").code);
    // A script that started an agent in the foreground ends after it.
    EXPECT_TRUE(Await([&] { return !fs::exists(agent.Script()); }));
  }
}

TEST(UpgradeTest, KeepsTheClaimOfACutTransfer) {
  TUpgradedAgent agent;
  {
    TRawPeer peer(agent->Port());
    EXPECT_EQ("501\nWrong file parameter(s)\n\r", Announce(peer, "100"));
    ASSERT_TRUE(peer.Send("x"));  // taken for the program's
    EXPECT_TRUE(Await([&] { return ReadFile(agent.NewProgram()) == "x"; }));
  }
  TRawPeer peer(agent->Port());
  EXPECT_EQ("302\n\r", Announce(peer, "1000"));
}

TEST(UpgradeTest, WaitsForItsReplyAndGuardsItsFiles) {
  // Every reply takes a second: another session ends, and a third one asks for an upgrade, while
  // the reply to the transfer is under way.
  const std::string next = ReadFile(QOV_NEXT);
  md5_ctx md5;
  md5_init(&md5);
  md5_update(&md5, next.size(), reinterpret_cast<const uint8_t*>(next.data()));
  std::string digest(MD5_DIGEST_SIZE, '\0');
  md5_digest(&md5, digest.size(), reinterpret_cast<uint8_t*>(digest.data()));
  for (const bool scriptGoes : {false, true}) {
    SCOPED_TRACE(scriptGoes);
    TUpgradedAgent agent(
        {.config = "timeout=1\n",
         .environment = {std::string("LD_PRELOAD=") + QOV_FAULTS, "FAULT_SEND_MS=1000"}});
    TRawPeer transfer(agent->Port());
    ASSERT_EQ("200\n\r", Announce(transfer, std::to_string(next.size())));
    usleep(2500000);  // the idle limit is none of an upgrade
    ASSERT_TRUE(transfer.Send(next));
    ASSERT_TRUE(Await([&] { return fs::file_size(agent.NewProgram()) == next.size(); }));
    agent->WriteConfig(agent.Config() + "timeout=-1\n");
    EXPECT_EQ("200", agent->Ask("ReloadCfg").code);
    TRawPeer later(agent->Port());
    TRawPeer other(agent->Port());
    ASSERT_TRUE(other.Send(TAgentProcess::Packet("GetInfo")));
    usleep(500000);
    ASSERT_TRUE(transfer.Send(BuildReply(TAgentProcess::kSessionKey, digest).substr(4)));
    ASSERT_TRUE(Await([&] { return fs::exists(agent.Script()); }));
    TRawPeer third(agent->Port());
    ASSERT_TRUE(third.Send(TAgentProcess::Packet("UpgradeCode", {"1000"})));
    if (scriptGoes) fs::remove(agent.Script());
    EXPECT_EQ("200\n\r", TAgentProcess::Decode(transfer.ReceiveReply()).text);
    if (!scriptGoes) {
      EXPECT_TRUE(Await([&] { return agent->Info("AgentVersion") == "1.29next"; }));
      EXPECT_TRUE(next == ReadFile(agent.Installed()));
      continue;
    }
    EXPECT_TRUE(agent->WaitFor("Upgrade request received. Executing..\n"));
    EXPECT_TRUE(agent->WaitFor("Error: cannot start upgrading script\n"));
    EXPECT_TRUE(ReadFile(QOV_AGENT) == ReadFile(agent.Installed()));
    EXPECT_EQ("200\n\r", Announce(later, "1000"));  // the claim goes as well
  }
}

}  // namespace

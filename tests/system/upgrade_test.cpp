#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nettle/md5.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <filesystem>
#include <memory>
#include <thread>

#include "built.h"
#include "support/process.h"

namespace fs = std::filesystem;
using testing::HasSubstr;

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
  /// @param temporary  folder for temporary files; "": one of its own
  explicit TUpgradedAgent(TAgentOptions options = {}, const std::string& temporary = "")
      : original_(ReadFile(QOV_AGENT)),
        installed_(folder_.File("bin/qov", original_)),
        temporary_(temporary.empty() ? folder_.Folder("tmp") : temporary) {
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
  std::string Finish(const std::string& program) {
    EXPECT_TRUE(SendPart(program.substr(0, program.size() - 100)));
    EXPECT_TRUE(peer_.Send(program.substr(program.size() - 100) + Trailer(program)));
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

const char kWrong[] = "300\nWrong CRC\n\r";
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

TEST(UpgradeTest, KeepsTheClaimOfACutTransfer) {
  TUpgradedAgent agent;
  const std::string whole = kSmall + Trailer(kSmall);
  const int cuts = Repeats(8, 20);
  for (int i = 0; i < cuts; ++i) {
    // The last cuts fall behind the program, into its trailer or in front of it.
    const auto cut =
        i < cuts - 3 ? i * kSmall.size() / (cuts - 4) : whole.size() - 16 + 5 * (i - cuts + 3);
    SCOPED_TRACE(cut);
    {
      TTransfer transfer(agent, kSmall.size());
      ASSERT_EQ("200\n\r", transfer.Answer());
      ASSERT_TRUE(transfer.SendPart(whole.substr(0, std::min(cut, kSmall.size()))));
      if (cut > kSmall.size()) {
        ASSERT_TRUE(transfer.Peer().Send(whole.substr(kSmall.size(), cut - kSmall.size())));
        EXPECT_EQ(kWrong, transfer.Receive());
        continue;
      }
    }
    EXPECT_EQ("302\n\r", TTransfer(agent, kSmall.size()).Answer());
    EXPECT_EQ(std::min(cut, kSmall.size()), fs::file_size(agent.NewProgram()));
    EXPECT_TRUE(agent.Untouched());
    agent.Restart();
  }
  EXPECT_TRUE(agent.Untouched());
}

TEST(UpgradeTest, RefusesAWrongDigest) {
  TUpgradedAgent agent;
  const std::string trailer = Trailer(kSmall);
  std::string flipped = trailer;
  flipped[9] = static_cast<char>(flipped[9] ^ 0x10);
  std::string changed = kSmall;
  changed[777] ^= 1;
  const struct {
    const char* name;
    std::string program;
    std::string trailer;
  } cases[] = {
      {"one bit of the digest", kSmall, flipped},
      {"one bit of the program", changed, trailer},
      {"the first piece of a trailer that is split over two", kSmall, trailer.substr(0, 7)},
      {"a byte behind the trailer", kSmall, trailer + "x"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TTransfer transfer(agent, kSmall.size());
    ASSERT_EQ("200\n\r", transfer.Answer());
    ASSERT_TRUE(transfer.SendPart(c.program));
    ASSERT_TRUE(transfer.Peer().Send(c.trailer));
    EXPECT_EQ(kWrong, transfer.Receive());
    EXPECT_TRUE(agent.Untouched());
    EXPECT_FALSE(fs::exists(agent.NewProgram()));
    EXPECT_FALSE(fs::exists(agent.Script()));
  }
}

TEST(UpgradeTest, StaysInDataModeAfterARefusedSize) {
  TUpgradedAgent agent;
  const struct {
    const char* size;
    bool holdsData;  // the first byte is taken for the program's
  } cases[] = {{"nan", false}, {"-1", false},      {"", false},     {"100", true},
               {"inf", true},  {"10485760", true}, {"1e400", true}, {"-1e400", false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.size);
    TTransfer transfer(agent, c.size);
    ASSERT_EQ("501\nWrong file parameter(s)\n\r", transfer.Answer());
    EXPECT_EQ("302\n\r", TTransfer(agent, "1000").Answer());
    EXPECT_FALSE(fs::exists(agent.NewProgram()));
    ASSERT_TRUE(transfer.Peer().Send("x"));
    if (c.holdsData) {
      EXPECT_TRUE(Await([&] { return fs::exists(agent.NewProgram()); }));
      EXPECT_EQ("302\n\r", TTransfer(agent, "1000").Answer());
    } else {
      EXPECT_EQ(kWrong, transfer.Receive());
    }
    agent.Restart();
    fs::remove(agent.NewProgram());
  }
  for (const char* size : {"101", "101.9", "10485759"}) {
    SCOPED_TRACE(size);
    EXPECT_EQ("200\n\r", TTransfer(agent, size).Answer());
    agent.Restart();
  }
  EXPECT_TRUE(agent.Untouched());
}

TEST(UpgradeTest, WaitsForItsReplyAndGuardsItsFiles) {
  // Every reply takes a second: another session ends, and a third one asks for an upgrade, while
  // the reply to the transfer is under way.
  constexpr int kDelayMs = 1000;
  const std::string next = ReadFile(QOV_NEXT);
  TUpgradedAgent agent({.environment = {std::string("LD_PRELOAD=") + QOV_FAULTS,
                                        "FAULT_SEND_MS=" + std::to_string(kDelayMs)}});
  TTransfer transfer(agent, next.size());
  ASSERT_TRUE(transfer.SendPart(next));
  TRawPeer other(agent->Port());
  ASSERT_TRUE(other.Send(TAgentProcess::Packet("GetInfo")));
  usleep(kDelayMs * 1000 / 2);
  ASSERT_TRUE(transfer.Peer().Send(Trailer(next)));
  ASSERT_TRUE(Await([&] { return fs::exists(agent.Script()); }));
  TRawPeer third(agent->Port());
  ASSERT_TRUE(third.Send(TAgentProcess::Packet("UpgradeCode", {"1000"})));
  EXPECT_EQ("200\n\r", transfer.Receive());
  EXPECT_TRUE(Await([&] { return agent->Info("AgentVersion") == "1.29next"; }));
  EXPECT_TRUE(next == ReadFile(agent.Installed()));
}

TEST(UpgradeTest, SaysWhatItCannotCreate) {
  TUpgradedAgent agent;
  fs::create_directory(agent.NewProgram());
  for (int i = 0; i < 2; ++i) {  // the claim is given back
    EXPECT_EQ("300\nCannot create temp file\n\r", TTransfer(agent, 1000).Answer());
  }
  fs::remove(agent.NewProgram());
  fs::create_directory(agent.Script());
  fs::create_directory(agent.Script() + "/held");
  TTransfer transfer(agent, kSmall.size());
  EXPECT_EQ("300\nBinary code transferred. Cannot create script file\n\r", transfer.Finish(kSmall));
  EXPECT_FALSE(fs::exists(agent.NewProgram()));
  EXPECT_TRUE(agent.Untouched());
  EXPECT_EQ("200\n\r", TTransfer(agent, 1000).Answer());
}

TEST(UpgradeTest, LosesNothingOnAFullDisk) {
  const TTempDir folder;
  TPrivateMounts mounts;
  if (!mounts.Usable()) GTEST_SKIP() << "mounting takes the superuser";
  ASSERT_TRUE(mounts.AddMemory(folder.Path(), 64 * 1024));
  TUpgradedAgent agent({}, folder.Path());
  const struct {
    const char* name;
    size_t size;
    long roomBytes;
    const char* answer;
    bool leftInPlace;
  } cases[] = {
      {"more than the disk holds", 100000, 64 * 1024, "300\nWrite error\n\r", true},
      {"less than a stream's buffer", 1500, 0, "300\nWrite error\n\r", true},
      {"no room for the script", 4096, 4096,
       "300\nBinary code transferred. Cannot create script file\n\r", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.roomBytes < 64 * 1024) FillUp(folder.Path(), c.roomBytes);
    const std::string program = Pattern(c.size);
    TTransfer transfer(agent, program.size());
    ASSERT_EQ("200\n\r", transfer.Answer());
    transfer.Peer().Send(program + Trailer(program));
    EXPECT_EQ(c.answer, transfer.Receive());
    EXPECT_EQ(c.leftInPlace, fs::exists(agent.NewProgram()));
    EXPECT_FALSE(fs::exists(agent.Script()));
    for (const char* file : {"qov__.upd", "filler"}) fs::remove(folder.Path(file));
  }
  EXPECT_EQ("200", agent->Ask("GetInfo").code);
  EXPECT_TRUE(agent.Untouched());
}

TEST(UpgradeTest, LivesOnWhenTheScriptCannotStart) {
  const TTempDir folder;
  TPrivateMounts mounts;
  if (!mounts.Usable()) GTEST_SKIP() << "mounting takes the superuser";
  ASSERT_TRUE(mounts.AddMemory(folder.Path(), 1024 * 1024, MS_NOEXEC));
  TUpgradedAgent agent({}, folder.Path());
  EXPECT_EQ("200\n\r", TTransfer(agent, kSmall.size()).Finish(kSmall));
  EXPECT_TRUE(agent->WaitFor("Upgrade request received. Executing..\n"));
  EXPECT_TRUE(agent->WaitFor("Error: cannot start upgrading script\n"));
  EXPECT_TRUE(agent->WaitForPort(false));
  const long before = agent->CpuMs();
  EXPECT_EQ(-1, agent->Wait(Repeats(1500, 5000)));
  EXPECT_GT(200, agent->CpuMs() - before);
  EXPECT_TRUE(agent.Untouched());
}

}  // namespace

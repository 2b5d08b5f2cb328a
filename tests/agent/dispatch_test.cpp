#include "agent/dispatch.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <string.h>

#include "support/handlercall.h"
#include "support/scopes.h"
#include "support/text.h"

namespace {

using TSet = TQovSettings;

class DispatchTest : public testing::Test {
 protected:
  DispatchTest() { Clear(); }
  ~DispatchTest() override { Clear(); }

  /// The answer to a request, with a "!" in front when the command was not recognised.
  std::string Process(const std::string& text) {
    VxRequest request;
    request = text.c_str();
    ThreadParams params{-1, {}};
    inet_pton(AF_INET, "127.0.0.1", &params.address);
    const int recognised = ProcessVxRequest(request, reply, flags, params, upgrade);
    return (recognised == 1 ? "" : "!") + ToStd(reply);
  }

  QovReply reply;
  TQovFlags flags;
  UpgradeRec upgrade;

 private:
  static void Clear() {
    QovFlags.upgrading = 0;
    SettleTempFolder(std::nullopt);
    ChangeSettings([](TSet& settings) { settings = TSet(); });
  }
};

TEST_F(DispatchTest, RunsTheCommandOfTheName) {
  constexpr char kNotApplicable[] = "500\nNot applicable for UNIX/Linux";
  constexpr char kNotImplemented[] = "500\nnot implemented yet";
  constexpr char kEnd[] = "EndOfTransmission signal missed\n";
  constexpr char kVoid[] = "Void request received\n";
  const struct {
    const char* text;
    int TSet::*flag;    // the only one set
    const char* reply;  // how it begins
    const char* message = "";
  } cases[] = {
      {"GetInfo\n", nullptr, "!502\n", kEnd},
      {"", nullptr, "!502\n", kEnd},
      {"\r", nullptr, "!500\n", kVoid},
      {"  \n1\n\r", nullptr, "!500\n", kVoid},
      {"getinfo\n\r", nullptr, "!500\n", "Unknown command \"getinfo\"\n"},
      {"%s%n\n\r", nullptr, "!500\n", "Unknown command \"%s%n\"\n"},
      {"TEST-UNC\r", &TSet::unc, "501"},
      {"TEST-DiskSpace\r", nullptr, kNotApplicable},
      {"TEST-FolderSize\r", &TSet::foldersize, "200"},
      {"TEST-FileExists\r", &TSet::fileexists, "301"},
      {"TEST-FileCompare\r", &TSet::comparefiles, "301"},
      {"TEST-FileCRC\r", &TSet::filecrc, "301"},
      {"TEST-CountFiles\r", &TSet::countfiles, "200"},
      {"TEST-Process\r", &TSet::process, "301\nProcCnt"},
      {"TEST-Service\r", nullptr, kNotApplicable},
      {"TEST-NTLog\r", nullptr, kNotApplicable},
      {"TEST-CPU\r", &TSet::cpuusage, "301"},
      {"TEST-PerfCounter\r", nullptr, kNotApplicable},
      {"TEST-Script\r", nullptr, kNotImplemented},
      {"TEST-SNMP\r", nullptr, kNotImplemented},
      {"TEST-ExternalPrg\r", &TSet::external, "501"},
      {"TEST-Ping\r", nullptr, kNotImplemented},
      {"TEST-TCP\r", &TSet::tcp, "301"},
      {"TEST-UDP\r", &TSet::udp, "501"},
      {"TEST-TextLog\n\nx\r", &TSet::textlog, "301"},
      {"TEST-TextLog2\n\nx\r", &TSet::textlog, "501"},
      {"TEST-ShellScript\r", &TSet::shellscript, "301"},
      {"ACT-ExternalCmd\r", &TSet::executeaction, "501"},
      {"ACT-TCPUDPsend\r", &TSet::tcpudpaction, "501"},
      {"ACT-Syslog\r", &TSet::syslogaction, "501"},
      {"GetProcessesList\r", &TSet::process, "301\nProcList"},
      {"GetServicesList\r", nullptr, kNotApplicable},
      {"GetEventLogFiles\r", nullptr, kNotApplicable},
      {"GetEventLogSources\r", nullptr, kNotApplicable},
      {"GetDriveList\r", nullptr, kNotImplemented},
      {"GetFilesList\r", &TSet::textlog, "200"},
      {"GetInfo\r", nullptr, "200\nAgent"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const TEnabledTests own(0, c.flag);
    const TMessageCapture messages;
    EXPECT_EQ(c.reply, Process(c.text).substr(0, strlen(c.reply)));
    EXPECT_EQ(c.message, messages.Texts());
  }
}

TEST_F(DispatchTest, RefusesWithoutTheRight) {
  const std::pair<std::string, const char*> cases[] = {
      {"GetSettings", "200\n"}, {"SetSettings", "300\n"}, {"ReloadCfg", "300\n"},
      {"QUIT", "200\n"},        {"ReloadApp", "200\n"},   {"UpgradeCode", "501\n"},
  };
  for (const auto& [name, done] : cases) {
    SCOPED_TRACE(name);
    const bool update = name == "UpgradeCode";
    const auto ask = [&](int allow, const char* list) {
      ChangeSettings([&](TSet& settings) {
        settings = TSet();
        // The other right does not help.
        settings.allowmanage = settings.allowupdates = 1;
        settings.manageaddr = settings.updateaddr = "127.0.0.1";
        (update ? settings.allowupdates : settings.allowmanage) = allow;
        (update ? settings.updateaddr : settings.manageaddr) = list;
      });
      return Process(name + "\n\r").substr(0, 4);
    };
    EXPECT_EQ("600\n", ask(0, "127.0.0.1"));
    EXPECT_EQ("600\n", ask(1, "127.0.0.2"));
    EXPECT_EQ(0u, flags.terminate + flags.reload + upgrade.active);
    EXPECT_EQ(done, ask(1, "127.0.0.1"));
    EXPECT_EQ(name == "QUIT", flags.terminate.exchange(0) == 1);
    EXPECT_EQ(name == "ReloadApp", flags.reload.exchange(0) == 1);
  }
}

TEST_F(DispatchTest, ReadsTheAnnouncedSizeSaturated) {
  const TTempDir folder;
  const TEnvironment tmp("TMPDIR", folder.Path().c_str());
  ChangeSettings([](TSet& settings) {
    settings.allowupdates = 1;
    settings.updateaddr = "127.0.0.1";
  });
  const std::string refused = "501\nWrong file parameter(s)";
  const std::pair<const char*, std::string> cases[] = {
      {"100.9", refused}, {"10485760", refused}, {"nan", refused},   {"inf", refused},
      {"-inf", refused},  {"1e400", refused},    {"", refused},      {"-1e300", refused},
      {"101", "200\n"},   {"10485759", "200\n"}, {"101.9", "200\n"},
  };
  for (const auto& [size, answer] : cases) {
    SCOPED_TRACE(size);
    upgrade = UpgradeRec();
    QovFlags.upgrading = 0;
    EXPECT_EQ(answer, Process(std::string("UpgradeCode\n") + size + "\n\r"));
    EXPECT_EQ(1u, upgrade.active);  // the claim is kept
    EXPECT_EQ("302\n", Process("UpgradeCode\n1000\n\r"));
  }
}

}  // namespace

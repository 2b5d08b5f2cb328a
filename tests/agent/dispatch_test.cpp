#include "agent/dispatch.h"

#include "agent/wake.h"
#include "support/handlercall.h"

struct DispatchTest : TSettingsTest {
  ~DispatchTest() override { QovFlags.upgrading = 0; }
  /// The answer to a request, with a "!" in front when the command was not recognised.
  std::string Process(const std::string& text) {
    VxRequest request;
    request = text.c_str();
    ThreadParams params{-1, {htonl(INADDR_LOOPBACK)}};
    const int recognised = ProcessVxRequest(request, reply, flags, params, upgrade);
    return (recognised == 1 ? "" : "!") + ToStd(reply);
  }

  QovReply reply;
  TQovFlags flags;
  UpgradeRec upgrade;
};

TEST_F(DispatchTest, RunsTheCommandOfTheName) {
  // Its name, the only enable that is on, and how it answers an empty first parameter.
  std::istringstream commands(
      "TEST-UNC unc 501 TEST-DiskSpace - 500Not TEST-FolderSize foldersize 200 TEST-FileExists "
      "fileexists 301 TEST-FileCompare comparefiles 301 TEST-FileCRC filecrc 301 "
      "TEST-CountFiles countfiles 200 TEST-Process process 301ProcCnt TEST-Service - 500Not "
      "TEST-NTLog - 500Not TEST-CPU cpuusage 301 TEST-PerfCounter - 500Not TEST-Script - 500not "
      "TEST-SNMP - 500not TEST-ExternalPrg external 501 TEST-Ping - 500not TEST-TCP tcp 501 "
      "TEST-UDP udp 501 TEST-TextLog textlog 301 TEST-TextLog2 textlog 501 TEST-ShellScript "
      "shellscript 301 ACT-ExternalCmd executeaction 501 ACT-TCPUDPsend tcpudpaction 501 "
      "ACT-Syslog syslogaction 501 GetProcessesList process 301ProcList GetServicesList - "
      "500Not GetEventLogFiles - 500Not GetEventLogSources - 500Not GetDriveList - 500not "
      "GetFilesList textlog 200 GetInfo - 200Agent");
  for (std::string name, enable, said; commands >> name >> enable >> said;) {
    const TSettingKey* key = FindSettingKey(enable.c_str());
    const auto field = key != nullptr ? key->field.number : nullptr;
    const TEnabledTests own(0, field);
    EXPECT_EQ(said, Process(" " + name + " \n\nx\r").erase(3, 1).substr(0, said.size())) << name;
    const bool several = name == "GetFilesList";  // which each check of files lets be listed
    const TEnabledTests others(!several, several ? nullptr : field);
    const std::string refusal = name[0] == 'A' ? "operation is not allowed" : "test is not allowed";
    EXPECT_TRUE(key == nullptr || Process(name + "\n\r") == "600\n" + refusal) << name;
  }
  EXPECT_EQ("500\nNot applicable for UNIX/Linux", Process("TEST-NTLog\r"));
  EXPECT_EQ("500\nnot implemented yet", Process("TEST-Ping\r"));
  EXPECT_EQ("!502\n", Process("GetInfo\n"));
  for (const char* text : {"  \n1\n\r", "\r", "getinfo\n\r"}) EXPECT_EQ("!500\n", Process(text));
}

TEST_F(DispatchTest, RefusesWithoutTheRight) {
  const TEnvironment tmp("TMPDIR", folder.Path().c_str());
  const std::pair<std::string, const char*> cases[] = {
      {"GetSettings", "200\n"}, {"SetSettings", "300\n"}, {"ReloadCfg", "300\n"},
      {"QUIT", "200\n"},        {"ReloadApp", "200\n"},   {"UpgradeCode", "501\n"}};
  for (const auto& [name, done] : cases) {
    SCOPED_TRACE(name);
    const bool update = name == "UpgradeCode";
    const auto ask = [&](int allow, const char* list) {
      ChangeSettings([&](TQovSettings& settings) {
        settings.allowmanage = settings.allowupdates = 1;  // the other right does not help
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
  // The announced size of an upgrade, saturated; behind a '!' a wrong one.
  std::istringstream sizes("101 10485759 101.9 !100.9 !10485760 !nan !inf !1e400 !-1e300 !");
  for (std::string size; sizes >> size;) {
    const bool wrong = size[0] == '!';
    upgrade = UpgradeRec();
    QovFlags.upgrading = 0;
    EXPECT_EQ(size + (wrong ? "501\nWrong file parameter(s)" : "200\n"),
              size + Process("UpgradeCode\n" + size.substr(wrong) + "\n\r"));
    EXPECT_EQ("302\n", Process("UpgradeCode\n1000\n\r")) << "the claim is kept";
  }
}

TEST(WakeTest, KeepsTheErrorNumber) {
  errno = EDOM;
  WakeMainLoop();  // fails, as nothing is open
  EXPECT_EQ(EDOM, errno);
}

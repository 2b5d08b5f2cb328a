#include "config/info.h"

#include <gtest/gtest.h>
#include <sys/utsname.h>

#include "config/settings.h"
#include "config/status.h"
#include "support/settingsguard.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

class InfoTest : public testing::Test {
 protected:
  InfoTest() {
    folder
        .File("qov.cfg", "port=1055\npassword=secret\nqovpath=" + folder.File("agent") +
                             "\ncomment=100%s\nfilterlist=127.0.0.1 10.0.0.1\nfiltermarks=10\n"
                             "shellscript=0\nsyslogaction=1\ntmpdir=" +
                             folder.Path() + "\n")
        .copy(QovSettings.configfile, sizeof QovSettings.configfile - 1);
    EXPECT_EQ(LoadOptions(err), 1);
    AgentStatus.ActiveConnections = 1;
    AgentStatus.OpenedConnections = 3000000000u;
    AgentStatus.FailedConnections = 2;
  }
  ~InfoTest() override {
    AgentStatus.ActiveConnections = AgentStatus.OpenedConnections = 0;
    AgentStatus.FailedConnections = 0;
  }

  /// The whole reply to `text`, which holds the lines behind the command.
  std::string Reply(void (*handler)(const VxRequest&, QovReply&), const std::string& text) {
    VxRequest params;
    params = ToString(text);
    QovReply reply;
    handler(params, reply);
    return ToStd(reply);
  }
  std::string Set(const std::string& text) { return Reply(SetAgentSettings, text); }

  TSettingsGuard guard;
  TTempDir folder;
  String err;
};

std::string ExpectedInfo() {
  utsname host;
  uname(&host);
  return std::string(
             "200\nAgentName=WQ Orvane\nAgentPlatform=Linux (Red Hat, Mandrake, SuSE)\n"
             "AgentVersion=1.29j\nAgentDeveloper=The qov developers (https://qov.invalid)\n"
             "Service=0\nActive=0\nActiveConnections=1\nOpenedConnections=-1294967296\n"
             "FailedConnections=2\n"
             "Available tests=TCP%0D%0AUDP%0D%0AUNC%0D%0AFolder Size%0D%0ACount Files%0D%0A"
             "File Availability%0D%0AFile Integrity%0D%0AFile Compare%0D%0AText Log%0D%0A"
             "Process%0D%0ACPU Usage%0D%0AExternal%0D%0AShell Script%0D%0A\n"
             "Enabled tests=1111111111110\nPort=1055\nTimeout=4000\nComment=100%s\n"
             "Available actions=Execute external command%0D%0ATCP/UDP send%0D%0ASyslog%0D%0A\n"
             "Enabled actions=001\nHostName=") +
         host.nodename + "\nRunningOS=" + host.sysname + " " + host.release + " " + host.version +
         "\nOSUpdates=not implemented\n";
}

TEST_F(InfoTest, ReportsTheAgentAndItsSettings) {
  EXPECT_EQ(Reply(GetAgentStatus, "\r"), ExpectedInfo());
  EXPECT_EQ(Reply(GetAgentSettings, "\r"),
            ExpectedInfo() +
                "LogOkConn=0\nLogBadConn=1\nOkLogFile=log1.txt\nBadLogFile=log2.txt\n"
                "Password=secret\nIPFiltering=0\nIPFilterAddr=127.0.0.1%0D%0A10.0.0.1\n"
                "IPFilterMarks=10\nAllowUpdates=1\nAllowRManage=1\nUpdateAddr=127.0.0.1\n"
                "ManageAddr=127.0.0.1\n");
}

TEST_F(InfoTest, StoresAndSavesKnownKeys) {
  EXPECT_EQ(Set("Timeout = 3000\nComment= a=b \nnothing\nport=9\nUnknown=1\n Password =new\n"
                "IPFiltering=1\nIPFilterAddr=10.0.0.1%0D%0A10.0.0.2\nIPFilterMarks=01\n"
                "Shell Script=1\nSyslog=0\nTCP=true\nPort=70000\nDrive Space=0\nService=1\n"
                "UDP=0\r"),
            "200\n");
  const TSettingsView now = CurrentSettings();
  EXPECT_EQ(now->timeout, 3000);
  EXPECT_EQ(now->comment, "a=b");
  EXPECT_EQ(now->port, 70000);
  EXPECT_EQ(now->password, "new");
  EXPECT_EQ(now->filteractive, 1);
  EXPECT_EQ(now->effectivefilter, "\r\n10.0.0.2\r\n");
  EXPECT_EQ(now->shellscript, 0) << "reported, but not to be set";
  EXPECT_EQ(now->syslogaction, 0);
  EXPECT_EQ(now->tcp, 0) << "only 1 is true";
  EXPECT_EQ(now->freespace, 0);
  EXPECT_EQ(now->service, 1);
  EXPECT_EQ(now->udp, 1) << "a last line without a line feed is no parameter";
  const std::string saved = ReadFile(folder.Path("qov.cfg"));
  for (const char* line : {"port=70000\r\n", "timeout=3000\r\n", "password=new\r\n",
                           "filterlist=10.0.0.1 10.0.0.2\r\n", "shellscript=0\n"}) {
    EXPECT_NE(saved.find(line), std::string::npos) << line;
  }
}

TEST_F(InfoTest, EveryRemoteKeyShowsInTheFile) {
  const char* const keys[][2] = {
      {"LogOkConn=1", "logsuccess=1"},
      {"LogBadConn=0", "logfails=0"},
      {"OkLogFile=o", "oklogfile=o"},
      {"BadLogFile=b", "badlogfile=b"},
      {"Ping=0", "ping=0"},
      {"UNC=0", "unc=0"},
      {"Folder Size=0", "foldersize=0"},
      {"Count Files=0", "countfiles=0"},
      {"File Availability=0", "fileexists=0"},
      {"File Compare=0", "comparefiles=0"},
      {"Text Log=0", "textlog=0"},
      {"File Integrity=0", "filecrc=0"},
      {"Process=0", "process=0"},
      {"CPU Usage=0", "cpuusage=0"},
      {"Script=0", "script=0"},
      {"External=0", "external=0"},
      {"TCP/UDP send=1", "tcpudpaction=1"},
      {"Execute external command=1", "executeaction=1"},
      {"AllowUpdates=0", "allowupdates=0"},
      {"AllowRManage=0", "allowmanage=0"},
      {"UpdateAddr=u", "updateaddr=u"},
      {"ManageAddr=m", "manageaddr=m"},
  };
  std::string request;
  for (const auto& key : keys) request += std::string(key[0]) + "\n";
  EXPECT_EQ(Set(request), "200\n");
  const std::string saved = ReadFile(folder.Path("qov.cfg"));
  for (const auto& key : keys) {
    EXPECT_NE(saved.find("\n" + std::string(key[1]) + "\r\n"), std::string::npos) << key[0];
  }
}

TEST_F(InfoTest, AFailedSaveKeepsTheChangeInMemory) {
  folder.Folder("qov.cfg.New");
  EXPECT_EQ(Set("Comment=new\n"),
            "300\nCannot create new configuration file '" + folder.Path("qov.cfg.New") + "'");
  EXPECT_EQ(CurrentSettings()->comment, "new");
}

}  // namespace

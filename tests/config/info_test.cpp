#include "config/info.h"

#include <sys/utsname.h>

#include "config/status.h"
#include "support/settingstest.h"

namespace {

class InfoTest : public TSettingsTest {
 protected:
  InfoTest() {
    QovSettings = Named(mandatory + "comment=100%s\nfilterlist=127.0.0.1 10.0.0.1\n" +
                        "filtermarks=10\nshellscript=0\nsyslogaction=1\n");
    EXPECT_EQ(LoadOptions(err), 1);
  }
  /// The whole reply to the lines behind the command.
  static std::string Reply(void (*handler)(const VxRequest&, QovReply&), const char* lines) {
    VxRequest params;
    params = lines;
    QovReply reply;
    handler(params, reply);
    return ToStd(reply);
  }
  bool FileHas(const std::string& line) const {
    return ("\n" + File()).find("\n" + line + "\r\n") != std::string::npos;
  }
};

TEST_F(InfoTest, ReportsTheAgentAndItsSettings) {
  AgentStatus.ActiveConnections = 1;
  AgentStatus.OpenedConnections = 3000000000u;
  utsname host;
  uname(&host);
  const std::string info =
      std::string(
          "200\nAgentName=WQ Orvane\nAgentPlatform=Linux (Red Hat, Mandrake, SuSE)\n"
          "AgentVersion=1.29j\nAgentDeveloper=The qov developers (https://qov.invalid)\n"
          "Service=0\nActive=0\nActiveConnections=1\nOpenedConnections=-1294967296\n"
          "FailedConnections=0\n"
          "Available tests=TCP%0D%0AUDP%0D%0AUNC%0D%0AFolder Size%0D%0ACount Files%0D%0A"
          "File Availability%0D%0AFile Integrity%0D%0AFile Compare%0D%0AText Log%0D%0A"
          "Process%0D%0ACPU Usage%0D%0AExternal%0D%0AShell Script%0D%0A\n"
          "Enabled tests=1111111111110\nPort=1\nTimeout=4000\nComment=100%s\n"
          "Available actions=Execute external command%0D%0ATCP/UDP send%0D%0ASyslog%0D%0A\n"
          "Enabled actions=001\nHostName=") +
      host.nodename + "\nRunningOS=" + host.sysname + " " + host.release + " " + host.version +
      "\nOSUpdates=not implemented\n";
  EXPECT_EQ(Reply(GetAgentStatus, "\r"), info);
  EXPECT_EQ(Reply(GetAgentSettings, "\r"),
            info +
                "LogOkConn=0\nLogBadConn=1\nOkLogFile=log1.txt\nBadLogFile=log2.txt\n"
                "Password=p\nIPFiltering=0\nIPFilterAddr=127.0.0.1%0D%0A10.0.0.1\n"
                "IPFilterMarks=10\nAllowUpdates=1\nAllowRManage=1\nUpdateAddr=127.0.0.1\n"
                "ManageAddr=127.0.0.1\n");
  AgentStatus.ActiveConnections = AgentStatus.OpenedConnections = 0;
}

TEST_F(InfoTest, StoresAndSavesEachKnownKey) {
  const char* const cases[][2] = {
      {"Comment= a=b \n", "comment=a=b"},
      {"Port=70000\n", "port=70000"},
      {"Timeout = 3000\n", "timeout=3000"},
      {" Password =new\n", "password=new"},
      {"LogOkConn=1\n", "logsuccess=1"},
      {"LogBadConn=0\n", "logfails=0"},
      {"OkLogFile=o\n", "oklogfile=o"},
      {"BadLogFile=b\n", "badlogfile=b"},
      {"Ping=0\n", "ping=0"},
      {"TCP=true\n", "tcp=0"},
      {"UDP=0\n", "udp=0"},
      {"UNC=0\n", "unc=0"},
      {"Drive Space=0\n", "freespace=0"},
      {"Folder Size=0\n", "foldersize=0"},
      {"Count Files=0\n", "countfiles=0"},
      {"File Availability=0\n", "fileexists=0"},
      {"File Compare=0\n", "comparefiles=0"},
      {"Text Log=0\n", "textlog=0"},
      {"File Integrity=0\n", "filecrc=0"},
      {"Process=0\n", "process=0"},
      {"CPU Usage=0\n", "cpuusage=0"},
      {"Script=0\n", "script=0"},
      {"External=0\n", "external=0"},
      {"Execute external command=1\n", "executeaction=1"},
      {"TCP/UDP send=1\n", "tcpudpaction=1"},
      {"AllowUpdates=0\n", "allowupdates=0"},
      {"AllowRManage=0\n", "allowmanage=0"},
      {"UpdateAddr=u\n", "updateaddr=u"},
      {"ManageAddr=m\n", "manageaddr=m"},
      {"IPFiltering=1\n", "filteractive=1"},
      {"IPFilterMarks=01\n", "filtermarks=01"},
      {"IPFilterAddr=8%0D%0A9\n", "filterlist=8 9"},
  };
  for (const auto& [request, line] : cases) {
    EXPECT_FALSE(FileHas(line)) << line;
    EXPECT_EQ(Reply(SetAgentSettings, request), "200\n");
    EXPECT_TRUE(FileHas(line)) << line;
  }
  EXPECT_EQ(CurrentSettings()->effectivefilter, "\r\n9\r\n");
}

TEST_F(InfoTest, IgnoresWhatIsNoKnownParameter) {
  // Deliberate: a last line without a line feed is no parameter, and the enable of shell scripts
  // is reported but not to be set.
  EXPECT_EQ(Reply(SetAgentSettings, "nothing\ncomment=x\nShell Script=1\nSyslog=0\nUDP=0\r"),
            "200\n");
  EXPECT_EQ(Values(*CurrentSettings(), {"comment", "shellscript", "syslogaction", "udp"}),
            "100%s 0 0 1 ");
}

TEST_F(InfoTest, AFailedSaveKeepsTheChangeInMemory) {
  EXPECT_EQ(Reply(SetAgentSettings, "Comment=new\n"),
            "300\nCannot create new configuration file '" + folder.Folder("qov.cfg.New") + "'");
  EXPECT_EQ(CurrentSettings()->comment, "new");
}

}  // namespace

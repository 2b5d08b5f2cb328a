#include "config/info.h"

#include <sys/utsname.h>

#include <sstream>

#include "config/status.h"
#include "support/scopes.h"

namespace {

class InfoTest : public TSettingsTest {
 protected:
  InfoTest() {
    QovSettings = Named(mandatory + "comment=100%s\nfilterlist=127.0.0.1 10.0.0.1\n" +
                        "filtermarks=10\nshellscript=0\nsyslogaction=1\r\n");
    EXPECT_EQ(LoadOptions(err), 1);
  }
  /// The whole reply to the lines behind the command.
  static std::string Reply(void (*handler)(const VxRequest&, QovReply&), const std::string& lines) {
    VxRequest params;
    params = ToString(lines);
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
  constexpr char kInfo[] =
      "200\nAgentName=WQ Orvane\nAgentPlatform=Linux (Red Hat, Mandrake, "
      "SuSE)\nAgentVersion=1.29j\n"
      "AgentDeveloper=The qov developers (https://qov.invalid)\nService=0\nActive=0\n"
      "ActiveConnections=1\nOpenedConnections=-1294967296\nFailedConnections=0\n"
      "Available tests=TCP%0D%0AUDP%0D%0AUNC%0D%0AFolder Size%0D%0ACount Files%0D%0A"
      "File Availability%0D%0AFile Integrity%0D%0AFile Compare%0D%0AText Log%0D%0AProcess%0D%0A"
      "CPU Usage%0D%0AExternal%0D%0AShell Script%0D%0A\nEnabled tests=1111111111110\nPort=1\n"
      "Timeout=4000\nComment=100%s\nAvailable actions=Execute external command%0D%0A"
      "TCP/UDP send%0D%0ASyslog%0D%0A\nEnabled actions=001\nHostName=";
  const std::string info = std::string(kInfo) + host.nodename + "\nRunningOS=" + host.sysname +
                           " " + host.release + " " + host.version +
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

// Parameter, '>', and the line that it makes of the file.
constexpr char kStored[] =
    "Comment=\xC9 a=b \xE9 >comment=\xC9 a=b \xE9\nPort=70000>port=70000\n"
    "Timeout = 3000>timeout=3000\n Password =new>password=new\nLogOkConn=1>logsuccess=1\n"
    "LogBadConn=0>logfails=0\nOkLogFile=o>oklogfile=o\nBadLogFile=b>badlogfile=b\nPing=0>ping=0\n"
    "TCP=true>tcp=0\nUDP=0>udp=0\nUNC=0>unc=0\nDrive Space=0>freespace=0\n"
    "Folder Size=0>foldersize=0\nCount Files=0>countfiles=0\nFile Availability=0>fileexists=0\n"
    "File Compare=0>comparefiles=0\nText Log=0>textlog=0\nFile Integrity=0>filecrc=0\n"
    "Process=0>process=0\nCPU Usage=0>cpuusage=0\nScript=0>script=0\nExternal=0>external=0\n"
    "Execute external command=1>executeaction=1\nTCP/UDP send=1>tcpudpaction=1\n"
    "Syslog=0>syslogaction=0\nAllowUpdates=0>allowupdates=0\nAllowRManage=0>allowmanage=0\n"
    "UpdateAddr=u>updateaddr=u\nManageAddr=m>manageaddr=m\nIPFiltering=1>filteractive=1\n"
    "IPFilterMarks=01>filtermarks=01\nIPFilterAddr=8%0D%0A9>filterlist=8 9\n";

TEST_F(InfoTest, StoresAndSavesEachKnownKey) {
  std::istringstream cases(kStored);
  for (std::string parameter, line; std::getline(std::getline(cases, parameter, '>'), line);) {
    EXPECT_FALSE(FileHas(line)) << line;
    EXPECT_EQ(Reply(SetAgentSettings, parameter + "\n"), "200\n");
    EXPECT_TRUE(FileHas(line)) << line;
  }
  EXPECT_EQ(CurrentSettings()->effectivefilter, "\r\n9\r\n");
  // Of these the file knows nothing.
  for (const char* value : {"0", "1"}) {
    for (const auto& [name, enable] : {std::pair{"Service", &TQovSettings::service},
                                       {"NT Event Log", &TQovSettings::ntlog},
                                       {"Perf Counter", &TQovSettings::perfcounter},
                                       {"SNMP", &TQovSettings::snmp}}) {
      Reply(SetAgentSettings, name + ("=" + std::string(value)) + "\n");
      EXPECT_EQ((*CurrentSettings()).*enable, *value - '0') << name;
    }
  }
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

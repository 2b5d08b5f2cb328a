#include "config/info.h"

#include <sys/utsname.h>

#include "config/status.h"
#include "support/handlercall.h"

using InfoTest = TSettingsTest;

// Parameter, '>', and the line that it makes of the file.
constexpr char kStored[] =
    "Comment=\xC9 a=b \xE9 >comment=\xC9 a=b \xE9\nPort=70000>port=70000\nPing=0>ping=0\n"
    "Timeout = 3000>timeout=3000\n Password =new>password=new\nLogOkConn=1>logsuccess=1\n"
    "LogBadConn=0>logfails=0\nOkLogFile=o>oklogfile=o\nBadLogFile=b>badlogfile=b\nUDP=1>udp=1\n"
    "TCP=true>tcp=0\nUNC=0>unc=0\nDrive Space=0>freespace=0\nFolder Size=1>foldersize=1\n"
    "Count Files=2>countfiles=0\nFile Availability=1>fileexists=1\nText Log=0>textlog=0\n"
    "File Compare=1>comparefiles=1\nFile Integrity=0>filecrc=0\nProcess=1>process=1\n"
    "CPU Usage=0>cpuusage=0\nScript=0>script=0\nExternal=1>external=1\nSyslog=0>syslogaction=0\n"
    "Execute external command=1>executeaction=1\nTCP/UDP send=1>tcpudpaction=1\n"
    "AllowUpdates=0>allowupdates=0\nAllowRManage=0>allowmanage=0\nUpdateAddr=u>updateaddr=u\n"
    "ManageAddr=m>manageaddr=m\nIPFiltering=1>filteractive=1\nIPFilterMarks=01>filtermarks=01\n"
    "IPFilterAddr=8%0D%0A9>filterlist=8 9\n";

TEST_F(InfoTest, ReportsTheAgentAndItsSettingsAndStoresEachKnownKey) {
  QovSettings =
      Named("\n" + mandatory + "comment=1\r00%s\nfilterlist=127.0.0.1 10.0.0.1\nfiltermarks=10\n" +
            "manageaddr=n\nshellscript=0\nsyslogaction=1\r\nudp=0\r\nfoldersize=0\r\n" +
            "fileexists=0\r\ncomparefiles=0\r\nprocess=0\r\nexternal=0\r\n");
  EXPECT_EQ(LoadOptions(err), 1);
  AgentStatus.ActiveConnections = 1;
  AgentStatus.OpenedConnections = 3000000000u;
  utsname host;
  uname(&host);
  const std::string info =
      "200\nAgentName=WQ Orvane\nAgentPlatform=Linux (Red Hat, Mandrake, SuSE)\n"
      "AgentVersion=1.29j\nAgentDeveloper=The qov developers (https://qov.invalid)\nService=0\n"
      "Active=0\nActiveConnections=1\nOpenedConnections=-1294967296\nFailedConnections=0\n"
      "Available tests=TCP%0D%0AUDP%0D%0AUNC%0D%0AFolder Size%0D%0ACount Files%0D%0A"
      "File Availability%0D%0AFile Integrity%0D%0AFile Compare%0D%0AText Log%0D%0AProcess%0D%0A"
      "CPU Usage%0D%0AExternal%0D%0AShell Script%0D%0A\nEnabled tests=1010101010100\nPort=1\n"
      "Timeout=4000\nComment=1\r00%s\nAvailable actions=Execute external command%0D%0A"
      "TCP/UDP send%0D%0ASyslog%0D%0A\nEnabled actions=001\nHostName=" +
      std::string(host.nodename) + "\nRunningOS=" + host.sysname + " " + host.release + " " +
      host.version + "\nOSUpdates=not implemented\n";
  EXPECT_EQ(CallHandler(GetAgentStatus, {}), info);
  EXPECT_EQ(CallHandler(GetAgentSettings, {}),
            info +
                "LogOkConn=0\nLogBadConn=1\nOkLogFile=log1.txt\nBadLogFile=log2.txt\nPassword=p\n"
                "IPFiltering=0\nIPFilterAddr=127.0.0.1%0D%0A10.0.0.1\nIPFilterMarks=10\n"
                "AllowUpdates=1\nAllowRManage=1\nUpdateAddr=127.0.0.1\nManageAddr=n\n");
  std::istringstream cases(kStored);
  for (std::string parameter, line; std::getline(std::getline(cases, parameter, '>'), line);) {
    EXPECT_EQ(File().find("\n" + line + "\r\n"), std::string::npos) << line;
    EXPECT_EQ(CallHandler(SetAgentSettings, {parameter}), "200\n");
    EXPECT_NE(File().find("\n" + line + "\r\n"), std::string::npos) << line;
  }
  EXPECT_EQ(CurrentSettings()->effectivefilter, "\r\n9\r\n");
  // Of these the file knows nothing.
  const auto unsaved = [](const std::string& lines) {
    CallHandler(SetAgentSettings, {lines});
    const TSettingsView now = CurrentSettings();
    return now->service * 1000 + now->ntlog * 100 + now->perfcounter * 10 + now->snmp;
  };
  EXPECT_EQ(unsaved(""), 1);
  EXPECT_EQ(unsaved("Service=1\nNT Event Log=1\nSNMP=0"), 1100);
  EXPECT_EQ(unsaved("NT Event Log=0\nPerf Counter=1"), 1010);
  // No known parameters: deliberately not the enable of shell scripts, nor a last line without end.
  VxRequest unknown;
  unknown = "nothing\ncomment=x\nShell Script=1\nUDP=0\r";
  QovReply reply;
  SetAgentSettings(unknown, reply);
  EXPECT_EQ(Values(*CurrentSettings(), {"comment", "shellscript", "udp"}), "\xC9 a=b \xE9 0 1 ");
  // A save that fails keeps the change.
  EXPECT_EQ(CallHandler(SetAgentSettings, {"Comment=new"}),
            "300\nCannot create new configuration file '" + folder.Folder("qov.cfg.New") + "'");
  EXPECT_EQ(CurrentSettings()->comment, "new");
}

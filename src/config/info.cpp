#include "config/info.h"

#include <sys/utsname.h>

#include "config/remotekeys.h"
#include "config/settings.h"
#include "config/status.h"

namespace {

/// A test or action as "GetInfo" names it, and its enable.
struct TReported {
  const char* name;
  int TQovSettings::*enable;
};

constexpr TReported kTests[] = {
    {"TCP", &TQovSettings::tcp},
    {"UDP", &TQovSettings::udp},
    {"UNC", &TQovSettings::unc},
    {"Folder Size", &TQovSettings::foldersize},
    {"Count Files", &TQovSettings::countfiles},
    {"File Availability", &TQovSettings::fileexists},
    {"File Integrity", &TQovSettings::filecrc},
    {"File Compare", &TQovSettings::comparefiles},
    {"Text Log", &TQovSettings::textlog},
    {"Process", &TQovSettings::process},
    {"CPU Usage", &TQovSettings::cpuusage},
    {"External", &TQovSettings::external},
    {"Shell Script", &TQovSettings::shellscript},
};

constexpr TReported kActions[] = {
    {"Execute external command", &TQovSettings::executeaction},
    {"TCP/UDP send", &TQovSettings::tcpudpaction},
    {"Syslog", &TQovSettings::syslogaction},
};

const char* FlagText(int flag) { return flag != 0 ? "1" : "0"; }

void AddText(QovReply& reply, const char* key, const String& value, int isList = 0) {
  reply.AddStringParam(String(key) + "=" + value, isList);
}

template <size_t kCount>
void AddReported(QovReply& reply, const TQovSettings& settings, const char* what,
                 const TReported (&table)[kCount]) {
  String names;
  String enables;
  for (const TReported& row : table) {
    (names += row.name) += "\r\n";
    enables += FlagText(settings.*row.enable);
  }
  AddText(reply, (String("Available ") + what).CStr(), names, 1);
  AddText(reply, (String("Enabled ") + what).CStr(), enables);
}

void AddCounter(QovReply& reply, const char* key, const std::atomic<uint32_t>& counter) {
  reply.AddVarParams("%s=%d", key, static_cast<int>(counter.load()));
}

void Assign(TQovSettings& settings, const String& parameter) {
  const int equals = parameter.Pos('=');
  if (equals == 0) return;
  const String name = parameter.Copy(1, equals - 1).Trim();
  VxRequest value;  // a text may begin and end with bytes that Trim takes for blanks
  value = parameter.Copy(equals + 1, parameter.Length());
  const String text = value.GetValue(1);
  for (const TRemoteKey& key : kRemoteKeys) {
    if (!(name == key.name)) continue;
    if (key.form == formFlag) {
      settings.*key.field.number = qovDecodeBool(text);
    } else if (key.form == formNumber) {
      settings.*key.field.number = qovDecodeInt(text);
    } else {
      settings.*key.field.text = key.form == formLines ? qovDecodeStrings(text) : text;
    }
  }
}

/// Assigns the parameters in their order. The lines are walked rather than asked for by number, and
/// none is kept, so that many of them cost linear time and no memory.
void AssignAll(TQovSettings& settings, const VxRequest& params) {
  int done = 0;
  // Deliberate: what stands behind the last line feed is no parameter.
  while (const int length = mempos(params.CStr() + done, params.Length() - done, "\n", 1)) {
    Assign(settings, params.Copy(done + 1, length - 1));
    done += length;
  }
}

}  // namespace

void GetAgentStatus(const VxRequest&, QovReply& reply) {
  const TSettingsView settings = CurrentSettings();
  reply.SetResult(kResultDone);
  AddText(reply, "AgentName", AgentStatus.AgentName);
  AddText(reply, "AgentPlatform", AgentStatus.AgentPlatform);
  AddText(reply, "AgentVersion", AgentStatus.AgentVersion);
  AddText(reply, "AgentDeveloper", AgentStatus.AgentDeveloper);
  AddText(reply, "Service", FlagText(AgentStatus.Service));
  AddText(reply, "Active", FlagText(AgentStatus.Active));
  AddCounter(reply, "ActiveConnections", AgentStatus.ActiveConnections);
  AddCounter(reply, "OpenedConnections", AgentStatus.OpenedConnections);
  AddCounter(reply, "FailedConnections", AgentStatus.FailedConnections);
  AddReported(reply, *settings, "tests", kTests);
  reply.AddVarParams("Port=%d", settings->port);
  reply.AddVarParams("Timeout=%d", settings->timeout);
  AddText(reply, "Comment", settings->comment);
  AddReported(reply, *settings, "actions", kActions);
  utsname host;
  if (uname(&host) != 0) return;
  AddText(reply, "HostName", host.nodename);
  AddText(reply, "RunningOS", String(host.sysname) + " " + host.release + " " + host.version);
  AddText(reply, "OSUpdates", "not implemented");
}

void GetAgentSettings(const VxRequest& params, QovReply& reply) {
  GetAgentStatus(params, reply);
  const TSettingsView settings = CurrentSettings();
  AddText(reply, "LogOkConn", FlagText(settings->logsuccess));
  AddText(reply, "LogBadConn", FlagText(settings->logfails));
  AddText(reply, "OkLogFile", settings->oklogfile);
  AddText(reply, "BadLogFile", settings->badlogfile);
  AddText(reply, "Password", settings->password);
  AddText(reply, "IPFiltering", FlagText(settings->filteractive));
  AddText(reply, "IPFilterAddr", settings->filterlist, 1);
  AddText(reply, "IPFilterMarks", settings->filtermarks);
  AddText(reply, "AllowUpdates", FlagText(settings->allowupdates));
  AddText(reply, "AllowRManage", FlagText(settings->allowmanage));
  AddText(reply, "UpdateAddr", settings->updateaddr);
  AddText(reply, "ManageAddr", settings->manageaddr);
}

void SetAgentSettings(const VxRequest& params, QovReply& reply) {
  String err;
  if (ChangeAndSaveSettings([&](TQovSettings& settings) { AssignAll(settings, params); }, err)) {
    reply.SetResult(kResultDone);
  } else {
    reply.SetResult(kResultFailed) += err;
  }
}

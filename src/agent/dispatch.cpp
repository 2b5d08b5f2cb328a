#include "agent/dispatch.h"

#include <limits>

#include "agent/unsupported.h"
#include "checks/actions.h"
#include "checks/files/diskfolder.h"
#include "checks/files/filetests.h"
#include "checks/log/textlog.h"
#include "checks/nettests.h"
#include "checks/process/proctests.h"
#include "config/addrfilter.h"
#include "config/info.h"
#include "config/settings.h"
#include "core/message.h"

namespace {

constexpr int64_t kMinUpgradeBytes = 101;
constexpr int64_t kMaxUpgradeBytes = 10485759;

/// What a command works with.
struct TCall {
  const VxRequest& params;
  QovReply& reply;
  TQovFlags& flags;
  UpgradeRec& upgrade;
};

void ReloadConfiguration(const TCall& call) {
  String error;
  if (LoadOptions(error) != 0) {
    call.reply.SetResult(kResultDone) += "Ok";
  } else {
    call.reply.SetResult(kResultFailed) += error;
  }
}

void Quit(const TCall& call) {
  call.reply.SetResult(kResultDone) += "Ok";
  call.flags.terminate = 1;
}

void ReloadApplication(const TCall& call) {
  call.reply.SetResult(kResultDone) += "Ok";
  call.flags.reload = 1;
}

/// The announced size, saturated; what is not a number is 0.
int64_t AnnouncedSize(const VxRequest& params) {
  constexpr double kLimit = 9e18;
  const double size = qovDecodeInt64(params.GetParam(1, 1));
  if (size >= kLimit) return std::numeric_limits<int64_t>::max();
  if (size <= -kLimit) return std::numeric_limits<int64_t>::min();
  return size == size ? static_cast<int64_t>(size) : 0;
}

void StartUpgrade(const TCall& call) {
  UpgradeRec& upgrade = call.upgrade;
  if (!upgrade.RequestUpgrade(call.params.GetSessionKey())) {
    call.reply.SetResult(kResultBusy);
    return;
  }
  upgrade.expectedSize = AnnouncedSize(call.params);
  upgrade.sized = 1;
  if (upgrade.expectedSize < kMinUpgradeBytes || upgrade.expectedSize > kMaxUpgradeBytes) {
    // Deliberate: the claim is kept and the session stays in data mode.
    call.reply.SetResult(kResultWrongParameter) += "Wrong file parameter(s)";
    return;
  }
  String error;
  if (DoUpgrading(upgrade, nullptr, 0, error) != 0) {
    call.reply.SetResult(kResultDone);
  } else {
    call.reply.SetResult(kResultFailed) += error;
  }
}

/// A check or an action: all it needs is its parameters.
template <void (*handler)(const VxRequest& params, QovReply& reply)>
void Run(const TCall& call) {
  handler(call.params, call.reply);
}

enum TRight { rightAny, rightManage, rightUpdate };

struct TCommand {
  const char* name;  // compared exactly, case included
  TRight right;
  void (*run)(const TCall& call);
};
constexpr TCommand kCommands[] = {
    {"TEST-UNC", rightAny, Run<ProcessTest_UNC>},
    {"TEST-DiskSpace", rightAny, Run<ProcessTest_DiskSpace>},
    {"TEST-FolderSize", rightAny, Run<ProcessTest_FolderSize>},
    {"TEST-FileExists", rightAny, Run<ProcessTest_FileExists>},
    {"TEST-FileCompare", rightAny, Run<ProcessTest_FileCompare>},
    {"TEST-FileCRC", rightAny, Run<ProcessTest_FileCRC>},
    {"TEST-CountFiles", rightAny, Run<ProcessTest_CountFiles>},
    {"TEST-Process", rightAny, Run<ProcessTest_Process>},
    {"TEST-Service", rightAny, Run<ProcessTest_Service>},
    {"TEST-NTLog", rightAny, Run<ProcessTest_NTLog>},
    {"TEST-CPU", rightAny, Run<ProcessTest_CPU>},
    {"TEST-PerfCounter", rightAny, Run<ProcessTest_Perf>},
    {"TEST-Script", rightAny, Run<ProcessTest_Script>},
    {"TEST-SNMP", rightAny, Run<ProcessTest_SNMP>},
    {"TEST-ExternalPrg", rightAny, Run<ProcessTest_External>},
    {"TEST-Ping", rightAny, Run<ProcessTest_Ping>},
    {"TEST-TCP", rightAny, Run<ProcessTest_TCP>},
    {"TEST-UDP", rightAny, Run<ProcessTest_UDP>},
    {"TEST-TextLog", rightAny, Run<ProcessTest_TextLog>},
    {"TEST-TextLog2", rightAny, Run<ProcessTest_TextLog2>},
    {"TEST-ShellScript", rightAny, Run<ProcessTest_ShellScript>},
    {"ACT-ExternalCmd", rightAny, Run<ProcessAct_ExternalCmd>},
    {"ACT-TCPUDPsend", rightAny, Run<ProcessAct_TCPSend>},
    {"ACT-Syslog", rightAny, Run<ProcessAct_Syslog>},
    {"GetProcessesList", rightAny, Run<ProcessInfo_ProcessesList>},
    {"GetServicesList", rightAny, Run<ProcessInfo_ServicesList>},
    {"GetEventLogFiles", rightAny, Run<ProcessInfo_EventLogFiles>},
    {"GetEventLogSources", rightAny, Run<ProcessInfo_EventLogSources>},
    {"GetDriveList", rightAny, Run<ProcessInfo_GetDriveList>},
    {"GetFilesList", rightAny, Run<ProcessInfo_GetFileList>},
    {"GetInfo", rightAny, Run<GetAgentStatus>},
    {"GetSettings", rightManage, Run<GetAgentSettings>},
    {"SetSettings", rightManage, Run<SetAgentSettings>},
    {"ReloadCfg", rightManage, ReloadConfiguration},
    {"QUIT", rightManage, Quit},
    {"ReloadApp", rightManage, ReloadApplication},
    {"UpgradeCode", rightUpdate, StartUpgrade},
};

bool HasRight(TRight right, in_addr peer) {
  if (right == rightAny) return true;
  const TSettingsView settings = CurrentSettings();
  const bool manage = right == rightManage;
  String fault;
  return (manage ? settings->allowmanage : settings->allowupdates) != 0 &&
         IPAllowed(peer.s_addr, manage ? settings->manageaddr : settings->updateaddr, fault) != 0;
}

/// Takes the first line off the request, which leaves the parameters.
/// @return the line, trimmed
String TakeName(VxRequest& request) {
  const int lineEnd = request.Pos('\n');
  String name = lineEnd != 0 ? request.Copy(1, lineEnd - 1) : request;
  if (lineEnd != 0) {
    request.Delete(1, lineEnd);
  } else {
    request = "";
  }
  return name.Trim();
}

/// Answers with the bare code and leaves the reason to the agent's logs.
/// Deliberate: the peer learns the reason from the code only.
int Reject(QovReply& reply, const char* code) {
  reply.SetResult(code);
  return 0;
}

}  // namespace

int ProcessVxRequest(VxRequest& request, QovReply& reply, TQovFlags& flags, ThreadParams params,
                     UpgradeRec& upgrade) {
  if (request.Pos('\r') == 0) {
    showmessage("EndOfTransmission signal missed\n", params.address, msgFail, 0);
    return Reject(reply, kResultIncomplete);
  }
  const String name = TakeName(request);
  if (name.Empty()) {
    showmessage("Void request received\n", params.address, msgFail, 0);
    return Reject(reply, kResultUnknown);
  }
  for (const TCommand& command : kCommands) {
    if (!(name == command.name)) continue;
    if (HasRight(command.right, params.address)) {
      command.run({request, reply, flags, upgrade});
    } else {
      reply.SetResult(kResultRefused);
    }
    return 1;
  }
  showmessage("Unknown command \"%s\"\n", params.address, msgFail, 1, name.CStr());
  return Reject(reply, kResultUnknown);
}

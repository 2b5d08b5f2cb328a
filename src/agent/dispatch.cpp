#include "agent/dispatch.h"

#include <algorithm>

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

/// Commands that belong to another platform. Deliberate: disks are measured by "TEST-UNC" here, so
/// "TEST-DiskSpace" is one of them.
void NotApplicable(QovReply& reply) {
  reply.SetResult(kResultUnknown) += "Not applicable for UNIX/Linux";
}
void ProcessTest_DiskSpace(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessTest_Service(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessTest_NTLog(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessTest_Perf(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessInfo_ServicesList(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessInfo_EventLogFiles(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessInfo_EventLogSources(const VxRequest&, QovReply& reply) { NotApplicable(reply); }

/// Commands that are not there yet.
void NotImplemented(QovReply& reply) { reply.SetResult(kResultUnknown) += "not implemented yet"; }
void ProcessTest_Script(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
void ProcessTest_SNMP(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
void ProcessTest_Ping(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
void ProcessInfo_GetDriveList(const VxRequest&, QovReply& reply) { NotImplemented(reply); }

/// What a command works with.
struct TCall {
  const VxRequest& params;
  QovReply& reply;
  TQovFlags& flags;
  UpgradeRec& upgrade;
};

void ReloadConfiguration(const TCall& call) {
  String error;
  const bool loaded = LoadOptions(error) != 0;
  call.reply.SetResult(loaded ? kResultDone : kResultFailed) += loaded ? "Ok" : error;
}

template <std::atomic<uint32_t> TQovFlags::*flag>
void Raise(const TCall& call) {
  call.reply.SetResult(kResultDone) += "Ok";
  call.flags.*flag = 1;
}

void StartUpgrade(const TCall& call) {
  UpgradeRec& upgrade = call.upgrade;
  if (!upgrade.RequestUpgrade(call.params.GetSessionKey())) {
    call.reply.SetResult(kResultBusy);
    return;
  }
  const double size = qovDecodeInt64(call.params.GetValue(1));
  upgrade.expectedSize = size == size ? static_cast<int64_t>(std::clamp(size, -9e18, 9e18)) : 0;
  upgrade.sized = 1;
  if (upgrade.expectedSize < kMinUpgradeBytes || upgrade.expectedSize > kMaxUpgradeBytes) {
    // Deliberate: the claim is kept and the session stays in data mode, as servers know it.
    call.reply.SetResult(kResultWrongParameter) += "Wrong file parameter(s)";
    return;
  }
  String error;
  const bool opened = DoUpgrading(upgrade, nullptr, 0, error) != 0;
  call.reply.SetResult(opened ? kResultDone : kResultFailed) += error;
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
    {"QUIT", rightManage, Raise<&TQovFlags::terminate>},
    {"ReloadApp", rightManage, Raise<&TQovFlags::reload>},
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

}  // namespace

int ProcessVxRequest(VxRequest& request, QovReply& reply, TQovFlags& flags, ThreadParams params,
                     UpgradeRec& upgrade) {
  // Deliberate: the peer learns the reason from the code only, the rest is for the agent's logs.
  const auto reject = [&reply](const char* code) {
    reply.SetResult(code);
    return 0;
  };
  if (request.Pos('\r') == 0) {
    showmessage("EndOfTransmission signal missed\n", params.address, msgFail, 0);
    return reject(kResultIncomplete);
  }
  const int lineEnd = request.Pos('\n');
  const int length = lineEnd != 0 ? lineEnd : request.Length();
  const String name = request.Copy(1, length).Trim();
  request.Delete(1, length);  // which leaves the parameters
  if (name.Empty()) {
    showmessage("Void request received\n", params.address, msgFail, 0);
    return reject(kResultUnknown);
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
  return reject(kResultUnknown);
}

#include "agent/dispatch.h"

#include <limits>

#include "agent/unsupported.h"
#include "checks/actions.h"
#include "checks/files/diskfolder.h"
#include "checks/files/filelist.h"
#include "checks/files/filetests.h"
#include "checks/log/textlog.h"
#include "checks/nettests.h"
#include "checks/process/proctests.h"
#include "config/addrfilter.h"
#include "config/info.h"
#include "config/settings.h"
#include "core/message.h"
#include "protocol/resultcodes.h"

namespace {

constexpr int64_t kMinUpgradeBytes = 101;
constexpr int64_t kMaxUpgradeBytes = 10485759;

using THandler = void (*)(const VxRequest& params, QovReply& reply);
struct TCommand {
  const char* name;  // compared exactly, case included
  THandler run;
};
constexpr TCommand kCommands[] = {
    {"TEST-UNC", ProcessTest_UNC},
    {"TEST-DiskSpace", ProcessNotApplicable},  // "TEST-UNC" measures disks here
    {"TEST-FolderSize", ProcessTest_FolderSize},
    {"TEST-FileExists", ProcessTest_FileExists},
    {"TEST-FileCompare", ProcessTest_FileCompare},
    {"TEST-FileCRC", ProcessTest_FileCRC},
    {"TEST-CountFiles", ProcessTest_CountFiles},
    {"TEST-Service", ProcessNotApplicable},
    {"TEST-NTLog", ProcessNotApplicable},
    {"TEST-PerfCounter", ProcessNotApplicable},
    {"TEST-Script", ProcessNotImplemented},
    {"TEST-SNMP", ProcessNotImplemented},
    {"TEST-Ping", ProcessNotImplemented},
    {"TEST-Process", ProcessTest_Process},
    {"TEST-CPU", ProcessTest_CPU},
    {"TEST-ExternalPrg", ProcessTest_External},
    {"TEST-TextLog", ProcessTest_TextLog},
    {"TEST-TextLog2", ProcessTest_TextLog2},
    {"TEST-ShellScript", ProcessTest_ShellScript},
    {"TEST-TCP", ProcessTest_TCP},
    {"TEST-UDP", ProcessTest_UDP},
    {"ACT-ExternalCmd", ProcessAct_ExternalCmd},
    {"ACT-TCPUDPsend", ProcessAct_TCPSend},
    {"ACT-Syslog", ProcessAct_Syslog},
    {"GetProcessesList", ProcessInfo_ProcessesList},
    {"GetServicesList", ProcessNotApplicable},
    {"GetEventLogFiles", ProcessNotApplicable},
    {"GetEventLogSources", ProcessNotApplicable},
    {"GetFilesList", ProcessInfo_GetFileList},
    {"GetDriveList", ProcessNotImplemented},
    {"GetInfo", GetAgentStatus},
};

/// What an administrative command works with.
struct TAdminCall {
  const VxRequest& params;
  QovReply& reply;
  TQovFlags& flags;
};

void GetSettings(const TAdminCall& call) { GetAgentSettings(call.params, call.reply); }

void SetSettings(const TAdminCall& call) { SetAgentSettings(call.params, call.reply); }

void ReloadConfiguration(const TAdminCall& call) {
  String error;
  if (LoadOptions(error) != 0) {
    call.reply.SetResult(kResultDone) += "Ok";
  } else {
    call.reply.SetResult(kResultFailed) += error;
  }
}

void Quit(const TAdminCall& call) {
  call.reply.SetResult(kResultDone) += "Ok";
  call.flags.terminate = 1;
}

void ReloadApplication(const TAdminCall& call) {
  call.reply.SetResult(kResultDone) += "Ok";
  call.flags.reload = 1;
}

struct TAdminCommand {
  const char* name;
  void (*run)(const TAdminCall& call);
};
constexpr TAdminCommand kAdminCommands[] = {
    {"GetSettings", GetSettings},       {"SetSettings", SetSettings},
    {"ReloadCfg", ReloadConfiguration}, {"QUIT", Quit},
    {"ReloadApp", ReloadApplication},
};

bool HasRight(int allowed, const String& list, in_addr peer) {
  String fault;
  return allowed != 0 && IPAllowed(peer.s_addr, list, fault) != 0;
}

/// The announced size, saturated; what is not a number is 0.
int64_t AnnouncedSize(const VxRequest& params) {
  constexpr double kLimit = 9e18;
  const double size = qovDecodeInt64(params.GetParam(1, 1));
  if (size >= kLimit) return std::numeric_limits<int64_t>::max();
  if (size <= -kLimit) return std::numeric_limits<int64_t>::min();
  return size == size ? static_cast<int64_t>(size) : 0;
}

void StartUpgrade(const String& sessionKey, const VxRequest& params, QovReply& reply,
                  UpgradeRec& upgrade) {
  if (!upgrade.RequestUpgrade(sessionKey)) {
    reply.SetResult(kResultBusy);
    return;
  }
  upgrade.expectedSize = AnnouncedSize(params);
  upgrade.sized = 1;
  if (upgrade.expectedSize < kMinUpgradeBytes || upgrade.expectedSize > kMaxUpgradeBytes) {
    // Deliberate: the claim is kept and the session stays in data mode.
    reply.SetResult(kResultWrongParameter) += "Wrong file parameter(s)";
    return;
  }
  String error;
  if (DoUpgrading(upgrade, nullptr, 0, error) != 0) {
    reply.SetResult(kResultDone);
  } else {
    reply.SetResult(kResultFailed) += error;
  }
}

/// Answers with the bare code and leaves the reason to the agent's logs.
/// Deliberate: the peer learns the reason from the code only.
int Reject(QovReply& reply, const char* code) {
  reply.SetResult(code);
  return 0;
}

/// Runs the command of an ordinary row; false when no row has the name.
bool RunCommand(const String& name, const VxRequest& params, QovReply& reply) {
  for (const TCommand& command : kCommands) {
    if (!(name == command.name)) continue;
    command.run(params, reply);
    return true;
  }
  return false;
}

/// Runs an administrative command, or refuses it; false when no row has the name.
bool RunAdminCommand(const String& name, const TAdminCall& call, in_addr peer) {
  for (const TAdminCommand& command : kAdminCommands) {
    if (!(name == command.name)) continue;
    const TSettingsView settings = CurrentSettings();
    if (HasRight(settings->allowmanage, settings->manageaddr, peer)) {
      command.run(call);
    } else {
      call.reply.SetResult(kResultRefused);
    }
    return true;
  }
  return false;
}

}  // namespace

int ProcessVxRequest(VxRequest& request, QovReply& reply, TQovFlags& flags, ThreadParams params,
                     UpgradeRec& upgrade) {
  if (request.Pos('\r') == 0) {
    showmessage("EndOfTransmission signal missed\n", params.address, msgFail, 0);
    return Reject(reply, kResultIncomplete);
  }
  const int lineEnd = request.Pos('\n');
  String name = lineEnd != 0 ? request.Copy(1, lineEnd - 1) : request;
  name.Trim();
  if (name.Empty()) {
    showmessage("Void request received\n", params.address, msgFail, 0);
    return Reject(reply, kResultUnknown);
  }
  VxRequest block;
  if (lineEnd != 0) block = request.Copy(lineEnd + 1, request.Length());

  if (RunCommand(name, block, reply)) return 1;
  if (RunAdminCommand(name, TAdminCall{block, reply, flags}, params.address)) return 1;
  if (name == "UpgradeCode") {
    const TSettingsView settings = CurrentSettings();
    if (HasRight(settings->allowupdates, settings->updateaddr, params.address)) {
      StartUpgrade(request.GetSessionKey(), block, reply, upgrade);
    } else {
      reply.SetResult(kResultRefused);
    }
    return 1;
  }
  showmessage("Unknown command \"%s\"\n", params.address, msgFail, 1, name.CStr());
  return Reject(reply, kResultUnknown);
}

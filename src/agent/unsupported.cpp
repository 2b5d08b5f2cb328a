#include "agent/unsupported.h"

namespace {

void NotApplicable(QovReply& reply) {
  reply.SetResult(kResultUnknown) += "Not applicable for UNIX/Linux";
}

void NotImplemented(QovReply& reply) { reply.SetResult(kResultUnknown) += "not implemented yet"; }

}  // namespace

void ProcessTest_DiskSpace(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessTest_Service(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessTest_NTLog(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessTest_Perf(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessInfo_ServicesList(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessInfo_EventLogFiles(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessInfo_EventLogSources(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
void ProcessTest_Script(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
void ProcessTest_SNMP(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
void ProcessTest_Ping(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
void ProcessInfo_GetDriveList(const VxRequest&, QovReply& reply) { NotImplemented(reply); }

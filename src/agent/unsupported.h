#pragma once

#include "protocol/reply.h"
#include "protocol/request.h"

/// Commands that belong to another platform. Deliberate: disks are measured by "TEST-UNC" here, so
/// "TEST-DiskSpace" is one of them.
inline void NotApplicable(QovReply& reply) {
  reply.SetResult(kResultUnknown) += "Not applicable for UNIX/Linux";
}
inline void ProcessTest_DiskSpace(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
inline void ProcessTest_Service(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
inline void ProcessTest_NTLog(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
inline void ProcessTest_Perf(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
inline void ProcessInfo_ServicesList(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
inline void ProcessInfo_EventLogFiles(const VxRequest&, QovReply& reply) { NotApplicable(reply); }
inline void ProcessInfo_EventLogSources(const VxRequest&, QovReply& reply) { NotApplicable(reply); }

/// Commands that are not there yet.
inline void NotImplemented(QovReply& reply) {
  reply.SetResult(kResultUnknown) += "not implemented yet";
}
inline void ProcessTest_Script(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
inline void ProcessTest_SNMP(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
inline void ProcessTest_Ping(const VxRequest&, QovReply& reply) { NotImplemented(reply); }
inline void ProcessInfo_GetDriveList(const VxRequest&, QovReply& reply) { NotImplemented(reply); }

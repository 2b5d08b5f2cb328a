#pragma once

#include "protocol/reply.h"
#include "protocol/request.h"

/// Commands that belong to another platform: "500" "Not applicable for UNIX/Linux". Disks are
/// measured by "TEST-UNC" here.
void ProcessTest_DiskSpace(const VxRequest& params, QovReply& reply);
void ProcessTest_Service(const VxRequest& params, QovReply& reply);
void ProcessTest_NTLog(const VxRequest& params, QovReply& reply);
void ProcessTest_Perf(const VxRequest& params, QovReply& reply);
void ProcessInfo_ServicesList(const VxRequest& params, QovReply& reply);
void ProcessInfo_EventLogFiles(const VxRequest& params, QovReply& reply);
void ProcessInfo_EventLogSources(const VxRequest& params, QovReply& reply);

/// Commands that are not there yet: "500" "not implemented yet".
void ProcessTest_Script(const VxRequest& params, QovReply& reply);
void ProcessTest_SNMP(const VxRequest& params, QovReply& reply);
void ProcessTest_Ping(const VxRequest& params, QovReply& reply);
void ProcessInfo_GetDriveList(const VxRequest& params, QovReply& reply);

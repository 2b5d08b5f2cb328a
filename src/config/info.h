#pragma once

#include "protocol/reply.h"
#include "protocol/request.h"

/// What a server asks the agent about itself. Any thread.

/// Answers "200". "GetInfo": what the agent is, its counters, tests and actions.
void GetAgentStatus(const VxRequest& params, QovReply& reply);
/// "GetSettings": the same and the settings that a server may change.
void GetAgentSettings(const VxRequest& params, QovReply& reply);
/// "SetSettings": stores each "key=value" line whose key is known, then saves the file, under
/// `optmutex`. "200", or "300" with the reason when the file cannot be saved; the settings hold.
void SetAgentSettings(const VxRequest& params, QovReply& reply);

#pragma once

#include "protocol/reply.h"
#include "protocol/request.h"

/// Answers "500" "Not applicable for UNIX/Linux": the command belongs to another platform.
void ProcessNotApplicable(const VxRequest& params, QovReply& reply);
/// Answers "500" "not implemented yet".
void ProcessNotImplemented(const VxRequest& params, QovReply& reply);

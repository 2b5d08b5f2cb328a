#include "agent/unsupported.h"

#include "protocol/resultcodes.h"

void ProcessNotApplicable(const VxRequest&, QovReply& reply) {
  reply.SetResult(kResultUnknown) += "Not applicable for UNIX/Linux";
}

void ProcessNotImplemented(const VxRequest&, QovReply& reply) {
  reply.SetResult(kResultUnknown) += "not implemented yet";
}

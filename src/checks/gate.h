#pragma once

#include "protocol/reply.h"
#include "protocol/resultcodes.h"

/// The first line of every handler: false, with the reply refused, when the settings do not
/// enable the command.
inline bool Allowed(int enabled, const char* refusal, QovReply& reply) {
  if (enabled != 0) return true;
  reply.SetResult(kResultRefused) += refusal;
  return false;
}

inline bool TestAllowed(int enabled, QovReply& reply) {
  return Allowed(enabled, "test is not allowed", reply);
}

inline bool ActionAllowed(int enabled, QovReply& reply) {
  return Allowed(enabled, "operation is not allowed", reply);
}

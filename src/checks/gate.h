#pragma once

#include <stdint.h>

#include <algorithm>
#include <limits>

#include "protocol/reply.h"
#include "protocol/request.h"

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

/// "301" with a reason.
inline void Refuse(QovReply& reply, const char* reason) {
  reply.SetResult(kResultCannot) += reason;
}

/// "501": a parameter is missing or wrong.
inline void RefuseParameter(QovReply& reply) {
  reply.SetResult(kResultWrongParameter) += "Wrong parameter";
}

/// Whether the flag in parameter n is set.
inline bool Asked(const VxRequest& params, int n) { return qovDecodeBool(params.GetValue(n)) != 0; }

/// The nearest number that an integer value can carry.
inline int Saturated(int64_t n) {
  using TLimits = std::numeric_limits<int>;
  return static_cast<int>(std::clamp<int64_t>(n, TLimits::min(), TLimits::max()));
}

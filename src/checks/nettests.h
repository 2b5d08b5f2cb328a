#pragma once

#include "protocol/reply.h"
#include "protocol/request.h"

/// Probes of network services. Each answers "200" with the elapsed milliseconds and the bytes
/// received, "301" with the text and result of the exchange (see core/iplib.h), "501" or "600".
/// Any thread.

/// "TEST-TCP": 1 host, 2 port, 3 time-out in milliseconds (0: two minutes), 4 data to send,
/// 5 bytes to receive, at most 8192.
void ProcessTest_TCP(const VxRequest& params, QovReply& reply);

/// "TEST-UDP": 1 host, 2 port, 3 time-out of an attempt in milliseconds (used in whole seconds, at
/// least one), 4 number of attempts, 5 data to send, 6 bytes to receive, at most 8192.
/// The elapsed time is that of the successful attempt alone. Attempts begin at least a second
/// apart.
void ProcessTest_UDP(const VxRequest& params, QovReply& reply);

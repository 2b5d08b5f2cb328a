#pragma once

#include <time.h>

#include "protocol/reply.h"
#include "protocol/request.h"

/// Commands that make the agent act. Any thread.

/// "ACT-ExternalCmd": 1 command line, 2 folder to run in (empty: the agent's own), 3 a number
/// that is not used, 4 time-out in milliseconds, see checks/process/runner.h. "200" with the exit
/// code, or "301" with the runner's text.
void ProcessAct_ExternalCmd(const VxRequest& params, QovReply& reply);

/// "ACT-TCPUDPsend": 1 host, 2 port, 3 protocol (exactly "0": TCP, else UDP), 4 first data,
/// 5 delay in seconds before the second data, 6 second data (may be empty).
void ProcessAct_TCPSend(const VxRequest& params, QovReply& reply);

/// "ACT-Syslog": 1 receiver, 2 port, 3 facility, 4 severity 0 to 7, 5 message.
/// Deliberate: a datagram that could not be sent is answered "200" too, as one that is lost is.
void ProcessAct_Syslog(const VxRequest& params, QovReply& reply);

/// 0 (most severe) to 7, as in the syslog protocol.
using TSyslogSeverity = int;

/// Sends one syslog datagram, see SyslogDatagram.
/// @return bytes sent or a negative result of core/iplib.h with `err` set
int SendToSysLog(const String& host, int port, int facility, TSyslogSeverity severity,
                 const String& tag, const String& message, String& err);

/// The bytes of a syslog message, without terminator or line feed:
///   <facility * 8 + severity>CDateTime(now) own-address tag: message
/// The priority saturates; the address is that of GetMyIP.
String SyslogDatagram(int facility, TSyslogSeverity severity, time_t now, const String& tag,
                      const String& message);

/// A local time, now without one, in the form "Mar15 09:07:03"; the 5th is "Mar 5 09:07:03".
/// Deliberate: no blank stands between month and day.
String CDateTime(time_t now = time(nullptr));

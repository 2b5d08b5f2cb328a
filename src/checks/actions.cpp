#include "checks/actions.h"

#include <stdint.h>
#include <stdio.h>

#include <chrono>
#include <thread>

#include "checks/gate.h"
#include "checks/process/runner.h"
#include "config/settings.h"
#include "core/iplib.h"

void ProcessAct_ExternalCmd(const VxRequest& params, QovReply& reply) {
  if (!ActionAllowed(CurrentSettings()->executeaction, reply)) return;
  const String cmdline = params.GetText(1);
  const String workdir = params.GetValue(2);
  int unused = 0, timeoutMs = 0;
  if (qovDecodeInt(params.GetValue(3), &unused) == 0 ||
      qovDecodeInt(params.GetValue(4), &timeoutMs) == 0) {
    return RefuseParameter(reply);
  }
  if (params.GetValue(1).Empty()) {
    reply.SetResult(kResultWrongParameter) += "Command line to execute is not specified";
    return;
  }
  int exitCode = 0;
  String err;
  if (SystemEx(cmdline.CStr(), workdir.CStr(), timeoutMs, exitCode, err) == 0) {
    return Refuse(reply, err.CStr());
  }
  reply.SetResult(kResultDone).AddIntParam(exitCode);
}

void ProcessAct_TCPSend(const VxRequest& params, QovReply& reply) {
  if (!ActionAllowed(CurrentSettings()->tcpudpaction, reply)) return;
  const String host = params.GetValue(1);
  const bool tcp = params.GetValue(3) == "0";
  const String first = qovDecodeStrings(params.GetText(4));
  const String second = qovDecodeStrings(params.GetText(6));
  int port = 0, delaySec = 0;
  if (host.Empty() || first.Empty() || qovDecodeInt(params.GetValue(2), &port) == 0 ||
      qovDecodeInt(params.GetValue(5), &delaySec) == 0) {
    return RefuseParameter(reply);
  }
  TSyncSocket socket(tcp ? TSyncSocket::kTcp : TSyncSocket::kUdp);
  if (socket.Connect(host.CStr(), port, 0) != kIpOk || socket.SendString(first, 0) < 1) {
    return Refuse(reply, socket.LastError.CStr());
  }
  if (!second.Empty()) {
    std::this_thread::sleep_for(std::chrono::seconds(delaySec));
    // Deliberate: the first data decides the answer.
    socket.SendString(second, 0);
  }
  reply.SetResult(kResultDone) += "Data has been sent";
}

void ProcessAct_Syslog(const VxRequest& params, QovReply& reply) {
  if (!ActionAllowed(CurrentSettings()->syslogaction, reply)) return;
  const String host = params.GetValue(1);
  const String message = qovDecodeStrings(params.GetText(5));
  int port = 0, facility = 0;
  TSyslogSeverity severity = 0;
  if (host.Empty() || qovDecodeInt(params.GetValue(2), &port) == 0 ||
      qovDecodeInt(params.GetValue(3), &facility) == 0 ||
      qovDecodeInt(params.GetValue(4), &severity) == 0 || severity < 0 || severity > 7) {
    return RefuseParameter(reply);
  }
  String err;
  if (SendToSysLog(host, port, facility, severity, "WQ QOV", message, err) == 0) {
    return Refuse(reply, err.CStr());
  }
  reply.SetResult(kResultDone) += String("Syslog: Data to ") + host + " has been sent";
}

int SendToSysLog(const String& host, int port, int facility, TSyslogSeverity severity,
                 const String& tag, const String& message, String& err) {
  String datagram = SyslogDatagram(facility, severity, time(nullptr), tag, message);
  return SendReceiveUDPPacket(host.CStr(), port, 0, datagram.Data(), nullptr, datagram.Length(), 0,
                              err);
}

String SyslogDatagram(int facility, TSyslogSeverity severity, time_t now, const String& tag,
                      const String& message) {
  char priority[16];
  snprintf(priority, sizeof priority, "<%d>", Saturated(int64_t{facility} * 8 + severity));
  return String(priority) + CDateTime(now) + " " + IP2String(GetMyIP()) + " " + tag + ": " +
         message;
}

String CDateTime(time_t now) {
  tm local{};
  localtime_r(&now, &local);
  char text[64];
  strftime(text, sizeof text, "%b%e %T", &local);  // the agent stays in the "C" locale
  return text;
}

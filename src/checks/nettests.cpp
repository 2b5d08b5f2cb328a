#include "checks/nettests.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "checks/gate.h"
#include "config/settings.h"
#include "core/iplib.h"

namespace {

constexpr int kMaxReceiveBytes = 8192;

/// One service to probe and the outcome of the last attempt.
struct TProbe {
  String host, data;
  int port = 0;
  int timeout = 0;  ///< in the unit of the exchange
  int receiveBytes = 0;

  int result = 0;
  int elapsedMs = 0;
  String err;
  char received[kMaxReceiveBytes];
};

void Attempt(decltype(&SendReceiveTCPPacket) exchange, TProbe& probe) {
  const auto start = std::chrono::steady_clock::now();
  probe.result =
      exchange(probe.host.CStr(), probe.port, probe.timeout, probe.data.Data(), probe.received,
               probe.data.Length(), std::min(probe.receiveBytes, kMaxReceiveBytes), probe.err);
  const auto elapsed = std::chrono::steady_clock::now() - start;
  probe.elapsedMs = static_cast<int>(elapsed / std::chrono::milliseconds(1));
}

void Answer(const TProbe& probe, QovReply& reply) {
  if (probe.result < 1) {
    reply.SetResult(kResultCannot).AddStringParam(probe.err, 1);
    reply.AddIntParam(probe.result);
    return;
  }
  // Without anything to receive the result counts no received bytes.
  const int count = probe.receiveBytes < 1 ? 0 : probe.result;
  reply.SetResult(kResultDone).AddIntParam(probe.elapsedMs);
  reply.AddStringParam(String(probe.received, count), 1);
}

}  // namespace

void ProcessTest_TCP(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->tcp, reply)) return;
  TProbe probe;
  probe.host = params.GetValue(1);
  probe.data = qovDecodeStrings(params.GetText(4));
  if (qovDecodeInt(params.GetValue(2), &probe.port) == 0 ||
      qovDecodeInt(params.GetValue(3), &probe.timeout) == 0 ||
      qovDecodeInt(params.GetValue(5), &probe.receiveBytes) == 0) {
    return RefuseParameter(reply);
  }
  if (probe.timeout == 0) probe.timeout = 120000;
  Attempt(&SendReceiveTCPPacket, probe);
  Answer(probe, reply);
}

void ProcessTest_UDP(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->udp, reply)) return;
  TProbe probe;
  int timeoutMs = 0;
  int attempts = 0;
  probe.host = params.GetValue(1);
  probe.data = qovDecodeStrings(params.GetText(5));
  if (qovDecodeInt(params.GetValue(2), &probe.port) == 0 ||
      qovDecodeInt(params.GetValue(3), &timeoutMs) == 0 ||
      qovDecodeInt(params.GetValue(4), &attempts) == 0 ||
      qovDecodeInt(params.GetValue(6), &probe.receiveBytes) == 0 || attempts < 1 ||
      probe.data.Empty()) {
    return RefuseParameter(reply);
  }
  probe.timeout = timeoutMs / 1000;
  if (probe.timeout == 0) probe.timeout = 1;
  Attempt(&SendReceiveUDPPacket, probe);
  for (int made = 1; made < attempts && probe.result < 1; ++made) {
    // Billions of attempts that fail at once would keep a processor busy for hours.
    std::this_thread::sleep_for(std::chrono::milliseconds(1000 - probe.elapsedMs));
    Attempt(&SendReceiveUDPPacket, probe);
  }
  Answer(probe, reply);
}

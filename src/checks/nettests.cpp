#include "checks/nettests.h"

#include <algorithm>
#include <chrono>

#include "checks/gate.h"
#include "config/settings.h"
#include "core/iplib.h"

namespace {

constexpr int kMaxReceiveBytes = 8192;
constexpr int kTcpTimeoutMs = 120000;

using TExchange = int (*)(const char* host, int port, int timeout, void* sendBuf, void* recvBuf,
                          int sendLen, int recvLen, String& err);

/// One service to probe and the outcome of the last attempt.
struct TProbe {
  String host;
  String data;
  int port = 0;
  int timeout = 0;  ///< in the unit of the exchange
  int receiveBytes = 0;

  int result = 0;
  int elapsedMs = 0;
  String err;
  char received[kMaxReceiveBytes];
};

void Attempt(TExchange exchange, TProbe& probe) {
  using TClock = std::chrono::steady_clock;
  const int receiveBytes = std::min(probe.receiveBytes, kMaxReceiveBytes);
  const TClock::time_point start = TClock::now();
  probe.result = exchange(probe.host.CStr(), probe.port, probe.timeout, probe.data.Data(),
                          probe.received, probe.data.Length(), receiveBytes, probe.err);
  const auto elapsed = TClock::now() - start;
  probe.elapsedMs =
      static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
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
  probe.host = params.GetParam(1, 1);
  probe.data = qovDecodeStrings(params.GetParam(4, 1));
  if (qovDecodeInt(params.GetParam(2, 1), &probe.port) == 0 ||
      qovDecodeInt(params.GetParam(3, 1), &probe.timeout) == 0 ||
      qovDecodeInt(params.GetParam(5, 1), &probe.receiveBytes) == 0) {
    return RefuseParameter(reply);
  }
  if (probe.timeout == 0) probe.timeout = kTcpTimeoutMs;
  Attempt(&SendReceiveTCPPacket, probe);
  Answer(probe, reply);
}

void ProcessTest_UDP(const VxRequest& params, QovReply& reply) {
  if (!TestAllowed(CurrentSettings()->udp, reply)) return;
  TProbe probe;
  int timeoutMs = 0;
  int attempts = 0;
  probe.host = params.GetParam(1, 1);
  probe.data = qovDecodeStrings(params.GetParam(5, 1));
  if (qovDecodeInt(params.GetParam(2, 1), &probe.port) == 0 ||
      qovDecodeInt(params.GetParam(3, 1), &timeoutMs) == 0 ||
      qovDecodeInt(params.GetParam(4, 1), &attempts) == 0 ||
      qovDecodeInt(params.GetParam(6, 1), &probe.receiveBytes) == 0 || attempts < 1 ||
      probe.data.Empty()) {
    return RefuseParameter(reply);
  }
  const int timeoutSec = timeoutMs / 1000;
  probe.timeout = timeoutSec == 0 ? 1 : timeoutSec;
  for (; attempts > 0 && probe.result < 1; --attempts) Attempt(&SendReceiveUDPPacket, probe);
  Answer(probe, reply);
}

#include "agent/session.h"

#include <errno.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <mutex>
#include <new>
#include <utility>

#include "agent/flags.h"
#include "agent/upgrade.h"
#include "agent/wake.h"
#include "checks/process/child.h"
#include "config/settings.h"
#include "config/status.h"
#include "core/message.h"
#include "protocol/reply.h"
#include "protocol/request.h"

namespace {

constexpr timespec kPoll{0, 500'000};
constexpr unsigned long kIdleSlackNs = 5'000'000;
constexpr unsigned long kOwnSlack = 0;  ///< what the thread was made with

/// The connection of this thread's session, -1 without one.
thread_local int openSocket = -1;

int64_t MonotonicSec() { return MonotonicMs() / 1000; }

/// One connection from its first byte to its close.
class TSession {
 public:
  explicit TSession(const ThreadParams& params) : params_(params) {
    openSocket = params.socket;
    const std::lock_guard<std::mutex> lock(thread_mutex);
    ++AgentStatus.ActiveConnections;
    ++AgentStatus.OpenedConnections;
  }
  ~TSession();
  TSession(const TSession&) = delete;
  TSession& operator=(const TSession&) = delete;

  void Run();

 private:
  bool Receive();
  bool IsIdleTooLong();
  bool TakeUpgradeData(char* data, int length);
  bool TakeRequestData(const char* data, int length);
  void ServeRequest();
  void SendReply();
  /// How late the system may end this thread's waits.
  void SetSlack(unsigned long slackNs);

  ThreadParams params_;
  UpgradeRec upgrade_;
  String upgradeError_;
  VxRequest request_;
  QovReply reply_;
  TQovFlags raised_;  // what the request raises; takes effect once the connection is closed
  int64_t lastChunk_ = MonotonicSec();
  int64_t lastLook_ = lastChunk_;  // at the idle limit
  bool wholePacket_ = false;
  unsigned long slackNs_ = kOwnSlack;
};

TSession::~TSession() {
  SetSlack(kOwnSlack);
  showmessage("Session closed, wait for next ..\n", kNoPeer, msgInfo, 0);
  shutdown(params_.socket, SHUT_RDWR);
  close(std::exchange(openSocket, -1));
  const std::lock_guard<std::mutex> lock(thread_mutex);
  --AgentStatus.ActiveConnections;
  if (raised_.terminate != 0) QovFlags.terminate = 1;
  if (raised_.reload != 0) QovFlags.reload = 1;
  if (!upgrade_.script.Empty()) QovFlags.upgradeScript = std::move(upgrade_.script);
  if (!QovFlags.upgradeScript.Empty()) QovFlags.upgrade = 1;
  if (raised_.terminate != 0 || raised_.reload != 0 || QovFlags.upgrade != 0) WakeMainLoop();
}

/// Deliberate: the short wait makes the loop poll rapidly, which is what bounds how late a limit or
/// an end is noticed. A peer that lets it wait once lets the system be late with the next ends, so
/// that many of them cost few wakes; data end a wait at once.
void TSession::Run() {
  for (;;) {
    pollfd wait = {params_.socket, POLLIN, 0};
    const int ready = ppoll(&wait, 1, &kPoll, nullptr);
    if (ready < 0 && errno != EINTR) return;
    if (ready > 0 && !Receive()) return;
    if (ready != 0) continue;
    SetSlack(kIdleSlackNs);
    if (IsIdleTooLong()) return;
  }
}

void TSession::SetSlack(unsigned long slackNs) {
  if (std::exchange(slackNs_, slackNs) != slackNs) prctl(PR_SET_TIMERSLACK, slackNs);
}

/// Takes one chunk; false ends the session.
bool TSession::Receive() {
  char chunk[1024];
  const ssize_t got = recv(params_.socket, chunk, sizeof chunk, 0);
  if (got <= 0) return false;
  const int length = static_cast<int>(got);
  return upgrade_.active != 0 ? TakeUpgradeData(chunk, length) : TakeRequestData(chunk, length);
}

/// The limit holds until a whole packet has been seen, not for an upgrade. Looks at the settings,
/// which costs a lock, once a second.
bool TSession::IsIdleTooLong() {
  const int64_t now = MonotonicSec();
  if (wholePacket_ || now == lastLook_) return false;
  lastLook_ = now;
  const int timeoutMs = CurrentSettings()->timeout;
  return timeoutMs > 0 && lastChunk_ + timeoutMs / 1000 < now;
}

bool TSession::TakeUpgradeData(char* data, int length) {
  DoUpgrading(upgrade_, data, length, upgradeError_);
  if (upgrade_.active != 0) return true;
  reply_.SetResult(upgradeError_.Empty() ? kResultDone : kResultFailed) += upgradeError_;
  SendReply();
  return false;
}

bool TSession::TakeRequestData(const char* data, int length) {
  lastChunk_ = MonotonicSec();
  request_.TakeBytes(data, length);
  if (request_.WholePacket() == 0) {
    if (!request_.ProofSeen()) request_.ForgetIfRefused(CurrentSettings()->password);
    return true;
  }
  wholePacket_ = true;
  ServeRequest();
  return upgrade_.active != 0;
}

void TSession::ServeRequest() {
  SetSlack(kOwnSlack);     // a child inherits it
  const TSettingsPin pin;  // one settings record for the whole request
  const TSettingsView settings = CurrentSettings();
  if (request_.ParseInitRequest(settings->password, *settings->PasswordCipher(), params_.address) <=
      0) {
    showmessage("<-- Invalid VX request received\n", params_.address, msgInfo, 0);
    return;
  }
  showmessage("<-- Correct VX request received\n", params_.address, msgInfo, 0);
  reply_.InitPacket(nullptr, request_.SessionCipher());
  const int done = ProcessVxRequest(request_, reply_, raised_, params_, upgrade_);
  const String code = reply_.Copy(1, 3);
  showmessage(done != 0 ? "--> request processed (%s)\n"
                        : "--> request rejected or operation failed (%s)\n",
              params_.address, msgInfo, 1, code.CStr());
  SendReply();
}

/// Deliberate: how much was sent is not looked at, as the session ends either way.
void TSession::SendReply() {
  reply_.FinalizePacket();
  send(params_.socket, reply_.Data(), static_cast<size_t>(reply_.Length()), MSG_NOSIGNAL);
}

}  // namespace

void RunSession(const ThreadParams& params) {
  try {
    TSession(params).Run();
  } catch (const std::bad_alloc&) {
    showmessage("Out of memory, connection closed\n", params.address, msgFail, 0);
  }
}

void DropCrashedSession() {
  if (openSocket == -1) return;
  shutdown(openSocket, SHUT_RDWR);
  close(openSocket);
  --AgentStatus.ActiveConnections;
}

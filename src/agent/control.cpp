#include "agent/control.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <new>
#include <optional>
#include <utility>

#include "agent/admission.h"
#include "agent/crash.h"
#include "agent/daemon.h"
#include "agent/flags.h"
#include "agent/image.h"
#include "agent/listener.h"
#include "agent/signals.h"
#include "agent/wake.h"
#include "checks/process/child.h"
#include "config/settings.h"
#include "config/status.h"
#include "core/message.h"

namespace {

TListener listener;
FILE* pidFile = nullptr;

/// Hands the process on; comes back only on failure. Deliberate: the listening socket and the pid
/// file stay closed then.
void Execute(const String& path) {
  listener.Close();
  closepidfile(std::exchange(pidFile, nullptr));
  ReplaceImage(path.CStr());
}

void RunUpgrade() {
  showmessage("Upgrade request received. Executing..\n", kNoPeer, msgInfo, 0);
  String script;
  {
    const std::lock_guard<std::mutex> lock(thread_mutex);
    script = QovFlags.upgradeScript;
  }
  Execute(script);
  showmessage("Error: cannot start upgrading script\n", kNoPeer, msgFail, 0);
  QovFlags.upgrade = 0;
  const std::lock_guard<std::mutex> lock(upgrade_mutex);
  QovFlags.upgrading = 0;
}

/// Acts on what sessions and signals asked for; the exit status when the agent is to end.
std::optional<int> PollFlags() {
  AnswerCrashMark();
  if (TakeReloadMark()) {
    String ignored;
    LoadOptions(ignored);
  }
  if (QovFlags.terminate != 0) {
    showmessage("Terminate request received. Terminating..\n", kNoPeer, msgInfo, 0);
    closepidfile(std::exchange(pidFile, nullptr));
    return 0;
  }
  if (QovFlags.reload != 0) ReloadAgent();
  if (QovFlags.upgrade != 0) RunUpgrade();
  if (!listener.FollowPort()) return kExitListen;
  return std::nullopt;
}

/// Waits for a connection, a wake-up, a signal or the end of the slice; true for a connection.
bool WaitForConnection() {
  constexpr timespec kSlice{1, 0};
  pollfd waits[] = {{listener.Socket(), POLLIN, 0}, {WakeDescriptor(), POLLIN, 0}};
  if (ppoll(waits, 2, &kSlice, &OriginalSignalMask()) <= 0) return false;
  if (waits[1].revents != 0) ClearWake();
  return waits[0].revents != 0;
}

/// Accepts one connection; false on a fatal error, which is reported.
bool AcceptOne(TAdmission& admission) {
  for (;;) {
    sockaddr_in address = {};
    socklen_t length = sizeof address;
    TFd socket(
        accept4(listener.Socket(), reinterpret_cast<sockaddr*>(&address), &length, SOCK_CLOEXEC));
    if (socket) {
      admission.Admit(std::move(socket), address.sin_addr);
      return true;
    }
    const int error = errno;
    if (error == EINTR || error == EAGAIN) return true;
    if ((error == EMFILE || error == ENFILE) && admission.DropRefused()) continue;
    showmessage("Accept fatal error: %s\n\n", kNoPeer, msgFail, 1, strerror(error));
    return false;
  }
}

}  // namespace

void ReloadAgent() {
  showmessage("Reload request received. Executing..\n", kNoPeer, msgInfo, 0);
  Execute(CurrentSettings()->qovpath);
  showmessage("Error: cannot start new instance\n", kNoPeer, msgFail, 0);
  QovFlags.reload = 0;
}

int StartListening() {
  String error;
  if (!listener.Open(error)) {
    printf("TCP listen error: %s\n\n", error.CStr());
    return kExitListen;
  }
  const TSettingsView settings = CurrentSettings();
  if (settings->interactive == 0 && !settings->pidfile.Empty()) pidFile = createpidfile();
  showmessage("Listening...\n", kNoPeer, msgInfo, 0);
  return 0;
}

int ServeConnections() {
  TAdmission admission;
  for (;;) {
    try {
      ReapBackgroundChildren();
      if (const std::optional<int> status = PollFlags()) return *status;
      if (WaitForConnection() && !AcceptOne(admission)) return kExitListen;
    } catch (const std::bad_alloc&) {
      showmessage("Out of memory\n", kNoPeer, msgFail, 0);
      usleep(100'000);  // it may last
    }
  }
}

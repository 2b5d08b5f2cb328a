#include "agent/control.h"

#include <errno.h>
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

#include "agent/admission.h"
#include "agent/daemon.h"
#include "agent/flags.h"
#include "agent/limits.h"
#include "agent/listener.h"
#include "agent/signals.h"
#include "checks/process/runner.h"
#include "config/settings.h"
#include "config/status.h"
#include "core/message.h"

namespace {

constexpr timespec kSlice{1, 0};
// A file that was written a moment ago is "busy" while a child that a session has just started
// still holds a copy of the descriptor.
constexpr int kBusyTries = 250;
constexpr timespec kBusyPause{0, 20'000'000};
constexpr int kExitDone = 0;
constexpr int kExitListen = 4;
constexpr int kGoOn = -1;
constexpr size_t kMaxRefused = 2048;

char** startArguments = nullptr;
std::vector<char*> startEnvironment;

TListener listener;
FILE* pidFile = nullptr;

/// Replaces the process image; comes back only on failure.
void Execute(const char* path) {
  listener.Close();
  closepidfile(std::exchange(pidFile, nullptr));
  fflush(stdout);
  RemoveTempFiles();  // the sessions that use them end here
  alarm(0);           // the limit of a crash report would go on in the new image
  RestoreDescriptorLimit();
  ReleaseSignals();
  for (int i = 0; i < kBusyTries; ++i) {
    execve(path, startArguments, startEnvironment.data());
    if (errno != ETXTBSY) break;
    nanosleep(&kBusyPause, nullptr);
  }
  HoldSignals();
  RaiseDescriptorLimit();
}

void RunUpgrade() {
  showmessage("Upgrade request received. Executing..\n", kNoPeer, msgInfo, 0);
  String script;
  {
    const std::lock_guard<std::mutex> lock(thread_mutex);
    script = QovFlags.upgradeScript;
  }
  Execute(script.CStr());
  showmessage("Error: cannot start upgrading script\n", kNoPeer, msgFail, 0);
  QovFlags.upgrade = 0;
  QovFlags.upgrading = 0;
}

/// Acts on what sessions and signals asked for.
/// @return kGoOn, or the exit status
int PollFlags() {
  AnswerCrashMark();
  if (TakeReloadMark()) {
    String ignored;
    LoadOptions(ignored);
  }
  if (QovFlags.terminate != 0) {
    showmessage("Terminate request received. Terminating..\n", kNoPeer, msgInfo, 0);
    closepidfile(std::exchange(pidFile, nullptr));
    return kExitDone;
  }
  if (QovFlags.reload != 0) ReloadAgent();
  if (QovFlags.upgrade != 0) RunUpgrade();
  return listener.FollowPort() ? kGoOn : kExitListen;
}

/// Waits for a connection, a wake-up, a signal or the end of the slice; true for a connection.
bool WaitForConnection() {
  pollfd waits[] = {{listener.Socket(), POLLIN, 0}, {WakeDescriptor(), POLLIN, 0}};
  if (ppoll(waits, 2, &kSlice, &OriginalSignalMask()) <= 0) return false;
  if (waits[1].revents != 0) ClearWake();
  return waits[0].revents != 0;
}

/// Accepts one connection.
/// @return false on a fatal error, reported
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
    if (errno == EINTR || errno == EAGAIN) return true;
    const bool exhausted = errno == EMFILE || errno == ENFILE;
    const int error = errno;
    if (exhausted && admission.DropRefused()) continue;
    showmessage("Accept fatal error: %s\n\n", kNoPeer, msgFail, 1, strerror(error));
    return false;
  }
}

}  // namespace

void RememberStart(char** argv, char** envp) {
  startArguments = argv;
  // A copy: setting a variable may write into the array that the process was started with.
  while (*envp != nullptr) startEnvironment.push_back(*envp++);
  startEnvironment.push_back(nullptr);
}

void ReloadAgent() {
  showmessage("Reload request received. Executing..\n", kNoPeer, msgInfo, 0);
  Execute(CurrentSettings()->qovpath.CStr());
  showmessage("Error: cannot start new instance\n", kNoPeer, msgFail, 0);
  QovFlags.reload = 0;
}

int ServeConnections() {
  String error;
  if (!listener.Open(error)) {
    printf("TCP listen error: %s\n\n", error.CStr());
    return kExitListen;
  }
  const TSettingsView settings = CurrentSettings();
  if (settings->interactive == 0 && !settings->pidfile.Empty()) pidFile = createpidfile();
  showmessage("Listening...\n", kNoPeer, msgInfo, 0);

  TAdmission admission(std::min(kMaxRefused, DescriptorLimit() / 2));
  for (;;) {
    ReapBackgroundChildren();
    const int status = PollFlags();
    if (status != kGoOn) return status;
    if (WaitForConnection() && !AcceptOne(admission)) return kExitListen;
  }
}

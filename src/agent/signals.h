#pragma once

#include <signal.h>

/// Signal handlers do nothing but leave a mark; the main loop acts on it. The signals that it
/// answers (SIGHUP, SIGTERM, SIGINT) stay blocked except while it waits, so that they never
/// interrupt other work.

/// Handler of SIGHUP: asks the main loop to load the configuration file again.
void reloadcfg(int signal);
/// Handler of SIGSEGV. A thread that faulted is held, so that the main loop can act; a fault of
/// the main loop itself is answered in place.
void reloadapp(int signal, siginfo_t* info, void* context);

/// Answers SIGHUP from here on; without it SIGHUP keeps its default action.
void InstallReloadSignal();
/// Blocks the answered signals, installs the remaining handlers, ignores SIGPIPE. Main thread,
/// before any other thread starts.
void InstallSignals();
/// The signal mask the process was started with, in force during the main loop's wait.
const sigset_t& OriginalSignalMask();
/// Prepares for a new process image: it gets the original mask, and SIGHUP ignored where the agent
/// answers it. Main thread.
void ReleaseSignals();
/// Takes ReleaseSignals back, when there is no new image.
void HoldSignals();

/// Ends the main loop's present wait at once. Any thread, also from a handler.
void WakeMainLoop();
/// Descriptor that is readable after WakeMainLoop, until ClearWake.
int WakeDescriptor();
void ClearWake();

/// True once after each SIGHUP.
bool TakeReloadMark();
/// Reports a segmentation fault that a handler marked, if any: a young process ends by it, one
/// older than 180 seconds gets its reload flag raised. Main thread.
void AnswerCrashMark();
/// The same without a mark.
void AnswerCrash();

#pragma once

#include <signal.h>

/// The signals that the main loop answers (SIGHUP, SIGTERM, SIGINT). Their handlers only leave a
/// mark. Every thread keeps all signals but those of its own faults blocked; the main loop lets
/// them in while it waits, so that they never interrupt other work.

/// Sets what becomes of one signal.
void SetSignal(int signal, void (*handler)(int));
/// Handler of SIGHUP: asks the main loop to load the configuration file again.
void reloadcfg(int signal);
/// Answers SIGHUP from here on; without it SIGHUP keeps its default action.
void InstallReloadSignal();
/// Blocks the signals, answers SIGTERM and SIGINT unless the starter had them ignored, ignores
/// SIGPIPE and SIGXFSZ. Main thread, before any other thread starts: they inherit the mask.
void InstallSignals();
/// The signal mask the process was started with, in force during the main loop's wait.
const sigset_t& OriginalSignalMask();
/// Prepares for a new process image: it gets the original mask and, of the signals that the agent
/// answers, SIGHUP ignored, SIGTERM and SIGINT with their default action. Main thread.
void ReleaseSignals();
/// Takes ReleaseSignals back, when there is no new image.
void HoldSignals();
/// True once after each SIGHUP.
bool TakeReloadMark();

#pragma once

#include <signal.h>

/// Segmentation faults. A thread that faulted is held, its session dropped, and the main loop
/// restarts the agent; a fault of the main loop itself is answered in place.

/// Answers SIGSEGV from here on.
/// @param restart  re-executes the agent and comes back only when that fails
/// Main thread, after OpenWake.
void InstallCrashHandler(void (*restart)());
/// Handler of SIGSEGV.
void reloadapp(int signal, siginfo_t* info, void* context);
/// Reports a segmentation fault that the handler marked, if any: a young process ends by it, one
/// older than 180 seconds gets its reload flag raised. Main thread.
void AnswerCrashMark();

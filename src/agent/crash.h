#pragma once

#include <setjmp.h>
#include <signal.h>

/// Segmentation faults. A thread that faulted is held, its session dropped, and the main loop
/// restarts the agent. After a fault of the main loop itself the loop is given up and the answer
/// given in its place.

/// Where a fault of the main thread goes on, outside its handler; to be set before the handler.
extern sigjmp_buf mainLoopCrashed;
/// Answers SIGSEGV from here on. Main thread, after OpenWake.
void InstallCrashHandler();
/// Handler of SIGSEGV.
void reloadapp(int signal, siginfo_t* info, void* context);
/// Reports a segmentation fault that the handler marked, if any: a young process ends by it, one
/// older than 180 seconds gets its reload flag raised. Main thread.
void AnswerCrashMark();

#pragma once

#include <sys/resource.h>

#include "checks/process/tempfile.h"
#include "core/wqstring.h"

/// Outside programs. A child runs in a session of its own with default signal actions, an empty
/// signal mask, no descriptors but 0 to 2, and TMPDIR set to the folder for temporary files. The
/// functions below may be called by any thread, by several at once; none changes the signal
/// handling of the process.

/// A time-out that starts the program in the background.
inline constexpr int kRunInBackground = -1;

/// Runs a program with all three streams on "/dev/null"; see SystemEx2.
int SystemEx(const char* cmdline, const char* workdir, int timeoutMs, int& exitCode, String& err);

/// Runs a program without a shell.
/// @param cmdline    program (looked up along PATH) and arguments, see checks/process/arguments.h
/// @param workdir    folder to run in; null, "" or one that cannot be entered: the agent's own
/// @param inFile     file for standard input; null or one that cannot be opened: "/dev/null"
/// @param outFile    file for standard output, emptied first; null: "/dev/null"
/// @param errFile    the same for standard error. Deliberate: when it is outFile too, each stream
///                   still has a position of its own
/// @param timeoutMs  0 waits without limit; kRunInBackground waits one second for an early end and
///                   then leaves the program running; any other value is a limit in milliseconds,
///                   looked at once a second (a negative one has passed at the first look), after
///                   which the program is killed
/// @param exitCode   out: exit status 0 to 255, 0 for a program left running; set with result 1
/// @param err        out: "", or with result 0 one of "fork error", "exec error: " and the
///                   system's text ("exec error" in the background), "abnormal termination" and
///                   "cannot terminate process"
/// @return 1 when the program ran, else 0
int SystemEx2(const char* cmdline, const char* workdir, const char* inFile, const char* outFile,
              const char* errFile, int timeoutMs, int& exitCode, String& err);

/// Runs a command by "/bin/sh -c" on the agent's own standard streams and waits for its end.
/// @return the wait status, -1 when no process could be started; a shell that cannot be executed
///         looks like one that exited with 127
int RunShell(const char* command);

/// The descriptor limit that children get: the one from before the agent raised its own. Call it
/// before the first thread starts.
void SetChildDescriptorLimit(const rlimit& original);

/// Makes the ends of children visible to this process: sets SIGCHLD to its default action, which a
/// starter may have left ignored, and takes over children that an earlier image of this process
/// left in the background. Call it at the start of main, before the first thread.
void PrepareToWaitForChildren();

/// Collects background children that have ended, so that none stays a zombie. Never blocks; call
/// it about once a second. Every start of a child does it too.
void ReapBackgroundChildren();

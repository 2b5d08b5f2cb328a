#pragma once

/// Remembers what the process was started with, for its re-execution. Main thread, at the start.
void RememberStart(char** argv, char** envp);

/// Closes the listener and the pid file and replaces the process by the agent at `qovpath`, with
/// the arguments and environment that the process was started with. Comes back only when that
/// fails, with the failure reported and no listener left. Main thread.
void ReloadAgent();

/// Opens the service socket and the pid file and serves until the process ends or is replaced.
/// @return the exit status: 0 after a terminate request, 4 when listening or accepting failed
int ServeConnections();

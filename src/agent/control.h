#pragma once

inline constexpr int kExitListen = 4;  ///< status of a process that could not listen or accept

/// Closes the listener and the pid file and replaces the process by the agent at `qovpath`. Comes
/// back only when that fails, with the failure reported and no listener left. Main thread.
void ReloadAgent();

/// Opens the service socket and the pid file; 0, or kExitListen with the reason printed.
int StartListening();
/// Serves until the process ends or is replaced. May be called again when a fault ended it.
/// @return the exit status: 0 after a terminate request, kExitListen
int ServeConnections();

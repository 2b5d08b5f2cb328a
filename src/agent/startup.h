#pragma once

/// The whole agent: banner, command line, settings, self-checks, daemon, service.
/// @return the exit status: 0 after a terminate request, 1 for a settings error, 2 when the daemon
///         could not be started, 3 when a self-check failed, 4 when listening or accepting failed
///         (a command line error exits with 1)
int RunAgent(int argc, char** argv, char** envp);

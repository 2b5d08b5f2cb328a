#pragma once

#include <stdio.h>

/// The process in the background: its streams, its session, its pid file.

/// Puts /dev/null where the starter left standard input, output or error closed, so that nothing
/// else is opened in their place. At the start, before anything is opened.
void OpenMissingStreams();
/// Detaches from the terminal: the parent prints "Daemon started" and exits with 0, the child
/// leads a new session with its standard streams on /dev/null.
/// @return 0 in the child, -1 with errno when fork failed
int daemon_init();

/// Creates the pid file and locks it whole for as long as it stays open.
/// Deliberate: it is truncated before the lock is tried, as opening does both.
/// @return the open file; null (reported, not fatal) when it cannot be created or locked
FILE* createpidfile();
/// Closes the file and removes the one that the `pidfile` setting names; null does nothing.
void closepidfile(FILE* file);

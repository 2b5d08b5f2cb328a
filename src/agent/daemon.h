#pragma once

/// Puts /dev/null where the starter left standard input, output or error closed, so that nothing
/// else is opened in their place. At the start, before anything is opened.
void OpenMissingStreams();

/// Detaches from the terminal: the parent prints "Daemon started" and exits with 0, the child
/// leads a new session with its standard streams on /dev/null.
/// @return 0 in the child, -1 with errno when fork failed
int daemon_init();

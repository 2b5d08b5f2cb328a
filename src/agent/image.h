#pragma once

/// The process image: what the process was started with, and its replacement by another program.
/// Main thread.

/// Remembers what the process was started with and raises the soft descriptor limit to the hard
/// one; children get the original back. At the start.
void RememberStart(char** argv, char** envp);

/// Executes `path` with the arguments, environment, descriptor limit and signal mask that the
/// process was started with; the temporary files of running sessions go. Comes back only when that
/// fails, with nothing changed and no session the worse for it.
void ReplaceImage(const char* path);

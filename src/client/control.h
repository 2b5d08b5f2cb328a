#pragma once

/// qovctl: one run, from its arguments to its exit status (TExitStatus). Prints to standard output,
/// failures to standard error.
int RunControl(int argc, const char* const* argv);

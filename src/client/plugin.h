#pragma once

/// check_qov: one run by the conventions of monitoring plugins. Prints to standard output only.
/// @return 0 OK, 1 WARNING, 2 CRITICAL, 3 UNKNOWN
int RunPlugin(int argc, const char* const* argv);

#pragma once

/// Prints the start-up banner.
void PrintBanner();
/// Prints the error, an empty line and the usage; ends the process with exit status 1.
[[noreturn]] void showhelp(const char* error);
/// Reads the switches into QovSettings, in the fixed order -i|-d, -v, -vd, -p, file. A fault ends
/// the process through showhelp. Called once, before any thread starts.
/// Deliberate: a switch out of order is taken as the configuration file's path; start scripts rely
/// on the order.
void ParseCommandLine(int argc, char** argv);

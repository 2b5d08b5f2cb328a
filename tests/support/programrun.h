#pragma once

#include <string>
#include <vector>

/// What a program printed and how it ended.
struct TProgramRun {
  int status = -1;  ///< exit status, 1000 + signal, or -1 when it was ended at the limit
  std::string out;
  std::string err;
};

/// Runs a program to its end, ended after 60 seconds. `environment` holds NAME=VALUE, added to the
/// test's own. Standard input is empty.
TProgramRun RunProgram(const std::vector<std::string>& words,
                       const std::vector<std::string>& environment = {});

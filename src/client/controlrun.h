#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <vector>

#include "client/target.h"

/// One run of qovctl: what its arguments ask for.
struct TControlRun {
  TTargetOptions options;
  bool json = false;
  bool showPassword = false;
  std::string stateFile;        ///< of a text-log watch; empty: none
  std::function<int()> action;  ///< set by the parse; returns the exit status

  /// The agent to ask; a warning goes to standard error. Throws TUsageFailure.
  TTarget Target() const;
};

/// Writes to standard output as it stands.
void Print(const std::string& text);
/// A line for the administrator on standard error; nothing for an empty text.
void Warn(const std::string& text);
/// Takes the agent's command off the front of the words behind "raw" or "packet build"; what is
/// left are its parameters. Throws TUsageFailure when there is none.
std::string TakeCommand(std::vector<std::string>& words);

#pragma once

#include <CLI/CLI.hpp>
#include <functional>

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

#pragma once

#include <stdexcept>
#include <string>

/// Exit statuses of qovctl. check_qov has those of the plugin conventions instead.
enum TExitStatus {
  kExitDone = 0,     ///< "200"
  kExitFailed = 1,   ///< "300", or errors found by check-config
  kExitUsage = 2,    ///< wrong arguments, or a local file that cannot be used
  kExitNoReply = 3,  ///< no agent reached, no reply, or a reply that cannot be read
  kExitCannot = 4,   ///< "301"
  kExitBusy = 5,     ///< "302"
  kExitUnknown = 6,  ///< "500", "501", "502"
  kExitRefused = 7,  ///< "600"
};

/// Wrong arguments, or a local file that cannot be used.
struct TUsageFailure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The agent could not be asked; the text tells the administrator why, in whole words.
struct TSilence : std::runtime_error {
  /// @param isTimeout  true when the time limit passed, false for every other reason
  explicit TSilence(const std::string& text, bool isTimeout = false)
      : std::runtime_error(text), timedOut(isTimeout) {}
  bool timedOut;
};

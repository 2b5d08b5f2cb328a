#pragma once

#include <stdint.h>
#include <sys/types.h>

#include "core/owned.h"

/// Milliseconds of the monotonic clock.
int64_t MonotonicMs();

/// A started child that has not been waited for. One thread at a time.
class TChild {
 public:
  explicit TChild(pid_t pid);
  /// Hands a child that still runs to the background.
  ~TChild();
  TChild(const TChild&) = delete;
  TChild& operator=(const TChild&) = delete;

  /// Looks once, without waiting, and collects the child when it has ended.
  /// @param status  out: wait status, set with true; that of a killed process when somebody else
  ///                collected the child
  bool Ended(int& status);
  /// Waits until the child ends, which it does not collect, or until `deadlineMs` (MonotonicMs).
  void WaitUntil(int64_t deadlineMs) const;
  /// True when SIGKILL was delivered.
  bool Kill() const;

 private:
  pid_t pid_;    ///< -1 once collected
  TFd process_;  ///< readable when the child has ended; none on old kernels
};

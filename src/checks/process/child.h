#pragma once

#include <stdint.h>
#include <sys/resource.h>
#include <sys/types.h>

#include "core/owned.h"

/// Children of this process: their start and their end. Any thread, but where it says otherwise.

/// Milliseconds of the monotonic clock.
int64_t MonotonicMs();

/// What to start. Pointers must stay valid until TChild::Start returns.
struct TChildPlan {
  const char* const* argv;        ///< null-terminated
  const char* program = nullptr;  ///< looked up along PATH; null: argv[0]
  const char* workdir = nullptr;  ///< null, "" or a folder that cannot be entered: the agent's own
  /// Files for the descriptors 0 to 2; null keeps the agent's own, one that cannot be opened is
  /// replaced by "/dev/null". A symbolic link is not followed, nobody is waited for at the other
  /// end of a pipe, and a new file gets mode 0666 less the umask.
  const char* streams[3] = {};
  bool ownSession = false;
};

/// The descriptor limit that children get right after their start: the one from before the agent
/// raised its own. Call it before the first thread starts.
void SetChildDescriptorLimit(const rlimit& original);

/// A child of this process. One thread at a time.
class TChild {
 public:
  /// Hands a child that still runs to the background.
  ~TChild();
  /// Starts a program: in a clean state, see checks/process/runner.h, and with the search, the
  /// shell for scripts without "#!" and the result of execvp. Returns when the program runs. The
  /// agent's memory is lent to the child until then, not copied, so the cost does not grow with the
  /// agent. (So a program or folder on a file system that hangs holds the calling thread.)
  /// @return 0, or an error number: EAGAIN or ENOMEM when no process could be made, else why the
  ///         program cannot be executed
  int Start(const TChildPlan& plan);
  /// Waits until the started child has ended, and collects it, or until `deadlineMs` (MonotonicMs)
  /// has passed; looks at least once. Not again after a true.
  /// @param status  out: wait status, set with true; that of a killed process when somebody else
  ///                collected the child
  bool EndedBy(int64_t deadlineMs, int& status);
  /// True when SIGKILL was delivered.
  bool Kill() const;

 private:
  pid_t pid_ = -1;  ///< -1: none, or collected
  TFd process_;     ///< readable when the child has ended; none when the kernel has none to give
};

/// Makes the ends of children visible to this process: sets SIGCHLD to its default action and takes
/// over what an earlier image left in the background. Call it in main, before the first thread.
void PrepareToWaitForChildren();

/// Collects background children that have ended. Never blocks; call it about once a second. Every
/// start by checks/process/runner.h does it too.
void ReapBackgroundChildren();

#pragma once

#include <stddef.h>

#include "core/wqstring.h"

/// Outside programs. A child runs with default signal actions, an empty signal mask, no descriptors
/// but 0 to 2, and TMPDIR set to the folder for temporary files. Any thread; nothing here changes
/// the signal handling of the process.

/// A time-out that starts the program in the background.
inline constexpr int kRunInBackground = -1;

/// The arguments of one run, split from a command line without a shell: no expansion, no escapes.
/// They are separated by spaces; a tab ends one too. Deliberate: a tab is never skipped, so one
/// right behind another separator gives an empty argument. An argument that begins with a quote
/// runs to the next of its kind or the end of the line, without them; quotes elsewhere are ordinary
/// bytes. Splitting stops without notice at kMaxArguments, and before an argument that no longer
/// fits into the block.
class TArgumentBlock {
 public:
  static constexpr int kMaxArguments = 23;
  static constexpr size_t kBlockBytes = 1024;  ///< all arguments with their terminators

  /// A null line gives no argument.
  explicit TArgumentBlock(const char* line);
  TArgumentBlock(const TArgumentBlock&) = delete;
  TArgumentBlock& operator=(const TArgumentBlock&) = delete;

  /// Pointers into this object, then a null pointer.
  const char* const* Argv() const { return argv_; }

 private:
  const char* argv_[kMaxArguments + 1] = {};
  char bytes_[kBlockBytes] = {};
};

/// Runs a program with all three streams on "/dev/null"; see SystemEx2.
int SystemEx(const char* cmdline, const char* workdir, int timeoutMs, int& exitCode, String& err);

/// Runs a program without a shell, in a session of its own.
/// @param cmdline    program (looked up along PATH) and arguments, see TArgumentBlock
/// @param workdir    folder to run in; null, "" or one that cannot be entered: the agent's own
/// @param inFile     file for standard input; null or one that cannot be opened: "/dev/null". A
///                   pipe that nobody has opened for writing is at its end
/// @param outFile    file for standard output, emptied first; null: "/dev/null"
/// @param errFile    the same for standard error. Deliberate: when it is outFile too, each stream
///                   still has a position of its own
/// @param timeoutMs  milliseconds; 0 waits without limit; kRunInBackground waits one second for an
///                   early end and then leaves the program running; any other value is a limit,
///                   looked at once a second (a negative one has passed at once), after which the
///                   program is killed
/// @param exitCode   out: exit status 0 to 255, set with result 1; for a background start 0 from
///                   the beginning
/// @param err        out: "", or with result 0 one of "fork error", "exec error: " and the
///                   system's text ("exec error" in the background), "abnormal termination" and
///                   "cannot terminate process". No exit status of a program counts as one of these
/// @return 1 when the program ran, else 0
int SystemEx2(const char* cmdline, const char* workdir, const char* inFile, const char* outFile,
              const char* errFile, int timeoutMs, int& exitCode, String& err);

/// Runs a command by "/bin/sh -c" on the agent's own standard streams and in its session to its
/// end. False when no process could be made.
bool RunShell(const char* command);

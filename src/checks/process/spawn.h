#pragma once

#include <stddef.h>
#include <sys/types.h>

#include "core/wqstring.h"

/// The file through which a child that cannot execute its program tells why: "tmpSqov-%d.txt" with
/// the child's process id, in the folder for temporary files. The child writes it, the parent reads
/// it; a file of that name that this child did not make counts for nothing.
class TExecNote {
 public:
  TExecNote();
  ~TExecNote();
  TExecNote(const TExecNote&) = delete;
  TExecNote& operator=(const TExecNote&) = delete;

  bool Written() const { return written_; }
  /// The first line, at most 254 bytes; "exec error" when the file is gone.
  String Text() const;

 private:
  friend struct TChildCode;
  char path_[1024];  ///< up to the process id, which the child appends; "" for no note
  size_t prefixLength_;
  bool written_ = false;
};

/// What to start. Pointers must stay valid until SpawnChild returns.
struct TSpawnPlan {
  const char* const* argv;        ///< null-terminated
  const char* program = nullptr;  ///< looked up along PATH; null: argv[0]
  const char* workdir = nullptr;  ///< null or a folder that cannot be entered: the agent's own
  /// Files for the descriptors 0 to 2; null keeps the agent's own, one that cannot be opened is
  /// replaced by "/dev/null". A symbolic link is not followed.
  const char* streams[3] = {};
  bool ownSession = false;
  TExecNote* note = nullptr;
};

/// Starts a child and returns when it has executed its program or given up; a child that gives up
/// has written its note, where it has one, and exits with `failureStatus`.
/// The agent's memory is lent to the child until then, not copied, so the cost does not grow with
/// the agent. (So a program or folder on a file system that hangs holds the calling thread.)
/// @return the process id, or -1 when no process could be made
pid_t SpawnChild(const TSpawnPlan& plan, int failureStatus);

#pragma once

#include <stdint.h>
#include <sys/types.h>

#include <mutex>

#include "core/owned.h"
#include "core/wqstring.h"

/// The number last used for a unique temporary name, 1 to 1000000, and what guards it.
extern int64_t filenumber;
extern std::mutex fidmutex;

/// Made of the process and the thread identifier: no two running threads of this host's agents
/// share it. For temporary names.
int64_t GetUniqueThreadID();

/// Writes a path in the folder for temporary files into `buf`; no file is made. Any thread.
/// @param size  of buf, bytes, at least 16
/// @param name  file name to use as it is, cut when it does not fit; null makes a name that no
///              regular file has yet
/// @return 1, or 0 with `buf` empty when the folder's name does not fit or no name was free
int gettempfilename(char* buf, int size, const char* name);

/// Owns the path of one temporary file and unlinks it when it goes out of scope. Its own opens
/// never follow a symbolic link. One thread at a time.
class TTempFile {
 public:
  TTempFile() = default;
  ~TTempFile();
  TTempFile(const TTempFile&) = delete;
  TTempFile& operator=(const TTempFile&) = delete;

  /// Chooses the path (see gettempfilename). False when no name could be made.
  bool Choose(const char* name);
  const char* Path() const { return path_; }
  /// Creates the file, empty and with mode 0666 less the umask, in place of whatever has that path.
  /// Returns the descriptor, open for writing, or none with errno set.
  TFd Create();
  /// Opens the file for reading; null when it is not there, is not a regular file, or has not been
  /// written since Create: opening it to write it anew, as a redirection does, counts as writing.
  TFile OpenText() const;

 private:
  char path_[512] = {};
};

/// Unlinks the file of every TTempFile there is: for a process that ends while other threads still
/// use theirs. Any thread.
void RemoveTempFiles();

/// execve for a process whose other threads may be using temporary files. When another program
/// takes over, the file of every TTempFile there is at that moment is unlinked; when it cannot, all
/// stay as they are. No TTempFile comes or goes meanwhile. A forked child sees to it and is gone
/// when this returns; the new program should wait for it (see PrepareToWaitForChildren). Where no
/// such child can be made the files stay in both cases. Any thread.
/// @return the error number of execve; a success does not return
int ExecuteAndRemoveTempFiles(const char* path, char* const argv[], char* const envp[]);

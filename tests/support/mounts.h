#pragma once

#include <string>
#include <vector>

#include "core/owned.h"

/// A view of the file system of this thread's own, in which it and the processes it starts see
/// other mounts than the rest of the host; given up at the end. Needs the superuser: see Usable.
class TPrivateMounts {
 public:
  TPrivateMounts();
  ~TPrivateMounts();
  TPrivateMounts(const TPrivateMounts&) = delete;
  TPrivateMounts& operator=(const TPrivateMounts&) = delete;

  bool Usable() const { return usable_; }
  /// Mounts an empty file system in memory on a folder.
  /// @param flags  as MS_NOEXEC
  bool AddMemory(const std::string& folder, long sizeBytes, unsigned long flags = 0);
  /// Shows `file` in the place of `target`.
  bool Cover(const std::string& target, const std::string& file);

 private:
  TFd former_;
  bool usable_ = false;
  std::vector<std::string> mounted_;
};

/// Fills the file system that holds `folder` with a file, but for `leaveBytes`; returns its path.
std::string FillUp(const std::string& folder, long leaveBytes = 0);

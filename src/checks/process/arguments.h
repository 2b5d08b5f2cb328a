#pragma once

#include <stddef.h>

/// The arguments of one run, split from a command line without a shell: no expansion, no escapes.
///
/// Arguments are separated by spaces; a tab ends an argument too. Deliberate: a tab is never
/// skipped, so one right behind another separator gives an empty argument. An argument that begins
/// with a single or double quote runs to the next quote of that kind, or to the end of the line,
/// and does not contain the quotes; quotes elsewhere are ordinary bytes. Splitting stops without
/// notice at kMaxArguments, and before an argument that no longer fits into the block.
class TArgumentBlock {
 public:
  static constexpr int kMaxArguments = 23;
  static constexpr size_t kBlockBytes = 1024;  ///< all arguments with their terminators

  /// @param cmdline  null counts as empty
  explicit TArgumentBlock(const char* cmdline);
  TArgumentBlock(const TArgumentBlock&) = delete;
  TArgumentBlock& operator=(const TArgumentBlock&) = delete;

  int Count() const { return count_; }
  /// Count() pointers into this object, then a null pointer.
  const char* const* Argv() const { return argv_; }

 private:
  int count_ = 0;
  const char* argv_[kMaxArguments + 1] = {};
  char bytes_[kBlockBytes] = {};
};

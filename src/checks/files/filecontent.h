#pragma once

#include <stddef.h>
#include <stdint.h>

#include <memory>

#include "core/wqstring.h"

/// What files hold. Only regular files are read; nothing here waits for another process. Any
/// thread.

/// Computes the CRC-32 of a file's bytes (TCRC32).
/// Deliberate: a file of size 0 or a multiple of 2048 bytes is a read error; so is what is no
/// regular file, as a pipe would hold the session.
/// @return 1 with *crc set, or 0 with `error` "File is not specified", "Cannot open file" or
///         "Read error"
int GetFileCRC(const char* path, unsigned int* crc, String& error);

/// Compares the bytes that both files have.
/// Deliberate: a file that is a leading part of the other is equal to it.
/// @return 1 equal, 0 different, -1 when one has no name or cannot be read
int CompareFiles(const char* a, const char* b);

/// Looks for a text in a file, in windows of three times the text's length.
/// @param caseSensitive  0: ASCII letters match in both cases
/// @param wholeWord      not 0: neither neighbour may be a letter or digit. Deliberate: a window's
///                       end counts as the end of a word.
/// @return 1-based position of an occurrence, 0 for none, -1 when the text is empty or the file
///         has no name or cannot be read
double FindStrInFile(const char* path, const String& text, int caseSensitive, int wholeWord);

/// Looks for the whole content of `patternFile` in the file `path`, case-sensitive. A pattern file
/// of size 0 is found, whether or not either file can be read.
/// Results as for FindStrInFile; -1 too when the pattern file cannot be read.
double FindFileInFile(const char* path, const char* patternFile);

/// The bytes of an open file that are held while it is read in blocks, from an offset up to a limit
/// or the end. Takes two blocks of memory; without them nothing can be read.
class TFileWindow {
 public:
  TFileWindow(int fd, int64_t from, int64_t limit, size_t blockBytes);

  /// The bytes held, and offset in the file of the first one.
  const char* Begin() const { return begin_; }
  const char* End() const { return end_; }
  int64_t Offset() const { return reached_ - (end_ - begin_); }
  /// Offset behind the last byte read.
  int64_t Reached() const { return reached_; }
  bool Failed() const { return failed_; }
  bool HasRoom() const { return end_ - begin_ <= static_cast<ptrdiff_t>(block_); }
  /// Gives up the bytes before `to`.
  void Drop(const char* to) { begin_ = to; }
  /// Reads a block behind the bytes held, which move. REQUIRES: HasRoom.
  /// @return the first new byte, null at the end and on failure
  const char* Fill();

 private:
  int fd_;
  int64_t reached_;
  int64_t limit_;
  size_t block_;
  std::unique_ptr<char[]> buffer_;
  const char* begin_ = buffer_.get();
  char* end_ = buffer_.get();
  bool failed_ = false;
};

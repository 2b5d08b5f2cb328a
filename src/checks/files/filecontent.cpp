#include "checks/files/filecontent.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <memory>

#include "core/textfinder.h"
#include "fs/files.h"
#include "protocol/ciplib.h"

namespace {

constexpr int64_t kCrcBlock = 2048;

bool HasName(const char* path) { return path != nullptr && *path != 0; }

/// An opened regular file; none when it cannot be opened or is something else.
TFd OpenRegular(const char* path, struct stat& facts) {
  if (!HasName(path)) return TFd();
  TFd file = OpenForReading(path);
  return file && IsRegularFile(file.Get(), facts) ? std::move(file) : TFd();
}

using TBuffer = std::unique_ptr<char[]>;
TBuffer MakeBuffer(size_t size) { return TBuffer(new char[size]); }

/// A search through one file. The buffer slides over the file with an overlap, so that an
/// occurrence and both its neighbours are in it together.
class TFileSearch {
 public:
  TFileSearch(int fd, int64_t sizeBytes, const String& text, int caseSensitive, int wholeWord)
      : fd_(fd),
        finder_({text.CStr(), static_cast<size_t>(text.Length())}, caseSensitive, wholeWord),
        wholeWord_(wholeWord != 0),
        length_(text.Length()),
        capacity_(2 * length_ + static_cast<int64_t>(kReadBytes)),
        windowed_(3 * length_ <= sizeBytes + 1),
        buffer_(static_cast<char*>(malloc(static_cast<size_t>(capacity_)))) {}

  double Run() {
    if (buffer_ == nullptr) return -1;
    int64_t from = 0;
    while (Fill()) {
      // An occurrence that ends with the buffer waits for its neighbour.
      const char* end = buffer_.get() + filled_ - (ended_ ? 0 : 1);
      const char* p = buffer_.get() + from;
      while ((p = finder_.FindAny(p, end)) != nullptr) {
        const int64_t at = p - buffer_.get();
        if (!wholeWord_ || IsBounded(at)) return static_cast<double>(base_ + at + 1);
        ++p;
      }
      if (ended_) return 0;
      from = Slide();
    }
    return -1;
  }

 private:
  struct TFree {
    void operator()(char* p) const { free(p); }
  };

  bool Fill() {
    const int64_t wanted = capacity_ - filled_;
    const ssize_t n = ReadFully(fd_, buffer_.get() + filled_, static_cast<size_t>(wanted));
    if (n < 0) return false;
    filled_ += n;
    ended_ = n < wanted;
    return true;
  }

  /// Keeps the bytes that an undecided occurrence may start in, and the one before them.
  /// @return where the search goes on
  int64_t Slide() {
    const int64_t kept = length_ + 1;
    base_ += filled_ - kept;
    memmove(buffer_.get(), buffer_.get() + filled_ - kept, static_cast<size_t>(kept));
    filled_ = kept;
    return 1;
  }

  bool IsBounded(int64_t at) const {
    const int64_t after = at + length_;
    const bool wordBefore = at > 0 && IsWordByte(buffer_.get()[at - 1]);
    const bool wordAfter = after < filled_ && IsWordByte(buffer_.get()[after]);
    const int64_t offset = base_ + at;
    const int64_t step = 2 * length_;
    // Windows of three lengths that overlap by one: an occurrence in the overlap is seen at the
    // end of one window and at the start of the next, each time with one neighbour only.
    const bool overlap = windowed_ && offset >= step && offset % step == 0;
    return overlap ? !wordBefore || !wordAfter : !wordBefore && !wordAfter;
  }

  int fd_;
  TTextFinder finder_;
  bool wholeWord_;
  int64_t length_;
  int64_t capacity_;
  bool windowed_;  // the file is larger than one window
  std::unique_ptr<char[], TFree> buffer_;
  int64_t base_ = 0;  // offset in the file of the buffer's first byte
  int64_t filled_ = 0;
  bool ended_ = false;
};

}  // namespace

int GetFileCRC(const char* path, unsigned int* crc, String& error) {
  if (!HasName(path)) {
    error = "File is not specified";
    return 0;
  }
  const TFd file = OpenForReading(path);
  if (!file) {
    error = "Cannot open file";
    return 0;
  }
  struct stat facts;
  const bool regular = IsRegularFile(file.Get(), facts);
  const TBuffer buffer = MakeBuffer(kReadBytes);
  TCRC32 sum;
  sum.InitCRC();
  int64_t sizeBytes = 0;
  ssize_t n = -1;
  while (regular && (n = ReadFully(file.Get(), buffer.get(), kReadBytes)) > 0) {
    sum.UpdateCRC(buffer.get(), static_cast<int>(n));
    sizeBytes += n;
  }
  if (n < 0 || sizeBytes % kCrcBlock == 0) {
    error = "Read error";
    return 0;
  }
  *crc = sum.GetCRC();
  return 1;
}

int CompareFiles(const char* a, const char* b) {
  struct stat facts;
  const TFd first = OpenRegular(a, facts);
  const TFd second = OpenRegular(b, facts);
  if (!first || !second) return -1;
  const TBuffer firstBytes = MakeBuffer(kReadBytes);
  const TBuffer secondBytes = MakeBuffer(kReadBytes);
  ssize_t common;
  do {
    const ssize_t m = ReadFully(first.Get(), firstBytes.get(), kReadBytes);
    const ssize_t n = ReadFully(second.Get(), secondBytes.get(), kReadBytes);
    if (m < 0 || n < 0) return -1;
    common = std::min(m, n);
    if (memcmp(firstBytes.get(), secondBytes.get(), static_cast<size_t>(common)) != 0) return 0;
  } while (common == static_cast<ssize_t>(kReadBytes));
  return 1;
}

double FindStrInFile(const char* path, String& text, int caseSensitive, int wholeWord) {
  struct stat facts;
  const TFd file = OpenRegular(path, facts);
  if (text.Empty() || !file) return -1;
  if (text.Length() > facts.st_size) return 0;
  if (caseSensitive == 0) text.LowerCase();
  return TFileSearch(file.Get(), facts.st_size, text, caseSensitive, wholeWord).Run();
}

double FindFileInFile(const char* path, const char* patternFile) {
  if (!HasName(patternFile)) return -1;
  if (FileSize(patternFile) == 0) return 1;
  struct stat facts;
  const TFd file = OpenRegular(patternFile, facts);
  if (!file || facts.st_size > INT_MAX / 2) return -1;  // so that the search's sums fit as well
  String pattern;
  pattern.SetLength(static_cast<int>(facts.st_size));
  const ssize_t n = ReadFully(file.Get(), pattern.Data(), static_cast<size_t>(pattern.Length()));
  if (n < 0) return -1;
  pattern.SetLength(static_cast<int>(n));
  return FindStrInFile(path, pattern, 1, 0);
}

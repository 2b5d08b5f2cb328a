#include "checks/files/filecontent.h"

#include <limits.h>
#include <string.h>

#include <algorithm>
#include <new>
#include <utility>

#include "core/textfinder.h"
#include "fs/files.h"
#include "protocol/ciplib.h"

namespace {

bool HasName(const char* path) { return path != nullptr && *path != 0; }

/// An opened regular file; none when it cannot be opened or is something else.
TFd OpenRegular(const char* path, struct stat& facts) {
  if (!HasName(path)) return TFd();
  TFd file = OpenForReading(path);
  return file && IsRegularFile(file.Get(), facts) ? std::move(file) : TFd();
}

}  // namespace

TFileWindow::TFileWindow(int fd, int64_t from, int64_t limit, size_t blockBytes)
    : fd_(fd),
      reached_(from),
      limit_(limit),
      block_(blockBytes),
      buffer_(new (std::nothrow) char[2 * blockBytes]) {}

const char* TFileWindow::Fill() {
  end_ = std::copy(begin_, static_cast<const char*>(end_), buffer_.get());
  begin_ = buffer_.get();
  const size_t count = std::min(block_, static_cast<size_t>(limit_ - reached_));
  ssize_t n = buffer_ == nullptr ? -1 : 0;
  if (n == 0 && count > 0) n = ReadAt(fd_, end_, count, reached_);
  failed_ = n < 0;
  if (n <= 0) return nullptr;
  end_ += n;
  reached_ += n;
  return end_ - n;
}

int GetFileCRC(const char* path, unsigned int* crc, String& error) {
  const auto fail = [&error](const char* text) {
    error = text;
    return 0;
  };
  if (!HasName(path)) return fail("File is not specified");
  const TFd file = OpenForReading(path);
  if (!file) return fail("Cannot open file");
  struct stat facts;
  if (!IsRegularFile(file.Get(), facts)) return fail("Read error");
  const auto buffer = std::make_unique_for_overwrite<char[]>(kReadBytes);
  TCRC32 sum;
  int64_t sizeBytes = 0;
  ssize_t n;
  while ((n = ReadFully(file.Get(), buffer.get(), kReadBytes)) > 0) {
    sum.UpdateCRC(buffer.get(), static_cast<int>(n));
    sizeBytes += n;
  }
  if (n < 0 || sizeBytes % 2048 == 0) return fail("Read error");
  *crc = sum.GetCRC();
  return 1;
}

int CompareFiles(const char* a, const char* b) {
  struct stat facts;
  const TFd first = OpenRegular(a, facts);
  const TFd second = OpenRegular(b, facts);
  if (!first || !second) return -1;
  const auto buffer = std::make_unique_for_overwrite<char[]>(2 * kReadBytes);
  char* const other = buffer.get() + kReadBytes;
  ssize_t common;
  do {
    const ssize_t m = ReadFully(first.Get(), buffer.get(), kReadBytes);
    const ssize_t n = ReadFully(second.Get(), other, kReadBytes);
    if (m < 0 || n < 0) return -1;
    common = std::min(m, n);
    if (memcmp(buffer.get(), other, static_cast<size_t>(common)) != 0) return 0;
  } while (common == static_cast<ssize_t>(kReadBytes));
  return 1;
}

double FindStrInFile(const char* path, const String& text, int caseSensitive, int wholeWord) {
  struct stat facts;
  const TFd file = OpenRegular(path, facts);
  if (text.Empty() || !file) return -1;
  const int64_t length = text.Length();
  if (length > facts.st_size) return 0;
  const TTextFinder finder({text.CStr(), static_cast<size_t>(length)}, caseSensitive, wholeWord);
  TFileWindow window(file.Get(), 0, INT64_MAX, std::max(kReadBytes, finder.Length() + 1));
  // Windows of three lengths that overlap by one: an occurrence in the overlap is seen at the end
  // of one window and at the start of the next, each time with one neighbour only. So one is
  // enough.
  const auto findInOverlap = [&](const char* from, const char* end) -> const char* {
    const int64_t step = 2 * length;
    int64_t offset = window.Offset() + (from - window.Begin());
    for (offset = std::max(step, (offset + step - 1) / step * step);; offset += step) {
      const char* p = window.Begin() + (offset - window.Offset());
      const char* after = p + length;
      if (after > end) return nullptr;
      const bool bounded =
          p == window.Begin() || !IsWordByte(p[-1]) || after == window.End() || !IsWordByte(*after);
      if (bounded && finder.FindAny(p, after) != nullptr) return p;
    }
  };
  ptrdiff_t from = 0;
  for (bool more = true; more;) {
    more = window.Fill() != nullptr;
    if (window.Failed()) return -1;
    // An occurrence that ends with the bytes held waits for its neighbour.
    const char* end = window.End() - (more ? 1 : 0);
    const char* p = window.Begin() + from;
    const char* found = finder.Find(window.Begin(), p, window.End());
    if (found != nullptr && found + length > end) found = nullptr;
    const char* other = wholeWord != 0 ? findInOverlap(p, end) : nullptr;
    if (other != nullptr && (found == nullptr || other < found)) found = other;
    if (found != nullptr)
      return static_cast<double>(window.Offset() + (found - window.Begin()) + 1);
    if (end - window.Begin() < length) continue;
    window.Drop(end - length);  // looked at, and a neighbour
    from = 1;
  }
  return 0;
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

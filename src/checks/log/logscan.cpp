#include "checks/log/logscan.h"

#include <errno.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <memory>

#include "fs/files.h"
#include "fs/paths.h"

namespace {

constexpr int kOpenAttempts = 3;
/// The run of lines that is searched first when the last match is wanted.
constexpr ptrdiff_t kLastBytes = 4096;
/// As much of a line as a match reports.
constexpr ptrdiff_t kMaxLineBytes = 1 << 30;

struct TFree {
  void operator()(char* p) const { free(p); }
};

/// Reads a file in runs of whole lines, from `from` up to `limit`.
class TLineReader {
 public:
  TLineReader(int fd, int64_t from, int64_t limit) : fd_(fd), reached_(from), limit_(limit) {}

  /// The next run, valid until the next call. False when no further line is complete.
  bool Next(const char*& begin, const char*& end) {
    std::copy(buffer_.get() + used_, buffer_.get() + filled_, buffer_.get());
    filled_ -= used_;
    used_ = 0;
    while (used_ == 0) {
      const size_t former = filled_;
      if (!Fill()) return false;
      const char* fresh = buffer_.get() + former;
      const char* lineStart = FindLineStart(fresh, buffer_.get() + filled_);
      if (lineStart != fresh) used_ = static_cast<size_t>(lineStart - buffer_.get());
    }
    begin = buffer_.get();
    end = begin + used_;
    return true;
  }

  /// Offset in the file of the run's first byte.
  int64_t Offset() const { return reached_ - static_cast<int64_t>(filled_); }
  /// Offset behind the last byte read.
  int64_t Reached() const { return reached_; }

 private:
  bool Fill() {
    const size_t count = static_cast<size_t>(std::min<int64_t>(kReadBytes, limit_ - reached_));
    if (count == 0) return false;
    if (capacity_ - filled_ < count && !Grow()) return false;
    const ssize_t n = ReadAt(fd_, buffer_.get() + filled_, count, reached_);
    if (n <= 0) return false;
    filled_ += static_cast<size_t>(n);
    reached_ += n;
    return true;
  }

  bool Grow() {
    const size_t wanted = 2 * (capacity_ + kReadBytes);
    char* grown = static_cast<char*>(realloc(buffer_.get(), wanted));
    if (grown == nullptr) return false;
    static_cast<void>(buffer_.release());
    buffer_.reset(grown);
    capacity_ = wanted;
    return true;
  }

  int fd_;
  int64_t reached_;
  int64_t limit_;
  std::unique_ptr<char, TFree> buffer_;
  size_t capacity_ = 0;
  size_t filled_ = 0;
  size_t used_ = 0;  // bytes of the run handed out
};

void WaitOneSecond() {
  timespec left{1, 0};
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
  }
}

TFd OpenLog(const char* path, struct stat& facts) {
  for (int attempt = 0; attempt < kOpenAttempts; ++attempt) {
    TFd fd = OpenForReading(path);
    if (fd && IsRegularFile(fd.Get(), facts)) return fd;
    WaitOneSecond();
  }
  return TFd();
}

/// Offset at which the bytes of a line begin: behind the line end of the last line before it that
/// is not empty, `none` when there is no such line in [begin, line).
double BytesBegin(const char* begin, const char* line, int64_t offset, double none) {
  while (line > begin && IsLineEnd(line[-1])) --line;
  return line == begin ? none : static_cast<double>(offset + (line - begin) + 1);
}

/// Reads on from state.position and moves it along.
void ReadLines(TLineReader& reader, const char* path, const TLineFilters& filters, bool scanAll,
               TLogState& state, TLogMatch& match) {
  const char* begin;
  const char* end;
  while (reader.Next(begin, end)) {
    TFoundLine line;
    const int filter =
        scanAll ? filters.FindLast(begin, end, line) : filters.FindFirst(begin, end, line);
    const int64_t offset = reader.Offset();
    if (filter != 0) {
      match.filter = filter;
      match.offset = line.matchValue + BytesBegin(begin, line.begin, offset, state.position);
      match.line.CopyData(line.begin,
                          static_cast<int>(std::min(line.end - line.begin, kMaxLineBytes)));
      state.currentSize = static_cast<double>(FileSize(path));
      if (!scanAll) end = line.end + 1;
    }
    state.position = BytesBegin(begin, end, offset, state.position);
    if (filter != 0 && !scanAll) return;
  }
}

}  // namespace

int TLineFilters::FindFirst(const char* begin, const char* end, TFoundLine& line) const {
  TFoundLine other;
  const bool first = TLineSearch(first_, begin, end).Next(line);
  // What lies behind the first filter's line can no longer come first.
  if (first) end = line.end + 1;
  if (!second_ || !TLineSearch(*second_, begin, end).Next(other)) return first ? 1 : 0;
  if (first && line.begin == other.begin) return 1;
  line = other;
  return 2;
}

int TLineFilters::FindLast(const char* begin, const char* end, TFoundLine& line) const {
  const auto last = [](const TLineFilter& filter, const char* from, const char* to,
                       TFoundLine& found) {
    TLineSearch search(filter, from, to);
    bool any = false;
    while (search.Next(found)) any = true;
    return any;
  };
  // From the end, in ever larger blocks: most lines of a log full of matches are never looked at.
  for (ptrdiff_t size = kLastBytes; begin < end; size *= 2) {
    const char* from = end - begin > size ? FindLineStart(begin, end - size) : begin;
    TFoundLine other;
    const bool first = last(first_, from, end, line);
    const bool second = second_ && last(*second_, from, end, other);
    if (second && (!first || other.begin > line.begin)) {
      line = other;
      return 2;
    }
    if (first) return 1;
    end = from;
  }
  return 0;
}

int ScanLog(const char* path, const TLineFilters& filters, bool scanAll, TLogState& state,
            TLogMatch& match, String& error) {
  state.currentSize = static_cast<double>(FileSize(path));
  match = TLogMatch();
  if (!FileExists(path)) {
    error = String("File \"") + ExtractFileName(path) + "\" not found";
    return 0;
  }
  error = "";
  const bool sameSize = state.size != 0 && state.size == state.currentSize;
  if (sameSize && state.time != 0 && state.time == FileAge(path)) return 1;

  struct stat facts;
  const TFd file = OpenLog(path, facts);
  if (!file) {
    error = "Cannot open file";
    return 0;
  }
  // Size and time are those from before the reading, which ends at this size: what is appended
  // from now on makes both differ from what is recorded.
  const int64_t sizeBytes = facts.st_size;
  state.currentSize = static_cast<double>(sizeBytes);
  if (state.size == 0) {
    state.position = state.currentSize - 1;
    state.size = state.currentSize;
    state.time = static_cast<int>(facts.st_mtime);
    return 1;
  }
  if (state.position > state.currentSize) state.position = 0;
  if (state.position < 0) {
    error = "fseek error";
    return 0;
  }
  TLineReader reader(file.Get(), static_cast<int64_t>(state.position), sizeBytes);
  ReadLines(reader, path, filters, scanAll, state, match);
  // A file that shrank meanwhile or cannot be read to its end keeps its former baseline.
  if (reader.Reached() == sizeBytes && (match.offset == 0 || scanAll)) {
    state.size = static_cast<double>(sizeBytes);
    state.time = static_cast<int>(facts.st_mtime);
  }
  return 1;
}

#include "checks/log/logscan.h"

#include <time.h>

#include <algorithm>
#include <memory>

#include "fs/files.h"
#include "fs/paths.h"

namespace {

constexpr int kOpenAttempts = 3;
/// The run of lines that is searched first when the last match is wanted.
constexpr ptrdiff_t kLastBytes = 4096;

/// A window that moves over a file from `from` up to `limit`.
class TLogWindow {
 public:
  TLogWindow(int fd, int64_t from, int64_t limit, size_t blockBytes)
      : fd_(fd),
        reached_(from),
        limit_(limit),
        block_(blockBytes),
        buffer_(new char[2 * blockBytes]),
        begin_(buffer_.get()),
        end_(buffer_.get()) {}

  /// The bytes held, and offset in the file of the first one.
  const char* Begin() const { return begin_; }
  const char* End() const { return end_; }
  int64_t Offset() const { return reached_ - (end_ - begin_); }
  /// Offset behind the last byte read.
  int64_t Reached() const { return reached_; }
  void Drop(const char* to) { begin_ = to; }
  bool HasRoom() const { return end_ - begin_ <= static_cast<ptrdiff_t>(block_); }

  /// Reads a block behind the bytes held, which move. REQUIRES: HasRoom.
  /// @return the first new byte, null at the limit and on failure
  const char* Fill() {
    end_ = std::copy(begin_, static_cast<const char*>(end_), buffer_.get());
    begin_ = buffer_.get();
    const size_t count = std::min(block_, static_cast<size_t>(limit_ - reached_));
    const ssize_t n = count > 0 ? ReadAt(fd_, end_, count, reached_) : 0;
    if (n <= 0) return nullptr;
    end_ += n;
    reached_ += n;
    return end_ - n;
  }

 private:
  int fd_;
  int64_t reached_;
  int64_t limit_;
  size_t block_;
  std::unique_ptr<char[]> buffer_;
  const char* begin_;
  char* end_;
};

/// Offset at which the bytes of a line begin: behind the line end of the last line before it that
/// is not empty, `none` when there is no such line in [begin, line).
double BytesBegin(const char* begin, const char* line, int64_t offset, double none) {
  while (line > begin && IsLineEnd(line[-1])) --line;
  return line == begin ? none : static_cast<double>(offset + (line - begin) + 1);
}

/// The first matching line of a run of whole lines.
/// @return the filter that matched, the first one where both do, or 0
int FindFirst(const TLineFilters& filters, const char* begin, const char* end, TFoundLine& line) {
  int filter = 0;
  for (size_t i = 0; i < filters.size(); ++i) {
    TFoundLine other;
    if (!TLineSearch(filters[i], begin, end).Next(other)) continue;
    if (filter != 0 && line.begin == other.begin) continue;
    line = other;
    filter = static_cast<int>(i) + 1;
    // What lies behind this line can no longer come first.
    end = line.end + 1;
  }
  return filter;
}

/// The same for the last one.
int FindLast(const TLineFilters& filters, const char* begin, const char* end, TFoundLine& line) {
  // From the end, in ever larger blocks: most lines of a log full of matches are never looked at.
  for (ptrdiff_t size = kLastBytes; begin < end; size *= 2) {
    const char* from = end - begin > size ? FindLineStart(begin, end - size) : begin;
    int filter = 0;
    for (size_t i = 0; i < filters.size(); ++i) {
      TLineSearch search(filters[i], from, end);
      for (TFoundLine other; search.Next(other);) {
        if (filter != 0 && other.begin <= line.begin) continue;
        line = other;
        filter = static_cast<int>(i) + 1;
      }
    }
    if (filter != 0) return filter;
    end = from;
  }
  return 0;
}

/// Bytes of the longest text that a line can hold.
size_t LongestText(const TLineFilters& filters) {
  size_t longest = 0;
  for (const TLineFilter& filter : filters) {
    for (size_t i = 0; i < filter.Expression().TextCount(); ++i) {
      const TTextFinder text = filter.Expression().Text(i);
      if (text.FitsInLine()) longest = std::max(longest, text.Length());
    }
  }
  return longest;
}

/// One scan of an open log: tests line after line from state.position on, and moves it along.
class TLogScan {
 public:
  TLogScan(const char* path, const TLineFilters& filters, bool scanAll, TLogState& state,
           TLogMatch& match)
      : path_(path),
        filters_(filters),
        scanAll_(scanAll),
        longestText_(LongestText(filters)),
        state_(state),
        match_(match) {}

  /// @return offset up to which the file has been read, at most `limit`
  int64_t Read(int fd, int64_t limit) {
    TLogWindow window(fd, static_cast<int64_t>(state_.position), limit,
                      std::max(kReadBytes, longestText_ + 1));
    while (!done_) {
      const char* fresh = window.Fill();
      if (fresh == nullptr) break;
      TakeLines(window, fresh);
      if (!done_ && !window.HasRoom()) TakeLongLine(window);
    }
    return window.Reached();
  }

 private:
  void Report(int filter, double offset, const char* line, ptrdiff_t length) {
    match_.filter = filter;
    match_.offset = offset;
    match_.line.CopyData(line, static_cast<int>(std::min<ptrdiff_t>(length, kMaxReportedLine)));
    state_.currentSize = static_cast<double>(FileSize(path_));
    done_ = !scanAll_;
  }

  /// Takes the whole lines held; there is no line end before `fresh`.
  void TakeLines(TLogWindow& window, const char* fresh) {
    const char* begin = window.Begin();
    const char* end = FindLineStart(fresh, window.End());
    if (end == fresh) return;
    TFoundLine line;
    const int filter = (scanAll_ ? FindLast : FindFirst)(filters_, begin, end, line);
    const int64_t offset = window.Offset();
    if (filter != 0) {
      const double bytesBegin = BytesBegin(begin, line.begin, offset, state_.position);
      Report(filter, line.matchValue + bytesBegin, line.begin, line.end - line.begin);
      if (done_) end = line.end + 1;
    }
    state_.position = BytesBegin(begin, end, offset, state_.position);
    window.Drop(end);
  }

  /// Takes the line that the bytes held are the beginning of. Unfinished, it ends the scan.
  void TakeLongLine(TLogWindow& window) {
    const int64_t lineOffset = window.Offset();
    const String head(window.Begin(), kMaxReportedLine);
    std::vector<TLinePieces> tests(filters_.begin(), filters_.end());
    const auto search = [&](const char* from, const char* to, const char* end) {
      const int64_t offset = window.Offset() + (from - window.Begin()) - lineOffset;
      for (TLinePieces& test : tests) test.Search(window.Begin(), from, to, end, offset);
    };
    const char* from = window.Begin();
    const char* lineEnd;
    do {
      const char* to = window.End() - longestText_;
      search(from, to, window.End());
      window.Drop(to - 1);  // the byte before is a neighbour
      const char* fresh = window.Fill();
      done_ = fresh == nullptr;
      if (done_) return;
      from = window.Begin() + 1;
      lineEnd = FindLineEnd(fresh, window.End());
    } while (lineEnd == window.End());
    search(from, lineEnd, lineEnd);

    double value = 0;
    size_t i = 0;
    while (i < tests.size() && (value = tests[i].MatchValue()) == 0) ++i;
    if (value != 0) {
      Report(static_cast<int>(i) + 1, value + state_.position, head.CStr(), head.Length());
    }
    state_.position = static_cast<double>(window.Offset() + (lineEnd + 1 - window.Begin()));
    window.Drop(lineEnd + 1);
    if (!done_) TakeLines(window, lineEnd + 1);
  }

  const char* path_;
  const TLineFilters& filters_;
  bool scanAll_;
  size_t longestText_;
  TLogState& state_;
  TLogMatch& match_;
  bool done_ = false;
};

void WaitOneSecond() {
  timespec left{1, 0};
  while (nanosleep(&left, &left) != 0) {
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

bool IsUnchanged(const char* path, const TLogState& state) {
  return state.size != 0 && state.size == state.currentSize && state.time != 0 &&
         state.time == FileAge(path);
}

/// Size and time are those from before the reading, which ends at this size: what is appended from
/// then on makes both differ from what is recorded.
void SetBaseline(TLogState& state, const struct stat& facts) {
  state.size = static_cast<double>(facts.st_size);
  state.time = static_cast<int>(facts.st_mtime);
}

}  // namespace

bool ScanLog(const char* path, const TLineFilters& filters, bool scanAll, TLogState& state,
             TLogMatch& match, String& error) {
  const auto fail = [&error](const String& text) {
    error = text;
    return false;
  };
  state.currentSize = static_cast<double>(FileSize(path));
  match = TLogMatch();
  // Deliberate: a FIFO or device is no log, so that no check waits for a peer at its other end.
  if (!FileExists(path)) return fail(String("File \"") + ExtractFileName(path) + "\" not found");
  error = "";
  if (IsUnchanged(path, state)) return true;

  struct stat facts;
  const TFd file = OpenLog(path, facts);
  if (!file) return fail("Cannot open file");
  state.currentSize = static_cast<double>(facts.st_size);
  if (state.size == 0) {
    state.position = state.currentSize - 1;
    SetBaseline(state, facts);
    return true;
  }
  if (state.position > state.currentSize) state.position = 0;
  if (state.position < 0) return fail("fseek error");
  TLogScan scan(path, filters, scanAll, state, match);
  const bool all = scan.Read(file.Get(), facts.st_size) == facts.st_size;
  // Deliberate: a file that shrank meanwhile or cannot be read to its end keeps its former
  // baseline, so that a later check does not take it for unchanged.
  if (all && (match.offset == 0 || scanAll)) SetBaseline(state, facts);
  return true;
}

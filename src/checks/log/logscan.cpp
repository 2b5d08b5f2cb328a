#include "checks/log/logscan.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "checks/files/filecontent.h"
#include "fs/files.h"
#include "fs/paths.h"

namespace {

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
  for (ptrdiff_t size = 4096; begin < end; size *= 2) {
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
struct TLogScan {
  const char* path;
  const TLineFilters& filters;
  bool scanAll;
  TLogState& state;
  TLogMatch& match;
  size_t longestText = LongestText(filters);
  bool done = false;

  /// @return offset up to which the file has been read, at most `limit`
  int64_t Read(int fd, int64_t limit) {
    TFileWindow window(fd, static_cast<int64_t>(state.position), limit,
                       std::max(kReadBytes, longestText + 1));
    while (!done) {
      const char* fresh = window.Fill();
      if (fresh == nullptr) break;
      TakeLines(window, fresh);
      if (!done && !window.HasRoom()) TakeLongLine(window);
    }
    return window.Reached();
  }

  void Report(int filter, double offset, const char* line, ptrdiff_t length) {
    match.filter = filter;
    match.offset = offset;
    match.line.CopyData(line, static_cast<int>(std::min<ptrdiff_t>(length, kMaxReportedLine)));
    state.currentSize = static_cast<double>(FileSize(path));
    done = !scanAll;
  }

  /// Takes the whole lines held; there is no line end before `fresh`.
  void TakeLines(TFileWindow& window, const char* fresh) {
    const char* begin = window.Begin();
    const char* end = FindLineStart(fresh, window.End());
    if (end == fresh) return;
    TFoundLine line;
    const int filter = (scanAll ? FindLast : FindFirst)(filters, begin, end, line);
    const int64_t offset = window.Offset();
    if (filter != 0) {
      const double bytesBegin = BytesBegin(begin, line.begin, offset, state.position);
      Report(filter, line.matchValue + bytesBegin, line.begin, line.end - line.begin);
      if (done) end = line.end + 1;
    }
    state.position = BytesBegin(begin, end, offset, state.position);
    window.Drop(end);
  }

  /// Takes the line that the bytes held are the beginning of. Unfinished, it ends the scan.
  void TakeLongLine(TFileWindow& window) {
    const int64_t lineOffset = window.Offset();
    const String head(window.Begin(), kMaxReportedLine);
    std::vector<TLinePieces> tests(filters.begin(), filters.end());
    const auto search = [&](const char* from, const char* to, const char* end) {
      const int64_t offset = window.Offset() + (from - window.Begin()) - lineOffset;
      for (TLinePieces& test : tests) test.Search(window.Begin(), from, to, end, offset);
    };
    const char* from = window.Begin();
    const char* lineEnd;
    do {
      const char* to = window.End() - longestText;
      search(from, to, window.End());
      window.Drop(to - 1);  // the byte before is a neighbour
      const char* fresh = window.Fill();
      done = fresh == nullptr;
      if (done) return;
      from = window.Begin() + 1;
      lineEnd = FindLineEnd(fresh, window.End());
    } while (lineEnd == window.End());
    search(from, lineEnd, lineEnd);

    double value = 0;
    size_t i = 0;
    while (i < tests.size() && (value = tests[i].MatchValue()) == 0) ++i;
    if (value != 0) {
      Report(static_cast<int>(i) + 1, value + state.position, head.CStr(), head.Length());
    }
    state.position = static_cast<double>(window.Offset() + (lineEnd + 1 - window.Begin()));
    window.Drop(lineEnd + 1);
    if (!done) TakeLines(window, lineEnd + 1);
  }
};

TFd OpenLog(const char* path, struct stat& facts) {
  for (int attempt = 0; attempt < 3; ++attempt) {
    TFd fd = OpenForReading(path);
    if (fd && IsRegularFile(fd.Get(), facts)) return fd;
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  return TFd();
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
  const bool unchanged = state.size != 0 && state.size == state.currentSize && state.time != 0 &&
                         state.time == FileAge(path);
  if (unchanged) return true;

  struct stat facts;
  const TFd file = OpenLog(path, facts);
  if (!file) return fail("Cannot open file");
  state.currentSize = static_cast<double>(facts.st_size);
  bool complete = true;
  if (state.size == 0) {
    state.position = state.currentSize - 1;
  } else {
    if (state.position > state.currentSize) state.position = 0;
    if (state.position < 0) return fail("fseek error");
    TLogScan scan{path, filters, scanAll, state, match};
    // Deliberate: a file that shrank meanwhile or cannot be read to its end keeps its former
    // baseline, so that a later check does not take it for unchanged.
    complete = scan.Read(file.Get(), facts.st_size) == facts.st_size;
    complete &= match.offset == 0 || scanAll;
  }
  if (!complete) return true;
  // As they were before the reading, which ended at this size: what is appended from then on makes
  // both differ.
  state.size = static_cast<double>(facts.st_size);
  state.time = static_cast<int>(facts.st_mtime);
  return true;
}

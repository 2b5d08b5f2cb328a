#pragma once

#include <optional>
#include <utility>

#include "checks/log/linefilter.h"
#include "core/wqstring.h"

/// How far a text log has been read. The numbers travel with the requests; all are whole.
struct TLogState {
  double position;     ///< offset in bytes from which the next scan starts
  double size;         ///< bytes of the file that the last complete scan covered; 0: none yet
  double time;         ///< modification time of the file then, seconds since the epoch; 0: none
  double currentSize;  ///< out: file size at the start of the scan, or at its last match, bytes
};

/// What a scan found.
struct TLogMatch {
  double offset = 0;  ///< of the line, plus the match value; 0 when nothing matched
  int filter = 0;     ///< 1 or 2: the filter that matched
  String line;
};

/// A first and perhaps a second filter: a line matches when one of them does.
class TLineFilters {
 public:
  explicit TLineFilters(TLineFilter first) : first_(std::move(first)) {}
  void SetSecond(TLineFilter second) { second_.emplace(std::move(second)); }

  /// The first or the last matching line of a run of whole lines.
  /// @return the filter that matched, the first one where both do, or 0
  int FindFirst(const char* begin, const char* end, TFoundLine& line) const;
  int FindLast(const char* begin, const char* end, TFoundLine& line) const;

 private:
  TLineFilter first_;
  std::optional<TLineFilter> second_;
};

/// Scans the log from state.position for the first matching line, or with scanAll to its end for
/// the last one. Empty lines and a last line without a line end are left out; the latter is read
/// by a later scan. A state without a size makes this the first scan: it reads nothing and sets
/// the state to the last byte of the file.
/// @param state  in and out; size and time move only when the file has been read to its end, and
///               never cover bytes that were not read
/// @return 1, or 0 with `error` set. A file that cannot be opened is tried three times, a second
///         apart. Any thread; memory is bounded by the longest line.
int ScanLog(const char* path, const TLineFilters& filters, bool scanAll, TLogState& state,
            TLogMatch& match, String& error);

#pragma once

#include <vector>

#include "checks/log/linefilter.h"
#include "core/wqstring.h"

/// The scan of a growing log for lines of interest.
///
/// The log is read in large blocks, at the speed of the memory; behind a block the lines that are
/// whole are tested together (see linefilter.h), and the start of the next one moves to the front
/// of the buffer. A line that the buffer cannot hold, finished or not, may be as long as the file:
/// of it no more is kept than its first bytes, which of the texts were found, and an overlap of the
/// longest text from one block to the next. So memory depends on the filters alone, and a scan
/// reads each byte once. It ends at the size that the file had at its start, for that is what it
/// records: lines appended meanwhile are left to the next one.

/// How far a text log has been read. The numbers travel with the requests; all are whole.
struct TLogState {
  double position;     ///< offset in bytes from which the next scan starts
  double size;         ///< bytes of the file that the last complete scan covered; 0: none yet
  double time;         ///< modification time of the file then, seconds since the epoch; 0: none
  double currentSize;  ///< out: file size at the start of the scan, or at its last match, bytes
};

/// As much of a line as a match reports, bytes.
inline constexpr int kMaxReportedLine = 1024;

/// What a scan found.
struct TLogMatch {
  double offset = 0;  ///< of the line, plus the match value; 0 when nothing matched
  int filter = 0;     ///< 1 or 2: the filter that matched
  String line;        ///< its first kMaxReportedLine bytes
};

/// A first and perhaps a second filter: a line matches when one of them does, the first one first.
using TLineFilters = std::vector<TLineFilter>;

/// Scans the log from state.position for the first matching line, or with scanAll to its end for
/// the last one. Empty lines and a last line without a line end are left out; the latter is read
/// by a later scan. A state without a size makes this the first scan: it reads nothing and sets
/// the state to the last byte of the file.
/// @param state  in and out; size and time move only when the file has been read to its end, and
///               never cover bytes that were not read
/// @return true, or false with `error` set. A file that cannot be opened is tried three times, a
///         second apart. Any thread; memory is twice the longest text or 512 KiB.
bool ScanLog(const char* path, const TLineFilters& filters, bool scanAll, TLogState& state,
             TLogMatch& match, String& error);

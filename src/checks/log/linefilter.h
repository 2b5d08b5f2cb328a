#pragma once

#include <stddef.h>
#include <stdint.h>

#include <vector>

#include "checks/log/exprparser.h"

/// Which lines of a text log are of interest. Lines are runs of bytes up to a CR or LF, which is no
/// part of the line.
///
/// Logs are large and matching lines rare. So nothing is done line by line: each text is looked for
/// in many lines at once, at the speed of the memory, and only around an occurrence are the ends of
/// its line found and the filter evaluated, with the other texts' occurrences at hand. Lines
/// without any of the texts are never looked at, unless they match ("not ..."). Only a line too
/// long to be held is tested apart (TLinePieces), where it is enough to know which texts have been
/// found so far.

/// The first line end in [p, end), `end` for none.
const char* FindLineEnd(const char* p, const char* end);
/// The position behind the last line end in [begin, p), `begin` for none.
const char* FindLineStart(const char* begin, const char* p);

/// A line that a filter matched.
struct TFoundLine {
  const char* begin;
  const char* end;    ///< its line end
  double matchValue;  ///< 1-based position of the text in the line, or 1 for an expression
};

/// One filter prepared for many lines. Read-only once made: threads may share it.
class TLineFilter {
 public:
  TLineFilter(String text, bool isExpression, int caseSensitive, int wholeWord);

  const TSearchExpression& Expression() const { return expression_; }
  /// The match value (see TFoundLine) of a line in which exactly the texts `found` of the
  /// expression were found, the first at 1-based position `position`; 0 when it does not match.
  double MatchValue(const std::vector<unsigned char>& found, double position) const;
  /// Whether a line matches in which no text was found.
  bool MatchesBareLines() const { return matchesBareLines_; }

 private:
  bool isExpression_;
  TSearchExpression expression_;
  bool matchesBareLines_;
};

/// Looks for matching lines in a run of whole lines.
class TLineSearch {
 public:
  /// @param begin  start of a line
  /// @param end    behind a line end, less than 4 GiB behind the start
  /// Filter and bytes must outlive the search.
  TLineSearch(const TLineFilter& filter, const char* begin, const char* end);

  /// The next matching line, never an empty one. False, with `line` untouched, for none.
  bool Next(TFoundLine& line);

 private:
  uint32_t Find(size_t i) const;

  const TLineFilter& filter_;
  const char* begin_;
  const char* at_;  // start of a line
  const char* end_;
  // Where each text stands first from at_ on, as an offset, which takes half of a pointer; that of
  // end_ for none.
  std::vector<uint32_t> hits_;
  std::vector<unsigned char> found_;
};

/// The test of one line that comes in pieces.
class TLinePieces {
 public:
  /// The filter must outlive the test.
  explicit TLinePieces(const TLineFilter& filter);

  /// Looks for texts that start in [from, to). They and their neighbours are looked at where they
  /// lie in [begin, end), which is to hold them whole.
  /// @param offset  of `from` in the line, bytes
  void Search(const char* begin, const char* from, const char* to, const char* end, int64_t offset);
  /// As in TFoundLine, 0 when the line does not match; once all of it has been searched.
  double MatchValue() const { return filter_.MatchValue(found_, position_); }

 private:
  const TLineFilter& filter_;
  std::vector<unsigned char> found_;
  double position_ = 0;  // of the first text, 1-based
};

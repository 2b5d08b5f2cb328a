#pragma once

#include <optional>
#include <vector>

#include "checks/log/exprparser.h"
#include "core/textfinder.h"

/// Lines of a text log: runs of bytes up to a CR or LF, which is no part of the line.

inline bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }
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
  TLineFilter(const String& text, bool isExpression, int caseSensitive, int wholeWord);

  const std::vector<TTextFinder>& Texts() const {
    return IsExpression() ? expression_->Texts() : text_;
  }
  bool IsExpression() const { return expression_.has_value(); }
  /// Whether a line matches in which exactly these of Texts were found.
  bool Matches(const std::vector<bool>& found) const;
  /// Whether a line matches in which none of Texts was found.
  bool MatchesBareLines() const { return matchesBareLines_; }

 private:
  std::optional<TSearchExpression> expression_;
  std::vector<TTextFinder> text_;  // the one of a plain filter
  bool matchesBareLines_;
};

/// Looks for matching lines in a run of whole lines. Texts are looked for in the whole run, so
/// that lines without any of them cost nothing of their own.
class TLineSearch {
 public:
  /// @param begin  start of a line
  /// @param end    behind a line end
  /// Filter and bytes must outlive the search.
  TLineSearch(const TLineFilter& filter, const char* begin, const char* end);

  /// The next matching line; empty lines never match. False, with `line` untouched, when there is
  /// none.
  bool Next(TFoundLine& line);

 private:
  void FindTexts();

  const TLineFilter& filter_;
  const char* begin_;
  const char* at_;  // start of a line
  const char* end_;
  std::vector<const char*> hits_;  // of each text the first one from at_ on; end_ for none
  std::vector<bool> found_;
};

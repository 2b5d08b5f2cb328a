#pragma once

#include "core/wqstring.h"

/// One text prepared for being looked for in many bytes. Finds what String::Search finds.
/// Read-only once made: threads may share it.
class TTextFinder {
 public:
  /// @param caseSensitive  0: ASCII letters match in both cases
  /// @param wholeWord      not 0: neither neighbour of an occurrence may be a letter or digit
  TTextFinder(const String& text, int caseSensitive, int wholeWord);

  /// False when the text is empty or holds a line end, so that no line can hold it.
  bool FitsInLine() const { return fitsInLine_; }

  /// The first occurrence in [from, end) that satisfies the options, null for none. Its neighbours
  /// are looked at where they lie in [begin, end); begin <= from.
  /// One pass over the bytes, however many occurrences are refused on the way.
  const char* Find(const char* begin, const char* from, const char* end) const;
  /// The same without regard to neighbours.
  const char* FindAny(const char* from, const char* end) const;

 private:
  String text_;
  bool caseSensitive_;
  bool wholeWord_;
  bool fitsInLine_;
};

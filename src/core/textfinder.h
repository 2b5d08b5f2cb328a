#pragma once

#include <string_view>

#include "core/wqstring.h"

/// One text prepared for being looked for in many bytes. Finds what String::Search finds.
/// Read-only once made: threads may share it.
class TTextFinder {
 public:
  /// @param text           must outlive the finder
  /// @param caseSensitive  0: ASCII letters match in both cases
  /// @param wholeWord      not 0: neither neighbour of an occurrence may be a letter or digit
  TTextFinder(std::string_view text, int caseSensitive, int wholeWord)
      : text_(text), caseSensitive_(caseSensitive != 0), wholeWord_(wholeWord != 0) {}
  TTextFinder(const String& text, int caseSensitive, int wholeWord)
      : TTextFinder(std::string_view(text.CStr(), static_cast<size_t>(text.Length())),
                    caseSensitive, wholeWord) {}

  /// Bytes of the text.
  size_t Length() const { return text_.size(); }
  /// False when the text is empty or holds a line end, so that no line can hold it.
  bool FitsInLine() const { return !text_.empty() && text_.find_first_of("\r\n") == text_.npos; }

  /// The first occurrence in [from, end) that satisfies the options, null for none. Its neighbours
  /// are looked at where they lie in [begin, end); begin <= from.
  /// One pass over the bytes, however many occurrences are refused on the way.
  const char* Find(const char* begin, const char* from, const char* end) const;
  /// The same without regard to neighbours.
  const char* FindAny(const char* from, const char* end) const;

 private:
  std::string_view text_;
  bool caseSensitive_;
  bool wholeWord_;
};

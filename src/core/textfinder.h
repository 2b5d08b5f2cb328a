#pragma once

#include <stddef.h>

#include <string_view>

/// One text that is looked for among many bytes; it must outlive the finder. A search takes no
/// memory, and its time grows with the bytes looked at alone, whatever the text and however many
/// occurrences are refused on the way. Threads may share a finder.
class TTextFinder {
 public:
  /// @param caseSensitive  0: ASCII letters match in both cases
  /// @param wholeWord      not 0: neither neighbour of an occurrence may be a letter or digit
  TTextFinder(std::string_view text, int caseSensitive, int wholeWord)
      : text_(text), caseSensitive_(caseSensitive != 0), wholeWord_(wholeWord != 0) {}

  size_t Length() const { return text_.size(); }
  /// False when the text is empty or holds a line end, so that no line can hold it.
  bool FitsInLine() const { return !text_.empty() && text_.find_first_of("\r\n") == text_.npos; }

  /// The first occurrence in [from, end) that satisfies the options, null for none and for an empty
  /// text. Neighbours count where they lie in [begin, end); begin <= from.
  const char* Find(const char* begin, const char* from, const char* end) const;
  /// The same without regard to neighbours.
  const char* FindAny(const char* from, const char* end) const;

 private:
  std::string_view text_;
  bool caseSensitive_;
  bool wholeWord_;
};

/// 1-based position of the first occurrence of pat in buf; 0 for none, null or an empty size.
int mempos(const char* buf, int len, const char* pat, int plen);
/// The same without regard to ASCII case.
int memposi(const char* buf, int len, const char* pat, int plen);

#include "core/textfinder.h"

#include <stddef.h>

#include <algorithm>

#include "core/findbytes.h"

TTextFinder::TTextFinder(const String& text, int caseSensitive, int wholeWord)
    : text_(text),
      caseSensitive_(caseSensitive != 0),
      wholeWord_(wholeWord != 0),
      fitsInLine_(!text.Empty() && text.Pos('\n') == 0 && text.Pos('\r') == 0) {}

const char* TTextFinder::FindAny(const char* from, const char* end) const {
  const auto find = caseSensitive_ ? FindBytes : FindBytesFolded;
  return find(from, static_cast<size_t>(end - from), text_.CStr(),
              static_cast<size_t>(text_.Length()));
}

const char* TTextFinder::Find(const char* begin, const char* from, const char* end) const {
  const char* p = from;
  while ((p = FindAny(p, end)) != nullptr) {
    if (!wholeWord_) return p;
    const char* after = p + text_.Length();
    const bool wordBefore = p > begin && IsWordByte(p[-1]);
    const bool wordAfter = after < end && IsWordByte(*after);
    if (!wordBefore && !wordAfter) return p;
    // A text that starts with a word byte can only be accepted where a word starts.
    const bool inWord = IsWordByte(*p++);
    if (inWord) p = std::find_if_not(p, end, IsWordByte);
  }
  return nullptr;
}

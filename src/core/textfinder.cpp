#include "core/textfinder.h"

#include <stddef.h>

#include <algorithm>

#include "core/findbytes.h"

const char* TTextFinder::FindAny(const char* from, const char* end) const {
  const auto find = caseSensitive_ ? FindBytes : FindBytesFolded;
  return find(from, static_cast<size_t>(end - from), text_.data(), text_.size());
}

const char* TTextFinder::Find(const char* begin, const char* from, const char* end) const {
  const char* p = from;
  while ((p = FindAny(p, end)) != nullptr) {
    if (!wholeWord_) return p;
    const char* after = p + text_.size();
    const bool wordBefore = p > begin && IsWordByte(p[-1]);
    const bool wordAfter = after < end && IsWordByte(*after);
    if (!wordBefore && !wordAfter) return p;
    // A text that starts with a word byte can only be accepted where a word starts.
    const bool inWord = IsWordByte(*p++);
    if (inWord) p = std::find_if_not(p, end, IsWordByte);
  }
  return nullptr;
}

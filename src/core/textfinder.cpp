#include "core/textfinder.h"

#include <algorithm>
#include <utility>

#include "core/bytelanes.h"
#include "core/bytes.h"

// Scans of logs spend most of their time here, and both the text and the bytes come from others. So
// the search starts as the quickest one for ordinary text: two bytes of the wanted text, compared
// at 64 places at once, rule out nearly all of them. Where they do not, because the text nearly
// stands everywhere, comparing would cost its length at every place; the search notices that it
// compares many times more bytes than it passes and goes on as a two-way search (Crochemore and
// Perrin), whose time does not depend on the text. That one is ten times slower on ordinary text,
// which is why it does not do the whole work. The C library's search has no form without regard to
// case and would prepare the text anew for each occurrence that is refused for its neighbours.

namespace {

constexpr int kVectors = 4;
constexpr ptrdiff_t kBlock = kVectors * kLanes;
/// Bytes compared for each byte passed, from which on the quick search is given up.
constexpr size_t kPatience = 8;

struct TExact {
  static char Value(char c) { return c; }
  static TLanes Values(TLanes lanes) { return lanes; }
  static char Ignored(char) { return 0; }
};

struct TFolded {
  static char Value(char c) { return LoCase(c); }
  static TLanes Values(TLanes lanes) {
    const auto upper = reinterpret_cast<TLanes>((lanes >= 'A') & (lanes <= 'Z'));
    return lanes | (upper & FillLanes(0x20));
  }
  /// Bits that may differ: a letter's lower case has one bit more than its upper case.
  static char Ignored(char c) { return LoCase(c) != UpCase(c) ? 0x20 : 0; }
};

/// One byte to look for, in every lane.
template <class TMatch>
class TProbe {
 public:
  explicit TProbe(char c)
      : ignored_(FillLanes(TMatch::Ignored(c))), value_(FillLanes(TMatch::Value(c))) {}
  /// Marks the lanes that hold the byte.
  TLanes In(const char* p) const { return EqualLanes(LoadLanes(p) | ignored_, value_); }

 private:
  TLanes ignored_;
  TLanes value_;
};

template <class TMatch>
bool IsSame(char a, char b) {
  return TMatch::Value(a) == TMatch::Value(b);
}

/// How many of n bytes are the same, from the first one on.
template <class TMatch>
size_t CommonLength(const char* a, const char* b, size_t n) {
  if (n == 0 || !IsSame<TMatch>(a[0], b[0])) return 0;
  size_t i = 1;
  for (; n - i >= kLanes; i += kLanes) {
    const TLanes x = TMatch::Values(LoadLanes(a + i));
    if (AnyMarked(~EqualLanes(x, TMatch::Values(LoadLanes(b + i))))) break;
  }
  while (i < n && IsSame<TMatch>(a[i], b[i])) ++i;
  return i;
}

/// The first marked lane for which the condition holds; null for none.
template <class TCondition>
const char* FirstMarkedWhere(TLanes marks, const char* lanes, TCondition& condition) {
  for (int half = 0; half < 2; ++half) {
    uint64_t word = MarkedHalf(marks, half);
    while (word != 0) {
      const int lane = std::countr_zero(word) / 8;
      if (condition(lanes + half * 8 + lane)) return lanes + half * 8 + lane;
      word &= ~(uint64_t{0xFF} << (lane * 8));
    }
  }
  return nullptr;
}

/// Offset of a byte near the end of the text that differs from its first: two equal ones tell
/// little more than one.
template <class TMatch>
size_t SecondProbe(const char* text, size_t length) {
  constexpr size_t kNear = 64;
  size_t offset = length - 1;
  while (offset > 1 && length - offset < kNear && IsSame<TMatch>(text[offset], text[0])) --offset;
  return offset;
}

/// Where the greatest suffix of the text starts, in the order of bytes or the opposite one, and the
/// period of that suffix.
template <class TMatch>
std::pair<size_t, size_t> GreatestSuffix(std::string_view text, bool opposite) {
  size_t start = 0;
  size_t rival = 1;
  size_t same = 0;
  size_t period = 1;
  while (rival + same < text.size()) {
    const char a = TMatch::Value(text[start + same]);
    const char b = TMatch::Value(text[rival + same]);
    if (a == b) {
      if (++same == period) rival += std::exchange(same, 0);
    } else if (opposite ? a < b : b < a) {
      rival += same + 1;
      same = 0;
      period = rival - start;
    } else {
      start = rival++;
      same = 0;
      period = 1;
    }
  }
  return {start, period};
}

/// A search under way.
struct TSearch {
  std::string_view text;
  bool wholeWord;
  const char* begin;  ///< neighbours are looked at from here on
  const char* end;

  bool MayStandAt(const char* p) const {
    if (!wholeWord) return true;
    const char* after = p + text.size();
    return !(p > begin && IsWordByte(p[-1])) && !(after < end && IsWordByte(*after));
  }
};

template <class TMatch>
[[gnu::noinline]] const char* FindSteadily(const TSearch& search, const char* p) {
  const char* text = search.text.data();
  const size_t length = search.text.size();
  // The text is split where the shorter of both suffixes starts, with that one's period.
  auto [split, period] = std::max(GreatestSuffix<TMatch>(search.text, false),
                                  GreatestSuffix<TMatch>(search.text, true));
  size_t overlap = 0;  // bytes at the start that are known to be the same after one period
  if (CommonLength<TMatch>(text, text + period, split) == split) {
    overlap = length - period;
  } else {
    period = std::max(split, length - split) + 1;
  }
  size_t known = 0;  // bytes at p that need no comparison
  while (static_cast<size_t>(search.end - p) >= length) {
    const size_t first = std::max(split, known);
    const size_t same = first + CommonLength<TMatch>(p + first, text + first, length - first);
    if (same < length) {
      p += same - split + 1;
      known = 0;
      continue;
    }
    const size_t left = std::min(split, known);
    const bool found = CommonLength<TMatch>(p + left, text + left, split - left) == split - left;
    if (found && search.MayStandAt(p)) return p;
    p += period;
    known = overlap;
  }
  return nullptr;
}

/// REQUIRES: the text is not empty and fits.
template <class TMatch>
const char* FindQuickly(const TSearch& search, const char* from) {
  const char* text = search.text.data();
  const size_t length = search.text.size();
  const size_t offset = SecondProbe<TMatch>(text, length);
  const TProbe<TMatch> first(text[0]);
  const TProbe<TMatch> second(text[offset]);
  size_t compared = 0;
  const auto stands = [&](const char* p) {
    if (!search.MayStandAt(p)) return false;
    const size_t common = CommonLength<TMatch>(p, text, length);
    compared += common;
    return common == length;
  };
  const char* last = search.end - length;
  const char* p = from;
  for (; last - p >= kBlock - 1; p += kBlock) {
    TLanes marks[kVectors];
    TLanes any{};
    for (int i = 0; i < kVectors; ++i) {
      const char* lanes = p + i * kLanes;
      marks[i] = first.In(lanes) & second.In(lanes + offset);
      any |= marks[i];
    }
    if (!AnyMarked(any)) continue;
    for (int i = 0; i < kVectors; ++i) {
      const char* found = FirstMarkedWhere(marks[i], p + i * kLanes, stands);
      if (found != nullptr) return found;
    }
    if (compared > kPatience * (static_cast<size_t>(p - from) + 2 * length)) {
      return FindSteadily<TMatch>(search, p + kBlock);
    }
  }
  while (p <= last && !stands(p)) ++p;
  return p <= last ? p : nullptr;
}

const char* FindText(const TSearch& search, const char* from, bool caseSensitive) {
  const size_t length = search.text.size();
  if (length == 0 || static_cast<size_t>(search.end - from) < length) return nullptr;
  return caseSensitive ? FindQuickly<TExact>(search, from) : FindQuickly<TFolded>(search, from);
}

int Position(const char* buf, int len, const char* pat, int plen, bool caseSensitive) {
  if (buf == nullptr || len <= 0 || pat == nullptr || plen <= 0) return 0;
  const TTextFinder finder({pat, static_cast<size_t>(plen)}, caseSensitive ? 1 : 0, 0);
  const char* found = finder.FindAny(buf, buf + len);
  return found == nullptr ? 0 : static_cast<int>(found - buf) + 1;
}

}  // namespace

const char* TTextFinder::Find(const char* begin, const char* from, const char* end) const {
  return FindText({text_, wholeWord_, begin, end}, from, caseSensitive_);
}

const char* TTextFinder::FindAny(const char* from, const char* end) const {
  return FindText({text_, false, from, end}, from, caseSensitive_);
}

int mempos(const char* buf, int len, const char* pat, int plen) {
  return Position(buf, len, pat, plen, true);
}

int memposi(const char* buf, int len, const char* pat, int plen) {
  return Position(buf, len, pat, plen, false);
}

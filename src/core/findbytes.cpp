#include "core/findbytes.h"

#include <algorithm>

#include "core/bytelanes.h"
#include "core/wqstring.h"

namespace {

constexpr int kVectors = 4;
constexpr ptrdiff_t kBlock = kVectors * kLanes;
/// Longer texts are left to the library, whose time does not depend on how often a part matches.
constexpr size_t kLongText = 64;

struct TExact {
  static bool IsSame(char a, char b) { return a == b; }
  static bool AreSame(const char* a, const char* b, size_t n) { return memcmp(a, b, n) == 0; }
  static char Value(char c) { return c; }
  static char Ignored(char) { return 0; }
};

struct TFolded {
  static bool IsSame(char a, char b) { return LoCase(a) == LoCase(b); }
  static bool AreSame(const char* a, const char* b, size_t n) {
    return std::equal(a, a + n, b, IsSame);
  }
  static char Value(char c) { return LoCase(c); }
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

/// The first marked lane at which the text stands; null for none.
template <class TMatch>
const char* FirstMatch(TLanes marks, const char* lanes, const char* pat, size_t plen) {
  for (int half = 0; half < 2; ++half) {
    uint64_t word = MarkedHalf(marks, half);
    while (word != 0) {
      const int lane = std::countr_zero(word) / 8;
      const char* start = lanes + half * 8 + lane;
      if (TMatch::AreSame(start, pat, plen)) return start;
      word &= ~(uint64_t{0xFF} << (lane * 8));
    }
  }
  return nullptr;
}

/// Offset of a byte near the end of the text that differs from its first: two equal ones tell
/// little more than one.
template <class TMatch>
size_t SecondProbe(const char* pat, size_t plen) {
  size_t offset = plen - 1;
  while (offset > 1 && plen - offset < kLongText && TMatch::IsSame(pat[offset], pat[0])) --offset;
  return offset;
}

/// Compares two bytes of 64 candidates at once and the whole of those that pass: scans of logs
/// spend most of their time here.
template <class TMatch>
const char* Find(const char* buf, size_t len, const char* pat, size_t plen) {
  if (plen == 0 || len < plen) return nullptr;
  const size_t offset = SecondProbe<TMatch>(pat, plen);
  const TProbe<TMatch> first(pat[0]);
  const TProbe<TMatch> second(pat[offset]);
  const char* last = buf + (len - plen);
  const char* p = buf;
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
      const char* found = FirstMatch<TMatch>(marks[i], p + i * kLanes, pat, plen);
      if (found != nullptr) return found;
    }
  }
  while (p <= last && !TMatch::AreSame(p, pat, plen)) ++p;
  return p <= last ? p : nullptr;
}

int Position(const char* found, const char* buf) {
  return found == nullptr ? 0 : static_cast<int>(found - buf) + 1;
}

bool HasBytes(const char* bytes, int count) { return bytes != nullptr && count > 0; }

}  // namespace

const char* FindBytes(const char* buf, size_t len, const char* pat, size_t plen) {
  if (plen > kLongText) return static_cast<const char*>(memmem(buf, len, pat, plen));
  return Find<TExact>(buf, len, pat, plen);
}

const char* FindBytesFolded(const char* buf, size_t len, const char* pat, size_t plen) {
  return Find<TFolded>(buf, len, pat, plen);
}

int mempos(const char* buf, int len, const char* pat, int plen) {
  if (!HasBytes(buf, len) || !HasBytes(pat, plen)) return 0;
  return Position(FindBytes(buf, static_cast<size_t>(len), pat, static_cast<size_t>(plen)), buf);
}

int memposi(const char* buf, int len, const char* pat, int plen) {
  if (!HasBytes(buf, len) || !HasBytes(pat, plen)) return 0;
  return Position(FindBytesFolded(buf, static_cast<size_t>(len), pat, static_cast<size_t>(plen)),
                  buf);
}

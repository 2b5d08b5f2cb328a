#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "core/wqstring.h"

namespace {

/// Sixteen bytes worked on at once; a comparison gives -1 for true and 0 for false in each.
using TBytes = signed char __attribute__((vector_size(16)));
constexpr int kWidth = sizeof(TBytes);

TBytes Load(const char* p) {
  TBytes bytes;
  memcpy(&bytes, p, sizeof bytes);
  return bytes;
}

bool IsZero(TBytes bytes) {
  uint64_t words[2];
  memcpy(words, &bytes, sizeof words);
  return (words[0] | words[1]) == 0;
}

struct TExact {
  static char Fold(char c) { return c; }
  static TBytes Fold(TBytes bytes) { return bytes; }
  static bool Same(const char* a, const char* b, int n) {
    return memcmp(a, b, static_cast<size_t>(n)) == 0;
  }
};

struct TWithoutCase {
  static char Fold(char c) { return LoCase(c); }
  static TBytes Fold(TBytes bytes) {
    const TBytes isUpper = (bytes >= 'A') & (bytes <= 'Z');
    return bytes + (isUpper & ('a' - 'A'));
  }
  static bool Same(const char* a, const char* b, int n) {
    return std::equal(a, a + n, b, [](char x, char y) { return LoCase(x) == LoCase(y); });
  }
};

/// Looks at the first and the last byte of sixteen candidates at once and at the whole of those
/// that pass: a scan of a log spends most of its time here.
template <class TMatch>
int Find(const char* buf, int len, const char* pat, int plen) {
  if (buf == nullptr || pat == nullptr || len <= 0 || plen <= 0) return 0;
  const int starts = len - plen + 1;
  if (starts < kWidth) {
    for (int start = 0; start < starts; ++start) {
      if (TMatch::Same(buf + start, pat, plen)) return start + 1;
    }
    return 0;
  }
  const TBytes head = TBytes{} + static_cast<signed char>(TMatch::Fold(pat[0]));
  const TBytes tail = TBytes{} + static_cast<signed char>(TMatch::Fold(pat[plen - 1]));
  for (int start = 0; start < starts; start += kWidth) {
    start = std::min(start, starts - kWidth);  // the last block overlaps the one before
    const TBytes heads = TMatch::Fold(Load(buf + start)) == head;
    const TBytes hits = heads & (TMatch::Fold(Load(buf + start + plen - 1)) == tail);
    if (IsZero(hits)) continue;
    for (int i = 0; i < kWidth; ++i) {
      if (hits[i] != 0 && TMatch::Same(buf + start + i, pat, plen)) return start + i + 1;
    }
  }
  return 0;
}

}  // namespace

int mempos(const char* buf, int len, const char* pat, int plen) {
  return Find<TExact>(buf, len, pat, plen);
}

int memposi(const char* buf, int len, const char* pat, int plen) {
  return Find<TWithoutCase>(buf, len, pat, plen);
}

#include "checks/textfinder.h"

#include <ctype.h>

#include "checks/bytelanes.h"

namespace {

constexpr int kVectors = 4;
constexpr ptrdiff_t kBlock = kVectors * kLanes;
/// Longer texts are left to the library, whose time does not depend on how often a part matches.
constexpr int kLongText = 64;

/// One byte to look for, in every lane.
struct TProbe {
  TProbe(char c, bool caseSensitive)
      : fold(FillLanes(!caseSensitive && LoCase(c) != UpCase(c) ? 0x20 : 0)),
        value(FillLanes(caseSensitive ? c : LoCase(c))) {}
  /// Marks the lanes that hold the byte.
  TLanes In(const char* p) const { return EqualLanes(LoadLanes(p) | fold, value); }

  TLanes fold;
  TLanes value;
};

/// The first marked lane that `accepts` takes; -1 for none.
template <class TAccept>
int FirstAccepted(TLanes marks, const TAccept& accepts) {
  for (int half = 0; half < 2; ++half) {
    uint64_t word = MarkedHalf(marks, half);
    while (word != 0) {
      const int lane = std::countr_zero(word) / 8;
      if (accepts(half * 8 + lane)) return half * 8 + lane;
      word &= ~(uint64_t{0xFF} << (lane * 8));
    }
  }
  return -1;
}

bool SameFolded(const char* bytes, const char* lower, int count) {
  for (int i = 0; i < count; ++i) {
    if (LoCase(bytes[i]) != lower[i]) return false;
  }
  return true;
}

}  // namespace

bool IsWordByte(char c) { return isalnum(static_cast<unsigned char>(c)) != 0; }

/// Where an occurrence may lie and what its neighbours lie in.
struct TTextFinder::TRange {
  const char* begin;
  const char* from;
  const char* end;
  bool wholeWord;
};

TTextFinder::TTextFinder(const String& text, int caseSensitive, int wholeWord)
    : text_(text), caseSensitive_(caseSensitive != 0), wholeWord_(wholeWord != 0) {
  if (!caseSensitive_) text_.LowerCase();
  fitsInLine_ = !text_.Empty() && text_.Pos('\n') == 0 && text_.Pos('\r') == 0;
  // The last byte that differs from the first: two equal ones tell little more than one.
  for (int i = 1; i < text_.Length(); ++i) {
    if (text_[i + 1] != text_[1]) probe_ = i;
  }
}

const char* TTextFinder::Find(const char* begin, const char* from, const char* end) const {
  return FindIn({begin, from, end, wholeWord_});
}

const char* TTextFinder::FindAny(const char* from, const char* end) const {
  return FindIn({from, from, end, false});
}

bool TTextFinder::Accepts(const TRange& range, const char* start) const {
  const char* after = start + text_.Length();
  if (range.wholeWord) {
    if (start > range.begin && IsWordByte(start[-1])) return false;
    if (after < range.end && IsWordByte(*after)) return false;
  }
  return caseSensitive_ ? memcmp(start, text_.Data(), static_cast<size_t>(text_.Length())) == 0
                        : SameFolded(start, text_.Data(), text_.Length());
}

const char* TTextFinder::FindIn(const TRange& range) const {
  const int length = text_.Length();
  if (length == 0 || range.end - range.from < length) return nullptr;
  const char* p = range.from;
  if (caseSensitive_ && !wholeWord_ && length > kLongText) {
    return static_cast<const char*>(
        memmem(p, static_cast<size_t>(range.end - p), text_.Data(), static_cast<size_t>(length)));
  }
  const TProbe first(text_[1], caseSensitive_);
  const TProbe second(text_[probe_ + 1], caseSensitive_);
  const char* last = range.end - length;
  for (; last - p >= kBlock - 1; p += kBlock) {
    TLanes marks[kVectors];
    TLanes any{};
    for (int i = 0; i < kVectors; ++i) {
      marks[i] = first.In(p + i * kLanes) & second.In(p + probe_ + i * kLanes);
      any |= marks[i];
    }
    if (!AnyMarked(any)) continue;
    for (int i = 0; i < kVectors; ++i) {
      const char* start = p + i * kLanes;
      const int lane = FirstAccepted(marks[i], [&](int at) { return Accepts(range, start + at); });
      if (lane >= 0) return start + lane;
    }
  }
  while (p <= last && !Accepts(range, p)) ++p;
  return p <= last ? p : nullptr;
}

#include "checks/log/linefilter.h"

#include <algorithm>
#include <utility>

#include "core/bytelanes.h"

static TLanes LineEndsIn(const char* p) {
  const TLanes lanes = LoadLanes(p);
  return EqualLanes(lanes, FillLanes('\n')) | EqualLanes(lanes, FillLanes('\r'));
}

const char* FindLineEnd(const char* p, const char* end) {
  for (; end - p >= kLanes; p += kLanes) {
    const TLanes marks = LineEndsIn(p);
    if (AnyMarked(marks)) return p + FirstMarked(marks);
  }
  return std::find_if(p, end, IsLineEnd);
}

const char* FindLineStart(const char* begin, const char* p) {
  for (; p - begin >= kLanes; p -= kLanes) {
    const TLanes marks = LineEndsIn(p - kLanes);
    if (AnyMarked(marks)) return p - kLanes + LastMarked(marks) + 1;
  }
  while (p > begin && !IsLineEnd(p[-1])) --p;
  return p;
}

TLineFilter::TLineFilter(String text, bool isExpression, int caseSensitive, int wholeWord)
    : isExpression_(isExpression),
      expression_(std::move(text), isExpression, caseSensitive, wholeWord),
      matchesBareLines_(expression_.Holds(std::vector<unsigned char>(expression_.TextCount()))) {}

double TLineFilter::MatchValue(const std::vector<unsigned char>& found, double position) const {
  if (!isExpression_) return found.front() ? position : 0;
  return expression_.Holds(found) ? 1 : 0;
}

TLineSearch::TLineSearch(const TLineFilter& filter, const char* begin, const char* end)
    : filter_(filter),
      begin_(begin),
      at_(begin),
      end_(end),
      hits_(filter.Expression().TextCount()),
      found_(hits_.size()) {
  for (size_t i = 0; i < hits_.size(); ++i) hits_[i] = Find(i);
}

uint32_t TLineSearch::Find(size_t i) const {
  const TTextFinder text = filter_.Expression().Text(i);
  const char* hit = text.FitsInLine() ? text.Find(begin_, at_, end_) : nullptr;
  return static_cast<uint32_t>((hit != nullptr ? hit : end_) - begin_);
}

bool TLineSearch::Next(TFoundLine& line) {
  while (true) {
    const char* hit = end_;
    for (size_t i = 0; i < hits_.size(); ++i) {
      if (begin_ + hits_[i] < at_) hits_[i] = Find(i);
      hit = std::min(hit, begin_ + hits_[i]);
    }
    const char* inLine = filter_.MatchesBareLines() ? at_ : hit;
    while (inLine < end_ && IsLineEnd(*inLine)) ++inLine;
    if (inLine == end_) return false;
    const char* lineBegin = FindLineStart(at_, inLine);
    const char* lineEnd = FindLineEnd(inLine, end_);
    for (size_t i = 0; i < hits_.size(); ++i) found_[i] = begin_ + hits_[i] < lineEnd;
    at_ = lineEnd + 1;
    const double value = filter_.MatchValue(found_, static_cast<double>(hit - lineBegin + 1));
    if (value == 0) continue;
    line = {lineBegin, lineEnd, value};
    return true;
  }
}

TLinePieces::TLinePieces(const TLineFilter& filter)
    : filter_(filter), found_(filter.Expression().TextCount()) {}

void TLinePieces::Search(const char* begin, const char* from, const char* to, const char* end,
                         int64_t offset) {
  for (size_t i = 0; i < found_.size(); ++i) {
    if (found_[i]) continue;
    const TTextFinder text = filter_.Expression().Text(i);
    // With its last byte this also holds the start at `to`, which is left to the next piece.
    const size_t count = static_cast<size_t>(to - from) + text.Length();
    const char* last = count < static_cast<size_t>(end - from) ? from + count : end;
    const char* hit = text.Find(begin, from, last);
    if (hit == nullptr || hit >= to) continue;
    found_[i] = 1;
    if (i == 0) position_ = static_cast<double>(offset + (hit - from) + 1);
  }
}

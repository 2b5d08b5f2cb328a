#include "checks/log/linefilter.h"

#include <algorithm>

#include "core/bytelanes.h"

namespace {

TLanes LineEndsIn(const char* p) {
  const TLanes lanes = LoadLanes(p);
  return EqualLanes(lanes, FillLanes('\n')) | EqualLanes(lanes, FillLanes('\r'));
}

}  // namespace

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

TLineFilter::TLineFilter(const String& text, bool isExpression, int caseSensitive, int wholeWord) {
  if (isExpression) {
    expression_.emplace(text, caseSensitive, wholeWord);
  } else {
    text_.emplace_back(text, caseSensitive, wholeWord);
  }
  matchesBareLines_ = Matches(std::vector<bool>(Texts().size()));
}

bool TLineFilter::Matches(const std::vector<bool>& found) const {
  return IsExpression() ? expression_->Holds(found) : found.front();
}

TLineSearch::TLineSearch(const TLineFilter& filter, const char* begin, const char* end)
    : filter_(filter),
      begin_(begin),
      at_(begin),
      end_(end),
      hits_(filter.Texts().size(), nullptr),
      found_(filter.Texts().size()) {}

void TLineSearch::FindTexts() {
  for (size_t i = 0; i < hits_.size(); ++i) {
    if (hits_[i] != nullptr && hits_[i] >= at_) continue;
    const TTextFinder& text = filter_.Texts()[i];
    const char* hit = text.FitsInLine() ? text.Find(begin_, at_, end_) : nullptr;
    hits_[i] = hit != nullptr ? hit : end_;
  }
}

bool TLineSearch::Next(TFoundLine& line) {
  while (true) {
    FindTexts();
    const char* hit = end_;
    for (const char* p : hits_) hit = std::min(hit, p);
    const char* inLine = filter_.MatchesBareLines() ? at_ : hit;
    while (inLine < end_ && IsLineEnd(*inLine)) ++inLine;
    if (inLine == end_) return false;
    const char* lineBegin = FindLineStart(at_, inLine);
    const char* lineEnd = FindLineEnd(inLine, end_);
    for (size_t i = 0; i < hits_.size(); ++i) found_[i] = hits_[i] < lineEnd;
    at_ = lineEnd + 1;
    if (!filter_.Matches(found_)) continue;
    const double matchValue = filter_.IsExpression() ? 1 : static_cast<double>(hit - lineBegin + 1);
    line = {lineBegin, lineEnd, matchValue};
    return true;
  }
}

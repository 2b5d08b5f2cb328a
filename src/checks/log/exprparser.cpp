#include "checks/log/exprparser.h"

#include <string.h>

#include <algorithm>

const TPriorityItem PriorityTable1[kPriorityTable1Size] = {
    {"(", 65535, 0}, {"not", 65535, 0}, {")", 1, 65520}, {"and", 1, 1}, {"or", 1, 1},
};

const TPriorityItem PriorityTable2[kPriorityTable2Size] = {
    {"(", 65535, 0}, {"not", 65535, 0}, {")", 1, 65520}, {"and", 1, 1}, {"or", 1, 1},
    {"<>", 2, 2},    {"<=", 2, 2},      {">=", 2, 2},    {"==", 2, 2},  {">", 2, 2},
    {"<", 2, 2},     {"div", 4, 4},     {"mod", 4, 4},
};

namespace {

constexpr int kNot = -1;
constexpr int kOr = -2;
constexpr int kAnd = -3;

bool IsQuote(char c) { return c == '"' || c == '\''; }

bool IsOperand(const String& token) { return IsQuote(token[1]) || isdecimalnum(token.CStr()); }

}  // namespace

/// The part of an expression that is still to be read.
struct TExprParser::TCursor {
  const char* at;
  const char* end;
  String Take(const char* to) {
    const char* from = at;
    at = to;
    return String(from, static_cast<int>(to - from));
  }
  int Left() const { return static_cast<int>(end - at); }
  /// Removes blanks at both ends, as String::Trim has them.
  void Trim() {
    while (at < end && IsBlank(*at)) ++at;
    while (end > at && IsBlank(end[-1])) --end;
  }
};

TExprParser::TExprParser(const TPriorityItem* table, int tableSize)
    : table_(table), rows_(tableSize / static_cast<int>(sizeof *table)) {}

const TPriorityItem* TExprParser::FindOperator(String token) const {
  token.LowerCase();
  const TPriorityItem* end = table_ + rows_;
  const TPriorityItem* row =
      std::find_if(table_, end, [&token](const TPriorityItem& r) { return r.token == token; });
  return row == end ? nullptr : row;
}

int TExprParser::TokenInPriority(String token) const {
  const TPriorityItem* row = FindOperator(token);
  return row == nullptr ? -1 : row->inComing;
}

int TExprParser::TokenSPriority(String token) const {
  const TPriorityItem* row = FindOperator(token);
  return row == nullptr ? -1 : row->inStack;
}

const TPriorityItem* TExprParser::OperatorAt(const char* p, const char* end) const {
  for (int i = 0; i < rows_; ++i) {
    const String& token = table_[i].token;
    if (token.Length() > end - p) continue;
    if (memcmp(p, token.Data(), static_cast<size_t>(token.Length())) == 0) return &table_[i];
  }
  return nullptr;
}

int TExprParser::TokenInPos(const String& s, int pos) const {
  if (pos < 1 || pos > s.Length()) return -1;
  const TPriorityItem* row = OperatorAt(s.Data() + pos - 1, s.Data() + s.Length());
  return row == nullptr ? -1 : static_cast<int>(row - table_);
}

String TExprParser::NextToken(TCursor& cursor) {
  cursor.Trim();
  if (cursor.at == cursor.end) return String();
  if (const TPriorityItem* row = OperatorAt(cursor.at, cursor.end)) {
    return cursor.Take(cursor.at + row->token.Length());
  }
  const char* p = cursor.at + 1;
  if (IsQuote(*cursor.at)) {
    p = std::find(p, cursor.end, *cursor.at);
    if (p != cursor.end) return cursor.Take(p + 1);
    error_ = String("Unterminated string: ") + String(cursor.at, cursor.Left());
    return String();
  }
  while (p < cursor.end && *p != ' ' && OperatorAt(p, cursor.end) == nullptr) ++p;
  return cursor.Take(p);
}

String TExprParser::GetToken(String& expr) {
  TCursor cursor{expr.CStr(), expr.CStr() + expr.Length()};
  const String token = NextToken(cursor);
  expr = String(cursor.at, cursor.Left());
  return token;
}

void TExprParser::Emit(const String& token, bool store) {
  if (store) output_.Add(token);
}

void TExprParser::EmitLast(TStrList& waiting, bool store) {
  Emit(waiting[waiting.Count() - 1], store);
  waiting.DeleteLast();
}

bool TExprParser::TakeOperator(const String& token, TStrList& waiting, bool store) {
  const int priority = TokenInPriority(token);
  const auto top = [&waiting] { return waiting[waiting.Count() - 1]; };
  while (waiting.Count() > 0 && TokenSPriority(top()) >= priority) EmitLast(waiting, store);
  if (token != ")") {
    waiting.Add(token);
    return true;
  }
  while (waiting.Count() > 0 && top() != "(") EmitLast(waiting, store);
  if (waiting.Count() == 0) {
    error_ = "Missing \"(\"";
    return false;
  }
  waiting.DeleteLast();
  return true;
}

int TExprParser::Expr2Polish(String& expr, int checkOnly) {
  const bool store = checkOnly == 0;
  error_ = "";
  if (store) output_.Clear();
  const String source = expr;
  expr = "";
  TCursor cursor{source.CStr(), source.CStr() + source.Length()};
  TStrList waiting;
  while (true) {
    String token = NextToken(cursor);
    if (token.Empty()) break;
    if (TokenInPriority(token) != -1) {
      if (!TakeOperator(token.LowerCase(), waiting, store)) return 0;
    } else if (IsOperand(token)) {
      Emit(token, store);
    } else {
      error_ = String("Unknown operator: \"") + token + "\"";
      return 0;
    }
  }
  if (!error_.Empty()) return 0;
  while (waiting.Count() > 0) EmitLast(waiting, store);
  return 1;
}

BoolStack::BoolStack(int capacity)
    : entries_(new unsigned char[static_cast<size_t>(std::max(capacity, 1))]),
      capacity_(capacity) {}

void BoolStack::Push(int value) {
  if (count_ < capacity_) {
    entries_[static_cast<size_t>(count_++)] = value != 0;
  } else {
    failed_ = true;
  }
}

int BoolStack::Pop() {
  if (count_ < 1) {
    failed_ = true;
    return 0;
  }
  return entries_[static_cast<size_t>(--count_)];
}

void BoolStack::Not() {
  if (count_ < 1) {
    failed_ = true;
  } else {
    Push(Pop() == 0);
  }
}

void BoolStack::Or() {
  if (count_ < 2) {
    failed_ = true;
    return;
  }
  const int right = Pop();
  const int left = Pop();
  Push(left | right);
}

void BoolStack::And() {
  if (count_ < 2) {
    failed_ = true;
    return;
  }
  const int right = Pop();
  const int left = Pop();
  Push(left & right);
}

TSearchExpression::TSearchExpression(const String& expression, int caseSensitive, int wholeWord) {
  TExprParser parser(PriorityTable1, static_cast<int>(sizeof PriorityTable1));
  String source = expression;
  if (parser.Expr2Polish(source, 0) == 0) return;
  const TStrList& postfix = parser.Output();
  for (int i = 0; i < postfix.Count(); ++i) {
    const String token = postfix[i];
    if (token == "not") {
      steps_.push_back(kNot);
    } else if (token == "or") {
      steps_.push_back(kOr);
    } else if (token == "and") {
      steps_.push_back(kAnd);
    } else {
      // Deliberate: a number loses its first and last digit as a text loses its quotes.
      steps_.push_back(static_cast<int>(texts_.size()));
      texts_.emplace_back(token.Copy(2, token.Length() - 2), caseSensitive, wholeWord);
    }
  }
}

bool TSearchExpression::Holds(const std::vector<bool>& found) const {
  BoolStack stack(static_cast<int>(steps_.size()) + 2);
  for (const int step : steps_) {
    switch (step) {
      case kNot:
        stack.Not();
        break;
      case kOr:
        stack.Or();
        break;
      case kAnd:
        stack.And();
        break;
      default:
        stack.Push(found[static_cast<size_t>(step)]);
    }
    if (stack.Failed()) return false;
  }
  return stack.Count() == 1 && stack.Pop() != 0;
}

int SearchForExpression(const String& line, const String& expression, int caseSensitive,
                        int wholeWord) {
  const TSearchExpression prepared(expression, caseSensitive, wholeWord);
  const char* begin = line.CStr();
  std::vector<bool> found;
  for (const TTextFinder& text : prepared.Texts()) {
    found.push_back(text.Find(begin, begin, begin + line.Length()) != nullptr);
  }
  return prepared.Holds(found);
}

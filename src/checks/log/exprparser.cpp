#include "checks/log/exprparser.h"

#include <string.h>

#include <algorithm>
#include <utility>

const TPriorityItem PriorityTable1[kPriorityTable1Size] = {
    {"(", 65535, 0}, {"not", 65535, 0}, {")", 1, 65520}, {"and", 1, 1}, {"or", 1, 1},
};

const TPriorityItem PriorityTable2[kPriorityTable2Size] = {
    {"(", 65535, 0}, {"not", 65535, 0}, {")", 1, 65520}, {"and", 1, 1}, {"or", 1, 1},
    {"<>", 2, 2},    {"<=", 2, 2},      {">=", 2, 2},    {"==", 2, 2},  {">", 2, 2},
    {"<", 2, 2},     {"div", 4, 4},     {"mod", 4, 4},
};

namespace {

/// A step of an evaluation: a row of PriorityTable1, or one of these.
constexpr unsigned char kNeverFound = 0;  // an unmatched "(" is taken for an operand
constexpr unsigned char kNot = 1;
constexpr unsigned char kAnd = 3;
constexpr unsigned char kText = kPriorityTable1Size;

bool IsQuote(char c) { return c == '"' || c == '\''; }

/// A quoted text, or a decimal number up to a zero byte.
bool IsOperand(std::string_view token) {
  const size_t other = token.find_first_not_of("-0123456789");
  return IsQuote(token[0]) || other == token.npos || token[other] == 0;
}

std::string_view View(const String& s) { return {s.CStr(), static_cast<size_t>(s.Length())}; }

String Copied(std::string_view s) { return String(s.data(), static_cast<int>(s.size())); }

}  // namespace

const TPriorityItem* TExprParser::FindOperator(std::string_view token) const {
  for (const TPriorityItem& row : table_) {
    if (std::ranges::equal(token, View(row.token), {}, LoCase)) return &row;
  }
  return nullptr;
}

int TExprParser::TokenInPriority(const String& token) const {
  const TPriorityItem* row = FindOperator(View(token));
  return row == nullptr ? -1 : row->inComing;
}

int TExprParser::TokenSPriority(const String& token) const {
  const TPriorityItem* row = FindOperator(View(token));
  return row == nullptr ? -1 : row->inStack;
}

const TPriorityItem* TExprParser::OperatorAt(std::string_view s) const {
  for (const TPriorityItem& row : table_) {
    if (s.starts_with(View(row.token))) return &row;
  }
  return nullptr;
}

int TExprParser::TokenInPos(const String& s, int pos) const {
  if (pos < 1 || pos > s.Length()) return -1;
  const TPriorityItem* row = OperatorAt(View(s).substr(static_cast<size_t>(pos) - 1));
  return row == nullptr ? -1 : static_cast<int>(row - table_.data());
}

bool TExprParser::Fail(const char* what, std::string_view where, const char* close) {
  error_ = what;
  error_.AddData(where.data(), static_cast<int>(where.size()));
  error_ += close;
  return false;
}

std::string_view TExprParser::NextToken(std::string_view& rest) {
  while (!rest.empty() && IsBlank(rest.front())) rest.remove_prefix(1);
  while (!rest.empty() && IsBlank(rest.back())) rest.remove_suffix(1);
  if (rest.empty()) return rest;
  size_t length = 1;
  if (const TPriorityItem* op = OperatorAt(rest)) {
    length = static_cast<size_t>(op->token.Length());
  } else if (IsQuote(rest[0])) {
    const size_t close = rest.find(rest[0], 1);
    if (close == rest.npos) {
      Fail("Unterminated string: ", rest, "");
      return {};
    }
    length = close + 1;
  } else {
    while (length < rest.size() && rest[length] != ' ' && !OperatorAt(rest.substr(length))) {
      ++length;
    }
  }
  const std::string_view token = rest.substr(0, length);
  rest.remove_prefix(length);
  return token;
}

String TExprParser::GetToken(String& expr) {
  std::string_view rest = View(expr);
  const String token = Copied(NextToken(rest));
  expr = Copied(rest);
  return token;
}

bool TExprParser::Convert(std::string_view source, const TEmit& emit) {
  error_ = "";
  std::vector<unsigned char> waiting;  // rows of the operators
  const auto emitWhile = [&](auto isDue) {
    for (; !waiting.empty() && isDue(table_[waiting.back()]); waiting.pop_back()) {
      emit(&table_[waiting.back()], {});
    }
  };
  std::string_view token;
  while (!(token = NextToken(source)).empty()) {
    const TPriorityItem* op = FindOperator(token);
    if (op == nullptr) {
      if (!IsOperand(token)) return Fail("Unknown operator: \"", token, "\"");
      emit(nullptr, token);
    } else if (op->token != ")") {
      emitWhile([op](const TPriorityItem& top) { return top.inStack >= op->inComing; });
      waiting.push_back(static_cast<unsigned char>(op - table_.data()));
    } else {
      emitWhile([](const TPriorityItem& top) { return top.token != "("; });
      if (waiting.empty()) return Fail("Missing \"(\"", {}, "");
      waiting.pop_back();
    }
  }
  if (!error_.Empty()) return false;
  emitWhile([](const TPriorityItem&) { return true; });
  return true;
}

int TExprParser::Expr2Polish(String& expr, int checkOnly) {
  if (checkOnly == 0) output_.Clear();
  const String source = std::move(expr);
  return Convert(View(source), [&](const TPriorityItem* op, std::string_view operand) {
    if (checkOnly == 0) output_.Add(op != nullptr ? op->token : Copied(operand));
  });
}

TSearchExpression::TSearchExpression(String text, bool isExpression, int caseSensitive,
                                     int wholeWord)
    : texts_(std::move(text)), caseSensitive_(caseSensitive), wholeWord_(wholeWord) {
  if (!isExpression) {
    ends_ = {texts_.Length()};
    steps_ = {kText};
    return;
  }
  TExprParser parser(PriorityTable1, static_cast<int>(sizeof PriorityTable1));
  const auto add = [this](const TPriorityItem* op, std::string_view s) { AddStep(op, s); };
  if (parser.Convert(View(texts_), add) && IsComplete()) return;
  ends_ = std::vector<int>();
  steps_ = std::vector<unsigned char>();
}

bool TSearchExpression::IsComplete() const {
  size_t held = 0;
  for (const unsigned char step : steps_) {
    const size_t taken = step == kText || step == kNeverFound ? 0 : step == kNot ? 1 : 2;
    if (held < taken) return false;
    held += 1 - taken;
  }
  return held == 1;
}

void TSearchExpression::AddStep(const TPriorityItem* op, std::string_view operand) {
  // Deliberate: a number loses its first and last digit as a text loses its quotes.
  const size_t length = operand.size() > 2 ? operand.size() - 2 : 0;
  steps_.push_back(op != nullptr ? static_cast<unsigned char>(op - PriorityTable1)
                   : length > 0  ? kText
                                 : kNeverFound);
  if (length == 0) return;
  // The source before the operand has been read: its room takes the text.
  const int begin = ends_.empty() ? 0 : ends_.back();
  memmove(texts_.Data() + begin, operand.data() + 1, length);
  ends_.push_back(begin + static_cast<int>(length));
}

TTextFinder TSearchExpression::Text(size_t i) const {
  const int begin = i == 0 ? 0 : ends_[i - 1];
  return TTextFinder(
      View(texts_).substr(static_cast<size_t>(begin), static_cast<size_t>(ends_[i] - begin)),
      caseSensitive_, wholeWord_);
}

bool TSearchExpression::Holds(const std::vector<unsigned char>& found) const {
  BoolStack stack(static_cast<int>(steps_.size()) + 2);
  size_t text = 0;
  for (const unsigned char step : steps_) {
    switch (step) {
      case kText:
        stack.Push(found[text++]);
        break;
      case kNeverFound:
        stack.Push(0);
        break;
      case kNot:
        stack.Not();
        break;
      case kAnd:
        stack.And();
        break;
      default:
        stack.Or();
    }
  }
  return stack.Pop() != 0;
}

int SearchForExpression(const String& line, const String& expression, int caseSensitive,
                        int wholeWord) {
  const TSearchExpression prepared(expression, true, caseSensitive, wholeWord);
  const char* begin = line.CStr();
  std::vector<unsigned char> found;
  for (size_t i = 0; i < prepared.TextCount(); ++i) {
    found.push_back(prepared.Text(i).Find(begin, begin, begin + line.Length()) != nullptr ? 1 : 0);
  }
  return prepared.Holds(found);
}

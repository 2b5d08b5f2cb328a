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

constexpr std::string_view kDecimals = "-0123456789";

/// What becomes of the stack when an expression is evaluated.
enum TStep : unsigned char { kText, kNeverFound, kNot, kAnd, kOr };

bool IsQuote(char c) { return c == '"' || c == '\''; }

/// A quoted text, or a decimal number up to a zero byte.
bool IsOperand(std::string_view token) {
  const size_t other = token.find_first_not_of(kDecimals);
  return IsQuote(token[0]) || other == token.npos || token[other] == 0;
}

std::string_view View(const String& s) { return {s.CStr(), static_cast<size_t>(s.Length())}; }

String Copied(std::string_view s) { return String(s.data(), static_cast<int>(s.size())); }

/// Removes blanks at both ends, as String::Trim has them.
void Trim(std::string_view& s) {
  while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
  while (!s.empty() && IsBlank(s.back())) s.remove_suffix(1);
}

}  // namespace

TExprParser::TExprParser(const TPriorityItem* table, int tableSize)
    : table_(table), rows_(tableSize / static_cast<int>(sizeof *table)) {}

const TPriorityItem* TExprParser::FindOperator(std::string_view token) const {
  const auto same = [token](const TPriorityItem& row) {
    return std::ranges::equal(token, View(row.token), {}, LoCase);
  };
  const TPriorityItem* row = std::find_if(table_, table_ + rows_, same);
  return row == table_ + rows_ ? nullptr : row;
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
  const auto stands = [s](const TPriorityItem& row) { return s.starts_with(View(row.token)); };
  const TPriorityItem* row = std::find_if(table_, table_ + rows_, stands);
  return row == table_ + rows_ ? nullptr : row;
}

int TExprParser::TokenInPos(const String& s, int pos) const {
  if (pos < 1 || pos > s.Length()) return -1;
  const TPriorityItem* row = OperatorAt(View(s).substr(static_cast<size_t>(pos) - 1));
  return row == nullptr ? -1 : static_cast<int>(row - table_);
}

bool TExprParser::Fail(const char* what, std::string_view where, const char* close) {
  error_ = what;
  error_.AddData(where.data(), static_cast<int>(where.size()));
  error_ += close;
  return false;
}

std::string_view TExprParser::NextToken(std::string_view& rest) {
  Trim(rest);
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

bool TExprParser::TakeOperator(const TPriorityItem& op, std::vector<unsigned char>& waiting,
                               const TEmit& emit) {
  const auto emitWhile = [&](auto wanted) {
    for (; !waiting.empty() && wanted(table_[waiting.back()]); waiting.pop_back()) {
      emit(&table_[waiting.back()], {});
    }
  };
  emitWhile([&op](const TPriorityItem& top) { return top.inStack >= op.inComing; });
  if (op.token != ")") {
    waiting.push_back(static_cast<unsigned char>(&op - table_));
    return true;
  }
  emitWhile([](const TPriorityItem& top) { return top.token != "("; });
  if (waiting.empty()) return Fail("Missing \"(\"", {}, "");
  waiting.pop_back();
  return true;
}

bool TExprParser::Convert(std::string_view source, const TEmit& emit) {
  error_ = "";
  std::vector<unsigned char> waiting;
  std::string_view token;
  while (!(token = NextToken(source)).empty()) {
    if (const TPriorityItem* op = FindOperator(token)) {
      if (!TakeOperator(*op, waiting, emit)) return false;
    } else if (IsOperand(token)) {
      emit(nullptr, token);
    } else {
      return Fail("Unknown operator: \"", token, "\"");
    }
  }
  if (!error_.Empty()) return false;
  for (; !waiting.empty(); waiting.pop_back()) emit(&table_[waiting.back()], {});
  return true;
}

int TExprParser::Expr2Polish(String& expr, int checkOnly) {
  if (checkOnly == 0) output_.Clear();
  const String source = std::move(expr);
  const bool done =
      Convert(View(source), [this, checkOnly](const TPriorityItem* op, std::string_view operand) {
        if (checkOnly == 0) output_.Add(op != nullptr ? op->token : Copied(operand));
      });
  return done ? 1 : 0;
}

bool BoolStack::Holds(int entries) {
  failed_ |= count_ < entries;
  return count_ >= entries;
}

void BoolStack::Push(int value) {
  failed_ |= count_ >= capacity_;
  if (count_ < capacity_) At(count_++) = value != 0;
}

int BoolStack::Pop() { return Holds(1) ? At(--count_) : 0; }

void BoolStack::Not() {
  if (Holds(1)) At(count_ - 1) ^= 1;
}

void BoolStack::Or() {
  if (!Holds(2)) return;
  const int right = Pop();
  At(count_ - 1) |= static_cast<unsigned char>(right);
}

void BoolStack::And() {
  if (!Holds(2)) return;
  const int right = Pop();
  At(count_ - 1) &= static_cast<unsigned char>(right);
}

TSearchExpression::TSearchExpression(String expression, int caseSensitive, int wholeWord)
    : TSearchExpression(caseSensitive, wholeWord) {
  texts_ = std::move(expression);
  TExprParser parser(PriorityTable1, static_cast<int>(sizeof PriorityTable1));
  const bool parsed = parser.Convert(
      View(texts_),
      [this](const TPriorityItem* op, std::string_view operand) { AddStep(op, operand); });
  if (parsed) return;
  ends_.clear();
  steps_.clear();
}

TSearchExpression TSearchExpression::OneText(String text, int caseSensitive, int wholeWord) {
  TSearchExpression expression(caseSensitive, wholeWord);
  if (!text.Empty()) expression.ends_.push_back(text.Length());
  expression.steps_.push_back(text.Empty() ? kNeverFound : kText);
  expression.texts_ = std::move(text);
  return expression;
}

void TSearchExpression::AddStep(const TPriorityItem* op, std::string_view operand) {
  if (op != nullptr) {
    // An unmatched "(" is taken for an operand.
    static constexpr TStep kSteps[kPriorityTable1Size] = {kNeverFound, kNot, kNeverFound, kAnd,
                                                          kOr};
    return steps_.push_back(kSteps[op - PriorityTable1]);
  }
  // Deliberate: a number loses its first and last digit as a text loses its quotes.
  const size_t length = operand.size() > 2 ? operand.size() - 2 : 0;
  steps_.push_back(length > 0 ? kText : kNeverFound);
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

bool TSearchExpression::Holds(const std::vector<bool>& found) const {
  BoolStack stack(static_cast<int>(steps_.size()) + 2);
  size_t text = 0;
  for (const unsigned char step : steps_) {
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
        stack.Push(step == kText && found[text++]);
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
  for (size_t i = 0; i < prepared.TextCount(); ++i) {
    found.push_back(prepared.Text(i).Find(begin, begin, begin + line.Length()) != nullptr);
  }
  return prepared.Holds(found);
}

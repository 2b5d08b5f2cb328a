#pragma once

#include <functional>
#include <span>
#include <string_view>
#include <vector>

#include "core/textfinder.h"
#include "core/wqstring.h"

/// The search language: quoted texts joined by "and", "or", "not" and parentheses. "and" and "or"
/// have equal rank and associate to the left; "not" reaches to the end of its group.

/// One operator of a parser's table.
struct TPriorityItem {
  String token;  ///< lower case
  int inComing;  ///< priority when it arrives from the input
  int inStack;   ///< priority while it waits on the operator stack
};

inline constexpr int kPriorityTable1Size = 5;
inline constexpr int kPriorityTable2Size = 13;
/// The logical operators, in the order in which they are tried. Read-only.
extern const TPriorityItem PriorityTable1[kPriorityTable1Size];
/// The same with comparisons and "div" and "mod", longer operators first. Read-only. Not used by
/// the agent itself.
extern const TPriorityItem PriorityTable2[kPriorityTable2Size];

/// Turns infix expressions into postfix form. One thread at a time. The agent itself calls Convert.
class TExprParser {
 public:
  /// Takes a postfix token: an operator of the table, or with null an operand as it was written.
  using TEmit = std::function<void(const TPriorityItem* op, std::string_view operand)>;

  /// @param tableSize  bytes of the table, at most 256 rows; it must outlive the parser
  TExprParser(const TPriorityItem* table, int tableSize)
      : table_(table, static_cast<size_t>(tableSize) / sizeof *table) {}

  /// Priority of an operator (in any case) as it arrives or as it waits; -1 for anything else.
  int TokenInPriority(const String& token) const;
  int TokenSPriority(const String& token) const;
  /// The first row whose token stands at 1-based position pos of s, case-sensitive; -1 for none.
  int TokenInPos(const String& s, int pos) const;

  /// Takes the next token off the front; "" at the end or on an error (see Error).
  /// Deliberate: operators are found inside unquoted words too, which end there.
  String GetToken(String& expr);
  /// Replaces Output by the postfix form of the expression, which is consumed.
  /// @param checkOnly  not 0: Output is left alone
  /// @return 1, or 0 with the reason in Error
  int Expr2Polish(String& expr, int checkOnly);
  /// The conversion itself, which keeps a byte for each operator that waits: hands over the tokens
  /// in their order, operands in that of the source, in which they lie.
  /// @return false with the reason in Error; some tokens may have been handed over then
  /// Deliberate: an unmatched "(" is no error, it becomes the last of the operands.
  bool Convert(std::string_view source, const TEmit& emit);

  const TStrList& Output() const { return output_; }
  /// `Unterminated string: ...`, `Unknown operator: "..."` or `Missing "("`; "" after a success.
  const String& Error() const { return error_; }

 private:
  const TPriorityItem* FindOperator(std::string_view token) const;
  const TPriorityItem* OperatorAt(std::string_view s) const;
  std::string_view NextToken(std::string_view& rest);
  bool Fail(const char* what, std::string_view where, const char* close);

  std::span<const TPriorityItem> table_;
  TStrList output_;
  String error_;
};

/// A stack of booleans of fixed capacity. Overflow and underflow set an error flag for good.
class BoolStack {
 public:
  explicit BoolStack(int capacity) : capacity_(capacity) {}

  void Push(int value) {
    failed_ |= Count() >= capacity_;
    if (Count() < capacity_) entries_.push_back(value != 0 ? 1 : 0);
  }
  /// The entry taken off, 0 on underflow.
  int Pop() {
    if (!Holds(1)) return 0;
    const int top = entries_.back();
    entries_.pop_back();
    return top;
  }
  /// Negates the top entry.
  void Not() {
    if (Holds(1)) entries_.back() ^= 1;
  }
  /// Each joins the two top entries; with fewer than two none is taken.
  void Or() {
    if (Holds(2)) Push(Pop() | Pop());
  }
  void And() {
    if (Holds(2)) Push(Pop() & Pop());
  }
  int Count() const { return static_cast<int>(entries_.size()); }
  bool Failed() const { return failed_; }

 private:
  bool Holds(int entries) {
    failed_ |= Count() < entries;
    return Count() >= entries;
  }

  std::vector<unsigned char> entries_;
  int capacity_;
  bool failed_ = false;
};

/// A search expression parsed once for many lines. Read-only once made: threads may share it.
/// Expressions may have millions of texts: these are kept in the buffer of the expression, with
/// four bytes each, and a byte for each step.
class TSearchExpression {
 public:
  /// @param isExpression  false: holds where `text`, taken as it is, was found
  /// An expression that does not parse, or leaves not just one value, never holds.
  TSearchExpression(String text, bool isExpression, int caseSensitive, int wholeWord);

  /// The texts that the outcome for a line depends on; i counts from 0. The finder must not outlive
  /// the expression.
  size_t TextCount() const { return ends_.size(); }
  TTextFinder Text(size_t i) const;
  /// Whether the expression holds, given for each text whether it was found.
  bool Holds(const std::vector<unsigned char>& found) const;

 private:
  void AddStep(const TPriorityItem* op, std::string_view operand);
  /// Whether the steps find the values they take, and leave one.
  bool IsComplete() const;

  String texts_;  // one behind the other
  std::vector<int> ends_;
  std::vector<unsigned char> steps_;
  int caseSensitive_;
  int wholeWord_;
};

/// 1 when the expression holds for the line, else 0; an expression that does not parse gives 0.
/// Not called by the agent itself, which prepares the expression for all lines.
int SearchForExpression(const String& line, const String& expression, int caseSensitive,
                        int wholeWord);

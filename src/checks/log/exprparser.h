#pragma once

#include <algorithm>
#include <functional>
#include <memory>
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
/// The same with comparisons and "div" and "mod", longer operators first. Read-only.
extern const TPriorityItem PriorityTable2[kPriorityTable2Size];

/// Turns infix expressions into postfix form. One thread at a time.
class TExprParser {
 public:
  /// Takes a postfix token: an operator of the table, or with null an operand as it was written.
  using TEmit = std::function<void(const TPriorityItem* op, std::string_view operand)>;

  /// @param tableSize  size of the table in bytes, at most 256 rows; the table must outlive the
  ///                   parser
  TExprParser(const TPriorityItem* table, int tableSize);

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
  bool TakeOperator(const TPriorityItem& op, std::vector<unsigned char>& waiting,
                    const TEmit& emit);
  bool Fail(const char* what, std::string_view where, const char* close);

  const TPriorityItem* table_;
  int rows_;
  TStrList output_;
  String error_;
};

/// A stack of booleans of fixed capacity. Overflow and underflow set an error flag for good.
class BoolStack {
 public:
  explicit BoolStack(int capacity)
      : entries_(new unsigned char[static_cast<size_t>(std::max(capacity, 1))]),
        capacity_(capacity) {}

  void Push(int value);
  /// The entry taken off, 0 on underflow.
  int Pop();
  /// Negates the top entry.
  void Not();
  /// Each joins the two top entries; with fewer than two none is taken.
  void Or();
  void And();
  int Count() const { return count_; }
  bool Failed() const { return failed_; }

 private:
  bool Holds(int entries);
  unsigned char& At(int i) { return entries_[static_cast<size_t>(i)]; }

  std::unique_ptr<unsigned char[]> entries_;
  int count_ = 0;
  int capacity_;
  bool failed_ = false;
};

/// A search expression parsed once for many lines. Read-only once made: threads may share it.
/// Expressions may have millions of texts: these are kept in the buffer of the expression, with
/// four bytes each, and a byte for each step.
class TSearchExpression {
 public:
  /// An expression that does not parse never holds.
  TSearchExpression(String expression, int caseSensitive, int wholeWord);
  /// The expression that holds where `text`, taken as it is, was found.
  static TSearchExpression OneText(String text, int caseSensitive, int wholeWord);

  /// The texts, none empty, that the outcome for a line depends on; i counts from 0. The finder
  /// must not outlive the expression.
  size_t TextCount() const { return ends_.size(); }
  TTextFinder Text(size_t i) const;
  /// Whether the expression holds, given for each text whether it was found.
  bool Holds(const std::vector<bool>& found) const;

 private:
  TSearchExpression(int caseSensitive, int wholeWord)
      : caseSensitive_(caseSensitive), wholeWord_(wholeWord) {}
  void AddStep(const TPriorityItem* op, std::string_view operand);

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

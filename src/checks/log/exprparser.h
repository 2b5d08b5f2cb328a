#pragma once

#include <memory>
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

/// Turns infix expressions into postfix token lists. One thread at a time.
class TExprParser {
 public:
  /// @param tableSize  size of the table in bytes; the table must outlive the parser
  TExprParser(const TPriorityItem* table, int tableSize);

  /// Priority of an operator (in any case) as it arrives or as it waits; -1 for anything else.
  int TokenInPriority(String token) const;
  int TokenSPriority(String token) const;
  /// The first row whose token stands at 1-based position pos of s, case-sensitive; -1 for none.
  int TokenInPos(const String& s, int pos) const;

  /// Takes the next token off the front; "" at the end or on an error (see Error).
  /// Deliberate: operators are found inside unquoted words too, which end there.
  String GetToken(String& expr);
  /// Replaces Output by the postfix form of the expression, which is consumed.
  /// @param checkOnly  not 0: Output is left alone
  /// @return 1, or 0 with the reason in Error
  /// Deliberate: an unmatched "(" is no error, it becomes the last of the operands.
  int Expr2Polish(String& expr, int checkOnly);

  const TStrList& Output() const { return output_; }
  /// `Unterminated string: ...`, `Unknown operator: "..."` or `Missing "("`; "" after a success.
  const String& Error() const { return error_; }

 private:
  struct TCursor;

  const TPriorityItem* FindOperator(String token) const;
  const TPriorityItem* OperatorAt(const char* p, const char* end) const;
  String NextToken(TCursor& cursor);
  bool TakeOperator(const String& token, TStrList& waiting, bool store);
  void Emit(const String& token, bool store);
  void EmitLast(TStrList& waiting, bool store);

  const TPriorityItem* table_;
  int rows_;
  TStrList output_;
  String error_;
};

/// A stack of booleans of fixed capacity. Overflow and underflow set an error flag for good.
class BoolStack {
 public:
  explicit BoolStack(int capacity);

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
  std::unique_ptr<unsigned char[]> entries_;
  int count_ = 0;
  int capacity_;
  bool failed_ = false;
};

/// A search expression parsed once for many lines. Read-only once made: threads may share it.
class TSearchExpression {
 public:
  /// An expression that does not parse never holds.
  TSearchExpression(const String& expression, int caseSensitive, int wholeWord);

  /// The texts that the outcome for a line depends on.
  const std::vector<TTextFinder>& Texts() const { return texts_; }
  /// Whether the expression holds, given for each text whether it was found; `found` has as many
  /// entries as Texts.
  bool Holds(const std::vector<bool>& found) const;

 private:
  std::vector<TTextFinder> texts_;
  std::vector<int> steps_;  // an index into texts_ or one of the operators
};

/// 1 when the expression holds for the line, else 0; an expression that does not parse gives 0.
int SearchForExpression(const String& line, const String& expression, int caseSensitive,
                        int wholeWord);

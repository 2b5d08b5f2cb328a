#include "checks/log/exprparser.h"

#include <gtest/gtest.h>

#include <random>

#include "support/text.h"

namespace {

std::string Postfix(const char* expression) {
  TExprParser parser(PriorityTable1, sizeof PriorityTable1);
  String source(expression);
  if (parser.Expr2Polish(source, 0) == 0) return ToStd(parser.Error());
  std::string tokens;
  for (int i = 0; i < parser.Output().Count(); ++i) tokens += ToStd(parser.Output()[i]) + ' ';
  return tokens;
}

TEST(Expressions, BecomePostfix) {
  const struct {
    const char *expression, *postfix;
  } cases[] = {
      {"'a' and('b'or\"c d\")", "'a' 'b' \"c d\" or and "},
      {"'a' and (not 'b') or 'c'", "'a' 'b' not and 'c' or "},
      {"'a' AND Not 'b'", "'a' 'b' not and "},
      {" \t'it''s' \xE9", "'it' 's' "},
      {"12-3 or '\"'", "12-3 '\"' or "},
      {"", ""},
      {"( 'a'", "'a' ( "},
      {"'a' )", "Missing \"(\""},
      {"'warn ", "Unterminated string: 'warn"},
      {"error", "Unknown operator: \"err\""},            // cut where an operator is found
      {"'a' oR\t'b'", "Unknown operator: \"oR\t'b'\""},  // only a blank ends a word
  };
  for (const auto& c : cases) EXPECT_EQ(c.postfix, Postfix(c.expression)) << c.expression;

  TExprParser wide(PriorityTable2, sizeof PriorityTable2);
  EXPECT_EQ(6, wide.TokenInPos("1<=2", 2));
  EXPECT_EQ(-1, wide.TokenInPos("1<=2", 4));
  EXPECT_EQ(4, wide.TokenInPriority("MOD"));
  EXPECT_EQ(65520, wide.TokenSPriority(")"));
  String rest(" 7div 2");
  EXPECT_EQ("7", wide.GetToken(rest));
  EXPECT_EQ("div", wide.GetToken(rest));
  EXPECT_EQ(" 2", rest);
  String source("'a' and 'b'");
  EXPECT_EQ(1, wide.Expr2Polish(source, 1));
  EXPECT_EQ(0, wide.Output().Count());
}

TEST(Expressions, HoldForALine) {
  const struct {
    const char *line, *expression;
    int caseSensitive, wholeWord, holds;
  } cases[] = {
      {"disk error", "'ERROR'", 1, 0, 0},
      {"disk error", "'ERROR'", 0, 0, 1},
      {"disk errors", "'error'", 1, 1, 0},
      {"a", "( 'a'", 1, 0, 0},
      {"a", "'a' )", 1, 0, 0},
      {"a", "", 1, 0, 0},
      {"a", "''", 1, 0, 0},
      {"a", "not ''", 1, 0, 1},
      {"a", "'a' 'a'", 1, 0, 0},
      {"a", "not", 1, 0, 0},
      {"a", "'a' and", 1, 0, 0},
      {"a 2 b", "123", 1, 0, 1},
      {"a 13 b", "123", 1, 0, 0},
      {"a", "'a' or (", 1, 0, 1},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.holds, SearchForExpression(c.line, c.expression, c.caseSensitive, c.wholeWord))
        << c.line << " " << c.expression;
  }
}

TEST(Expressions, StackRefusesWithoutHarm) {
  BoolStack stack(1);
  stack.Push(5);
  stack.Or();
  EXPECT_TRUE(stack.Failed());
  EXPECT_EQ(1, stack.Count());
  stack.Push(0);
  EXPECT_EQ(1, stack.Pop());
  EXPECT_EQ(0, stack.Pop());
}

/// Writes random expressions and, beside it, what they come to for a line.
class TExpressionMaker {
 public:
  explicit TExpressionMaker(const std::string& line, std::minstd_rand& random)
      : line_(line), random_(random) {}

  /// "not" takes all that follows in its group, the other operators join from left to right.
  bool Group(int depth) {
    if (Roll(5) == 0) {
      text += "not ";
      return !Group(depth);
    }
    bool value = Operand(depth);
    while (Roll(2) == 0) {
      const bool both = Roll(2) == 0;
      text += both ? (Roll(2) == 0 ? " and " : " AND ") : (Roll(2) == 0 ? "or" : " Or ");
      const bool last = Roll(6) == 0;
      if (last) text += "not";
      const bool right = last ? !Group(depth) : Operand(depth);
      value = both ? value && right : value || right;
      if (last) break;
    }
    return value;
  }
  std::string text;

 private:
  unsigned Roll(unsigned sides) { return static_cast<unsigned>(random_() % sides); }
  bool Operand(int depth) {
    if (depth > 0 && Roll(3) == 0) {
      text += '(';
      const bool value = Group(depth - 1);
      text += ')';
      return value;
    }
    const char c = "abcd"[Roll(4)];
    text += std::string("'") + c + "'";
    return line_.find(c) != std::string::npos;
  }

  const std::string& line_;
  std::minstd_rand& random_;
};

TEST(Expressions, AgreeWithASmallEvaluator) {
  std::minstd_rand random(3);
  int held = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string line;
    for (const char c : {'a', 'b', 'c', 'd'}) line += random() % 2 == 0 ? c : '-';
    TExpressionMaker maker(line, random);
    const bool expected = maker.Group(4);
    held += expected;
    ASSERT_EQ(expected, SearchForExpression(ToString(line), ToString(maker.text), 1, 0) == 1)
        << line << ": " << maker.text;
  }
  EXPECT_GT(held, 500);
  EXPECT_LT(held, 2500);
}

}  // namespace

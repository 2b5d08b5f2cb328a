#include "checks/log/exprparser.h"

#include <gtest/gtest.h>

#include <random>

#include "support/text.h"

namespace {

TEST(Expressions, BecomePostfix) {
  const struct {
    const char *expression, *postfix;
  } cases[] = {
      {"'a' and('b'or\"c d\")", "'a' 'b' \"c d\" or and "},
      {"'a' and (not 'b') or 'c'", "'a' 'b' not and 'c' or "},
      {"'a' AND Not 'b'", "'a' 'b' not and "},
      {" \t'it''s' \xE9", "'it' 's' "},
      {"987-6543210 or '\"'", "987-6543210 '\"' or "},
      {"", ""},
      {"( 'a'", "'a' ( "},
      {"'a' )", "Missing \"(\""},
      {"'warn ", "Unterminated string: 'warn"},
      {"error", "Unknown operator: \"err\""},            // cut where an operator is found
      {"'a' oR\t'b'", "Unknown operator: \"oR\t'b'\""},  // only a blank ends a word
  };
  TExprParser parser(PriorityTable1, sizeof PriorityTable1);
  for (const auto& c : cases) {
    String source(c.expression);
    const bool done = parser.Expr2Polish(source, 0) != 0;
    std::string tokens;
    for (int i = 0; i < parser.Output().Count(); ++i) tokens += ToStd(parser.Output()[i]) + ' ';
    EXPECT_EQ(c.postfix, done ? tokens : ToStd(parser.Error())) << c.expression;
    EXPECT_EQ(done, parser.Error().Empty() && source.Empty());
  }

  TExprParser wide(PriorityTable2, sizeof PriorityTable2);
  EXPECT_EQ(6, wide.TokenInPos("1<=2", 2));
  EXPECT_EQ(-1, wide.TokenInPos("1<=2", 4));
  EXPECT_EQ(-1, wide.TokenInPos("", 1));
  EXPECT_EQ(4, wide.TokenInPriority("MOD"));
  EXPECT_EQ(-1, wide.TokenInPriority("mo"));
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
  const auto holds = [](const char* line, const char* expression, int caseSensitive,
                        int wholeWord) {
    return SearchForExpression(line, expression, caseSensitive, wholeWord);
  };
  EXPECT_EQ(0, holds("disk error", "'ERROR'", 1, 0));
  EXPECT_EQ(1, holds("disk error", "'ERROR'", 0, 0));
  EXPECT_EQ(0, holds("disk errors", "'error'", 1, 1));
  for (const char* e : {"( 'a'", "'a' )", "", "''", "'a' 'a'", "not", "'a' and", "123", "'A"}) {
    EXPECT_EQ(0, holds("a 13", e, 1, 0)) << e;
  }
  for (const char* e : {"not ''", "'a' or (", "113", "'3\nb' and '\n'"}) {
    EXPECT_EQ(1, holds("a 1\n3\nb", e, 1, 0)) << e;
  }
  BoolStack stack(1);
  stack.Push(5);
  EXPECT_FALSE(stack.Failed());
  stack.Push(0);
  EXPECT_TRUE(stack.Failed());
  stack.Or();
  EXPECT_EQ(1, stack.Pop());
  EXPECT_EQ(0, stack.Pop());
}

/// Writes a random group and returns what it comes to for the line: operators join from left to
/// right, and "not" takes all that follows.
bool Group(std::minstd_rand& random, const std::string& line, int depth, std::string& text) {
  const auto roll = [&random](unsigned sides) { return random() % sides; };
  for (bool value = false, both = false;;) {
    const bool inverted = roll(5) == 0;
    const bool nested = !inverted && depth > 0 && roll(3) == 0;
    const char c = "abcd"[roll(4)];
    bool right = line.find(c) != std::string::npos;
    text += inverted ? "not " : nested ? "(" : std::string("'") + c + '\'';
    if (inverted || nested) right = Group(random, line, depth - 1, text) != inverted;
    if (nested) text += ')';
    value = both ? value && right : value || right;
    if (inverted || roll(2) == 0) return value;
    both = roll(2) == 0;
    text += both ? (roll(2) == 0 ? " and " : " AND ") : (roll(2) == 0 ? "or" : " Or ");
  }
}

TEST(Expressions, AgreeWithASmallEvaluator) {
  std::minstd_rand random(3);
  int held = 0;
  for (int round = 0; round < 3000; ++round) {
    std::string line, text;
    for (const char c : {'a', 'b', 'c', 'd'}) line += random() % 2 == 0 ? c : '-';
    const bool expected = Group(random, line, 4, text);
    held += expected;
    ASSERT_EQ(expected, SearchForExpression(ToString(line), ToString(text), 1, 0) == 1)
        << line << ": " << text;
  }
  EXPECT_GT(held, 500);
  EXPECT_LT(held, 2500);
}

}  // namespace

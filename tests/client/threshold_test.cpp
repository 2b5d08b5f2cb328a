#include "client/threshold.h"

#include <gtest/gtest.h>
#include <math.h>

#include "client/pluginoutput.h"

TEST(RangeTest, AlertsOutsideTheClosedRangeOrInsideWithAt) {
  const struct {
    const char* range;
    std::vector<double> quiet;
    std::vector<double> alerting;
  } cases[] = {
      {"10", {0, 5, 10}, {-0.1, 10.1}},
      {"10:", {10, 1e300}, {9.9, -1}},
      {":10", {0, 10}, {-1, 11}},
      {"~:10", {-1e300, 10}, {10.5}},
      {"10:20", {10, 15, 20}, {9.99, 20.01}},
      {"@10:20", {9.99, 20.01}, {10, 15, 20}},
      {"@~:-5", {-4.9, 0}, {-5, -100}},
      {"-5:-1.5", {-5, -1.5}, {0, -6}},
      {"0", {0}, {1, -1}},
      {":", {0, 1e9}, {-1}},
      {"+.5:1.", {.5, 1}, {.4, 1.1}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.range);
    TRange range;
    std::string error;
    ASSERT_TRUE(ParseRange(c.range, range, error)) << error;
    EXPECT_EQ(c.range, range.text);
    for (const double value : c.quiet) EXPECT_FALSE(range.Alerts(value)) << value;
    for (const double value : c.alerting) EXPECT_TRUE(range.Alerts(value)) << value;
  }
  EXPECT_FALSE(TRange().Alerts(-1)) << "no threshold was given";
}

TEST(RangeTest, RefusesWhatIsNoRange) {
  for (const char* text : {"", "@", "~", "5:3", "x", "1:x", "x:1", "1:2:3", "1e3", "inf", "nan",
                           "0x10", " 1", "1 ", "1:~", "@@1", "-", ".", "1.2.3"}) {
    SCOPED_TRACE(text);
    TRange range;
    range.text = "kept";
    std::string error;
    EXPECT_FALSE(ParseRange(text, range, error));
    EXPECT_EQ("kept", range.text);
    EXPECT_NE("", error);
  }
}

TEST(StateTest, IsReadByNameOrNumberAndWeighed) {
  const struct {
    const char* text;
    int state;  // -1: refused
  } cases[] = {{"0", 0},       {"3", 3},  {"ok", 0},       {"Warning", 1}, {"c", 2},
               {"UNKNOWN", 3}, {"4", -1}, {"badness", -1}, {"", -1},       {"okay", -1}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    TPluginState state = stateOk;
    EXPECT_EQ(c.state != -1, ParseState(c.text, state));
    EXPECT_EQ(c.state != -1 ? c.state : stateOk, state);
  }
  EXPECT_EQ(stateCritical, WorseState(stateCritical, stateUnknown));
  EXPECT_EQ(stateWarning, WorseState(stateUnknown, stateWarning));
  EXPECT_EQ(stateUnknown, WorseState(stateOk, stateUnknown));
}

TEST(PluginOutputTest, WritesNumbersWithoutExponents) {
  const struct {
    double number;
    std::string text;
  } cases[] = {{0, "0"},
               {-0.0, "0"},
               {12.5, "12.5"},
               {-1, "-1"},
               {0.1, "0.1"},
               {1e15, "1000000000000000"},
               {1e-7, "0.0000001"},
               {INFINITY, "U"},
               {NAN, "U"}};
  for (const auto& c : cases) EXPECT_EQ(c.text, PlainNumber(c.number));
  EXPECT_EQ(301u, PlainNumber(1e300).size());
  EXPECT_EQ(std::string::npos, PlainNumber(5e-324).find('e'));
}

TEST(PluginOutputTest, WritesPerformanceData) {
  const struct {
    TMeasure measure;
    const char* text;
  } cases[] = {
      {{"used", 5, "B", "10", "@0:20", 0, 100}, "'used'=5B;10;@0:20;0;100"},
      {{"time", 1.5, "ms", "", "", 0}, "'time'=1.5ms;;;0"},
      {{"count", 3}, "'count'=3"},
      {{"n", 3, "c", "", "~:5"}, "'n'=3c;;~:5"},
      {{"it's a=b", 1}, "'it''s a_b'=1"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.text, FormatMeasure(c.measure));
}

TEST(PluginOutputTest, KeepsTheFirstLineOneLineAndTheBarToItself) {
  EXPECT_EQ("DISK OK: fine | 'a'=1 'b'=2\nmore / lines\n",
            FormatJudgement("DISK", {stateOk, "fine", {{"a", 1}, {"b", 2}}, "more | lines"}));
  EXPECT_EQ("X UNKNOWN: a b / c\n", FormatJudgement("X", {stateUnknown, "a\nb | c"}));
}

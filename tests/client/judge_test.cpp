#include "client/judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <math.h>

#include "client/format.h"
#include "client/json.h"

using testing::HasSubstr;

static TRange Range(const char* text) {
  TRange range;
  std::string error;
  EXPECT_TRUE(ParseRange(text, range, error)) << error;
  return range;
}

/// An answer from its code and lines, '|' between them.
static TAnswer Answer(std::string text) {
  TAnswer answer = {text.substr(0, 3)};
  for (size_t bar; (bar = text.find('|')) != text.npos;) {
    text.erase(0, bar + 1);
    answer.lines.push_back(text.substr(0, text.find('|')));
  }
  return answer;
}

TEST(JudgeTest, MapsAnswersToStates) {
  const char disk[] = "200|1000|300|100";
  const char file[] = "200|10|01012026000000|01012026000000|/f|min|90";
  const char info[] = "200|ActiveConnections=2|OpenedConnections=7|FailedConnections=1";
  const struct {
    const char* command;
    const char* answer;
    TJudgeOptions options;
    TPluginState state;
    const char* text;  // part of the first line
  } cases[] = {
      {"disk", disk, {Range("699")}, stateWarning, "(warning at 699)"},
      {"disk", disk, {Range("1"), Range("2")}, stateCritical, "used"},
      {"disk", disk, {{}, Range("80"), "used_pct"}, stateCritical, "87.5% (critical at 80)"},
      {"disk", disk, {{}, Range("150:"), "avail"}, stateCritical, "avail 100 B"},
      {"disk", "200|0|0|0", {{}, Range("80"), "used_pct"}, stateOk, "used_pct 0%"},
      {"disk", "301", {}, stateUnknown, "301 could not be performed"},
      {"disk", "300|bad|worse", {}, stateCritical, "bad, worse"},
      {"disk", "600|test is not allowed", {}, stateUnknown, "refused by"},
      {"file", "301|no such file or acess denied", {.missing = stateOk}, stateOk, "no such"},
      {"checksum", "301|Read error", {.missing = stateOk}, stateUnknown, "Read error"},
      {"file", file, {{}, Range("3600")}, stateCritical, "age 5400 s"},
      {"compare", "200|1", {}, stateOk, "equal"},
      {"compare", "200|0", {}, stateCritical, "not equal"},
      {"external", "200|127", {}, stateUnknown, "exit code 127"},
      {"external", "200|-1", {}, stateUnknown, "exit code -1"},
      {"shell-script", "200|scriptres: WARNING x|", {}, stateWarning, "WARNING x"},
      {"shell-script", "200|2|", {}, stateCritical, "2"},
      {"shell-script", "200|whatever|", {}, stateUnknown, "whatever"},
      {"shell-script", "200||", {}, stateUnknown, "no result"},
      {"shell-script", "200|ScriptRes:7.5 f|", {Range("5"), Range("9")}, stateWarning, "7.5 f"},
      {"shell-script", "200|ScriptRes:Ok|", {Range("5")}, stateUnknown, "no number"},
      {"checksum", "200|873187033", {.expect = "0x340BC6D9"}, stateOk, "0x340bc6d9"},
      {"checksum", "200|873187033", {.expect = "873187034"}, stateCritical, "expected"},
      {"tcp", "200|12|220 ready%0D%0A", {.expect = "220"}, stateOk, "time 12 ms"},
      {"tcp", "200|12|220 ready%0D%0A", {.expect = "250"}, stateCritical, "unexpected"},
      {"tcp", "200|12|", {.expect = "250"}, stateCritical, "no answer, time 12 ms"},
      {"tcp", "200|12|x", {Range("5"), {}, "", "x"}, stateWarning, "time 12 ms"},
      {"info", info, {{}, Range("0"), "failed"}, stateCritical, "failed 1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.command) + ' ' + c.answer);
    const TCommand& command = *FindCommand(c.command);
    CheckJudgeOptions(command, c.options);
    const TJudgement judgement = JudgeAnswer(command, Answer(c.answer), c.options);
    EXPECT_EQ(c.state, judgement.state);
    EXPECT_THAT(judgement.text, HasSubstr(c.text));
  }
  EXPECT_THROW(JudgeAnswer(*FindCommand("disk"), Answer("200|1000"), {}), TSilence);
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("compare"), {.warning = Range("1")}), TUsageFailure);
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("disk"), {.metric = "usage"}), TUsageFailure);
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("checksum"), {.expect = "abc"}), TUsageFailure);
}

TEST(JudgeTest, WritesOneLineWithEveryMetric) {
  const TJudgement disk = JudgeAnswer(*FindCommand("disk"), Answer("200|1000|300|100"),
                                      {Range("50"), Range("95"), "used_pct"});
  EXPECT_THAT(FormatJudgement("DISK", disk),
              HasSubstr("| 'used'=700B;;;0;1000 'free'=300B;;;0;1000 'avail'=100B;;;0;1000 "
                        "'used_pct'=87.5%;50;95;0;100\n"));
  const TJudgeOptions limits = {.warning = Range("0"), .critical = Range("2")};
  EXPECT_EQ(
      "L CRITICAL: 3 matches (critical at 2), more are waiting, last: the last | "
      "'matches'=3;0;2;0\n",
      FormatJudgement("L", JudgeLog({3, true, "the last"}, limits)));
  EXPECT_EQ(
      "X UNKNOWN: a b / c | 'it''s a_b'=1 'n'=3c;;~:5\nmore / lines\n",
      FormatJudgement(
          "X",
          {stateUnknown, "a\nb | c", {{"it's a=b", 1}, {"n", 3, "c", "", "~:5"}}, "more | lines"}));
}

TEST(RangeTest, AlertsOutsideTheClosedRangeOrInsideWithAt) {
  const struct {
    const char* range;
    std::vector<double> quiet, alerting;
  } cases[] = {{"10", {0, 10}, {-0.1, 10.1}},       {"10:", {10, 1e300}, {9.9}},
               {":10", {0, 10}, {-1, 11}},          {"~:10", {-1e300, 10}, {10.5}},
               {"@10:20", {9.99, 20.01}, {10, 20}}, {"@~:-5", {-4.9, 0}, {-5, -100}},
               {"-5:-1.5", {-5, -1.5}, {0, -6}},    {"+.5:1.", {.5, 1}, {.4, 1.1}}};
  for (const auto& c : cases) {
    for (const double value : c.quiet) EXPECT_FALSE(Range(c.range).Alerts(value)) << c.range;
    for (const double value : c.alerting) EXPECT_TRUE(Range(c.range).Alerts(value)) << c.range;
  }
  EXPECT_FALSE(TRange().Alerts(-1)) << "no threshold was given";
  for (const char* text : {"", "@", "~", "5:3", "x", "1:x", "1:2:3", "1e3", "inf", "nan", "0x10",
                           " 1", "1 ", "1:~", "@@1", "-", ".", "1.2.3"}) {
    TRange range = Range("7");
    std::string error;
    EXPECT_FALSE(ParseRange(text, range, error)) << text;
    EXPECT_EQ("7", range.text);
    EXPECT_NE("", error);
  }
}

TEST(StateTest, IsReadByNameOrNumberAndWeighed) {
  TPluginState state = stateOk;
  for (const char* bad : {"4", "badness", "", "okay"}) EXPECT_FALSE(ParseState(bad, state)) << bad;
  for (const char* good : {"3", "UNKNOWN", "u"}) {
    EXPECT_TRUE(ParseState(good, state = stateOk)) << good;
    EXPECT_EQ(stateUnknown, state);
  }
  EXPECT_EQ(stateCritical, WorseState(stateCritical, stateUnknown));
  EXPECT_EQ(stateWarning, WorseState(stateUnknown, stateWarning));
  EXPECT_EQ(stateUnknown, WorseState(stateOk, stateUnknown));
}

TEST(FormatTest, WritesNumbersWithoutExponents) {
  const std::pair<double, const char*> cases[] = {
      {-0.0, "0"},         {12.5, "12.5"},  {0.1, "0.1"}, {1e15, "1000000000000000"},
      {1e-7, "0.0000001"}, {INFINITY, "U"}, {NAN, "U"}};
  for (const auto& [number, text] : cases) EXPECT_EQ(text, PlainNumber(number));
  EXPECT_EQ(301u, PlainNumber(1e300).size());
}

TEST(FormatTest, ShowsTypedValuesInColumns) {
  const TAnswer answer = Answer("200|  1536|24112026170309|01012026000000|/var/log/x|min|4000");
  EXPECT_EQ(
      "size      1.5 KiB (1536 B)\nchanged   2026-11-24 17:03:09\n"
      "modified  2026-01-01 00:00:00\nfile      /var/log/x\nage       4000 min (2.8 days)\n",
      FormatAnswer(*FindCommand("file"), answer, false));
  const std::string json = JsonAnswer(*FindCommand("file"), answer, false);
  for (const char* part :
       {"\"size\": 1536,", "\"changed\": \"2026-11-24T17:03:09\"", "\"age\": \"min\""}) {
    EXPECT_THAT(json, HasSubstr(part));
  }
  EXPECT_THAT(JsonRaw("X", Answer("200|\xff\xfe")), HasSubstr("\xEF\xBF\xBD"));
  EXPECT_THAT(JsonAnswer(*FindCommand("settings"), Answer("200|Password=secret"), false),
              Not(HasSubstr("secret")));
  EXPECT_EQ("Tests  off  A\n       on   B\n",
            FormatAnswer(*FindCommand("info"),
                         Answer("200|Available tests=A%0D%0AB%0D%0A|Enabled tests=01"), false));
}

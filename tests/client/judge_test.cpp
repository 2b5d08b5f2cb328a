#include "client/judge.h"

#include <gmock/gmock.h>

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
  const std::tuple<const char*, const char*, TJudgeOptions, TPluginState, const char*> cases[] = {
      {"disk", disk, {Range("699")}, stateWarning, "(warning at 699)"},
      {"disk", disk, {Range("1"), Range("2")}, stateCritical, "used"},
      {"disk", disk, {{}, Range("80"), "used_pct"}, stateCritical, "87.5% (critical at 80)"},
      {"disk", "200|0|0|0", {{}, Range("80"), "used_pct"}, stateOk, "used_pct 0%"},
      {"disk", "300|bad|worse", {}, stateCritical, "bad, worse"},
      {"file", "301|no such file or acess denied", {.missing = stateOk}, stateOk, "no such"},
      {"checksum", "301|Read error", {.missing = stateOk}, stateUnknown, "Read error"},
      {"file", "200|1|2|3|/f|min|90", {{}, Range("3600")}, stateCritical, "age 5400 s"},
      {"compare", "200|0", {}, stateCritical, "not equal"},
      {"external", "200|127", {}, stateUnknown, "exit code 127"},
      {"shell-script", "200|scriptres: WARNING x|", {}, stateWarning, "WARNING x"},
      {"shell-script", "200|2|", {}, stateCritical, "2"},
      {"shell-script", "200|whatever|", {}, stateUnknown, "whatever"},
      {"shell-script", "200|ScriptRes:7.5 f|", {Range("5"), Range("9")}, stateWarning, "7.5 f"},
      {"shell-script", "200|ScriptRes:Ok|", {Range("5")}, stateUnknown, "no number"},
      {"checksum", "200|873187033", {.expect = "0x340BC6D9"}, stateOk, "0x340bc6d9"},
      {"checksum", "200|873187033", {.expect = "873187034"}, stateCritical, "expected"},
      {"tcp", "200|12|220 ready%0D%0A", {.expect = "220"}, stateOk, "time 12 ms"},
      {"tcp", "200|12|220 ready%0D%0A", {.expect = "250"}, stateCritical, "unexpected"},
      {"tcp", "200|12|x", {Range("5"), {}, "", "x"}, stateWarning, "time 12 ms"},
      {"tcp", "200|12|", {Range("5"), {}, "", "y"}, stateCritical, "no answer, time 12 ms"},
      {"info", "200|FailedConnections=1", {{}, Range("0"), "failed"}, stateCritical, "failed 1"},
  };
  for (const auto& [name, answer, options, state, text] : cases) {
    const TCommand& command = *FindCommand(name);
    CheckJudgeOptions(command, options);
    const TJudgement judgement = JudgeAnswer(command, Answer(answer), options);
    EXPECT_EQ(state, judgement.state) << name << ' ' << answer;
    EXPECT_THAT(judgement.text, HasSubstr(text));
  }
  EXPECT_THROW(JudgeAnswer(*FindCommand("disk"), Answer("200|1000"), {}), TSilence);
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("compare"), {.warning = Range("1")}), TUsageFailure);
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("checksum"), {.expect = "abc"}), TUsageFailure);
}

TEST(JudgeTest, WritesOneLineWithEveryMetric) {
  const TJudgeOptions limits = {Range("50"), Range("95"), "used_pct"};
  EXPECT_THAT(FormatJudgement("D", JudgeAnswer(*FindCommand("disk"), Answer("200|4|3|1"), limits)),
              HasSubstr("| 'used'=1B;;;0;4 'free'=3B;;;0;4 'avail'=1B;;;0;4 "
                        "'used_pct'=50%;50;95;0;100\n"));
  EXPECT_THAT(FormatJudgement("L", JudgeLog({96, true, "the last"}, limits)),
              HasSubstr(": 96 matches (critical at 95), more are waiting, last: the last | "
                        "'matches'=96;50;95;0\n"));
  const std::vector<TMeasure> measures = {{"it's a=b", 1}, {"n", 3, "c", "", "~:5"}};
  EXPECT_EQ("X UNKNOWN: a b / c | 'it''s a_b'=1 'n'=3c;;~:5\nmore / lines\n",
            FormatJudgement("X", {stateUnknown, "a\nb | c", measures, "more | lines"}));
  const std::pair<double, const char*> numbers[] = {
      {-0.0, "0"}, {12.5, "12.5"}, {1e15, "1000000000000000"}, {1e-7, "0.0000001"}, {NAN, "U"}};
  for (const auto& [number, text] : numbers) EXPECT_EQ(text, PlainNumber(number));
}

TEST(RangeTest, AlertsOutsideTheClosedRangeOrInsideWithAt) {
  const std::tuple<const char*, double, double, double, double> cases[] = {
      {"10", 0, 10, -0.1, 10.1},     {"10:", 10, 1e300, 9.9, -1},  {"~:10", -1e300, 10, 10.5, 11},
      {"@10:20", 9.9, 20.1, 10, 20}, {"-5:-1.5", -5, -1.5, 0, -6}, {"+.5:1.", .5, 1, .4, 1.1}};
  for (const auto& [text, low, high, under, over] : cases) {
    const TRange range = Range(text);
    EXPECT_FALSE(range.Alerts(low) || range.Alerts(high)) << text;
    EXPECT_TRUE(range.Alerts(under) && range.Alerts(over)) << text;
  }
  for (const char* text : {"", "~", "5:3", "x", "1:x", "1e3", "inf", "1 ", ".", "1.2.3"}) {
    TRange range = Range("7");
    std::string error;
    EXPECT_TRUE(!ParseRange(text, range, error) && range.text == "7" && !error.empty()) << text;
  }
  TPluginState state = stateOk;
  for (const char* bad : {"4", "badness", "", "okay"}) EXPECT_FALSE(ParseState(bad, state)) << bad;
}

TEST(FormatTest, ShowsTypedValuesInColumns) {
  const TCommand& file = *FindCommand("file");
  const TAnswer answer = Answer("200|  1536|24112026170309|01012026000000|/var/log/x|min|4000");
  EXPECT_EQ(FormatAnswer(file, answer, false),
            "size      1.5 KiB (1536 B)\nchanged   2026-11-24 17:03:09\n"
            "modified  2026-01-01 00:00:00\nfile      /var/log/x\nage       4000 min (2.8 days)\n");
  EXPECT_THAT(JsonAnswer(file, answer, false),
              AllOf(HasSubstr("-24T17:03:09\""), HasSubstr("\"age\": \"min\"")));
  EXPECT_THAT(JsonRaw("X", Answer("200|\xff\xfe")), HasSubstr("\xEF\xBF\xBD"));
  EXPECT_EQ("checksum  88888888888888888888\n",
            FormatAnswer(*FindCommand("checksum"), Answer("200|88888888888888888888"), false));
  const TAnswer tests = Answer("200|Available tests=A%0D%0AB%0D%0A|Enabled tests=01");
  EXPECT_EQ("Tests  off  A\n       on   B\n", FormatAnswer(*FindCommand("info"), tests, false));
}

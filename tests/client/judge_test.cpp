#include "client/judge.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "client/format.h"
#include "client/json.h"

using testing::HasSubstr;

static TRange Range(const char* text) {
  TRange range;
  std::string error;
  EXPECT_TRUE(ParseRange(text, range, error)) << error;
  return range;
}

TEST(JudgeTest, MapsAnswersToStates) {
  const struct {
    const char* command;
    TAnswer answer;
    TJudgeOptions options;
    TPluginState state;
    const char* text;  // part of the first line
  } cases[] = {
      {"disk", {"200", {"1000", "300", "100"}}, {}, stateOk, "used 700 B"},
      {"disk", {"200", {"1000", "300", "100"}}, {Range("699")}, stateWarning, "(warning at 699)"},
      {"disk", {"200", {"1000", "300", "100"}}, {Range("1"), Range("2")}, stateCritical, "used"},
      {"disk",
       {"200", {"1000", "300", "100"}},
       {{}, Range("80"), "used_pct"},
       stateCritical,
       "used_pct 87.5% (critical at 80)"},
      {"disk",
       {"200", {"1000", "300", "100"}},
       {{}, Range("150:"), "avail"},
       stateCritical,
       "avail 100 B"},
      {"disk", {"200", {"0", "0", "0"}}, {{}, Range("80"), "used_pct"}, stateOk, "used_pct 0%"},
      {"disk", {"301", {}}, {}, stateUnknown, "301 could not be performed"},
      {"disk", {"300", {"bad", "worse"}}, {}, stateCritical, "bad, worse"},
      {"disk", {"302", {}}, {}, stateUnknown, "302"},
      {"disk", {"501", {"Path not specified"}}, {}, stateUnknown, "Path not specified"},
      {"disk",
       {"600", {"test is not allowed"}},
       {},
       stateUnknown,
       "refused by the agent's settings"},
      {"file", {"301", {"no such file or acess denied"}}, {}, stateUnknown, "no such file"},
      {"file", {"301", {"no such file or acess denied"}}, {.missing = stateOk}, stateOk, "no such"},
      {"checksum", {"301", {"Read error"}}, {.missing = stateOk}, stateUnknown, "Read error"},
      {"file",
       {"200", {"10", "01012026000000", "01012026000000", "/f", "min", "90"}},
       {{}, Range("3600")},
       stateCritical,
       "age 5400 s"},
      {"compare", {"200", {"1"}}, {}, stateOk, "equal"},
      {"compare", {"200", {"0"}}, {}, stateCritical, "not equal"},
      {"external", {"200", {"0"}}, {}, stateOk, "exit code 0"},
      {"external", {"200", {"1"}}, {}, stateWarning, "exit code 1"},
      {"external", {"200", {"3"}}, {}, stateUnknown, "exit code 3"},
      {"external", {"200", {"127"}}, {}, stateUnknown, "exit code 127"},
      {"external", {"200", {"-1"}}, {}, stateUnknown, "exit code -1"},
      {"shell-script", {"200", {"ScriptRes:Ok, all well", ""}}, {}, stateOk, "Ok, all well"},
      {"shell-script", {"200", {"scriptres: WARNING x", ""}}, {}, stateWarning, "WARNING x"},
      {"shell-script", {"200", {"2", ""}}, {}, stateCritical, "2"},
      {"shell-script", {"200", {"whatever", ""}}, {}, stateUnknown, "whatever"},
      {"shell-script", {"200", {"", ""}}, {}, stateUnknown, "no result"},
      {"shell-script",
       {"200", {"ScriptRes:7.5 files", ""}},
       {Range("5"), Range("9")},
       stateWarning,
       "7.5 files"},
      {"shell-script", {"200", {"ScriptRes:Ok", ""}}, {Range("5")}, stateUnknown, "no number"},
      {"checksum", {"200", {"873187033"}}, {}, stateOk, "0x340bc6d9"},
      {"checksum", {"200", {"873187033"}}, {.expect = "0x340BC6D9"}, stateOk, "873187033"},
      {"checksum", {"200", {"873187033"}}, {.expect = "873187034"}, stateCritical, "expected"},
      {"tcp", {"200", {"12", "220 ready%0D%0A"}}, {.expect = "220"}, stateOk, "time 12 ms"},
      {"tcp", {"200", {"12", "220 ready%0D%0A"}}, {.expect = "250"}, stateCritical, "unexpected"},
      {"tcp", {"200", {"12", ""}}, {.expect = "250"}, stateCritical, "no answer, time 12 ms"},
      {"tcp", {"200", {"12", "x"}}, {Range("5"), {}, "", "x"}, stateWarning, "time 12 ms"},
      {"tcp", {"301", {"", "-6"}}, {}, stateUnknown, "the connection failed"},
      {"tcp", {"301", {"Timeout", "0"}}, {.missing = stateCritical}, stateCritical, "Timeout"},
      {"info",
       {"200", {"ActiveConnections=2", "OpenedConnections=7", "FailedConnections=1"}},
       {{}, Range("0"), "failed"},
       stateCritical,
       "failed 1"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.command) + ' ' + c.answer.code + ' ' + c.answer.Text());
    const TCommand& command = *FindCommand(c.command);
    CheckJudgeOptions(command, c.options);
    const TJudgement judgement = JudgeAnswer(command, c.answer, c.options);
    EXPECT_EQ(c.state, judgement.state);
    EXPECT_THAT(judgement.text, HasSubstr(c.text));
  }
}

TEST(JudgeTest, MeasuresEveryMetricWithTheThresholdsAtTheChosenOne) {
  const TJudgement judgement =
      JudgeAnswer(*FindCommand("disk"), {"200", {"1000", "300", "100"}},
                  {.warning = Range("50"), .critical = Range("95"), .metric = "used_pct"});
  EXPECT_THAT(FormatJudgement("DISK", judgement),
              HasSubstr("| 'used'=700B;;;0;1000 'free'=300B;;;0;1000 'avail'=100B;;;0;1000 "
                        "'used_pct'=87.5%;50;95;0;100\n"));
}

TEST(JudgeTest, CountsLogMatches) {
  const TJudgeOptions limits = {.warning = Range("0"), .critical = Range("2")};
  EXPECT_EQ(stateOk, JudgeLog({0}, limits).state);
  EXPECT_EQ(stateWarning, JudgeLog({1, false, "x"}, limits).state);
  const TJudgement many = JudgeLog({3, true, "the last"}, limits);
  EXPECT_EQ(
      "L CRITICAL: 3 matches (critical at 2), more are waiting, last: the last | "
      "'matches'=3;0;2;0\n",
      FormatJudgement("L", many));
}

TEST(JudgeTest, RefusesOptionsThatDoNotFit) {
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("compare"), {.warning = Range("1")}), TUsageFailure);
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("disk"), {.metric = "usage"}), TUsageFailure);
  EXPECT_THROW(CheckJudgeOptions(*FindCommand("checksum"), {.expect = "abc"}), TUsageFailure);
}

TEST(JudgeTest, TakesAShortReplyForNone) {
  EXPECT_THROW(JudgeAnswer(*FindCommand("disk"), {"200", {"1000"}}, {}), TSilence);
}

TEST(FormatTest, ShowsTypedValuesInColumns) {
  const TAnswer answer = {
      "200", {"  1536", "24112026170309", "01012026000000", "/var/log/x", "min", "4000"}};
  EXPECT_EQ(
      "size      1.5 KiB (1536 B)\n"
      "changed   2026-11-24 17:03:09\n"
      "modified  2026-01-01 00:00:00\n"
      "file      /var/log/x\n"
      "age       4000 min (2.8 days)\n",
      FormatAnswer(*FindCommand("file"), answer, false));
  const std::string json = JsonAnswer(*FindCommand("file"), answer, false);
  EXPECT_THAT(json, HasSubstr("\"size\": 1536,"));
  EXPECT_THAT(json, HasSubstr("\"changed\": \"2026-11-24T17:03:09\""));
  EXPECT_THAT(json, HasSubstr("\"age\": \"min\""));
}

TEST(FormatTest, MasksThePasswordUnlessAskedFor) {
  const TCommand& settings = *FindCommand("settings");
  const TAnswer answer = {
      "200", {"Password=secret", "Available tests=A%0D%0AB%0D%0A", "Enabled tests=01"}};
  EXPECT_EQ("Password  ********\nTests     off  A\n          on   B\n",
            FormatAnswer(settings, answer, false));
  EXPECT_THAT(FormatAnswer(settings, answer, true), HasSubstr("secret"));
  EXPECT_THAT(JsonAnswer(settings, answer, false), Not(HasSubstr("secret")));
  EXPECT_THAT(JsonAnswer(settings, answer, false), HasSubstr("\"B\": true"));
}

TEST(FormatTest, GivesValidJsonForAnyBytes) {
  EXPECT_THAT(JsonRaw("X", {"200", {"\xff\xfe"}}), HasSubstr("\xEF\xBF\xBD"));
}

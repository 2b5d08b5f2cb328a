#include "client/judge.h"

#include <stdlib.h>
#include <string.h>
#include <strings.h>

#include <algorithm>

#include "client/format.h"
#include "client/values.h"

TPluginState CodeState(const std::string& code) {
  if (code == "200") return stateOk;
  return code == "300" ? stateCritical : stateUnknown;
}

/// The agent's texts for a file or folder that is not there.
static bool SaysMissing(const TCommand& command, const TAnswer& answer) {
  static constexpr const char* kTexts[] = {"no such file or acess denied",
                                           "File doesn`t exist",
                                           "File does not exist",
                                           "Cannot open file",
                                           "Folder doesn`t exist or access denied",
                                           "Folder/File doesn`t exist or access denied"};
  if (command.verdict == verdictAnswer) return true;
  return std::any_of(std::begin(kTexts), std::end(kTexts),
                     [&](const char* text) { return answer.Line(1) == text; });
}

static TJudgement JudgeRefusal(const TCommand& command, const TAnswer& answer,
                               const TJudgeOptions& options) {
  TJudgement judgement;
  judgement.state = CodeState(answer.code);
  if (answer.code == "301" && options.missing && SaysMissing(command, answer)) {
    judgement.state = *options.missing;
  }
  judgement.text = DescribeFailure(command, answer);
  return judgement;
}

/// State of a measure by the thresholds, which it takes over for its perfdata.
static TPluginState JudgeMeasure(TMeasure& measure, const TJudgeOptions& options,
                                 std::string& text) {
  measure.warning = options.warning.text;
  measure.critical = options.critical.text;
  if (options.critical.Alerts(measure.value)) {
    text += " (critical at " + options.critical.text + ')';
    return stateCritical;
  }
  if (options.warning.Alerts(measure.value)) {
    text += " (warning at " + options.warning.text + ')';
    return stateWarning;
  }
  return stateOk;
}

static TMeasure MakeMeasure(const TMetric& metric, const std::vector<double>& numbers) {
  TMeasure measure;
  measure.label = metric.label;
  measure.value = metric.value(numbers);
  measure.unit = metric.unit;
  const bool percent = measure.unit == "%";
  if (measure.unit != "c") measure.min = 0;
  if (percent) measure.max = 100;
  if (metric.maxField >= 0) measure.max = numbers[static_cast<size_t>(metric.maxField)];
  return measure;
}

static std::string Readable(const TMeasure& measure) {
  if (measure.unit == "B") return measure.label + ' ' + ReadableBytes(measure.value);
  const bool bare = measure.unit.empty() || measure.unit == "c";
  return measure.label + ' ' + RoundedNumber(measure.value) +
         (bare                  ? ""
          : measure.unit == "%" ? "%"
                                : ' ' + measure.unit);
}

static bool IsChosen(const TCommand& command, const TMetric& metric, const std::string& name) {
  return name.empty() ? &metric == &command.metrics.front() : name == metric.label;
}

static void JudgeMetrics(const TCommand& command, const TAnswer& answer,
                         const TJudgeOptions& options, TJudgement& judgement) {
  const std::vector<double> numbers = ReadNumbers(command, answer);
  std::string others;
  for (const TMetric& metric : command.metrics) {
    TMeasure measure = MakeMeasure(metric, numbers);
    std::string text = Readable(measure);
    if (IsChosen(command, metric, options.metric)) {
      judgement.state = WorseState(judgement.state, JudgeMeasure(measure, options, text));
      judgement.text += text;
    } else {
      others += ", " + text;
    }
    judgement.measures.push_back(measure);
  }
  judgement.text += others;
}

static void JudgeTruth(const TValue& value, TJudgement& judgement) {
  judgement.state = value.text == "1" ? stateOk : stateCritical;
  judgement.text = (value.text == "1" ? "" : "not ") + std::string(value.field->name);
}

static void JudgeExitCode(const TValue& value, TJudgement& judgement) {
  judgement.state = stateUnknown;
  if (value.text.size() == 1) ParseState(value.text, judgement.state);  // the digits 0 to 3
  judgement.text = "exit code " + value.text;
}

static void JudgeAnswerText(const TValue& value, const TJudgeOptions& options,
                            TJudgement& judgement) {
  if (!options.expect || value.text.find(*options.expect) != std::string::npos) return;
  judgement.state = stateCritical;
  judgement.text =
      value.text.empty() ? "no answer, " : "unexpected answer \"" + value.text + "\", ";
}

static void JudgeChecksum(const TValue& value, const TJudgeOptions& options,
                          TJudgement& judgement) {
  judgement.text = "checksum " + ReadableValue(value);
  if (options.expect && strtod(options.expect->c_str(), nullptr) != value.number) {
    judgement.state = stateCritical;
    judgement.text += ", expected " + *options.expect;
  }
}

/// The state that a script names in the first word of its result line.
static bool WordState(const std::string& word, TPluginState& state) {
  static constexpr struct {
    const char* word;
    TPluginState state;
  } kWords[] = {{"ok", stateOk},           {"warning", stateWarning},
                {"warn", stateWarning},    {"critical", stateCritical},
                {"crit", stateCritical},   {"error", stateCritical},
                {"failed", stateCritical}, {"unknown", stateUnknown}};
  for (const auto& row : kWords) {
    if (strcasecmp(row.word, word.c_str()) == 0) {
      state = row.state;
      return true;
    }
  }
  return word.size() == 1 && ParseState(word, state);  // the digits 0 to 3
}

static void JudgeResultLine(const TValue& value, const TJudgeOptions& options,
                            TJudgement& judgement) {
  static constexpr char kPrefix[] = "scriptres:";
  std::string line = value.text;
  if (strncasecmp(line.c_str(), kPrefix, strlen(kPrefix)) == 0) line.erase(0, strlen(kPrefix));
  line.erase(0, line.find_first_not_of(' '));
  judgement.text = line.empty() ? "the script printed no result" : line;
  const std::string word = line.substr(0, line.find_first_of(" \t,;:"));
  if (options.warning.text.empty() && options.critical.text.empty()) {
    if (!WordState(word, judgement.state)) judgement.state = stateUnknown;
    return;
  }
  char* end = nullptr;
  TMeasure measure = {.label = "result", .value = strtod(word.c_str(), &end)};
  if (word.empty() || *end != '\0') {
    judgement.state = stateUnknown;
    judgement.text = "no number in the result: " + judgement.text;
    return;
  }
  judgement.state = JudgeMeasure(measure, options, judgement.text);
  judgement.measures.push_back(measure);
}

static void JudgeByVerdict(const TCommand& command, const TAnswer& answer,
                           const TJudgeOptions& options, TJudgement& judgement) {
  if (command.verdict == verdictNone) return;
  const std::vector<TValue> values = ReadValues(command, answer);
  switch (command.verdict) {
    case verdictTrue:
      return JudgeTruth(values.front(), judgement);
    case verdictExitCode:
      return JudgeExitCode(values.front(), judgement);
    case verdictResultLine:
      return JudgeResultLine(values.front(), options, judgement);
    case verdictAnswer:
      return JudgeAnswerText(values.back(), options, judgement);
    case verdictChecksum:
      return JudgeChecksum(values.front(), options, judgement);
    case verdictNone:
      break;
  }
}

TJudgement JudgeAnswer(const TCommand& command, const TAnswer& answer,
                       const TJudgeOptions& options) {
  if (!answer.Done()) return JudgeRefusal(command, answer, options);
  TJudgement judgement;
  judgement.state = stateOk;
  JudgeByVerdict(command, answer, options, judgement);
  JudgeMetrics(command, answer, options, judgement);
  return judgement;
}

TJudgement JudgeLog(const TLogOutcome& outcome, const TJudgeOptions& options) {
  TJudgement judgement;
  judgement.text = std::to_string(outcome.matches) + (outcome.matches == 1 ? " match" : " matches");
  TMeasure measure = {.label = "matches", .value = static_cast<double>(outcome.matches), .min = 0};
  judgement.state = JudgeMeasure(measure, options, judgement.text);
  if (outcome.more) judgement.text += ", more are waiting";
  if (!outcome.lastLine.empty()) judgement.text += ", last: " + outcome.lastLine;
  judgement.measures.push_back(measure);
  return judgement;
}

void CheckJudgeOptions(const TCommand& command, const TJudgeOptions& options) {
  const bool thresholds = !options.warning.text.empty() || !options.critical.text.empty();
  if (thresholds && command.metrics.empty() && command.verdict != verdictResultLine) {
    throw TUsageFailure(std::string(command.name) + " measures nothing that -w and -c could hold");
  }
  const bool known =
      options.metric.empty() ||
      std::any_of(command.metrics.begin(), command.metrics.end(),
                  [&](const TMetric& metric) { return options.metric == metric.label; });
  if (!known) {
    throw TUsageFailure(std::string(command.name) + " has no metric \"" + options.metric + '"');
  }
  if (command.verdict == verdictChecksum && options.expect) {
    char* end = nullptr;
    strtod(options.expect->c_str(), &end);
    if (options.expect->empty() || *end != '\0') {
      throw TUsageFailure("--expect: not a checksum: " + *options.expect);
    }
  }
}

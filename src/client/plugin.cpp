#include "client/plugin.h"

#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>

#include "client/arguments.h"
#include "client/format.h"
#include "client/judge.h"
#include "client/logwatch.h"
#include "config/status.h"

namespace {

/// What the arguments of one run say.
struct TPluginOptions {
  TTargetOptions target = {};
  TJudgeOptions judge = {};
  std::string warning, critical, timeout = "10", missing, expect, stateFile;
  bool connectionUnknown = false;
  TPluginState timeoutState = stateCritical;
  int verbosity = 0;
  const TCommand* command = nullptr;
  TGiven given = {};
};

// For the alarm's handler, which may only call what is safe in a signal handler.
char alarmText[256];
size_t alarmSize = 0;
int alarmState = stateUnknown;

void EndAtAlarm(int) {
  if (write(STDOUT_FILENO, alarmText, alarmSize) < 0) _exit(stateUnknown);
  _exit(alarmState);
}

}  // namespace

/// "disk" as "DISK"; before the check is known, the agent's name.
static std::string ServiceName(const TPluginOptions& options) {
  if (options.command == nullptr) return "QOV";
  std::string name = options.command->name;
  for (char& c : name) c = static_cast<char>(toupper(c));
  return name;
}

static int Report(const TPluginOptions& options, const TJudgement& judgement) {
  const std::string out = FormatJudgement(ServiceName(options), judgement);
  fwrite(out.data(), 1, out.size(), stdout);
  fflush(stdout);
  return judgement.state;
}

/// The last resort of -t: a name look-up, for one, has no limit of its own.
static void SetAlarm(const TPluginOptions& options) {
  const std::string text =
      FormatJudgement(ServiceName(options),
                      {options.timeoutState, "no answer within " + options.timeout + " seconds"});
  alarmSize = std::min(text.size(), sizeof alarmText);
  memcpy(alarmText, text.data(), alarmSize);
  alarmState = options.timeoutState;
  signal(SIGALRM, EndAtAlarm);
  itimerval timer = {};
  timer.it_value.tv_sec = static_cast<time_t>(options.target.timeoutSec);
  timer.it_value.tv_usec = 200000;  // later than the limit that says more
  setitimer(ITIMER_REAL, &timer, nullptr);
}

/// SECONDS[:STATE]
static void TakeTimeout(TPluginOptions& options) {
  const size_t colon = options.timeout.find(':');
  const std::string seconds = options.timeout.substr(0, colon);
  if (options.connectionUnknown) options.timeoutState = stateUnknown;
  if (colon != std::string::npos &&
      !ParseState(options.timeout.substr(colon + 1), options.timeoutState)) {
    throw TUsageFailure("-t: not a state: " + options.timeout.substr(colon + 1));
  }
  options.timeout = seconds;
  if (seconds.empty() || seconds.size() > 6 ||
      seconds.find_first_not_of("0123456789") != std::string::npos || atoi(seconds.c_str()) == 0) {
    throw TUsageFailure("-t: not a number of seconds: " + seconds);
  }
  options.target.timeoutSec = atoi(seconds.c_str());
}

static void TakeRange(const char* option, const std::string& text, TRange& range) {
  std::string error;
  if (!text.empty() && !ParseRange(text, range, error)) {
    throw TUsageFailure(std::string(option) + ": " + error);
  }
}

static void TakeOptions(const CLI::App& app, TPluginOptions& options) {
  TakeTimeout(options);
  TakeRange("-w", options.warning, options.judge.warning);
  TakeRange("-c", options.critical, options.judge.critical);
  if (!options.missing.empty()) {
    TPluginState state = stateUnknown;
    if (!ParseState(options.missing, state)) {
      throw TUsageFailure("--missing: not a state: " + options.missing);
    }
    options.judge.missing = state;
  }
  const CLI::App& sub = *app.get_subcommands().front();
  options.given = CollectGiven(sub, *options.command);
  const CLI::Option* expect = sub.get_option_no_throw("--expect");
  if (expect != nullptr && expect->count() > 0) {
    options.judge.expect = options.expect;
    if (options.command->verdict == verdictAnswer) options.given.try_emplace("--receive", "8192");
  }
  CheckJudgeOptions(*options.command, options.judge);
}

static void AddChecks(CLI::App& app, TPluginOptions& options) {
  for (const TCommand& row : Commands()) {
    if (!row.IsCheck()) continue;
    CLI::App* sub = AddCommand(app, row);
    sub->callback([&options, &row] { options.command = &row; });
    if (row.metrics.size() > 1) {
      std::string labels;
      for (const TMetric& metric : row.metrics) {
        labels += (labels.empty() ? "" : ", ") + std::string(metric.label);
      }
      sub->add_option("--metric", options.judge.metric,
                      "what -w and -c hold: " + labels + " (the first)")
          ->type_name("NAME");
    }
    if (row.verdict == verdictAnswer || row.verdict == verdictChecksum) {
      sub->add_option("--expect", options.expect, "CRITICAL unless the answer holds this")
          ->type_name("TEXT");
    }
    if (row.stateParam != 0) {
      sub->add_option("--state-file", options.stateFile, "file that keeps the scan's state")
          ->type_name("FILE")
          ->required();
    }
  }
}

static void DescribeApp(CLI::App& app, TPluginOptions& options) {
  app.set_version_flag("-V,--version", std::string("check_qov ") + AgentStatus.AgentVersion);
  AddTargetOptions(app, options.target);
  app.add_option("-w,--warning", options.warning, "WARNING outside this range, [@][start:]end")
      ->type_name("RANGE");
  app.add_option("-c,--critical", options.critical, "CRITICAL outside this range, [@][start:]end")
      ->type_name("RANGE");
  app.add_option("-t,--timeout", options.timeout,
                 "time limit and the state when it passes (10:CRITICAL)")
      ->type_name("SECONDS[:STATE]");
  app.add_flag("-u,--unknown", options.connectionUnknown,
               "UNKNOWN instead of CRITICAL when the agent cannot be asked");
  app.add_option("--missing", options.missing,
                 "state when a file does not exist or a service does not answer (UNKNOWN)")
      ->type_name("STATE");
  app.add_flag("-v,--verbose", options.verbosity, "the whole answer in further lines");
  app.require_subcommand(0, 1);
  AddChecks(app, options);
}

static int Check(TPluginOptions& options) {
  std::string warning;  // plugins print nothing on standard error
  const TTarget target = ResolveTarget(options.target, warning);
  SetAlarm(options);
  if (options.command->stateParam != 0) {
    TAnswer answer;
    const TLogOutcome outcome =
        CountMatches(target, *options.command, options.given, options.stateFile, answer);
    return Report(options, answer.Done() ? JudgeLog(outcome, options.judge)
                                         : JudgeAnswer(*options.command, answer, options.judge));
  }
  const TAnswer answer =
      Ask(target, options.command->agent, BuildParams(*options.command, options.given));
  TJudgement judgement = JudgeAnswer(*options.command, answer, options.judge);
  if (options.verbosity > 0) judgement.details = FormatAnswer(*options.command, answer, false);
  return Report(options, judgement);
}

int RunPlugin(int argc, const char* const* argv) {
  TPluginOptions options;
  CLI::App app("Checks a host through its qov agent, by the conventions of monitoring plugins.",
               "check_qov");
  DescribeApp(app, options);
  try {
    app.parse(argc, argv);
    if (options.command == nullptr) throw TUsageFailure("no check named, see check_qov --help");
    TakeOptions(app, options);
    return Check(options);
  } catch (const CLI::Success& wanted) {
    app.exit(wanted);
    return stateUnknown;
  } catch (const CLI::ParseError& error) {
    return Report(options, {stateUnknown, error.what()});
  } catch (const TUsageFailure& failure) {
    return Report(options, {stateUnknown, failure.what()});
  } catch (const TSilence& silence) {
    const TPluginState state = silence.timedOut            ? options.timeoutState
                               : options.connectionUnknown ? stateUnknown
                                                           : stateCritical;
    return Report(options, {state, silence.what()});
  }
}

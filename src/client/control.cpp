#include "client/control.h"

#include <stdio.h>

#include "client/answer.h"
#include "client/arguments.h"
#include "client/format.h"
#include "client/json.h"
#include "client/logwatch.h"
#include "client/tools.h"
#include "config/status.h"

static int AskRow(const TControlRun& run, const TCommand& row, const TGiven& given) {
  const TTarget target = run.Target();
  const TAnswer answer = run.stateFile.empty() ? Ask(target, row.agent, BuildParams(row, given))
                                               : WatchOnce(target, row, given, run.stateFile);
  Print(run.json ? JsonAnswer(row, answer, run.showPassword)
                 : FormatAnswer(row, answer, run.showPassword));
  return CodeExitStatus(answer.code);
}

static int AskRaw(const TControlRun& run, std::vector<std::string> words) {
  const std::string command = TakeCommand(words);
  const TAnswer answer = Ask(run.Target(), command, words);
  Print(run.json ? JsonRaw(command, answer) : FormatRaw(answer));
  return CodeExitStatus(answer.code);
}

static void AddRows(CLI::App& app, TControlRun& run) {
  for (const TCommand& row : Commands()) {
    CLI::App* sub = AddCommand(app, row);
    if (row.hasPassword) {
      sub->add_flag("--show-password", run.showPassword, "do not mask the password");
    }
    if (row.stateParam != 0) {
      sub->add_option("--state-file", run.stateFile, "file that keeps the scan's state")
          ->type_name("FILE")
          ->excludes("--position")
          ->excludes("--size")
          ->excludes("--time");
    }
    sub->callback([&run, &row, sub] {
      run.action = [&run, &row, sub] { return AskRow(run, row, CollectGiven(*sub, row)); };
    });
  }
}

static void AddRaw(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("raw", "any command of the agent, one parameter a line");
  sub->prefix_command();
  sub->callback(
      [&run, sub] { run.action = [&run, sub] { return AskRaw(run, sub->remaining()); }; });
}

/// A word in front that is no subcommand is a command of the agent: "qovctl TEST-UNC /".
static void TakePlainCommand(const CLI::App& app, TControlRun& run) {
  const std::vector<std::string> words = app.remaining();
  if (run.action) {
    if (!words.empty()) throw TUsageFailure("unexpected argument: " + words.front());
    return;
  }
  if (!words.empty() && (words.front()[0] < 'A' || words.front()[0] > 'Z')) {
    throw TUsageFailure("unknown command or option: " + words.front() + ", see qovctl --help");
  }
  run.action = [&run, words] { return AskRaw(run, words); };
}

static void DescribeApp(CLI::App& app, TControlRun& run) {
  app.set_version_flag("-V,--version", std::string("qovctl ") + AgentStatus.AgentVersion);
  AddTargetOptions(app, run.options);
  app.add_option("-t,--timeout", run.options.timeoutSec, "seconds to wait for a reply (60)")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.001, 1e6).description(""));
  app.add_flag("--json", run.json, "one JSON object for machines");
  app.prefix_command();
  app.require_subcommand(0, 1);
  app.footer("An agent's own command goes as it is too: qovctl GetInfo\n");
}

static int RunSession(CLI::App& app, TControlRun& run, int argc, const char* const* argv) {
  try {
    app.parse(argc, argv);
    TakePlainCommand(app, run);
    const int status = run.action();
    if (fflush(stdout) != 0) throw TUsageFailure("standard output cannot be written");
    return status;
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kExitDone : kExitUsage;
  } catch (const TUsageFailure& failure) {
    fprintf(stderr, "qovctl: %s\n", failure.what());
    return kExitUsage;
  } catch (const TSilence& silence) {
    fprintf(stderr, "qovctl: %s\n", silence.what());
    return kExitNoReply;
  }
}

int RunControl(int argc, const char* const* argv) {
  TControlRun run;
  CLI::App app("Speaks to a qov agent.", "qovctl");
  DescribeApp(app, run);
  AddRows(app, run);
  AddRaw(app, run);
  for (auto* add : {&AddPing, &AddWait, &AddAll, &AddSet, &AddUpgrade, &AddPacket, &AddCheckConfig,
                    &AddShowConfig, &AddCompletion}) {
    add(app, run);
  }
  return RunSession(app, run, argc, argv);
}

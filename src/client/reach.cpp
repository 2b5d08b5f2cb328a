#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>

#include "client/format.h"
#include "client/json.h"
#include "client/request.h"
#include "client/tools.h"

static std::string Milliseconds(double ms) { return RoundedNumber(ms) + " ms"; }

static int Ping(const TControlRun& run, int count) {
  const TTarget target = run.Target();
  std::vector<double> times;
  for (int i = 0; i < count; ++i) {
    const TAnswer answer = Ask(target, "GetInfo", {});
    if (!answer.Done()) {
      Print(DescribeFailure(*FindCommand("info"), answer) + '\n');
      return CodeExitStatus(answer.code);
    }
    times.push_back(answer.elapsedMs);
    if (!run.json) {
      Print(target.host + " port " + std::to_string(target.port) + " answered in " +
            Milliseconds(answer.elapsedMs) + '\n');
    }
  }
  if (run.json) {
    Print(JsonTimes(target.host, target.port, times));
    return kExitDone;
  }
  std::sort(times.begin(), times.end());
  if (count > 1) {
    Print(std::to_string(count) + " answers: fastest " + Milliseconds(times.front()) + ", median " +
          Milliseconds(times[times.size() / 2]) + ", slowest " + Milliseconds(times.back()) + '\n');
  }
  return kExitDone;
}

void AddPing(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("ping", "whether the agent answers, and how fast");
  sub->fallthrough()->footer("");
  auto count = std::make_shared<int>(1);
  sub->add_option("-n,--count", *count, "requests to send (1)")
      ->type_name("N")
      ->check(CLI::Range(1, 1000000).description(""));
  sub->callback([&run, count] { run.action = [&run, count] { return Ping(run, *count); }; });
}

/// Asks again until an agent answers, whatever it answers, or the time-out passes.
static int Wait(const TControlRun& run) {
  TTarget target = run.Target();
  const TDeadline end = DeadlineIn(target.timeoutMs);
  for (;;) {
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(end - std::chrono::steady_clock::now());
    target.timeoutMs = static_cast<int>(std::max<int64_t>(left.count(), 1));
    try {
      const TAnswer answer = Ask(target, "GetInfo", {});
      Print(target.host + " port " + std::to_string(target.port) + " answers\n");
      return CodeExitStatus(answer.code);
    } catch (const TSilence&) {
      constexpr std::chrono::milliseconds kPause(100);
      if (std::chrono::steady_clock::now() + kPause >= end) throw;
      std::this_thread::sleep_for(kPause);
    }
  }
}

void AddWait(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("wait", "wait until the agent answers, for --timeout seconds");
  sub->fallthrough()->footer("");
  sub->callback([&run] { run.action = [&run] { return Wait(run); }; });
}

/// The checks of the table that can be asked without arguments and that this agent allows.
static std::vector<const TCommand*> EnabledChecks(const TAnswer& info) {
  const std::vector<TSwitch> tests = ReadSwitches(ReadKeys(info), "tests");
  const auto enabled = [&](const std::string& name) {
    return std::any_of(tests.begin(), tests.end(),
                       [&](const TSwitch& test) { return test.name == name && test.enabled; });
  };
  std::vector<const TCommand*> rows;
  for (const TCommand& row : Commands()) {
    if (row.NeedsNothing() && row.enabledBy[0] != '\0' && enabled(row.enabledBy)) {
      rows.push_back(&row);
    }
  }
  return rows;
}

static int All(const TControlRun& run) {
  const TTarget target = run.Target();
  const TCommand& info = *FindCommand("info");
  const TAnswer first = Ask(target, info.agent, {});
  const auto show = [&](const TCommand& row, const TAnswer& answer) {
    if (!run.json) Print(std::string("== ") + row.name + '\n');
    if (run.json && &row != &info) Print(",");
    Print(run.json ? JsonAnswer(row, answer, false) : FormatAnswer(row, answer, false));
  };
  if (run.json) Print("[");  // one array of the answers
  show(info, first);
  int status = CodeExitStatus(first.code);
  for (const TCommand* row : EnabledChecks(first)) {
    const TAnswer answer = Ask(target, row->agent, BuildParams(*row, {}));
    show(*row, answer);
    if (status == kExitDone) status = CodeExitStatus(answer.code);
  }
  if (run.json) Print("]\n");
  return status;
}

void AddAll(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("all", "every enabled check that needs no argument");
  sub->fallthrough()->footer("");
  sub->callback([&run] { run.action = [&run] { return All(run); }; });
}

#include "client/control.h"

#include <stdio.h>

#include "client/answer.h"
#include "client/arguments.h"
#include "client/format.h"
#include "client/json.h"
#include "client/session.h"
#include "config/status.h"

static void Print(const std::string& text) { fwrite(text.data(), 1, text.size(), stdout); }

TTarget TSession::Target() const {
  std::string warning;
  TTarget target = ResolveTarget(options, warning);
  if (!warning.empty()) fprintf(stderr, "qovctl: warning: %s\n", warning.c_str());
  return target;
}

static int AskRow(const TSession& session, const TCommand& row, const TGiven& given) {
  const std::vector<std::string> params = BuildParams(row, given);
  const TAnswer answer = Ask(session.Target(), row.agent, params);
  Print(session.json ? JsonAnswer(row, answer, session.showPassword)
                     : FormatAnswer(row, answer, session.showPassword));
  return CodeExitStatus(answer.code);
}

static int AskRaw(const TSession& session, std::vector<std::string> words) {
  if (words.empty()) throw TUsageFailure("no command given, see qovctl --help");
  const std::string command = words.front();
  words.erase(words.begin());
  const TAnswer answer = Ask(session.Target(), command, words);
  Print(session.json ? JsonRaw(command, answer) : FormatRaw(answer));
  return CodeExitStatus(answer.code);
}

static void AddRows(CLI::App& app, TSession& session) {
  for (const TCommand& row : Commands()) {
    CLI::App* sub = AddCommand(app, row);
    if (row.shape == shapeKeys) {
      sub->add_flag("--show-password", session.showPassword, "do not mask the password");
    }
    sub->callback([&session, &row, sub] {
      session.action = [&session, &row, sub] {
        return AskRow(session, row, CollectGiven(*sub, row));
      };
    });
  }
}

static void AddRaw(CLI::App& app, TSession& session) {
  CLI::App* sub = app.add_subcommand("raw", "any command of the agent, one parameter a line");
  sub->prefix_command();
  sub->callback([&session, sub] {
    session.action = [&session, sub] { return AskRaw(session, sub->remaining()); };
  });
}

/// A word in front that is no subcommand is a command of the agent: "qovctl TEST-UNC /".
static void TakePlainCommand(const CLI::App& app, TSession& session) {
  const std::vector<std::string> words = app.remaining();
  if (session.action) {
    if (!words.empty()) throw TUsageFailure("unexpected argument: " + words.front());
    return;
  }
  if (!words.empty() && (words.front()[0] < 'A' || words.front()[0] > 'Z')) {
    throw TUsageFailure("unknown command or option: " + words.front() + ", see qovctl --help");
  }
  session.action = [&session, words] { return AskRaw(session, words); };
}

static void DescribeApp(CLI::App& app, TSession& session) {
  app.set_version_flag("-V,--version", std::string("qovctl ") + AgentStatus.AgentVersion);
  AddTargetOptions(app, session.options);
  app.add_option("-t,--timeout", session.options.timeoutSec, "seconds to wait for a reply (60)")
      ->type_name("SECONDS")
      ->check(CLI::PositiveNumber.description(""));
  app.add_flag("--json", session.json, "one JSON object for machines");
  app.prefix_command();
  app.require_subcommand(0, 1);
  app.footer("An agent's own command goes as it is too: qovctl GetInfo\n");
}

static int RunSession(CLI::App& app, TSession& session, int argc, const char* const* argv) {
  try {
    app.parse(argc, argv);
    TakePlainCommand(app, session);
    return session.action();
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
  TSession session;
  CLI::App app("Speaks to a qov agent.", "qovctl");
  DescribeApp(app, session);
  AddRows(app, session);
  AddRaw(app, session);
  return RunSession(app, session, argc, argv);
}

#include <memory>

#include "client/answer.h"
#include "client/format.h"
#include "client/json.h"
#include "client/setkeys.h"
#include "client/tools.h"
#include "config/remotekeys.h"

namespace {
struct TSetArguments {
  std::vector<std::string> assignments;
  std::string passwordFile;
};
/// The reply has a code and nothing else.
const TCommand kSetCommand = {.name = "set", .agent = "SetSettings", .summary = ""};
}  // namespace

static int Set(const TControlRun& run, const TSetArguments& arguments) {
  std::vector<std::string> lines;
  for (const std::string& assignment : arguments.assignments) lines.push_back(SetLine(assignment));
  if (!arguments.passwordFile.empty()) {
    std::string warning;
    lines.push_back("Password=" + ReadPasswordFile(arguments.passwordFile, warning));
  }
  if (lines.empty()) throw TUsageFailure("nothing to set: give KEY=VALUE");
  const TAnswer answer = Ask(run.Target(), kSetCommand.agent, lines);
  if (run.json) {
    Print(JsonAnswer(kSetCommand, answer, false));
  } else {
    Print(answer.Done() ? "set and saved\n" : DescribeFailure(kSetCommand, answer) + '\n');
  }
  return CodeExitStatus(answer.code);
}

static std::string KeyList() {
  std::string text = "Keys:\n";
  for (const TRemoteKey& key : kRemoteKeys) text += std::string("  ") + key.name + '\n';
  return text + "Switches take on or off; IPFilterAddr takes items separated by blanks.\n";
}

void AddSet(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("set", "change settings of the agent, and save them");
  sub->fallthrough()->footer(KeyList());
  auto arguments = std::make_shared<TSetArguments>();
  sub->add_option("KEY=VALUE", arguments->assignments, "setting and new value");
  sub->add_option("--new-password-file", arguments->passwordFile,
                  "file whose first line becomes the agent's password")
      ->type_name("FILE");
  sub->callback(
      [&run, arguments] { run.action = [&run, arguments] { return Set(run, *arguments); }; });
}

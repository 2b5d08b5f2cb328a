#include <stdio.h>
#include <unistd.h>

#include <memory>

#include "client/format.h"
#include "client/json.h"
#include "client/request.h"
#include "client/tools.h"
#include "client/upgrade.h"

static void DrawBar(size_t sent, size_t total) {
  constexpr size_t kWidth = 40;
  const std::string done(sent * kWidth / total, '#');
  printf("\r[%-*s] %3zu%%", static_cast<int>(kWidth), done.c_str(), sent * 100 / total);
  if (sent == total) printf("\n");
  fflush(stdout);
}

static int RunUpgrade(const TControlRun& run, const std::string& path) {
  static const TCommand command = {.name = "upgrade", .agent = "UpgradeCode", .summary = ""};
  const std::string program = ReadLocalFile(path, "program");
  const bool bar = isatty(STDOUT_FILENO) == 1 && !run.json;
  const TAnswer answer = Upgrade(run.Target(), program, [bar](size_t sent, size_t total) {
    if (bar) DrawBar(sent, total);
  });
  if (run.json) {
    Print(JsonAnswer(command, answer, false));
  } else {
    Print(answer.Done() ? "installed: the agent now starts the new program\n"
                        : DescribeFailure(command, answer) + '\n');
  }
  return CodeExitStatus(answer.code);
}

void AddUpgrade(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("upgrade", "replace the agent's executable by a local file");
  sub->fallthrough()->footer("");
  auto path = std::make_shared<std::string>();
  sub->add_option("FILE", *path, "executable of the new agent")->required()->type_name("");
  sub->callback([&run, path] { run.action = [&run, path] { return RunUpgrade(run, *path); }; });
}

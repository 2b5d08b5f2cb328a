#include "client/arguments.h"

void AddTargetOptions(CLI::App& app, TTargetOptions& target) {
  app.add_option("-H,--host", target.host, "host to ask (127.0.0.1)")->type_name("HOST");
  app.add_option("-p,--port", target.port, "port to ask")
      ->type_name("PORT")
      ->check(CLI::Range(1, 65535).description(""));
  app.add_option("--password-file", target.passwordFile,
                 "file whose first line is the password (or set QOV_PASSWORD_FILE)")
      ->type_name("FILE");
  app.add_option("--config", target.configFile,
                 "the agent's own file: host, port and password are read from it")
      ->type_name("FILE");
}

static std::string HelpText(const TParam& param) {
  if (param.preset == nullptr || param.preset[0] == '\0') return param.help;
  return std::string(param.help) + " (" + param.preset + ')';
}

CLI::App* AddCommand(CLI::App& app, const TCommand& command) {
  CLI::App* sub = app.add_subcommand(command.name, command.summary);
  sub->fallthrough();
  sub->footer("");
  for (const TParam& param : command.params) {
    if (!param.IsArgument() && !param.IsOption()) continue;
    if (param.form == paramFlag || param.form == paramNoFlag) {
      sub->add_flag(param.option, param.help);
      continue;
    }
    const std::string help = HelpText(param);  // const: a variable would be taken for the target
    CLI::Option* option = sub->add_option(param.option, help);
    option->required(param.preset == nullptr)->type_size(1);
    option->type_name(param.IsArgument() ? "" : param.form == paramWhole ? "N" : "TEXT");
  }
  return sub;
}

TGiven CollectGiven(const CLI::App& subcommand, const TCommand& command) {
  TGiven given;
  for (const TParam& param : command.params) {
    if (!param.IsArgument() && !param.IsOption()) continue;
    const CLI::Option* option = subcommand.get_option(param.option);
    if (option->count() == 0) continue;
    const bool flag = param.form == paramFlag || param.form == paramNoFlag;
    given[param.option] = flag ? "1" : option->results().back();
  }
  return given;
}

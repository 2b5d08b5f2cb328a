#include <string.h>
#include <unistd.h>

#include <memory>
#include <nlohmann/json.hpp>

#include "client/configcheck.h"
#include "client/failure.h"
#include "client/tools.h"
#include "config/settingsrecord.h"

using TJson = nlohmann::ordered_json;

static std::string Counted(int count, const char* noun) {
  return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

static void PrintFinding(const std::string& path, const TConfigFinding& finding) {
  std::string place = path + ':';
  if (finding.line > 0) place += std::to_string(finding.line) + ':';
  Print(place + (finding.error ? " error: " : " warning: ") + StdString(finding.text) + '\n');
}

static int CheckConfigFile(const TControlRun& run, const std::string& path, bool strict) {
  int errors = 0, warnings = 0;
  TJson list = TJson::array();
  for (const TConfigFinding& finding : CheckConfig(path.c_str())) {
    ++(finding.error ? errors : warnings);
    if (run.json) {
      list.push_back(
          {{"line", finding.line}, {"error", finding.error}, {"text", StdString(finding.text)}});
    } else {
      PrintFinding(path, finding);
    }
  }
  if (run.json) {
    Print(TJson({{"file", path}, {"findings", list}})
              .dump(2, ' ', false, TJson::error_handler_t::replace) +
          '\n');
  } else {
    Print(path + ": " + Counted(errors, "error") + ", " + Counted(warnings, "warning") + '\n');
  }
  return errors > 0 || (strict && warnings > 0) ? kExitFailed : kExitDone;
}

void AddCheckConfig(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("check-config", "look a configuration file over, offline");
  sub->fallthrough()->footer("Exit status 0: clean or warnings; 1: errors.\n");
  auto path = std::make_shared<std::string>();
  auto strict = std::make_shared<bool>(false);
  sub->add_option("FILE", *path, "the agent's configuration file")->required()->type_name("");
  sub->add_flag("--strict", *strict, "warnings are errors");
  sub->callback([&run, path, strict] {
    run.action = [&run, path, strict] { return CheckConfigFile(run, *path, *strict); };
  });
}

/// A setting as its file line would have it; flags as 0 or 1, the password masked.
static std::string SettingValue(const TQovSettings& settings, const TSettingKey& key) {
  if (key.field.number != nullptr) return std::to_string(settings.*key.field.number);
  std::string value = StdString(settings.*key.field.text);
  if (strcmp(key.name, "password") == 0) return value.empty() ? "" : "********";
  if (key.form != formLines) return value;
  std::string items;
  for (const char c : value) {
    if (c == '\n') items += ' ';
    if (c != '\r' && c != '\n') items += c;
  }
  return items;
}

static int ShowConfig(const TControlRun& run, const std::string& path) {
  TQovSettings settings;
  if (path.empty()) throw TUsageFailure("no file given: show-config FILE");
  String error;
  const bool usable = LoadAgentFile(path, settings, error);
  TJson json = TJson::object();
  for (const TSettingKey& key : kSettingKeys) {
    const std::string value = SettingValue(settings, key);
    if (run.json) {
      json[key.name] = value;
    } else {
      Print(std::string(key.name) + '=' + value + '\n');
    }
  }
  if (run.json) Print(json.dump(2, ' ', false, TJson::error_handler_t::replace) + '\n');
  if (!error.Trim().Empty()) Warn(path + ": " + StdString(error.ReplaceAll("\n", ";", 1)));
  return usable ? kExitDone : kExitFailed;
}

void AddShowConfig(CLI::App& app, TControlRun& run) {
  CLI::App* sub =
      app.add_subcommand("show-config", "the settings that a configuration file comes to");
  sub->fallthrough()->footer("");
  auto path = std::make_shared<std::string>();
  sub->add_option("FILE", *path, "the agent's configuration file (that of --config)")
      ->type_name("");
  sub->callback([&run, path] {
    run.action = [&run, path] {
      return ShowConfig(run, path->empty() ? run.options.configFile : *path);
    };
  });
}

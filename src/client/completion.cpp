#include "client/completion.h"

#include <functional>

#include "client/failure.h"
#include "client/tools.h"

static std::vector<const CLI::App*> Subcommands(const CLI::App& app) {
  return app.get_subcommands([](const CLI::App*) { return true; });
}

/// The options proper, without arguments.
static std::vector<const CLI::Option*> Options(const CLI::App& app) {
  return app.get_options([](const CLI::Option* option) { return option->nonpositional(); });
}

static std::vector<std::string> Names(const CLI::Option& option) {
  std::vector<std::string> names;
  for (const std::string& name : option.get_snames()) names.push_back('-' + name);
  for (const std::string& name : option.get_lnames()) names.push_back("--" + name);
  return names;
}

static bool TakesValue(const CLI::Option& option) { return option.get_items_expected_max() > 0; }
static bool TakesFile(const CLI::Option& option) { return option.get_type_name() == "FILE"; }

static std::string Replaced(std::string text, const std::string& what, const std::string& with) {
  for (size_t at = text.find(what); at != std::string::npos;
       at = text.find(what, at + with.size())) {
    text.replace(at, what.size(), with);
  }
  return text;
}

static std::string OptionWords(const CLI::App& app) {
  std::string words;
  for (const CLI::Option* option : Options(app)) {
    for (const std::string& name : Names(*option)) words += (words.empty() ? "" : " ") + name;
  }
  return words;
}

/// Words of `app`: its options, then its subcommands.
static std::string Words(const CLI::App& app) {
  std::string words = OptionWords(app);
  for (const CLI::App* sub : Subcommands(app)) words += ' ' + sub->get_name();
  return words;
}

/// Names of all options whose value is a file, as a pattern of `case`.
static std::string FileOptionPattern(const CLI::App& app) {
  std::string pattern;
  for (const CLI::Option* option : Options(app)) {
    for (const std::string& name : Names(*option)) {
      if (TakesFile(*option)) pattern += (pattern.empty() ? "" : " | ") + name;
    }
  }
  for (const CLI::App* sub : Subcommands(app)) {
    const std::string inner = FileOptionPattern(*sub);
    const bool known = inner.empty() || pattern.find(inner) != std::string::npos;
    if (!known) pattern += (pattern.empty() ? "" : " | ") + inner;
  }
  return pattern;
}

/// Behind the words of the commands.
static constexpr char kBashEnd[] = R"(  esac
  if [[ $current == -* ]]; then
    words="$words $common"
  else
    words=$(printf '%s\n' $words | grep -v '^-')
  fi
  COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -o bashdefault -o default -F _qovctl qovctl
)";

std::string BashCompletion(const CLI::App& app) {
  std::string commands, cases;
  for (const CLI::App* sub : Subcommands(app)) {
    commands += (commands.empty() ? "" : " ") + sub->get_name();
    std::string words = Words(*sub);
    for (const CLI::App* inner : Subcommands(*sub)) words += ' ' + Words(*inner);
    cases += "    " + sub->get_name() + ") words=\"" + words + "\" ;;\n";
  }
  return "# bash completion for qovctl, made by \"qovctl completion bash\"\n"
         "_qovctl() {\n"
         "  local current=${COMP_WORDS[COMP_CWORD]} command= words= i\n"
         "  local commands=\"" +
         commands +
         "\"\n"
         "  local common=\"" +
         OptionWords(app) +
         "\"\n"
         "  for ((i = 1; i < COMP_CWORD; i++)); do\n"
         "    if [[ \" $commands \" == *\" ${COMP_WORDS[i]} \"* ]]; then\n"
         "      command=${COMP_WORDS[i]}\n"
         "      break\n"
         "    fi\n"
         "  done\n"
         "  case ${COMP_WORDS[COMP_CWORD - 1]} in\n"
         "    " +
         FileOptionPattern(app) +
         ") return ;;  # leaves it to the names of files\n"
         "  esac\n"
         "  case $command in\n"
         "    '') words=$commands ;;\n" +
         cases + kBashEnd;
}

/// Text inside '...' with what _arguments and _describe take for punctuation escaped.
static std::string ZshText(std::string text) {
  for (const char* special : {"\\", ":", "[", "]"}) {
    text = Replaced(text, special, std::string("\\") + special);
  }
  return Replaced(text, "'", "'\\''");
}

static std::string ZshOptions(const CLI::App& app, const std::string& indent) {
  std::string out;
  for (const CLI::Option* option : Options(app)) {
    for (const std::string& name : Names(*option)) {
      out += indent + '\'' + name + '[' + ZshText(option->get_description()) + ']';
      if (TakesFile(*option)) {
        out += ":file:_files";
      } else if (TakesValue(*option)) {
        out += ":value:";
      }
      out += "'\n";
    }
  }
  return out;
}

std::string ZshCompletion(const CLI::App& app) {
  std::string commands, cases;
  for (const CLI::App* sub : Subcommands(app)) {
    commands += "    '" + sub->get_name() + ':' + ZshText(sub->get_description()) + "'\n";
    std::string options = ZshOptions(*sub, "        ");
    std::string inner;
    for (const CLI::App* part : Subcommands(*sub)) {
      options += ZshOptions(*part, "        ");
      inner += (inner.empty() ? "" : " ") + part->get_name();
    }
    if (!inner.empty()) options += "        '1:command:(" + inner + ")'\n";
    cases += "    " + sub->get_name() + ") options=(\n" + options + "      ) ;;\n";
  }
  return "#compdef qovctl\n"
         "# zsh completion for qovctl, made by \"qovctl completion zsh\"\n"
         "_qovctl() {\n"
         "  local -a commands common options\n"
         "  local state line curcontext=$curcontext\n"
         "  commands=(\n" +
         commands +
         "  )\n"
         "  common=(\n" +
         ZshOptions(app, "    ") +
         "  )\n"
         "  _arguments -C $common '1:command:->command' '*::argument:->rest'\n"
         "  if [[ $state == command ]]; then\n"
         "    _describe command commands\n"
         "    return\n"
         "  fi\n"
         "  case $words[1] in\n" +
         cases +
         "  esac\n"
         "  _arguments $common $options '*:file:_files'\n"
         "}\n"
         "_qovctl \"$@\"\n";
}

static std::string FishOption(const CLI::Option& option, const std::string& condition) {
  std::string out = "complete -c qovctl";
  if (!condition.empty()) out += " -n '" + condition + '\'';
  for (const std::string& name : option.get_snames()) out += " -s " + name;
  for (const std::string& name : option.get_lnames()) out += " -l " + name;
  if (TakesValue(option)) out += TakesFile(option) ? " -r -F" : " -x";
  return out + " -d '" + Replaced(option.get_description(), "'", "\\'") + "'\n";
}

std::string FishCompletion(const CLI::App& app) {
  std::string out = "# fish completion for qovctl, made by \"qovctl completion fish\"\n";
  for (const CLI::Option* option : Options(app)) out += FishOption(*option, "");
  for (const CLI::App* sub : Subcommands(app)) {
    out += "complete -c qovctl -f -n __fish_use_subcommand -a " + sub->get_name() + " -d '" +
           Replaced(sub->get_description(), "'", "\\'") + "'\n";
    const std::string seen = "__fish_seen_subcommand_from " + sub->get_name();
    for (const CLI::Option* option : Options(*sub)) out += FishOption(*option, seen);
    for (const CLI::App* part : Subcommands(*sub)) {
      out += "complete -c qovctl -f -n '" + seen + "' -a " + part->get_name() + " -d '" +
             Replaced(part->get_description(), "'", "\\'") + "'\n";
      for (const CLI::Option* option : Options(*part)) out += FishOption(*option, seen);
    }
  }
  return out;
}

void AddCompletion(CLI::App& app, TControlRun& run) {
  CLI::App* sub = app.add_subcommand("completion", "a completion script for a shell");
  sub->fallthrough()->footer("")->require_subcommand(1, 1);
  static constexpr struct {
    const char* shell;
    std::string (*make)(const CLI::App&);
  } kShells[] = {{"bash", BashCompletion}, {"zsh", ZshCompletion}, {"fish", FishCompletion}};
  for (const auto& row : kShells) {
    sub->add_subcommand(row.shell, std::string("for ") + row.shell)
        ->footer("")
        ->callback([&app, &run, make = row.make] {
          run.action = [&app, make] {
            Print(make(app));
            return static_cast<int>(kExitDone);
          };
        });
  }
}

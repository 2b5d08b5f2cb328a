#include "agent/cmdline.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "config/settings.h"
#include "config/status.h"
#include "protocol/qov_const.h"

namespace {

constexpr char kRule[] = "-------------------------------------------------------------";
constexpr int kMaxPort = 65535;

constexpr const char* kUsage[] = {
    " Usage: qov [-d|-i] [-v|-vd] [-p <port>] <cfg_file>",
    "  -d        - daemon mode (default)",
    "  -i        - interactive mode",
    "  -v        - verbose mode",
    "  -vd       - verbose debugging mode",
    "  -p <port> - overrides TCP port number specified in cfg_file",
    "  cfg_file  - obligatory parameter, path to configuration file\n",
    " Examples:",
    "  qov -i -v -p 1055 /etc/qov/qov.cfg",
    "  qov -d ~/qov/qov.cfg\n",
};

/// Walks the arguments; a missing one ends the process with the usage.
class TArguments {
 public:
  TArguments(int argc, char** argv) : argc_(argc), argv_(argv) {}

  const char* Current() const {
    if (next_ >= argc_) showhelp("Error\nInvalid or missed command line parameter");
    return argv_[next_];
  }
  /// Passes the current argument when it is exactly this switch.
  bool Accept(const char* name) {
    if (strcmp(Current(), name) != 0) return false;
    ++next_;
    return true;
  }
  const char* Take() {
    const char* argument = Current();
    ++next_;
    return argument;
  }

 private:
  int argc_;
  char** argv_;
  int next_ = 1;
};

}  // namespace

void PrintBanner() {
  puts(kRule);
  puts(" Application:  QOV (Orvane for Vextral)");
  printf(" Version:      %s for %s\n", AgentStatus.AgentVersion, AgentStatus.AgentPlatform);
  puts(" Developer:    The qov developers, 2026-2026");
  puts(" Web:          https://qov.invalid");
  puts(" Support:      support@qov.invalid");
  puts(kRule);
}

void showhelp(const char* error) {
  printf("%s\n\n", error);
  for (const char* line : kUsage) puts(line);
  exit(1);
}

void ParseCommandLine(int argc, char** argv) {
  TArguments arguments(argc, argv);
  if (arguments.Accept("-i")) {
    QovSettings.interactive = 1;
  } else if (arguments.Accept("-d")) {
    QovSettings.interactive = 0;
  }
  if (arguments.Accept("-v")) QovSettings.verbose = 1;
  if (arguments.Accept("-vd")) QovSettings.verbose = QovSettings.debug = 1;
  if (arguments.Accept("-p")) {
    // Deliberate: a negative number passes and is kept as the port.
    const int port = qovDecodeInt(arguments.Current());
    if (port == 0 || port > kMaxPort) showhelp("Error\nInvalid port number");
    QovSettings.port = port;
    arguments.Take();
  }
  snprintf(QovSettings.configfile, sizeof QovSettings.configfile, "%s", arguments.Take());
}

#include "agent/cmdline.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "config/settings.h"
#include "config/status.h"
#include "protocol/qov_const.h"

namespace {

constexpr char kRule[] = "-------------------------------------------------------------";
constexpr char kUsage[] =
    " Usage: qov [-d|-i] [-v|-vd] [-p <port>] <cfg_file>\n"
    "  -d        - daemon mode (default)\n"
    "  -i        - interactive mode\n"
    "  -v        - verbose mode\n"
    "  -vd       - verbose debugging mode\n"
    "  -p <port> - overrides TCP port number specified in cfg_file\n"
    "  cfg_file  - obligatory parameter, path to configuration file\n\n"
    " Examples:\n"
    "  qov -i -v -p 1055 /etc/qov/qov.cfg\n"
    "  qov -d ~/qov/qov.cfg\n";

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
  printf("%s\n\n%s\n", error, kUsage);
  exit(1);
}

void ParseCommandLine(int argc, char** argv) {
  int next = 1;
  const auto current = [&]() -> const char* {
    if (next >= argc) showhelp("Error\nInvalid or missed command line parameter");
    return argv[next];
  };
  const auto accept = [&](const char* name) {  // passes the argument when it is this switch
    const bool same = strcmp(current(), name) == 0;
    if (same) ++next;
    return same;
  };
  if (accept("-i")) {
    QovSettings.interactive = 1;
  } else if (accept("-d")) {
    QovSettings.interactive = 0;
  }
  if (accept("-v")) QovSettings.verbose = 1;
  if (accept("-vd")) QovSettings.verbose = QovSettings.debug = 1;
  if (accept("-p")) {
    // Deliberate: a negative number passes and is kept as the port, which then cannot be opened.
    const int port = qovDecodeInt(current());
    if (port == 0 || port > 65535) showhelp("Error\nInvalid port number");
    QovSettings.port = port;
    ++next;
  }
  snprintf(QovSettings.configfile, sizeof QovSettings.configfile, "%s", current());
}

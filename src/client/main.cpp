#include <string.h>

#include "client/control.h"
#include "client/plugin.h"

/// The same program by two names: check_qov speaks the conventions of monitoring plugins.
static bool IsPluginName(const char* path) {
  const char* slash = strrchr(path, '/');
  return strcmp(slash != nullptr ? slash + 1 : path, "check_qov") == 0;
}

int main(int argc, char** argv) {
  if (argc > 0 && IsPluginName(argv[0])) return RunPlugin(argc, argv);
  return RunControl(argc, argv);
}

#include "client/controlrun.h"

#include <stdio.h>

#include "client/failure.h"

void Print(const std::string& text) { fwrite(text.data(), 1, text.size(), stdout); }

void Warn(const std::string& text) {
  if (!text.empty()) fprintf(stderr, "qovctl: warning: %s\n", text.c_str());
}

TTarget TControlRun::Target() const {
  std::string warning;
  TTarget target = ResolveTarget(options, warning);
  Warn(warning);
  return target;
}

std::string TakeCommand(std::vector<std::string>& words) {
  if (words.empty()) throw TUsageFailure("no command given, see qovctl --help");
  const std::string command = words.front();
  if (command.starts_with('-')) {
    throw TUsageFailure(command + ": options of qovctl stand before the command here");
  }
  words.erase(words.begin());
  return command;
}

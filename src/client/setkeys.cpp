#include "client/setkeys.h"

#include <strings.h>

#include <algorithm>

#include "client/failure.h"
#include "client/vxwire.h"
#include "config/remotekeys.h"

static std::string FlagValue(const std::string& key, const std::string& value) {
  for (const char* on : {"1", "on", "yes"}) {
    if (strcasecmp(value.c_str(), on) == 0) return "1";
  }
  for (const char* off : {"0", "off", "no"}) {
    if (strcasecmp(value.c_str(), off) == 0) return "0";
  }
  throw TUsageFailure(key + ": not on or off: " + value);
}

static std::string WholeValue(const std::string& key, const std::string& value) {
  if (value.empty() || value.find_first_not_of("0123456789") != std::string::npos) {
    throw TUsageFailure(key + ": not a whole number: " + value);
  }
  return value;
}

static std::string ListValue(const std::string& value) {
  std::string out;
  for (size_t start = 0; start < value.size();) {
    const size_t end = std::min(value.find_first_of(" ,\t\r\n", start), value.size());
    if (end > start) out += (out.empty() ? "" : "\r\n") + value.substr(start, end - start);
    start = end + 1;
  }
  return EncodeText(out);
}

static std::string WireValue(const TRemoteKey& key, const std::string& value) {
  switch (key.form) {
    case formFlag:
      return FlagValue(key.name, value);
    case formNumber:
      return WholeValue(key.name, value);
    case formLines:
      return ListValue(value);
    default:
      break;
  }
  if (value.find_first_of("\r\n") != std::string::npos) {
    throw TUsageFailure(std::string(key.name) + ": a line break cannot be kept");
  }
  return value;
}

std::string SetLine(const std::string& assignment) {
  const size_t equals = assignment.find('=');
  if (equals == std::string::npos) throw TUsageFailure("not KEY=VALUE: " + assignment);
  const std::string name = assignment.substr(0, equals);
  if (strcasecmp(name.c_str(), "Password") == 0) {
    throw TUsageFailure("a password does not belong into arguments: use --new-password-file");
  }
  for (const TRemoteKey& key : kRemoteKeys) {
    if (strcasecmp(key.name, name.c_str()) == 0) {
      return std::string(key.name) + '=' + WireValue(key, assignment.substr(equals + 1));
    }
  }
  throw TUsageFailure("the agent has no such setting: " + name + "; see qovctl set --help");
}

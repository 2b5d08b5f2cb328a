#include "client/target.h"

#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "client/failure.h"

bool LoadAgentFile(const std::string& path, TQovSettings& settings, String& error) {
  if (path.size() >= sizeof settings.configfile) throw TUsageFailure(path + ": name too long");
  if (access(path.c_str(), R_OK) != 0) throw TUsageFailure(path + ": " + strerror(errno));
  memcpy(settings.configfile, path.c_str(), path.size() + 1);
  return settings.LoadOptions_(error) == 1;
}

static void ReadAgentFile(const std::string& path, TTarget& target) {
  TQovSettings settings;
  String ignored;  // what the agent would miss in it is check-config's business
  LoadAgentFile(path, settings, ignored);
  if (target.host.empty()) target.host = StdString(settings.host);
  if (target.port == 0) target.port = settings.port;
  target.password = StdString(settings.password);
}

std::string ReadPasswordFile(const std::string& path, std::string& warning) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!file || (!std::getline(file, line) && file.bad())) {
    throw TUsageFailure("password file " + path + ": " + strerror(errno));
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  struct stat facts = {};
  if (stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && (facts.st_mode & 07) != 0) {
    warning = "password file " + path + " is open to every user of this host (chmod 600 it)";
  }
  return line;
}

static void ReadPassword(const TTargetOptions& options, TTarget& target, std::string& warning) {
  std::string path = options.passwordFile;
  if (path.empty() && options.configFile.empty()) {
    const char* named = getenv("QOV_PASSWORD_FILE");
    if (named != nullptr) path = named;
  }
  if (!path.empty()) target.password = ReadPasswordFile(path, warning);
}

static TTarget TakeGiven(const TTargetOptions& options, std::string& warning) {
  TTarget target;
  target.host = options.host;
  target.port = options.port;
  target.timeoutMs = static_cast<int>(options.timeoutSec * 1000);
  if (!options.configFile.empty()) ReadAgentFile(options.configFile, target);
  ReadPassword(options, target, warning);
  if (target.password.empty()) {
    throw TUsageFailure(
        "no password: give --config FILE, --password-file FILE or set QOV_PASSWORD_FILE");
  }
  return target;
}

std::string ResolvePassword(const TTargetOptions& options, std::string& warning) {
  return TakeGiven(options, warning).password;
}

TTarget ResolveTarget(const TTargetOptions& options, std::string& warning) {
  TTarget target = TakeGiven(options, warning);
  if (target.host.empty() || target.host == "0.0.0.0") target.host = "127.0.0.1";
  if (target.port < 1 || target.port > 65535) {
    throw TUsageFailure("no usable port: give -p PORT or --config FILE");
  }
  return target;
}

#pragma once

#include <string>

#include "config/settingsrecord.h"

/// The agent to ask.
struct TTarget {
  std::string host = {};
  int port = 0;
  std::string password = {};
  int timeoutMs = 0;  ///< limit of one exchange, connecting included
};

/// What the command line says about the agent; empty texts and 0 mean "not given".
struct TTargetOptions {
  std::string host = {};
  int port = 0;
  std::string passwordFile = {};
  std::string configFile = {};  ///< the agent's own file
  double timeoutSec = 60;
};

/// Fills in what was not given: from the agent's own file when one is named, else the password from
/// --password-file or the file named in QOV_PASSWORD_FILE. Never asks for a password in arguments.
/// @param warning  out: a text for the administrator when a password file is open to others
/// Throws TUsageFailure when a file cannot be read, or port or password stay unknown.
TTarget ResolveTarget(const TTargetOptions& options, std::string& warning);

/// Loads the agent's own file.
/// @param error  out: what the agent would say about it
/// @return whether the agent would start with it. Throws TUsageFailure when it cannot be read
bool LoadAgentFile(const std::string& path, TQovSettings& settings, String& error);
inline std::string StdString(const String& s) {
  return std::string(s.CStr(), static_cast<size_t>(s.Length()));
}

/// The password alone, found in the same way.
std::string ResolvePassword(const TTargetOptions& options, std::string& warning);
/// The first line of a password file. @param warning  as for ResolveTarget
std::string ReadPasswordFile(const std::string& path, std::string& warning);

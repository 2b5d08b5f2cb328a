#pragma once

#include <map>
#include <string>
#include <vector>

#include "client/commands.h"

/// The options and arguments that were given, by their names in the table ("--recurse", "PATH").
/// A given flag has the value "1".
using TGiven = std::map<std::string, std::string>;

/// The parameter lines of a request, in order.
/// Throws TUsageFailure when a value is missing, no number, or does not fit on its line.
std::vector<std::string> BuildParams(const TCommand& command, const TGiven& given);

/// The bytes of a local file. Throws TUsageFailure with `what` and the reason.
std::string ReadLocalFile(const std::string& path, const char* what);

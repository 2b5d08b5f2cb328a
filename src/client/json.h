#pragma once

#include <string>

#include "client/values.h"

/// One JSON object: "code", "ok", "command", "elapsed_ms", and "values" with their "units" or, when
/// the command was not carried out, "text". Ends in a line feed.
std::string JsonAnswer(const TCommand& command, const TAnswer& answer, bool showPassword);
/// The same for a command that is not in the table: the lines as they came, in "lines".
std::string JsonRaw(const std::string& command, const TAnswer& answer);
/// How long an agent took to answer, milliseconds each.
std::string JsonTimes(const std::string& host, int port, const std::vector<double>& timesMs);

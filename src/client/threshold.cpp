#include "client/threshold.h"

#include <stdlib.h>
#include <strings.h>

#include <iterator>

static constexpr const char* kStateNames[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};

const char* StateName(TPluginState state) { return kStateNames[state]; }

bool ParseState(const std::string& text, TPluginState& state) {
  if (text.empty()) return false;
  for (size_t i = 0; i < std::size(kStateNames); ++i) {
    if (text == std::to_string(i) || strncasecmp(text.c_str(), kStateNames[i], text.size()) == 0) {
      state = static_cast<TPluginState>(i);
      return true;
    }
  }
  return false;
}

TPluginState WorseState(TPluginState a, TPluginState b) {
  static constexpr int kWeight[] = {0, 2, 3, 1};
  return kWeight[a] >= kWeight[b] ? a : b;
}

bool TRange::Alerts(double value) const {
  if (text.empty()) return false;
  const bool within = value >= start && value <= end;
  return within == inside;
}

/// A decimal number and nothing else: no exponent, no blank, no name such as "inf".
static bool ParseNumber(const std::string& text, double& number) {
  if (text.find_first_of("0123456789") == std::string::npos ||
      text.find_first_not_of("+-.0123456789") != std::string::npos) {
    return false;
  }
  char* end = nullptr;
  const double value = strtod(text.c_str(), &end);
  if (*end != '\0') return false;
  number = value;
  return true;
}

bool ParseRange(const std::string& text, TRange& range, std::string& error) {
  TRange read;
  read.text = text;
  read.inside = text.starts_with('@');
  const std::string bounds = text.substr(read.inside ? 1 : 0);
  const size_t colon = bounds.find(':');
  const std::string start = colon == std::string::npos ? "" : bounds.substr(0, colon);
  const std::string end = colon == std::string::npos ? bounds : bounds.substr(colon + 1);
  const bool openEnd = colon != std::string::npos && end.empty();
  if (start == "~") {
    read.start = -std::numeric_limits<double>::infinity();
  } else if (!start.empty() && !ParseNumber(start, read.start)) {
    error = "range \"" + text + "\": \"" + start + "\" is no number";
    return false;
  }
  if (!openEnd && !ParseNumber(end, read.end)) {
    error = "range \"" + text + "\": \"" + end + "\" is no number";
    return false;
  }
  if (read.start > read.end) {
    error = "range \"" + text + "\": the start is above the end";
    return false;
  }
  range = read;
  return true;
}

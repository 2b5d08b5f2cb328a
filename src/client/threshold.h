#pragma once

#include <limits>
#include <string>

/// States of the plugin conventions, in their exit statuses.
enum TPluginState { stateOk = 0, stateWarning = 1, stateCritical = 2, stateUnknown = 3 };

/// "OK", "WARNING", "CRITICAL", "UNKNOWN".
const char* StateName(TPluginState state);
/// Reads a state by its name, by a leading part of it, in any case, or by its number.
/// @return false for any other text, `state` untouched
bool ParseState(const std::string& text, TPluginState& state);
/// The one that a check with both outcomes has: CRITICAL before WARNING before UNKNOWN before OK.
TPluginState WorseState(TPluginState a, TPluginState b);

/// A threshold, `[@][start:]end`: alerts outside the closed range, with '@' inside it.
struct TRange {
  double start = 0;
  double end = std::numeric_limits<double>::infinity();
  bool inside = false;
  std::string text;  ///< as given; empty: no threshold, which never alerts

  bool Alerts(double value) const;
};

/// Reads a range. @return false with the reason in `error`
bool ParseRange(const std::string& text, TRange& range, std::string& error);

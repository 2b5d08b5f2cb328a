#pragma once

#include <optional>
#include <string>
#include <vector>

#include "client/threshold.h"

/// One performance value: 'label'=value[UOM];warn;crit;min;max
struct TMeasure {
  std::string label;
  double value = 0;
  std::string unit = {};
  std::string warning = {};   ///< range as given, or empty
  std::string critical = {};  ///< range as given, or empty
  std::optional<double> min = {};
  std::optional<double> max = {};
};

/// The outcome of a check.
struct TJudgement {
  TPluginState state = stateUnknown;
  std::string text = {};  ///< first line
  std::vector<TMeasure> measures = {};
  std::string details = {};  ///< further lines, or empty
};

/// A number with no exponent and as few digits as tell it, in the C locale; "U" when it is none.
std::string PlainNumber(double number);
/// Trailing empty fields are left out; a quote in the label is doubled, "=" becomes "_".
std::string FormatMeasure(const TMeasure& measure);
/// "SERVICE STATE: text | perfdata" and the further lines. Text can hold no '|': it becomes '/'.
std::string FormatJudgement(const std::string& service, const TJudgement& judgement);

#pragma once

#include "client/commands.h"

/// Builders for the rows of the command table.

using TNumbers = std::vector<double>;

inline double First(const TNumbers& numbers) { return numbers[0]; }

inline TParam Argument(int position, const char* name, const char* help) {
  return {.position = position, .option = name, .preset = nullptr, .help = help};
}
inline TParam Argument(int position, const char* name, const char* help, const char* preset) {
  return {.position = position, .option = name, .preset = preset, .help = help};
}
inline TParam DataArgument(int position, const char* name, const char* help) {
  return {.position = position, .form = paramData, .option = name, .preset = nullptr, .help = help};
}
inline TParam PortArgument(int position) {
  return {.position = position,
          .form = paramWhole,
          .option = "PORT",
          .preset = nullptr,
          .help = "port to connect to"};
}
inline TParam Flag(int position, const char* option, const char* help) {
  return {.position = position, .form = paramFlag, .option = option, .preset = "0", .help = help};
}
inline TParam NoFlag(int position, const char* option, const char* help) {
  return {.position = position, .form = paramNoFlag, .option = option, .preset = "1", .help = help};
}
inline TParam Text(int position, const char* option, const char* preset, const char* help) {
  return {.position = position, .option = option, .preset = preset, .help = help};
}
inline TParam Data(int position, const char* option, const char* help) {
  return {.position = position, .form = paramData, .option = option, .help = help};
}
inline TParam Whole(int position, const char* option, const char* preset, const char* help) {
  return {
      .position = position, .form = paramWhole, .option = option, .preset = preset, .help = help};
}
inline TParam Fixed(int position, const char* value) {
  return {.position = position, .form = paramFixed, .preset = value};
}
inline TParam Macros(int position) {
  return Flag(position, "--macros", "expand %newestfile% and kin in the path first");
}
inline TParam TimeLimit(int position, const char* presetMs) {
  return Whole(position, "--time-limit", presetMs, "milliseconds that the agent waits");
}

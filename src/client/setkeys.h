#pragma once

#include <string>
#include <vector>

/// The settings that "SetSettings" changes, and how their values travel.
enum TSetForm {
  setText,
  setWhole,  ///< decimal integer
  setFlag,   ///< 1 or 0; also on, off, yes, no
  setList,   ///< items separated by blanks or commas here, by line breaks on the wire
};

struct TSetKey {
  const char* name;
  TSetForm form;
};

/// All keys, in the order that help and completion list them.
const std::vector<TSetKey>& SetKeys();

/// The request line for "KEY=VALUE". Keys are told apart without regard to case.
/// Throws TUsageFailure for an unknown key, a value of the wrong form, and for the password, which
/// does not belong into arguments.
std::string SetLine(const std::string& assignment);

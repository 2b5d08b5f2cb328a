#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "client/answer.h"
#include "client/commands.h"

/// One value of a reply, read as its field's form tells.
struct TValue {
  const TField* field = nullptr;
  std::string text;   ///< the value with line breaks put back, blanks at its ends removed
  double number = 0;  ///< 0 for a field that is no number
};

/// The values of a reply to a row of shape `shapeFields`, in the order of its fields.
/// Throws TSilence when the reply has fewer lines than the row has fields.
std::vector<TValue> ReadValues(const TCommand& command, const TAnswer& answer);
/// Their numbers; for `shapeKeys` the numbers of the keys that the row names.
std::vector<double> ReadNumbers(const TCommand& command, const TAnswer& answer);

using TKeys = std::vector<std::pair<std::string, std::string>>;
/// The Key=value lines in order, with line breaks put back.
TKeys ReadKeys(const TAnswer& answer);
/// The value of a key, empty when absent.
std::string FindKey(const TKeys& keys, const std::string& key);

/// A list that travels as two values, "Available x" and "Enabled x".
struct TSwitch {
  std::string name;
  bool enabled;
};
/// @param what  "tests" or "actions"
std::vector<TSwitch> ReadSwitches(const TKeys& keys, const std::string& what);

/// The lines of a list value, without their line ends; empty lines are left out.
std::vector<std::string> SplitLines(const std::string& text);

struct TFileEntry {
  std::string name;
  int attributes = 0;  ///< bit 16: folder
  double sizeBytes = 0;
  std::string changed;   ///< wire form of a time
  std::string modified;  ///< wire form of a time

  bool IsFolder() const { return (attributes & 16) != 0; }
};
struct TFileList {
  std::string folder;
  std::vector<TFileEntry> entries;
};
/// Reads a reply of shape `shapeFiles`. Throws TSilence when it is cut short.
TFileList ReadFiles(const TAnswer& answer);

/// DDMMYYYYhhmmss as "2026-11-24 17:03:09"; any other text as it stands.
std::string ReadableTime(const std::string& wire);

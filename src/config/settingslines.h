#pragma once

#include <sys/stat.h>

#include "core/wqstring.h"

/// Most bytes of a line, its end included, that are read at once; a longer line is read in pieces,
/// each taken as a line of its own.
inline constexpr int kSettingsLineBytes = 1023;
inline constexpr int kMaxSettingsFileBytes = 16 * 1024 * 1024;

/// Reads a whole configuration file; `facts` are those of the very file that was read. False when
/// it cannot be opened or read, or is over kMaxSettingsFileBytes.
bool ReadSettingsFile(const char* path, String& text, struct stat& facts);

/// One line of a configuration file, or a piece of a long one.
struct TSettingsLine {
  String bytes;          ///< as in the file, with the line end
  int number = 0;        ///< of the line in the file, from 1
  bool assigns = false;  ///< not a comment, and it holds '='; else the rest says nothing
  String key;            ///< without blanks and tabs around it, in lower case
  int valueAt = 0;       ///< position in `bytes` of the value, or of the line end when it is empty
  String value;          ///< without blanks around it
};

/// Walks the lines of a configuration text, which must outlive it.
class TSettingsLines {
 public:
  explicit TSettingsLines(const String& text) : text_(text) {}
  /// False when there are no more lines.
  bool Next(TSettingsLine& line);

 private:
  const String& text_;
  int done_ = 0;
  int number_ = 1;
};

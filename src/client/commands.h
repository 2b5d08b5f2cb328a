#pragma once

#include <string>
#include <vector>

/// How a parameter of a command is written on its request line.
enum TParamForm {
  paramText,      ///< one line as it stands
  paramData,      ///< bytes; line breaks travel as "%0A" and "%0D"
  paramContents,  ///< as paramData, the bytes of the local file that the option names
  paramFlag,      ///< "1" when given, else "0"
  paramNoFlag,    ///< "0" when given, else "1"
  paramWhole,     ///< decimal integer
  paramChoice,    ///< the number of the word in `words`, counted from 0
  paramFixed,     ///< `preset`, no option
  paramGiven,     ///< "1" when the option named in `preset` was given, no option of its own
};

/// One parameter line of a request, and the option that fills it.
struct TParam {
  int position = 0;  ///< line of the request, from 1
  TParamForm form = paramText;
  const char* option = "";  ///< "--recurse", or "PATH" for an argument; "" without
  const char* preset = "";  ///< the value when not given; null: must be given
  const char* help = "";
  const char* words = "";  ///< paramChoice: "all|older|..."
  int movedTo = 0;         ///< the position when option `movedWhen` was given; 0: never moves
  const char* movedWhen = "";

  bool IsArgument() const { return option[0] != '\0' && option[0] != '-'; }
  bool IsOption() const { return option[0] == '-'; }
};

/// What one value of a reply is, with its unit.
enum TFieldForm {
  fieldText,
  fieldLines,    ///< text with escaped line breaks
  fieldCount,    ///< whole number
  fieldBytes,    ///< whole number of bytes
  fieldMs,       ///< whole number of milliseconds
  fieldMinutes,  ///< whole number of minutes
  fieldPercent,  ///< real number
  fieldTime,     ///< DDMMYYYYhhmmss, the agent's local time
  fieldBool,
  fieldChecksum,  ///< unsigned number of 32 bits, shown in hexadecimal
  fieldSkip,      ///< a line that says nothing of its own
};

struct TField {
  const char* name;  ///< JSON key; blanks stand for its underscores where people read it
  TFieldForm form;
};

/// How the lines behind the code "200" are laid out.
enum TReplyShape {
  shapeFields,  ///< one value a line, as `fields` tells
  shapeKeys,    ///< Key=value lines; `fields` names the ones that are numbers to measure
  shapeList,    ///< one value, a list of lines
  shapeFiles,   ///< folder, count, number of columns, then the entries' columns
};

/// What decides a plugin's state beside the thresholds.
enum TVerdict {
  verdictNone,
  verdictTrue,        ///< the first value must be true
  verdictExitCode,    ///< the first value, 0 to 3, is the state
  verdictResultLine,  ///< the first word of the script's result line is the state
  verdictAnswer,      ///< the last value must hold --expect
  verdictChecksum,    ///< the first value must equal --expect
};

/// A number that check_qov measures: perfdata and thresholds.
struct TMetric {
  const char* label;
  const char* unit;  ///< unit of measurement of the plugin conventions: B, s, ms, %, c or none
  /// From the numbers of the reply's fields, in order (0 for a field that is no number).
  double (*value)(const std::vector<double>& numbers);
  int maxField = -1;  ///< field that holds the largest possible value; -1: none
};

/// One command of the agent. Adding one is adding a row: arguments, output, plugin, completion and
/// help follow from it.
struct TCommand {
  const char* name;   ///< subcommand
  const char* agent;  ///< name on the wire
  const char* summary;
  std::vector<TParam> params = {};
  TReplyShape shape = shapeFields;
  std::vector<TField> fields = {};
  const char* enabledBy = "";  ///< the name under which "GetInfo" lists it; "" when it does not
  std::vector<TMetric> metrics = {};  ///< empty: no plugin check; the first is the default metric
  TVerdict verdict = verdictNone;
  bool hasPassword = false;  ///< the reply holds the agent's password
  int stateParam = 0;  ///< position of the first of three scan-state parameters; 0: keeps no state

  /// True when check_qov offers it.
  bool IsCheck() const { return !metrics.empty() || verdict != verdictNone; }
  /// True when it can be sent without any argument.
  bool NeedsNothing() const;
};

/// A text log's reply begins the same in both forms; these fields are numbered from 0.
inline constexpr int kTextLogMatch = 0, kTextLogLine = 1, kTextLogMore = 2, kTextLogState = 3;

/// All rows, in the order of the help text.
const std::vector<TCommand>& Commands();
/// The row of a subcommand, or null.
const TCommand* FindCommand(const std::string& name);

/// The parts of the table, each in its own file.
/// Rows for disks, folders and files, and for text logs.
std::vector<TCommand> FileRows();
/// Rows for processes, scripts, the network, actions, and what the agent tells of itself.
std::vector<TCommand> SystemRows();
/// Rows for commands that this platform answers with "500".
std::vector<TCommand> UnsupportedRows();

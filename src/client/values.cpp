#include "client/values.h"

#include <stdlib.h>

#include <algorithm>

#include "client/vxwire.h"

static std::string Trimmed(const std::string& text) {
  const char* blanks = " \t\r\n";
  const size_t first = text.find_first_not_of(blanks);
  if (first == std::string::npos) return "";
  return text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

static bool IsNumber(TFieldForm form) {
  return form != fieldText && form != fieldLines && form != fieldTime && form != fieldSkip;
}

static TSilence Short(size_t have, size_t want) {
  return TSilence("the reply is too short: " + std::to_string(have) + " of " +
                  std::to_string(want) + " values");
}

std::vector<TValue> ReadValues(const TCommand& command, const TAnswer& answer) {
  if (answer.lines.size() < command.fields.size()) {
    throw Short(answer.lines.size(), command.fields.size());
  }
  std::vector<TValue> values;
  for (size_t i = 0; i < command.fields.size(); ++i) {
    TValue value;
    value.field = &command.fields[i];
    const std::string& line = answer.lines[i];
    value.text = value.field->form == fieldLines ? DecodeText(line) : Trimmed(line);
    if (IsNumber(value.field->form)) value.number = strtod(value.text.c_str(), nullptr);
    values.push_back(std::move(value));
  }
  return values;
}

std::vector<double> ReadNumbers(const TCommand& command, const TAnswer& answer) {
  std::vector<double> numbers;
  if (command.shape == shapeKeys) {
    const TKeys keys = ReadKeys(answer);
    for (const TField& field : command.fields) {
      numbers.push_back(strtod(FindKey(keys, field.name).c_str(), nullptr));
    }
    return numbers;
  }
  for (const TValue& value : ReadValues(command, answer)) numbers.push_back(value.number);
  return numbers;
}

TKeys ReadKeys(const TAnswer& answer) {
  TKeys keys;
  for (const std::string& line : answer.lines) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos) continue;
    keys.emplace_back(line.substr(0, equals), DecodeText(line.substr(equals + 1)));
  }
  return keys;
}

std::string FindKey(const TKeys& keys, const std::string& key) {
  for (const auto& [name, value] : keys) {
    if (name == key) return value;
  }
  return "";
}

std::vector<TSwitch> ReadSwitches(const TKeys& keys, const std::string& what) {
  const std::string marks = FindKey(keys, "Enabled " + what);
  std::vector<TSwitch> switches;
  for (const std::string& name : SplitLines(FindKey(keys, "Available " + what))) {
    const size_t i = switches.size();
    switches.push_back({name, i < marks.size() && marks[i] == '1'});
  }
  return switches;
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = std::min(text.find_first_of("\r\n", start), text.size());
    if (end > start) lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

TFileList ReadFiles(const TAnswer& answer) {
  TFileList list;
  list.folder = answer.Line(1);
  const size_t count = strtoul(answer.Line(2).c_str(), nullptr, 10);
  constexpr size_t kHead = 3, kColumns = 5;
  if (strtoul(answer.Line(3).c_str(), nullptr, 10) != kColumns) {
    throw TSilence("the reply does not have the columns that were asked for");
  }
  if ((answer.lines.size() - kHead) / kColumns < count) {
    throw Short((answer.lines.size() - kHead) / kColumns, count);
  }
  for (size_t i = 0; i < count; ++i) {
    const std::string* field = &answer.lines[kHead + i * kColumns];
    list.entries.push_back(
        {field[0], atoi(field[1].c_str()), strtod(field[2].c_str(), nullptr), field[3], field[4]});
  }
  return list;
}

std::string ReadableTime(const std::string& wire) {
  if (wire.size() != 14 || wire.find_first_not_of("0123456789") != std::string::npos) return wire;
  return wire.substr(4, 4) + '-' + wire.substr(2, 2) + '-' + wire.substr(0, 2) + ' ' +
         wire.substr(8, 2) + ':' + wire.substr(10, 2) + ':' + wire.substr(12, 2);
}

#include "client/format.h"

#include <stdint.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>

#include "client/vxwire.h"

static std::string Decimal(double number, int places) {
  char buf[64];
  snprintf(buf, sizeof buf, "%.*f", places, number);
  return buf;
}

std::string RoundedNumber(double number) {
  std::string text = Decimal(number, 2);
  text.erase(text.find_last_not_of('0') + 1);
  if (text.back() == '.') text.pop_back();
  return text;
}

std::string ReadableBytes(double sizeBytes) {
  static const char* const units[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB"};
  size_t unit = 0;
  while (sizeBytes >= 1024 && unit + 1 < std::size(units)) {
    sizeBytes /= 1024;
    ++unit;
  }
  return Decimal(sizeBytes, unit == 0 ? 0 : 1) + ' ' + units[unit];
}

static std::string ReadableMinutes(const TValue& value) {
  const double minutes = value.number;
  if (minutes < 120) return value.text + " min";
  if (minutes < 2 * 1440) return value.text + " min (" + Decimal(minutes / 60, 1) + " hours)";
  return value.text + " min (" + Decimal(minutes / 1440, 1) + " days)";
}

std::string ReadableValue(const TValue& value) {
  switch (value.field->form) {
    case fieldBytes:
      return value.number < 1024 ? value.text + " B"
                                 : ReadableBytes(value.number) + " (" + value.text + " B)";
    case fieldMs:
      return value.text + " ms";
    case fieldPercent:
      return value.text + " %";
    case fieldMinutes:
      return ReadableMinutes(value);
    case fieldTime:
      return ReadableTime(value.text);
    case fieldBool:
      return value.text == "1" ? "yes" : "no";
    case fieldChecksum: {
      if (!(value.number >= 0 && value.number <= UINT32_MAX)) return value.text;  // a false agent
      char hex[16];
      snprintf(hex, sizeof hex, "0x%08x", static_cast<unsigned>(value.number));
      return std::string(hex) + " (" + value.text + ")";
    }
    default:
      return value.text;
  }
}

std::string AlignColumns(const TKeys& rows) {
  size_t width = 0;
  for (const auto& [label, text] : rows) width = std::max(width, label.size());
  std::string out;
  for (const auto& [label, text] : rows) {
    const std::vector<std::string> lines = SplitLines(text);
    out += label;
    if (lines.empty()) out += '\n';
    for (size_t i = 0; i < lines.size(); ++i) {
      out += std::string(i == 0 ? width + 2 - label.size() : width + 2, ' ') + lines[i] + '\n';
    }
  }
  return out;
}

static std::string FormatFields(const TCommand& command, const TAnswer& answer) {
  TKeys rows;
  for (const TValue& value : ReadValues(command, answer)) {
    if (value.field->form == fieldSkip) continue;
    std::string label = value.field->name;
    std::replace(label.begin(), label.end(), '_', ' ');
    rows.emplace_back(label, ReadableValue(value));
  }
  return AlignColumns(rows);
}

static std::string FormatKeys(const TAnswer& answer, bool showPassword) {
  TKeys rows;
  const TKeys keys = ReadKeys(answer);
  for (const auto& [key, value] : keys) {
    if (key.starts_with("Enabled ")) continue;
    if (key.starts_with("Available ")) {
      std::string what = key.substr(strlen("Available "));
      std::string text;
      for (const TSwitch& item : ReadSwitches(keys, what)) {
        text += (item.enabled ? "on   " : "off  ") + item.name + '\n';
      }
      what[0] = static_cast<char>(toupper(what[0]));
      rows.emplace_back(what, text);
    } else if (key == "Password" && !showPassword) {
      rows.emplace_back(key, value.empty() ? "" : "********");
    } else {
      rows.emplace_back(key, value);
    }
  }
  return AlignColumns(rows);
}

static std::string FormatFiles(const TAnswer& answer) {
  const TFileList list = ReadFiles(answer);
  std::string out = list.folder + '\n';
  for (const TFileEntry& entry : list.entries) {
    char row[64];
    const std::string size = entry.IsFolder() ? "folder" : ReadableBytes(entry.sizeBytes);
    snprintf(row, sizeof row, "%12s  %-19s  ", size.c_str(),
             ReadableTime(entry.modified).substr(0, 19).c_str());
    out += row + entry.name + (entry.IsFolder() ? "/\n" : "\n");
  }
  return out + std::to_string(list.entries.size()) + " entries\n";
}

/// The agent's network checks report a code behind the system's text, which is often empty.
static const char* NetworkReason(const std::string& line) {
  static constexpr struct {
    const char* line;
    const char* reason;
  } kReasons[] = {{"0", "no answer in time"}, {"-2", "the host name does not resolve"},
                  {"-3", "no socket"},        {"-4", "sending failed"},
                  {"-5", "receiving failed"}, {"-6", "the connection failed"}};
  for (const auto& row : kReasons) {
    if (line == row.line) return row.reason;
  }
  return nullptr;
}

static std::string OwnWords(const TCommand& command, const TAnswer& answer) {
  std::string words;
  for (const std::string& line : answer.lines) {
    const char* reason = command.verdict == verdictAnswer ? NetworkReason(line) : nullptr;
    for (const std::string& part : SplitLines(reason != nullptr ? reason : DecodeText(line))) {
      words += (words.empty() ? "" : ", ") + part;
    }
  }
  return words;
}

std::string DescribeFailure(const TCommand& command, const TAnswer& answer) {
  const std::string text = answer.code + ' ' + CodeMeaning(answer.code);
  const std::string words = OwnWords(command, answer);
  return words.empty() ? text : text + ": " + words;
}

std::string FormatAnswer(const TCommand& command, const TAnswer& answer, bool showPassword) {
  if (!answer.Done()) return DescribeFailure(command, answer) + '\n';
  switch (command.shape) {
    case shapeKeys:
      return FormatKeys(answer, showPassword);
    case shapeFiles:
      return FormatFiles(answer);
    case shapeList: {
      std::string out;
      for (const std::string& line : SplitLines(DecodeText(answer.Line(1)))) out += line + '\n';
      return out;
    }
    case shapeFields:
      break;
  }
  return FormatFields(command, answer);
}

std::string FormatRaw(const TAnswer& answer) {
  std::string out = answer.code + "  " + CodeMeaning(answer.code) + '\n';
  for (const std::string& line : answer.lines) out += line + '\n';
  return out;
}

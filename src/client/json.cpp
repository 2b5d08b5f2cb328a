#include "client/json.h"

#include <math.h>
#include <string.h>

#include <nlohmann/json.hpp>

#include "client/format.h"
#include "client/vxwire.h"

using TJson = nlohmann::ordered_json;

static TJson JsonNumber(double number) {
  if (number == floor(number) && fabs(number) <= 9007199254740992.0) {
    return static_cast<int64_t>(number);
  }
  return number;
}

static TJson JsonValue(const TValue& value) {
  switch (value.field->form) {
    case fieldBool:
      return value.text == "1";
    case fieldTime: {
      std::string text = ReadableTime(value.text);
      if (text.size() > 10 && text[10] == ' ') text[10] = 'T';
      return text;
    }
    case fieldText:
    case fieldLines:
    case fieldSkip:
      return value.text;
    default:
      return JsonNumber(value.number);
  }
}

static const char* UnitName(TFieldForm form) {
  switch (form) {
    case fieldBytes:
      return "B";
    case fieldMs:
      return "ms";
    case fieldMinutes:
      return "min";
    case fieldPercent:
      return "%";
    default:
      return "";
  }
}

static void PutFields(const TCommand& command, const TAnswer& answer, TJson& out) {
  TJson values = TJson::object(), units = TJson::object();
  for (const TValue& value : ReadValues(command, answer)) {
    if (value.field->form == fieldSkip) continue;
    values[value.field->name] = JsonValue(value);
    const char* unit = UnitName(value.field->form);
    if (*unit != '\0') units[value.field->name] = unit;
  }
  out["values"] = values;
  if (!units.empty()) out["units"] = units;
}

static void PutKeys(const TAnswer& answer, bool showPassword, TJson& out) {
  TJson values = TJson::object();
  const TKeys keys = ReadKeys(answer);
  for (const auto& [key, value] : keys) {
    if (key.starts_with("Enabled ")) continue;
    if (key.starts_with("Available ")) {
      const std::string what = key.substr(strlen("Available "));
      TJson switches = TJson::object();
      for (const TSwitch& item : ReadSwitches(keys, what)) switches[item.name] = item.enabled;
      values[what] = switches;
    } else {
      values[key] = key == "Password" && !showPassword ? "********" : value;
    }
  }
  out["values"] = values;
}

static void PutFiles(const TAnswer& answer, TJson& out) {
  const TFileList list = ReadFiles(answer);
  static const TField time = {"time", fieldTime};
  TJson entries = TJson::array();
  for (const TFileEntry& entry : list.entries) {
    entries.push_back({{"name", entry.name},
                       {"folder", entry.IsFolder()},
                       {"attributes", entry.attributes},
                       {"size", JsonNumber(entry.sizeBytes)},
                       {"changed", JsonValue({&time, entry.changed})},
                       {"modified", JsonValue({&time, entry.modified})}});
  }
  out["values"] = {{"folder", list.folder}, {"entries", entries}};
}

/// Milliseconds to three decimals.
static double Microseconds(double ms) { return round(ms * 1000) / 1000; }

static TJson Head(const std::string& command, const TAnswer& answer) {
  return {{"command", command},
          {"code", answer.code},
          {"ok", answer.Done()},
          {"elapsed_ms", Microseconds(answer.elapsedMs)}};
}

/// Bytes that are no UTF-8 are replaced, so that every reply gives valid JSON.
static std::string Dump(const TJson& json) {
  return json.dump(2, ' ', false, TJson::error_handler_t::replace) + '\n';
}

std::string JsonAnswer(const TCommand& command, const TAnswer& answer, bool showPassword) {
  TJson out = Head(command.agent, answer);
  if (!answer.Done()) {
    out["meaning"] = CodeMeaning(answer.code);
    out["text"] = DecodeText(answer.Text());
    return Dump(out);
  }
  switch (command.shape) {
    case shapeFields:
      PutFields(command, answer, out);
      break;
    case shapeKeys:
      PutKeys(answer, showPassword, out);
      break;
    case shapeFiles:
      PutFiles(answer, out);
      break;
    case shapeList:
      out["values"] = SplitLines(DecodeText(answer.Line(1)));
      break;
  }
  return Dump(out);
}

std::string JsonRaw(const std::string& command, const TAnswer& answer) {
  TJson out = Head(command, answer);
  out["lines"] = answer.lines;
  return Dump(out);
}

std::string JsonTimes(const std::string& host, int port, const std::vector<double>& timesMs) {
  TJson times = TJson::array();
  for (const double ms : timesMs) times.push_back(Microseconds(ms));
  return Dump({{"host", host}, {"port", port}, {"times_ms", times}});
}

#include "client/request.h"

#include <errno.h>
#include <string.h>

#include <fstream>
#include <iterator>

#include "client/failure.h"
#include "client/vxwire.h"

std::string ReadLocalFile(const std::string& path, const char* what) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw TUsageFailure(std::string(what) + " " + path + ": " + strerror(errno));
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (file.bad()) throw TUsageFailure(std::string(what) + " " + path + ": read error");
  return bytes;
}

static std::string WholeNumber(const TParam& param, const std::string& value) {
  const size_t digits = value.find_first_not_of('-');
  if (value.empty() || digits > 1 ||
      value.find_first_not_of("0123456789", digits) != std::string::npos) {
    throw TUsageFailure(std::string(param.option) + ": not a whole number: " + value);
  }
  return value;
}

static std::string OneLine(const TParam& param, const std::string& value) {
  if (value.find_first_of("\r\n") != std::string::npos) {
    throw TUsageFailure(std::string(param.option) + ": a line break cannot be sent here");
  }
  return value;
}

static std::string ChoiceNumber(const TParam& param, const std::string& value) {
  const std::string words = std::string(param.words) + '|';
  int number = 0;
  for (size_t start = 0; start < words.size(); ++number) {
    const size_t bar = words.find('|', start);
    if (words.substr(start, bar - start) == value) return std::to_string(number);
    start = bar + 1;
  }
  throw TUsageFailure(std::string(param.option) + ": not one of " + param.words + ": " + value);
}

static std::string WireValue(const TParam& param, const TGiven& given) {
  const auto found = given.find(param.option);
  if (param.form == paramGiven) return given.count(param.preset) != 0 ? "1" : "0";
  if (param.form == paramNoFlag) return found != given.end() ? "0" : "1";
  if (found == given.end() && param.preset == nullptr) {
    throw TUsageFailure(std::string(param.option) + " is required");
  }
  const std::string value = found != given.end() ? found->second : param.preset;
  switch (param.form) {
    case paramData:
      return EncodeText(value);
    case paramContents:
      return EncodeText(ReadLocalFile(value, "file"));
    case paramWhole:
      return WholeNumber(param, value);
    case paramChoice:
      return ChoiceNumber(param, value);
    default:
      return OneLine(param, value);
  }
}

std::vector<std::string> BuildParams(const TCommand& command, const TGiven& given) {
  std::vector<std::string> lines;
  for (const TParam& param : command.params) {
    const bool moved = param.movedTo != 0 && given.count(param.movedWhen) != 0;
    const auto position = static_cast<size_t>(moved ? param.movedTo : param.position);
    if (lines.size() < position) lines.resize(position);
    lines[position - 1] = WireValue(param, given);
  }
  return lines;
}

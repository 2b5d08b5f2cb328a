#include "client/pluginoutput.h"

#include <math.h>

#include <algorithm>
#include <charconv>

std::string PlainNumber(double number) {
  if (!std::isfinite(number)) return "U";
  char buf[1200];  // the smallest numbers have over 1,000 digits behind the point
  const auto end = std::to_chars(buf, buf + sizeof buf, number, std::chars_format::fixed);
  const std::string text(buf, end.ptr);
  return text == "-0" ? "0" : text;
}

static std::string QuoteLabel(const std::string& label) {
  std::string out = "'";
  for (const char c : label) {
    if (c == '\'') out += '\'';
    out += c == '=' ? '_' : c;
  }
  return out + '\'';
}

std::string FormatMeasure(const TMeasure& measure) {
  std::string out = QuoteLabel(measure.label) + '=' + PlainNumber(measure.value) + measure.unit +
                    ';' + measure.warning + ';' + measure.critical + ';';
  if (measure.min) out += PlainNumber(*measure.min);
  out += ';';
  if (measure.max) out += PlainNumber(*measure.max);
  return out.substr(0, out.find_last_not_of(';') + 1);
}

static std::string WithoutBars(std::string text) {
  std::replace(text.begin(), text.end(), '|', '/');
  return text;
}

/// One line: what would end it becomes a blank.
static std::string OneLine(std::string text) {
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= '\0' && c < ' '; }, ' ');
  return text;
}

std::string FormatJudgement(const std::string& service, const TJudgement& judgement) {
  std::string out =
      service + ' ' + StateName(judgement.state) + ": " + OneLine(WithoutBars(judgement.text));
  for (size_t i = 0; i < judgement.measures.size(); ++i) {
    out += (i == 0 ? " | " : " ") + FormatMeasure(judgement.measures[i]);
  }
  out += '\n' + WithoutBars(judgement.details);
  if (out.back() != '\n') out += '\n';
  return out;
}

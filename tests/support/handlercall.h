#pragma once

#include <thread>

#include "protocol/reply.h"
#include "protocol/request.h"
#include "support/scopes.h"

using THandler = void (*)(const VxRequest&, QovReply&);
using TWords = std::vector<std::string>;
/// Parameters written with a "," between; as "7=1" where some are left out.
inline TWords Params(const std::string& text) {
  TWords params;
  std::istringstream in(text);
  for (std::string s; getline(in, s, ',');) {
    const size_t sign = s.find('=');
    const size_t position = sign == s.npos ? params.size() + 1 : std::stoul(s);
    params.resize(std::max(params.size(), position));
    params[position - 1] = s.substr(sign + 1);
  }
  return params;
}

/// Calls a command's handler as the dispatcher does; the reply text, the code on its first line.
inline std::string CallHandler(THandler handler, const TWords& params) {
  std::string text;
  for (const std::string& param : params) text += param + '\n';
  VxRequest request;
  request = ToString(text + "\r");
  QovReply reply;
  handler(request, reply);
  return ToStd(reply);
}

/// Turns every flag of the settings on (1) or off (0) while it lives, `but` the other way.
struct TEnabledTests : TScope {
  explicit TEnabledTests(int enabled = 1, int TQovSettings::*but = nullptr) {
    ChangeSettings([=](TQovSettings& settings) {
      for (const auto& [name, form, field, preset, saved] : kSettingKeys)
        if (form == formFlag) settings.*field.number = enabled ^ (field.number == but);
    });
  }
  ~TEnabledTests() {
    ChangeSettings([this](auto& settings) { settings = former; });
  }
  const TQovSettings former = QovSettings;
};

/// @param rows  a reply as a regular expression, and the requests that get it (see Params), a "|"
///              between them. All are asked at once, as many wait, with everything enabled.
inline void ExpectMatches(THandler handler,
                          const std::vector<std::pair<std::string, std::string>>& rows) {
  const TEnabledTests enabled;
  std::vector<std::jthread> threads;
  for (const auto& [reply, requests] : rows) {
    std::istringstream all(requests);
    for (std::string request; getline(all, request, '|');)
      threads.emplace_back([handler, request, reply = reply] {
        EXPECT_THAT(CallHandler(handler, Params(request)), testing::MatchesRegex(reply)) << request;
      });
  }
}

/// A folder of files to check, with every check allowed.
struct TCheckTest : testing::Test {
  /// The text with the folder, '/' at its end, in place of each "@".
  std::string In(std::string text) const {
    for (size_t at = 0; (at = text.find('@', at)) != text.npos;) text.replace(at, 1, dir_.Path(""));
    return text;
  }
  /// Expects that the handler replies so to each of the requests (see Params), a "|" between them.
  void Expect(THandler handler, const std::string& reply, const std::string& requests) const {
    std::istringstream all(In(requests));
    for (std::string request; getline(all, request, '|');)
      EXPECT_EQ(In(reply), CallHandler(handler, Params(request))) << request;
  }

  const TEnabledTests enabled_;
  const TTempDir dir_;
};

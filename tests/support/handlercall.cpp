#include "support/handlercall.h"

#include <gmock/gmock.h>

#include <sstream>
#include <thread>

TParams Params(const std::string& text) {
  TParams params;
  std::istringstream in(text);
  for (std::string s; getline(in, s, ',');) {
    const size_t sign = s.find('=');
    const int next = static_cast<int>(params.size()) + 1;
    params[sign == s.npos ? next : std::stoi(s)] = s.substr(sign + 1);
  }
  return params;
}

std::string CallHandler(THandler handler, const TParams& params) {
  std::string text;
  int next = 1;
  for (const auto& [position, param] : params) {
    for (; next < position; ++next) text += '\n';
    text += param;
  }
  if (!params.empty()) text += '\n';
  VxRequest request;
  request = ToString(text + "\r");
  QovReply reply;
  handler(request, reply);
  return ToStd(reply);
}

void ExpectMatches(THandler handler, const std::vector<TRow>& rows) {
  const TEnabledTests enabled;
  std::vector<std::thread> threads;
  for (const TRow& row : rows) {
    threads.emplace_back([&row, handler] {
      TParams params;
      for (const std::string& param : row.first) params.emplace(params.size() + 1, param);
      EXPECT_THAT(CallHandler(handler, params), testing::MatchesRegex(row.second))
          << testing::PrintToString(params);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

TEnabledTests::TEnabledTests(int enabled, int TQovSettings::*but) {
  ChangeSettings([=](TQovSettings& settings) {
    for (const TSettingKey& key : kSettingKeys) {
      if (key.form == formFlag) settings.*key.field.number = enabled ^ (key.field.number == but);
    }
  });
}

std::string TCheckTest::In(std::string text) const {
  for (size_t at = 0; (at = text.find('@', at)) != text.npos;) text.replace(at, 1, dir_.Path(""));
  return text;
}

void TCheckTest::Expect(THandler handler, const std::string& reply,
                        const std::string& requests) const {
  std::istringstream all(In(requests));
  for (std::string request; getline(all, request, '|');) {
    EXPECT_EQ(In(reply), CallHandler(handler, Params(request))) << request;
  }
}

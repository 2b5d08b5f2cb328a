#include "support/handlercall.h"

#include <gtest/gtest.h>

#include "support/text.h"

namespace {

void SetEnables(TQovSettings& settings, int all, int TQovSettings::*but) {
  for (int TQovSettings::*flag :
       {&TQovSettings::unc, &TQovSettings::foldersize, &TQovSettings::countfiles,
        &TQovSettings::fileexists, &TQovSettings::filecrc, &TQovSettings::comparefiles,
        &TQovSettings::process, &TQovSettings::cpuusage, &TQovSettings::external,
        &TQovSettings::tcp, &TQovSettings::udp, &TQovSettings::textlog, &TQovSettings::shellscript,
        &TQovSettings::executeaction, &TQovSettings::tcpudpaction, &TQovSettings::syslogaction}) {
    settings.*flag = flag == but ? !all : all;
  }
}

}  // namespace

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

void ExpectReplies(THandler handler, const std::vector<TCall>& calls) {
  for (const TCall& call : calls) {
    EXPECT_EQ(call.reply, CallHandler(handler, call.params))
        << "call " << &call - calls.data() << " with " << testing::PrintToString(call.params);
  }
}

TEnabledTests::TEnabledTests(int enabled, int TQovSettings::*but) {
  ChangeSettings([=](TQovSettings& settings) { SetEnables(settings, enabled, but); });
}

TEnabledTests::~TEnabledTests() {
  ChangeSettings([](TQovSettings& settings) { SetEnables(settings, 0, nullptr); });
}

#include "support/handlercall.h"

#include "config/settings.h"
#include "support/text.h"

namespace {

void SetEnables(TQovSettings& settings, const void* context) {
  for (int TQovSettings::*flag :
       {&TQovSettings::unc, &TQovSettings::foldersize, &TQovSettings::countfiles,
        &TQovSettings::fileexists, &TQovSettings::filecrc, &TQovSettings::comparefiles,
        &TQovSettings::process, &TQovSettings::cpuusage, &TQovSettings::external,
        &TQovSettings::tcp, &TQovSettings::udp, &TQovSettings::textlog, &TQovSettings::shellscript,
        &TQovSettings::executeaction, &TQovSettings::tcpudpaction, &TQovSettings::syslogaction}) {
    settings.*flag = *static_cast<const int*>(context);
  }
}

}  // namespace

std::string CallHandler(void (*handler)(const VxRequest&, QovReply&), const TParams& params) {
  std::string text;
  const int last = params.empty() ? 0 : params.rbegin()->first;
  for (int i = 1; i <= last; ++i) {
    const auto param = params.find(i);
    text += (param != params.end() ? param->second : "") + "\n";
  }
  VxRequest request;
  request = ToString(text + "\r");
  QovReply reply;
  handler(request, reply);
  return ToStd(reply);
}

TEnabledTests::TEnabledTests(int enabled) { ChangeSettings(SetEnables, &enabled); }

TEnabledTests::~TEnabledTests() {
  const int off = 0;
  ChangeSettings(SetEnables, &off);
}

// The agent's reading of a request, against the client's.
#include <algorithm>

#include "client/vxwire.h"
#include "fuzz.h"
#include "protocol/request.h"

namespace {

constexpr char kPassword[] = "pw";

bool Equal(const String& ours, const std::string& theirs) {
  return std::string_view(ours.CStr(), static_cast<size_t>(ours.Length())) == theirs;
}

/// What the dispatcher and the handlers do with a request text.
void ReadText(const VxRequest& request) {
  const int count = request.GetParamsCount();
  String joined;
  for (int i = 1; i <= count && i <= 50; ++i) joined += request.GetParam(i, 0) + '\n';
  Require(count > 50 || joined == request.Copy(1, joined.Length()), "lines make up the text");
  Require(request.GetParam(count + 2, 1).Empty(), "nothing stands behind the last line");
  request.GetNamedParam("Port");
  const String value = request.GetParam(1, 1);
  Require(qovDecodeStrings(qovEncodeStrings(value)) == qovDecodeStrings(value),
          "escaping line breaks changes nothing else");
  int number = 0;
  qovDecodeInt(value, &number);
  qovDecodeReal(value);
  qovDecodeTime(value);
}

void CheckPacket(const String& packet) {
  VxRequest request;
  request = packet;
  const int whole = request.WholePacket();
  const int accepted = request.ParseInitRequest(kPassword, in_addr{});
  VxRequest taken;
  for (int at = 0; at < packet.Length(); at += 7) {
    taken.TakeBytes(packet.Data() + at, std::min(7, packet.Length() - at));
    taken.ForgetIfRefused(kPassword);
  }
  Require(taken.WholePacket() == whole &&
              taken.ParseInitRequest(kPassword, in_addr{}) == accepted &&
              (accepted == 0 || taken == request),
          "pieces make up the packet");
  TRequest theirs;
  std::string error;
  const std::string_view bytes(packet.CStr(), static_cast<size_t>(packet.Length()));
  Require((accepted != 0) == ParseRequest(bytes, kPassword, theirs, error), "both sides agree");
  if (accepted == 0) {
    Require(request == packet, "a refused packet is kept");
    return;
  }
  Require(whole != 0, "an accepted packet is whole");
  Require(Equal(request, theirs.text) && Equal(request.GetSessionKey(), theirs.sessionKey),
          "both sides read the same");
  ReadText(request);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = (Twofish_initialise(), true);
  static_cast<void>(ready);
  const String bytes = ToString(data, size);
  CheckPacket(bytes);
  VxRequest text;
  text = bytes;
  ReadText(text);
  return 0;
}

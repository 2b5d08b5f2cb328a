#include "protocol/request.h"

#include <nettle/memops.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "core/message.h"

namespace {

constexpr unsigned char kMarker[SIZELEN_AUTH] = {0x03, 0x12};

/// The fields of a packet; offsets and lengths in bytes.
struct TLayout {
  int64_t proofLength;
  int64_t keyLength;
  int64_t requestLength;
  int64_t KeyAt() const { return OFFSET_REQUEST - 1 + proofLength; }
  int64_t RequestAt() const { return SIZELEN_MINIMUM + proofLength + keyLength; }
};

void ReportSize(const char* what, in_addr from, int64_t sizeBytes) {
  showmessage("<-- %s size: %d\n", from, msgDebug, 1, what, static_cast<int>(sizeBytes));
}

/// Reads the lengths of the packet, each only after the ones before were found to fit.
bool ReadLayout(const String& packet, in_addr from, TLayout& out) {
  const int64_t size = packet.Length();
  ReportSize("TCP packet", from, size);
  if (size < SIZELEN_MINIMUM || size > kMaxPacketBytes) return false;
  const auto field = [&packet](int64_t at, int digits) -> int64_t {
    return DecodeLength(packet.Data() + at, digits);
  };

  const int64_t announced = field(OFFSET_PACKET - 1, SIZELEN_PACKET);
  ReportSize("QOV packet", from, announced);
  if (announced + SIZELEN_PACKET != size) return false;

  out.proofLength = field(OFFSET_PSWD - 1, SIZELEN_PSWD);
  ReportSize("Pswd", from, out.proofLength);
  if (SIZELEN_MINIMUM + out.proofLength > size) return false;

  out.keyLength = field(OFFSET_KEY - 1 + out.proofLength, SIZELEN_KEY);
  ReportSize("Key", from, out.keyLength);
  if (out.RequestAt() > size) return false;

  out.requestLength = field(OFFSET_REQUEST - 1 + out.proofLength + out.keyLength, SIZELEN_REQUEST);
  ReportSize("Req", from, out.requestLength);
  return out.requestLength >= 0 && out.RequestAt() + out.requestLength <= size &&
         memcmp(packet.Data() + OFFSET_AUTH - 1, kMarker, sizeof kMarker) == 0;
}

/// In a time that does not depend on the bytes, so that it tells nothing about the proof.
bool ProofMatches(const char* proof, int64_t length, const String& password) {
  const String expected = EncodePswd(password);
  return length == expected.Length() &&
         memeql_sec(proof, expected.CStr(), static_cast<size_t>(length)) != 0;
}

}  // namespace

int VxRequest::WholePacket() const {
  if (Length() < SIZELEN_MINIMUM) return 0;
  const int64_t packet = int64_t{DecodeLength(Data(), SIZELEN_PACKET)} + SIZELEN_PACKET;
  return packet <= Length() || packet > kMaxPacketBytes ? 1 : 0;
}

int VxRequest::ParseInitRequest(const String& password, in_addr from) {
  return ParseInitRequest(password, TCipherKey(password), from);
}

int VxRequest::ParseInitRequest(const String& password, const TCipherKey& passwordCipher,
                                in_addr from) {
  sessionKey_ = String();
  cipher_ = nullptr;
  TLayout layout;
  if (!ReadLayout(*this, from, layout)) return 0;
  if (!ProofMatches(Data() + OFFSET_KEY - 1, layout.proofLength, password)) {
    showmessage("<-- Wrong password or MD5 error\n", from, msgDebug, 0);
    return 0;
  }
  const auto decoded = [this](int64_t at, int64_t count, const TCipherKey& key) {
    return DecodeData(Data() + at, static_cast<int>(count), key);
  };
  sessionKey_ = decoded(layout.KeyAt(), layout.keyLength, passwordCipher);
  cipher_ = std::make_shared<const TCipherKey>(sessionKey_);
  *this = decoded(layout.RequestAt(), layout.requestLength, *cipher_);
  return 1;
}

int VxRequest::GetParamsCount() const {
  return static_cast<int>(std::count(CStr(), CStr() + Length(), '\n'));
}

String VxRequest::GetParam(int n, int trim) const {
  const char* line = CStr();
  const char* end = line + Length();
  for (; n > 1; --n) {
    line = std::find(line, end, '\n');
    if (line == end) return String();
    ++line;
  }
  String result(line, static_cast<int>(std::find(line, end, '\n') - line));
  if (trim != 0) result.Trim();
  return result;
}

String VxRequest::GetValue(int n) const {
  const auto blank = [](char c) { return static_cast<unsigned char>(c) <= ' ' || c == 0x7F; };
  String line = GetParam(n, 0);
  int first = 1;
  while (!line.Empty() && blank(line[line.Length()])) line.Delete(line.Length(), 1);
  while (first < line.Length() && blank(line[first])) ++first;
  return line.Copy(first, line.Length());
}

String VxRequest::GetText(int n) const {
  String line = GetParam(n, 0);
  if (!line.Empty() && line[line.Length()] == '\r') line.Delete(line.Length(), 1);
  return line;
}

String VxRequest::GetNamedParam(const char* name) const {
  const char* line = CStr();
  const char* end = line + Length();
  // Deliberate: text behind the last line feed is no line here.
  for (const char* feed; (feed = std::find(line, end, '\n')) != end; line = feed + 1) {
    const char* sign = std::find(line, feed, '=');
    if (sign == feed) continue;
    if (!(String(line, static_cast<int>(sign - line)).Trim() == name)) continue;
    return String(sign + 1, static_cast<int>(feed - sign - 1)).Trim();
  }
  return String();
}

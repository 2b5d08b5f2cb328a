#include "protocol/request.h"

#include <nettle/memops.h>
#include <stdint.h>
#include <string.h>

#include <algorithm>

#include "core/message.h"

namespace {

constexpr unsigned char kMarker[SIZELEN_AUTH] = {0x03, 0x12};

void ReportSize(const char* what, in_addr from, int64_t sizeBytes) {
  showmessage("<-- %s size: %d\n", from, msgDebug, 1, what, static_cast<int>(sizeBytes));
}

/// Whether the lengths of the packet fit, each looked at only after the ones before.
bool LengthsFit(const TPacketHead& head, in_addr from) {
  const int64_t size = head.Taken();
  ReportSize("TCP packet", from, size);
  if (size < SIZELEN_MINIMUM || size > kMaxPacketBytes) return false;
  ReportSize("QOV packet", from, head.Announced());
  if (head.Announced() + SIZELEN_PACKET != size) return false;
  ReportSize("Pswd", from, head.ProofLength());
  if (SIZELEN_MINIMUM + head.ProofLength() > size) return false;
  ReportSize("Key", from, head.KeyLength());
  if (head.TextAt() > size) return false;
  ReportSize("Req", from, head.TextLength());
  return head.TextLength() >= 0 && head.TextAt() + head.TextLength() <= size &&
         memcmp(head.Marker(), kMarker, sizeof kMarker) == 0;
}

}  // namespace

void TPacketHead::Take(const char* bytes, int count) {
  // Copies what has come of a field; true when that is all of it.
  const auto take = [&](int64_t at, int64_t size, char* field) {
    const int64_t from = std::max(at, taken_);
    const int64_t to = std::min(at + size, taken_ + count);
    if (from < to)
      memcpy(field + (from - at), bytes + (from - taken_), static_cast<size_t>(to - from));
    return at + size <= taken_ + count;
  };
  if (take(0, sizeof start_, start_)) {
    take(OFFSET_KEY - 1, std::min<int64_t>(ProofLength(), sizeof proof_), proof_);
    if (take(KeyAt() - SIZELEN_KEY, SIZELEN_KEY, keyLength_)) {
      take(TextAt() - SIZELEN_REQUEST, SIZELEN_REQUEST, textLength_);
    }
  }
  taken_ += count;
}

bool TPacketHead::HasProof() const {
  constexpr int64_t kSize = sizeof proof_;  // a longer one is none
  return taken_ >= OFFSET_KEY - 1 && taken_ >= OFFSET_KEY - 1 + std::min(ProofLength(), kSize);
}

bool TPacketHead::HasProofOf(const String& password) const {
  const String expected = EncodePswd(password);
  return ProofLength() == expected.Length() &&
         memeql_sec(proof_, expected.CStr(), static_cast<size_t>(expected.Length())) != 0;
}

TPacketHead VxRequest::Head() const {
  TPacketHead head = forgotten_;
  if (head.Taken() == 0) head.Take(Data(), Length());
  return head;
}

void VxRequest::TakeBytes(const char* bytes, int count) {
  if (forgotten_.Taken() != 0) return forgotten_.Take(bytes, count);
  const int64_t needed = int64_t{Length()} + count;
  const int64_t ahead = std::min<int64_t>(2 * needed, kMaxPacketBytes);
  if (needed > Capacity()) Reserve(static_cast<int>(std::max(needed, ahead)));
  AddData(bytes, count);
}

void VxRequest::ForgetIfRefused(const String& password) {
  const TPacketHead head = Head();
  if (proofSeen_ || !head.HasProof()) return;
  proofSeen_ = true;
  if (head.HasProofOf(password)) return;
  forgotten_ = head;
  *this = String();
}

int VxRequest::WholePacket() const {
  const TPacketHead head = Head();
  if (head.Taken() < SIZELEN_MINIMUM) return 0;
  const int64_t packet = head.Announced() + SIZELEN_PACKET;
  return packet <= head.Taken() || packet > kMaxPacketBytes ? 1 : 0;
}

int VxRequest::ParseInitRequest(const String& password, in_addr from) {
  return ParseInitRequest(password, TCipherKey(password), from);
}

int VxRequest::ParseInitRequest(const String& password, const TCipherKey& passwordCipher,
                                in_addr from) {
  sessionKey_ = String();
  cipher_ = nullptr;
  const TPacketHead head = Head();
  if (!LengthsFit(head, from)) return 0;
  if (forgotten_.Taken() != 0 || !head.HasProofOf(password)) {
    showmessage("<-- Wrong password or MD5 error\n", from, msgDebug, 0);
    return 0;
  }
  const auto decoded = [this](int64_t at, int64_t count, const TCipherKey& key) {
    return DecodeData(Data() + at, static_cast<int>(count), key);
  };
  sessionKey_ = decoded(head.KeyAt(), head.KeyLength(), passwordCipher);
  cipher_ = std::make_shared<const TCipherKey>(sessionKey_);
  *this = decoded(head.TextAt(), head.TextLength(), *cipher_);
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

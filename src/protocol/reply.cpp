#include "protocol/reply.h"

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include <algorithm>
#include <utility>

static constexpr int kNumberBytes = 35;

void QovReply::InitPacket(const char* text, TCipher key) {
  *this = text;
  if (text != nullptr) AddChar('\n');
  key_ = std::move(key);
}

QovReply& QovReply::SetResult(const char* code) {
  *this = code;
  AddChar('\n');
  return *this;
}

void QovReply::CommandSeparatorCheck() {
  if (!Empty() && (*this)[Length()] != '\n') AddChar('\n');
}

void QovReply::AddLine(const char* bytes, int count) {
  // Grown by half and not beyond 1 GiB, so that a long list is copied a few times only.
  constexpr int64_t kMaxGrowth = int64_t{1} << 30;
  const int64_t needed = int64_t{Length()} + count + 2;
  if (needed > Capacity()) {
    Reserve(static_cast<int>(std::max(needed, std::min(needed * 3 / 2, kMaxGrowth))));
  }
  CommandSeparatorCheck();
  AddData(bytes, count);
  AddChar('\n');
}

void QovReply::AddStringParam(const String& s, int encode) {
  const String value = encode != 0 ? qovEncodeStrings(s) : s;  // `s` may be the reply itself
  AddLine(value.CStr(), value.Length());
}

void QovReply::AddIntParam(double v) {
  char text[kNumberBytes];
  AddLine(text, std::min(snprintf(text, sizeof text, "%6.0f", v), kNumberBytes - 1));
}

void QovReply::AddRealParam(double v) {
  char text[kNumberBytes];
  AddLine(text, std::min(snprintf(text, sizeof text, "%6.4f", v), kNumberBytes - 1));
}

void QovReply::AddTimeParam(const time_t& t) {
  struct tm local = {};
  if (localtime_r(&t, &local) == nullptr) local = {};
  AddTimeParam(local);
}

void QovReply::AddTimeParam(const struct tm& t) {
  // In long, since the year of a far-off time reaches the end of int.
  AddVarParams("%2.2d%2.2ld%4.4ld%2.2d%2.2d%2.2d", t.tm_mday, t.tm_mon + 1L, t.tm_year + 1900L,
               t.tm_hour, t.tm_min, t.tm_sec);
}

void QovReply::AddVarParams(const char* format, ...) {
  constexpr int kVarBytes = 2048;
  char text[kVarBytes];
  va_list args;
  va_start(args, format);
  const int count = vsnprintf(text, sizeof text, format, args);
  va_end(args);
  if (count < 0 || count > kVarBytes) return;
  AddLine(text, std::min(count, kVarBytes - 1));
}

void QovReply::FinalizePacket() {
  CommandSeparatorCheck();
  AddChar('\r');
  *this = key_ != nullptr ? EncodeData(*this, *key_, SIZELEN_PACKET)
                          : EncodeData(*this, String(), SIZELEN_PACKET);
}

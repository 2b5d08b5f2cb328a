#include "protocol/qov_const.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "core/assertfail.h"
#include "protocol/ciplib.h"
#include "protocol/md5.h"

namespace {

constexpr int kBlock = TWOFISH_BLOCK_SIZE;
constexpr int kEncodeLengthLine = 43;
constexpr int kDecodeLengthLine = 54;

const unsigned char* Bytes(const String& s) {
  return reinterpret_cast<const unsigned char*>(s.CStr());
}

/// 8-bit cipher feedback over n bytes. The register is always the 16 bytes of ciphertext that went
/// before (the key's start in front of the first), so it is read where they lie and never shifted.
/// @param feedback  the ciphertext: `in` when deciphering, `out` when enciphering
void RunCipher(const TCipherKey& key, const unsigned char* in, unsigned char* out,
               const unsigned char* feedback, int n) {
  unsigned char window[2 * kBlock];
  unsigned char block[kBlock];
  memcpy(window, key.Start(), kBlock);
  for (int i = 0; i < n; ++i) {
    const unsigned char* last = i < kBlock ? window + i : feedback + i - kBlock;
    Twofish_encrypt(&key.Schedule(), last, block);
    out[i] = static_cast<unsigned char>(in[i] ^ block[0]);
    if (i < kBlock) window[kBlock + i] = feedback[i];
  }
}

int LengthOf(const char* p, int len) { return len == 0 ? static_cast<int>(strlen(p)) : len; }

int CountBreaks(const char* p, int len) {
  return static_cast<int>(std::count_if(p, p + len, [](char c) { return c == '\n' || c == '\r'; }));
}

/// `count` decimal digits; a byte that is none counts by its distance from '0'.
int Digits(const char* p, int count) {
  int value = 0;
  for (int i = 0; i < count; ++i) value = value * 10 + (p[i] - '0');
  return value;
}

}  // namespace

String EncodeLength(const String& s, int digits) {
  const uint32_t len = static_cast<uint32_t>(s.Length());
  if (static_cast<size_t>(digits) > sizeof len) {
    AssertFail("digits<=sizeof(len)", "qov_const", kEncodeLengthLine,
               "String EncodeLength(const String&, int)");
  }
  String result;
  for (int i = 0; i < digits; ++i) result.AddChar(static_cast<char>(len >> (8 * i)));
  return result;
}

int DecodeLength(const char* p, int digits) {
  if (static_cast<size_t>(digits) > sizeof(int)) {
    AssertFail("digits<=sizeof(int)", "qov_const", kDecodeLengthLine,
               "int DecodeLength(const char*, int)");
  }
  if (digits == 0 || digits == 3) return 0;
  uint32_t value = 0;
  for (int i = digits - 1; i >= 0; --i) value = (value << 8) | static_cast<unsigned char>(p[i]);
  return static_cast<int>(value);
}

TCipherKey::TCipherKey(const String& key) {
  THash_SHA hash;
  const char* digest = hash.GetHash(key.CStr(), key.Length());
  Twofish_prepare_key(reinterpret_cast<const unsigned char*>(digest), hash.GetHashSize(),
                      &schedule_);
  memset(start_, 0xFF, sizeof start_);
  Twofish_encrypt(&schedule_, start_, start_);
}

TCipherKey::~TCipherKey() {
  explicit_bzero(&schedule_, sizeof schedule_);
  explicit_bzero(start_, sizeof start_);
}

String EncodeData(const String& data, const String& key, int digits) {
  if (data.Empty()) return String();
  return EncodeData(data, TCipherKey(key), digits);
}

String EncodeData(const String& data, const TCipherKey& key, int digits) {
  if (data.Empty()) return String();
  String result;
  result.Reserve(digits + data.Length());
  result += EncodeLength(data, digits);
  const int prefix = result.Length();
  result.SetLength(prefix + data.Length());
  unsigned char* out = reinterpret_cast<unsigned char*>(result.Data()) + prefix;
  RunCipher(key, Bytes(data), out, out, data.Length());
  return result;
}

String DecodeData(const String& data, const String& key) {
  if (data.Empty()) return String();
  return DecodeData(data, TCipherKey(key));
}

String DecodeData(const String& data, const TCipherKey& key) {
  String result;
  if (data.Empty()) return result;
  result.SetLength(data.Length());
  RunCipher(key, Bytes(data), reinterpret_cast<unsigned char*>(result.Data()), Bytes(data),
            data.Length());
  return result;
}

String EncodePswd(const String& password) {
  if (password.Empty()) return String();
  unsigned char digest[MD5_DIGEST_SIZE];
  MD5 md5;
  MD5Open(&md5);
  MD5Digest(&md5, password.Data(), static_cast<unsigned>(password.Length()));
  MD5Close(&md5, digest);
  return String(reinterpret_cast<const char*>(digest), MD5_DIGEST_SIZE);
}

int qovDecodeBool(const char* text) { return strcmp(text, "1") == 0 ? 1 : 0; }
int qovDecodeBool(String text) { return qovDecodeBool(text.CStr()); }

int qovDecodeInt(const char* text) {
  return static_cast<int>(std::clamp<long>(strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}
int qovDecodeInt(String text) { return qovDecodeInt(text.CStr()); }

double qovDecodeInt64(const char* text) { return strtod(text, nullptr); }
double qovDecodeInt64(String text) { return qovDecodeInt64(text.CStr()); }

double qovDecodeReal(const char* text) { return strtod(text, nullptr); }
double qovDecodeReal(String text) { return qovDecodeReal(text.CStr()); }

int qovDecodeInt(const char* text, int* out) {
  if (!isdecimalnum(text)) return 0;
  *out = qovDecodeInt(text);
  return 1;
}
int qovDecodeInt(String text, int* out) { return qovDecodeInt(text.CStr(), out); }

int qovDecodeInt64(const char* text, double* out) {
  if (!isdecimalnum(text)) return 0;
  *out = qovDecodeInt64(text);
  return 1;
}
int qovDecodeInt64(String text, double* out) { return qovDecodeInt64(text.CStr(), out); }

struct tm qovDecodeTime(const char* text) {
  struct tm result = {};
  if (strlen(text) != 14) return result;
  result.tm_mday = Digits(text, 2);
  result.tm_mon = Digits(text + 2, 2);
  result.tm_year = Digits(text + 4, 4);
  result.tm_hour = Digits(text + 8, 2);
  result.tm_min = Digits(text + 10, 2);
  result.tm_sec = Digits(text + 12, 2);
  return result;
}
struct tm qovDecodeTime(String text) {
  return qovDecodeTime(text.CStr());
}

String qovEncodeStrings(const char* p, int len) {
  String result;
  if (p == nullptr) return result;
  len = LengthOf(p, len);
  result.Reserve(len + 2 * CountBreaks(p, len));
  const char* end = p + len;
  while (p < end) {
    const char* run = p;
    while (p < end && *p != '\n' && *p != '\r') ++p;
    result.AddData(run, static_cast<int>(p - run));
    if (p < end) result += *p++ == '\n' ? "%0A" : "%0D";
  }
  return result;
}

String qovEncodeStrings(const String& s) {
  return s.Empty() ? String() : qovEncodeStrings(s.Data(), s.Length());
}

String qovDecodeStrings(const char* p, int len) {
  String result;
  if (p == nullptr) return result;
  len = LengthOf(p, len);
  result.Reserve(len);
  for (int i = 0; i < len; ++i) {
    const bool escape =
        len - i >= 3 && p[i] == '%' && p[i + 1] == '0' && (p[i + 2] == 'A' || p[i + 2] == 'D');
    result.AddChar(escape ? static_cast<char>(p[i + 2] - 0x37) : p[i]);
    if (escape) i += 2;
  }
  return result;
}

String qovDecodeStrings(const String& s) {
  return s.Empty() ? String() : qovDecodeStrings(s.Data(), s.Length());
}

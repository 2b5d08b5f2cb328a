#include "protocol/qov_const.h"

#include <limits.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "core/assertfail.h"
#include "protocol/ciplib.h"

namespace {

constexpr int kEscapeBytes = 3;

// 8-bit cipher feedback. The register is always the 16 bytes of ciphertext that went before (the
// key's start in front of the first), so it is read where they lie and never shifted.

/// The buffers are separate.
void Encipher(const TCipherKey& key, const unsigned char* in, unsigned char* out, int n) {
  unsigned char window[2 * kTwofishBlock];
  memcpy(window, key.Start(), kTwofishBlock);
  for (int i = 0; i < n; ++i) {
    const bool early = i < kTwofishBlock;
    Twofish_first_bytes(key.Schedule(), early ? window + i : out + i - kTwofishBlock, out + i, 1);
    out[i] ^= in[i];
    if (early) window[kTwofishBlock + i] = out[i];
  }
}

void Decipher(const TCipherKey& key, const unsigned char* in, unsigned char* out, int n) {
  const int early = std::min(n, kTwofishBlock);
  unsigned char window[2 * kTwofishBlock];
  memcpy(window, key.Start(), kTwofishBlock);
  memcpy(window + kTwofishBlock, in, static_cast<size_t>(early));
  Twofish_first_bytes(key.Schedule(), window, out, early);
  Twofish_first_bytes(key.Schedule(), in, out + early, n - early);
  for (int i = 0; i < n; ++i) out[i] ^= in[i];
}

int LengthOf(const char* p, int len) { return len <= 0 ? static_cast<int>(strlen(p)) : len; }

bool IsEscape(const char* p, const char* end) {
  return end - p >= kEscapeBytes && p[0] == '%' && p[1] == '0' && (p[2] == 'A' || p[2] == 'D');
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
    __assert_fail("digits<=sizeof(len)", "qov_const", 43,
                  "String EncodeLength(const String&, int)");
  }
  return String(reinterpret_cast<const char*>(&len), digits);
}

int DecodeLength(const char* p, int digits) {
  if (static_cast<size_t>(digits) > sizeof(int)) {
    __assert_fail("digits<=sizeof(int)", "qov_const", 54, "int DecodeLength(const char*, int)");
  }
  int value = 0;
  if (digits > 0 && digits != 3) memcpy(&value, p, static_cast<size_t>(digits));
  return value;
}

TCipherKey::TCipherKey(const String& key) {
  THash_SHA hash;
  const char* digest = hash.GetHash(key.CStr(), key.Length());
  Twofish_prepare_key(Bytes(digest), hash.GetHashSize(), &schedule_);
  memset(start_, 0xFF, sizeof start_);
  Twofish_encrypt(&schedule_, start_, start_);
}

TCipherKey::~TCipherKey() {
  explicit_bzero(&schedule_, sizeof schedule_);
  explicit_bzero(start_, sizeof start_);
}

String EncodeData(const String& data, const String& key, int digits) {
  return data.Empty() ? String() : EncodeData(data, TCipherKey(key), digits);
}

String EncodeData(const String& data, const TCipherKey& key, int digits) {
  if (data.Empty()) return String();
  String result = EncodeLength(data, digits);
  const int prefix = result.Length();
  result.SetLength(prefix + data.Length());
  unsigned char* out = reinterpret_cast<unsigned char*>(result.Data()) + prefix;
  Encipher(key, Bytes(data.Data()), out, data.Length());
  return result;
}

String DecodeData(const String& data, const String& key) {
  return data.Empty() ? String() : DecodeData(data.Data(), data.Length(), TCipherKey(key));
}

String DecodeData(const char* data, int len, const TCipherKey& key) {
  String result;
  if (len <= 0) return result;
  result.SetLength(len);
  Decipher(key, Bytes(data), reinterpret_cast<unsigned char*>(result.Data()), len);
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

int qovDecodeInt(const char* text) {
  return static_cast<int>(std::clamp<long>(strtol(text, nullptr, 10), INT_MIN, INT_MAX));
}

double qovDecodeReal(const char* text) { return strtod(text, nullptr); }

int qovDecodeInt(const char* text, int* out) {
  if (!isdecimalnum(text)) return 0;
  *out = qovDecodeInt(text);
  return 1;
}

int qovDecodeInt64(const char* text, double* out) {
  if (!isdecimalnum(text)) return 0;
  *out = qovDecodeInt64(text);
  return 1;
}

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

String qovEncodeStrings(const char* p, int len) {
  String result;
  if (p == nullptr) return result;
  const char* end = p + LengthOf(p, len);
  result.Reserve(static_cast<int>(end - p + 2 * std::count_if(p, end, IsLineEnd)));
  while (p < end) {
    const char* run = p;
    p = std::find_if(p, end, IsLineEnd);
    result.AddData(run, static_cast<int>(p - run));
    if (p < end) result += *p++ == '\n' ? "%0A" : "%0D";
  }
  return result;
}

String qovDecodeStrings(const char* p, int len) {
  String result;
  if (p == nullptr) return result;
  const char* end = p + LengthOf(p, len);
  result.Reserve(static_cast<int>(end - p));
  while (p < end) {
    const char* run = p;
    while (p < end && !IsEscape(p, end)) ++p;
    result.AddData(run, static_cast<int>(p - run));
    if (p == end) break;
    result.AddChar(p[2] == 'A' ? '\n' : '\r');
    p += kEscapeBytes;
  }
  return result;
}

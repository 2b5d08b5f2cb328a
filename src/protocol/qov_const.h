#pragma once

#include <time.h>

#include <memory>

#include "core/wqstring.h"
#include "protocol/twofish.h"

/// Request packet (server to agent), integers little-endian, byte indexes from 0:
///   0 L:4 | 4 marker 03 12 | 6 P:2 | 8 proof[P] | 8+P K:2 | 10+P key[K] | 10+P+K R:4 | 14+P+K
///   text[R]
/// L counts the bytes behind itself; L + 4 is the whole packet, nothing may follow.
/// Reply packet (agent to server): N:4 | text[N].
///
/// The constants are widths in bytes and 1-based positions, which grow by the lengths of the
/// variable fields in front.
inline constexpr int SIZELEN_PACKET = 4;
inline constexpr int SIZELEN_AUTH = 2;
inline constexpr int SIZELEN_PSWD = 2;
inline constexpr int SIZELEN_KEY = 2;
inline constexpr int SIZELEN_REQUEST = 4;
inline constexpr int OFFSET_PACKET = 1;
inline constexpr int OFFSET_AUTH = OFFSET_PACKET + SIZELEN_PACKET;
inline constexpr int OFFSET_PSWD = OFFSET_AUTH + SIZELEN_AUTH;
inline constexpr int OFFSET_KEY = OFFSET_PSWD + SIZELEN_PSWD;
inline constexpr int OFFSET_REQUEST = OFFSET_KEY + SIZELEN_KEY;
inline constexpr int SIZELEN_MINIMUM =
    SIZELEN_AUTH + SIZELEN_PSWD + SIZELEN_PACKET + SIZELEN_KEY + SIZELEN_REQUEST;

/// A peer that announces or sends more is refused.
inline constexpr int kMaxPacketBytes = 16 * 1024 * 1024;

/// Lengths lie in memory as on the wire: Twofish_initialise refuses any other machine. Both forms
/// abort the process when asked for more than 4 digits.
/// The length of s as its `digits` low-order bytes, little-endian.
String EncodeLength(const String& s, int digits);
/// A length field of 4 (signed), 2 or 1 (unsigned) bytes; 0 and 3 digits give 0.
int DecodeLength(const char* p, int digits);

/// What the stream cipher makes of one key text: a Twofish key schedule of its SHA-1 and the
/// register that every text starts from. Threads may share one.
class TCipherKey {
 public:
  explicit TCipherKey(const String& key);
  ~TCipherKey();
  TCipherKey(const TCipherKey&) = delete;
  TCipherKey& operator=(const TCipherKey&) = delete;

  const Twofish_key& Schedule() const { return schedule_; }
  const unsigned char* Start() const { return start_; }

 private:
  Twofish_key schedule_;
  unsigned char start_[16];
};
using TCipher = std::shared_ptr<const TCipherKey>;

/// Enciphers data (8-bit cipher feedback, same length), with EncodeLength of it in front; digits 0:
/// without. Empty data gives an empty result.
String EncodeData(const String& data, const String& key, int digits);
String EncodeData(const String& data, const TCipherKey& key, int digits);
/// Deciphers data; a wrong key yields garbage of the same length.
String DecodeData(const String& data, const String& key);
String DecodeData(const char* data, int len, const TCipherKey& key);

/// Proof of a password: its 16 MD5 bytes, or "" for an empty one.
String EncodePswd(const String& password);

/// Values in request texts. 1 when the text is exactly "1".
int qovDecodeBool(const char* text);
inline int qovDecodeBool(String text) { return qovDecodeBool(text.CStr()); }
/// The atoi reading. Deliberate: it saturates where the library leaves the result open.
int qovDecodeInt(const char* text);
inline int qovDecodeInt(String text) { return qovDecodeInt(text.CStr()); }
/// The atof reading.
double qovDecodeReal(const char* text);
inline double qovDecodeReal(String text) { return qovDecodeReal(text.CStr()); }
inline double qovDecodeInt64(const char* text) { return qovDecodeReal(text); }
inline double qovDecodeInt64(String text) { return qovDecodeReal(text.CStr()); }
/// Checked forms: 0, with *out untouched, when a byte is neither a digit nor '-'; else 1.
/// Deliberate: "" is accepted as 0 and "1-2" as 1.
int qovDecodeInt(const char* text, int* out);
inline int qovDecodeInt(String text, int* out) { return qovDecodeInt(text.CStr(), out); }
int qovDecodeInt64(const char* text, double* out);
inline int qovDecodeInt64(String text, double* out) { return qovDecodeInt64(text.CStr(), out); }
/// DDMMYYYYhhmmss; all zero when not 14 characters. Not called by the agent itself. Deliberate:
/// tm_mon is 1 to 12 and tm_year the full year, as read.
struct tm qovDecodeTime(const char* text);
inline struct tm qovDecodeTime(String text) { return qovDecodeTime(text.CStr()); }

/// Line breaks as "%0A" and "%0D"; nothing else is escaped. len 0 or less: up to the terminator; a
/// null pointer gives "".
String qovEncodeStrings(const char* p, int len);
inline String qovEncodeStrings(const String& s) { return qovEncodeStrings(s.CStr(), s.Length()); }
/// The reverse; only the upper-case forms are escapes.
String qovDecodeStrings(const char* p, int len);
inline String qovDecodeStrings(const String& s) { return qovDecodeStrings(s.CStr(), s.Length()); }

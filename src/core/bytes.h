#pragma once

/// What bytes are; ASCII alone has letters and digits.

/// Deliberate: a byte is read as a signed number and is blank when it is <= 32, so control
/// characters and 0x80 to 0xFF count too.
inline bool IsBlank(char c) { return static_cast<signed char>(c) <= 32; }
inline bool IsLineEnd(char c) { return c == '\n' || c == '\r'; }
/// ASCII case change of one byte; any other byte comes back unchanged.
inline char UpCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }
inline char LoCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
/// True for a letter or digit; "_" is none.
inline bool IsWordByte(char c) {
  const char lower = LoCase(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9');
}
/// Text as the bytes that ciphers and digests take.
inline const unsigned char* Bytes(const char* p) {
  return reinterpret_cast<const unsigned char*>(p);
}

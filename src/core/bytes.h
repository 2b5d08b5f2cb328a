#pragma once

/// What one byte is; ASCII alone has letters and digits.

/// Deliberate: a byte is read as a signed number and is blank when it is <= 32, so control
/// characters and 0x80 to 0xFF count too.
inline bool IsBlank(char c) { return static_cast<signed char>(c) <= 32; }
/// ASCII case change of one byte; any other byte comes back unchanged.
inline char UpCase(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 32) : c; }
inline char LoCase(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }
/// True for a letter or digit; "_" is none.
inline bool IsWordByte(char c) {
  const char lower = LoCase(c);
  return (lower >= 'a' && lower <= 'z') || (c >= '0' && c <= '9');
}

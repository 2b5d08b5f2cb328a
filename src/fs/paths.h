#pragma once

#include <string.h>

#include "core/wqstring.h"

/// Paths are byte strings with '/' as the only delimiter; positions are 1-based. Any thread.

/// Position of the last byte of s that occurs in delims, 0 for none; zero bytes never count.
int LastDelimiter(const char* delims, const String& s);
/// Everything up to and including the last '/'; "" when there is none.
String ExtractFilePath(const String& s);
/// What follows the last '/', at most 4095 bytes.
String ExtractFileName(const String& s);
/// The last '.' behind the last '/' and what follows it, or "". Not called by the agent itself.
String ExtractFileExt(const String& s);
/// Whether byte i is a '/', or one of delims; false outside the string and for a zero byte.
bool IsPathDelimiter(const String& s, int i);
bool IsDelimiter(const char* delims, const String& s, int i);
/// s with '/' at its end; "" becomes "/".
String IncludeTrailingPathDelimiter(const String& s);
/// s without a '/' at its end; "/" becomes "".
String ExcludeTrailingPathDelimiter(const String& s);
/// The working directory, "" when it cannot be told.
String GetCurrentDir();
/// Returns s: '~' is never expanded. Not called by the agent itself.
inline String ExpandTilde(const String& s) { return s; }
/// The absolute form without "." and ".." components and repeated slashes. Not called by the agent
/// itself. Deliberate: a "." or ".." directly after the root is kept ("/../a" stays).
String ExpandFileName(const String& s);

/// Single-byte forms of the multibyte helpers. Not called by the agent itself.
inline bool isLeadByte(char) { return false; }
inline int StrCharLength(const char*) { return 1; }
inline int ByteType(const String&, int) { return 0; }
inline const char* StrNextChar(const char* p) { return p + 1; }
inline const char* AnsiStrPos(const char* s, const char* sub) { return strstr(s, sub); }
inline int AnsiPos(const String& sub, const String& s) { return s.Pos(sub); }

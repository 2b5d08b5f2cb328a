#pragma once

#include <stdlib.h>
#include <string.h>

#include <utility>
#include <vector>

#include "core/bytes.h"
#include "core/textfinder.h"

/// A string of bytes, zero bytes among them; case operations are ASCII only. Positions are 1-based;
/// 0 means "not found". One thread at a time.
/// The buffer grows in steps of 128 bytes; that of a fixed string (made with a size) never does,
/// and writes that do not fit are cut short. A zero byte stands behind the last byte in use,
/// outside the capacity.
class String {
 public:
  String() = default;
  /// Empty string with a fixed buffer of `size` bytes; size 0 gives an ordinary empty string.
  String(int size);          // NOLINT(google-explicit-constructor)
  String(const char* text);  // NOLINT(google-explicit-constructor)
  String(const char* bytes, int count) { AddData(bytes, count); }
  String(const String& other) : String(other.data, other.length) {}
  String(String&& other) noexcept { *this = std::move(other); }
  ~String() { free(data); }
  String& operator=(const char* text);
  String& operator=(const String& other);
  String& operator=(String&& other) noexcept;

  /// Replaces the content by n bytes of src (n = -1: up to its terminator); returns the new length.
  /// Deliberate: a null src or n = 0 releases the buffer (and with it the fixed capacity), while an
  /// empty text with n = -1 keeps it.
  int CopyData(const char* src, int n);
  /// Appends n bytes of src (n = -1: up to its terminator, null: nothing); returns the new length.
  int AddData(const char* src, int n);
  int AddChar(char c) {
    if (length >= capacity) return AddData(&c, 1);
    data[length++] = c;
    data[length] = 0;
    return length;
  }
  /// Makes room for n bytes in all, so that appending up to there moves nothing. A fixed string
  /// keeps its size.
  void Reserve(int n);
  /// Sets the length and sizes the buffer for it; bytes newly obtained are zero.
  void SetLength(int n);
  /// Zeroes the buffer behind the last byte in use; a full one grows by 128 bytes or the next step.
  /// Not called by the agent itself.
  String& SetZero();

  /// The buffer; null for a string that never had one.
  char* Data() { return data; }
  const char* Data() const { return data; }
  /// The bytes with a terminator behind them; never null. Valid until the string changes.
  const char* CStr() const { return data != nullptr ? data : ""; }
  int Length() const { return length; }
  int Capacity() const { return capacity; }
  bool Empty() const { return length == 0; }

  String operator+(const String& other) const { return Joined(other.data, other.length); }
  String operator+(const char* text) const { return Joined(text, -1); }
  String operator+(char c) const { return Joined(&c, 1); }
  String& operator+=(const String& other) { return Append(other.data, other.length); }
  String& operator+=(const char* text) { return Append(text, -1); }
  String& operator+=(char c) {
    AddChar(c);
    return *this;
  }

  bool operator==(const String& other) const { return Equals(other.data, other.length); }
  /// A null pointer equals the empty string only.
  bool operator==(const char* text) const { return Equals(text, -1); }

  /// The byte at 1-based position i, which must exist.
  char operator[](int i) const { return data[i - 1]; }

  int Pos(char c) const;
  /// Position of the first n bytes of text (n = -1: strlen), 0 when absent or empty.
  int Pos(const char* text, int n = -1) const;
  int Pos(const String& other) const { return Pos(other.data, other.length); }
  /// Position of the first occurrence of `what` that satisfies the options (see TTextFinder).
  int Search(const String& what, int caseSensitive, int wholeWord) const;

  /// `count` bytes from position `start` (>= 1), cut at the end of the string.
  String Copy(int start, int count) const;
  /// Copies into `buf` of `size` bytes (-1: as large as needed), with a terminator; nothing happens
  /// to it when the string is empty, `buf` null or `size` 0. Returns buf. Not called by the agent
  /// itself.
  char* StrCpy(char* buf, int size) const;
  /// Word n, counted from 1, between single separators; "" when there are fewer words. Not called
  /// by the agent itself.
  String GetWord(int n, char sep) const;

  /// Removes `count` bytes from position `start`; positions outside the string change nothing.
  void Delete(int start, int count);
  /// Removes blanks at both ends: IsBlank has 0x80 to 0xFF among them.
  String& Trim();
  /// Collapses runs of c. Deliberate: a run at the very start keeps two.
  String& RemoveRepeats(char c);
  String& LowerCase();

  /// A copy in which each occurrence of `what` is replaced.
  /// Deliberate: a remainder that is exactly one occurrence of `what` is kept.
  String ReplaceAll(const char* what, const char* with, int caseSensitive) const;

 private:
  void prAllocMem(int n);
  String Joined(const char* bytes, int count) const;
  String& Append(const char* bytes, int count);
  bool Equals(const char* bytes, int count) const;
  int PositionOf(const void* found) const;

  int length = 0;
  int capacity = 0;
  char* data = nullptr;
  int fixed = 0;
};

/// A list of strings, 0-based, whose capacity grows in steps of 128. An index outside of it aborts
/// the process. Not called by the agent itself.
class TStrList {
 public:
  void Add(const String& s);
  String operator[](int i) const;
  void Delete(int i);
  void DeleteLast() { Delete(Count() - 1); }
  void Clear() { *this = TStrList(); }
  int Count() const { return static_cast<int>(items.size()); }
  int Capacity() const { return capacity; }

 private:
  std::vector<String> items;
  int capacity = 0;
};

/// ASCII case change in place, up to the terminator or over exactly n bytes; returns s. `strupper`
/// and the forms without a count are not called by the agent itself.
char* strupper(char* s, int n);
char* strlower(char* s, int n);
inline char* strupper(char* s) { return strupper(s, static_cast<int>(strlen(s))); }
inline char* strlower(char* s) { return strlower(s, static_cast<int>(strlen(s))); }

/// True when every byte up to the terminator is a digit or '-'; so for the empty text.
bool isdecimalnum(const char* s);
/// True when each of the first n bytes is a digit. Deliberate: this form accepts no '-'.
/// Not called by the agent itself.
bool isdecimalnum(const char* s, int n);

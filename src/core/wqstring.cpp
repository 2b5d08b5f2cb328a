#include "core/wqstring.h"

#include <algorithm>
#include <new>

#include "core/assertfail.h"

namespace {

constexpr int kStep = 128;

int Rounded(int n) { return (n / kStep + 1) * kStep; }

size_t Size(int n) { return static_cast<size_t>(n); }

int LengthOf(const char* text, int n) { return n == -1 ? static_cast<int>(strlen(text)) : n; }

}  // namespace

void String::prAllocMem(int n) {
  if (n == 0) {
    free(data);
    data = nullptr;
    capacity = 0;
    fixed = 0;
    return;
  }
  const int wanted = fixed != 0 ? n : Rounded(n);
  char* const grown = static_cast<char*>(realloc(data, Size(wanted) + 1));
  if (grown == nullptr) throw std::bad_alloc();
  data = grown;
  if (wanted > capacity) memset(data + capacity, 0, Size(wanted - capacity) + 1);
  capacity = wanted;
}

String::String(int size) {
  if (size <= 0) return;
  fixed = 1;
  prAllocMem(size);
}

String::String(const char* text) {
  if (text != nullptr) AddData(text, -1);
}

String& String::operator=(const char* text) {
  CopyData(text, -1);
  return *this;
}

String& String::operator=(const String& other) {
  if (this != &other) CopyData(other.data, other.length);
  return *this;
}

String& String::operator=(String&& other) noexcept {
  if (this == &other) return *this;
  if (fixed != 0 || other.fixed != 0 || other.length == 0) {
    return *this = static_cast<const String&>(other);
  }
  std::swap(length, other.length);
  std::swap(capacity, other.capacity);
  std::swap(data, other.data);
  return *this;
}

int String::CopyData(const char* src, int n) {
  if (src != nullptr && src == data) return length;
  if (src == nullptr || n == 0) {
    prAllocMem(0);
    length = 0;
    return 0;
  }
  length = 0;
  return AddData(src, n);
}

int String::AddData(const char* src, int n) {
  if (src == nullptr) return length;
  n = LengthOf(src, n);
  if (n <= 0) {
    if (data != nullptr) data[length] = 0;
    return length;
  }
  if (fixed != 0) n = std::min(n, capacity - length);
  if (n > capacity - length) {
    const bool own = src >= data && src < data + capacity;
    const ptrdiff_t offset = own ? src - data : 0;
    prAllocMem(length + n);
    if (own) src = data + offset;
  }
  memmove(data + length, src, Size(n));
  length += n;
  data[length] = 0;
  return length;
}

void String::Reserve(int n) {
  if (n > capacity && fixed == 0) prAllocMem(n);
}

void String::SetLength(int n) {
  if (n == 0 || (fixed != 0 ? n : Rounded(n)) > capacity) prAllocMem(n);
  length = n;
  if (data != nullptr) data[length] = 0;
}

String& String::SetZero() {
  if (length == capacity) prAllocMem(capacity + kStep);
  memset(data + length, 0, Size(capacity - length) + 1);
  return *this;
}

String String::Joined(const char* bytes, int count) const {
  String result;
  result.Reserve(length + (bytes == nullptr ? 0 : LengthOf(bytes, count)));
  result.AddData(data, length);
  result.AddData(bytes, count);
  return result;
}

String& String::Append(const char* bytes, int count) {
  AddData(bytes, count);
  return *this;
}

bool String::Equals(const char* bytes, int count) const {
  if (bytes == nullptr) return length == 0;
  return length == LengthOf(bytes, count) && memcmp(CStr(), bytes, Size(length)) == 0;
}

int String::PositionOf(const void* found) const {
  return found == nullptr ? 0 : static_cast<int>(static_cast<const char*>(found) - data) + 1;
}

int String::Pos(char c) const {
  return length == 0 ? 0 : PositionOf(memchr(data, c, Size(length)));
}

int String::Pos(const char* text, int n) const {
  if (text == nullptr) return 0;
  return mempos(data, length, text, LengthOf(text, n));
}

int String::Search(const String& what, int caseSensitive, int wholeWord) const {
  const TTextFinder finder({what.CStr(), Size(what.length)}, caseSensitive, wholeWord);
  return PositionOf(finder.Find(data, data, data + length));
}

String String::Copy(int start, int count) const {
  count = std::min(count, length - start + 1);
  if (count < 1) return String();
  return String(data + start - 1, count);
}

char* String::StrCpy(char* buf, int size) const {
  if (buf == nullptr || size == 0 || length == 0) return buf;
  const int n = size == -1 || length < size ? length : size - 1;
  memcpy(buf, data, Size(n));
  buf[n] = 0;
  return buf;
}

String String::GetWord(int n, char sep) const {
  const char* end = data + length;
  const char* word = data;
  for (; n > 1 && word < end; --n) word = std::find(word, end, sep) + 1;
  return word < end ? String(word, static_cast<int>(std::find(word, end, sep) - word)) : String();
}

void String::Delete(int start, int count) {
  if (count < 1 || start < 1 || start > length) return;
  count = std::min(count, length - start + 1);
  memmove(data + start - 1, data + start - 1 + count, Size(length - (start - 1) - count));
  length -= count;
  data[length] = 0;
}

String& String::Trim() {
  while (length > 0 && IsBlank(data[length - 1])) data[--length] = 0;
  Delete(1, static_cast<int>(std::find_if_not(data, data + length, IsBlank) - data));
  return *this;
}

String& String::RemoveRepeats(char c) {
  int to = 0;
  for (int from = 0; from < length; ++from) {
    data[to++] = data[from];
    while (from + 2 < length && data[from + 1] == c && data[from + 2] == c) ++from;
  }
  Delete(to + 1, length - to);
  return *this;
}

String& String::LowerCase() {
  strlower(data, length);
  return *this;
}

String String::ReplaceAll(const char* what, const char* with, int caseSensitive) const {
  const auto find = caseSensitive != 0 ? &mempos : &memposi;
  const int width = what == nullptr ? 0 : static_cast<int>(strlen(what));
  String result;
  int done = 0;
  while (length - done > width) {
    const int found = find(data + done, length - done, what, width);
    if (found == 0) break;
    result.AddData(data + done, found - 1);
    result += with;
    done += found - 1 + width;
  }
  if (done < length) result.AddData(data + done, length - done);
  return result;
}

void TStrList::Add(const String& s) {
  if (Count() >= capacity) capacity = Rounded(Count() + 1);
  items.push_back(s);
}

String TStrList::operator[](int i) const {
  if (i < 0 || i >= Count()) {
    __assert_fail("index>=0 && index<count", "wqstring", 495, "String TStrList::operator[](int)");
  }
  return items[Size(i)];
}

void TStrList::Delete(int i) {
  if (i < 0 || i >= Count()) {
    __assert_fail("index>=0 && index<count", "wqstring", 471, "void TStrList::Delete(int)");
  }
  items.erase(items.begin() + i);
}

char* strupper(char* s, int n) {
  std::transform(s, s + n, s, UpCase);
  return s;
}

char* strlower(char* s, int n) {
  std::transform(s, s + n, s, LoCase);
  return s;
}

bool isdecimalnum(const char* s) { return s[strspn(s, "-0123456789")] == 0; }

bool isdecimalnum(const char* s, int n) {
  return std::all_of(s, s + n, [](char c) { return c >= '0' && c <= '9'; });
}

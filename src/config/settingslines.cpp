#include "config/settingslines.h"

#include <fcntl.h>
#include <string.h>

#include <algorithm>

#include "fs/files.h"

namespace {

bool IsSpaceOrTab(char c) { return c == ' ' || c == '\t'; }
bool IsSpaceOrEnd(char c) { return IsSpaceOrTab(c) || IsLineEnd(c); }

void SplitLine(TSettingsLine& line) {
  const String& bytes = line.bytes;
  const int equals = bytes.Pos('=');
  line.assigns = equals != 0 && bytes[1] != '#' && bytes[1] != ';';
  if (!line.assigns) return;
  int first = 1;
  int last = equals - 1;
  while (first <= last && IsSpaceOrTab(bytes[first])) ++first;
  while (last >= first && IsSpaceOrTab(bytes[last])) --last;
  line.key = bytes.Copy(first, last - first + 1).LowerCase();
  first = equals + 1;
  last = bytes.Length();
  while (first <= last && IsSpaceOrTab(bytes[first])) ++first;
  while (last >= first && IsSpaceOrEnd(bytes[last])) --last;
  line.valueAt = first;
  line.value = bytes.Copy(first, last - first + 1);
}

}  // namespace

bool ReadSettingsFile(const char* path, String& text, struct stat& facts) {
  text = String();
  const TFd file(open(path, O_RDONLY | O_CLOEXEC));
  if (!file || fstat(file.Get(), &facts) != 0) return false;
  text.Reserve(static_cast<int>(std::clamp<off_t>(facts.st_size, 0, kMaxSettingsFileBytes)));
  char chunk[16 * 1024];
  ssize_t got;
  while ((got = ReadFully(file.Get(), chunk, sizeof chunk)) > 0) {
    if (text.Length() + got > kMaxSettingsFileBytes) return false;
    text.AddData(chunk, static_cast<int>(got));
  }
  return got == 0;
}

bool TSettingsLines::Next(TSettingsLine& line) {
  if (done_ >= text_.Length()) return false;
  const char* start = text_.Data() + done_;
  int count = std::min(text_.Length() - done_, kSettingsLineBytes);
  const void* end = memchr(start, '\n', static_cast<size_t>(count));
  if (end != nullptr) count = static_cast<int>(static_cast<const char*>(end) - start) + 1;
  line.bytes = String(start, count);
  line.number = number_;
  SplitLine(line);
  if (end != nullptr) ++number_;
  done_ += count;
  return true;
}

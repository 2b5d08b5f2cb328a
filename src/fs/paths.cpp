#include "fs/paths.h"

#include <string.h>
#include <unistd.h>

static constexpr int kPathBytes = 4095;

int LastDelimiter(const char* delims, const String& s) {
  int i = s.Length();
  while (i > 0 && !IsDelimiter(delims, s, i)) --i;
  return i;
}

String ExtractFilePath(const String& s) { return s.Copy(1, LastDelimiter("/", s)); }

String ExtractFileName(const String& s) { return s.Copy(LastDelimiter("/", s) + 1, kPathBytes); }

String ExtractFileExt(const String& s) {
  const int p = LastDelimiter("./", s);
  return p > 0 && s[p] == '.' ? s.Copy(p, kPathBytes) : String();
}

bool IsPathDelimiter(const String& s, int i) { return IsDelimiter("/", s, i); }

bool IsDelimiter(const char* delims, const String& s, int i) {
  return i >= 1 && i <= s.Length() && s[i] != 0 && strchr(delims, s[i]) != nullptr;
}

String IncludeTrailingPathDelimiter(const String& s) {
  return IsPathDelimiter(s, s.Length()) ? s : s + '/';
}

String ExcludeTrailingPathDelimiter(const String& s) {
  return IsPathDelimiter(s, s.Length()) ? s.Copy(1, s.Length() - 1) : s;
}

String GetCurrentDir() {
  char path[kPathBytes];
  return getcwd(path, sizeof path) != nullptr ? String(path) : String();
}

String ExpandFileName(const String& s) {
  if (s.Empty() || s[1] == '~') return s;
  const String path = s[1] == '/' ? s : IncludeTrailingPathDelimiter(GetCurrentDir()) + s;
  const auto is = [&path](int i, char c) { return i <= path.Length() && path[i] == c; };
  String result;
  int segment = 1;  // start of what is not yet in the result
  bool afterSlash = false;
  for (int i = 1; i <= path.Length(); ++i) {
    if (path[i] == '/') {
      // Deliberate: the slash at the very start ends no segment and does not count as one before a
      // dot, so that "." and ".." directly after the root are kept.
      if (segment == i) continue;
      if (path[i - 1] != '/') result += path.Copy(segment, i - segment);
      segment = i;
      afterSlash = true;
    } else if (path[i] != '.' || !afterSlash) {
      afterSlash = false;
    } else if (i == path.Length()) {
      result = ExcludeTrailingPathDelimiter(result);
      segment = i + 1;
    } else if (is(i + 1, '.') && !is(i + 2, '.')) {
      // The second dot is left to be read as a final "." or as "./". Deliberate: what follows it is
      // not looked at, so "/a/..b" loses "a" as well.
      if (result.Length() > 1) result = ExtractFilePath(ExcludeTrailingPathDelimiter(result));
      segment = i;
    } else if (is(i + 1, '/')) {
      result = IncludeTrailingPathDelimiter(result);
      segment = ++i + 1;
    } else {
      afterSlash = false;
    }
  }
  return result + path.Copy(segment, path.Length());
}

#include "fs/paths.h"

#include <string.h>
#include <unistd.h>

static constexpr int kPathBytes = 4095;

int LastDelimiter(const char* delims, const String& s) {
  for (int i = s.Length(); i > 0; --i) {
    if (IsDelimiter(delims, s, i)) return i;
  }
  return 0;
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

namespace {

/// One pass over an absolute path, byte by byte.
class TPathScan {
 public:
  explicit TPathScan(const String& path) : path_(path) {}

  String Run() {
    for (; at_ <= path_.Length(); ++at_) {
      if (path_[at_] == '/') {
        TakeSlash();
      } else if (path_[at_] != '.') {
        afterSlash_ = false;
      } else if (afterSlash_) {
        TakeDot();
      }
    }
    return result_ + path_.Copy(segment_, path_.Length());
  }

 private:
  bool Is(int position, char c) const { return position <= path_.Length() && path_[position] == c; }

  void TakeSlash() {
    // Deliberate: the slash at the very start ends no segment and does not count as one before a
    // dot, so that "." and ".." directly after the root are kept.
    if (segment_ == at_) return;
    if (path_[at_ - 1] != '/') result_ += path_.Copy(segment_, at_ - segment_);
    segment_ = at_;
    afterSlash_ = true;
  }

  void TakeDot() {
    if (at_ == path_.Length()) {
      result_ = ExcludeTrailingPathDelimiter(result_);
      segment_ = at_ + 1;
    } else if (Is(at_ + 1, '.') && !Is(at_ + 2, '.')) {
      // The second dot is left to be read as a final "." or as "./". Deliberate: what follows it is
      // not looked at, so "/a/..b" loses "a" as well.
      if (result_.Length() > 1) result_ = ExtractFilePath(ExcludeTrailingPathDelimiter(result_));
      segment_ = at_;
    } else if (Is(at_ + 1, '/')) {
      result_ = IncludeTrailingPathDelimiter(result_);
      ++at_;
      segment_ = at_ + 1;
    } else {
      afterSlash_ = false;
    }
  }

  const String& path_;
  String result_;
  int at_ = 1;
  int segment_ = 1;  ///< start of what is not yet in the result
  bool afterSlash_ = false;
};

}  // namespace

String ExpandFileName(const String& s) {
  if (s.Empty() || s[1] == '~') return s;
  if (s[1] == '/') return TPathScan(s).Run();
  const String path = IncludeTrailingPathDelimiter(GetCurrentDir()) + s;
  return TPathScan(path).Run();
}

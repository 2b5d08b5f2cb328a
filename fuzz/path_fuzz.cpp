// Path functions.
#include "fs/paths.h"
#include "fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  constexpr int kMaxName = 4095;
  const String path = ToString(data, size);
  const String folder = ExtractFilePath(path);
  const String name = ExtractFileName(path);
  if (name.Length() < kMaxName) Require(folder + name == path, "folder and name make up the path");
  const String ext = ExtractFileExt(path);
  Require(name.Length() >= kMaxName || name.Length() >= ext.Length(), "the name holds the ending");

  const String full = ExpandFileName(path);
  if (path.Empty() || path[1] == '~') {
    Require(full == path, "nothing and a '~' path are kept");
  } else {
    const int most = GetCurrentDir().Length() + 1 + path.Length();
    Require(full.Length() <= most, "the full form is no longer than folder and path");
  }

  const String closed = IncludeTrailingPathDelimiter(path);
  Require(closed[closed.Length()] == '/', "a delimiter is at the end");
  const String open = ExcludeTrailingPathDelimiter(closed);
  Require(open.Length() == closed.Length() - 1, "one delimiter is taken off");
  return 0;
}

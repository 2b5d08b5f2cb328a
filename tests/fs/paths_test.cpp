#include "fs/paths.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/tempdir.h"
#include "support/text.h"
#include "support/workingfolder.h"

TEST(PathsTest, TakesPathsApart) {
  const struct {
    const char *path, *folder, *name, *extension, *with, *without;
  } cases[] = {
      {"/a.b/c", "/a.b/", "c", "", "/a.b/c/", "/a.b/c"},
      {"x.tar.gz", "", "x.tar.gz", ".gz", "x.tar.gz/", "x.tar.gz"},
      {".profile", "", ".profile", ".profile", ".profile/", ".profile"},
      {"dir.d/", "dir.d/", "", "", "dir.d/", "dir.d"},
      {"/", "/", "", "", "/", ""},
      {"a//", "a//", "", "", "a//", "a/"},
      {"", "", "", "", "/", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path);
    EXPECT_EQ(c.folder, ExtractFilePath(c.path));
    EXPECT_EQ(c.name, ExtractFileName(c.path));
    EXPECT_EQ(c.extension, ExtractFileExt(c.path));
    EXPECT_EQ(c.with, IncludeTrailingPathDelimiter(c.path));
    EXPECT_EQ(c.without, ExcludeTrailingPathDelimiter(c.path));
  }
}

TEST(PathsTest, FindsDelimiters) {
  const String zero = ToString(std::string_view("a/\0", 3));
  EXPECT_EQ(2, LastDelimiter("./", zero)) << "a zero byte never counts";
  EXPECT_EQ(0, LastDelimiter("./", "abc"));
  EXPECT_TRUE(IsPathDelimiter(zero, 2));
  EXPECT_FALSE(IsPathDelimiter(zero, 0));
  EXPECT_FALSE(IsPathDelimiter(zero, 4));
}

TEST(PathsTest, ExpandsAbsolutePaths) {
  const struct {
    const char *path, *expected;
  } cases[] = {
      {"", ""},
      {"~/x", "~/x"},
      {"/", "/"},
      {"/a/b/../c", "/a/c"},
      {"/a//b", "/a/b"},
      {"//a", "/a"},
      {"/a/./b", "/a/b"},
      {"/a/././b", "/a/b"},
      {"/a/.", "/a"},
      {"/a/b/..", "/a"},
      {"/a/b/../../../c", "/c"},
      {"/a/.x", "/a/.x"},
      {"/a/...", "/a/..."},
      {"/a/.../b", "/a/.../b"},
      {"/a/b.c/d.", "/a/b.c/d."},
      {"/a/b/", "/a/b/"},
      {"/a/~", "/a/~"},
      // Odd, and relied upon: the root's own slash precedes no dot, a slash behind "./" stays,
      // what follows two dots is not looked at, and a final ".." below the root leaves nothing.
      {"/./a", "/./a"},
      {"/../a", "/../a"},
      {"//../a", "/a"},
      {"/a/.//b", "/a//b"},
      {"/a/..b", "/..b"},
      {"/a/..", ""},
      {"/a/b/../..", ""},
  };
  for (const auto& c : cases) EXPECT_EQ(c.expected, ExpandFileName(c.path)) << c.path;
}

TEST(PathsTest, ExpandsRelativePathsFromTheWorkingDirectory) {
  const TTempDir folder;
  const TWorkingFolder here(folder.Folder("sub"));
  EXPECT_EQ(folder.Path("sub/x"), ToStd(ExpandFileName("x")));
  EXPECT_EQ(folder.Path("x"), ToStd(ExpandFileName("../x")));
  rmdir(folder.Path("sub").c_str());
  EXPECT_EQ("", GetCurrentDir());
}

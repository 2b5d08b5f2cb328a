#include "fs/paths.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <utility>

#include "support/scopes.h"

TEST(PathsTest, TakesPathsApart) {
  const std::array<const char*, 6> cases[] = {
      // path, folder, name, extension, with and without a delimiter at the end
      {"/a.b/c", "/a.b/", "c", "", "/a.b/c/", "/a.b/c"},
      {"x.tar.gz", "", "x.tar.gz", ".gz", "x.tar.gz/", "x.tar.gz"},
      {".profile", "", ".profile", ".profile", ".profile/", ".profile"},
      {"dir.d/", "dir.d/", "", "", "dir.d/", "dir.d"},
      {"/", "/", "", "", "/", ""},
      {"a//", "a//", "", "", "a//", "a/"},
      {"", "", "", "", "/", ""},
  };
  for (const auto& [path, folder, name, extension, with, without] : cases) {
    SCOPED_TRACE(path);
    EXPECT_EQ(folder, ExtractFilePath(path));
    EXPECT_EQ(name, ExtractFileName(path));
    EXPECT_EQ(extension, ExtractFileExt(path));
    EXPECT_EQ(with, IncludeTrailingPathDelimiter(path));
    EXPECT_EQ(without, ExcludeTrailingPathDelimiter(path));
  }
  const String zero = ToString(std::string_view("a/\0", 3));
  EXPECT_EQ(2, LastDelimiter("./", zero)) << "a zero byte never counts";
  EXPECT_TRUE(IsPathDelimiter(zero, 2));
  EXPECT_FALSE(IsPathDelimiter(zero, 0) || IsPathDelimiter(zero, 4));
}

TEST(PathsTest, ExpandsAbsolutePaths) {
  for (const char* kept :
       {"", "~/x", "/", "/a/.x", "/a/...", "/a/.../b", "/a/b.c/d.", "/a/b/", "/a/~"}) {
    EXPECT_EQ(kept, ExpandFileName(kept));
  }
  // Odd, and relied upon: the root's own slash precedes no dot, a slash behind "./" stays,
  // what follows two dots is not looked at, and a final ".." below the root leaves nothing.
  const std::pair<const char*, const char*> cases[] = {
      {"/a/b/../c", "/a/c"}, {"/a//b", "/a/b"},  {"//a", "/a"},     {"/a/./b", "/a/b"},
      {"/a/././b", "/a/b"},  {"/a/.", "/a"},     {"/a/b/..", "/a"}, {"/a/b/../../../c", "/c"},
      {"/./a", "/./a"},      {"/../a", "/../a"}, {"//../a", "/a"},  {"/a/.//b", "/a//b"},
      {"/a/..b", "/..b"},    {"/a/..", ""},      {"/a/b/../..", ""}};
  for (const auto& [path, expected] : cases) EXPECT_EQ(expected, ExpandFileName(path)) << path;
}

TEST(PathsTest, ExpandsRelativePathsFromTheWorkingDirectory) {
  const TTempDir folder;
  const TWorkingFolder here(folder.Folder("sub"));
  EXPECT_EQ(folder.Path("sub/x"), ToStd(ExpandFileName("x")));
  EXPECT_EQ(folder.Path("x"), ToStd(ExpandFileName("../x")));
  rmdir(folder.Path("sub").c_str());
  EXPECT_EQ("", GetCurrentDir());
}

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <map>
#include <thread>
#include <tuple>

#include "fs/files.h"
#include "fs/paths.h"
#include "fs/search.h"
#include "support/scopes.h"

TEST(PathsTest, TakesPathsApart) {
  const std::array<String, 6> cases[] = {
      // path, folder, name, extension, with and without a delimiter at the end
      {"/a.b/c", "/a.b/", "c", "", "/a.b/c/", "/a.b/c"},
      {"x.tar.gz", "", "x.tar.gz", ".gz", "x.tar.gz/", "x.tar.gz"},
      {"a.d//", "a.d//", "", "", "a.d//", "a.d/"},
      {".p", "", ".p", ".p", ".p/", ".p"},
      {"", "", "", "", "/", ""}};
  for (const auto& c : cases) {
    EXPECT_EQ(c,
              (std::array{c[0], ExtractFilePath(c[0]), ExtractFileName(c[0]), ExtractFileExt(c[0]),
                          IncludeTrailingPathDelimiter(c[0]), ExcludeTrailingPathDelimiter(c[0])}));
  }
  const String zero("a/\0", 3);
  EXPECT_EQ(2, LastDelimiter("./", zero)) << "a zero byte never counts";
  EXPECT_FALSE(IsPathDelimiter(zero, 0) || IsPathDelimiter(zero, 4));
  EXPECT_EQ(4095, ExtractFileName(ToString(std::string(5000, 'x'))).Length());
}

TEST(PathsTest, ExpandsToTheAbsoluteForm) {
  // Odd, and relied upon: the root's own slash precedes no dot, a slash behind "./" stays,
  // what follows two dots is not looked at, and a final ".." below the root leaves nothing.
  using P = std::array<const char*, 2>;
  for (const auto& [path, expected] : {P{"", ""},
                                       P{"~/x", "~/x"},
                                       P{"/", "/"},
                                       P{"/a/.x", "/a/.x"},
                                       P{"/a/.../b", "/a/.../b"},
                                       P{"/a/b.c/d.", "/a/b.c/d."},
                                       P{"/a/b/", "/a/b/"},
                                       P{"/a/b/../c", "/a/c"},
                                       P{"//a//b", "/a/b"},
                                       P{"/a/././b", "/a/b"},
                                       P{"/a/.", "/a"},
                                       P{"/a/b/..", "/a"},
                                       P{"/a/b/../../../c", "/c"},
                                       P{"/./a", "/./a"},
                                       P{"/../a", "/../a"},
                                       P{"//../a", "/a"},
                                       P{"/a/.//b", "/a//b"},
                                       P{"/a/..b", "/..b"},
                                       P{"/a/..", ""},
                                       P{"/a/b/../..", ""}}) {
    EXPECT_EQ(expected, ExpandFileName(path)) << path;
  }
  const TTempDir folder;
  const TWorkingFolder here(folder.Folder("sub"));
  EXPECT_EQ(folder.Path("x"), ToStd(ExpandFileName("../x")));
  rmdir(folder.Path("sub").c_str());
  EXPECT_EQ("", GetCurrentDir());
}

namespace {

constexpr int kDir = AttrDirectory, kReadOnly = AttrReadOnly, kHidden = AttrHidden;

class SearchTest : public testing::Test {
 protected:
  using TFound = std::map<std::string, int>;  ///< attributes by name

  SearchTest() {
    chmod(folder.File("a.log", "12345").c_str(), 0666);
    chmod(folder.File("B.LOG").c_str(), 0444);
    chmod(folder.Folder(".hidden").c_str(), 0300);
    folder.File(".x.log");
    folder.Folder("dir");
    for (const auto& [target, name] : {std::pair("dir", "dirlink"), {"a.log", "link.log"}}) {
      EXPECT_EQ(0, symlink(target, folder.Path(name).c_str()));
    }
    mkfifo(folder.Path("pipe").c_str(), 0600);
    chmod(folder.Path().c_str(), 0755);
  }

  TFound Find(const char* mask, int attr, TReadOnly readOnly = TReadOnly::kUnseen,
              TFolders folders = TFolders::kMasked) {
    TFound found;
    TSearchRec rec;
    const TSearchCloser closer(rec);
    int result = FindFirst(ToString(folder.Path()), mask, attr, rec, readOnly, folders);
    for (; result == 0; result = FindNext(rec)) found[rec.EntryName] = rec.Attributes;
    return found;
  }

  TTempDir folder;
};

}  // namespace

TEST_F(SearchTest, ReportsWhatTheMaskAndTheAttributesAskFor) {
  const TFound folders = {{".", kDir}, {"..", kDir}, {"dir", kDir}, {".hidden", kDir + kHidden}};
  TFound all = {{"a.log", 0}, {".x.log", kHidden}, {"B.LOG", 0}, {"pipe", AttrSystem}};
  all.insert(folders.begin(), folders.end());
  EXPECT_EQ(all, Find("*", -1)) << "all but symbolic links";
  EXPECT_EQ((TFound{{"a.log", 0}, {".x.log", kHidden}}), Find("*.log", kHidden + kReadOnly));
  EXPECT_EQ((TFound{{"B.LOG", 0}, {"pipe", AttrSystem}}), Find("[!a-d]*", AttrSystem + kReadOnly));
  EXPECT_EQ(folders, Find("", AttrAny, TReadOnly::kUnseen, TFolders::kAll));
}

TEST_F(SearchTest, LooksUpWhetherAnEntryIsReadOnlyUnlessToldNotTo) {
  std::thread([&] {
    syscall(SYS_setresuid, 65534, 65534, 65534);  // this thread alone; the superuser may write all
    const TFound writable = {{"a.log", 0}}, both = {{"a.log", 0}, {"B.LOG", kReadOnly}};
    EXPECT_EQ(both, Find("[aB]*", kReadOnly + 0x100, TReadOnly::kSeen)) << "an unknown bit";
    EXPECT_EQ((TFound{{"a.log", 0}, {"B.LOG", 0}}), Find("[aB]*", AttrAny));
    EXPECT_EQ(writable, Find("[aB]*", 0, TReadOnly::kUnseen));
    EXPECT_EQ(writable, Find("[aB]*", 0, TReadOnly::kSeen));
    TSearchRec rec;
    EXPECT_EQ(EACCES, FindFirst(folder.Path(".hidden/*").c_str(), AttrAny, rec));
  }).join();
}

TEST_F(SearchTest, TellsTheFactsOfAnEntry) {
  const timespec times[2] = {{5, 0}, {1234567890, 5}};
  utimensat(AT_FDCWD, folder.Path("a.log").c_str(), times, 0);
  const TWorkingFolder here(folder.Path());
  TSearchRec rec;
  const int next = TFd(dup(STDIN_FILENO)).Get();
  ASSERT_EQ(0, FindFirst("a.log", 0, rec)) << "no folder: the working one";
  EXPECT_EQ(std::tuple(5, 1234567890, S_IFREG | 0666u, folder.Path() + '/'),
            std::tuple(rec.ByteSize, rec.ModifiedTime, rec.ModeBits, ToStd(rec.SearchDir)));
  EXPECT_EQ(-1, FindNext(rec));
  EXPECT_NE(nullptr, rec.DirStream) << "the caller closes";
  FindClose(rec);
  EXPECT_EQ(ENOENT, FindFirst("missing/*", AttrAny, rec));
  EXPECT_EQ(-1, FindFirst("none", AttrAny, rec));
  EXPECT_EQ(-1, FindNext(rec));
  EXPECT_EQ(next, TFd(dup(STDIN_FILENO)).Get()) << "a folder was left open";
}

TEST_F(SearchTest, SkipsEntriesWhoseFullNameIsTooLong) {
  const std::string level(100, 'd');
  const TWorkingFolder here(folder.Path());
  std::string path = folder.Path();
  for (; path.size() + level.size() < 4000; path += '/' + level) {
    mkdir(level.c_str(), 0700);
    ASSERT_EQ(0, chdir(level.c_str()));
  }
  const std::string fits(4095 - path.size() - 1, 'x');
  for (const std::string& name : {fits, fits + 'x'}) ASSERT_TRUE(CreateFresh(name.c_str()));
  TSearchRec rec;
  const TSearchCloser closer(rec);
  ASSERT_EQ(0, FindFirst(ToString(path), "*", 0, rec));
  EXPECT_EQ(fits, rec.EntryName);
  EXPECT_EQ(-1, FindNext(rec));
}

TEST_F(SearchTest, TellsFactsOfPathsAndReadsFiles) {
  struct stat facts;
  char buf[9] = {};
  for (const auto& [name, isFile, isFolder, size] : {std::tuple("link.log", true, false, 5),
                                                     {"none", false, false, -1},
                                                     {"pipe", false, false, 0},
                                                     {"dirlink", false, true, 0}}) {
    const std::string full = folder.Path(name);
    const char* path = full.c_str();
    EXPECT_EQ(std::pair(isFile, isFolder), std::pair(FileExists(path), DirectoryExists(path)));
    EXPECT_EQ(isFile, IsRegularFile(OpenForReading(path).Get(), facts)) << path;
    EXPECT_TRUE(isFolder || FileSize(path) == size) << path;
    EXPECT_EQ(size < 0, FileAge(path) == -1) << path;
  }
  const TFd file = OpenForReading(folder.Path("a.log").c_str());
  EXPECT_EQ(7, ReadAt(file.Get(), buf, 9, 3) + ReadFully(file.Get(), buf, 9));
  EXPECT_STREQ("12345", buf);
  EXPECT_EQ(-2, ReadAt(-1, buf, 1, 0) + ReadFully(-1, buf, 1));
  EXPECT_EQ(2, write(CreateFresh(folder.Path("link.log").c_str()).Get(), "ab", 2));
  EXPECT_EQ("12345ab", ReadFile(folder.Path("a.log")) + ReadFile(folder.Path("link.log")));
  EXPECT_TRUE(DeleteFile(folder.Path("pipe").c_str()) && !DeleteFile(folder.Path("dir").c_str()));
}

#include "fs/search.h"

#include <errno.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "fs/files.h"
#include "fs/paths.h"
#include "support/scopes.h"

using testing::UnorderedElementsAre;

namespace {

class SearchTest : public testing::Test {
 protected:
  SearchTest() {
    folder.File("a.log", "12345");
    folder.File(".x.log", "123");
    folder.File("B.LOG");
    folder.Folder("dir");
    folder.Folder(".hidden");
    mkfifo(folder.Path("pipe").c_str(), 0600);
    std::filesystem::create_symlink("dir", folder.Path("dirlink"));
    std::filesystem::create_symlink("a.log", folder.Path("link.log"));
    std::filesystem::create_symlink("nowhere", folder.Path("broken"));
  }

  std::vector<std::string> Find(const std::string& mask, int attr,
                                TReadOnly readOnly = TReadOnly::kSeen,
                                TFolders folders = TFolders::kMasked) {
    std::vector<std::string> names;
    found.clear();
    TSearchRec rec;
    const TSearchCloser closer(rec);
    const String path = ToString(folder.Path(mask));
    int r = FindFirst(ExtractFilePath(path), ExtractFileName(path), attr, rec, readOnly, folders);
    for (; r == 0; r = FindNext(rec)) {
      names.emplace_back(rec.EntryName);
      found[rec.EntryName] = rec.Attributes;
    }
    return names;
  }

  TTempDir folder;
  std::map<std::string, int> found;  ///< attributes by name
};

}  // namespace

TEST_F(SearchTest, ReportsWhatTheMaskAndTheAttributesAskFor) {
  EXPECT_THAT(Find("*", 0), UnorderedElementsAre("a.log", "B.LOG"));
  EXPECT_THAT(Find("*.log", 0), UnorderedElementsAre("a.log"));
  EXPECT_THAT(Find("*.log", AttrHidden), UnorderedElementsAre("a.log", ".x.log"));
  EXPECT_THAT(Find("a*", AttrDirectory, TReadOnly::kSeen, TFolders::kAll),
              UnorderedElementsAre("a.log", ".", "..", "dir"));
  EXPECT_THAT(Find("[!a-z]?LOG", 0), UnorderedElementsAre("B.LOG"));
  EXPECT_THAT(Find("*", AttrDirectory), UnorderedElementsAre("a.log", "B.LOG", ".", "..", "dir"));
  EXPECT_THAT(Find("*", AttrSystem), UnorderedElementsAre("a.log", "B.LOG", "pipe"));
  Find("*", -1);  // all but symbolic links
  constexpr int kDir = AttrDirectory;
  const std::map<std::string, int> expected = {
      {".", kDir},  {"..", kDir},  {"a.log", 0},         {".x.log", AttrHidden},
      {"B.LOG", 0}, {"dir", kDir}, {"pipe", AttrSystem}, {".hidden", kDir + AttrHidden}};
  EXPECT_EQ(expected, found);
}

TEST_F(SearchTest, TellsTheFactsOfAnEntry) {
  const std::string path = folder.Path("a.log");
  chmod(path.c_str(), 0640);
  const timespec times[2] = {{5, 0}, {1234567890, 5}};
  utimensat(AT_FDCWD, path.c_str(), times, 0);
  TSearchRec rec;
  ASSERT_EQ(0, FindFirst(ToString(folder.Path()), "a.log", 0, rec));
  const TSearchCloser closer(rec);
  EXPECT_EQ(5, rec.ByteSize);
  EXPECT_EQ(1234567890, rec.ModifiedTime);
  EXPECT_EQ(S_IFREG | 0640u, rec.ModeBits);
  EXPECT_EQ(folder.Path() + '/', ToStd(rec.SearchDir));
  EXPECT_EQ(-1, FindNext(rec));
  EXPECT_NE(nullptr, rec.DirStream) << "the caller closes";
  EXPECT_EQ(1234567890, FileAge(path.c_str()));
  EXPECT_EQ(5, FileSize(folder.Path("link.log").c_str()));
}

TEST_F(SearchTest, LooksUpWhetherAnEntryIsReadOnlyUnlessToldNotTo) {
  const std::string path = folder.Path("B.LOG");
  chmod(path.c_str(), 0444);
  const int readOnly = access(path.c_str(), W_OK) != 0 ? AttrReadOnly : 0;  // 0 for root
  Find("*.LOG", AttrAny);
  EXPECT_EQ(readOnly, found["B.LOG"]);
  EXPECT_EQ(readOnly != 0 ? 0u : 1u, Find("*.LOG", 0, TReadOnly::kUnseen).size());
  Find("*.LOG", AttrAny, TReadOnly::kUnseen);
  EXPECT_EQ(0, found["B.LOG"]);
  Find("*.LOG", AttrAny + 0x100);
  EXPECT_EQ(readOnly, found["B.LOG"]) << "other bits have no effect";
}

TEST_F(SearchTest, LeavesNothingOpenWithoutAnEntry) {
  TSearchRec rec;
  EXPECT_EQ(ENOENT, FindFirst(ToString(folder.Path("missing")), "*", AttrAny, rec));
  EXPECT_EQ(ENOTDIR, FindFirst(ToString(folder.Path("a.log")), "*", AttrAny, rec));
  EXPECT_EQ(-1, FindFirst(ToString(folder.Path()), "none", AttrAny, rec));
  EXPECT_EQ(nullptr, rec.DirStream);
  EXPECT_EQ(-1, FindNext(rec));
  FindClose(rec);
}

TEST_F(SearchTest, SkipsEntriesWhoseFullNameIsTooLong) {
  const std::string level(100, 'd');
  std::string path = folder.Path();
  std::optional<TWorkingFolder> here(path);
  while (path.size() + level.size() < 4000) {
    mkdir(level.c_str(), 0700);
    std::filesystem::current_path(level);
    path += '/' + level;
  }
  const std::string fits(4095 - path.size() - 1, 'x');
  for (const std::string& name : {fits, fits + 'x'}) ASSERT_TRUE(std::ofstream(name) << name);
  here.reset();
  TSearchRec rec;
  ASSERT_EQ(0, FindFirst(ToString(path), "*", AttrAny - AttrDirectory, rec));
  const TSearchCloser closer(rec);
  EXPECT_EQ(fits, rec.EntryName);
  EXPECT_EQ(-1, FindNext(rec));
}

TEST_F(SearchTest, PredicatesFollowLinks) {
  const std::tuple<const char*, bool, bool> cases[] = {
      {"a.log", true, false},   {"link.log", true, false}, {"dir", false, true},
      {"dirlink", false, true}, {"pipe", false, false},    {"broken", false, false}};
  for (const auto& [name, isFile, isFolder] : cases) {
    EXPECT_EQ(isFile, FileExists(folder.Path(name).c_str())) << name;
    EXPECT_EQ(isFolder, DirectoryExists(folder.Path(name).c_str())) << name;
  }
  EXPECT_EQ(-1, FileAge(folder.Path("broken").c_str()));
  EXPECT_TRUE(DeleteFile(folder.Path("broken").c_str()));
  EXPECT_FALSE(DeleteFile(folder.Path("dir").c_str()));
}

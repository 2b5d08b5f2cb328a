#include "checks/files/diskfolder.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "support/handlercall.h"
#include "support/scopes.h"

namespace {

TEST(DiskFolder, MeasuresAFileSystem) {
  double total = 0, free = 0, avail = 0;
  struct statfs facts;
  ASSERT_EQ(0, statfs("/", &facts));
  ASSERT_EQ(1, GetUNCDriveInfo("/", total, free, avail));
  EXPECT_EQ(static_cast<double>(facts.f_blocks) * static_cast<double>(facts.f_bsize), total);
  EXPECT_LE(avail, free);
  EXPECT_LT(free, total);
  const TEnabledTests enabled;
  ExpectReplies(ProcessTest_UNC, {{{{1, "/proc/self\\"}}, "200\n     0\n     0\n     0\n"},
                                  {{{1, "/proc/self\\\\"}}, "301\n"},
                                  {{{1, "\\"}}, "501\nPath not specified"}});
}

TEST(DiskFolder, AddsUpTheFilesThatMatch) {
  const TEnabledTests enabled;
  const TTempDir dir;
  dir.File("a.txt", "1");
  dir.File(".hidden.txt", "22");
  dir.File("b.log", "333");
  dir.File("sub/c.txt", "4444");
  dir.File("sub/deep.txt/d.txt", "55555");  // a folder whose name the mask fits is no file
  dir.File("sub/with blank \xE9\x0B/e.log", "666666");
  dir.Folder("empty");
  ASSERT_EQ(0, symlink("..", dir.Path("sub/up").c_str()));
  ASSERT_EQ(0, symlink("b.log", dir.Path("link.log").c_str()));
  ASSERT_EQ(0, mkfifo(dir.Path("fifo").c_str(), 0600));
  const std::filesystem::path sub = dir.Path("sub");
  last_write_time(sub, last_write_time(sub) + std::chrono::hours(1));
  const auto call = [&dir](const char* path, bool recurse) {
    return TParams{{1, dir.Path(path)}, {2, recurse ? "1" : "0"}, {8, "1"}};
  };
  const std::string denied = "301\nFolder/File doesn`t exist or access denied";
  ExpectReplies(ProcessTest_FolderSize,
                {{call("", false), "200\n     6\n"},
                 {call("", true), "200\n    21\n"},
                 {call("*.txt", false), "200\n     3\n"},
                 {call("*.txt", true), "200\n    12\n"},
                 {call("b.log", false), "200\n     3\n"},
                 {call("sub/up", false), "200\n     6\n"},  // the folder itself may be a link
                 {call("[!a]*.txt", false), "200\n     2\n"},
                 {call("none*", true), "200\n     0\n"},
                 {call("empty", false), "200\n     0\n"},
                 {call("deep.txt", true), "200\n     5\n"},  // "sub" holds a folder of that name
                 {call("%NewestFolder%/*.txt", true), "200\n     9\n"},
                 {call("missing/x", true), denied},
                 {call("b.log/x", true), denied}});
  ASSERT_EQ(0, truncate(dir.Path("a.txt").c_str(), 5'000'000'001));
  EXPECT_EQ(5'000'000'001.0, GetFolderSize(ToString(dir.Path("a.txt")), 0));
}

/// The last folders lie deeper than one path can name.
TEST(DiskFolder, DepthCostsNeitherDescriptorsNorBytes) {
  const TTempDir dir;
  {
    const TWorkingFolder top(dir.Path());
    for (int level = 0; level < 1300; ++level) {
      if (level % 10 == 0 && mkdir("side", 0700) == 0) std::ofstream("side/f") << "abc";
      EXPECT_EQ(0, mkdir("deep", 0700) | chdir("deep"));
    }
  }
  rlimit former;
  getrlimit(RLIMIT_NOFILE, &former);
  const rlimit lowered{32, former.rlim_max};
  setrlimit(RLIMIT_NOFILE, &lowered);
  EXPECT_EQ(390.0, GetFolderSize(ToString(dir.Path()), 1));
  EXPECT_EQ(390.0, GetFolderSize(ToString(dir.Path("f*")), 1));
  setrlimit(RLIMIT_NOFILE, &former);
  EXPECT_EQ(0, system(("rm -rf " + dir.Path("deep")).c_str()));
}

}  // namespace

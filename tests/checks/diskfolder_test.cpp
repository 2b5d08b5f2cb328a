#include "checks/diskfolder.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "core/owned.h"
#include "support/handlercall.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

/// Lowers the number of descriptors that the process may open while it lives.
class TDescriptorLimit {
 public:
  explicit TDescriptorLimit(rlim_t limit) {
    getrlimit(RLIMIT_NOFILE, &former_);
    const rlimit lowered{limit, former_.rlim_max};
    setrlimit(RLIMIT_NOFILE, &lowered);
  }
  ~TDescriptorLimit() { setrlimit(RLIMIT_NOFILE, &former_); }

 private:
  rlimit former_;
};

/// A chain of folders "deep/deep/...", every tenth with a folder "side" beside the next that holds
/// a file "f" of 3 bytes. Removed again from its end.
class TFolderChain {
 public:
  TFolderChain(const std::string& folder, int levels) : last_(Open(AT_FDCWD, folder.c_str())) {
    while (levels_ < levels) {
      if (levels_ % 10 == 0) {
        mkdirat(last_.Get(), "side", 0700);
        const TFd file(openat(last_.Get(), "side/f", O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
        if (write(file.Get(), "abc", 3) != 3) return;
      }
      if (mkdirat(last_.Get(), "deep", 0700) != 0) return;
      ++levels_;
      last_ = Open(last_.Get(), "deep");
    }
    complete_ = true;
  }
  ~TFolderChain() {
    for (; levels_ > 0; --levels_) {
      last_ = Open(last_.Get(), "..");
      unlinkat(last_.Get(), "deep", AT_REMOVEDIR);
      unlinkat(last_.Get(), "side/f", 0);
      unlinkat(last_.Get(), "side", AT_REMOVEDIR);
    }
  }
  bool Complete() const { return complete_; }

 private:
  static TFd Open(int at, const char* path) {
    return TFd(openat(at, path, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  }

  TFd last_;
  int levels_ = 0;
  bool complete_ = false;
};

std::string Bytes(double size) {
  QovReply reply;
  reply.AddIntParam(size);
  return "200\n" + ToStd(reply);
}

TEST(DiskFolder, MeasuresAFileSystem) {
  const TEnabledTests enabled;
  double total = 0;
  double free = 0;
  double avail = 0;
  struct statfs facts;
  ASSERT_EQ(0, statfs("/proc/self", &facts));  // a file system whose numbers stand still
  ASSERT_EQ(1, GetUNCDriveInfo("/proc/self", total, free, avail));
  const double blockBytes = static_cast<double>(facts.f_bsize);
  EXPECT_EQ(static_cast<double>(facts.f_blocks) * blockBytes, total);
  EXPECT_EQ(static_cast<double>(facts.f_bfree) * blockBytes, free);
  EXPECT_EQ(static_cast<double>(facts.f_bavail) * blockBytes, avail);

  const std::string sizes = CallHandler(ProcessTest_UNC, {{1, "/proc/self"}});
  EXPECT_EQ("200\n     0\n     0\n     0\n", sizes);
  EXPECT_EQ(sizes, CallHandler(ProcessTest_UNC, {{1, "/proc/self\\"}}));
  EXPECT_EQ("501\nPath not specified", CallHandler(ProcessTest_UNC, {}));
  EXPECT_EQ("501\nPath not specified", CallHandler(ProcessTest_UNC, {{1, "\\"}}));
  EXPECT_EQ("301\n", CallHandler(ProcessTest_UNC, {{1, "/proc/self\\\\"}}));
  const TEnabledTests disabled(0);
  EXPECT_EQ("600\ntest is not allowed", CallHandler(ProcessTest_UNC, {{1, "/"}}));
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
  const std::string denied = "301\nFolder/File doesn`t exist or access denied";
  const struct {
    std::string path;
    const char* recurse;
    std::string reply;
  } cases[] = {
      {dir.Path(), "0", Bytes(6)},
      {dir.Path() + "/", "1", Bytes(21)},
      {dir.Path("*.txt"), "0", Bytes(3)},
      {dir.Path("*.txt"), "1", Bytes(12)},
      {dir.Path("b.log"), "0", Bytes(3)},
      {dir.Path("sub/up"), "0", Bytes(6)},  // the folder itself may be a link
      {dir.Path("[!a]*.txt"), "0", Bytes(2)},
      {dir.Path("none*"), "1", Bytes(0)},
      {dir.Path("empty"), "0", Bytes(0)},
      {dir.Path("deep.txt"), "1", Bytes(5)},  // "sub" holds a folder named like the mask
      {dir.Path("missing/x"), "1", denied},
      {dir.Path("b.log/x"), "1", denied},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.path + " " + c.recurse);
    EXPECT_EQ(c.reply, CallHandler(ProcessTest_FolderSize, {{1, c.path}, {2, c.recurse}}));
  }
  const std::filesystem::path sub = dir.Path("sub");
  last_write_time(sub, last_write_time(sub) + std::chrono::hours(1));
  const TParams macro{{1, dir.Path("%NewestFolder%/*.txt")}, {2, "1"}, {8, "1"}};
  EXPECT_EQ(Bytes(9), CallHandler(ProcessTest_FolderSize, macro));
  const TEnabledTests disabled(0);
  EXPECT_EQ("600\ntest is not allowed", CallHandler(ProcessTest_FolderSize, {{1, "/"}}));
}

TEST(DiskFolder, MeasuresSizesAbove32Bits) {
  const TTempDir dir;
  ASSERT_EQ(0, truncate(dir.File("sparse").c_str(), 5'000'000'001));
  EXPECT_EQ(5'000'000'001.0, GetFolderSize(ToString(dir.Path()), 0));
}

/// The last folders lie deeper than one path can name.
TEST(DiskFolder, DepthCostsNeitherDescriptorsNorBytes) {
  const TTempDir dir;
  const TFolderChain chain(dir.Path(), 1300);
  ASSERT_TRUE(chain.Complete());
  const TDescriptorLimit limit(32);
  EXPECT_EQ(390.0, GetFolderSize(ToString(dir.Path()), 1));
  EXPECT_EQ(390.0, GetFolderSize(ToString(dir.Path("f*")), 1));
}

}  // namespace

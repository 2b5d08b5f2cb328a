#include "checks/files/pathmacros.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/scopes.h"

namespace {

void SetTime(const std::string& path, time_t modified) {
  const timespec times[2] = {{modified, 0}, {modified, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
}

TEST(PathMacros, NameTheYoungestAndOldest) {
  const TTempDir dir;
  SetTime(dir.File("logs/Old/a.log"), 100);
  SetTime(dir.File("logs/Old/b.log"), 50);
  SetTime(dir.File("logs/New/.hidden %oldestfile%"), 300);
  SetTime(dir.File("logs/top"), 10);
  ASSERT_EQ(0, symlink("top", dir.Path("logs/link").c_str()));
  SetTime(dir.Path("logs/Old"), 5);
  SetTime(dir.Path("logs/New"), 2000);
  dir.Folder("empty");
  const struct {
    const char *path, *resolved;
  } cases[] = {
      {"logs/%newestfolder%", "logs/New"},
      {"logs/%OldestFolder%/%newestFILE%", "logs/Old/a.log"},
      {"logs/%oldestfolder%/%oldestfile%.gz", "logs/Old/b.log.gz"},
      {"logs/%newestfile%", "logs/top"},  // neither a folder nor a link
      {"logs/%newestfolder%/%newestfile%", "logs/New/.hidden %oldestfile%"},
      {"logs/%newestfolder%/%newestfolder%", "logs/%newestfolder%/%newestfolder%"},
      {"empty/%newestfile%", "empty/%newestfile%"},
      {"logs/%oldestfile%", "logs/top"},
      {"logs%newestfile%", "logstop"},  // the macro's folder is all that stands before it
      {"logs/%newest%", "logs/%newest%"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(ToString(dir.Path(c.resolved)),
              GetFileUsingSpecialMacros(ToString(dir.Path(c.path))));
  }
  // An entry as old as the epoch is taken for none.
  SetTime(dir.Path("logs/Old/b.log"), 0);
  SetTime(dir.Path("logs/Old/a.log"), 0);
  dir.File("logs/Old/c.log");
  EXPECT_EQ(ToString(dir.Path("logs/Old/c.log")),
            GetFileUsingSpecialMacros(ToString(dir.Path("logs/Old/%newestfile%"))));
}

TEST(PathMacros, FirstMatchIsNeverAFolder) {
  const TTempDir dir;
  dir.Folder("a.log");
  const String file = ToString(dir.File("b [1]\xE9.log"));
  EXPECT_EQ(file, GetFirstMatchedFile(ToString(dir.Path("*.log"))));
  EXPECT_EQ(file, GetFirstMatchedFile(ToString(dir.Path("b [[]1]*.log"))));
  EXPECT_EQ("", GetFirstMatchedFile(file));  // a name is a mask: [1] stands for 1
  EXPECT_EQ("", GetFirstMatchedFile(ToString(dir.Path("a.log"))));
  EXPECT_EQ("", GetFirstMatchedFile(ToString(dir.Path("missing/x"))));
}

}  // namespace

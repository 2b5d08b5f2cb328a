#include "checks/tempfile.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "support/environment.h"
#include "support/tempdir.h"

namespace {

/// The path chosen for `name`, "" on failure.
std::string Chosen(const char* name, int size = 512) {
  char buf[2048];
  memset(buf, 'x', sizeof buf);
  const int result = gettempfilename(buf, size, name);
  EXPECT_EQ(result == 1, buf[0] != 0);
  EXPECT_EQ('x', buf[size]) << "wrote behind the buffer";
  return buf;
}

/// The counter's value in a unique name.
long NumberOf(const std::string& path) {
  const std::string prefix = "./tmp-" + std::to_string(GetUniqueThreadID()) + "-";
  EXPECT_EQ(prefix, path.substr(0, prefix.size()));
  return atol(path.c_str() + prefix.size());
}

TEST(GetTempFileName, TakesTheFolderFromTheEnvironment) {
  const TEnvironment tmpdir("TMPDIR", nullptr);
  const TEnvironment tmp("TMP", nullptr);
  EXPECT_EQ("./n", Chosen("n"));
  const TEnvironment tmpSet("TMP", "/b");
  EXPECT_EQ("/b/n", Chosen("n"));
  const TEnvironment tmpdirSet("TMPDIR", "/a");
  EXPECT_EQ("/a/n", Chosen("n"));
}

TEST(GetTempFileName, RefusesFoldersThatDoNotFitAndCutsNames) {
  const TEnvironment folder("TMPDIR", "/folder");
  EXPECT_EQ("/folder/123456789012345", Chosen("1234567890123456", 24));
  EXPECT_EQ("", Chosen("n", 23));
  EXPECT_EQ(0, gettempfilename(nullptr, 512, "n"));
  char buf[15] = "kept";
  EXPECT_EQ(0, gettempfilename(buf, sizeof buf, "n"));
  EXPECT_STREQ("kept", buf);
  const TEnvironment longFolder("TMPDIR", std::string(1100, 'd').c_str());
  EXPECT_EQ("", Chosen(nullptr, 2000)) << "no room for a number";
}

TEST(GetTempFileName, CountsUniqueNamesAndPassesOverFiles) {
  const TTempDir dir;
  const TWorkingFolder inside(dir.Path());
  const TEnvironment tmpdir("TMPDIR", nullptr);
  const TEnvironment tmp("TMP", nullptr);
  const long first = NumberOf(Chosen(nullptr));
  const std::string taken = "./tmp-" + std::to_string(GetUniqueThreadID()) + "-";
  dir.File(taken + std::to_string(first + 1));
  EXPECT_EQ(first + 2, NumberOf(Chosen(nullptr)));
  long last = first;
  for (int i = 0; i < 1000000 && last < 1000000; ++i) last = NumberOf(Chosen(nullptr));
  EXPECT_EQ(1000000, last);
  EXPECT_EQ(1, NumberOf(Chosen(nullptr)));
}

TEST(TempFile, NeverFollowsAPlantedLinkAndLeavesNothing) {
  const TTempDir dir;
  const TEnvironment folder("TMPDIR", dir.Path().c_str());
  const std::string victim = dir.File("victim", "untouched");
  const std::string path = dir.Path("name");
  ASSERT_EQ(0, symlink(victim.c_str(), path.c_str()));
  {
    TTempFile file;
    ASSERT_TRUE(file.Choose("name"));
    EXPECT_EQ(path, file.Path());
    ASSERT_EQ(0, symlink(victim.c_str(), path.c_str()));
    EXPECT_FALSE(file.Create()) << "planted after the choice";
    EXPECT_EQ(nullptr, file.OpenText());
    ASSERT_EQ(0, unlink(path.c_str()));
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    EXPECT_EQ(nullptr, file.OpenText()) << "a pipe, which would block";
    ASSERT_EQ(0, unlink(path.c_str()));
    struct stat facts;
    ASSERT_TRUE(file.Create());
    ASSERT_EQ(0, stat(path.c_str(), &facts));
    EXPECT_EQ(S_IFREG | 0600u, facts.st_mode);
    EXPECT_NE(nullptr, file.OpenText());
  }
  EXPECT_NE(0, access(path.c_str(), F_OK));
  EXPECT_EQ("untouched", ReadFile(victim));
}

}  // namespace

#include "checks/process/tempfile.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/scopes.h"

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

TEST(GetTempFileName, RefusesFoldersThatDoNotFitAndCutsNames) {
  const TEnvironment tmp("TMP", nullptr);
  const TEnvironment none("TMPDIR", nullptr);
  EXPECT_EQ("./n", Chosen("n"));
  const TEnvironment folder("TMPDIR", "/folder");
  EXPECT_EQ("/folder/123456789012345", Chosen("1234567890123456", 24));
  EXPECT_EQ("", Chosen("n", 23));
  char buf[15] = "kept";
  EXPECT_EQ(0, gettempfilename(buf, sizeof buf, "n"));
  EXPECT_STREQ("kept", buf);
  const TEnvironment longFolder("TMPDIR", std::string(1100, 'd').c_str());
  EXPECT_EQ("", Chosen(nullptr, 2000)) << "no room for a number";
}

TEST(GetTempFileName, CountsUniqueNamesAndPassesOverFiles) {
  const TTempDir dir;
  const TEnvironment folder("TMPDIR", dir.Path().c_str());
  const std::string prefix = dir.Path("tmp-" + std::to_string(GetUniqueThreadID()) + "-");
  long number = stol(Chosen(nullptr).substr(prefix.size()));
  dir.File(prefix.substr(dir.Path().size() + 1) + std::to_string(number + 1));
  for (number += 2; number <= 1000000; ++number) {
    ASSERT_EQ(prefix + std::to_string(number), Chosen(nullptr));
  }
  EXPECT_EQ(prefix + "1", Chosen(nullptr));
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

TEST(TempFile, GoesWithTheProcessOnlyWhenAnotherProgramTakesOver) {
  const TTempDir dir;
  const TEnvironment folder("TMPDIR", dir.Path().c_str());
  char program[] = "/bin/true";
  char* const argv[] = {program, nullptr};
  const pid_t pid = fork();
  if (pid == 0) {
    TTempFile first, second;
    const bool made = first.Choose("first") && first.Create();
    const int missing = ExecuteAndRemoveTempFiles("/no/such", argv, environ);
    const int denied = ExecuteAndRemoveTempFiles("/", argv, environ);
    const bool noChildLeft = waitpid(-1, nullptr, WNOHANG) == -1;
    const bool stays =
        access(first.Path(), F_OK) == 0 && second.Choose("second") && second.Create();
    if (made && missing == ENOENT && denied == EACCES && noChildLeft && stays) {
      ExecuteAndRemoveTempFiles(program, argv, environ);
    }
    _exit(1);
  }
  int status;
  ASSERT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_EQ(0, status);
  int tries = 1000;
  while (--tries > 0 && rmdir(dir.Path().c_str()) != 0) usleep(10000);
  EXPECT_GT(tries, 0) << "files are left";
}

}  // namespace

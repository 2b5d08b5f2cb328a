#include "checks/files/filelist.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/handlercall.h"
#include "support/scopes.h"

namespace {

TEST(FileList, ListsFoldersThenFiles) {
  const TEnabledTests enabled;
  const TTempDir dir;
  dir.File("only/a.log", "123");
  dir.File("only/sub/x");
  dir.File("only/.hidden/x");
  ASSERT_EQ(0, mkfifo(dir.Path("only/pipe.log").c_str(), 0600));
  ASSERT_EQ(0, symlink("a.log", dir.Path("only/link.log").c_str()));
  const std::string folder = dir.Path("only/");
  const auto list = [&](TParams params) { return CallHandler(ProcessInfo_GetFileList, params); };
  const std::string head = "200\n" + folder + "\n";
  const TParams files{{1, folder}, {2, "*.log"}, {4, "1"}};
  ExpectReplies(ProcessInfo_GetFileList,
                {{files, head + "1\n2\na.log\n0\n"},
                 {{{1, folder}}, head + "0\n2\n"},
                 // A path that is no folder lists the folder that it lies in.
                 {{{1, folder + "a.log"}, {2, "*.log"}, {4, "1"}}, head + "1\n2\na.log\n0\n"},
                 {{{1, folder + "missing/"}, {4, "1"}}, "200\n" + folder + "missing/\n0\n2\n"}});
  TParams folders{{1, folder.substr(0, folder.size() - 1)}, {2, "*.log"}, {3, "1"}};
  EXPECT_THAT(list(folders),
              testing::AnyOf(head + "2\n2\nsub\n16\n..\n16\n", head + "2\n2\n..\n16\nsub\n16\n"));
  folders[5] = "1";
  EXPECT_THAT(list(folders), testing::HasSubstr("\n.hidden\n18\n"));

  TParams columns{{1, folder}, {2, "a*"}, {3, "1"}, {4, "1"}, {7, "1"}, {8, "1"}, {9, "1"}};
  EXPECT_THAT(list(columns),
              testing::MatchesRegex("200\n/.*/\n3\n5\n(.*\n.*\n.*\n.{14}\n.{14}\n){2}"
                                    "a.log\n0\n     3\n[0-9]{14}\n[0-9]{14}\n"));
  columns = files;
  columns[6] = "1";
  EXPECT_THAT(list(columns), testing::HasSubstr("\npipe.log\n4\n"));
}

}  // namespace

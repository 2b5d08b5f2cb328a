#include "checks/filetests.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "support/handlercall.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

void MakeOlder(const std::string& path, int seconds) {
  const timespec times[2] = {{time(nullptr) - seconds, 0}, {time(nullptr) - seconds, 0}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, path.c_str(), times, 0));
}

class FileTests : public testing::Test {
 protected:
  const TEnabledTests enabled_;
  const TTempDir dir_;
};

TEST_F(FileTests, TellsTheFactsOfAFile) {
  const std::string file = dir_.File("with\nfeed.txt", "12345");
  MakeOlder(file, 7 * 60 + 30);
  const TParams byMask{{1, dir_.Path("*.txt")}};
  const std::string escaped = dir_.Path("with%0Afeed.txt");
  EXPECT_THAT(
      CallHandler(ProcessTest_FileExists, byMask),
      testing::MatchesRegex("200\n     5\n[0-9]{14}\n[0-9]{14}\n" + escaped + "\nmin\n7\n"));
  ASSERT_EQ(0, symlink("missing", dir_.Path("link").c_str()));
  EXPECT_THAT(CallHandler(ProcessTest_FileExists, {{1, dir_.Path("link")}}),
              testing::MatchesRegex("200\n     7\n(.|\n)*link\nmin\n0\n"));
  EXPECT_THAT(CallHandler(ProcessTest_FileExists, {{1, dir_.Path("%newestfile%")}, {7, "1"}}),
              testing::HasSubstr(escaped));
  for (const char* name : {"%newestfile%", "missing", "l*"}) {
    EXPECT_EQ("301\nno such file or acess denied",
              CallHandler(ProcessTest_FileExists, {{1, dir_.Path(name)}}));
  }
}

TEST_F(FileTests, Compares) {
  const std::string a = dir_.File("a", "abc");
  const std::string same = dir_.File("same", "abc");
  const std::string longer = dir_.File("longer", "abcdef");
  const std::string words = dir_.File("words", "a concat %0A Cat");
  const std::string newest = dir_.Path("%newestfile%");
  const std::string empty = dir_.File("new/empty");
  const std::string big = dir_.File("big");
  ASSERT_EQ(0, truncate(big.c_str(), 8'388'608));
  const std::string tooBig = dir_.File("toobig");
  ASSERT_EQ(0, truncate(tooBig.c_str(), 8'388'609));
  MakeOlder(same, 5000);
  MakeOlder(big, -5000);
  const struct {
    TParams params;
    const char* reply;
  } cases[] = {
      {{{1, "1"}, {2, a}, {3, longer}}, "200\n1\n"},
      {{{1, "1"}, {2, a}, {3, longer}, {6, "1"}}, "200\n1\n"},  // one leads the other
      {{{1, "1"}, {2, a}, {3, longer}, {5, "1"}, {6, "1"}}, "200\n0\n"},
      {{{1, "1"}, {2, a}, {3, same}, {5, "1"}, {6, "1"}}, "200\n1\n"},
      {{{1, "1"}, {2, a}, {3, same}, {4, "1"}, {6, "1"}}, "200\n0\n"},
      {{{1, "1"}, {2, "/proc/self/mem"}, {3, a}, {6, "1"}}, "301\nI/O Error"},
      {{{1, "1"}, {2, a}, {3, dir_.Path("missing")}}, "301\nFile doesn`t exist"},
      {{{1, "1"}, {2, newest}, {3, newest}, {12, "1"}}, "301\nFile doesn`t exist"},
      {{{1, "1"}, {2, newest}, {3, newest}, {12, "1"}, {13, "1"}, {6, "1"}}, "200\n1\n"},
      {{{1, "2"}, {2, words}, {3, "cat"}, {4, "1"}}, "200\n1\n"},
      {{{1, "2"}, {2, words}, {3, "cat"}, {4, "1"}, {5, "1"}}, "200\n0\n"},
      {{{1, "2"}, {2, words}, {3, "cat"}, {5, "1"}}, "200\n1\n"},
      {{{1, "2"}, {2, words}, {3, "%0A"}}, "200\n1\n"},  // taken as it stands
      {{{1, "2"}, {2, words}}, "301\nI/O Error"},
      {{{1, "2"}, {2, newest}, {3, "x"}, {9, "1"}}, "200\n0\n"},
      {{{1, "3"}, {2, longer}, {3, a}}, "200\n1\n"},
      {{{1, "3"}, {2, a}, {3, longer}}, "200\n0\n"},
      {{{1, "3"}, {2, a}, {3, empty}}, "200\n1\n"},
      {{{1, "3"}, {2, newest}, {3, big}, {11, "1"}}, "200\n1\n"},
      {{{1, "3"}, {2, a}, {3, tooBig}}, "301\nThe size of the second file cannot exceed 8Mb"},
      {{{1, "3"}, {2, a}, {3, newest}, {12, "1"}}, "301\nFile doesn`t exist"},
      {{{1, "4"}, {2, newest}, {12, "1"}}, "501\nWrong parameter"},
      {{{1, "4"}, {2, newest}}, "301\nFile doesn`t exist"},
      {{{1, "01"}, {2, a}}, "501\nWrong parameter"},
      {{{1, "1"}, {2, dir_.Path()}}, "301\nFile doesn`t exist"},
  };
  int row = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(++row);
    EXPECT_EQ(c.reply, CallHandler(ProcessTest_FileCompare, c.params));
  }
}

TEST_F(FileTests, Counts) {
  const std::string old = dir_.File("old.log", "12345");
  MakeOlder(old, 61 * 60);
  dir_.File("new.log", "1234567");
  dir_.File("sub/deep/x.log", "123456");
  dir_.File("sub/.hid.log", "");
  dir_.File(".hidden/y.log");
  dir_.Folder("empty");
  const std::string denied = "301\nFolder doesn`t exist or access denied";
  const std::string wrong = "501\nWrong parameter";
  const struct {
    const char* folder;
    const char* mask;
    const char* recurse;
    const char* mode;
    const char* value;
    std::string reply;
  } cases[] = {
      {"", "*", "0", "0", "", "200\n2\n"},
      {"", "*.log", "1", "0", "", "200\n4\n"},  // hidden folders are not entered
      {"", "*", "0", "1", "60", "200\n1\n"},
      {"", "*", "0", "1", "62", "200\n0\n"},
      {"", "*", "1", "2", "60", "200\n3\n"},
      {"", "*", "0", "3", "5", "200\n1\n"},
      {"", "*", "0", "3", "4", "200\n2\n"},
      {"", "*", "1", "4", "6", "200\n2\n"},
      {"", "*", "0", "5", "0", "200\n3\n"},
      {"", "*", "1", "5", "0", "200\n4\n"},
      {"", "*.txt", "0", "0", "", "200\n0\n"},
      {"empty", "*", "0", "0", "", "200\n0\n"},
      {"missing", "*", "0", "0", "", denied},
      {"missing", "*", "1", "0", "", denied},
      {"old.log", "*", "0", "0", "", denied},
      {"", "*", "0", "6", "", wrong},
      {"", "*", "0", "-1", "", wrong},
      {"", "*", "0", "1", "1h", wrong},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.folder) + " " + c.mask + " " + c.recurse + c.mode + c.value);
    const TParams params{
        {1, dir_.Path(c.folder)}, {2, c.mask}, {3, c.recurse}, {4, c.mode}, {5, c.value}};
    EXPECT_EQ(c.reply, CallHandler(ProcessTest_CountFiles, params));
  }
  MakeOlder(dir_.Path("sub"), 100);
  EXPECT_EQ("200\n1\n",
            CallHandler(ProcessTest_CountFiles,
                        {{1, dir_.Path("%oldestfolder%/deep")}, {2, "*.log"}, {11, "1"}}));
}

TEST_F(FileTests, SumsAndRefuses) {
  EXPECT_EQ("200\n873187033\n",
            CallHandler(ProcessTest_FileCRC, {{1, dir_.File("digits", "123456789")}}));
  EXPECT_EQ("301\nRead error", CallHandler(ProcessTest_FileCRC, {{1, dir_.File("empty")}}));
  EXPECT_EQ("301\nCannot open file", CallHandler(ProcessTest_FileCRC, {{1, dir_.Path("x")}}));
  EXPECT_EQ("301\nFile is not specified", CallHandler(ProcessTest_FileCRC, {}));
  const TEnabledTests disabled(0);
  for (const auto handler : {ProcessTest_FileExists, ProcessTest_FileCompare, ProcessTest_FileCRC,
                             ProcessTest_CountFiles}) {
    EXPECT_EQ("600\ntest is not allowed", CallHandler(handler, {{1, "1"}}));
  }
}

}  // namespace

#include "checks/files/filetests.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>

#include "support/handlercall.h"
#include "support/scopes.h"

namespace {

void MakeOlder(const std::string& path, int seconds) {
  std::filesystem::last_write_time(
      path, std::filesystem::file_time_type::clock::now() - std::chrono::seconds(seconds));
}

class FileTests : public testing::Test {
 protected:
  const TEnabledTests enabled_;
  const TTempDir dir_;
};

TEST_F(FileTests, TellsTheFactsOfAFile) {
  const std::string file = dir_.File("with\nfeed.txt", "12345");
  MakeOlder(file, 7 * 60 + 30);
  ASSERT_EQ(0, symlink("missing", dir_.Path("link").c_str()));
  const auto ask = [this](const char* path, const char* macros) {
    return CallHandler(ProcessTest_FileExists, {{1, dir_.Path(path)}, {7, macros}});
  };
  const std::string reply = "200\n     5\n[0-9]{14}\n[0-9]{14}\n/.*/with%0Afeed.txt\nmin\n7\n";
  EXPECT_THAT(ask("*.txt", ""), testing::MatchesRegex(reply));
  EXPECT_THAT(ask("%newestfile%", "1"), testing::MatchesRegex(reply));
  EXPECT_THAT(ask("link", ""), testing::MatchesRegex("200\n     7\n(.|\n)*link\nmin\n0\n"));
  for (const char* name : {"%newestfile%", "missing", "l*"}) {
    EXPECT_EQ("301\nno such file or acess denied", ask(name, ""));
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
  const std::string missing = "301\nFile doesn`t exist", wrong = "501\nWrong parameter";
  ExpectReplies(
      ProcessTest_FileCompare,
      {
          {{{1, "1"}, {2, a}, {3, longer}, {6, "1"}}, "200\n1\n"},  // one leads the other
          {{{1, "1"}, {2, a}, {3, longer}, {5, "1"}, {6, "1"}}, "200\n0\n"},
          {{{1, "1"}, {2, a}, {3, same}, {5, "1"}, {6, "1"}}, "200\n1\n"},
          {{{1, "1"}, {2, a}, {3, same}, {4, "1"}, {6, "1"}}, "200\n0\n"},
          {{{1, "1"}, {2, "/proc/self/mem"}, {3, a}, {6, "1"}}, "301\nI/O Error"},
          {{{1, "1"}, {2, a}, {3, dir_.Path("missing")}}, missing},
          {{{1, "1"}, {2, newest}, {3, newest}, {12, "1"}}, missing},
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
          {{{1, "3"}, {2, a}, {3, newest}, {12, "1"}}, missing},
          {{{1, "4"}, {2, newest}, {12, "1"}}, wrong},
          {{{1, "4"}, {2, newest}}, missing},
          {{{1, "01"}, {2, a}}, wrong},
          {{{1, "1"}, {2, dir_.Path()}}, missing},
      });
}

TEST_F(FileTests, Counts) {
  MakeOlder(dir_.File("old.log", "12345"), 61 * 60);
  dir_.File("new.log", "1234567");
  dir_.File("sub/deep/x.log", "123456");
  dir_.File("sub/.hid.log", "");
  dir_.File(".hidden/y.log");
  dir_.Folder("empty");
  MakeOlder(dir_.Path("sub"), 100);
  const char denied[] = "301\nFolder doesn`t exist or access denied";
  const char wrong[] = "501\nWrong parameter";
  const auto call = [this](const char* folder, const char* mask, const char* recurse,
                           const char* mode, const char* value) {
    const std::string path = dir_.Path(folder);
    return TParams{{1, path}, {2, mask}, {3, recurse}, {4, mode}, {5, value}, {11, "1"}};
  };
  ExpectReplies(
      ProcessTest_CountFiles,
      {
          {call("", "*", "0", "0", ""), "200\n2\n"},
          {call("", "*.log", "1", "0", ""), "200\n4\n"},  // hidden folders are not entered
          {call("", "*", "0", "1", "60"), "200\n1\n"},
          {call("", "*", "0", "1", "62"), "200\n0\n"},
          {call("", "*", "1", "2", "60"), "200\n3\n"},
          {call("%oldestfolder%/deep", "*.log", "0", "0", ""), "200\n1\n"},
          {call("", "*", "0", "3", "5"), "200\n1\n"},
          {call("", "*", "0", "3", "4"), "200\n2\n"},
          {call("", "*", "1", "4", "6"), "200\n2\n"},
          {call("", "*", "0", "5", "0"), "200\n3\n"},
          {call("", "*", "1", "5", "0"), "200\n4\n"},
          {call("empty", "*", "0", "0", ""), "200\n0\n"},
          {call("missing", "*", "0", "0", ""), denied},
          {call("missing", "*", "1", "0", ""), denied},
          {call("old.log", "*", "0", "0", ""), denied},
          {call("", "*", "0", "6", ""), wrong},
          {call("", "*", "0", "-1", ""), wrong},
          {call("", "*", "0", "1", "1h"), wrong},
      });
}

TEST_F(FileTests, Sums) {
  ExpectReplies(ProcessTest_FileCRC, {{{{1, dir_.File("digits", "123456789")}}, "200\n873187033\n"},
                                      {{{1, dir_.File("empty")}}, "301\nRead error"},
                                      {{{1, dir_.Path("x")}}, "301\nCannot open file"},
                                      {{}, "301\nFile is not specified"}});
}

}  // namespace

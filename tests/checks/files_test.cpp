#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "checks/files/diskfolder.h"
#include "checks/files/filecontent.h"
#include "checks/files/filelist.h"
#include "checks/files/filetests.h"
#include "checks/files/pathmacros.h"
#include "support/handlercall.h"
#include "support/scopes.h"

namespace {

constexpr THandler kUnc = ProcessTest_UNC, kSize = ProcessTest_FolderSize;
constexpr THandler kExists = ProcessTest_FileExists, kCompare = ProcessTest_FileCompare;
constexpr THandler kCrc = ProcessTest_FileCRC, kCount = ProcessTest_CountFiles;
constexpr THandler kList = ProcessInfo_GetFileList;
constexpr char kYes[] = "200\n1\n", kNo[] = "200\n0\n", kFailed[] = "301\nI/O Error";
constexpr char kNoFile[] = "301\nFile doesn`t exist", kWrong[] = "501\nWrong parameter";
constexpr char kAbsent[] = "301\nno such file or acess denied";
constexpr char kNoSize[] = "301\nFolder/File doesn`t exist or access denied";
constexpr char kNoCount[] = "301\nFolder doesn`t exist or access denied";

std::string Time(time_t t) {
  QovReply line;
  line.AddTimeParam(t);
  return ToStd(line);
}

class Files : public testing::Test {
 protected:
  void SetTime(const char* name, time_t modified) const {
    const timespec times[2] = {{modified, 0}, {modified, 0}};
    EXPECT_EQ(0, utimensat(AT_FDCWD, dir_.Path(name).c_str(), times, 0));
  }
  void Link(const char* target, const char* name) const {
    EXPECT_EQ(0, symlink(target, dir_.Path(name).c_str()));
  }
  /// The text with the test's folder in place of each "@".
  std::string In(std::string text) const {
    const std::string& folder = dir_.Path();
    for (size_t at = 0; (at = text.find('@', at)) != std::string::npos; at += folder.size()) {
      text.replace(at, 1, folder);
    }
    return text;
  }
  double Size(const char* path) const { return GetFolderSize(ToString(In(path)), 1); }
  /// @param request  as "1=@/name;2=1"
  std::string Ask(THandler handler, const std::string& request) const {
    TParams params;
    std::istringstream parts(In(request));
    for (std::string part; std::getline(parts, part, ';');) {
      params[std::stoi(part)] = part.substr(part.find('=') + 1);
    }
    return CallHandler(handler, params);
  }

  const TEnabledTests enabled_;
  const TTempDir dir_;
};

/// Some names end in a byte that is no ASCII: each handler takes them as they are.
TEST_F(Files, AnswerEachQuestion) {
  size_t sizeBytes = 0;  // 1, 2, 3 and so on; a folder whose name a mask fits is no file
  for (const char* name :
       {"t/a.txt", "t/.hidden.txt", "t/b.log", "t/s\xE9/c.txt", "t/s\xE9/deep.txt/d.txt",
        "t/s\xE9/blank \xE9/e.log\xE9", "t/.hid/x.log", "m/Old/a", "m/Old/b", "m/Old/b.gz",
        "m/New/.h%oldestfile%", "m/top", "mtop"})
    dir_.File(name, std::string(++sizeBytes, 'x'));
  dir_.File("c/abc\xE9", "abc");
  dir_.File("c/abcdef", "abcdef");
  dir_.File("c/late", "abc");
  dir_.File("c/words", "a concat %0A Cat f\xE9");
  dir_.File("c/empty");
  dir_.File("c/last", std::string(8'388'608, 0) + "x");
  EXPECT_EQ(0, truncate(dir_.File("c/8M").c_str(), 8'388'608));
  EXPECT_EQ(0, truncate(dir_.File("c/more").c_str(), 8'388'609));
  Link("..", "t/s\xE9/up");
  Link("b.log", "t/link.log");
  Link("top", "m/link");
  EXPECT_EQ(0, mkfifo(dir_.Path("t/fifo").c_str(), 0600));
  for (const char* name : {"t/s\xE9", "m/Old", "m/Old/b", "m/top", "c/abc\xE9", "c/abcdef"})
    SetTime(name, 100);
  for (const char* name : {"c/8M", "m/Old/a"}) SetTime(name, 4'000'000'000);
  const struct {
    THandler handler;
    const char *request, *reply;
  } cases[] = {
      {kUnc, "1=/proc/self\\\r", "200\n     0\n     0\n     0\n"},
      {kUnc, "1=/proc/self\\\\", "301\n"},
      {kUnc, "1=\\", "501\nPath not specified"},
      {kSize, "1= @/t \r;2=0", "200\n     6\n"},
      {kSize, "1=@/t;2= 1\r", "200\n    28\n"},
      {kSize, "1=@/t/*.txt;2=1", "200\n    12\n"},
      {kSize, "1=@/t/s\xE9/blank \xE9", "200\n     6\n"},
      {kSize, "1=@/t/s\xE9/up", "200\n     6\n"},      // the folder itself may be a link,
      {kSize, "1=@/t/up;2=1", "200\n     0\n"},        // below it, none is entered
      {kSize, "1=@/t/deep.txt;2=1", "200\n     5\n"},  // "s" holds a folder of that name
      {kSize, "1=@/t/%oldestfolder%/*.txt;2=1", kNoSize},
      {kSize, "1=@/t/%oldestfolder%/*.txt;2=1;8=1", "200\n     9\n"},
      {kSize, "1=@/m/%OldestFolder%/%newestFILE%;8=1", "200\n     8\n"},
      {kSize, "1=@/m/%oldestfolder%/%oldestfile%;8=1", "200\n     9\n"},
      {kSize, "1=@/m/%oldestfolder%/%oldestfile%.gz;8=1", "200\n    10\n"},
      {kSize, "1=@/m/%newestfile%;8=1", "200\n    12\n"},  // neither a folder nor a link
      {kSize, "1=@/m/%newestfolder%/%newestfile%;8=1", "200\n    11\n"},
      {kSize, "1=@/m/%newestfolder%/%newestfolder%;8=1", kNoSize},  // stays as it was given
      {kSize, "1=@/m%newestfile%;8=1", "200\n    13\n"},  // its folder is all that stands before it
      {kExists, "1=@/m/%newestfile%", kAbsent},
      {kExists, "1=@/t/l*", kAbsent},
      {kExists, "1=@/t/.hi[d]", kAbsent},
      {kCount, "1=@/t;2=*;4=0", "200\n4\n"},
      {kCount, "1=@/t;2=*.txt;3=1;4=0", "200\n4\n"},  // hidden folders are not entered
      {kCount, "1=@/t;2=*;4=1;5=60", kYes},
      {kCount, "1=@/t;2=*;4=1;5=61", kNo},
      {kCount, "1=@/t;2=*;4=2;5=61", "200\n3\n"},
      {kCount, "1=@/t;2=*;3=1;4=3;5=3", "200\n3\n"},
      {kCount, "1=@/t;2=*;4=4;5=2", "200\n2\n"},
      {kCount, "1=@/t;2=*;3=1;4=5", "200\n4\n"},
      {kCount, "1=@/t/%oldestfolder%/blank \xE9;2=e.log\xE9;4=0;11=1", kYes},
      {kCount, "1=@/t/.hid/;2=no*;4=0", kNo},
      {kCount, "1=@/t/b.log;2=*;4=0", kNoCount},
      {kCount, "1=@/none;2=*;3=1;4=0", kNoCount},
      {kCount, "1=@/t;2=*;4=6", kWrong},
      {kCount, "1=@/t;2=*;4=-1", kWrong},
      {kCount, "1=@/t;2=*;4=1;5=1h", kWrong},
      {kCompare, "1=1;2=@/c/abc\xE9;3=@/c/abcdef;4=1;6=1", kYes},  // one leads the other
      {kCompare, "1=1;2=@/c/abcdef;3=@/c/abc\xE9;5=1;6=1", kNo},
      {kCompare, "1=1;2=@/c/late;3=@/c/abc\xE9;5=1;6=1", kYes},
      {kCompare, "1=1;2=@/c/late;3=@/c/abc\xE9;4=1;6=1", kNo},
      {kCompare, "1=1;2=@/c/late;3=@/c/words;6=1", kNo},
      {kCompare, "1=1;2=@/c/late;3=@/c/empty;6=1", kYes},
      {kCompare, "1=1;2=@/c/more;3=@/c/last;6=1", kNo},
      {kCompare, "1=1;2=@/c/late;3=@/c/words", kYes},  // nothing is asked
      {kCompare, "1=1;2=/proc/self/mem;3=@/c/late;6=1", kFailed},
      {kCompare, "1=1;2=@/c/late;3=@/none", kNoFile},
      {kCompare, "1=1;2=@/c/%newestfile%;3=@/c/%newestfile%;12=1", kNoFile},
      {kCompare, "1=1;2=@/c/%newestfile%;3=@/c/%newestfile%;12=1;13=1", kYes},
      {kCompare, "1=2;2=@/c/words;3=cat;4=1", kYes},
      {kCompare, "1=2;2=@/c/words;3=cat;4=1;5=1", kNo},
      {kCompare, "1=2;2=@/c/words;3=cat;5=1", kYes},
      {kCompare, "1=2;2=@/c/words;3= cat;4=1", kNo},  // the text is taken as it stands
      {kCompare, "1=2;2=@/c/words;3= \r", kYes},
      {kCompare, "1=2;2=@/c/words;3=%0A", kYes},
      {kCompare, "1=2;2=@/c/words;3=\xE9", kYes},
      {kCompare, "1=2;2=@/c/%newestfile%;3=x;9=1", kNo},
      {kCompare, "1=3;2=@/c/abcdef;3=@/c/abc\xE9", kYes},
      {kCompare, "1=3;2=@/c/abc\xE9;3=@/c/abcdef", kNo},
      {kCompare, "1=3;2=@/c/abc\xE9;3=@/c/empty", kYes},
      {kCompare, "1=3;2=@/c/%newestfile%;3=@/c/8M;11=1", kYes},
      {kCompare, "1=3;2=@/c/8M;3=@/c/more", "301\nThe size of the second file cannot exceed 8Mb"},
      {kCompare, "1=3;2=@/c/late;3=@/c/%newestfile%;12=1", kNoFile},
      {kCompare, "1=4;2=@/c/%newestfile%;12=1", kWrong},
      {kCompare, "1=4;2=@/c/%newestfile%", kNoFile},
      {kCompare, "1=01;2=@/c/late", kWrong},
      {kCrc, "1=@/c/abc\xE9", "200\n3403398717\n"},
      {kCrc, "1=@/c/more", "200\n726759377\n"},
      {kCrc, "1=@/c/8M", "301\nRead error"},
      {kCrc, "1=@/c/empty", "301\nRead error"},
      {kCrc, "1=/dev/zero", "301\nRead error"},
      {kCrc, "1=/proc/self/mem", "301\nRead error"},
      {kCrc, "1=@/none", "301\nCannot open file"},
      {kCrc, "", "301\nFile is not specified"},
      {kList, "1=@/t;4=0", "200\n@/t/\n0\n2\n"},
      {kList, "1=@/t/b.log;2=*.log;4=1;7=1", "200\n@/t/\n1\n3\nb.log\n0\n     3\n"},
      {kList, "1=@/t/s\xE9/blank \xE9;2=?.log\xE9;4=1",
       "200\n@/t/s\xE9/blank \xE9/\n1\n2\ne.log\xE9\n0\n"},
      {kList, "1=@/t/;2=f*;4=1;5=1", "200\n@/t/\n0\n2\n"},
      {kList, "1=@/t/;2=f*;4=1;6=1", "200\n@/t/\n1\n2\nfifo\n4\n"},
      {kList, "1=@/t/;2=.h*;4=1;6=1", "200\n@/t/\n0\n2\n"},
      {kList, "1=@/t/;2=.h*;4=1;5=1", "200\n@/t/\n1\n2\n.hidden.txt\n2\n"},
      {kList, "1=@/none/;3=1;4=1", "200\n@/none/\n0\n2\n"},
  };
  for (const auto& c : cases) {
    std::string reply;
    for (time_t minute = 0; minute != time(nullptr) / 60;) {  // once more when a minute ends
      minute = time(nullptr) / 60;
      SetTime("t/b.log", (minute - 61) * 60);
      reply = Ask(c.handler, c.request);
    }
    EXPECT_EQ(In(c.reply), reply) << c.request;
  }
}

TEST_F(Files, TellSizesAndTimesInOrder) {
  struct statfs disk;
  double total, free, avail;
  ASSERT_EQ(0, statfs(dir_.Folder("q\xE9").c_str(), &disk));
  const std::string sizes = Ask(kUnc, "1=@/q\xE9");
  ASSERT_EQ(3, sscanf(sizes.c_str(), "200\n%lf\n%lf\n%lf\n", &total, &free, &avail)) << sizes;
  const auto blockBytes = static_cast<double>(disk.f_bsize);
  EXPECT_EQ(static_cast<double>(disk.f_blocks) * blockBytes, total);
  EXPECT_NEAR(static_cast<double>(disk.f_bfree) * blockBytes, free, 1e8);
  EXPECT_NEAR(static_cast<double>(disk.f_bavail) * blockBytes, avail, 1e8);

  const std::string file = dir_.File("t/with\nfeed.\xE9", "12345");
  dir_.Folder("t/sub");
  const time_t before = time(nullptr), modified = before - 7 * 60 - 30;
  SetTime("t/with\nfeed.\xE9", modified);
  struct stat facts;
  ASSERT_EQ(0, lstat(file.c_str(), &facts));
  const std::string changed = Time(facts.st_ctime), times = changed + Time(modified);
  const auto expected = [&](time_t now) {
    return "200\n     5\n" + times + In("@/t/with%0Afeed.\xE9\nmin\n") +
           std::to_string((now - modified) / 60) + "\n";
  };
  for (const char* request : {"1=@/t/*.\xE9", "1=@/t/%newestfile%;7=1"}) {
    EXPECT_THAT(Ask(kExists, request), testing::AnyOf(expected(before), expected(time(nullptr))));
  }
  Link("missing", "t/link");
  EXPECT_THAT(Ask(kExists, "1=@/t/link"), testing::StartsWith("200\n     7\n"));  // not followed

  const std::string head = In("200\n@/t/\n"), entry = "with%0Afeed.\xE9\n0\n";
  EXPECT_EQ(head + "1\n3\n" + entry + changed, Ask(kList, "1=@/t;4=1;8=1"));
  EXPECT_EQ(head + "1\n3\n" + entry + Time(modified), Ask(kList, "1=@/t;4=1;9=1"));
  EXPECT_EQ(head + "1\n5\n" + entry + "     5\n" + times, Ask(kList, "1=@/t;4=1;7=1;8=1;9=1"));
  EXPECT_THAT(Ask(kList, "1=@/t;2=w*;3=1;4=1"),
              testing::AnyOf(head + "3\n2\nsub\n16\n..\n16\n" + entry,
                             head + "3\n2\n..\n16\nsub\n16\n" + entry));
}

TEST_F(Files, AreLookedForByPath) {
  dir_.File("passwd", "123");
  dir_.File("etc/passwd", "1234567");
  const TWorkingFolder here(dir_.Path());
  EXPECT_EQ(10.0, Size("."));
  EXPECT_EQ(2, CountFiles("", "*", 1, cfAllFiles, 0));
  // Without a folder in the path, the subfolders are looked for below "/".
  EXPECT_EQ(3 + Size("/etc/passwd"), Size("passwd"));
  EXPECT_EQ(Size("/etc"), Size(""));
  EXPECT_EQ(0, truncate("passwd", 5'000'000'001));
  EXPECT_EQ(5'000'000'008.0, Size("@"));
}

/// Of entries as old as the epoch the last one listed is taken, else of equal ones the first.
TEST_F(Files, OfOneAgeAreChosenByTheirOrder) {
  std::string listed;
  dir_.File("1", "1");
  dir_.File("22", "22");
  for (const auto& entry : std::filesystem::directory_iterator(dir_.Path())) {
    listed += entry.path().filename();
  }
  for (const time_t age : {0, 50}) {
    for (const char* name : {"1", "22"}) SetTime(name, age);
    const int sizeBytes = (age == 0 ? listed.back() : listed.front()) - '0';
    for (const char* macro : {"@/%oldestfile%", "@/%newestfile%"}) {
      EXPECT_EQ(sizeBytes, GetFolderSize(GetFileUsingSpecialMacros(ToString(In(macro))), 0));
    }
  }
}

TEST_F(Files, MeetTheRightsOfAnOrdinaryUser) {
  const std::string file = dir_.File("closed/in/f", "12345"), empty = dir_.File("e");
  chmod(file.c_str(), 0);
  chmod(empty.c_str(), 0);
  chmod(dir_.Path("closed/in").c_str(), 0755);
  chmod(dir_.Path("closed").c_str(), 0111);
  chmod(dir_.Path().c_str(), 0755);
  setfsuid(65534);
  EXPECT_EQ(-1.0, Size("@/closed"));
  EXPECT_EQ(0.0, Size("@"));
  EXPECT_EQ(5.0, Size("@/in"));                               // may be entered, not listed
  EXPECT_EQ(1, FindFileInFile(file.c_str(), empty.c_str()));  // nothing is opened
  EXPECT_EQ(-1, FindFileInFile(empty.c_str(), file.c_str()));
  setfsuid(geteuid());
  chmod(dir_.Path("closed").c_str(), 0755);
}

/// The last folders lie deeper than one path can name.
TEST_F(Files, CountToAnyDepthThatAPathCanName) {
  const std::string deep(40, 'd');
  int reachable = 0;
  {
    const TWorkingFolder top(dir_.Path());
    for (size_t level = 0; level < 110; ++level) {
      if (mkdir("side", 0700) == 0) std::ofstream("side/f") << "abc";
      reachable += dir_.Path("side/f").size() + 41 * level < PATH_MAX;
      EXPECT_EQ(0, mkdir(deep.c_str(), 0700) | chdir(deep.c_str()));
    }
  }
  rlimit former;
  getrlimit(RLIMIT_NOFILE, &former);
  const rlimit lowered{32, former.rlim_max};
  setrlimit(RLIMIT_NOFILE, &lowered);
  EXPECT_EQ(3 * reachable, Size("@"));
  EXPECT_EQ(3 * reachable, Size("@/f*"));
  EXPECT_EQ(reachable, CountFiles(ToString(dir_.Path()), "f", 1, cfAllFiles, 0));
  setrlimit(RLIMIT_NOFILE, &former);
  EXPECT_EQ(0, system(In("rm -rf @/d*").c_str()));
}

}  // namespace

#include <gmock/gmock.h>
#include <limits.h>
#include <sys/fsuid.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/vfs.h>

#include <fstream>
#include <random>
#include <regex>

#include "checks/files/diskfolder.h"
#include "checks/files/filecontent.h"
#include "checks/files/filetests.h"
#include "checks/files/pathmacros.h"
#include "fs/files.h"
#include "support/handlercall.h"
#include "support/scopes.h"

namespace {

constexpr THandler kUnc = ProcessTest_UNC, kSize = ProcessTest_FolderSize;
constexpr THandler kExists = ProcessTest_FileExists, kCompare = ProcessTest_FileCompare;
constexpr THandler kCrc = ProcessTest_FileCRC, kCount = ProcessTest_CountFiles;
constexpr THandler kList = ProcessInfo_GetFileList;

class Files : public testing::Test {
 protected:
  void Shell(const std::string& commands) const {
    EXPECT_EQ(0, system(("set -e; cd " + dir_.Path() + "; " + commands).c_str()));
  }
  /// The text with the test's folder in place of each "@".
  std::string In(const std::string& text) const {
    return std::regex_replace(text, std::regex("@"), dir_.Path());
  }
  double Size(const char* path) const { return GetFolderSize(ToString(In(path)), 1); }
  /// @param request  as "1=@/name;2=1"
  std::string Ask(THandler handler, const std::string& request) const {
    TParams params;
    std::istringstream in(In(request));
    for (std::string s; getline(in, s, ';');) params[std::stoi(s)] = s.substr(s.find('=') + 1);
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
        "t/s\xE9/b \xE9/e.log\xE9", "t/.hid/x.log", "m/Old/a", "m/Old/b", "m/Old/b.gz",
        "m/New/.h%oldestfile%", "m/top", "mtop"})
    dir_.File(name, std::string(++sizeBytes, 'x'));
  dir_.File("words", "a concat %0A Cat f\xE9");
  Shell(
      "printf abc >late; printf abc >abc\xE9; printf abcdef >abcdef; >empty; mkfifo t/fifo;"
      "truncate -s 8M 8M last; printf x >>last; truncate -s 8388609 more; ln -s .. t/s\xE9/up;"
      "ln -s b.log t/link.log; ln -s top m/link; touch -d @4000000000 8M m/Old/a;"
      "touch -d @100 t/s\xE9 m/Old m/Old/b m/top abc\xE9 abcdef");
  const struct {
    THandler handler;
    const char *reply, *requests;  // all that are answered so, a "|" between two
  } cases[] = {
      {kUnc, "200\n     0\n     0\n     0\n", "1=/proc/self\\\r"},
      {kUnc, "301\n", "1=/proc/self\\\\"},
      {kUnc, "501\nPath not specified", "1=\\"},
      {kSize, "200\n    28\n", "1=@/t;2= 1\r"},
      {kSize, "200\n    12\n", "1=@/t/*.txt;2=1|1=@/m/%newestfile%;8=1"},  // a link is none
      {kSize, "200\n     6\n", "1= @/t \r;2=0|1=@/t/s\xE9/b \xE9|1=@/t/s\xE9/up"},
      {kSize, "200\n     0\n", "1=@/t/up;2=1"},        // below the folder itself no link is entered
      {kSize, "200\n     5\n", "1=@/t/deep.txt;2=1"},  // "s" holds a folder of that name
      {kSize, "200\n     8\n", "1=@/m/%OldestFolder%/%newestFILE%;8=1"},
      {kSize, "200\n     9\n", "1=@/t/%oldestfolder%/*.txt;2=1;8=1"},
      {kSize, "200\n    10\n", "1=@/m/%oldestfolder%/%oldestfile%.gz;8=1"},
      {kSize, "200\n    11\n", "1=@/m/%newestfolder%/%newestfile%;8=1"},
      {kSize, "200\n    13\n", "1=@/m%newestfile%;8=1"},  // of "m", all that stands before it
      // What is not asked for or fits nothing stays as it was given.
      {kSize, "301\nFolder/File doesn`t exist or access denied",
       "1=@/t/%oldestfolder%/*.txt;2=1|1=@/m/%newestfolder%/%newestfolder%;8=1"},
      {kExists, "301\nno such file or acess denied", "1=@/m/%newestfile%|1=@/t/l*|1=@/t/.hi[d]"},
      {kCount, "200\n4\n", "1=@/t;2=*;4=0|1=@/t;2=*.txt;3=1;4=0|1=@/t;2=*;3=1;4=5"},
      {kCount, "200\n3\n", "1=@/t;2=*;4=2;5=61|1=@/t;2=*;3=1;4=3;5=3"},
      {kCount, "200\n2\n", "1=@/t;2=*;4=4;5=2"},
      {kCount, "200\n1\n", "1=@/t;2=*;4=1;5=60|1=@/t/%oldestfolder%/b \xE9;2=e.log\xE9;4=0;11=1"},
      {kCount, "200\n0\n", "1=@/t;2=*;4=1;5=61|1=@/t/.hid/;2=no*;4=0"},
      {kCount, "301\nFolder doesn`t exist or access denied", "1=@/t/b.log|1=@/none;3=1"},
      {kCount, "501\nWrong parameter", "1=@/t;2=*;4=6|1=@/t;2=*;4=-1|1=@/t;2=*;4=1;5=1h"},
      // One may lead the other; nothing may be asked; a text is taken as it stands.
      {kCompare, "200\n1\n",
       "1=1;2=@/abc\xE9;3=@/abcdef;4=1;6=1|1=1;2=@/late;3=@/empty;6=1|1=1;2=@/late;3=@/words|"
       "1=1;2=@/late;3=@/abc\xE9;5=1;6=1|1=1;2=@/%newestfile%;3=@/%newestfile%;12=1;13=1|"
       "1=2;2=@/words;3=cat;4=1|1=2;2=@/words;3=cat;5=1|1=2;2=@/words;3= \r|1=2;2=@/words;3=%0A|"
       "1=2;2=@/words;3=\xE9|1=3;2=@/abcdef;3=@/abc\xE9|1=3;2=@/abc\xE9;3=@/empty|"
       "1=3;2=@/late;3=@/abc\xE9|1=3;2=@/%newestfile%;3=@/8M;11=1"},
      {kCompare, "200\n0\n",
       "1=1;2=@/late;3=@/abc\xE9;4=1;6=1|1=1;2=@/abcdef;3=@/abc\xE9;5=1;6=1|"
       "1=1;2=@/late;3=@/words;6=1|1=1;2=@/more;3=@/last;6=1|1=2;2=@/words;3=cat;4=1;5=1|"
       "1=2;2=@/words;3= cat;4=1|1=2;2=@/%newestfile%;3=x;9=1|1=3;2=@/abc\xE9;3=@/abcdef"},
      {kCompare, "301\nFile doesn`t exist",
       "1=1;2=@/late;3=@/none|1=1;2=@/%newestfile%;3=@/%newestfile%;12=1|"
       "1=3;2=@/late;3=@/%newestfile%;12=1|1=4;2=@/%newestfile%"},
      {kCompare, "501\nWrong parameter", "1=4;2=@/%newestfile%;12=1|1=01;2=@/late"},
      {kCompare, "301\nI/O Error", "1=1;2=/proc/self/mem;3=@/late;6=1|1=2;2=@/late;3="},
      {kCompare, "301\nThe size of the second file cannot exceed 8Mb", "1=3;2=@/8M;3=@/more"},
      {kCrc, "200\n3403398717\n", "1=@/abc\xE9"},
      {kCrc, "200\n726759377\n", "1=@/more"},
      {kCrc, "301\nRead error", "1=@/8M|1=@/empty|1=/dev/zero|1=/proc/self/mem"},
      {kCrc, "301\nCannot open file", "1=@/none"},
      {kCrc, "301\nFile is not specified", "1="},
      {kList, "200\n@/none/\n0\n2\n", "1=@/none/;3=1;4=1"},
      {kList, "200\n@/t/\n0\n2\n", "1=@/t;4=0|1=@/t/;2=f*;4=1;5=1|1=@/t/;2=.h*;4=1;6=1"},
      {kList, "200\n@/t/.hid/\n2\n2\n..\n16\nx.log\n0\n", "1=@/t/.hid/;2=x*;3=1;4=1"},
      {kList, "200\n@/t/\n1\n2\nfifo\n4\n", "1=@/t/;2=f*;4=1;6=1"},
      {kList, "200\n@/t/\n1\n2\n.hidden.txt\n2\n", "1=@/t/;2=.h*;4=1;5=1"},
      {kList, "200\n@/t/\n1\n3\nb.log\n0\n     3\n", "1=@/t/b.log;2=*.log;4=1;7=1"},
      {kList, "200\n@/t/s\xE9/b \xE9/\n1\n2\ne.log\xE9\n0\n", "1=@/t/s\xE9/b \xE9;2=?.log\xE9;4=1"},
  };
  time_t minute = 0;
  for (const auto& c : cases) {
    std::istringstream requests(c.requests);
    for (std::string request; std::getline(requests, request, '|');) {
      std::string reply = Ask(c.handler, request);
      while (minute != time(nullptr) / 60) {  // once more when a minute ends
        minute = time(nullptr) / 60;
        Shell("touch -d @" + std::to_string((minute - 61) * 60) + " t/b.log");
        reply = Ask(c.handler, request);
      }
      EXPECT_EQ(In(c.reply), reply) << request;
    }
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
  const time_t touched = time(nullptr) - 7 * 60 - 30;
  Shell("ln -s missing link; touch -d @" + std::to_string(touched) + " t/with*");
  struct stat facts;
  ASSERT_EQ(0, lstat(file.c_str(), &facts));
  QovReply changed, modified;
  changed.AddTimeParam(facts.st_ctime);
  modified.AddTimeParam(touched);
  const std::string times = ToStd(changed) + ToStd(modified);
  const std::string found = "200\n     5\n" + times + In("@/t/with%0Afeed.\xE9\nmin\n");
  for (const char* request : {"1=@/t/*.\xE9", "1=@/t/%newestfile%;7=1"}) {
    const std::string reply = Ask(kExists, request);
    const std::string minutes = std::to_string((time(nullptr) - touched) / 60) + "\n";
    EXPECT_THAT(reply, testing::AnyOf(found + "7\n", found + minutes));
  }
  EXPECT_THAT(Ask(kExists, "1=@/link"), testing::StartsWith("200\n     7\n"));  // not followed

  const std::string head = In("200\n@/t/\n"), entry = "with%0Afeed.\xE9\n0\n";
  EXPECT_EQ(head + "1\n3\n" + entry + ToStd(changed), Ask(kList, "1=@/t;4=1;8=1"));
  EXPECT_EQ(head + "1\n3\n" + entry + ToStd(modified), Ask(kList, "1=@/t;4=1;9=1"));
  EXPECT_EQ(head + "1\n5\n" + entry + "     5\n" + times, Ask(kList, "1=@/t;4=1;7=1;8=1;9=1"));
}

TEST_F(Files, AreLookedForByPath) {
  Shell("mkdir etc; truncate -s 5000000001 passwd; printf 1234567 >etc/passwd");
  const TWorkingFolder here(dir_.Path());
  EXPECT_EQ(5'000'000'008.0, Size("."));
  EXPECT_EQ(2, CountFiles("", "*", 1, cfAllFiles, 0));
  // Without a folder in the path, the subfolders are looked for below "/".
  EXPECT_EQ(5'000'000'001.0 + Size("/etc/passwd"), Size("passwd"));
  EXPECT_EQ(Size("/etc"), Size(""));
}

/// Of entries as old as the epoch the last one listed is taken, else of equal ones the first.
TEST_F(Files, OfOneAgeAreChosenByTheirOrder) {
  for (const int age : {0, 50}) {
    Shell("touch -d @" + std::to_string(age) + " 1 2");
    const auto first = std::filesystem::directory_iterator(dir_.Path())->path().filename();
    const char* chosen = (first == "1") == (age > 0) ? "@/1" : "@/2";
    for (const char* macro : {"@/%oldestfile%", "@/%newestfile%"}) {
      EXPECT_EQ(In(chosen), ToStd(GetFileUsingSpecialMacros(ToString(In(macro)))));
    }
  }
}

TEST_F(Files, MeetTheRightsOfAnOrdinaryUser) {
  const std::string file = dir_.File("closed/in/f", "12345"), empty = dir_.File("e");
  Shell("chmod 0 closed/in/f e; chmod 755 . closed/in; chmod 111 closed");
  setfsuid(65534);
  EXPECT_EQ(-1.0, Size("@/closed"));
  EXPECT_EQ(5.0, Size("@/in"));                               // may be entered, not listed
  EXPECT_EQ(1, FindFileInFile(file.c_str(), empty.c_str()));  // nothing is opened
  EXPECT_EQ(-1, FindFileInFile(empty.c_str(), file.c_str()));
  setfsuid(geteuid());
  Shell("chmod 755 closed");
}

/// The last folders lie deeper than one path can name.
TEST_F(Files, CountToAnyDepthThatAPathCanName) {
  const TWorkingFolder top(dir_.Path());
  const std::string deep(40, 'd');
  int reachable = 0;
  for (size_t level = 0; level < 110; ++level) {
    EXPECT_EQ(0, mkdir("side", 0700) | mkdir(deep.c_str(), 0700));
    std::ofstream("side/f") << "abc";
    reachable += dir_.Path("side/f").size() + 41 * level < PATH_MAX;
    EXPECT_EQ(0, chdir(deep.c_str()));
  }
  rlimit former;
  getrlimit(RLIMIT_NOFILE, &former);
  const rlimit lowered{32, former.rlim_max};
  setrlimit(RLIMIT_NOFILE, &lowered);
  EXPECT_EQ(3 * reachable, Size("@"));
  EXPECT_EQ(3 * reachable, Size("@/f*"));
  EXPECT_EQ(reachable, CountFiles(ToString(dir_.Path()), "f", 1, cfAllFiles, 0));
  setrlimit(RLIMIT_NOFILE, &former);
  Shell("rm -rf d*");
}

TEST_F(Files, AreReadIfRegular) {
  Shell("mkfifo fifo; seq 230000 >file");
  const std::string file = dir_.Path("file"), bytes = ReadFile(file);
  for (const size_t at : {700'000, 1'498'874}) {
    const std::string pattern = dir_.File("pattern", bytes.substr(at, 600'000));
    EXPECT_EQ(at + 1, FindFileInFile(file.c_str(), pattern.c_str()));
  }
  String text("x");
  for (const std::string& path : {In("@/fifo"), In("/dev/zero")}) {
    EXPECT_EQ(-1, CompareFiles(path.c_str(), file.c_str()));
    EXPECT_EQ(-1, CompareFiles(file.c_str(), path.c_str()));
    EXPECT_EQ(-1, FindStrInFile(path.c_str(), text, 1, 0));
    EXPECT_EQ(1, FindFileInFile(file.c_str(), path.c_str()));
  }
}

/// The search as it is described: windows of three lengths, the last length of each carried over.
size_t FindInWindows(const std::string& content, const std::string& text, bool exact, bool word) {
  const std::string wanted = word ? "(?:^|[_ -])(" + text + ")(?:$|[_ -])" : "(" + text + ")";
  const std::regex pattern(wanted, exact ? std::regex::ECMAScript : std::regex::icase);
  std::smatch found;
  for (size_t at = 0; at < content.size(); at += 2 * text.size()) {
    const std::string window = content.substr(at, 3 * text.size());
    if (regex_search(window, found, pattern)) return found.position(1) + at + 1;
  }
  return 0;
}

/// In each fifth file the text begins around the place where the search's first buffer ends.
TEST_F(Files, HoldTextAsItsWindowsDo) {
  std::minstd_rand random(1);
  std::string content, text, path;
  size_t before = 0;  // bytes of the file that are none of `content`: whole windows
  for (int round = 0; round < 3000; ++round) {
    if (round % 10 == 0) {
      text.assign(1 + random() % 30, ' ');
      for (char& c : text) c = "aAbB1 -"[random() % 7];
      before = round % 50 == 0 ? kReadBytes / 24 * 24 - 24 : 0;
      content = std::string(before == 0 ? 0 : 24 + random() % 24, '_') + text;
      path = dir_.File("file", std::string(before, '_') + content);
    }
    const std::string wanted = text.substr(random() % text.size(), 1 + random() % 4);
    const bool exact = random() % 2 == 0, word = random() % 2 == 0;
    const size_t at = FindInWindows(content, wanted, exact, word);
    String what = ToString(wanted);
    ASSERT_EQ(at == 0 ? 0 : before + at, FindStrInFile(path.c_str(), what, exact, word))
        << '"' << wanted << "\" in \"" << content << '"' << exact << word;
  }
}

}  // namespace

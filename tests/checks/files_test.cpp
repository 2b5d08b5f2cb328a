#include <sys/syscall.h>
#include <sys/vfs.h>

#include "checks/files/diskfolder.h"
#include "checks/files/filecontent.h"
#include "checks/files/filetests.h"
#include "checks/files/pathmacros.h"
#include "fs/files.h"
#include "support/handlercall.h"

/// The clock of all checks stands, at the start of a minute.
extern "C" time_t time(time_t*) noexcept { return 2'000'000'040; }

constexpr THandler kUnc = ProcessTest_UNC, kSize = ProcessTest_FolderSize;
constexpr THandler kExists = ProcessTest_FileExists, kCompare = ProcessTest_FileCompare;
constexpr THandler kCrc = ProcessTest_FileCRC, kCount = ProcessTest_CountFiles;
constexpr THandler kList = ProcessInfo_GetFileList;

struct Files : TCheckTest {
  void Shell(const std::string& commands) const {
    EXPECT_EQ(0, system(("set -e; cd " + dir_.Path() + "; " + commands).c_str()));
  }
  double Size(const char* path) const { return GetFolderSize(ToString(In(path)), 1); }
};

/// Some names end in a byte that is no ASCII: each handler takes them as they are.
TEST_F(Files, AnswerEachQuestion) {
  size_t sizeBytes = 0;  // 1, 2, 3 and so on; a folder whose name a mask fits is no file
  for (const char* name :
       {"t/a.txt", "t/.hidden.txt", "t/b.log", "t/s\xE9/c.txt", "t/s\xE9/deep.txt/d.txt",
        "t/s\xE9/b \xE9/e.log\xE9", "t/.hid/x.log", "m/Old/a", "m/Old/b", "m/Old/b.gz",
        "m/New/.h%oldestfile%", "m/top", "f/with\nfeed.\xE9"})
    dir_.File(name, std::string(++sizeBytes, 'x'));
  dir_.File("words", "cats, a concat %0A Cat f\xE9");
  Shell(
      "printf abc >late; printf abc >abc\xE9; printf abcdef >abcdef; >empty; mkfifo t/fifo;"
      "truncate -s 8M 8M last; printf x >>last; truncate -s 8388609 more; ln -s .. t/s\xE9/up;"
      "touch -d @2000000040 t/* t/.hidden.txt; touch -d @1999999590 f/*;"  // now; 7.5 minutes ago
      "touch -d @1999996380 t/b.log; touch -d @4000000000 8M m/Old/a;"     // 61 minutes ago
      "touch -d @100 t/s\xE9 m/Old m/Old/b m/top abc\xE9 abcdef;"
      "ln -s b.log t/link.log; ln -s top m/link; ln -s missing1 dangling");
  struct stat facts;
  ASSERT_EQ(0, lstat(dir_.Path("f/with\nfeed.\xE9").c_str(), &facts));
  QovReply changed, modified;
  changed.AddTimeParam(facts.st_ctime);
  modified.AddTimeParam(facts.st_mtime);
  const std::string ctime = ToStd(changed), mtime = ToStd(modified);
  const std::string entry = "with%0Afeed.\xE9\n0\n", head = "200\n@f/\n1\n";
  Expect(kUnc, "200\n     0\n     0\n     0\n", "/proc/self\\\r");
  Expect(kUnc, "301\n", "/proc/self\\\\");
  Expect(kUnc, "501\nPath not specified", "\\");
  Expect(kSize, "200\n    28\n", "@t, 1\r");
  Expect(kSize, "200\n    12\n", "@t/*.txt,1|@m/%newestfile%,8=1");  // a link is none
  Expect(kSize, "200\n     6\n", " @t \r,0|@t/s\xE9/b \xE9|@t/s\xE9/up");
  Expect(kSize, "200\n     0\n", "@t/up,1");        // below the folder itself no link is entered
  Expect(kSize, "200\n     5\n", "@t/deep.txt,1");  // "s" holds a folder of that name
  Expect(kSize, "200\n     8\n", "@m/%OldestFolder%/%newestFILE%,8=1");
  Expect(kSize, "200\n    10\n", "@m/%oldestfolder%/%oldestfile%.gz,8=1");
  Expect(kSize, "200\n    11\n", "@m/%newestfolder%/%newestfile%,8=1");
  // What is not asked for or fits nothing stays as it was given.
  Expect(kSize, "301\nFolder/File doesn`t exist or access denied",
         "@t/%oldestfolder%/*.txt,1|@m/%newestfolder%/%newestfolder%,8=1");
  Expect(kExists, "200\n    13\n" + ctime + mtime + "@f/with%0Afeed.\xE9\nmin\n7\n",
         "@f/*.\xE9|@f/%newestfile%,7=1");
  EXPECT_TRUE(CallHandler(kExists, {In("@dangling")}).starts_with("200\n     8\n"));
  Expect(kExists, "301\nno such file or acess denied", "@m/%newestfile%|@t/l*|@t/.hi[d]");
  Expect(kCount, "200\n4\n", "@t,*,4=0|@t,*.txt,1,0|@t,*,1,5");
  Expect(kCount, "200\n3\n", "@t,*,4=2,5=61|@t,*,1,3,3");
  Expect(kCount, "200\n2\n", "@t,*,4=4,5=2");
  Expect(kCount, "200\n1\n", "@t,*,4=1,5=60|@t/%oldestfolder%/b \xE9,e.log\xE9,4=0,11=1");
  Expect(kCount, "200\n0\n", "@t,*,4=1,5=61|@t/.hid/,no*,4=0");
  Expect(kCount, "301\nFolder doesn`t exist or access denied", "@t/b.log|@none,3=1");
  Expect(kCount, "501\nWrong parameter", "@t,*,4=6|@t,*,4=-1|@t,*,4=1,5=1h");
  // One may lead the other; nothing may be asked; a text is taken as it stands.
  Expect(kCompare, "200\n1\n",
         "1,@abc\xE9,@abcdef,1,6=1|1,@late,@empty,6=1|1,@late,@words|1,@late,@abc\xE9,5=1,6=1|"
         "1,@%newestfile%,@%newestfile%,12=1,13=1|1,@%newestfile%,@8M,12=1|2,@words,cat,1|2,@words,"
         "cats,5=1|2,@words, \r|"
         "2,@words,%0A|2,@words,\xE9|3,@abcdef,@abc\xE9|3,@abc\xE9,@empty|3,@late,@abc\xE9|"
         "3,@%newestfile%,@8M,11=1");
  Expect(kCompare, "200\n0\n",
         "1,@late,@abc\xE9,1,6=1|1,@abcdef,@abc\xE9,5=1,6=1|1,@late,@words,6=1|1,@more,@last,6=1|"
         "2,@words,cat,1,1|2,@words, cat,1|2,@%newestfile%,x,9=1|3,@abc\xE9,@abcdef");
  Expect(kCompare, "301\nFile doesn`t exist",
         "1,@late,@none|1,@%newestfile%,@%newestfile%,12=1|3,@late,@%newestfile%,12=1|"
         "4,@%newestfile%");
  Expect(kCompare, "501\nWrong parameter", "4,@%newestfile%,12=1|01,@late");
  Expect(kCompare, "301\nI/O Error", "1,/proc/self/mem,@late,6=1|2,@late,");
  Expect(kCompare, "301\nThe size of the second file cannot exceed 8Mb", "3,@8M,@more");
  Expect(kCrc, "200\n3403398717\n", "@abc\xE9");
  Expect(kCrc, "200\n726759377\n", "@more");
  Expect(kCrc, "301\nRead error", "@8M|@empty|/dev/zero|/proc/self/mem");
  Expect(kCrc, "301\nCannot open file", "@none");
  Expect(kCrc, "301\nFile is not specified", "1=");
  Expect(kList, head + "3\n" + entry + ctime, "@f,4=1,8=1");
  Expect(kList, head + "3\n" + entry + mtime, "@f,4=1,9=1");
  Expect(kList, head + "5\n" + entry + "    13\n" + ctime + mtime, "@f,4=1,7=1,8=1,9=1");
  Expect(kList, "200\n@none/\n0\n2\n", "@none/,3=1,4=1");
  Expect(kList, "200\n@t/\n0\n2\n", "@t,4=0|@t/,f*,4=1,5=1|@t/,.h*,4=1,6=1");
  Expect(kList, "200\n@t/.hid/\n2\n2\n..\n16\nx.log\n0\n", "@t/.hid/,x*,1,1");
  Expect(kList, "200\n@t/\n1\n2\nfifo\n4\n", "@t/,f*,4=1,6=1");
  Expect(kList, "200\n@t/\n1\n2\n.hidden.txt\n2\n", "@t/,.h*,4=1,5=1");
  Expect(kList, "200\n@t/\n1\n3\nb.log\n0\n     3\n", "@t/b.log,*.log,4=1,7=1");
  Expect(kList, "200\n@t/s\xE9/b \xE9/\n1\n2\ne.log\xE9\n0\n", "@t/s\xE9/b \xE9,?.log\xE9,4=1");
}

TEST_F(Files, TellOfTheDiskInOrder) {
  struct statfs disk;
  ASSERT_EQ(0, statfs(dir_.Folder("q\xE9").c_str(), &disk));
  std::istringstream reply(CallHandler(kUnc, {In("@q\xE9")}).substr(4));
  for (const auto blocks : {disk.f_blocks, disk.f_bfree, disk.f_bavail}) {
    double told = -1;
    reply >> told;
    EXPECT_NEAR(static_cast<double>(blocks * static_cast<unsigned long>(disk.f_bsize)), told,
                blocks == disk.f_blocks ? 0 : 1e8);
  }
}

/// Without a folder in the path, the subfolders are looked for below "/".
TEST_F(Files, AreLookedForByPath) {
  const TWorkingFolder here(dir_.Path());
  std::string deep;
  for (int i = 0; i < 200; ++i) dir_.File((deep += "d/") + "f", "abc");
  Shell("mkdir etc; truncate -s 5000000001 passwd; printf 1234567 >etc/passwd");
  const int unused = OpenForReading("/").Get();
  EXPECT_EQ(5'000'000'608.0, Size("."));
  EXPECT_EQ(600, Size("@f*"));
  EXPECT_EQ(202, CountFiles("", "*", 1, cfAllFiles, 0));
  EXPECT_EQ(5'000'000'001.0 + Size("/etc/passwd"), Size("passwd"));
  EXPECT_EQ(Size("/etc"), Size(""));
  EXPECT_EQ(unused, OpenForReading("/").Get());  // each folder has been closed
}

/// Of entries as old as the epoch the last one listed is taken, else of equal ones the first.
TEST_F(Files, OfOneAgeAreChosenByTheirOrder) {
  for (const int age : {0, 50}) {
    Shell("touch -d @" + std::to_string(age) + " 1 2");
    const auto first = std::filesystem::directory_iterator(dir_.Path())->path().filename();
    const char* chosen = (first == "1") == (age > 0) ? "@1" : "@2";
    for (const char* macro : {"@%oldestfile%", "@%newestfile%"})
      EXPECT_EQ(In(chosen), ToStd(GetFileUsingSpecialMacros(ToString(In(macro)))));
  }
}

TEST_F(Files, MeetTheRightsOfAnOrdinaryUser) {
  const std::string file = dir_.File("closed/in/f", "12345"), empty = dir_.File("open/f");
  dir_.File("blind/f");
  Shell(
      "chmod 0 closed/in/f; chmod 444 blind; chmod 755 . closed/in open; chmod 111 closed; chmod "
      "222 open/f");
  syscall(SYS_setresuid, 65534, 65534, 0);  // this thread's
  EXPECT_EQ(-1, Size("@closed"));
  EXPECT_EQ(5, Size("@in"));                                  // may be entered, not listed
  EXPECT_EQ(1, FindFileInFile(file.c_str(), empty.c_str()));  // nothing is opened
  EXPECT_EQ(-1, FindFileInFile(empty.c_str(), file.c_str()));
  // Where nothing may be written a folder counts as unreadable.
  EXPECT_EQ(-1, CountFiles(ToString(In("@closed/in")), "f", 1, cfAllFiles, 0));
  EXPECT_EQ(1, CountFiles(ToString(In("@open")), "f", 1, cfAllFiles, 0));
  EXPECT_EQ(-1, CountFiles(ToString(In("@blind")), "f", 1, cfAllFiles, 0));
  syscall(SYS_setresuid, 0, 0, 0);
  Shell("chmod 755 closed");
}

TEST_F(Files, AreSearchedBlockByBlockIfRegular) {
  Shell("mkfifo fifo; seq 230000 >file");
  const std::string file = dir_.Path("file"), fifo = dir_.Path("fifo"), bytes = ReadFile(file);
  for (const size_t at : {700'000, 1'498'874}) {
    const std::string pattern = dir_.File("pattern", bytes.substr(at, 600'000));
    EXPECT_EQ(at + 1, FindFileInFile(file.c_str(), pattern.c_str()));
  }
  EXPECT_EQ(-1, CompareFiles(fifo.c_str(), file.c_str()));
  EXPECT_EQ(-1, CompareFiles(file.c_str(), fifo.c_str()));
  EXPECT_EQ(-1, FindStrInFile(fifo.c_str(), "x", 1, 0));
  // Words in windows of three lengths that overlap by one: there one neighbour is unseen.
  for (size_t at = kReadBytes - 20; at < kReadBytes; ++at) {  // where the first block ends
    dir_.File("file", std::string(at, '_') + "1cat1.1cat.cat1.CaT.cat.");
    const size_t known = (at + 7) % 6 == 0 ? at + 7 : (at + 11) % 6 == 0 ? at + 11 : at + 16;
    EXPECT_EQ(known + 1, FindStrInFile(file.c_str(), "cAt", 0, 1));
    EXPECT_EQ(known + (known == at + 16 ? 5 : 1), FindStrInFile(file.c_str(), "cat", 1, 1));
    EXPECT_EQ(at + 2, FindStrInFile(file.c_str(), "cat", 1, 0));
  }
}

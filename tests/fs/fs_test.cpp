#include <dlfcn.h>
#include <sys/syscall.h>

#include <thread>

#include "fs/files.h"
#include "fs/paths.h"
#include "fs/search.h"
#include "support/scopes.h"

TEST(PathsTest, TakesPathsApartAndExpandsThem) {
  const std::array<String, 6> cases[] = {
      {"/a.b/c", "/a.b/", "c", "", "/a.b/c/", "/a.b/c"},
      {"x.tar.gz", "", "x.tar.gz", ".gz", "x.tar.gz/", "x.tar.gz"},
      {"a.d//", "a.d//", "", "", "a.d//", "a.d/"},
      {".p", "", ".p", ".p", ".p/", ".p"},
      {"", "", "", "", "/", ""}};
  for (const auto& c : cases)
    EXPECT_EQ(c,
              (std::array{c[0], ExtractFilePath(c[0]), ExtractFileName(c[0]), ExtractFileExt(c[0]),
                          IncludeTrailingPathDelimiter(c[0]), ExcludeTrailingPathDelimiter(c[0])}));
  EXPECT_EQ(2, LastDelimiter("./", String("a/\0", 3))) << "a zero byte never counts";
  EXPECT_EQ(!isLeadByte('\xC3'), StrCharLength("\xC3\xA9"));
  EXPECT_EQ(4095, ExtractFileName(ToString(std::string(5000, 'x'))).Length());

  // Odd, and relied upon: the root's own slash precedes no dot, a slash behind "./" stays,
  // what follows two dots is not looked at, and a final ".." below the root leaves nothing.
  const char* expansions[][2] = {
      {"", ""},           {"~/x", "~/x"},           {"/", "/"},
      {"/a/.x", "/a/.x"}, {"/a/.../b", "/a/.../b"}, {"/a/b.c/d.", "/a/b.c/d."},
      {"/a/b/", "/a/b/"}, {"/a/b/../c", "/a/c"},    {"//a//b", "/a/b"},
      {"/a/.", "/a"},     {"/a/././b", "/a/b"},     {"/a/b/../../../c", "/c"},
      {"/a/b/..", "/a"},  {"/./a", "/./a"},         {"/../a", "/../a"},
      {"//../a", "/a"},   {"/a/.//b", "/a//b"},     {"/a/..b", "/..b"},
      {"/a/..", ""},      {"/a/b/../..", ""}};
  for (const auto& [path, expected] : expansions) EXPECT_EQ(expected, ExpandFileName(path)) << path;
  const TTempDir folder;
  const TWorkingFolder here(folder.Folder("sub"));
  EXPECT_EQ(folder.Path("x"), ToStd(ExpandFileName("../x")));
  rmdir(folder.Path("sub").c_str());
  EXPECT_EQ("", GetCurrentDir());
}

/// In front of the library's own: some file systems tell no types.
static bool untyped = false;
extern "C" dirent* readdir(DIR* folder) {
  static const auto next = reinterpret_cast<decltype(&readdir)>(dlsym(RTLD_NEXT, "readdir"));
  dirent* entry = next(folder);
  if (entry != nullptr && untyped) entry->d_type = DT_UNKNOWN;
  return entry;
}

constexpr int kDir = AttrDirectory, kReadOnly = AttrReadOnly, kHidden = AttrHidden;
constexpr TFacts kUnseen = TFacts::kNoReadOnly, kSeen = TFacts::kAll, kKind = TFacts::kKind;

struct FilesTest : testing::Test {
  using TMap = std::map<std::string, int>;  ///< attributes by name

  FilesTest() {
    EXPECT_EQ(0, system("mkdir dir; mkdir -m 300 .hidden; >.x.log; >B.LOG; printf 12345 >a.log;"
                        "chmod 666 a.log; chmod 444 B.LOG; touch -d @1234567890 a.log; mkfifo pipe;"
                        "ln -s dir dirlink; ln -s a.log link.log; chmod 755 ."));
  }
  TMap Find(const char* mask, int attr, TFacts facts = kUnseen,
            TFolders folders = TFolders::kMasked) {
    TMap found;
    TSearchRec rec;
    const TSearchCloser closer(rec);
    int result = FindFirst("", mask, attr, rec, facts, folders);
    for (; result == 0; result = FindNext(rec)) found[rec.EntryName] = rec.Attributes;
    return found;
  }

  const TTempDir folder;
  const TWorkingFolder here{folder.Path()};
};

TEST_F(FilesTest, AreFoundByMaskAndAttributes) {
  const TMap folders = {{".", kDir}, {"..", kDir}, {"dir", kDir}, {".hidden", kDir + kHidden}};
  const TMap writable = {{"a.log", 0}}, both = {{"a.log", 0}, {"B.LOG", 0}};
  TMap all = {{"a.log", 0}, {".x.log", kHidden}, {"B.LOG", 0}, {"pipe", AttrSystem}};
  all.insert(folders.begin(), folders.end());
  std::thread([&] {
    syscall(SYS_setresuid, 65534, 65534, 65534);  // this thread alone; the superuser may write all
    EXPECT_EQ(all, Find("*", -1)) << "all but symbolic links";
    EXPECT_EQ(all, Find("*", -1, kKind));
    untyped = true;
    EXPECT_EQ(all, Find("*", -1, kKind));
    EXPECT_EQ(writable, Find("[aB]*", 0));
    EXPECT_EQ(folders, Find("", AttrAny, kUnseen, TFolders::kAll));
    untyped = false;
    EXPECT_EQ((TMap{{"a.log", 0}, {".x.log", kHidden}}), Find("*.log", kHidden + kReadOnly));
    EXPECT_EQ((TMap{{"B.LOG", 0}, {"pipe", AttrSystem}}), Find("[!a-d]*", AttrSystem + kReadOnly));
    EXPECT_EQ(folders, Find("", AttrAny, kUnseen, TFolders::kAll));
    EXPECT_EQ(both, Find("[aB]*", AttrAny));
    EXPECT_EQ(writable, Find("[aB]*", 0));
    EXPECT_EQ(writable, Find("[aB]*", 0x100, kSeen)) << "an unknown bit";
    EXPECT_EQ((TMap{{"a.log", 0}, {"B.LOG", kReadOnly}}), Find("[aB]*", kReadOnly, kSeen));
    TSearchRec rec;
    EXPECT_EQ(EACCES, FindFirst(".hidden/*", AttrAny, rec));
  }).join();
}

TEST_F(FilesTest, TellTheirFacts) {
  TSearchRec rec;
  const int next = TFd(dup(STDIN_FILENO)).Get();
  ASSERT_EQ(0, FindFirst("a.log", 0, rec)) << "no folder: the working one";
  EXPECT_EQ(std::tuple(5, 1234567890, S_IFREG | 0666u, folder.Path() + '/'),
            std::tuple(rec.ByteSize, rec.ModifiedTime, rec.ModeBits, ToStd(rec.SearchDir)));
  EXPECT_EQ(-1, FindNext(rec));
  EXPECT_NE(nullptr, rec.DirStream) << "the caller closes";
  FindClose(rec);
  EXPECT_EQ(ENOENT, FindFirst("missing/*", AttrAny, rec));
  EXPECT_EQ(-2, FindFirst("none", AttrAny, rec) + FindNext(rec));
  EXPECT_EQ(next, TFd(dup(STDIN_FILENO)).Get()) << "a folder was left open";
  EXPECT_EQ(5 - 1, FileSize("link.log") + FileSize("none"));
  EXPECT_EQ(1234567890 - 1, FileAge("link.log") + FileAge("none"));
  EXPECT_TRUE(FileExists("link.log") && DirectoryExists("dirlink") && DeleteFile("link.log"));
  EXPECT_FALSE(FileExists("pipe") || DirectoryExists("pipe") || DeleteFile("dir"));
  const mode_t former = umask(0);
  struct stat facts;
  EXPECT_TRUE(IsRegularFile(CreateFresh("a.log").Get(), facts) &&
              facts.st_mode == (S_IFREG | 0600));
  umask(former);

  int pair[2];  // of packets, which are read one at a time
  ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, pair));
  const TFd from(pair[0]), to(pair[1]);
  char bytes[8];
  EXPECT_TRUE(WriteFully(to.Get(), "ab", 2) && WriteFully(to.Get(), "cdef", 4));
  EXPECT_EQ(4, ReadFully(from.Get(), bytes, 4));
}

TEST_F(FilesTest, AreFoundUnderNamesThatTheSystemTakes) {
  std::string deep = folder.Path();
  while (deep.size() < PATH_MAX - 120) fs::create_directory(deep += "/" + std::string(99, 'd'));
  deep += "/" + std::string(PATH_MAX - 13 - deep.size(), 'd');
  fs::create_directory(deep);
  const TWorkingFolder inside(deep);
  EXPECT_EQ(0, system(">1234567890; >12345678901"));
  EXPECT_EQ((TMap{{"1234567890", 0}}), Find("1*", AttrAny));
}

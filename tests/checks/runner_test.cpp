#include "checks/process/runner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <thread>

#include "checks/process/child.h"
#include "checks/process/tempfile.h"
#include "support/peers.h"
#include "support/scopes.h"

namespace {
pid_t spared = 0;  // -1: the next child to be killed, which is named here instead
}

/// In place of the C library's, for the whole test program.
extern "C" int kill(pid_t pid, int number) noexcept {
  if (spared != -1) return static_cast<int>(syscall(SYS_kill, pid, number));
  spared = pid;
  errno = EPERM;
  return -1;
}

namespace {

using testing::MatchesRegex;
using TWords = std::vector<std::string>;

TEST(ArgumentBlock, SplitsWithoutAShell) {
  const struct {
    std::string line;
    TWords arguments;
  } cases[] = {
      {"", {}},
      {"'/bin/echo' \"a b\" c", {"/bin/echo", "a b", "c"}},
      {"  a   b  ", {"a", "b"}},
      {"a\tb \tc", {"a", "b", "", "c"}},
      {"a'b c'd \"x'y\"z", {"a'b", "c'd", "x'y", "z"}},
      {"\"\" 'open end", {"", "open end"}},
      {"1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 o", TWords(23, "1")},
      {std::string(1021, 'x') + " y z", {std::string(1021, 'x'), "y"}},
      {std::string(1024, 'x') + " y", {}},
  };
  for (const auto& c : cases) {
    const TArgumentBlock block(c.line.c_str());
    EXPECT_EQ(c.arguments, TWords(block.Argv(), block.Argv() + block.Count())) << c.line;
  }
  EXPECT_EQ(0, TArgumentBlock(nullptr).Count());
}

class RunnerTest : public testing::Test {
 protected:
  /// The folder for temporary files must be empty again: each test keeps its own files elsewhere.
  void TearDown() override { EXPECT_EQ(0, rmdir(temp_.c_str())) << "leftovers in " << temp_; }

  /// "<exit code>", or the error text. Null streams are "/dev/null".
  static std::string Run(const std::string& line, int timeoutMs, const char* workdir = nullptr,
                         const char* in = nullptr, const char* out = nullptr,
                         const char* errors = nullptr) {
    int exitCode = -1;
    String err = "old";
    const int result = SystemEx2(line.c_str(), workdir, in, out, errors, timeoutMs, exitCode, err);
    EXPECT_EQ(result == 1, err.Empty());
    EXPECT_FALSE(timeoutMs == kRunInBackground && exitCode == -1);
    return result == 1 ? std::to_string(exitCode) : ToStd(err);
  }
  std::string Script(const std::string& text) const {
    return "/bin/sh " + dir_.File("script", text);
  }

  const TTempDir dir_;
  const std::string temp_ = dir_.Folder("temp");
  const std::string out_ = dir_.Path("out");
  const TEnvironment tmpdir_{"TMPDIR", temp_.c_str()};
};

TEST_F(RunnerTest, ReportsExitCodesAndFailures) {
  const std::string missing = "exec error: No such file or directory";
  const std::string denied = "exec error: Permission denied";
  const std::string plain = dir_.File("plain", "exit 3");
  const std::string unmarked = dir_.File("unmarked", "exit $(($# + 7))");
  const std::string busy = dir_.File("busy", "exit 9");
  chmod(unmarked.c_str(), 0755);
  chmod(busy.c_str(), 0755);
  TFd writer(open(busy.c_str(), O_WRONLY | O_CLOEXEC));
  const struct {
    std::string line;
    int timeoutMs;
    std::string result;
  } cases[] = {
      {"/bin/sh -c 'exit 255'", 5000, "255"},
      {unmarked + " 'a b' c", 5000, "9"},
      {busy, 0, "9"},
      {"nosuchprogram", 0, missing},
      {"/no/such/program", -2, missing},
      {"", 0, missing},
      {plain, 0, denied},
      {"/bin/sh -c 'kill -9 $$'", 0, "abnormal termination"},
      {"sleep 60", 1500, "abnormal termination"},
      {"sleep 60", -2, "abnormal termination"},
      {"sleep 1.05", 1000, "0"},
      {"/no/such/program", kRunInBackground, "exec error"},
      {"/bin/sh -c 'exit 3'", kRunInBackground, "3"},
  };
  std::vector<std::thread> threads;
  for (const auto& c : cases) {
    threads.emplace_back(
        [&c] { EXPECT_EQ(c.result, Run(c.line, c.timeoutMs)) << c.line << " / " << c.timeoutMs; });
  }
  usleep(100000);
  writer.Reset();
  for (std::thread& thread : threads) thread.join();
  const TEnvironment path("PATH", (dir_.Path() + ":/no/such:").c_str());
  EXPECT_EQ("7", Run("unmarked", 0));
  EXPECT_EQ(denied, Run("plain", 0)) << "goes on behind a denied one, and reports it";
  EXPECT_EQ("7", Run("unmarked", 0, dir_.Path().c_str()));
}

TEST_F(RunnerTest, TellsWhatTheSystemRefuses) {
  const rlimit none = {0, 0};
  const pid_t pid = fork();
  if (pid == 0) {  // without rights, which no limit would bind
    const bool bound = setrlimit(RLIMIT_NPROC, &none) == 0 && (setuid(65534) == 0 || getuid() != 0);
    _exit(bound && Run("/bin/true", 0) == "fork error" && !RunShell("true") ? 0 : 1);
  }
  int status;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_EQ(0, status);
  spared = -1;
  EXPECT_EQ("cannot terminate process", Run("sleep 60", -2));
  EXPECT_EQ(0, kill(spared, SIGKILL));
}

TEST_F(RunnerTest, RedirectsEachStream) {
  const std::string in = dir_.File("in", "from in\n");
  const std::string errors = dir_.File("errors", "old content, longer than the new one");
  const std::string link = dir_.Path("link"), seen = dir_.Path("seen");
  const std::string line = Script(
      "cat; pwd; echo oops >&2\n"
      "echo \"$(readlink /proc/$$/fd/0 /proc/$$/fd/1 /proc/$$/fd/2)\" >" +
      seen);
  const char* out = out_.c_str();
  EXPECT_EQ("0", Run(line, 9000, "/", in.c_str(), out, errors.c_str()));
  EXPECT_EQ("from in\n/\n", ReadFile(out_));
  EXPECT_EQ("oops\n", ReadFile(errors));
  EXPECT_EQ("0", Run(line, 9000, "/no/such", nullptr, out));
  EXPECT_EQ(std::filesystem::current_path().string() + "\n", ReadFile(out_));
  ASSERT_EQ(0, symlink(in.c_str(), link.c_str()));
  EXPECT_EQ("0", Run(line, 9000, nullptr, nullptr, link.c_str()));
  EXPECT_EQ("from in\n", ReadFile(in)) << "a link is not followed";
  EXPECT_EQ("0", Run(line, 9000, nullptr, "/no/such", nullptr, temp_.c_str()));
  EXPECT_EQ("/dev/null\n/dev/null\n/dev/null\n", ReadFile(seen));
  EXPECT_EQ("0", Run(Script("echo aaaa; echo b >&2"), 0, nullptr, nullptr, out, out));
  EXPECT_EQ("b\naa\n", ReadFile(out_)) << "one file, two positions";

  const std::string pipe = dir_.Path("pipe");
  ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
  EXPECT_EQ("0", Run("cat", 9000, nullptr, pipe.c_str(), out));
  const TFd writer(open(pipe.c_str(), O_RDWR | O_CLOEXEC));
  std::thread reader([&] { EXPECT_EQ("0", Run("head -n 1", 9000, nullptr, pipe.c_str(), out)); });
  usleep(100000);
  EXPECT_EQ(5, write(writer.Get(), "late\n", 5));
  reader.join();
  EXPECT_EQ("late\n", ReadFile(out_)) << "waited for";
}

TEST_F(RunnerTest, StartsChildrenInACleanState) {
  const TFd leaked(open("/dev/null", O_RDONLY));  // inheritable on purpose
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  const auto oldAction = signal(SIGPIPE, SIG_IGN);
  SetChildDescriptorLimit({123, 4567});
  const std::string line = Script(
      "i=0; while [ $(ulimit -n) != 123 ] && [ $i -lt 500 ]; do i=$((i + 1)); sleep .01; done\n"
      "ls -1 /proc/self/fd; grep Sig[BI] /proc/self/status; ulimit -n; ulimit -Hn\n"
      "read -r pid name state parent group session rest </proc/$$/stat\n"
      "test $$ = $session && echo leader; echo $0 $TMPDIR");
  EXPECT_EQ("0", Run(line, 0, nullptr, nullptr, out_.c_str()));
  signal(SIGPIPE, oldAction);
  pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  const std::string end = "123\n4567\nleader\n" + dir_.Path("script") + " " + temp_ + "\n";
  EXPECT_THAT(ReadFile(out_),  // 3 is the listing's own, 32 and 33 are the library's signals
              MatchesRegex("0\n1\n2\n3\nSigBlk:\t0+\nSigIgn:\t0+(18)?0+\n" + end));
  const std::string command = "echo $0 $TMPDIR >" + out_ + "; exit 3";
  EXPECT_TRUE(RunShell(command.c_str()));
  EXPECT_EQ("sh " + temp_ + "\n", ReadFile(out_));
}

TEST_F(RunnerTest, ReapsBackgroundChildren) {
  if (fork() == 0) _exit(0);  // as an earlier image left it
  signal(SIGCHLD, SIG_IGN);   // as a starter may leave it
  PrepareToWaitForChildren();
  EXPECT_EQ("7", Run("/bin/sh -c 'exit 7'", 0));
  std::vector<std::thread> starters;
  for (int i = 0; i < 5; ++i) {
    starters.emplace_back([] { EXPECT_EQ("0", Run("sleep 1.5", kRunInBackground)); });
  }
  for (std::thread& starter : starters) starter.join();
  siginfo_t info;
  EXPECT_TRUE(Await([&] {
    ReapBackgroundChildren();
    return waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1;
  })) << "children or zombies are left";
}

/// The path chosen for `name`, "" on failure.
std::string Chosen(const char* name, int size = 512) {
  char buf[2048];
  memset(buf, 'x', sizeof buf);
  const bool made = gettempfilename(buf, size, name) == 1;
  EXPECT_EQ(made, buf[0] != 0);
  EXPECT_EQ('x', buf[size]) << "wrote behind the buffer";
  return buf;
}

TEST(GetTempFileName, MakesNames) {
  const TTempDir dir;
  const TEnvironment tmp("TMP", nullptr), none("TMPDIR", nullptr);
  EXPECT_EQ("./n", Chosen("n"));
  const TEnvironment folder("TMPDIR", "/folder");
  EXPECT_EQ("/folder/123456789012345", Chosen("1234567890123456", 24));
  EXPECT_EQ("", Chosen("n", 23));
  char buf[15] = "kept";
  EXPECT_EQ(0, gettempfilename(buf, sizeof buf, "n"));
  EXPECT_STREQ("kept", buf);
  const TEnvironment longFolder("TMPDIR", std::string(1100, 'd').c_str());
  EXPECT_EQ("", Chosen(nullptr, 2000)) << "no room for a number";
  const TEnvironment own("TMPDIR", dir.Path().c_str());
  const std::string name = "tmp-" + std::to_string(GetUniqueThreadID()) + "-";
  dir.File(name + "999999");
  filenumber = 999997;
  for (const char* number : {"999998", "1000000", "1", "2"}) {
    EXPECT_EQ(dir.Path(name + number), Chosen(nullptr));
  }
}

TEST(TempFile, NeverFollowsAPlantedLinkAndLeavesNothing) {
  const TTempDir dir;
  const TEnvironment folder("TMPDIR", dir.Path().c_str());
  const std::string victim = dir.File("victim", "untouched"), path = dir.Path("name");
  struct stat facts;
  const mode_t mask = umask(022);
  {
    TTempFile file;
    ASSERT_TRUE(file.Choose("name"));
    ASSERT_EQ(0, symlink(victim.c_str(), path.c_str()));
    EXPECT_EQ(nullptr, file.OpenText());
    const TFd fd = file.Create();
    ASSERT_EQ(0, lstat(path.c_str(), &facts));
    EXPECT_EQ(S_IFREG | 0644u, facts.st_mode);
    EXPECT_EQ(nullptr, file.OpenText()) << "not written";
    EXPECT_TRUE(TFd(open(path.c_str(), O_WRONLY | O_TRUNC)));
    EXPECT_NE(nullptr, file.OpenText());
    RemoveTempFiles();
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600)) << "removed already";
    EXPECT_EQ(nullptr, file.OpenText()) << "a pipe, which would block";
  }
  umask(mask);
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
    const bool refused = ExecuteAndRemoveTempFiles("/no/such", argv, environ) == ENOENT &&
                         ExecuteAndRemoveTempFiles("/", argv, environ) == EACCES;
    const bool noChildLeft = waitpid(-1, nullptr, WNOHANG) == -1;
    const bool stays =
        access(first.Path(), F_OK) == 0 && second.Choose("second") && second.Create();
    if (made && refused && noChildLeft && stays) ExecuteAndRemoveTempFiles(program, argv, environ);
    _exit(1);
  }
  int status;
  ASSERT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_EQ(0, status);
  EXPECT_TRUE(Await([&] { return rmdir(dir.Path().c_str()) == 0; })) << "files are left";
}

}  // namespace

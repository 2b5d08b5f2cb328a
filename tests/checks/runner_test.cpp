#include "checks/process/runner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "checks/process/arguments.h"
#include "support/scopes.h"

namespace {

using testing::HasSubstr;
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
      {"a\t\tb\t", {"a", "", "b"}},
      {"a'b c'd \"x'y\"z", {"a'b", "c'd", "x'y", "z"}},
      {"\"\" 'open end", {"", "open end"}},
      {"a\\ b $HOME *", {"a\\", "b", "$HOME", "*"}},
      {"1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 o", TWords(23, "1")},
      {std::string(1023, 'x') + " y", {std::string(1023, 'x')}},
      {std::string(1021, 'x') + " y z", {std::string(1021, 'x'), "y"}},
      {std::string(1024, 'x') + " y", {}},
  };
  for (const auto& c : cases) {
    const TArgumentBlock block(c.line.c_str());
    EXPECT_EQ(c.arguments, TWords(block.Argv(), block.Argv() + block.Count())) << c.line;
    EXPECT_EQ(nullptr, block.Argv()[block.Count()]);
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
  const std::string unmarked = dir_.File("unmarked", "exit 7");
  ASSERT_EQ(0, chmod(unmarked.c_str(), 0755));
  const struct {
    std::string line;
    int timeoutMs;
    std::string result;
  } cases[] = {
      {"/bin/sh -c 'exit 42'", 5000, "42"},
      {unmarked, 5000, "7"},
      {"nosuchprogram", 0, missing},
      {"/no/such/program", -2, missing},
      {"", 0, missing},
      {plain, 0, denied},
      {"/bin/sh -c 'kill -9 $$'", 0, "abnormal termination"},
      {"sleep 60", 1500, "abnormal termination"},
      {"sleep 60", -2, "abnormal termination"},
      {"sleep 1.3", 3000, "0"},
      {"/no/such/program", -1, "exec error"},
      {"/bin/sh -c 'exit 3'", -1, "3"},
      {"/bin/sh -c 'kill -9 $$'", -1, "0"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.result, Run(c.line, c.timeoutMs)) << c.line << " / " << c.timeoutMs;
  }
  const TEnvironment path("PATH", (dir_.Path() + ":/no/such:").c_str());
  EXPECT_EQ("7", Run("unmarked", 0));
  EXPECT_EQ(denied, Run("plain", 0)) << "goes on behind a denied one, and reports it";
  EXPECT_EQ("7", Run("unmarked", 0, dir_.Path().c_str()));
}

TEST_F(RunnerTest, CountsOnlyTheChildsOwnNote) {
  EXPECT_EQ("255", Run(Script("echo made >$TMPDIR/tmpSqov-$$.txt; exit 255"), 0));
  // The next child's identifier is not known, so links wait under many.
  const std::string victim = dir_.File("victim", "untouched");
  for (int pid = getpid(); pid < getpid() + 2000; ++pid) {
    const std::string name = temp_ + "/tmpSqov-" + std::to_string(pid) + ".txt";
    unlink(name.c_str());
    ASSERT_EQ(0, symlink(victim.c_str(), name.c_str()));
  }
  EXPECT_EQ("exec error: No such file or directory", Run("nosuchprogram", 0));
  EXPECT_EQ("untouched", ReadFile(victim));
  std::filesystem::remove_all(temp_);
  std::filesystem::create_directory(temp_);
}

TEST_F(RunnerTest, RedirectsEachStream) {
  const std::string in = dir_.File("in", "from in\n");
  const std::string errors = dir_.File("errors", "old content, longer than the new one");
  const std::string line = Script("cat; pwd; echo oops >&2");
  const char* out = out_.c_str();
  EXPECT_EQ("0", Run(line, 0, "/", in.c_str(), out, errors.c_str()));
  EXPECT_EQ("from in\n/\n", ReadFile(out_));
  EXPECT_EQ("oops\n", ReadFile(errors));
  EXPECT_EQ("0", Run(line, 0, "/no/such", "/no/such", out));
  EXPECT_EQ(std::filesystem::current_path().string() + "\n", ReadFile(out_));
  EXPECT_EQ("0", Run(Script("echo aaaa; echo b >&2"), 0, nullptr, nullptr, out, out));
  EXPECT_EQ("b\naa\n", ReadFile(out_)) << "one file, two positions";
  const std::string link = dir_.Path("link");
  ASSERT_EQ(0, symlink(in.c_str(), link.c_str()));
  EXPECT_EQ("0", Run(line, 0, nullptr, nullptr, link.c_str()));
  EXPECT_EQ("from in\n", ReadFile(in)) << "a link is not followed";
}

TEST_F(RunnerTest, StartsChildrenInACleanState) {
  const int leaked = open("/dev/null", O_RDONLY);  // inheritable on purpose
  const int high = fcntl(leaked, F_DUPFD, 70);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  const auto oldAction = signal(SIGPIPE, SIG_IGN);
  SetChildDescriptorLimit({123, 4567});
  Run(Script("ls -1 /proc/self/fd; cat /proc/self/status /proc/self/limits\n"
             "read -r pid name state parent group session rest </proc/$$/stat\n"
             "echo tmp=$TMPDIR; test $$ = $session && echo leader"),
      0, nullptr, nullptr, out_.c_str());
  signal(SIGPIPE, oldAction);
  pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  close(leaked);
  close(high);
  const std::string state = ReadFile(out_);
  EXPECT_EQ("0\n1\n2\n3\nName:", state.substr(0, 13)) << "3 is the listing's own";
  EXPECT_THAT(state, HasSubstr("SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000"));
  EXPECT_THAT(state, HasSubstr("Max open files            123                  4567"));
  EXPECT_THAT(state, HasSubstr("tmp=" + temp_ + "\nleader\n"));
}

TEST_F(RunnerTest, ReapsBackgroundChildren) {
  signal(SIGCHLD, SIG_IGN);  // as a starter may leave it
  PrepareToWaitForChildren();
  EXPECT_EQ("7", Run("/bin/sh -c 'exit 7'", 0));
  const auto start = [] { EXPECT_EQ("0", Run("sleep 1.5", kRunInBackground)); };
  std::vector<std::thread> starters;
  for (int i = 0; i < 20; ++i) starters.emplace_back(start);
  for (std::thread& starter : starters) starter.join();
  int tries = 1000;
  siginfo_t info;
  while (--tries > 0 && waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
    ReapBackgroundChildren();
    usleep(10000);
  }
  EXPECT_GT(tries, 0) << "children or zombies are left";
}

volatile sig_atomic_t interrupts = 0;

TEST_F(RunnerTest, ShellLeavesSignalHandlingAlone) {
  const std::string command = "kill -INT $PPID; echo \"$0 $TMPDIR\" >" + out_ + "; exit 3";
  const auto oldAction = signal(SIGINT, [](int) { interrupts = interrupts + 1; });
  const int status = RunShell(command.c_str());
  signal(SIGINT, oldAction);
  EXPECT_EQ(1, interrupts);
  EXPECT_EQ(3, WIFEXITED(status) ? WEXITSTATUS(status) : -1);
  EXPECT_EQ("sh " + temp_ + "\n", ReadFile(out_));
}

}  // namespace

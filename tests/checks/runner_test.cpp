#include "checks/runner.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "checks/arguments.h"
#include "support/environment.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

using testing::HasSubstr;
using TWords = std::vector<std::string>;

std::string Repeated(const std::string& text, int times) {
  std::string result;
  while (times-- > 0) result += text;
  return result;
}

TEST(ArgumentBlock, SplitsWithoutAShell) {
  const struct {
    std::string line;
    TWords arguments;
  } cases[] = {
      {"", {}},
      {"   ", {}},
      {"'/bin/echo' \"a b\" c", {"/bin/echo", "a b", "c"}},
      {"  a   b  ", {"a", "b"}},
      {"a\tb", {"a", "b"}},
      {"a \tb", {"a", "", "b"}},
      {"a\t\tb\t", {"a", "", "b"}},
      {"a'b c'd \"x'y\"z", {"a'b", "c'd", "x'y", "z"}},
      {"\"\" 'open end", {"", "open end"}},
      {"a\\ b $HOME *", {"a\\", "b", "$HOME", "*"}},
      {Repeated("w ", 30), TWords(23, "w")},
      {std::string(1023, 'x') + " y", {std::string(1023, 'x')}},
      {std::string(1021, 'x') + " y z", {std::string(1021, 'x'), "y"}},
      {std::string(1024, 'x') + " y", {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    const TArgumentBlock block(c.line.c_str());
    EXPECT_EQ(c.arguments, TWords(block.Argv(), block.Argv() + block.Count()));
    EXPECT_EQ(nullptr, block.Argv()[block.Count()]);
  }
  EXPECT_EQ(0, TArgumentBlock(nullptr).Count());
}

class RunnerTest : public testing::Test {
 protected:
  /// The folder for temporary files must be empty again: each test keeps its own files elsewhere.
  void TearDown() override { EXPECT_NE(-1, rmdir(temp_.c_str())) << "leftovers in " << temp_; }

  /// "<exit code>", or the error text.
  std::string Run(const std::string& line, int timeoutMs, const char* workdir = nullptr) {
    int exitCode = -1;
    String err = "old";
    const int result = SystemEx(line.c_str(), workdir, timeoutMs, exitCode, err);
    EXPECT_EQ(result == 1, err.Empty());
    return result == 1 ? std::to_string(exitCode) : ToStd(err);
  }
  /// What a script writes to standard output.
  std::string Output(const std::string& script, const char* workdir = nullptr) {
    const std::string line = "/bin/sh " + dir_.File("script", script);
    int exitCode;
    String err;
    EXPECT_EQ(1, SystemEx2(line.c_str(), workdir, nullptr, Out(), nullptr, 0, exitCode, err));
    return ReadFile(Out());
  }
  std::string Program(const std::string& name, const std::string& text) {
    const std::string path = dir_.File(name, text);
    chmod(path.c_str(), 0755);
    return path;
  }
  const char* Out() const { return out_.c_str(); }

  const TTempDir dir_;
  const std::string temp_ = dir_.Folder("temp");
  const std::string out_ = dir_.Path("out");
  const TEnvironment tmpdir_{"TMPDIR", temp_.c_str()};
};

TEST_F(RunnerTest, ReportsExitCodesAndFailures) {
  const std::string missing = "exec error: No such file or directory";
  const std::string denied = "exec error: Permission denied";
  const std::string plain = dir_.File("plain", "exit 3");
  const struct {
    std::string line;
    int timeoutMs;
    std::string result;
  } cases[] = {
      {"true", 0, "0"},
      {"/bin/sh -c 'exit 42'", 5000, "42"},
      {"/bin/sh -c 'exit 255'", 5000, "255"},  // no note: the program's own doing
      {Program("unmarked", "exit 7"), 5000, "7"},
      {"/no/such/program", 5000, missing},
      {"nosuchprogram", 0, missing},
      {"/no/such/program", -2, missing},
      {"", 0, missing},
      {"''", 0, missing},
      {plain, 0, denied},
      {dir_.Path(), 0, denied},
      {"/bin/sh -c 'kill -9 $$'", 0, "abnormal termination"},
      {"sleep 60", 1500, "abnormal termination"},
      {"sleep 60", -2, "abnormal termination"},
      {"sleep 1.3", 3000, "0"},
      {"/no/such/program", -1, "exec error"},
      {"/bin/sh -c 'exit 3'", -1, "3"},
      {"/bin/sh -c 'exit 255'", -1, "255"},
      {"/bin/sh -c 'kill -9 $$'", -1, "0"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line + " / " + std::to_string(c.timeoutMs));
    EXPECT_EQ(c.result, Run(c.line, c.timeoutMs));
  }
  const TEnvironment path("PATH", (dir_.Path() + ":/no/such:").c_str());
  EXPECT_EQ("7", Run("unmarked", 0));
  EXPECT_EQ(denied, Run("plain", 0)) << "goes on behind a denied one, and reports it";
  EXPECT_EQ("7", Run("unmarked", 0, dir_.Path().c_str()));
}

TEST_F(RunnerTest, CountsOnlyTheChildsOwnNote) {
  EXPECT_EQ(
      "255",
      Run("/bin/sh " + dir_.File("script", "echo made >$TMPDIR/tmpSqov-$$.txt; exit 255"), 0));
  ASSERT_EQ(0, system(("rm " + temp_ + "/tmpSqov-*").c_str())) << "the program's own file";
  // Identifiers of the next children are not known, so notes wait under many of them.
  const std::string victim = dir_.File("victim", "exec error: planted");
  std::vector<std::string> planted;
  for (int pid = getpid(); pid < getpid() + 2000; ++pid) {
    planted.push_back(temp_ + "/tmpSqov-" + std::to_string(pid) + ".txt");
    ASSERT_EQ(0, symlink(victim.c_str(), planted.back().c_str()));
  }
  EXPECT_EQ("exec error: No such file or directory", Run("nosuchprogram", 0));
  for (const std::string& path : planted) unlink(path.c_str());
  EXPECT_EQ("exec error: planted", ReadFile(victim));
}

TEST_F(RunnerTest, RedirectsEachStream) {
  const std::string in = dir_.File("in", "from in\n");
  const std::string errors = dir_.File("errors", "old content, longer than the new one");
  const std::string line = "/bin/sh " + dir_.File("script", "cat; echo oops >&2; pwd");
  int exitCode;
  String err;
  ASSERT_EQ(1, SystemEx2(line.c_str(), "/", in.c_str(), Out(), errors.c_str(), 0, exitCode, err));
  EXPECT_EQ("from in\n/\n", ReadFile(Out()));
  EXPECT_EQ("oops\n", ReadFile(errors));

  ASSERT_EQ(1, SystemEx2(line.c_str(), "/no/such", dir_.Path("none").c_str(), Out(), nullptr, 0,
                         exitCode, err));
  char own[4096];
  EXPECT_EQ(std::string(getcwd(own, sizeof own)) + "\n", ReadFile(Out()));

  const std::string both = "/bin/sh " + dir_.File("both", "echo aaaa; echo b >&2");
  ASSERT_EQ(1, SystemEx2(both.c_str(), nullptr, nullptr, Out(), Out(), 0, exitCode, err));
  EXPECT_EQ("b\naa\n", ReadFile(Out())) << "one file, two positions";

  ASSERT_EQ(0, unlink(Out()));
  ASSERT_EQ(0, symlink(in.c_str(), Out()));
  ASSERT_EQ(1, SystemEx2(both.c_str(), nullptr, nullptr, Out(), Out(), 0, exitCode, err));
  EXPECT_EQ("from in\n", ReadFile(in)) << "a link is not followed";
}

TEST_F(RunnerTest, StartsChildrenInACleanState) {
  const int leaked = open("/dev/null", O_RDONLY);  // NOLINT: inheritable on purpose
  ASSERT_NE(-1, fcntl(leaked, F_DUPFD, 70));
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  const auto oldAction = signal(SIGPIPE, SIG_IGN);
  SetChildDescriptorLimit({123, 4567});
  const std::string state = Output(
      "ls -1 /proc/self/fd; cat /proc/self/status /proc/self/limits\n"
      "echo tmp=$TMPDIR; read -r pid name state parent group session rest </proc/$$/stat\n"
      "test $$ = $session && echo leader");
  signal(SIGPIPE, oldAction);
  pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  close(leaked);
  EXPECT_EQ("0\n1\n2\n3\nName:", state.substr(0, 13)) << "3 is the listing's own";
  EXPECT_THAT(state, HasSubstr("SigBlk:\t0000000000000000\nSigIgn:\t0000000000000000"));
  EXPECT_THAT(state, HasSubstr("Max open files            123                  4567"));
  EXPECT_THAT(state, HasSubstr("tmp=" + temp_ + "\nleader\n"));
}

TEST_F(RunnerTest, ReapsBackgroundChildren) {
  signal(SIGCHLD, SIG_IGN);  // as a starter may leave it
  PrepareToWaitForChildren();
  EXPECT_EQ("7", Run("/bin/sh -c 'exit 7'", 0));
  std::vector<std::thread> starters;
  for (int i = 0; i < 20; ++i) {
    starters.emplace_back([this] { EXPECT_EQ("0", Run("sleep 1.5", kRunInBackground)); });
  }
  for (std::thread& starter : starters) starter.join();
  EXPECT_NE(-1, waitid(P_ALL, 0, nullptr, WEXITED | WNOHANG | WNOWAIT)) << "some must run on";
  int tries = 1000;
  siginfo_t info;
  while (--tries > 0 && waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == 0) {
    ReapBackgroundChildren();
    usleep(10000);
  }
  EXPECT_GT(tries, 0) << "children or zombies are left";
}

TEST_F(RunnerTest, AnswersManyThreadsAtOnce) {
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 25; ++i) {
        const int code = (t * 25 + i) % 250;
        right +=
            Run("/bin/sh -c 'exit " + std::to_string(code) + "'", 60000) == std::to_string(code);
        right += Run("nosuchprogram", 0) == "exec error: No such file or directory";
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(400, right);
}

volatile sig_atomic_t interrupts = 0;

TEST_F(RunnerTest, ShellLeavesSignalHandlingAlone) {
  const std::string command = "kill -INT $PPID; echo \"$0 $TMPDIR\" >" + out_ + "; exit 3";
  const auto oldAction = signal(SIGINT, [](int) { interrupts = interrupts + 1; });
  const int status = RunShell(command.c_str());
  signal(SIGINT, oldAction);
  EXPECT_EQ(1, interrupts);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(3, WEXITSTATUS(status));
  EXPECT_EQ("sh " + temp_ + "\n", ReadFile(Out()));
}

}  // namespace

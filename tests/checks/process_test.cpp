#include <fcntl.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include "checks/actions.h"
#include "checks/nettests.h"
#include "checks/process/child.h"
#include "checks/process/proctests.h"
#include "checks/process/runner.h"
#include "checks/process/tempfile.h"
#include "support/handlercall.h"
#include "support/peers.h"

// -1: the calls below, replaced, fail until a child is to be killed, which is named here instead
static pid_t spared = 0;

extern "C" int kill(pid_t pid, int number) noexcept {
  if (spared != -1) return static_cast<int>(syscall(SYS_kill, pid, number));
  spared = pid;
  return -1;
}
extern "C" int fchmod(int fd, mode_t mode) noexcept {
  return spared == -1 ? -1 : static_cast<int>(syscall(SYS_fchmod, fd, mode));
}

constexpr THandler kCount = ProcessTest_Process, kCpu = ProcessTest_CPU;
constexpr THandler kList = ProcessInfo_ProcessesList, kShell = ProcessTest_ShellScript;
constexpr char kNoResults[] = "301\nCannot get script results";

TEST(ArgumentBlock, SplitsWithoutAShell) {
  const std::string full(1021, 'x');
  const std::pair<std::string, TWords> cases[] = {
      {"'/bin/echo' \"a b\" c", {"/bin/echo", "a b", "c"}},
      {"  a   b  ", {"a", "b"}},
      {"a'b c'd \"x'y\"z", {"a'b", "c'd", "x'y", "z"}},
      {"a\tb \tc", {"a", "b", "", "c"}},
      {"\"\" 'open end", {"", "open end"}},
      {"1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 1 o", TWords(23, "1")},
      {full + " y z", {full, "y"}},
      {full + "xxx y", {}}};
  for (const auto& [line, words] : cases) {
    const TArgumentBlock block(line.c_str());
    const char* const* end = std::find(block.Argv(), block.Argv() + 24, nullptr);
    EXPECT_EQ(words, TWords(block.Argv(), end)) << line;
  }
  EXPECT_EQ(nullptr, TArgumentBlock(nullptr).Argv()[0]);
}

/// With a folder for temporary files that is empty again at the end.
struct ProcTest : TCheckTest {
  ~ProcTest() override { EXPECT_EQ(0, rmdir(temp_.c_str())) << "leftovers in " << temp_; }

  std::string Program(const std::string& text, const char* name = "script") const {
    const std::string path = dir_.File(name, text);
    EXPECT_EQ(0, chmod(path.c_str(), 0755));
    return path;
  }
  /// Asks with `path` as the script of all three settings.
  static std::string Ask(THandler handler, const std::string& path, const TWords& params = {}) {
    ChangeSettings([&](TQovSettings& settings) {
      settings.proccntscript = settings.cpuusagescript = settings.proclistscript = path.c_str();
    });
    return CallHandler(handler, params);
  }

  const std::string temp_ = dir_.Folder("temp");
  const std::string id_ = std::to_string(GetUniqueThreadID());
  const TEnvironment tmpdir_{"TMPDIR", temp_.c_str()};
};

TEST_F(ProcTest, TellsExitCodesAndFailures) {
  if (fork() == 0) _exit(0);  // as an earlier image left it
  signal(SIGCHLD, SIG_IGN);   // as a starter may leave it
  PrepareToWaitForChildren();
  const std::string denied = "301\nexec error: Permission denied";
  const std::string plain = dir_.File("plain", "exit 3"), busy = Program("exit 9", "busy");
  const std::string unmarked = Program("exit $(($# + 7))", "unmarked");
  EXPECT_EQ(0, system(("exec 3>>" + busy + "; sleep .1 &").c_str()));
  ExpectMatches(
      ProcessTest_External,
      {{"200\n255\n", "/bin/sh -c 'exit 255',,,-1|/bin/sh -c 'exit 255',,,5000"},
       {"200\n5\n", "/bin/sh -c 'exit $((${#0} % 8))' ' a \xFF ,,,0"},
       {"200\n9\n", unmarked + " 'a b' c,,,5000|" + busy},
       {"301\nexec error: No such file or directory", "nosuchprogram|/no/such/program,,,-2|\"\""},
       {denied, plain},
       {"301\nabnormal termination", "/bin/sh -c 'kill -9 $$'|sleep 60,,,1500|sleep 60,,,-2"},
       {"200\n0\n", "sleep 1.05,,,1000|sleep 1.5,,,-1|sleep 1.5"},
       {"301\nexec error", "/no/such/program,,,-1"},
       {"501\nWrong parameter", ",,,1s"},
       {"501\n", " ,,,1000"}});
  Program("exit 5", "sub/inner");
  const TEnvironment path("PATH", (dir_.Path() + ":/no/such:").c_str());
  ExpectMatches(
      ProcessAct_ExternalCmd,
      {{"200\n7\n", "unmarked"}, {denied, "plain"}, {"200\n5\n", "inner," + dir_.Path("sub")}});
  EXPECT_TRUE(Await([] {
    ReapBackgroundChildren();
    return ReadFile("/proc/thread-self/children").empty();
  })) << "children or zombies are left";
}

TEST_F(ProcTest, TellsWhatIsMissingOrRefused) {
  const auto bound = [] {  // without rights, which no limit would bind
    const rlimit none = {0, 0}, small = {3, 3};
    setenv("TMPDIR", "/tmp", 1);
    signal(SIGXFSZ, SIG_IGN);
    EXPECT_EQ(0, setrlimit(RLIMIT_FSIZE, &small) + setrlimit(RLIMIT_NPROC, &none));
    EXPECT_TRUE(setuid(65534) == 0 || getuid() != 0);
    EXPECT_EQ("301\nfork error", CallHandler(ProcessTest_External, {"/bin/true"}));
    EXPECT_EQ("301\nCannot execute script", Ask(kList, "/bin/true"));
    EXPECT_EQ("301\ncannot create temp file", CallHandler(kShell, {"", "true"}));
    setrlimit(RLIMIT_NOFILE, &none);
    const std::string noSocket = "301\n\n-3\n";
    EXPECT_EQ(noSocket, CallHandler(ProcessTest_TCP, {"127.0.0.1", "9", "0", "", "0"}));
    EXPECT_EQ(noSocket, CallHandler(ProcessTest_UDP, {"127.0.0.1", "9", "0", "1", "x", "0"}));
    _exit(HasFailure() ? 1 : 0);
  };
  EXPECT_EXIT(bound(), testing::ExitedWithCode(0), "");
  spared = -1;
  EXPECT_EQ("301\nCannot set exec flag for script", CallHandler(kShell, {}));
  EXPECT_EQ("301\ncannot terminate process",
            CallHandler(ProcessTest_External, {"sleep 60", "", "", "-2"}));
  EXPECT_EQ(0, kill(spared, SIGKILL));

  for (const auto& [name, handler] :
       {std::pair("301\nProcCnt", kCount), {"301\nCPUUsage", kCpu}, {"301\nProcList", kList}}) {
    EXPECT_EQ(name + std::string(" script is not speified"), Ask(handler, ""));
    EXPECT_EQ(name + std::string(" script doesn't exist"), Ask(handler, temp_));
  }
  const TEnvironment noFolder("TMPDIR", dir_.Path("missing").c_str());
  EXPECT_EQ(kNoResults, Ask(kList, "/bin/true"));
  EXPECT_EQ("301\nCannot create temp file", Ask(kShell, ""));
  const TEnvironment longFolder("TMPDIR", std::string(500, 'd').c_str());
  EXPECT_EQ("301\ncannot get temp file", Ask(kList, "/bin/true"));
  EXPECT_EQ("301\nCannot get temp file", Ask(kShell, ""));
}

TEST_F(ProcTest, RedirectsStreamsOfChildrenInACleanState) {
  const TFd leaked(open("/dev/null", O_RDONLY));  // inheritable on purpose
  sigset_t blocked{};
  sigaddset(&blocked, SIGUSR2);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  const sighandler_t former = signal(SIGPIPE, SIG_IGN);
  rlimit limit{123, 4567};
  SetChildDescriptorLimit(limit);
  const TWorkingFolder here(dir_.Path());
  dir_.File("in", "from in\n");
  dir_.File("errors", "old content, longer than the new one");
  ASSERT_EQ(0, symlink("in", "link") + mkfifo("pipe", 0600));
  const auto run = [this](const std::string& script, auto dir, auto in, auto out, auto error) {
    int exitCode = -1;
    String err = "old";
    EXPECT_EQ(1, SystemEx2(Program(script).c_str(), dir, in, out, error, 9000, exitCode, err));
    EXPECT_EQ("0", std::to_string(exitCode) + ToStd(err));
  };
  const std::string line =
      "i=0; while [ $(ulimit -n) != 123 ] && [ $i -lt 500 ]; do i=$((i + 1)); sleep .01; done\n"
      "ls -1 /proc/self/fd; grep Sig[BI] /proc/self/status; ulimit -n; ulimit -Hn\n"
      "test $$ = $(cut -d ' ' -f 6 /proc/$$/stat) && echo leader; echo $0 $TMPDIR\n"
      "cat; pwd; echo oops >&2; echo \"$(readlink /proc/$$/cwd /proc/$$/fd/[012])\" >$0.seen";
  run(line, "/", "in", "out", "errors");
  // 3 is the listing's own, 32 and 33 are the library's signals.
  const std::string status = "0\n1\n2\n3\nSigBlk:\t0+\nSigIgn:\t0+(18)?0+\n123\n4567\nleader\n";
  EXPECT_THAT(ReadFile("out"),
              testing::MatchesRegex(status + dir_.Path("script ") + temp_ + "\nfrom in\n/\n"));
  run(line, "/no/such", "/no/such", nullptr, "link");
  EXPECT_EQ(dir_.Path() + "\n/dev/null\n/dev/null\n/dev/null\n", ReadFile("script.seen"));
  EXPECT_EQ("oops\nfrom in\n", ReadFile("errors") + ReadFile("in")) << "no link is followed";
  run("echo aaaa; echo b >&2", nullptr, nullptr, "out", "out");
  EXPECT_EQ("b\naa\n", ReadFile("out")) << "one file, two positions";
  EXPECT_EQ(fs::perms(0666 & ~umask(022)), fs::status("out").permissions());
  run("cat", nullptr, "pipe", "out", nullptr);  // nobody writes
  const TFd writer(open("pipe", O_RDWR | O_CLOEXEC));
  run("(sleep .1; echo late >pipe) & head -n 1", nullptr, "pipe", "out", nullptr);
  EXPECT_TRUE(RunShell("echo $0 $TMPDIR >>out; exit 3"));
  EXPECT_EQ("late\nsh " + temp_ + "\n", ReadFile("out"));
  pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  signal(SIGPIPE, former);
  getrlimit(RLIMIT_NOFILE, &limit);
  SetChildDescriptorLimit(limit);
}

TEST_F(ProcTest, NamesTemporaryFiles) {
  const std::string own = "/tmp-" + id_ + "-", wide(1100, 'd'), dir = dir_.Path();
  dir_.File(own + "999999");
  filenumber = 999997;
  const std::tuple<const char*, const char*, int, std::string> cases[] = {
      {nullptr, "n", 512, "./n"},
      {"/folder", "1234567890123456", 24, "/folder/123456789012345"},
      {"/folder", "n", 23, "failed: "},
      {"/folder", "n", 15, "failed: kept"},
      {dir.c_str(), nullptr, 512, dir + own + "999998"},
      {dir.c_str(), nullptr, 512, dir + own + "1000000"},
      {dir.c_str(), nullptr, 512, dir + own + "1"},
      {wide.c_str(), nullptr, 2000, "failed: "}};
  const TEnvironment tmp("TMP", nullptr);
  for (const auto& [folder, name, size, path] : cases) {
    const TEnvironment used("TMPDIR", folder);
    char buf[2048] = "kept";
    const bool made = gettempfilename(buf, size, name) == 1;
    EXPECT_EQ(path, (made ? "" : "failed: ") + std::string(buf));
  }
}

TEST_F(ProcTest, FilesNeverFollowAPlantedLink) {
  const std::string victim = dir_.File("victim", "untouched");
  TTempFile file;
  ASSERT_TRUE(file.Choose("name"));
  ASSERT_EQ(0, symlink(victim.c_str(), file.Path()));
  EXPECT_EQ(nullptr, file.OpenText());
  const mode_t former = umask(022);
  EXPECT_TRUE(file.Create());
  umask(former);
  EXPECT_EQ(fs::perms(0644), fs::symlink_status(file.Path()).permissions());
  EXPECT_EQ(nullptr, file.OpenText()) << "not written";
  EXPECT_TRUE(TFd(open(file.Path(), O_WRONLY | O_TRUNC)));
  EXPECT_NE(nullptr, file.OpenText());
  RemoveTempFiles();
  ASSERT_EQ(0, mkfifo(file.Path(), 0600)) << "removed already";
  EXPECT_EQ(nullptr, file.OpenText()) << "a pipe, which would block";
  EXPECT_EQ("untouched", ReadFile(victim));
}

TEST_F(ProcTest, FilesGoOnlyWhenAnotherProgramTakesOver) {
  const auto child = [] {
    char name[] = "true";
    char* const argv[] = {name, nullptr};
    TTempFile file;
    signal(SIGUSR1, [](int) { _exit(1); });
    pthread_atfork(nullptr, nullptr, [] { raise(SIGUSR1); });  // no handler runs in the keeper
    EXPECT_TRUE(file.Choose("file") && file.Create());
    EXPECT_EQ(ENOENT, ExecuteAndRemoveTempFiles("/no/such", argv, environ));
    EXPECT_EQ(-1, waitpid(-1, nullptr, WNOHANG)) << "a child is left";
    EXPECT_EQ(0, access(file.Path(), F_OK));
    if (!HasFailure()) ExecuteAndRemoveTempFiles("/bin/true", argv, environ);
    _exit(1);
  };
  EXPECT_EXIT(child(), testing::ExitedWithCode(0), "");
  EXPECT_TRUE(Await([&] { return fs::is_empty(temp_); })) << "files are left";
}

TEST_F(ProcTest, ReadsWhatTheScriptsPrint) {
  const std::string part(511, 'p'), output = "readlink /proc/$$/fd/1", error = "301\nScript error";
  const std::string three = "echo ' one '; echo; echo ScriptRes:2; echo three";
  const std::string failed = "301\nScript execution error: ";
  filenumber = 9;
  const struct {
    THandler handler;
    std::string script, reply, value = "x", line = "/bin/sh %script%";
  } cases[] = {
      {kCount, output + " | grep -c /tmpPqov-" + id_ + ".txt", "200\n1\n"},
      {kCount, "echo; echo '  -12 of them'", "200\n-12\n"},
      {kCount, "echo 99999999999", "200\n2147483647\n"},
      {kCount, "echo 6 >&3", "200\n6\n"},
      {kCount, "echo $#", "200\n3\n", "a 'b c' $((4))"},  // the shell splits the name
      {kCount, "printf %s \"$1\" | wc -c", "200\n2\n", " \xC3\xA9 "},
      {kCount, "exit 0", error},
      {kCount, "rm -f $(" + output + ")", kNoResults},
      {kCount, "exit 0", kNoResults, "x #"},  // the shell never gets to the redirection
      {kCount, "echo 7", "501\nName of the process is not specified", "  "},
      {kCpu, output + " | grep -c /tmpCqov-" + id_ + ".txt", "200\n1.0000\n"},
      {kCpu, "cat; echo ' 12.5%'", "200\n12.5000\n"},
      {kCpu, "echo n/a", error},
      {kCpu, "#!/no/such/shell\n", "301\nCannot execute script"},
      {kList, output, "200\n" + temp_ + "/tmpPqov-" + id_ + ".txt%0D%0A\n"},
      {kList, "echo one; echo; echo ' two '; echo " + part + "pp; printf three",
       "200\none%0D%0A two %0D%0A" + part + "%0D%0App%0D%0Athree%0D%0A\n"},
      {kShell, "basename $(" + output + ")", "200\ntmp-" + id_ + "-11\n\n"},
      {kShell, three, "200\nScriptRes:2\n\n", "-3"},
      {kShell, three, "200\nScriptRes:2\none%0D%0A\n", "1"},
      {kShell, three, "200\nScriptRes:2\none%0D%0AScriptRes:2%0D%0Athree%0D%0A\n", "9"},
      {kShell, "echo scriptres:1; echo scriptres:2",
       "200\nscriptres:1\nscriptres:1%0D%0Ascriptres:2%0D%0A\n", "2"},
      {kShell, "echo scriptres; echo b", "200\nb\nscriptres%0D%0A\n", "1"},
      {kShell, "exit 3", "200\n\n\n", "5"},
      {kShell, "cat; echo error >&2", "200\nerror\n\n", ""},
      {kShell, "if true%0D%0Athen echo yes%0D%0Afi #", "200\nyes\n\n"},
      {kShell, "echo \"<$1>,<$2>\"", "200\n<a b>,<c>\n\n", "", "/bin/sh %SCRIPT% %Params% \xFF"},
      {kShell, "#!/bin/sh%0Als -l $0 | cut -c 1-10", "200\n-rwxrwxr-x\n\n", "", "%script% x"},
      // A command line of nothing else is left as it is.
      {kShell, "", failed + "exec error: No such file or directory", "", "%script%"},
      {kShell, "exec sleep 60", failed + "abnormal termination"},
  };
  for (const auto& c : cases) {
    const bool shell = c.handler == kShell;
    const TWords params = {c.line, shell ? c.script : c.value, "'a b' c", "1", c.value};
    EXPECT_EQ(c.reply, Ask(c.handler, Program(c.script), params)) << c.script;
  }
  ChangeSettings([](TQovSettings& settings) { settings.delayforscripts = 300000; });
  const long long start = NowMs();
  EXPECT_EQ("200\n1.0000\n", Ask(kCpu, Program("echo 1")));
  EXPECT_GE(NowMs() - start, 300);
}

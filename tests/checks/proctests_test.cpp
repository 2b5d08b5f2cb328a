#include "checks/process/proctests.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <map>
#include <string>
#include <thread>
#include <vector>

#include "checks/process/tempfile.h"
#include "config/settings.h"
#include "support/handlercall.h"
#include "support/peers.h"
#include "support/scopes.h"

namespace {
bool modesFail = false;
}

/// In place of the C library's, for the whole test program.
extern "C" int fchmod(int fd, mode_t mode) noexcept {
  return modesFail ? -1 : static_cast<int>(syscall(SYS_fchmod, fd, mode));
}

namespace {

class ProcTest : public testing::Test {
 protected:
  ~ProcTest() override {
    EXPECT_EQ(0, rmdir(temp_.c_str())) << "leftovers in " << temp_;
    UseScript("");
  }

  /// Makes one path the script of all three settings.
  static void UseScript(const std::string& path, int delay = 0) {
    ChangeSettings([&](TQovSettings& settings) {
      settings.proccntscript = settings.cpuusagescript = settings.proclistscript = path.c_str();
      settings.delayforscripts = delay;
    });
  }
  std::string Ask(THandler handler, const std::string& script, const std::string& name = "x",
                  const char* file = "script") {
    const std::string path = dir_.File(file, script);
    chmod(path.c_str(), 0755);
    UseScript(path);
    return CallHandler(handler, {{2, name}});
  }
  static std::string Script(const std::string& text, const std::string& lines = "0",
                            const std::string& line = "/bin/sh %script%",
                            const std::string& timeoutSec = "0", const std::string& params = "") {
    return CallHandler(ProcessTest_ShellScript,
                       {{1, line}, {2, text}, {3, params}, {4, timeoutSec}, {5, lines}});
  }

  const TTempDir dir_;
  const std::string temp_ = dir_.Folder("temp");
  const TEnvironment tmpdir_{"TMPDIR", temp_.c_str()};
  const TEnabledTests enabled_;
};

constexpr char kRemoveOutput[] = "rm -f \"$(readlink /proc/$$/fd/1)\"";
constexpr char kNoResults[] = "301\nCannot get script results";

TEST_F(ProcTest, TellsWhatIsMissing) {
  const std::map<std::string, THandler> handlers = {{"ProcCnt", ProcessTest_Process},
                                                    {"CPUUsage", ProcessTest_CPU},
                                                    {"ProcList", ProcessInfo_ProcessesList}};
  const std::string missing = dir_.Path("missing"), tooLong(500, 'd');
  for (const auto& [name, handler] : handlers) {
    UseScript("");
    EXPECT_EQ("301\n" + name + " script is not speified", CallHandler(handler, {}));
    UseScript(temp_);
    EXPECT_EQ("301\n" + name + " script doesn't exist", CallHandler(handler, {}));
    const TEnvironment noFolder("TMPDIR", missing.c_str());
    EXPECT_EQ(kNoResults, Ask(handler, "exit"));
    const TEnvironment longFolder("TMPDIR", tooLong.c_str());
    EXPECT_EQ("301\ncannot get temp file", CallHandler(handler, {{2, "x"}}));
  }
  modesFail = true;
  EXPECT_EQ("301\nCannot set exec flag for script", Script("true"));
  modesFail = false;
  rlimit limit;
  getrlimit(RLIMIT_FSIZE, &limit);
  const auto oldAction = signal(SIGXFSZ, SIG_IGN);
  const rlimit small = {3, limit.rlim_max};
  setrlimit(RLIMIT_FSIZE, &small);
  const std::string shortWrite = Script("true");
  setrlimit(RLIMIT_FSIZE, &limit);
  signal(SIGXFSZ, oldAction);
  EXPECT_EQ("301\ncannot create temp file", shortWrite);
  const TEnvironment noFolder("TMPDIR", missing.c_str());
  EXPECT_EQ("301\nCannot create temp file", Script("true"));
  const TEnvironment longFolder("TMPDIR", tooLong.c_str());
  EXPECT_EQ("301\nCannot get temp file", Script("true"));
}

TEST_F(ProcTest, ReadsWhatTheScriptsPrint) {
  const std::string part(511, 'p'), error = "301\nScript error";
  const std::string seen = dir_.Path("seen"), id = std::to_string(GetUniqueThreadID());
  const std::string tell = "o=$(readlink /proc/$$/fd/1); echo $o >>" + seen + "\n";
  const struct {
    THandler handler;
    std::string script, reply, name = "x";
    const char* file = "script";
  } cases[] = {
      {ProcessTest_Process, tell + "echo; echo '  -12 of them'", "200\n-12\n"},
      {ProcessTest_Process, "echo 99999999999", "200\n2147483647\n"},
      {ProcessTest_Process, "echo 6 >&3", "200\n6\n"},
      // The shell splits the name.
      {ProcessTest_Process, "echo $#", "200\n3\n", "a 'b c' $((4))"},
      {ProcessTest_Process, "printf %s \"$1\" | wc -c", "200\n2\n", " \xC3\xA9 "},
      {ProcessTest_Process, "echo none", error},
      {ProcessTest_Process, "exit 0", error},
      {ProcessTest_Process, kRemoveOutput, kNoResults},
      // The shell never gets to the redirection.
      {ProcessTest_Process, "exit 0", kNoResults, "x #"},
      {ProcessTest_Process, "echo 1", kNoResults, "it's"},
      {ProcessTest_Process, "echo 7", "501\nName of the process is not specified", "  "},
      {ProcessTest_CPU, "#!/bin/sh\n" + tell + "echo ' 12.5%'", "200\n12.5000\n"},
      {ProcessTest_CPU, "#!/bin/sh\ncat; echo .25", "200\n0.2500\n"},
      {ProcessTest_CPU, "echo n/a", error},
      {ProcessTest_CPU, kRemoveOutput, kNoResults},
      {ProcessTest_CPU, "#!/no/such/shell\n", "301\nCannot execute script"},
      {ProcessInfo_ProcessesList, tell, "200\n\n"},
      {ProcessInfo_ProcessesList, "echo 1", kNoResults, "", "it's"},
      {ProcessInfo_ProcessesList, "echo one; echo; echo ' two '; echo " + part + "pp; printf three",
       "200\none%0D%0A two %0D%0A" + part + "%0D%0App%0D%0Athree%0D%0A\n"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.reply, Ask(c.handler, c.script, c.name, c.file)) << c.script;
  EXPECT_EQ(temp_ + "/tmpPqov-" + id + ".txt\n" + temp_ + "/tmpCqov-" + id + ".txt\n" + temp_ +
                "/tmpPqov-" + id + ".txt\n",
            ReadFile(seen));
  const TEnvironment blank("TMPDIR", dir_.Folder("a b").c_str());
  EXPECT_EQ(kNoResults, Ask(ProcessTest_Process, "echo 1"));
  ExpectReplies(ProcessTest_External,
                {{{{1, "/bin/sh -c 'exit 3'"}, {4, "5000"}}, "200\n3\n"},
                 {{{1, "/bin/sh -c 'exit $((${#0} % 8))' ' a \xFF"}, {4, "0"}}, "200\n4\n"},
                 {{{1, "/none"}, {4, "0"}}, "301\nexec error: No such file or directory"},
                 {{{1, "sleep 60"}, {4, "-2"}}, "301\nabnormal termination"},
                 {{{1, ""}, {4, "1s"}}, "501\nWrong parameter"},
                 {{{1, " "}, {4, "1000"}}, "501\n"}});
}

TEST_F(ProcTest, PicksLinesOfAScriptsOutput) {
  const std::string three = "echo ' one '; echo; echo ScriptRes:2; echo three";
  const struct {
    std::string text, lines, reply;
  } cases[] = {
      {three, "-3", "200\nScriptRes:2\n\n"},
      {three, "1", "200\nScriptRes:2\none%0D%0A\n"},
      {three, "9", "200\nScriptRes:2\none%0D%0AScriptRes:2%0D%0Athree%0D%0A\n"},
      {"echo scriptres:1; echo scriptres:2", "2",
       "200\nscriptres:1\nscriptres:1%0D%0Ascriptres:2%0D%0A\n"},
      {"echo a; echo b; echo 'no scriptres:'", "2", "200\nno scriptres:\na%0D%0Ab%0D%0A\n"},
      {"exit 3", "5", "200\n\n\n"},
      {"echo error >&2", "1", "200\nerror\nerror%0D%0A\n"},
      {"cat; echo end", "", "200\nend\n\n"},
      {"if true%0D%0Athen echo yes%0D%0Afi # end", "0", "200\nyes\n\n"},
      {"  echo kept: | tr -d : # \xFF", "0", "200\nkept\n\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.reply, Script(c.text, c.lines)) << c.text;
  const std::string print = "head -c 16777216 /dev/zero | tr '\\0' x | fold -w 64";
  constexpr size_t kEscapedLine = 64 + 6;
  EXPECT_EQ(4 + 64 + 1 + (16 << 20) / 64 * kEscapedLine + 1, Script(print, "99999999").size());
}

TEST_F(ProcTest, FillsInAndRunsTheCommandLine) {
  EXPECT_EQ("200\n<a b>,<c>\n\n",
            Script("echo \"<$1>,<$2>\"", "", "/bin/sh %SCRIPT% %Params% #", "9999999", "'a b' c"));
  EXPECT_EQ("200\n-rwxrwxr-x\n\n", Script("ls -l $0 | cut -c 1-10", "", "%script% x"));
  const std::string name = Script("basename $(readlink /proc/$$/fd/1)");
  EXPECT_EQ(
      "200\ntmp-" + std::to_string(GetUniqueThreadID()) + "-" + std::to_string(filenumber) + "\n\n",
      name);
  const std::string failed = "301\nScript execution error: ";
  EXPECT_EQ(failed + "exec error: No such file or directory", Script("", "", "%script%"))
      << "a command line of nothing else is left as it is";
  EXPECT_EQ(failed + "abnormal termination", Script("exec sleep 60", "", "/bin/sh %script%", "1"));
  EXPECT_EQ(kNoResults, Script(kRemoveOutput));
  UseScript(dir_.File("script", "#!/bin/sh\necho 1"), 200000);
  chmod(dir_.Path("script").c_str(), 0755);
  const long long start = NowMs();
  EXPECT_EQ("200\n1.0000\n", CallHandler(ProcessTest_CPU, {}));
  EXPECT_GE(NowMs() - start, 200);
  EXPECT_EQ("200\n1\n\n", Script("echo 1"));
  EXPECT_GE(NowMs() - start, 400);
}

TEST_F(ProcTest, AnswersManyThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t] {
      for (int i = 0; i < 10; ++i) {
        const std::string word = std::to_string(t) + "." + std::to_string(i);
        EXPECT_EQ("200\n" + word + "\n" + word + "%0D%0A\n",
                  Script("#!/bin/sh%0Aecho $1", "1", "%script% %params%", "60", word));
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
}

}  // namespace

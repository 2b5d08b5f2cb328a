#include "checks/process/proctests.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/syscall.h>

#include "checks/process/tempfile.h"
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
                            const std::string& line = "/bin/sh %script%") {
    return CallHandler(ProcessTest_ShellScript,
                       {{1, line}, {2, text}, {3, "'a b' c"}, {4, "1"}, {5, lines}});
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
  const std::string tooLong(500, 'd');
  for (const auto& [name, handler] : handlers) {
    UseScript("");
    EXPECT_EQ("301\n" + name + " script is not speified", CallHandler(handler, {}));
    UseScript(temp_);
    EXPECT_EQ("301\n" + name + " script doesn't exist", CallHandler(handler, {}));
    const TEnvironment longFolder("TMPDIR", tooLong.c_str());
    EXPECT_EQ("301\ncannot get temp file", Ask(handler, "exit"));
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
  const TEnvironment noFolder("TMPDIR", dir_.Path("missing").c_str());
  EXPECT_EQ(kNoResults, Ask(ProcessTest_Process, "exit"));
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
      {ProcessTest_Process, "exit 0", error},
      {ProcessTest_Process, kRemoveOutput, kNoResults},
      // The shell never gets to the redirection.
      {ProcessTest_Process, "exit 0", kNoResults, "x #"},
      {ProcessTest_Process, "echo 1", kNoResults, "it's"},
      {ProcessTest_Process, "echo 7", "501\nName of the process is not specified", "  "},
      {ProcessTest_CPU, tell + "cat; echo ' 12.5%'", "200\n12.5000\n"},
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
                {{{{1, "/bin/sh -c 'exit $((${#0} % 8))' ' a \xFF"}, {4, "0"}}, "200\n4\n"},
                 {{{1, "/none"}, {4, "0"}}, "301\nexec error: No such file or directory"},
                 {{{1, "sleep 60"}, {4, "-2"}}, "301\nabnormal termination"},
                 {{{1, ""}, {4, "1s"}}, "501\nWrong parameter"},
                 {{{1, " "}, {4, "1000"}}, "501\n"}});
}

TEST_F(ProcTest, RunsTheServersScript) {
  const std::string three = "echo ' one '; echo; echo ScriptRes:2; echo three";
  const std::string failed = "301\nScript execution error: ";
  const std::string id = std::to_string(GetUniqueThreadID());
  filenumber = 9;
  const struct {
    std::string text, reply, lines = "0", line = "/bin/sh %script%";
  } cases[] = {
      {"basename $(readlink /proc/$$/fd/1)", "200\ntmp-" + id + "-11\n\n"},
      {three, "200\nScriptRes:2\n\n", "-3"},
      {three, "200\nScriptRes:2\none%0D%0A\n", "1"},
      {three, "200\nScriptRes:2\none%0D%0AScriptRes:2%0D%0Athree%0D%0A\n", "9"},
      {"echo scriptres:1; echo scriptres:2",
       "200\nscriptres:1\nscriptres:1%0D%0Ascriptres:2%0D%0A\n", "2"},
      {"echo a; echo 'no scriptres:'", "200\nno scriptres:\na%0D%0A\n", "1"},
      {"exit 3", "200\n\n\n", "5"},
      {"cat; echo error >&2", "200\nerror\n\n", ""},
      {"if true%0D%0Athen echo yes%0D%0Afi #", "200\nyes\n\n"},
      {"echo \"<$1>,<$2>\"", "200\n<a b>,<c>\n\n", "", "/bin/sh %SCRIPT% %Params% \xFF"},
      {"#!/bin/sh%0Als -l $0 | cut -c 1-10", "200\n-rwxrwxr-x\n\n", "", "%script% x"},
      // A command line of nothing else is left as it is.
      {"", failed + "exec error: No such file or directory", "", "%script%"},
      {"exec sleep 60", failed + "abnormal termination"},
      {kRemoveOutput, kNoResults},
  };
  for (const auto& c : cases) EXPECT_EQ(c.reply, Script(c.text, c.lines, c.line)) << c.text;
}

TEST_F(ProcTest, DelaysScripts) {
  UseScript(dir_.File("script", "echo 1"), 200000);
  chmod(dir_.Path("script").c_str(), 0755);
  const long long start = NowMs();
  EXPECT_EQ("200\n1.0000\n", CallHandler(ProcessTest_CPU, {}));
  EXPECT_GE(NowMs() - start, 200);
  EXPECT_EQ("200\n1\n\n", Script("echo 1"));
  EXPECT_GE(NowMs() - start, 400);
}

}  // namespace

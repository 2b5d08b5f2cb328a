#include "checks/process/proctests.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "config/settings.h"
#include "support/handlercall.h"
#include "support/scopes.h"

namespace {

class ProcTest : public testing::Test {
 protected:
  ~ProcTest() override {
    EXPECT_EQ(0, rmdir(temp_.c_str())) << "leftovers in " << temp_;
    UseScript("");
  }

  /// Makes one path the script of all three settings.
  static void UseScript(const std::string& path) {
    ChangeSettings([&](TQovSettings& settings) {
      settings.proccntscript = settings.cpuusagescript = settings.proclistscript = path.c_str();
    });
  }
  std::string Ask(THandler handler, const std::string& script, const TParams& params = {}) {
    const std::string path = dir_.File("script", script);
    chmod(path.c_str(), 0755);
    UseScript(path);
    return CallHandler(handler, params);
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

TEST_F(ProcTest, TellsWhatIsMissing) {
  const std::map<std::string, THandler> handlers = {{"ProcCnt", ProcessTest_Process},
                                                    {"CPUUsage", ProcessTest_CPU},
                                                    {"ProcList", ProcessInfo_ProcessesList}};
  for (const auto& [name, handler] : handlers) {
    UseScript("");
    EXPECT_EQ("301\n" + name + " script is not speified", CallHandler(handler, {}));
    UseScript(temp_);
    EXPECT_EQ("301\n" + name + " script doesn't exist", CallHandler(handler, {}));
    const TEnvironment missing("TMPDIR", dir_.Path("missing").c_str());
    EXPECT_EQ("301\nCannot get script results", Ask(handler, "exit", {{2, "x"}}));
    const TEnvironment tooLong("TMPDIR", std::string(500, 'd').c_str());
    EXPECT_EQ("301\ncannot get temp file", CallHandler(handler, {{2, "x"}}));
  }
  const TEnvironment missing("TMPDIR", dir_.Path("missing").c_str());
  EXPECT_EQ("301\nCannot create temp file", Script("true"));
  const TEnvironment tooLong("TMPDIR", std::string(500, 'd').c_str());
  EXPECT_EQ("301\nCannot get temp file", Script("true"));
}

TEST_F(ProcTest, ReadsWhatTheScriptsPrint) {
  const std::string part(511, 'p');
  const std::string none = "301\nCannot get script results", error = "301\nScript error";
  const struct {
    THandler handler;
    std::string script, reply, name = "x";
  } cases[] = {
      {ProcessTest_Process, "echo; echo '  -12 of them'", "200\n-12\n"},
      {ProcessTest_Process, "echo 99999999999", "200\n2147483647\n"},
      {ProcessTest_Process, "echo 6 >&3", "200\n6\n"},
      // The shell splits the name.
      {ProcessTest_Process, "echo $#", "200\n3\n", "a 'b c' $((4))"},
      {ProcessTest_Process, "echo none", error},
      {ProcessTest_Process, kRemoveOutput, none},
      {ProcessTest_Process, "exit 0", error, "x #"},
      {ProcessTest_Process, "stat -Lc %a /proc/$$/fd/1", "200\n600\n"},
      {ProcessTest_Process, "echo 7", "501\nName of the process is not specified", "  "},
      {ProcessTest_CPU, "#!/bin/sh\necho ' 12.5%'", "200\n12.5000\n"},
      {ProcessTest_CPU, "#!/bin/sh\ncat; echo .25", "200\n0.2500\n"},
      {ProcessTest_CPU, "echo n/a", error},
      {ProcessTest_CPU, kRemoveOutput, none},
      {ProcessTest_CPU, "#!/no/such/shell\n", "301\nCannot execute script"},
      {ProcessInfo_ProcessesList, "true", "200\n\n"},
      {ProcessInfo_ProcessesList, "echo one; echo; echo ' two '; echo " + part + "pp; printf three",
       "200\none%0D%0A two %0D%0A" + part + "%0D%0App%0D%0Athree%0D%0A\n"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.reply, Ask(c.handler, c.script, {{2, c.name}})) << c.script;
  }
  ExpectReplies(ProcessTest_External,
                {{{{1, "/bin/sh -c 'exit 3'"}, {4, "5000"}}, "200\n3\n"},
                 {{{1, "/none"}, {4, "0"}}, "301\nexec error: No such file or directory"},
                 {{{1, ""}, {4, "1s"}}, "501\nWrong parameter"},
                 {{{1, ""}, {4, "1000"}}, "501\n"}});
}

TEST_F(ProcTest, PicksLinesOfAScriptsOutput) {
  const std::string three = "echo ' one '; echo; echo ScriptRes:2; echo three";
  const struct {
    std::string text, lines, reply;
  } cases[] = {
      {three, "", "200\nScriptRes:2\n\n"},
      {three, "-3", "200\nScriptRes:2\n\n"},
      {three, "1", "200\nScriptRes:2\none%0D%0A\n"},
      {three, "9", "200\nScriptRes:2\none%0D%0AScriptRes:2%0D%0Athree%0D%0A\n"},
      {"echo scriptres:1; echo scriptres:2", "2",
       "200\nscriptres:1\nscriptres:1%0D%0Ascriptres:2%0D%0A\n"},
      {"echo a; echo b; echo 'no scriptres:'", "2", "200\nno scriptres:\na%0D%0Ab%0D%0A\n"},
      {"exit 3", "5", "200\n\n\n"},
      {"echo error >&2", "1", "200\nerror\nerror%0D%0A\n"},
      {"cat; echo end", "1", "200\nend\nend%0D%0A\n"},
      {"if true%0D%0Athen echo yes%0D%0Afi # end", "0", "200\nyes\n\n"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.reply, Script(c.text, c.lines)) << c.text;
}

TEST_F(ProcTest, FillsInAndRunsTheCommandLine) {
  EXPECT_EQ("200\n<a b>,<c>\n\n",
            Script("echo \"<$1>,<$2>\"", "", "/bin/sh %SCRIPT% %Params% #", "9999999", "'a b' c"));
  EXPECT_EQ("200\n-rwxrwxr-x\n\n", Script("ls -l $0 | cut -c 1-10", "", "%script% x"));
  EXPECT_EQ("200\nrun\n\n", Script("#!/bin/sh%0Aecho run", "", "%script% %params%"));
  const std::string failed = "301\nScript execution error: ";
  EXPECT_EQ(failed + "exec error: No such file or directory", Script("", "", "%script%"))
      << "a command line of nothing else is left as it is";
  EXPECT_EQ(failed + "abnormal termination", Script("exec sleep 60", "", "/bin/sh %script%", "1"));
  EXPECT_EQ(failed + "abnormal termination", Script("exec sleep 60", "", "/bin/sh %script%", "-1"));
  EXPECT_EQ("301\nCannot get script results", Script(kRemoveOutput));
}

TEST_F(ProcTest, ReturnsMegabytesWhole) {
  const std::string print = "head -c 16777216 /dev/zero | tr '\\0' x | fold -w 64";
  constexpr size_t kEscapedLine = 64 + 6;
  EXPECT_EQ(4 + 64 + 1 + (16 << 20) / 64 * kEscapedLine + 1, Script(print, "99999999").size());
}

TEST_F(ProcTest, AnswersManyThreadsAtOnce) {
  std::atomic<int> right = 0;
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&right, t] {
      for (int i = 0; i < 25; ++i) {
        const std::string word = std::to_string(t) + "." + std::to_string(i);
        right += Script("#!/bin/sh%0Aecho $1", "1", "%script% %params%", "60", word) ==
                 "200\n" + word + "\n" + word + "%0D%0A\n";
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(200, right);
}

}  // namespace

#include "checks/proctests.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "checks/tempfile.h"
#include "config/settings.h"
#include "support/handlercall.h"
#include "support/tempdir.h"

namespace {

class ProcTest : public testing::Test {
 protected:
  ProcTest() { SetTempFolder(temp_); }
  ~ProcTest() override {
    EXPECT_EQ(0, rmdir(temp_.c_str())) << "leftovers in " << temp_;
    SetTempFolder("");
    for (String TQovSettings::*script : kScripts) SetScript(script, "");
  }

  static constexpr String TQovSettings::*kScripts[] = {
      &TQovSettings::proccntscript, &TQovSettings::cpuusagescript, &TQovSettings::proclistscript};
  struct TChange {
    String TQovSettings::*field;
    const char* value;
  };
  static void SetScript(String TQovSettings::*field, const std::string& value) {
    const TChange change{field, value.c_str()};
    ChangeSettings(
        [](TQovSettings& settings, const void* context) {
          const auto* c = static_cast<const TChange*>(context);
          settings.*c->field = c->value;
        },
        &change);
  }
  static void SetTempFolder(const std::string& path) { SetScript(&TQovSettings::tmpdir, path); }

  /// Calls a handler that answers with the help of a configured script.
  template <class THandler>
  std::string Ask(THandler handler, String TQovSettings::*field, const std::string& script,
                  const TParams& params = {}) {
    const std::string path = dir_.File("script", script);
    chmod(path.c_str(), 0755);
    SetScript(field, path);
    return CallHandler(handler, params);
  }
  std::string Count(const std::string& script, const std::string& name = "x") {
    return Ask(ProcessTest_Process, &TQovSettings::proccntscript, script, {{2, name}});
  }
  std::string Cpu(const std::string& script) {
    return Ask(ProcessTest_CPU, &TQovSettings::cpuusagescript, script);
  }
  std::string List(const std::string& script) {
    return Ask(ProcessInfo_ProcessesList, &TQovSettings::proclistscript, script);
  }
  static std::string External(const std::string& line, const std::string& timeoutMs) {
    return CallHandler(ProcessTest_External, {{1, line}, {4, timeoutMs}});
  }
  static std::string Script(const std::string& text, const std::string& lines = "0",
                            const std::string& line = "/bin/sh %script%",
                            const std::string& timeoutSec = "0", const std::string& params = "") {
    return CallHandler(ProcessTest_ShellScript,
                       {{1, line}, {2, text}, {3, params}, {4, timeoutSec}, {5, lines}});
  }

  const TTempDir dir_;
  const std::string temp_ = dir_.Folder("temp");
  const TEnabledTests enabled_;
};

constexpr char kRemoveOutput[] = "rm -f \"$(readlink /proc/$$/fd/1)\"";

TEST_F(ProcTest, RefusesDisabledTests) {
  const TEnabledTests off(0);
  for (const auto handler : {ProcessTest_Process, ProcessTest_CPU, ProcessTest_External,
                             ProcessInfo_ProcessesList, ProcessTest_ShellScript}) {
    EXPECT_EQ("600\ntest is not allowed", CallHandler(handler, {{1, "true"}, {2, "true"}}));
  }
}

TEST_F(ProcTest, TellsWhichScriptIsMissing) {
  const struct {
    void (*handler)(const VxRequest&, QovReply&);
    String TQovSettings::*field;
    std::string name;
  } cases[] = {
      {ProcessTest_Process, &TQovSettings::proccntscript, "ProcCnt"},
      {ProcessTest_CPU, &TQovSettings::cpuusagescript, "CPUUsage"},
      {ProcessInfo_ProcessesList, &TQovSettings::proclistscript, "ProcList"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ("301\n" + c.name + " script is not speified", CallHandler(c.handler, {}));
    SetScript(c.field, dir_.Path());
    EXPECT_EQ("301\n" + c.name + " script doesn't exist", CallHandler(c.handler, {}));
    SetScript(c.field, dir_.File("there"));
    SetTempFolder(std::string(500, 'd'));
    EXPECT_EQ("301\ncannot get temp file", CallHandler(c.handler, {{2, "x"}}));
    SetTempFolder(dir_.Path("missing"));
    EXPECT_EQ("301\nCannot get script results", CallHandler(c.handler, {{2, "x"}}));
    SetTempFolder(temp_);
  }
}

TEST_F(ProcTest, CountsProcesses) {
  EXPECT_EQ("200\n7\n", Count("echo 7"));
  EXPECT_EQ("200\n-12\n", Count("echo; echo '  -12 of them'"));
  EXPECT_EQ("200\n2147483647\n", Count("echo 99999999999"));
  EXPECT_EQ("200\n5\n", Count("echo 5 >&2"));
  EXPECT_EQ("200\n6\n", Count("echo 6 >&3"));
  EXPECT_EQ("200\n3\n", Count("echo $#", "a 'b c' $((4))")) << "the shell splits the name";
  EXPECT_EQ("301\nScript error", Count("echo none"));
  EXPECT_EQ("301\nScript error", Count("exit 1"));
  EXPECT_EQ("301\nCannot get script results", Count(kRemoveOutput));
  EXPECT_EQ("301\nCannot get script results", Count("exit 0", "x #"));
  EXPECT_EQ("501\nName of the process is not specified", Count("echo 7", "  "));
}

TEST_F(ProcTest, NeverWritesThroughAPlantedLink) {
  const std::string victim = dir_.File("victim", "untouched");
  const std::string id = std::to_string(GetUniqueThreadID());
  for (const char* kind : {"P", "C"}) {
    const std::string path = temp_ + "/tmp" + kind + "qov-" + id + ".txt";
    ASSERT_EQ(0, symlink(victim.c_str(), path.c_str()));
  }
  EXPECT_EQ("200\n7\n", Count("echo 7"));
  EXPECT_EQ("200\n7.0000\n", Cpu("echo 7"));
  EXPECT_EQ("untouched", ReadFile(victim));
}

TEST_F(ProcTest, TellsCpuUsage) {
  EXPECT_EQ("200\n12.5000\n", Cpu("#!/bin/sh\necho ' 12.5%'"));
  EXPECT_EQ("200\n0.2500\n", Cpu("#!/bin/sh\ncat; echo .25"));
  EXPECT_EQ("301\nScript error", Cpu("echo n/a"));
  EXPECT_EQ("301\nCannot get script results", Cpu(kRemoveOutput));
  EXPECT_EQ("301\nCannot execute script", Cpu("#!/no/such/shell\n"));
}

TEST_F(ProcTest, RunsExternalPrograms) {
  EXPECT_EQ("200\n3\n", External("/bin/sh -c 'exit 3'", "5000"));
  EXPECT_EQ("200\n0\n", External("true", ""));
  EXPECT_EQ("301\nabnormal termination", External("sleep 60", "1500"));
  EXPECT_EQ("301\nexec error: No such file or directory", External("/no/such/program", "0"));
  EXPECT_EQ("501\nWrong parameter", External("", "1s"));
  EXPECT_EQ("501\n", External("", "1000"));
}

TEST_F(ProcTest, ListsProcesses) {
  const std::string part(511, 'p');
  EXPECT_EQ("200\n\n", List("true"));
  EXPECT_EQ("200\none%0D%0A two %0D%0A" + part + "%0D%0App%0D%0Athree%0D%0A\n",
            List("echo one; echo; echo ' two '; echo " + part + "pp; printf three"));
  EXPECT_EQ("301\nCannot get script results", List(kRemoveOutput));
}

TEST_F(ProcTest, PicksLinesOfAScriptsOutput) {
  const std::string three = "echo ' one '; echo; echo ScriptRes:2; echo three";
  const struct {
    std::string text, lines, reply;
  } cases[] = {
      {three, "0", "200\nScriptRes:2\n\n"},
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
  EXPECT_EQ(failed + "exec error: No such file or directory", Script("", "", ""));
  EXPECT_EQ(failed + "exec error: No such file or directory", Script("", "", "%script%"))
      << "a command line of nothing else is left as it is";
  EXPECT_EQ(failed + "abnormal termination", Script("sleep 60", "", "/bin/sh %script%", "1"));
  EXPECT_EQ(failed + "abnormal termination", Script("sleep 60", "", "/bin/sh %script%", "-1"));
  EXPECT_EQ("301\nCannot get script results", Script(kRemoveOutput));
  SetTempFolder(dir_.Path("missing"));
  EXPECT_EQ("301\nCannot create temp file", Script("true"));
  SetTempFolder(std::string(500, 'd'));
  EXPECT_EQ("301\nCannot get temp file", Script("true"));
  SetTempFolder(temp_);
}

TEST_F(ProcTest, ReturnsMegabytesWhole) {
  constexpr size_t kBytes = 16 << 20;
  const std::string reply = Script(
      "head -c " + std::to_string(kBytes) + " /dev/zero | tr '\\0' x | fold -w 64", "99999999");
  constexpr size_t kEscapedLine = 64 + 6;
  EXPECT_EQ(4 + 64 + 1 + kBytes / 64 * kEscapedLine + 1, reply.size());
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

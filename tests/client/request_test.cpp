#include "client/request.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "client/failure.h"
#include "client/scanstate.h"
#include "client/setkeys.h"
#include "client/target.h"
#include "support/scopes.h"

/// What was given, from "NAME=value" parts with '|' behind each.
static TGiven Given(std::string text) {
  TGiven given;
  for (size_t bar; (bar = text.find('|')) != text.npos; text.erase(0, bar + 1)) {
    given[text.substr(0, text.find('='))] =
        text.substr(text.find('=') + 1, bar - text.find('=') - 1);
  }
  return given;
}

TEST(RequestTest, PutsOptionsOnTheLinesOfTheirCommand) {
  const TTempDir folder;
  const std::string script = "SCRIPT=" + folder.File("s", "a\r\nb\n") + '|';
  const std::tuple<const char*, std::string, const char*> cases[] = {
      // command, given, lines
      {"folder-size", "FOLDER=/a|--macros=1|", "/a|0||||||1|"},
      {"count-files", "FOLDER=/a|--count=smaller|--limit=9|--recurse=1|", "/a|*|1|4|9||||||0|"},
      {"compare", "FILE=/a|OTHER=/b|--size=1|--macros=1|", "1|/a|/b|0|1|0||||||1|0|"},
      {"find-text", "FILE=/a|TEXT=t|--macros=1|--whole-word=1|", "2|/a|t|0|1||||1|"},
      {"find-file", "FILE=/a|PATTERN=/b|--macros=1|", "3|/a|/b||||||||1|"},
      {"shell-script", script, "%script% %params%|a%0D%0Ab%0A||8|100|"},
      {"tcp", "HOST=h|PORT=25|--send=EHLO\r\n|", "h|25|5000|EHLO%0D%0A|0|"},
      {"execute", "COMMAND=c|--directory=/d|", "c|/d|0|8000|"},
      {"send", "HOST=h|PORT=1|DATA=a|--udp=1|--then=b\n|", "h|1|1|a|0|b%0A|"},
      {"files", "--no-files=1|--hidden=1|", "/|*|1|0|1|0|1|1|1|"},
      {"text-log", "FILE=/l|--find=e\n|--position=-1|--case=1|", "/l|e%0A|-1|0|0|0|0|1|0|"},
      {"text-log2", "FILE=/l|--find=e|--or-find=f|--or-case=1|--macros=1|",
       "/l|0|0|0|0|e|0|0|0|1|f|0|1|0||||||1|"}};
  for (const auto& [command, given, expected] : cases) {
    std::string lines;
    for (const std::string& line : BuildParams(*FindCommand(command), Given(given)))
      lines += line + '|';
    EXPECT_EQ(expected, lines) << command;
  }
  for (const char* wrong :
       {"", "FOLDER=a\nb|", "FOLDER=/|--count=everything|", "FOLDER=/|--limit=|",
        "FOLDER=/|--limit=--1|", "FOLDER=/|--limit=1k|"}) {
    EXPECT_THROW(BuildParams(*FindCommand("count-files"), Given(wrong)), TUsageFailure) << wrong;
  }
  EXPECT_THROW(BuildParams(*FindCommand("shell-script"), Given("SCRIPT=/none|")), TUsageFailure);
}

TEST(SetKeysTest, WritesAssignmentsInTheirWireForm) {
  const std::pair<const char*, const char*> good[] = {
      {"comment= a = b", "Comment= a = b"},
      {"FOLDER SIZE=Off", "Folder Size=0"},
      {"AllowRManage=yes", "AllowRManage=1"},
      {"Timeout=3000", "Timeout=3000"},
      {"UpdateAddr=", "UpdateAddr="},
      {"IPFilterAddr=1.0.0.1, 1.0.0.2", "IPFilterAddr=1.0.0.1%0D%0A1.0.0.2"}};
  for (const auto& [given, line] : good) EXPECT_EQ(line, SetLine(given));
  for (const char* bad : {"Comment", "Nonsense=1", "password=x", "TCP=maybe", "Port=1x",
                          "Port=", "Comment=a\nPort=1"}) {
    EXPECT_THROW(SetLine(bad), TUsageFailure) << bad;
  }
}

TEST(TargetTest, ReadsTheAgentsOwnFileAndLetsOptionsWin) {
  const TTempDir folder;
  const auto file = [&folder](const char* content, mode_t mode = 0600) {
    const std::string path = folder.File(std::string("of ") + content, content);
    chmod(path.c_str(), mode);
    return path;
  };
  std::string warning;
  const auto target = [&warning](const TTargetOptions& options) {
    const TTarget found = ResolveTarget(options, warning);
    return found.host + ' ' + std::to_string(found.port) + ' ' + found.password;
  };
  const std::string config = file("# port=1\nPORT = 1055\nhost=\npassword= from the file \n");
  EXPECT_EQ("127.0.0.1 1055 from the file", target({.configFile = config}));
  EXPECT_EQ("h 2 other", target({"h", 2, file("other\r\nsecond"), config}));
  for (const TTargetOptions& lacking :
       std::initializer_list<TTargetOptions>{{.port = 1},
                                             {.passwordFile = file("x")},
                                             {.port = 1, .passwordFile = "/none"},
                                             {.port = 1, .passwordFile = file("")},
                                             {.configFile = "/none"},
                                             {.configFile = file("password=x\n")},
                                             {.configFile = file("password=x\nport=70000\n")}}) {
    EXPECT_THROW(target(lacking), TUsageFailure) << lacking.passwordFile << lacking.configFile;
  }
  const TEnvironment named("QOV_PASSWORD_FILE", file("of the environment").c_str());
  EXPECT_EQ("127.0.0.1 3 of the environment", target({.port = 3}));
  EXPECT_EQ("", warning);
  EXPECT_EQ("127.0.0.1 4 open", target({.port = 4, .passwordFile = file("open", 0604)}));
  EXPECT_NE(std::string::npos, warning.find("open to every user"));
}

TEST(ScanStateTest, IsReplacedWholeAndRefusedWhenDamagedOrOfAnotherWatch) {
  const TTempDir folder;
  const std::string path = folder.Path("state");
  const TCommand& log = *FindCommand("text-log");
  TGiven given = {{"FILE", "/l"}, {"--find", "two\nlines"}};
  const std::string watch = WatchIdentity({.host = "h", .port = 1}, log, given);
  PutScanState({"8", "8", "8"}, given);  // no part of what identifies a watch
  EXPECT_EQ(watch, WatchIdentity({.host = "h", .port = 1}, log, given));
  TScanState state;
  LoadScanState(path, watch, state);
  EXPECT_EQ("0", state.size) << "a watch begins without a file";
  SaveScanState(path, watch, {"-1", "12345678901234567890", "7"});
  SaveScanState(path, watch,
                ReadScanState(log, {"200", {"5", "x", "0", " 10", " 20", " 7", "20"}}));
  LoadScanState(path, watch, state);
  EXPECT_EQ("10 20 7", state.position + ' ' + state.size + ' ' + state.time);
  struct stat facts = {};
  ASSERT_EQ(0, stat(path.c_str(), &facts));
  EXPECT_EQ(0600u, facts.st_mode & 07777);
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.Path()), {}));
  EXPECT_THROW(SaveScanState("/nonexistent/state", watch, {}), TUsageFailure);
  EXPECT_THROW(LoadScanState(path, watch + 'x', state), TUsageFailure);
  EXPECT_THROW(ReadScanState(log, {"200", {"5", "x", "0", "x", "20", "1000", "20"}}), TSilence);
  const std::string good = ReadFile(path);
  for (const std::string& bad :
       {std::string(), good.substr(0, good.size() / 2), "x" + good, good.substr(0, good.size() - 2),
        std::string(good).replace(good.find("position 1"), 10, "position x")}) {
    folder.File("state", bad);
    EXPECT_THROW(LoadScanState(path, watch, state), TUsageFailure) << bad;
  }
  EXPECT_EQ("10", state.position);
}

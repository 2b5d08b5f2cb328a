#include "client/request.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>

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
      {"disk", "PATH=/var|", "/var|"},
      {"disk", "", "/|"},
      {"folder-size", "FOLDER=/a|--macros=1|", "/a|0||||||1|"},
      {"file", "FILE=/a|--macros=1|", "/a||||||1|"},
      {"count-files", "FOLDER=/a|--count=smaller|--limit=9|--recurse=1|", "/a|*|1|4|9||||||0|"},
      {"compare", "FILE=/a|OTHER=/b|--size=1|--macros=1|", "1|/a|/b|0|1|0||||||1|0|"},
      {"find-text", "FILE=/a|TEXT=t|--macros=1|--whole-word=1|", "2|/a|t|0|1||||1|"},
      {"find-file", "FILE=/a|PATTERN=/b|--macros=1|", "3|/a|/b||||||||1|"},
      {"process", "NAME=sshd|", "|sshd|"},
      {"external", "COMMAND=/bin/true|", "/bin/true|||8000|"},
      {"shell-script", script, "%script% %params%|a%0D%0Ab%0A||8|100|"},
      {"tcp", "HOST=h|PORT=25|--send=EHLO\r\n|", "h|25|5000|EHLO%0D%0A|0|"},
      {"udp", "HOST=h|PORT=53|--send=x|", "h|53|2000|1|x|0|"},
      {"execute", "COMMAND=c|--directory=/d|", "c|/d|0|8000|"},
      {"send", "HOST=h|PORT=1|DATA=a|--udp=1|--then=b\n|", "h|1|1|a|0|b%0A|"},
      {"syslog", "HOST=h|MESSAGE=m|", "h|514|1|5|m|"},
      {"files", "--no-files=1|--hidden=1|", "/|*|1|0|1|0|1|1|1|"},
      {"text-log", "FILE=/l|--find=e\n|--position=-1|--case=1|", "/l|e%0A|-1|0|0|0|0|1|0|"},
      {"text-log2", "FILE=/l|--find=e|--or-find=f|--or-case=1|--macros=1|",
       "/l|0|0|0|0|e|0|0|0|1|f|0|1|0||||||1|"},
      {"info", "", ""}};
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

TEST(CommandTableTest, HasNoTwoOfOneNameOrLine) {
  std::set<std::string> used;
  for (const TCommand& row : Commands()) {
    EXPECT_TRUE(used.insert(row.name).second) << row.name;
    for (const TParam& param : row.params) {
      EXPECT_TRUE(used.insert(row.name + std::to_string(-param.position)).second) << row.name;
    }
  }
}

TEST(SetKeysTest, WritesAssignmentsInTheirWireForm) {
  const std::pair<const char*, const char*> good[] = {
      {"comment= a = b", "Comment= a = b"},
      {"FOLDER SIZE=Off", "Folder Size=0"},
      {"AllowRManage=yes", "AllowRManage=1"},
      {"Timeout=3000", "Timeout=3000"},
      {"IPFilterAddr=10.0.0.1, 10.0.0.2", "IPFilterAddr=10.0.0.1%0D%0A10.0.0.2"},
      {"UpdateAddr=", "UpdateAddr="}};
  for (const auto& [given, line] : good) EXPECT_EQ(line, SetLine(given));
  for (const char* bad : {"Comment", "Nonsense=1", "password=x", "TCP=maybe", "Port=1x",
                          "Port=", "Comment=a\nPort=1"}) {
    EXPECT_THROW(SetLine(bad), TUsageFailure) << bad;
  }
}

/// A load settles TMPDIR for the process that did it: it goes with the test.
struct TargetTest : testing::Test {
  const TEnvironment tmpdir{"TMPDIR", getenv("TMPDIR")};
};

TEST_F(TargetTest, ReadsTheAgentsOwnFileAndLetsOptionsWin) {
  const TTempDir folder;
  const auto secret = [&folder](const char* content, mode_t mode) {
    const std::string path = folder.File(content, content);
    chmod(path.c_str(), mode);
    return path;
  };
  const std::string config =
      folder.File("qov.cfg", "# port=1\nPORT = 1055\nhost=\npassword= from the file \n");
  const TEnvironment named("QOV_PASSWORD_FILE", secret("of the environment", 0600).c_str());
  const struct {
    TTargetOptions options;
    const char* target;
  } cases[] = {{{.configFile = config}, "127.0.0.1 1055 from the file"},
               {{"h", 2, secret("other\r\nsecond", 0600), config}, "h 2 other"},
               {{.port = 3}, "127.0.0.1 3 of the environment"}};
  std::string warning;
  for (const auto& c : cases) {
    const TTarget target = ResolveTarget(c.options, warning);
    EXPECT_EQ(c.target, target.host + ' ' + std::to_string(target.port) + ' ' + target.password);
    EXPECT_EQ("", warning);
  }
  ResolveTarget({.port = 1, .passwordFile = secret("open", 0604)}, warning);
  EXPECT_NE(std::string::npos, warning.find("open to every user"));
}

TEST_F(TargetTest, SaysWhatIsMissing) {
  const TEnvironment none("QOV_PASSWORD_FILE", nullptr);
  const TTempDir folder;
  const TTargetOptions cases[] = {
      {.port = 1},
      {.passwordFile = folder.File("pw", "x")},
      {.port = 1, .passwordFile = folder.File("empty")},
      {.port = 1, .passwordFile = folder.Path("missing")},
      {.configFile = folder.Path("missing")},
      {.configFile = folder.File("noport", "password=x\n")},
      {.configFile = folder.File("badport", "password=x\nport=70000\n")}};
  std::string warning;
  for (const TTargetOptions& options : cases) {
    EXPECT_THROW(ResolveTarget(options, warning), TUsageFailure)
        << options.passwordFile << options.configFile;
  }
}

struct ScanStateTest : testing::Test {
  const TTempDir folder;
  const std::string path = folder.Path("state");
  const TCommand& log = *FindCommand("text-log");
  TGiven given = {{"FILE", "/l"}, {"--find", "two\nlines"}};
  const std::string watch = WatchIdentity({.host = "h", .port = 1}, log, given);
  TScanState state;
};

TEST_F(ScanStateTest, IsReplacedWholeAndOpenToItsOwnerOnly) {
  LoadScanState(path, watch, state);
  EXPECT_EQ("0", state.size) << "a watch begins without a file";
  SaveScanState(path, watch, {"-1", "12345678901234567890", "7"});
  SaveScanState(path, watch, {"15", "16", "17"});
  PutScanState({"8", "8", "8"}, given);  // no part of what identifies a watch
  LoadScanState(path, WatchIdentity({.host = "h", .port = 1}, log, given), state);
  EXPECT_EQ("15 16 17", state.position + ' ' + state.size + ' ' + state.time);
  struct stat facts = {};
  ASSERT_EQ(0, stat(path.c_str(), &facts));
  EXPECT_EQ(0600u, facts.st_mode & 07777);
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.Path()), {}));
  EXPECT_THROW(SaveScanState("/nonexistent/state", watch, {}), TUsageFailure);
}

TEST_F(ScanStateTest, IsRefusedWhenDamagedOrOfAnotherWatch) {
  SaveScanState(path, watch, {"1", "2", "3"});
  const std::string good = ReadFile(path);
  for (const std::string& bad :
       {std::string(), good.substr(0, good.size() / 2), "x" + good, good.substr(0, good.size() - 2),
        std::string(good).replace(good.find("position 1"), 10, "position x")}) {
    folder.File("state", bad);
    EXPECT_THROW(LoadScanState(path, watch, state), TUsageFailure) << bad;
  }
  folder.File("state", good);
  given["--find"] = "another";
  EXPECT_THROW(LoadScanState(path, WatchIdentity({.host = "h", .port = 1}, log, given), state),
               TUsageFailure);
  EXPECT_EQ("0", state.position);
}

TEST_F(ScanStateTest, IsReadFromReplies) {
  state = ReadScanState(log, {"200", {"5", "a line", "0", "    10", "    20", "  1000", "    20"}});
  EXPECT_EQ("10 20 1000", state.position + ' ' + state.size + ' ' + state.time);
  EXPECT_THROW(ReadScanState(log, {"200", {"5", "a line", "0", "x", "20", "1000", "20"}}),
               TSilence);
}

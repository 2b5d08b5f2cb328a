#include "client/request.h"

#include "client/scanstate.h"
#include "client/setkeys.h"
#include "support/scopes.h"

/// What was given, from "NAME=value" parts with '|' behind each.
static TGiven Given(const std::string& text) {
  TGiven given;
  std::istringstream in(text);
  for (std::string name, value; getline(getline(in, name, '='), value, '|');) given[name] = value;
  return given;
}

TEST(RequestTest, PutsOptionsOnTheLinesOfTheirCommand) {
  const std::tuple<const char*, const char*, const char*> cases[] = {
      {"folder-size", "FOLDER=/a|--macros=1|", "/a|0||||||1|"},
      {"count-files", "FOLDER=/a|--count=smaller|--limit=9|--recurse=1|", "/a|*|1|4|9||||||0|"},
      {"compare", "FILE=/a|OTHER=/b|--size=1|--macros=1|", "1|/a|/b|0|1|0||||||1|0|"},
      {"find-text", "FILE=/a|TEXT=t|--macros=1|--whole-word=1|", "2|/a|t|0|1||||1|"},
      {"find-file", "FILE=/a|PATTERN=/b|--macros=1|", "3|/a|/b||||||||1|"},
      {"execute", "COMMAND=c|--directory=/d|", "c|/d|0|8000|"},
      {"send", "HOST=h|PORT=1|DATA=a|--udp=1|--then=b\n|", "h|1|1|a|0|b%0A|"},
      {"files", "--no-files=1|--hidden=1|", "/|*|1|0|1|0|1|1|1|"},
      {"text-log", "FILE=/l|--find=e\n|--position=-1|--case=1|", "/l|e%0A|-1|0|0|0|0|1|0|"},
      {"text-log2", "FILE=/l|--find=e|--or-find=f|--or-case=1|--macros=1|",
       "/l|0|0|0|0|e|0|0|0|1|f|0|1|0||||||1|"}};
  for (const auto& [command, given, expected] : cases) {
    std::string lines;
    for (const auto& line : BuildParams(*FindCommand(command), Given(given))) lines += line + '|';
    EXPECT_EQ(expected, lines) << command;
  }
  for (const char* wrong : {"", "FOLDER=a\nb|", "FOLDER=/|--count=every|", "FOLDER=/|--limit=|",
                            "FOLDER=/|--limit=--1|", "FOLDER=/|--limit=1k|"})
    EXPECT_THROW(BuildParams(*FindCommand("count-files"), Given(wrong)), TUsageFailure) << wrong;
}

TEST(SetKeysTest, WritesAssignmentsInTheirWireForm) {
  EXPECT_EQ("Comment= a = b", SetLine("comment= a = b"));
  EXPECT_EQ("Folder Size=0", SetLine("FOLDER SIZE=Off"));
  EXPECT_EQ("Timeout=3000", SetLine("Timeout=3000"));
  EXPECT_EQ("IPFilterAddr=1.0.0.1%0D%0A1.0.0.2", SetLine("IPFilterAddr=1.0.0.1, 1.0.0.2"));
  for (const char* bad : {"Comment", "password=x", "TCP=maybe", "Port=1x", "Port=", "Comment=a\nb"})
    EXPECT_THROW(SetLine(bad), TUsageFailure) << bad;
}

TEST(ScanStateTest, IsReplacedWholeAndRefusedWhenDamaged) {
  const TTempDir folder;
  const std::string path = folder.Path("state");
  TScanState state;
  LoadScanState(path, "w", state);
  EXPECT_EQ("0", state.size) << "a watch begins without a file";
  for (const char* s : {"12345678901234567890", "20"}) SaveScanState(path, "w", {"-1", s, "7"});
  EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(folder.Path()), {}));
  EXPECT_THROW(SaveScanState("/nonexistent/state", "w", {}), TUsageFailure);
  LoadScanState(path, "w", state);
  EXPECT_EQ("-1 20 7", state.position + ' ' + state.size + ' ' + state.time);
  const std::string good = ReadFile(path);
  for (const std::string& bad : {std::string(), "x" + good, good.substr(0, good.size() - 2)}) {
    folder.File("state", bad);
    EXPECT_THROW(LoadScanState(path, "w", state), TUsageFailure) << bad;
  }
}

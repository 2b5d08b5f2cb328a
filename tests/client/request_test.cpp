#include "client/request.h"

#include <gtest/gtest.h>

#include <set>

#include "client/failure.h"
#include "client/packetfile.h"
#include "client/setkeys.h"
#include "client/vxwire.h"
#include "support/scopes.h"

using TLines = std::vector<std::string>;

TEST(RequestTest, PutsOptionsOnTheLinesOfTheirCommand) {
  const TTempDir folder;
  const std::string script = folder.File("s", "a\r\nb\n");
  const struct {
    const char* command;
    TGiven given;
    TLines lines;
  } cases[] = {
      {"disk", {{"PATH", "/var"}}, {"/var"}},
      {"disk", {}, {"/"}},
      {"folder-size", {{"FOLDER", "/a"}, {"--macros", "1"}}, {"/a", "0", "", "", "", "", "", "1"}},
      {"file", {{"FILE", "/a"}, {"--macros", "1"}}, {"/a", "", "", "", "", "", "1"}},
      {"count-files",
       {{"FOLDER", "/a"}, {"--count", "smaller"}, {"--limit", "9"}, {"--recurse", "1"}},
       {"/a", "*", "1", "4", "9", "", "", "", "", "", "0"}},
      {"compare",
       {{"FILE", "/a"}, {"OTHER", "/b"}, {"--size", "1"}, {"--macros", "1"}},
       {"1", "/a", "/b", "0", "1", "0", "", "", "", "", "", "1", "0"}},
      {"find-text",
       {{"FILE", "/a"}, {"TEXT", "t"}, {"--macros", "1"}, {"--whole-word", "1"}},
       {"2", "/a", "t", "0", "1", "", "", "", "1"}},
      {"find-file",
       {{"FILE", "/a"}, {"PATTERN", "/b"}, {"--macros", "1"}},
       {"3", "/a", "/b", "", "", "", "", "", "", "", "1"}},
      {"process", {{"NAME", "sshd"}}, {"", "sshd"}},
      {"external", {{"COMMAND", "/bin/true"}}, {"/bin/true", "", "", "8000"}},
      {"shell-script", {{"SCRIPT", script}}, {"%script% %params%", "a%0D%0Ab%0A", "", "8", "100"}},
      {"tcp",
       {{"HOST", "h"}, {"PORT", "25"}, {"--send", "EHLO\r\n"}},
       {"h", "25", "5000", "EHLO%0D%0A", "0"}},
      {"udp", {{"HOST", "h"}, {"PORT", "53"}, {"--send", "x"}}, {"h", "53", "2000", "1", "x", "0"}},
      {"execute", {{"COMMAND", "c"}, {"--directory", "/d"}}, {"c", "/d", "0", "8000"}},
      {"send",
       {{"HOST", "h"}, {"PORT", "1"}, {"DATA", "a"}, {"--udp", "1"}, {"--then", "b\n"}},
       {"h", "1", "1", "a", "0", "b%0A"}},
      {"syslog", {{"HOST", "h"}, {"MESSAGE", "m"}}, {"h", "514", "1", "5", "m"}},
      {"files",
       {{"--no-files", "1"}, {"--hidden", "1"}},
       {"/", "*", "1", "0", "1", "0", "1", "1", "1"}},
      {"text-log",
       {{"FILE", "/l"}, {"--find", "e\n"}, {"--position", "-1"}, {"--case", "1"}},
       {"/l", "e%0A", "-1", "0", "0", "0", "0", "1", "0"}},
      {"text-log2",
       {{"FILE", "/l"}, {"--find", "e"}, {"--macros", "1"}},
       {"/l", "0", "0", "0", "0", "e", "0", "0", "0", "0", "", "0", "0", "0", "", "1"}},
      {"text-log2",
       {{"FILE", "/l"}, {"--find", "e"}, {"--or-find", "f"}, {"--or-case", "1"}, {"--macros", "1"}},
       {"/l", "0", "0", "0", "0", "e", "0", "0", "0", "1",
        "f",  "0", "1", "0", "",  "",  "",  "",  "",  "1"}},
      {"info", {}, {}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.command);
    EXPECT_EQ(c.lines, BuildParams(*FindCommand(c.command), c.given));
  }
}

TEST(RequestTest, RefusesWhatCannotBeSent) {
  const std::pair<const char*, TGiven> cases[] = {
      {"folder-size", {}},
      {"folder-size", {{"FOLDER", "a\nb"}}},
      {"count-files", {{"FOLDER", "/"}, {"--count", "everything"}}},
      {"count-files", {{"FOLDER", "/"}, {"--limit", ""}}},
      {"count-files", {{"FOLDER", "/"}, {"--limit", "--1"}}},
      {"count-files", {{"FOLDER", "/"}, {"--limit", "1k"}}},
      {"shell-script", {{"SCRIPT", "/nonexistent/script"}}},
  };
  for (const auto& [command, given] : cases) {
    SCOPED_TRACE(command);
    EXPECT_THROW(BuildParams(*FindCommand(command), given), TUsageFailure);
  }
}

TEST(CommandTableTest, HasNoTwoOfOneNameOrLine) {
  std::set<std::string> names;
  for (const TCommand& row : Commands()) {
    SCOPED_TRACE(row.name);
    EXPECT_TRUE(names.insert(row.name).second);
    std::set<int> lines;
    for (const TParam& param : row.params) EXPECT_TRUE(lines.insert(param.position).second);
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
  for (const char* bad : {"Comment", "Nonsense=1", "Password=x", "password=x", "TCP=maybe",
                          "Port=1x", "Port=", "Comment=a\nPort=1"}) {
    SCOPED_TRACE(bad);
    EXPECT_THROW(SetLine(bad), TUsageFailure);
  }
}

TEST(PacketFileTest, SurvivesTheWayThroughText) {
  const std::string packet = BuildRequest("pw", "k1", "GetInfo\n\r");
  EXPECT_EQ(packet, ReadPacketText("# request\n" + HexText(packet)));
  EXPECT_EQ(packet, ReadPacketText(packet));
  bool valid = false;
  EXPECT_NE(std::string::npos, DescribeRequest(packet, "pw", valid).find("GetInfo\\n\\r"));
  EXPECT_TRUE(valid);
  EXPECT_NE(std::string::npos, DescribeRequest(packet, "other", valid).find("does not match"));
  EXPECT_FALSE(valid);
  const std::string reply = BuildReply("k1", "200\nOk\n\r");
  EXPECT_NE(std::string::npos, DescribeReply(reply, "k1", valid).find("200\\nOk\\n\\r"));
  EXPECT_TRUE(valid);
  EXPECT_NE(std::string::npos, DescribeReply(reply.substr(0, 7), "k1", valid).find("cut short"));
  EXPECT_NE(std::string::npos, DescribeReply(reply, "k2", valid).find("another key"));
  EXPECT_FALSE(valid);
}

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "built.h"
#include "client/commands.h"
#include "client/upgrade.h"
#include "support/process.h"

using testing::HasSubstr;
using testing::StartsWith;
using TWords = std::vector<std::string>;

namespace {

constexpr char kPlugin[] = "check_qov";

TWords operator+(TWords words, const TWords& more) {
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

/// The built client, by one of its two names.
TProgramRun RunClient(const TWords& words, const char* name = "qovctl") {
  const std::string client = QOV_CLIENT;
  return RunProgram(TWords{client.substr(0, client.rfind('/') + 1) + name} + words);
}

TAgentOptions Everything() {
  const std::string helpers = std::string(QOV_SOURCE_DIR) + "/packaging/helpers/";
  TAgentOptions options;
  options.config =
      "executeaction=1\ntcpudpaction=1\nsyslogaction=1\ndelayforscripts=1\n"
      "cpuusagescript=" +
      helpers + "cpuusage\nproclistscript=" + helpers + "proclist\nproccntscript=" + helpers +
      "proccount\n";
  return options;
}

class ClientTest : public testing::Test {
 protected:
  TWords ForAgent(const TWords& words) const {
    return TWords{"--config", agent.ConfigPath()} + words;
  }
  TProgramRun Control(const TWords& words) const { return RunClient(ForAgent(words)); }
  TProgramRun Plugin(const TWords& words) const { return RunClient(ForAgent(words), kPlugin); }

  TAgentProcess agent{Everything()};
};

struct TCase {
  TWords words;
  int status;
  const char* out;
};

}  // namespace

TEST_F(ClientTest, EverySubcommandGetsItsAnswer) {
  const TLoopbackPeer tcp(TLoopbackPeer::kTcp, {.text = "220 ready"});
  const TLoopbackPeer udp(TLoopbackPeer::kUdp, {.text = "pong"});
  const std::string tcpPort = std::to_string(tcp.Port()), udpPort = std::to_string(udp.Port());
  const std::string file = agent.Folder().File("data/one", "the cat sat\n");
  const std::string same = agent.Folder().File("data/two", "the cat sat\n");
  const std::string script = agent.Folder().File("s.sh", "echo ScriptRes:Ok $1\n");
  const std::string folder = agent.Folder().Path("data"), state = agent.Folder().Path("state");
  const TCase cases[] = {
      {{"disk", "/"}, 0, "total "},
      {{"folder-size", folder, "--recurse"}, 0, "size  24 B\n"},
      {{"file", folder + "/%newestfile%", "--macros"}, 0, "size      12 B\n"},
      {{"count-files", folder, "t*"}, 0, "count  1\n"},
      {{"compare", file, same, "--contents"}, 0, "equal  yes\n"},
      {{"find-text", file, "CAT", "--whole-word"}, 0, "found  yes\n"},
      {{"find-file", file, same}, 0, "found  yes\n"},
      {{"checksum", file}, 0, "checksum  0x"},
      {{"text-log", file, "--find", "cat", "--size", "1"}, 0, "line          the cat sat\n"},
      {{"text-log2", file, "--find", "x", "--or-find", "cat", "--size", "1"},
       0,
       "first filter  no\n"},
      {{"text-log2", file, "--find", "cat", "--state-file", state}, 0, "match         0\n"},
      {{"files", folder, "o*"}, 0, "one\n2 entries\n"},  // with ".."
      {{"process", "qov"}, 0, "count  "},
      {{"processes"}, 0, "\n"},
      {{"cpu"}, 0, " %\n"},
      {{"external", "/bin/sh -c 'exit 3'"}, 0, "exit code  3\n"},
      {{"shell-script", script, "--params", "word"}, 0, "result  ScriptRes:Ok word\n"},
      {{"tcp", "127.0.0.1", tcpPort, "--receive", "99"}, 0, "answer  220 ready\n"},
      {{"udp", "127.0.0.1", udpPort, "--send", "ping", "--receive", "9"}, 0, "answer  pong\n"},
      {{"execute", "/bin/true"}, 0, "exit code  0\n"},
      {{"send", "127.0.0.1", udpPort, "hello", "--udp"}, 0, "Data has been sent\n"},
      {{"syslog", "127.0.0.1", "hello", "--syslog-port", udpPort}, 0, "has been sent\n"},
      {{"info"}, 0, "AgentVersion "},
      {{"settings"}, 0, "Password           ********\n"},
      {{"settings", "--show-password"}, 0, TAgentProcess::kPassword},
      {{"disk-space"}, 6, "Not applicable for UNIX/Linux\n"},
      {{"service"}, 6, "Not applicable"},
      {{"nt-log"}, 6, "Not applicable"},
      {{"perf-counter"}, 6, "Not applicable"},
      {{"script"}, 6, "not implemented yet"},
      {{"snmp"}, 6, "not implemented yet"},
      {{"icmp-ping"}, 6, "not implemented yet"},
      {{"services"}, 6, "Not applicable"},
      {{"event-log-files"}, 6, "Not applicable"},
      {{"event-log-sources"}, 6, "Not applicable"},
      {{"drives"}, 6, "not implemented yet"},
      {{"raw", "TEST-UNC", "/"}, 0, "200  done\n"},
      {{"raw", "nonsense", "-p", "--x"}, 6, "500  unknown command"},
      {{"GetInfo"}, 0, "\nAgentVersion="},
      {{"ping", "-n", "2"}, 0, "2 answers: fastest "},
      {{"wait"}, 0, " answers\n"},
      {{"all"}, 0, "== cpu\n"},
      {{"set", "Comment=a b", "TCP=off"}, 0, "set and saved\n"},
      {{"info"}, 0, "Comment            a b\n"},
      {{"tcp", "127.0.0.1", tcpPort}, 7, "refused by the agent's settings: test is not allowed"},
      {{"folder-size", "/nonexistent/folder"}, 4, "Folder/File doesn`t exist or access denied"},
      {{"check-config", agent.ConfigPath()}, 0, " 0 errors, "},
      {{"show-config"}, 0, "password=********\n"},
      {{"packet", "build", "--key", "k", "GetInfo"}, 0, "session key k\n"},
      {{"reload"}, 0, "outcome  Ok\n"},
      {{"restart"}, 0, "outcome  Ok\n"},
  };
  std::set<std::string> missing = {"quit"};
  for (const TCommand& row : Commands()) missing.insert(row.name);
  for (const TCase& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    const TProgramRun run = Control(c.words);
    EXPECT_EQ(c.status, run.status);
    EXPECT_THAT(run.out, HasSubstr(c.out));
    EXPECT_EQ("", run.err);
    missing.erase(c.words.front());
  }
  ASSERT_TRUE(agent.WaitFor("Listening...", 2));  // after the restart
  EXPECT_EQ("outcome  Ok\n", Control({"quit"}).out);
  EXPECT_EQ(0, agent.Wait());
  missing.erase("quit");
  EXPECT_THAT(missing, testing::IsEmpty()) << "commands without a case";
}

TEST_F(ClientTest, JsonHoldsTypedValues) {
  const auto ask = [&](const TWords& words) {
    return nlohmann::json::parse(Control(TWords{"--json"} + words).out);
  };
  const nlohmann::json disk = ask({"disk", "/"});
  EXPECT_TRUE(disk["ok"].get<bool>());
  EXPECT_LE(disk["values"]["avail"].get<double>(), disk["values"]["total"].get<double>());
  EXPECT_TRUE(ask({"info"})["values"]["tests"]["TCP"].get<bool>());
  const nlohmann::json files = ask({"files", agent.Folder().Path(), "qov.cfg"})["values"];
  EXPECT_EQ("qov.cfg", files["entries"].back()["name"]);
  EXPECT_FALSE(files["entries"].back()["folder"].get<bool>());
  EXPECT_EQ("200", ask({"set", "UNC=off"})["code"]);
  EXPECT_EQ("test is not allowed", ask({"disk", "/"})["text"]);
  EXPECT_EQ("200", ask({"GetInfo"})["code"]);
  EXPECT_TRUE(ask({"check-config", agent.ConfigPath()})["findings"].is_array());
  EXPECT_TRUE(ask({"processes"})["values"].is_array());
  EXPECT_EQ(2u, ask({"ping", "-n", "2"})["times_ms"].size());
  EXPECT_EQ("TEST-CPU", ask({"all"}).back()["command"]);
}

TEST_F(ClientTest, SilenceIsPutIntoWords) {
  const std::string wrong = agent.Folder().File("wrong", "wrong password\n");
  const TLoopbackPeer cut(TLoopbackPeer::kTcp,
                          {.text = std::string("\x20\0\0\0abc", 7), .after = 1, .closeThen = true});
  const TLoopbackPeer mute(TLoopbackPeer::kTcp);
  const std::string agentPort = std::to_string(agent.Port());
  const struct {
    TWords words;
    int status;
    const char* err;
  } cases[] = {
      {{"-p", agentPort, "--password-file", wrong, "info"},
       3,
       "no reply: wrong password, address filter, or damaged packet\n"},
      {{"-p", std::to_string(FindFreePort()), "--password-file", wrong, "info"},
       3,
       "connection refused\n"},
      {{"-H", "no.such.host.invalid", "-p", "1", "--password-file", wrong, "info"},
       3,
       "unknown host"},
      {{"-p", std::to_string(cut.Port()), "--password-file", wrong, "info"},
       3,
       "reply cut: 7 of 36 bytes came\n"},
      {{"-p", std::to_string(mute.Port()), "--password-file", wrong, "-t", "0.2", "info"},
       3,
       "timed out without a reply\n"},
      {{"--password-file", wrong, "info"}, 2, "no usable port"},
      {{"-p", "1", "info"}, 2, "no password"},
      {{"-p", "1", "--password-file", wrong, "set", "Password=x"}, 2, "does not belong"},
      {{"-p", "1", "--password-file", wrong, "nonsense"}, 2, "unknown command"},
      {{"disk", "/", "surplus"}, 2, "unexpected argument: surplus\n"},
      {{"disk", "--nonsense"}, 2, "unexpected argument: --nonsense\n"},
      {{"folder-size"}, 2, "FOLDER is required"},
      {{"-p", "70000", "info"}, 2, "--port"},
      {{"-t", "0", "info"}, 2, "--timeout"},
      {{"check-config"}, 2, "FILE is required"},
      {{"raw", "--json", "GetInfo"}, 2, "--json: options of qovctl stand before the command"},
      {{}, 2, "no command given"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    const TProgramRun run = RunClient(c.words);
    EXPECT_EQ(c.status, run.status);
    EXPECT_EQ("", run.out);
    EXPECT_THAT(run.err, HasSubstr(c.err));
  }
}

TEST_F(ClientTest, PluginKeepsToTheConventions) {
  const std::string wrong = agent.Folder().File("wrong", "wrong password\n");
  const TLoopbackPeer mute(TLoopbackPeer::kTcp);
  const std::string mutePort = std::to_string(mute.Port());
  const std::string freePort = std::to_string(FindFreePort());
  const TCase cases[] = {
      {{"disk", "/", "-c", "0:"}, 0, "DISK OK: used "},
      {{"-w", "~:-1", "disk", "/"}, 1, "DISK WARNING: used "},
      {{"disk", "/", "--metric", "used_pct", "-w", "0", "-c", "@0:100"},
       2,
       "DISK CRITICAL: used_p"},
      {{"external", "/bin/sh -c 'exit 1'"}, 1, "EXTERNAL WARNING: exit code 1\n"},
      {{"tcp", "127.0.0.1", freePort}, 3, "TCP UNKNOWN: 301 "},
      {{"file", "/nonexistent", "--missing", "critical"}, 2, "FILE CRITICAL: 301 "},
      {{"info", "-v"}, 0, "INFO OK: active 1, opened "},
      {{"-p", freePort, "info"}, 2, "INFO CRITICAL: 127.0.0.1 port "},
      {{"-p", freePort, "-u", "info"}, 3, "INFO UNKNOWN: 127.0.0.1 port "},
      {{"--password-file", wrong, "info"}, 2, "INFO CRITICAL: 127.0.0.1 port "},
      {{"-p", mutePort, "-t", "1", "info"}, 2, "INFO CRITICAL: 127.0.0.1 port "},
      {{"-p", mutePort, "-t", "1:1", "-u", "info"}, 1, "INFO WARNING: 127.0.0.1 port "},
      {{"-p", mutePort, "-t", "1", "-u", "info"}, 3, "INFO UNKNOWN: 127.0.0.1 port "},
      {{"info", "-t", "x"}, 3, "INFO UNKNOWN: -t: "},
      {{"info", "-w", "5:1"}, 3, "INFO UNKNOWN: -w: range "},
      {{"info", "-t", "1:badness"}, 3, "INFO UNKNOWN: -t: not a state"},
      {{"info", "--metric", "none"}, 3, "INFO UNKNOWN: info has no metric "},
      {{"info", "--nonsense"}, 3, "QOV UNKNOWN: "},
      {{"nonsense"}, 3, "QOV UNKNOWN: "},
      {{}, 3, "QOV UNKNOWN: no check named"},
      {{"--help"}, 3, "Checks a host "},
      {{"disk", "--help"}, 3, "size and free space "},
      {{"--version"}, 3, "check_qov 1.29"},
  };
  for (const TCase& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.words));
    const TProgramRun run = Plugin(c.words);
    EXPECT_EQ(c.status, run.status);
    EXPECT_THAT(run.out, StartsWith(c.out));
    EXPECT_EQ("", run.err);
  }
  EXPECT_THAT(Plugin({"info", "-v"}).out, HasSubstr("\nAgentVersion "));
}

TEST_F(ClientTest, PluginCountsEachLogMatchOnce) {
  const std::string state = agent.Folder().Path("state");
  const std::string log = agent.Folder().File("log", "error before the watch\n");
  const TWords check = {"text-log2", log, "--find", "error", "--or-find",    "fatal",
                        "-c",        "2", "-w",     "0",     "--state-file", state};
  EXPECT_THAT(Plugin(check).out, StartsWith("TEXT-LOG2 OK: 0 matches | 'matches'=0;0;2;0\n"));
  agent.Folder().File("log", "error before the watch\nan error\nnothing\nfatal\nerror again\n");
  EXPECT_EQ(
      "TEXT-LOG2 CRITICAL: 3 matches (critical at 2), last: error again | "
      "'matches'=3;0;2;0\n",
      Plugin(check).out);
  EXPECT_THAT(Plugin(check).out, StartsWith("TEXT-LOG2 OK: 0 matches"));
  EXPECT_THAT(Plugin({"text-log", log, "--find", "x", "--state-file", state}).out,
              HasSubstr("belongs to another watch"));
}

TEST_F(ClientTest, UpgradeReplacesAndStartsTheProgram) {
  // A script stands for the new program, for a sanitized agent may be larger than agents accept.
  std::string program = std::string("#!/bin/sh\nexec ") + QOV_AGENT + " \"$@\"\n";
  for (int i = 0; program.size() < 700001; ++i) program += "# line " + std::to_string(i) + '\n';
  const std::string path = agent.Folder().File("new", program);
  const std::string own = agent.Folder().File("own/agent", "the old program\n");
  agent.WriteConfig("qovpath=" + own + '\n');
  ASSERT_EQ(0, Control({"reload"}).status);

  const TProgramRun small = Control({"upgrade", agent.Folder().File("small", "too small")});
  EXPECT_EQ(2, small.status);
  EXPECT_THAT(small.err, HasSubstr("101 to 10485759 bytes, this one has 9"));
  ASSERT_EQ(0, Control({"set", "AllowUpdates=off"}).status);
  EXPECT_EQ(7, Control({"upgrade", path}).status);
  ASSERT_EQ(0, Control({"set", "AllowUpdates=on"}).status);

  const TProgramRun run = Control({"upgrade", path});
  EXPECT_EQ("installed: the agent now starts the new program\n", run.out);
  EXPECT_EQ(0, run.status);
  EXPECT_TRUE(agent.WaitFor("Listening...", 2));
  EXPECT_EQ(program, ReadFile(own));
  EXPECT_EQ(0, Control({"wait", "-t", "20"}).status);
  EXPECT_EQ(0, Control({"quit"}).status);
  EXPECT_NE(-1, agent.Wait());  // the script that swapped the programs
}

TEST_F(ClientTest, PacketsCanBeLookedIntoOffline) {
  const TProgramRun built = Control({"packet", "build", "--key", "k", "TEST-UNC", "/x"});
  const std::string packet = agent.Folder().File("packet", built.out);
  EXPECT_THAT(Control({"packet", "read", packet}).out, HasSubstr("TEST-UNC\\n/x\\n\\r\n"));
  const std::string damaged = agent.Folder().File("damaged", built.out + "00\n");
  const TProgramRun run = Control({"packet", "read", damaged});
  EXPECT_EQ(1, run.status);
  EXPECT_THAT(run.out, HasSubstr("packet length field says "));
}

TEST(ClientFilesTest, CompletionAndPagesNameEveryCommand) {
  const std::string root = std::string(QOV_SOURCE_DIR) + "/";
  for (const auto& [shell, file] : {std::pair{"bash", "qovctl.bash"}, std::pair{"zsh", "_qovctl"},
                                    std::pair{"fish", "qovctl.fish"}}) {
    EXPECT_EQ(ReadFile(root + "packaging/completion/" + file), RunClient({"completion", shell}).out)
        << "write it anew with: qovctl completion " << shell;
  }
  const std::string pages = ReadFile(root + "docs/commands.md");
  const std::string icinga = ReadFile(root + "packaging/examples/icinga2-qov.conf");
  const std::string nagios = ReadFile(root + "packaging/examples/nagios-qov.cfg");
  for (const TCommand& row : Commands()) {
    SCOPED_TRACE(row.name);
    EXPECT_THAT(pages, HasSubstr("qovctl " + std::string(row.name)));
    EXPECT_THAT(pages, HasSubstr('`' + std::string(row.agent) + '`'));
    if (!row.IsCheck()) continue;
    EXPECT_THAT(icinga, HasSubstr("\"qov-" + std::string(row.name) + "\" {"));
    EXPECT_THAT(nagios, HasSubstr(" " + std::string(row.name) + " "));
  }
}

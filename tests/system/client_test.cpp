#include <nlohmann/json.hpp>
#include <set>

#include "client/commands.h"
#include "support/process.h"

using testing::HasSubstr;

/// A line for the shell (see ClientTest), its exit status, a part of its output, else of its
/// errors.
using TCases = std::vector<std::tuple<std::string, int, std::string>>;

/// An agent that allows everything. For the shell: $Q, $P the clients, $A, $C set up for the agent.
struct ClientTest : testing::Test {
  void Expect(const TCases& cases) const {
    for (const auto& [line, status, text] : cases) {
      TProcess shell(names + "exec >$F/out 2>$F/err; exec " + line);
      EXPECT_EQ(status, shell.Wait()) << line;
      const std::string out = ReadFile(files.Path("out")), err = ReadFile(files.Path("err"));
      EXPECT_THAT(out.empty() ? err : out, HasSubstr(text)) << line;
      EXPECT_TRUE(out.empty() || err.empty()) << line << ": " << err;
      EXPECT_TRUE(line.find("--json") != 3 || nlohmann::json::accept(out)) << out;
    }
  }

  const TTempDir files;
  TAgentProcess agent{TAgentOptions{
      .config = "executeaction=1\ntcpudpaction=1\nsyslogaction=1\ndelayforscripts=1\n",
      .faults = "FAULT_SEND_MS=0"}};  // none, but no name server is asked for this host's name
  const TLoopbackPeer tcp{TLoopbackPeer::kTcp, {.text = "220 ready"}}, mute{TLoopbackPeer::kTcp},
      udp{TLoopbackPeer::kUdp, {.text = "pong"}};
  const std::string names =
      "D=" QOV_SOURCE_DIR "/packaging/completion F=" + files.Path() + " CFG=" + agent.configPath +
      " Q=" QOV_CLIENT " P=$(dirname " QOV_CLIENT ")/check_qov PORT=" + std::to_string(agent.port) +
      " FREE=" + std::to_string(FindFreePort()) + " TCP='127.0.0.1 " + std::to_string(tcp.Port()) +
      "' UDP=" + std::to_string(udp.Port()) + " MUTE=" + std::to_string(mute.Port()) +
      "; W=\"--password-file $F/wrong\" A=\"$Q --config $CFG\" C=\"$P --config $CFG\"; ";
};

TEST_F(ClientTest, EverySubcommandHasItsAnswerAndPage) {
  files.File("data/one", "the cat sat\n");
  files.File("data/two", "the cat sat\n");
  files.File("s.sh", "echo ScriptRes:Ok $1\n");
  std::string next = ReadFile(agent.program);
  for (int i = 0; next.size() < 700001; ++i) next += "# line " + std::to_string(i) + '\n';
  files.File("next", next);
  TCases cases = {
      {"$A disk /", 0, "total "},
      {"$A folder-size $F/data --recurse", 0, "size  24 B\n"},
      {"$A file $F/data/%newestfile% --macros", 0, "size      12 B\n"},
      {"$A count-files $F/data 't*'", 0, "count  1\n"},
      {"$A compare $F/data/one $F/data/two --contents", 0, "equal  yes\n"},
      {"$A find-text $F/data/one CAT --whole-word", 0, "found  yes\n"},
      {"$A find-file $F/data/one $F/data/two", 0, "found  yes\n"},
      {"$A checksum $F/data/one", 0, "checksum  0x"},
      {"$A text-log $F/data/one --find cat --size 1", 0, "line          the cat sat\n"},
      {"$A text-log2 $F/data/one --find x --or-find cat --size 1", 0, "first filter  no\n"},
      {"$A files $F/data 'o*'", 0, "one\n2 entries\n"},  // with ".."
      {"$A process qov", 0, "count  "},
      {"$A processes", 0, "\n"},
      {"$A cpu", 0, " %\n"},
      {"$A external \"/bin/sh -c 'exit 3'\"", 0, "exit code  3\n"},
      {"$A shell-script $F/s.sh --params word", 0, "result  ScriptRes:Ok word\n"},
      {"$A tcp $TCP --receive 99", 0, "answer  220 ready\n"},
      {"$A udp 127.0.0.1 $UDP --send ping --receive 9", 0, "answer  pong\n"},
      {"$A execute /bin/true", 0, "exit code  0\n"},
      {"$A send 127.0.0.1 $UDP hello --udp", 0, "Data has been sent\n"},
      {"$A syslog 127.0.0.1 hello --syslog-port $UDP", 0, "has been sent\n"},
      {"$A settings", 0, "Password           ********\n"},
      {"$A settings --show-password", 0, kPassword},
      {"$A raw TEST-UNC /", 0, "200  done\n"},
      {"$A raw nonsense -p --x", 6, "500  unknown command"},
      {"$A GetInfo", 0, "\nAgentVersion="},
      {"$A ping -n 2", 0, "2 answers: fastest "},
      {"$A wait", 0, " answers\n"},
      {"$A all", 0, "== cpu\n"},
      {"$A --json info", 0, "\"TCP\": true"},
      {"$A --json files $F/data one", 0, "\"name\": \"one\",\n        \"folder\": false"},
      {"$A --json check-config $CFG", 0, "\"findings\": ["},
      {"$A --json ping -n 2", 0, "\"times_ms\": ["},
      {"$A set 'Comment=a b' TCP=off", 0, "set and saved\n"},
      {"$A info", 0, "Comment            a b\n"},
      {"$A tcp $TCP", 7, "refused by the agent's settings: test is not allowed"},
      {"$A folder-size /nonexistent/folder", 4, "Folder/File doesn`t exist or access denied"},
      {"$A check-config $CFG", 0, " 0 errors, "},
      {"$A show-config", 0, "password=********\n"},
      {"$A packet build --key k TEST-UNC /x >$F/packet", 0, ""},
      {"$A packet read $F/packet", 0, "TEST-UNC\\n/x\\n\\r\n"},
      {"$A set AllowUpdates=off", 0, "set and saved\n"},
      {"$A upgrade $F/next", 7, ""},
      {"$A reload", 0, "outcome  Ok\n"},
  };
  for (const std::string name :
       {"disk-space", "service", "nt-log", "perf-counter", "services", "event-log-files",
        "event-log-sources", "script", "snmp", "icmp-ping", "drives"})
    cases.push_back({"$A " + name, 6, "not applicable here: "});
  cases.push_back({"$A restart", 0, "outcome  Ok\n"});
  Expect(cases);
  ASSERT_TRUE(agent.WaitFor("Listening...", 2));
  Expect({{"$A set AllowUpdates=on", 0, "set and saved\n"},
          {"$A upgrade $F/next", 0, "installed: the agent now starts the new program\n"}});
  ASSERT_TRUE(agent.WaitFor("Listening...", 3));
  EXPECT_EQ(next, ReadFile(agent.program));
  Expect({{"$A quit", 0, "outcome  Ok\n"}});
  EXPECT_NE(-1, agent.Wait());  // the script that swapped the programs

  const std::string root = QOV_SOURCE_DIR "/", pages = ReadFile(root + "docs/commands.md");
  const std::string definitions = ReadFile(root + "packaging/examples/icinga2-qov.conf") +
                                  ReadFile(root + "packaging/examples/nagios-qov.cfg");
  std::set<std::string> missing;
  for (const TCommand& row : Commands()) {
    const std::string name = *missing.insert(row.name).first;
    EXPECT_THAT(pages, HasSubstr("qovctl " + name));
    EXPECT_THAT(pages, HasSubstr('`' + std::string(row.agent) + '`')) << name;
    if (!row.IsCheck()) continue;
    EXPECT_THAT(definitions, HasSubstr("\"qov-" + name + "\" {"));
    EXPECT_THAT(definitions, HasSubstr(" " + name + " "));
  }
  for (const auto& [line, status, text] : cases)
    missing.erase(line.substr(3, line.find(' ', 3) - 3));
  EXPECT_THAT(missing, testing::ElementsAre("quit")) << "commands without a case";
}

TEST_F(ClientTest, RefusalsAndPluginLinesAreTold) {
  files.File("wrong", "wrong password\n");
  files.File("right", std::string(kPassword) + "\r\nsecond line");
  fs::permissions(files.Path("right"), fs::perms::owner_all);
  fs::permissions(files.File("open", "x"), fs::perms::all);
  files.File("empty");
  files.File("small", "too small");
  files.File("log", "error before the watch\n");
  const std::string watch = " --state-file $F/state $F/log --find ";
  const std::string check = "$C text-log2" + watch + "error --or-find fatal -c 2 -w 0";
  Expect({
      {"$Q -p $PORT $W info", 3, "no reply: wrong password, address filter, or damaged packet\n"},
      {"$A -p $FREE info", 3, "connection refused\n"},
      {"$A $W info", 3, "no reply: "},
      {"env QOV_PASSWORD_FILE=$F/right $Q -p $PORT info", 0, "AgentVersion"},
      {"$Q -p $FREE --password-file $F/open info", 3, "open to every user"},
      {"$Q -p 1 --password-file $F/empty info", 2, "no password"},
      {"$Q -p 1 --password-file /none info", 2, "/none"},
      {"$Q --config /none info", 2, "/none"},
      {"$Q $W info", 2, "no usable port"},
      {"$Q -p $MUTE $W -t 0.2 info", 3, "timed out without a reply\n"},
      {"$Q -p 1 $W nonsense", 2, "unknown command"},
      {"$Q disk / surplus", 2, "unexpected argument: surplus\n"},
      {"$Q -p 70000 info", 2, "--port"},
      {"$Q -t 0 info", 2, "--timeout"},
      {"$Q check-config", 2, "FILE is required"},
      {"$Q raw --json GetInfo", 2, "--json: options of qovctl stand before the command"},
      {"$Q", 2, "no command given"},
      {"$Q completion bash | diff - $D/qovctl.bash", 0, ""},
      {"$Q completion zsh | diff - $D/_qovctl", 0, ""},
      {"$Q completion fish | diff - $D/qovctl.fish", 0, ""},
      {"$A packet build --key $(printf %065536d 0) GetInfo", 2, "--key takes at most 65535 bytes"},
      {"$A upgrade $F/small", 2, "101 to 10485759 bytes, this one has 9"},
      {"$P", 3, "QOV UNKNOWN: no check named"},
      {"$P disk --help", 3, "size and free space "},
      {"$C info -w 5:1", 3, "INFO UNKNOWN: -w: range "},
      {"$C info --metric none", 3, "INFO UNKNOWN: info has no metric "},
      {"$C -p $FREE info", 2, "INFO CRITICAL: 127.0.0.1 port "},
      {"$C $W info", 2, "INFO CRITICAL: 127.0.0.1 port "},
      {"$C -p $MUTE -t 1:1 -u info", 1, "INFO WARNING: 127.0.0.1 port "},
      {"$C disk / --metric used_pct -w 0 -c @0:100", 2, "DISK CRITICAL: used_p"},
      {"$C external \"/bin/sh -c 'exit 1'\"", 1, "EXTERNAL WARNING: exit code 1\n"},
      {"$C file /nonexistent --missing critical", 2, "FILE CRITICAL: 301 "},
      {"$C info -v", 0, "\nAgentVersion "},
      {check, 0, "OK: 0 matches | 'matches'=0;0;2;0\n"},
  });
  files.File("log", "error before the watch\nan error\nnothing\nfatal\nerror again\n");
  Expect({
      {check, 2,
       "LOG2 CRITICAL: 3 matches (critical at 2), last: error again | 'matches'=3;0;2;0\n"},
      {check, 0, "TEXT-LOG2 OK: 0 matches"},
      {"$C text-log" + watch + "x", 3, "belongs to another watch"},
  });
}

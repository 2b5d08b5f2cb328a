#include "agent/messages.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>

#include <regex>
#include <utility>

#include "config/settings.h"
#include "core/message.h"
#include "core/owned.h"
#include "support/scopes.h"

namespace {

/// Messages into a folder of the test's own.
class MessagesTest : public testing::Test {
 protected:
  MessagesTest() {
    InstallMessages();
    Change({});
  }
  ~MessagesTest() override {
    SetMessageSink(nullptr);
    ChangeSettings([](TQovSettings& settings) { settings = TQovSettings(); });
  }

  struct TSwitches {
    int success = 1, fails = 1;
    unsigned verbose = 1, debug = 1;
    const char* okLog = "ok.log";
  };
  void Change(TSwitches switches) {
    ChangeSettings([&](TQovSettings& settings) {
      snprintf(settings.configfile, sizeof settings.configfile, "%s",
               folder.Path("qov.cfg").c_str());
      settings.logsuccess = switches.success;
      settings.logfails = switches.fails;
      settings.verbose = switches.verbose;
      settings.debug = switches.debug;
      settings.oklogfile = switches.okLog;
      settings.badlogfile = "bad.log";
      settings.verboselogfile = "all.log";
    });
  }
  std::string Log(const char* name) const { return ReadFile(folder.Path(name)); }

  TTempDir folder;
};

TEST_F(MessagesTest, SendsEachKindToItsLogs) {
  const struct {
    MsgType kind;
    TSwitches switches;
    const char* logs;  // o: ok, b: bad, a: all
  } cases[] = {
      {msgOk, {}, "oa"},          {msgFail, {}, "ba"},          {msgDebug, {}, "a"},
      {msgInfo, {}, "a"},         {msgDebug, {1, 1, 1, 0}, ""}, {msgOk, {0, 1, 1, 1}, "a"},
      {msgOk, {1, 1, 0, 0}, "o"}, {msgFail, {1, 0, 0, 0}, ""},  {msgInfo, {1, 1, 0, 0}, ""},
  };
  for (const auto& c : cases) {
    for (const char* name : {"ok.log", "bad.log", "all.log"}) unlink(folder.Path(name).c_str());
    Change(c.switches);
    showmessage("x\n", kNoPeer, c.kind, 0);
    std::string logs;
    if (!Log("ok.log").empty()) logs += 'o';
    if (!Log("bad.log").empty()) logs += 'b';
    if (!Log("all.log").empty()) logs += 'a';
    EXPECT_EQ(c.logs, logs) << "kind " << c.kind;
  }
}

TEST_F(MessagesTest, WritesDateTimeAndSender) {
  in_addr peer;
  inet_pton(AF_INET, "10.1.2.3", &peer);
  showmessage("100%%\n", peer, msgOk, 0);
  showmessage("%s %d\n", kNoPeer, msgOk, 1, "code", 7);
  const std::regex lines(R"(\[\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\]\t 10\.1\.2\.3\t 100%%\n)"
                         R"(\[\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\]\t qov\t\t code 7\n)");
  EXPECT_TRUE(std::regex_match(Log("ok.log"), lines)) << Log("ok.log");
}

TEST_F(MessagesTest, CutsLongTexts) {
  const std::string text(2000, 'x');
  showmessage("%s", kNoPeer, msgOk, 1, text.c_str());
  EXPECT_EQ(511u, Log("ok.log").size());
}

TEST_F(MessagesTest, NeverWaitsForALogFile) {
  mkfifo(folder.Path("fifo").c_str(), 0600);
  const TFd reader(open(folder.Path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  for (const char* log : {"fifo", "/dev/full", "/", "", "missing/x.log"}) {
    SCOPED_TRACE(log);
    Change({1, 0, 0, 0, log});
    for (int i = 0; i < 2000; ++i) showmessage("a line that fills the pipe\n", kNoPeer, msgOk, 0);
  }
}

}  // namespace

#include "agent/messages.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "config/settings.h"
#include "core/message.h"
#include "core/owned.h"
#include "support/scopes.h"

namespace {

/// Messages into a folder of the test's own.
class MessagesTest : public testing::Test {
 protected:
  MessagesTest() { InstallMessages(); }
  ~MessagesTest() override {
    SetMessageSink(nullptr);
    ChangeSettings([](TQovSettings& settings) { settings = TQovSettings(); });
  }

  void Change(int success, int fails, unsigned verbose, unsigned debug,
              const char* okLog = "ok.log") {
    ChangeSettings([&](TQovSettings& settings) {
      folder.Path("qov.cfg").copy(settings.configfile, sizeof settings.configfile - 1);
      settings.logsuccess = success;
      settings.logfails = fails;
      settings.verbose = verbose;
      settings.debug = debug;
      settings.oklogfile = okLog;
      settings.badlogfile = "bad.log";
      settings.verboselogfile = folder.Path("all.log").c_str();
    });
  }

  TTempDir folder;
};

TEST_F(MessagesTest, SendsEachKindToItsLogs) {
  const struct {
    MsgType kind;
    int success, fails;
    unsigned verbose, debug;
    const char* logs;
  } cases[] = {
      {msgOk, 1, 1, 1, 1, "ok all "}, {msgFail, 1, 1, 1, 1, "bad all "},
      {msgDebug, 1, 1, 1, 1, "all "}, {msgInfo, 1, 1, 1, 1, "all "},
      {msgDebug, 1, 1, 1, 0, ""},     {msgOk, 0, 1, 1, 1, "all "},
      {msgOk, 1, 1, 0, 0, "ok "},     {msgFail, 1, 0, 0, 0, ""},
      {msgFail, 0, 1, 0, 0, "bad "},  {msgInfo, 1, 1, 0, 0, ""},
  };
  for (const auto& c : cases) {
    Change(c.success, c.fails, c.verbose, c.debug);
    showmessage("x\n", kNoPeer, c.kind, 0);
    std::string logs;
    for (const std::string name : {"ok", "bad", "all"}) {
      if (unlink(folder.Path(name + ".log").c_str()) == 0) logs += name + ' ';
    }
    EXPECT_EQ(c.logs, logs) << "case " << &c - cases;
  }
}

TEST_F(MessagesTest, FormsItsLines) {
  Change(1, 0, 0, 0);
  ChangeSettings([](TQovSettings& settings) { settings.interactive = 1; });
  in_addr peer;
  inet_pton(AF_INET, "10.1.2.3", &peer);
  const auto lines = [](const std::string& start) {
    const std::string cut = start + "\t qov\t\t " + std::string(511, 'x');
    return start + "\t 10.1.2.3\t 100%%\n" + start + "\t qov\t\t code 7\n" + cut.substr(0, 511);
  };
  for (int tries = 0; tries < 5; ++tries) {  // the clock may move on meanwhile
    unlink(folder.Path("ok.log").c_str());
    const time_t now = time(nullptr);
    testing::internal::CaptureStdout();
    showmessage("100%%\n", peer, msgOk, 0);
    showmessage("%s %d\n", kNoPeer, msgOk, 1, "code", 7);
    showmessage("%s", kNoPeer, msgOk, 1, std::string(2000, 'x').c_str());
    const std::string console = testing::internal::GetCapturedStdout();
    if (time(nullptr) != now) continue;
    char clock[32];
    char stamp[32];
    strftime(clock, sizeof clock, "[qov][%H:%M:%S]", localtime(&now));
    strftime(stamp, sizeof stamp, "[%m/%d/%Y %H:%M:%S]", localtime(&now));
    EXPECT_EQ(lines(clock), console);
    EXPECT_EQ(lines(stamp), ReadFile(folder.Path("ok.log")));
    return;
  }
}

TEST_F(MessagesTest, FollowsAReloadAmidARequest) {
  Change(0, 0, 1, 0);
  const TSettingsPin pin;
  Change(1, 0, 0, 0);
  showmessage("x", kNoPeer, msgOk, 0);
  EXPECT_EQ("", ReadFile(folder.Path("all.log")));
  EXPECT_NE("", ReadFile(folder.Path("ok.log")));
}

TEST_F(MessagesTest, NeverWaitsForALogFile) {
  mkfifo(folder.Path("fifo").c_str(), 0600);
  const TFd reader(open(folder.Path("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  Change(1, 0, 0, 0, "fifo");
  for (int i = 0; i < 2000; ++i) showmessage("a line that fills the pipe\n", kNoPeer, msgOk, 0);
}

}  // namespace

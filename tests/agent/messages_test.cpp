#include "agent/messages.h"

#include <arpa/inet.h>
#include <time.h>
#include <unistd.h>

#include "support/scopes.h"

namespace {

/// Messages into a folder of the test's own.
struct MessagesTest : testing::Test {
  MessagesTest() { InstallMessages(); }
  ~MessagesTest() override {
    SetMessageSink(nullptr);
    ChangeSettings([](TQovSettings& settings) { settings = TQovSettings(); });
  }
  /// @param on  the switches that are on: s(uccess), f(ails), v(erbose), d(ebug), i(nteractive)
  void Switch(const std::string& on) {
    ChangeSettings([&](TQovSettings& settings) {
      folder.Path("qov.cfg").copy(settings.configfile, sizeof settings.configfile - 1);
      settings.logsuccess = on.find('s') < on.size();
      settings.logfails = on.find('f') < on.size();
      settings.verbose = on.find('v') < on.size();
      settings.debug = on.find('d') < on.size();
      settings.interactive = on.find('i') < on.size();
      settings.oklogfile = "ok.log";
      settings.badlogfile = "bad.log";
      settings.verboselogfile = folder.Path("all.log").c_str();
    });
  }
  /// The names of the logs that were written; they are removed.
  std::string Written() const {
    std::string logs;
    for (const std::string name : {"ok", "bad", "all"}) {
      if (unlink(folder.Path(name + ".log").c_str()) == 0) logs += name + ' ';
    }
    return logs;
  }

  TTempDir folder;
};

TEST_F(MessagesTest, SendsEachKindToItsLogs) {
  const struct {
    MsgType kind;
    const char* on;
    const char* logs;
  } cases[] = {{msgOk, "sfvd", "ok all "}, {msgFail, "sfvd", "bad all "},
               {msgDebug, "sfvd", "all "}, {msgInfo, "sfvd", "all "},
               {msgDebug, "sfv", ""},      {msgOk, "fvd", "all "},
               {msgOk, "sf", "ok "},       {msgFail, "s", ""},
               {msgFail, "f", "bad "},     {msgInfo, "sf", ""}};
  for (const auto& c : cases) {
    Switch(c.on);
    showmessage("x\n", kNoPeer, c.kind, 0);
    EXPECT_EQ(c.logs, Written()) << "case " << &c - cases;
  }
  Switch("v");
  const TSettingsPin pin;
  Switch("s");
  showmessage("x", kNoPeer, msgOk, 0);
  EXPECT_EQ("ok ", Written()) << "a reload amid a request";
}

TEST_F(MessagesTest, FormsItsLines) {
  Switch("si");
  in_addr peer;
  inet_pton(AF_INET, "10.1.2.3", &peer);
  const auto lines = [](const std::string& start) {
    const std::string cut = start + "\t qov\t\t " + std::string(511, 'x');
    return start + "\t 10.1.2.3\t 100%%\n" + start + "\t qov\t\t code 7\n" + cut.substr(0, 511);
  };
  for (int tries = 0; tries < 5; ++tries) {  // the clock may move on meanwhile
    Written();
    const time_t now = time(nullptr);
    testing::internal::CaptureStdout();
    showmessage("100%%\n", peer, msgOk, 0);
    showmessage("%s %d\n", kNoPeer, msgOk, 1, "code", 7);
    showmessage("%s", kNoPeer, msgOk, 1, std::string(2000, 'x').c_str());
    const std::string console = testing::internal::GetCapturedStdout();
    if (time(nullptr) != now) continue;
    char clock[32], stamp[32];
    strftime(clock, sizeof clock, "[qov][%H:%M:%S]", localtime(&now));
    strftime(stamp, sizeof stamp, "[%m/%d/%Y %H:%M:%S]", localtime(&now));
    EXPECT_EQ(lines(clock), console);
    EXPECT_EQ(lines(stamp), ReadFile(folder.Path("ok.log")));
    return;
  }
}

}  // namespace

#include "agent/messages.h"

#include "support/scopes.h"

extern "C" time_t time(time_t*) noexcept { return 2'000'000'040; }

struct MessagesTest : TSettingsTest {
  MessagesTest() { InstallMessages(); }
  ~MessagesTest() override { SetMessageSink(nullptr); }
  /// @param on  the switches that are on: s(uccess), f(ails), v(erbose), d(ebug), i(nteractive)
  void Switch(const std::string& on) {
    const auto is = [&on](char name) { return on.find(name) < on.size(); };
    QovSettings = Loaded("oklogfile=ok\nbadlogfile=bad\nverboselogfile=" + folder.Path("all"));
    ChangeSettings([&](TQovSettings& settings) {
      settings.logsuccess = is('s');
      settings.logfails = is('f');
      settings.verbose = is('v');
      settings.debug = is('d');
      settings.interactive = is('i');
    });
  }
  /// The names of the logs that were written; they are removed.
  std::string Written() const {
    std::string logs;
    for (const std::string name : {"ok", "bad", "all"})
      if (unlink(folder.Path(name).c_str()) == 0) logs += name + ' ';
    return logs;
  }
};

TEST_F(MessagesTest, SendsEachKindToItsLogs) {
  const std::tuple<MsgType, const char*, const char*> cases[] = {
      {msgOk, "sfvd", "ok all "}, {msgFail, "sfvd", "bad all "},
      {msgDebug, "sfvd", "all "}, {msgInfo, "sfvd", "all "},
      {msgDebug, "sfv", ""},      {msgOk, "fvd", "all "},
      {msgOk, "sf", "ok "},       {msgFail, "s", ""},
      {msgFail, "f", "bad "},     {msgInfo, "sf", ""}};
  for (const auto& [kind, on, logs] : cases) {
    Switch(on);
    showmessage("x\n", kNoPeer, kind, 0);
    EXPECT_EQ(logs, Written()) << kind << on;
  }
  Switch("v");
  const TSettingsPin pin;
  Switch("s");
  showmessage("x", kNoPeer, msgOk, 0);
  EXPECT_EQ("ok ", Written()) << "a reload amid a request";
}

TEST_F(MessagesTest, FormsItsLines) {
  const TEnvironment zone("TZ", "UTC-1");
  Switch("si");
  testing::internal::CaptureStdout();
  showmessage("100%%\n", {htonl(0x0a010203)}, msgOk, 0);
  showmessage("%s %d\n", kNoPeer, msgOk, 1, "code", 7);
  showmessage("on the console alone\n", kNoPeer, msgFail, 0);
  showmessage("%s", kNoPeer, msgOk, 1, std::string(2000, 'x').c_str());
  const auto lines = [](const std::string& start, const std::string& third) {
    const std::string own = start + "\t qov\t\t ", cut = own + std::string(511, 'x');
    return start + "\t 10.1.2.3\t 100%%\n" + own + "code 7\n" + third + cut.substr(0, 511);
  };
  EXPECT_EQ(lines("[qov][04:34:00]", "[qov][04:34:00]\t qov\t\t on the console alone\n"),
            testing::internal::GetCapturedStdout());
  EXPECT_EQ(lines("[05/18/2033 04:34:00]", ""), ReadFile(folder.Path("ok")));
}

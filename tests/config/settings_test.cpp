#include "config/settings.h"

#include <unistd.h>

#include <atomic>
#include <thread>

#include "config/tempfolder.h"
#include "support/scopes.h"

namespace {

using SettingsTest = TSettingsTest;

constexpr char kMarksWarning[] = "FilterMarks has less items than FilterList";

TEST_F(SettingsTest, ReadsTheSyntax) {
  const std::string filler(1022, '.');
  const struct {
    std::string file;
    const char *key, *value;
  } cases[] = {
      {"comment=a b", "comment", "a b "},
      {" \tCOMment\t = \t a\tb \t\r\n", "comment", "a\tb "},
      {"comment=a=b;#c\n", "comment", "a=b;#c "},
      {"comment=a\ncomment=b\n", "comment", "b "},
      {"comment=a\n#comment=b\n;comment=c\n #comment=d\ncomment\n=e\nxcomment=f", "comment", "a "},
      {"comment=a\ncomment=\n", "comment", " "},
      // A long line is read in pieces, so that what stands behind 1,023 bytes is a line.
      {"#" + filler + "comment=a\n", "comment", "a "},
      {"#" + filler.substr(1) + "comment=a\n", "comment", " "},
      {"Port = 8080", "port", "8080 "},
      {"port=0\nport= +7x\nport=8", "port", "7 "},
      {"timeout=99999999999", "timeout", "2147483647 "},
      {"timeout=x", "timeout", "4000 "},
      {"", "delayforscripts", "90000 "},
      {"delayforscripts=-99999999999", "delayforscripts", "-2147483648 "},
      {"unc=true", "unc", "0 "},
      {"unc=", "unc", "0 "},
      {"unc=0\nunc=1abc", "unc", "1 "},
      {"filterlist=10.0.0.1   10.0.0.2", "filterlist", "10.0.0.1\r\n10.0.0.2 "},
      {"filterlist=%0D%0A1 %0A2%0D%0A", "filterlist", "1\r\n\n2 "},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(Values(Loaded(c.file), {c.key}), c.value) << c.file;
  }
}

TEST_F(SettingsTest, ChecksWhatIsMandatory) {
  const std::string cases[][2] = {
      {mandatory, ""},
      {mandatory + "filtermarks=1\nfilterlist=\n", kMarksWarning},
      // Deliberate: no list and no marks is a warning, since their defaults are crossed.
      {"port=1\npassword=p\nqovpath=" + agent, kMarksWarning},
      {"filtermarks=",
       "  TCP post is not specified!\n  Password is not specified!\n"
       "  Full path to the agent is not specified!\n"},
      {mandatory + "qovpath=agent\n", "  Full path to the agent is not specified!\n"},
      {mandatory + "qovpath=/nowhere/qov\n", "  Invalid path to the agent!\n"},
  };
  for (const auto& [file, text] : cases) {
    Loaded(file);
    EXPECT_EQ(result, text.empty() || text == kMarksWarning) << file;
    EXPECT_EQ(ToStd(err), text);
  }
  EXPECT_EQ(QovSettings.qovpath, "/nowhere/qov") << "any load teaches the process its path";
  TQovSettings record;
  EXPECT_EQ(record.LoadOptions_(err), 0);
  EXPECT_EQ(err, "Configuration file is not specified");
  std::string("/nowhere/x").copy(record.configfile, 99);
  EXPECT_EQ(record.LoadOptions_(err), 0);
  EXPECT_EQ(err, "Cannot open configuration file '/nowhere/x'");
  EXPECT_EQ(record.allowmanage, 1) << "a failed load leaves the defaults";
}

TEST_F(SettingsTest, PutRightBuildsTheEffectiveFilter) {
  const struct {
    const char *list, *marks, *filter, *err;
  } cases[] = {
      {"10.0.0.1\r\n10.0.0.2", "01", "\r\n10.0.0.2\r\n", ""},
      {"a\r\nb\r\nc", "1x1", "\r\na\r\nc\r\n", ""},
      {"a\r\nb", "1", "\r\na\r\n", ""},
      {"a\r\n \r\nb", "111", "\r\na\r\n", kMarksWarning},
      {"a\r\n", "10", "\r\na\r\n", kMarksWarning},
  };
  for (const auto& c : cases) {
    TQovSettings record;
    record.filterlist = c.list;
    record.filtermarks = c.marks;
    err = "";
    record.PutRight(err);
    EXPECT_EQ(ToStd(record.effectivefilter), c.filter);
    EXPECT_EQ(ToStd(err), c.err) << c.list;
  }
}

TEST_F(SettingsTest, PutRightCompletesScripts) {
  TQovSettings record;
  record.proccntscript = "count";
  record.cpuusagescript = "bin/cpu";
  record.PutRight(err);
  EXPECT_EQ(record.proccntscript, "count") << "no agent folder is known";
  record.qovpath = "/opt/qov";
  record.PutRight(err);
  EXPECT_EQ(Values(record, {"proccntscript", "cpuusagescript", "proclistscript"}),
            "/opt//count bin/cpu /opt// ");
}

TEST_F(SettingsTest, PutRightSettlesTheTemporaryFolder) {
  const std::string own = folder.Folder("own");
  const std::string unset = "unset";
  const std::string cases[][4] = {
      // tmpdir, TMPDIR, TMP, result
      {own + "/", folder.Path(), unset, own},
      {"", own + "/", folder.Path(), own},
      {agent, own, unset, own},
      {"/nowhere", unset, own, own},
      {"", "/nowhere", own, "."},
      {"", unset, unset, "."},
  };
  const auto setEnvironment = [&](const char* name, const std::string& value) {
    value == unset ? unsetenv(name) : setenv(name, value.c_str(), 1);
  };
  for (const auto& [wanted, TMPDIR, TMP, expected] : cases) {
    setEnvironment("TMPDIR", TMPDIR);
    setEnvironment("TMP", TMP);
    TQovSettings record;
    record.tmpdir = ToString(wanted);
    record.PutRight(err);
    EXPECT_EQ(ToStd(record.tmpdir), expected) << wanted << " " << TMPDIR << " " << TMP;
    EXPECT_EQ(getenv("TMPDIR"), expected);
  }
  const auto putRightFrozen = [&] {
    setenv("TMPDIR", "/before", 1);
    FreezeEnvironment();
    Named("").PutRight(err);
    _exit(getenv("TMPDIR") == std::string("/before") ? 7 : 1);
  };
  EXPECT_EXIT(putRightFrozen(), testing::ExitedWithCode(7), "");
}

TEST_F(SettingsTest, ReloadKeepsWhatHasNoDefault) {
  QovSettings = Named(mandatory + "host=h\ntimeout=5\nverboselogfile=v\nproccntscript=/x\n" +
                      "comment=c\npidfile=f\n");
  QovSettings.verbose = 1;
  ASSERT_EQ(LoadOptions(err), 1);
  folder.File("qov.cfg", "port=2\nqovpath=relative\n");
  EXPECT_EQ(LoadOptions(err), 0);
  const TSettingsView now = CurrentSettings();
  EXPECT_EQ(Values(*now, {"port", "host", "timeout", "verboselogfile", "proccntscript"}),
            "1 h 5 v /x ");
  EXPECT_EQ(Values(*now, {"comment", "pidfile", "password", "qovpath"}), "   relative ");
  EXPECT_EQ(now->verbose, 1u);
}

TEST_F(SettingsTest, APinHoldsOneRecord) {
  const auto nextPort = [](TQovSettings& s) { ++s.port; };
  {
    const TSettingsPin pin;
    const int before = CurrentSettings()->port;
    QovSettings.port = before;
    ChangeSettings(nextPort);
    EXPECT_EQ(CurrentSettings()->port, before);
    std::thread([&] { EXPECT_EQ(CurrentSettings()->port, before + 1); }).join();
  }
  EXPECT_EQ(CurrentSettings()->port, QovSettings.port);
}

TEST_F(SettingsTest, ReadersNeverSeeHalfARecord) {
  const std::string files[] = {mandatory + "password=one\nfilterlist=one\nfiltermarks=1\n",
                               mandatory + "password=two\nfilterlist=two\nfiltermarks=1\n"};
  QovSettings = Named(files[0]);
  ASSERT_EQ(LoadOptions(err), 1);
  std::atomic<bool> done{false};
  const auto read = [&] {
    while (!done) {
      const TSettingsView now = CurrentSettings();
      EXPECT_EQ(ToStd(now->effectivefilter), "\r\n" + ToStd(now->password) + "\r\n");
      EXPECT_TRUE(TempFolder());
    }
  };
  const auto save = [&] {
    for (String text; !done;) SaveOptions(text);
  };
  std::thread others[] = {std::thread(read), std::thread(read), std::thread(save)};
  for (int i = 0; i < 200; ++i) {
    EXPECT_EQ(rename(folder.File("other", files[i % 2]).c_str(), path.c_str()), 0);
    EXPECT_EQ(LoadOptions(err), 1) << ToStd(err);
  }
  done = true;
  for (std::thread& other : others) other.join();
}

}  // namespace

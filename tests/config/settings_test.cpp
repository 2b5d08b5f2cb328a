#include "config/settings.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <atomic>
#include <thread>

#include "support/settingsguard.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

class SettingsTest : public testing::Test {
 protected:
  /// Lines that satisfy the mandatory checks.
  std::string Mandatory() const {
    return "port=1\npassword=p\nqovpath=" + agent + "\nfiltermarks=\n";
  }
  TQovSettings Named(const std::string& text) const {
    TQovSettings record;
    const std::string path = folder.File("qov.cfg", text);
    path.copy(record.configfile, sizeof record.configfile - 1);
    return record;
  }
  /// The record of a file that holds `text`.
  TQovSettings Loaded(const std::string& text) {
    TQovSettings record = Named(text);
    result = record.LoadOptions_(err);
    return record;
  }

  TSettingsGuard guard;
  TTempDir folder;
  std::string agent = folder.File("agent");
  String err;
  int result = -1;
};

TEST_F(SettingsTest, ReadsTexts) {
  const std::string filler(1000, 'x');
  const struct {
    std::string file;
    const char* comment;
  } cases[] = {
      {"comment=a b", "a b"},
      {" \tCOMment\t = \t a\tb \t\r\n", "a\tb"},
      {"comment=a=b;#c\n", "a=b;#c"},
      {"comment=a\ncomment=b\n", "b"},
      {"comment=a\n#comment=b\n;comment=c\n #comment=d\ncomment\n=e\nmycomment=f\n", "a"},
      {"comment=a\ncomment=\n", ""},
      {"comment=a\r\rcomment=b", "a\r\rcomment=b"},
      // A long line is read in pieces, so that what stands behind 1,023 bytes is a line.
      {"#" + filler + "......................comment=a\n", "a"},
      {"#" + filler + ".....................comment=a\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    EXPECT_EQ(Loaded(c.file).comment, c.comment);
  }
}

TEST_F(SettingsTest, ReadsFlagsNumbersAndLists) {
  const struct {
    const char* file;
    int port, timeout, unc, delay;
    const char* list;
  } cases[] = {
      {"Port = 8080", 8080, 4000, 1, 90000, "1"},
      {"port=0\nport=7\nport=8", 7, 4000, 1, 90000, "1"},
      {"port= +12x\ntimeout=99999999999\ndelayforscripts=-99999999999", 12, 2147483647, 1,
       -2147483647 - 1, "1"},
      {"unc=true\ntimeout=x", 0, 4000, 0, 90000, "1"},
      {"unc=0\nunc=1abc\ntimeout=0", 0, 4000, 1, 90000, "1"},
      {"unc=", 0, 4000, 0, 90000, "1"},
      {"filterlist=10.0.0.1   10.0.0.2", 0, 4000, 1, 90000, "10.0.0.1\r\n10.0.0.2"},
      {"filterlist=%0D%0A1 %0A2%0D%0A", 0, 4000, 1, 90000, "1\r\n\n2"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const TQovSettings record = Loaded(c.file);
    EXPECT_EQ(record.port, c.port);
    EXPECT_EQ(record.timeout, c.timeout);
    EXPECT_EQ(record.unc, c.unc);
    EXPECT_EQ(record.delayforscripts, c.delay);
    EXPECT_EQ(record.filterlist, c.list);
  }
}

TEST_F(SettingsTest, ChecksWhatIsMandatory) {
  const std::string path = "qovpath=" + agent + "\n";
  const struct {
    std::string file;
    int result;
    std::string err;
  } cases[] = {
      {Mandatory(), 1, ""},
      {Mandatory() + "filtermarks=1\nfilterlist=\n", 1,
       "FilterMarks has less items than FilterList"},
      {"filtermarks=", 0,
       "  TCP post is not specified!\n  Password is not specified!\n"
       "  Full path to the agent is not specified!\n"},
      {"filtermarks=1\nport=1\nqovpath=agent\n", 0,
       "  Password is not specified!\n  Full path to the agent is not specified!\n"},
      {"filtermarks=1\nport=1\npassword=p\nqovpath=/nowhere/qov\n", 0,
       "  Invalid path to the agent!\n"},
      // Deliberate: no list and no marks is a warning, since their defaults are crossed.
      {"port=1\npassword=p\n" + path, 1, "FilterMarks has less items than FilterList"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    Loaded(c.file);
    EXPECT_EQ(result, c.result);
    EXPECT_EQ(ToStd(err), c.err);
  }
  TQovSettings record;
  EXPECT_EQ(record.LoadOptions_(err), 0);
  EXPECT_EQ(err, "Configuration file is not specified");
  const std::string missing = "Cannot open configuration file '/nowhere/qov.cfg'";
  strcpy(record.configfile, "/nowhere/qov.cfg");
  EXPECT_EQ(record.LoadOptions_(err), 0);
  EXPECT_EQ(ToStd(err), missing);
  EXPECT_EQ(record.allowmanage, 1) << "a failed load leaves the defaults";
  EXPECT_EQ(record.SaveOptions_(err), 0);
  EXPECT_EQ(ToStd(err), missing);
}

TEST_F(SettingsTest, PutRightBuildsTheEffectiveFilter) {
  const struct {
    const char *list, *marks, *filter, *err;
  } cases[] = {
      {"10.0.0.1\r\n10.0.0.2", "01", "\r\n10.0.0.2\r\n", ""},
      {"a\r\nb\r\nc", "1x1", "\r\na\r\nc\r\n", ""},
      {"a\r\nb", "1", "\r\na\r\n", ""},
      {"a", "11", "\r\na\r\n", "FilterMarks has less items than FilterList"},
      {"a\r\n \r\nb", "111", "\r\na\r\n", "FilterMarks has less items than FilterList"},
      {"a\r\n", "10", "\r\na\r\n", "FilterMarks has less items than FilterList"},
      {"", "", "\r\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.list);
    TQovSettings record;
    record.filterlist = c.list;
    record.filtermarks = c.marks;
    err = "";
    record.PutRight(err);
    EXPECT_EQ(record.effectivefilter, c.filter);
    EXPECT_EQ(err, c.err);
  }
}

TEST_F(SettingsTest, PutRightCompletesScripts) {
  TQovSettings record;
  record.proccntscript = "count";
  record.PutRight(err);
  EXPECT_EQ(record.proccntscript, "count") << "no agent folder is known";
  record.qovpath = "/opt/qov";
  record.cpuusagescript = "bin/cpu";
  record.PutRight(err);
  EXPECT_EQ(record.proccntscript, "/opt//count");
  EXPECT_EQ(record.cpuusagescript, "bin/cpu");
  EXPECT_EQ(record.proclistscript, "/opt//") << "an empty name is completed too";
}

TEST_F(SettingsTest, PutRightSettlesTheTemporaryFolder) {
  const std::string own = folder.Folder("own");
  const std::string other = folder.Folder("other");
  const std::string otherSlash = other + "/";
  const std::string file = folder.File("file");
  const char* const unset = nullptr;
  const struct {
    std::string tmpdir;
    const char *TMPDIR, *TMP;
    std::string expected;
  } cases[] = {
      {own + "/", other.c_str(), unset, own}, {"", otherSlash.c_str(), own.c_str(), other},
      {file, other.c_str(), unset, other},    {"/nowhere", unset, other.c_str(), other},
      {"", "/nowhere", other.c_str(), "."},   {"", unset, unset, "."},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.tmpdir);
    c.TMPDIR != unset ? setenv("TMPDIR", c.TMPDIR, 1) : unsetenv("TMPDIR");
    c.TMP != unset ? setenv("TMP", c.TMP, 1) : unsetenv("TMP");
    TQovSettings record;
    record.tmpdir = ToString(c.tmpdir);
    record.PutRight(err);
    EXPECT_EQ(ToStd(record.tmpdir), c.expected);
    EXPECT_EQ(getenv("TMPDIR"), c.expected);
  }
  unsetenv("TMP");
}

TEST_F(SettingsTest, LeavesAFrozenEnvironmentAlone) {
  EXPECT_EXIT(
      {
        setenv("TMPDIR", "/before", 1);
        FreezeEnvironment();
        TQovSettings record;
        record.tmpdir = ToString(folder.Path());
        record.PutRight(err);
        _exit(getenv("TMPDIR") == std::string("/before") ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST_F(SettingsTest, ReloadKeepsWhatHasNoDefault) {
  QovSettings = Named(Mandatory() + "host=h\ntimeout=5\nverboselogfile=v\nproccntscript=/x\n" +
                      "comment=c\npidfile=f\nsnmp=0\n");
  QovSettings.verbose = 1;
  ASSERT_EQ(LoadOptions(err), 1);
  folder.File("qov.cfg", "port=2\nqovpath=relative\n");
  EXPECT_EQ(LoadOptions(err), 0);
  const TSettingsView now = CurrentSettings();
  EXPECT_EQ(now->port, 1);
  EXPECT_EQ(now->host, "h");
  EXPECT_EQ(now->timeout, 5);
  EXPECT_EQ(now->verboselogfile, "v");
  EXPECT_EQ(now->proccntscript, "/x");
  EXPECT_EQ(now->verbose, 1u);
  EXPECT_EQ(now->comment, "");
  EXPECT_EQ(now->password, "");
  EXPECT_EQ(now->pidfile, "");
  EXPECT_EQ(now->snmp, 1);
  EXPECT_EQ(now->qovpath, "relative") << "a failed load leaves what the file set";
}

TEST_F(SettingsTest, AnyRecordTeachesTheProcessItsPath) {
  Loaded(Mandatory());
  EXPECT_EQ(ToStd(QovSettings.qovpath), agent);
}

TEST_F(SettingsTest, APinHoldsOneRecord) {
  const auto setPort = [](TQovSettings& s, const void* port) {
    s.port = *static_cast<const int*>(port);
  };
  const int ports[] = {1, 2};
  ChangeSettings(setPort, &ports[0]);
  {
    const TSettingsPin pin;
    ChangeSettings(setPort, &ports[1]);
    EXPECT_EQ(CurrentSettings()->port, 1);
    std::thread([] { EXPECT_EQ(CurrentSettings()->port, 2); }).join();
  }
  EXPECT_EQ(CurrentSettings()->port, 2);
}

TEST_F(SettingsTest, ReadersNeverSeeHalfARecord) {
  const std::string files[] = {Mandatory() + "password=one\nfilterlist=one\nfiltermarks=1\n",
                               Mandatory() + "password=two\nfilterlist=two\nfiltermarks=1\n"};
  QovSettings = Named(files[0]);
  ASSERT_EQ(LoadOptions(err), 1);
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  const auto read = [&] {
    while (!done) {
      const TSettingsView now = CurrentSettings();
      if (ToStd(now->effectivefilter) != "\r\n" + ToStd(now->password) + "\r\n") ++torn;
      if (TempFolder().Empty()) ++torn;
    }
  };
  std::thread readers[] = {std::thread(read), std::thread(read)};
  std::thread saver([&] {
    for (String text; !done;) SaveOptions(text);
  });
  for (int i = 0; i < 200; ++i) {
    ASSERT_EQ(rename(folder.File("other", files[i % 2]).c_str(), QovSettings.configfile), 0);
    String text;
    EXPECT_EQ(LoadOptions(text), 1) << ToStd(text);
  }
  done = true;
  for (std::thread& reader : readers) reader.join();
  saver.join();
  EXPECT_EQ(torn, 0);
}

}  // namespace

#include "config/settings.h"

#include <unistd.h>

#include <thread>

#include "config/tempfolder.h"
#include "support/scopes.h"

namespace {

using SettingsTest = TSettingsTest;

TEST_F(SettingsTest, ReadsTheSyntax) {
  const std::string filler(1022, '.');
  // A long line is read in pieces, so that what stands behind 1,023 bytes is a line.
  const TQovSettings record = Loaded(
      " \tHost\t = \t a\tb \t\r\ncomment=a=b;#c\npassword=a\n#password=b\n;password=c\n"
      " #password=d\npassword\n=e\nxpassword=f\npassword\r=g\nupdateaddr=a\nupdateaddr=\n"
      "#" +
      filler + "oklogfile=a\n#" + filler.substr(1) +
      "badlogfile=a\n"
      "port=0\nport= +7x\nport=8\ntimeout=99999999999\nunc=true\ntcp=\nudp=0\nudp=1a\n"
      "filterlist=%0D%0A1   2 %0A3%0D%0A\nqovpath=/opt/qov\nproccntscript=a\ncpuusagescript=a/b");
  EXPECT_EQ(
      Values(record, {"host", "comment", "password", "updateaddr", "oklogfile", "badlogfile"}),
      "a\tb a=b;#c a  a log2.txt ");
  EXPECT_EQ(Values(record, {"port", "timeout", "delayforscripts", "unc", "tcp", "udp"}),
            "7 2147483647 90000 0 0 1 ");
  EXPECT_EQ(Values(record, {"filterlist", "proccntscript", "cpuusagescript", "proclistscript"}),
            "1\r\n2\r\n\n3 /opt//a a/b /opt// ");
  EXPECT_EQ(Values(Loaded("timeout=x\nproccntscript=a"), {"timeout", "proccntscript"}), "4000 a ");
}

TEST_F(SettingsTest, EachKeySetsOneField) {
  const TQovSettings plain = Loaded("");
  for (const TSettingKey& key : kSettingKeys) {
    const bool one = key.preset != nullptr && *key.preset == '1';
    const std::string value = key.name == std::string("tmpdir") ? "/" : one ? "0" : "1";
    const TQovSettings record = Loaded(key.name + ("=" + value));
    std::string changed;
    for (const TSettingKey& other : kSettingKeys) {
      if (Values(record, {other.name}) != Values(plain, {other.name})) changed += other.name;
    }
    EXPECT_EQ(changed, key.name);
  }
  EXPECT_EQ(plain.service + plain.ntlog + plain.perfcounter + plain.reserved, 0);
  EXPECT_EQ(plain.snmp, 1);
  EXPECT_EQ(plain.interactive + plain.verbose + plain.debug, 0u);
}

TEST_F(SettingsTest, ChecksAndPutsRightWhatItLoads) {
  const std::string warning = "FilterMarks has less items than FilterList";
  const std::string cases[][3] = {
      // file, its faults, the effective filter
      {mandatory, "", "\r\n"},
      {mandatory + "filterlist=a b c d\nfiltermarks=1x1\n", "", "\r\na\r\nc\r\n"},
      {mandatory + "filterlist=a%0D%0A%0Ab\nfiltermarks=111\n", warning, "\r\na\r\n"},
      {mandatory + "filterlist=\nfiltermarks=1\n", warning, "\r\n"},
      // Deliberate: no list and no marks is a warning, since their defaults are crossed.
      {"port=1\npassword=p\nqovpath=" + agent, warning, "\r\n1\r\n"},
      {"filtermarks=",
       "  TCP post is not specified!\n  Password is not specified!\n"
       "  Full path to the agent is not specified!\n",
       "\r\n"},
      {mandatory + "qovpath=agent\n", "  Full path to the agent is not specified!\n", "\r\n"},
      {mandatory + "qovpath=" + folder.Path(), "  Invalid path to the agent!\n", "\r\n"},
      {mandatory + "qovpath=/nowhere/qov\n", "  Invalid path to the agent!\n", "\r\n"},
  };
  for (const auto& [file, text, filter] : cases) {
    EXPECT_EQ(ToStd(Loaded(file).effectivefilter), filter) << file;
    EXPECT_EQ(result, text.empty() || text == warning) << file;
    EXPECT_EQ(ToStd(err), text);
  }
  EXPECT_EQ(QovSettings.qovpath, "/nowhere/qov") << "any load teaches the process its path";
  TQovSettings record;
  EXPECT_EQ(record.LoadOptions_(err) + record.SaveOptions_(err), 0);
  EXPECT_EQ(err, "Configuration file is not specified");
  std::string("/nowhere/x").copy(record.configfile, 99);
  EXPECT_EQ(record.LoadOptions_(err), 0);
  EXPECT_EQ(err, "Cannot open configuration file '/nowhere/x'");
  EXPECT_EQ(record.allowmanage, 1) << "a failed load leaves the defaults";
}

TEST_F(SettingsTest, EachLoadLeavesItsTemporaryFolderToTheNext) {
  const std::string a = folder.Folder("a");
  const std::string b = folder.Folder("b");
  const auto load = [&](const std::string& first) {
    const std::string steps[][2] = {
        {"", first}, {"tmpdir=" + a + "/", a}, {"tmpdir=" + b, b},
        {"", b},     {"tmpdir=" + agent, b},   {"tmpdir=/", ""},  // names begin with a '/'
        {"", "."}};
    for (const auto& [file, expected] : steps) {
      EXPECT_EQ(ToStd(Loaded(file).tmpdir), expected) << file;
      EXPECT_EQ(TempFolder(), ToString(expected)) << file;
    }
  };
  const char* const cases[][4] = {// TMPDIR, TMP, the folder before a load and after one
                                  {a.c_str(), b.c_str(), a.c_str(), a.c_str()},
                                  {nullptr, b.c_str(), b.c_str(), b.c_str()},
                                  {"/nowhere", b.c_str(), "/nowhere", "."},
                                  {"", b.c_str(), "", "."},
                                  {nullptr, nullptr, "none", "."}};
  for (const auto& [tmpdir, tmp, before, after] : cases) {
    const TEnvironment variables[] = {{"TMPDIR", tmpdir}, {"TMP", tmp}};
    EXPECT_EQ(TempFolder().value_or("none"), before);
    const auto loadFrozen = [&, first = after] {
      setenv("TMPDIR", first, 1);
      FreezeEnvironment();
      load(first);
      EXPECT_STREQ(getenv("TMPDIR"), first) << "threads may read the environment";
      _exit(HasFailure() ? 1 : 7);
    };
    EXPECT_EXIT(loadFrozen(), testing::ExitedWithCode(7), "");
    load(after);
    EXPECT_STREQ(getenv("TMPDIR"), ".");
  }
}

TEST_F(SettingsTest, AReloadKeepsWhatHasNoDefault) {
  Twofish_initialise();
  QovSettings = Named(mandatory + "host=h\ntimeout=5\nverboselogfile=v\nproccntscript=/x\n" +
                      "comment=c\npidfile=f\n");
  QovSettings.verbose = 1;
  ASSERT_EQ(LoadOptions(err), 1);
  const TCipher& cipher = CurrentSettings()->PasswordCipher();
  EXPECT_EQ(EncodeData("text", *cipher, 0), EncodeData("text", "p", 0));
  EXPECT_EQ(cipher, CurrentSettings()->PasswordCipher()) << "prepared once";
  folder.File("qov.cfg", "port=2\nqovpath=relative\n");
  EXPECT_EQ(LoadOptions(err), 0);
  const TSettingsView now = CurrentSettings();
  EXPECT_EQ(Values(*now, {"port", "host", "timeout", "verboselogfile", "proccntscript"}),
            "1 h 5 v /x ");
  EXPECT_EQ(Values(*now, {"comment", "pidfile", "password", "qovpath"}), "   relative ");
  EXPECT_EQ(now->verbose, 1u);
}

TEST_F(SettingsTest, APinHoldsOneRecord) {
  ChangeSettings([](TQovSettings& settings) { settings.port = 1; });
  {
    const TSettingsPin pin;
    ChangeSettings([](TQovSettings& settings) { ++settings.port; });
    EXPECT_EQ(CurrentSettings()->port, 1);
    EXPECT_EQ(SettingsInForce()->port, 2);
    std::thread([] { EXPECT_EQ(CurrentSettings()->port, 2); }).join();
  }
  EXPECT_EQ(CurrentSettings()->port, 2);
}

}  // namespace

#include "config/settings.h"

#include <fcntl.h>
#include <sys/syscall.h>

#include <thread>

#include "built.h"
#include "support/scopes.h"

// The calls that the watched save is to make, a letter each, capital when it fails; and those made.
static std::string plan, made;

static int Perform(char letter, long number, auto... arguments) {
  const bool fails = plan.starts_with(made + letter), again = letter == 'W' && made.ends_with('w');
  if (!plan.empty() && !again) made += static_cast<char>(fails ? letter : tolower(letter));
  errno = EIO;
  return fails ? -1 : static_cast<int>(syscall(number, arguments...));
}

// In the place of the C library's; a write takes little at a time, and nobody waits for the disk.
extern "C" {
ssize_t write(int fd, const void* data, size_t size) {
  return Perform('W', SYS_write, fd, data, plan.empty() ? size : std::min<size_t>(size, 100));
}
int fchown(int fd, uid_t uid, gid_t gid) noexcept { return Perform('O', SYS_fchown, fd, uid, gid); }
int fsync(int) { return Perform('S', SYS_sched_yield); }
int link(const char* from, const char* to) noexcept {
  return Perform('L', SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0);
}
int rename(const char* from, const char* to) noexcept {
  return Perform('R', SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}
}

using SettingsTest = TSettingsTest;

TEST_F(SettingsTest, ReadsTheSyntax) {
  // A long line is read in pieces, so that what stands behind 1,023 bytes is a line.
  const std::string filler(1021, '.');
  const TQovSettings record = Loaded(
      "#." + filler + "oklogfile=a\n#" + filler + "badlogfile=a\nverboselogfile=v\npidfile=f\n" +
      " \tHost\t = \t a\tb \t\r\ncomment=a=b;#c\npassword=a\n#password=b\n;password=c\n"
      " #password=d\npassword\n=e\nxpassword=f\npassword\r=g\nupdateaddr=a\nupdateaddr=\n"
      "port=0\nport= +7x\nport=8\ntimeout=99999999999\nunc=true\ntcp=\nudp=0\nudp=1a\n"
      "filterlist=%0D%0A1   2 %0A3%0D%0A\nqovpath=/opt/qov\nproccntscript=a\ncpuusagescript=a/b");
  EXPECT_EQ(Values(record, {"oklogfile", "badlogfile", "verboselogfile", "pidfile", "host",
                            "comment", "password", "updateaddr"}),
            "a log2.txt v f a\tb a=b;#c a  ");
  EXPECT_EQ(Values(record, {"port", "timeout", "delayforscripts", "unc", "tcp", "udp", "filterlist",
                            "proccntscript", "cpuusagescript", "proclistscript"}),
            "7 2147483647 90000 0 0 1 1\r\n2\r\n\n3 /opt//a a/b /opt// ");
  EXPECT_EQ(Values(Loaded("timeout=x\nproccntscript=a"), {"timeout", "proccntscript"}), "4000 a ");
}

TEST_F(SettingsTest, ChecksAndPutsRightWhatItLoads) {
  const std::string warning = "FilterMarks has less items than FilterList";
  const std::string cases[][3] = {
      {mandatory, "", "\r\n"},
      {mandatory + "filterlist=a b c d\nfiltermarks=1x1\n", "", "\r\na\r\nc\r\n"},
      {mandatory + "filterlist=a%0D%0A%0Ab\nfiltermarks=111\n", warning, "\r\na\r\n"},
      // Deliberate: no list and no marks is a warning, since their defaults are crossed.
      {"port=1\npassword=p\nqovpath=" + agent, warning, "\r\n1\r\n"},
      {"qovpath=agent\nfiltermarks=",
       "  TCP post is not specified!\n  Password is not specified!\n"
       "  Full path to the agent is not specified!\n",
       "\r\n"},
      {mandatory + "qovpath=" + folder.Path(), "  Invalid path to the agent!\n", "\r\n"}};
  for (const auto& [file, text, filter] : cases) {
    EXPECT_EQ(ToStd(Loaded(file).effectivefilter), filter) << file;
    EXPECT_EQ(result, text.empty() || text == warning) << file;
    EXPECT_EQ(ToStd(err), text);
  }
  EXPECT_EQ(ToStd(QovSettings.qovpath), folder.Path()) << "any load teaches the process its path";
  TQovSettings record;
  EXPECT_EQ(record.LoadOptions_(err) + record.SaveOptions_(err), 0);
  EXPECT_EQ(err, "Configuration file is not specified");
  EXPECT_EQ(record.allowmanage, 1) << "a failed load leaves the defaults";
}

TEST_F(SettingsTest, EachLoadLeavesItsTemporaryFolderToTheNext) {
  const char* const variables[][3] = {{"/usr", "/etc", "/usr"},
                                      {nullptr, "/etc", "/etc"},
                                      {"", "/etc", "."},
                                      {nullptr, nullptr, "."}};
  for (const auto& [tmpdir, tmp, after] : variables) {
    const TEnvironment first("TMPDIR", tmpdir), second("TMP", tmp);
    EXPECT_EQ(Loaded("").tmpdir, after);
    EXPECT_EQ(getenv("TMPDIR"), std::string(after));
  }
  // "/" becomes "", as the names of files in it begin with a '/'.
  const char* const steps[][2] = {
      {"tmpdir=/usr/", "/usr"},     {"tmpdir=/etc", "/etc"}, {"", "/etc"},
      {"tmpdir=/dev/null", "/etc"}, {"tmpdir=/", ""},        {"", "."}};
  const auto load = [&] {
    for (const auto& [file, expected] : steps) {
      EXPECT_EQ(Loaded(file).tmpdir, expected) << file;
      EXPECT_EQ(TempFolder(), String(expected)) << file;
    }
  };
  load();
  // From then on threads may read the environment, so that "." stays.
  EXPECT_EXIT((FreezeEnvironment(), load(), Loaded("tmpdir=/usr"),
               _exit(HasFailure() ? 1 : *getenv("TMPDIR"))),
              testing::ExitedWithCode('.'), "");
}

TEST_F(SettingsTest, AReloadKeepsWhatHasNoDefault) {
  Twofish_initialise();
  QovSettings = Named(mandatory + "host=h\ntimeout=5\nverboselogfile=v\nproccntscript=/x\n" +
                      "comment=c\npidfile=f\n");
  ASSERT_EQ(LoadOptions(err), 1);
  const TCipher& cipher = CurrentSettings()->PasswordCipher();
  EXPECT_EQ(cipher, CurrentSettings()->PasswordCipher()) << "prepared once";
  folder.File("qov.cfg", "port=2\nqovpath=relative\n");
  EXPECT_EQ(LoadOptions(err), 0);
  EXPECT_EQ(Values(*CurrentSettings(), {"port", "host", "timeout", "verboselogfile",
                                        "proccntscript", "comment", "pidfile", "qovpath"}),
            "1 h 5 v /x   relative ");
}

TEST_F(SettingsTest, APinHoldsOneRecord) {
  const auto count = [](TQovSettings& settings) { ++settings.port; };
  ChangeSettings(count);
  std::optional<TSettingsPin> pin(std::in_place);
  ChangeSettings(count);
  EXPECT_EQ(CurrentSettings()->port * 10 + SettingsInForce()->port, 12);
  std::thread([] { EXPECT_EQ(CurrentSettings()->port, 2); }).join();
  pin.reset();
  EXPECT_EQ(CurrentSettings()->port, 2);
}

/// Every saved key with its default, in the order in which a save appends them.
constexpr char kAllDefaults[] =
    "host=\r\nport=0\r\ntimeout=4000\r\ncomment=\r\npassword=\r\nfilteractive=0\r\n"
    "filtermarks=127.0.0.1\r\nfilterlist=1\r\nlogsuccess=0\r\nlogfails=1\r\n"
    "oklogfile=log1.txt\r\nbadlogfile=log2.txt\r\nverboselogfile=\r\nallowupdates=1\r\n"
    "allowmanage=1\r\nupdateaddr=127.0.0.1\r\nmanageaddr=127.0.0.1\r\nunc=1\r\nfreespace=1\r\n"
    "foldersize=1\r\ncountfiles=1\r\nfileexists=1\r\nfilecrc=1\r\ncomparefiles=1\r\nprocess=1\r\n"
    "cpuusage=1\r\nscript=1\r\nexternal=1\r\nping=1\r\ntcp=1\r\nudp=1\r\ntextlog=1\r\n"
    "shellscript=1\r\nexecuteaction=0\r\ntcpudpaction=0\r\nsyslogaction=0\r\n";

// Lines in a file that has every key elsewhere too. A second save changes nothing.
TEST_F(SettingsTest, ReplacesValuesInPlace) {
  const std::string x(2000, 'x'), blanks(1015, ' '), room = "comment=" + x.substr(0, 1015);
  const std::string cases[][3] = {
      {"port=1\r\n \tPorT \t=\t  1 ; x\n", "port=99\r\n \tPorT \t=\t  99\r\n"},
      {"comment=\ncomment=  \t\r\ncomment=x", "comment=a b\r\ncomment=  \ta b\r\ncomment=a b\r\n"},
      {"filterlist=x\r\nno end", "filterlist=10.0.0.1 10.0.0.2 \r\nno end\r\n"},
      {"allowupdates=1 ; remote\n", "allowupdates=0 ; remote\n"},
      {"unc=true\r\nunc= \t\r\nunc=\nunc=", "unc=1rue\r\nunc= \t1\r\nunc=1\nunc=1\r\n"},
      // A line takes 1,023 bytes before its end, which is then a piece of its own.
      {"comment=\n", room + "\r\n", x},
      {room + "\r\nport=1\n", "comment=a b\r\nport=99\r\n"},
      {"comment=" + x + "\n", "comment=a b\r\n" + x.substr(1015) + "\n"},
      {"comment=" + blanks.substr(1) + "\n", "comment=" + blanks.substr(1) + "x\r\n", x},
      // Left alone: comments, no keys or unsaved ones, long lines, no room for a value.
      {"#port=1\n;port=1\r\n #port=1\nport\n\n \r\n=2\nother=1\ntmpdir=/x\npidfile=y\n", ""},
      {std::string("zero\0=1\0\n", 9) + "#" + x + "port=1\nother=" + x + "\n\n", ""},
      {"comment=" + blanks + "\n", ""},
      // No value makes a line of its own.
      {"comment=\n", "comment=a port=7\rb\r\n", "a\nport=7\rb"}};
  for (const auto& [before, after, comment] : cases) {
    TQovSettings record = Loaded(kAllDefaults + before);
    for (int i = 0; i < 2; ++i) {
      record.port = 99;
      record.comment = ToString(comment.empty() ? "a b" : comment);
      record.unc = 1;
      record.allowupdates = 0;
      record.filterlist = "10.0.0.1\r\n10.0.0.2\r\n";
      EXPECT_EQ(record.SaveOptions_(err), 1);
      EXPECT_EQ(File().substr(File().find("syslog")),
                "syslogaction=0\r\n" + (after.empty() ? before : after));
    }
  }
}

TEST_F(SettingsTest, AppendsEveryMissingKeyAsALoadTakesIt) {
  const std::string most = "#" + std::string((16 << 20) - 2, 'x') + "\n";
  for (const bool over : {false, true}) {
    const std::string old = "#" + most.substr(sizeof kAllDefaults - over);
    EXPECT_EQ(Loaded(old).SaveOptions_(err), !over);
    EXPECT_EQ(err.Pos("Settings exceed 16 MiB of configuration file '/") == 1, over);
    EXPECT_EQ(File().substr(old.size()), over ? "" : kAllDefaults);
    Loaded(over ? "#" + most : most);
    EXPECT_EQ(err.Pos("Cannot open") != 0, over);
  }

  const std::string room(1015, 'x');
  const std::string cases[][3] = {{room + "xx=1", room + "xx=1", room},
                                  {room + "port=7", room, room},
                                  {room + std::string(1000, ' ') + "Qovpath =/", room, room}};
  for (const auto& [value, written, read] : cases) {
    TQovSettings record = Named("port=1");
    record.comment = ToString(value);
    EXPECT_EQ(record.SaveOptions_(err), 1);
    EXPECT_NE(File().find("\ncomment=" + written + "\r\n"), std::string::npos) << value;
    EXPECT_EQ(Values(Loaded(File()), {"comment", "qovpath", "port"}), read + "  0 ");
  }
}

TEST_F(SettingsTest, ReplacesTheFileAtOnceOrNotAtAll) {
  if (geteuid() != 0) GTEST_SKIP() << "needs a file of another user";
  const std::pair<std::string, std::vector<std::string>> cases[] = {
      {"Cannot create new configuration file '" + path + ".New'", {"O", "ooW", "oowS"}},
      {"Cannot overwrite configuration file '" + path + "'", {"oowslRr", "oowsLrRr", "oowsLRR"}},
      // Without links the old file is renamed; a group that cannot be given has no rights.
      {"", {"oowslrS", "oowsLrrs", "oowsLRrs", "oOwslrs"}}};
  for (const auto& [fault, plans] : cases) {
    for (const std::string& calls : plans) {
      TQovSettings record = Loaded("port=1\nfiltermarks=\n");
      record.port = 2;
      EXPECT_EQ(chmod(path.c_str(), 0642) + chown(path.c_str(), 1, 2), 0);
      EXPECT_EQ(symlink(agent.c_str(), (path + ".New").c_str()), 0) << "the last one is left";
      made = "";
      plan = calls;
      const bool saved = record.SaveOptions_(err) == 1, done = fault.empty();
      plan = "";
      const std::string now = File(), ends = now.substr(0, 7) + now.substr(now.size() - 8);
      EXPECT_EQ(std::tuple(saved, made, ToStd(err), ends),
                std::tuple(done, calls, fault, done ? "port=2\rtion=0\r\n" : "port=1\nrmarks=\n"));
      struct stat facts;
      EXPECT_EQ(stat(path.c_str(), &facts), 0);
      EXPECT_EQ(std::tuple(facts.st_mode & 07777, facts.st_uid, facts.st_gid),
                calls[1] == 'O' ? std::tuple(0602u, 1u, getegid()) : std::tuple(0642u, 1u, 2u));
      EXPECT_EQ(ReadFile(agent), "") << "a planted link is not followed";
    }
  }
}

TEST_F(SettingsTest, TheSampleExplainsEveryKeyAndIsSafe) {
  const std::string sample = "\n" + ReadFile(QOV_SOURCE_DIR "/packaging/qov.cfg");
  const std::string manual = ReadFile(QOV_SOURCE_DIR "/docs/configuration.md");
  for (const TSettingKey& key : kSettingKeys) {
    const size_t at = sample.find(std::string("\n") + key.name + "=");
    EXPECT_EQ(sample.substr(sample.rfind('\n', at - 1), 3), "\n# ") << key.name;
    EXPECT_NE(manual.find(std::string("\n| `") + key.name + "` |"), std::string::npos) << key.name;
  }
  const TQovSettings record = Loaded(sample + "password=x\nqovpath=" + agent + "\n");
  EXPECT_EQ(ToStd(err + record.effectivefilter), "\r\n127.0.0.1\r\n");
  EXPECT_EQ(Values(record, {"host", "filteractive", "allowupdates", "shellscript", "external",
                            "executeaction", "tcpudpaction", "syslogaction"}),
            "127.0.0.1 1 0 0 0 0 0 0 ");
}

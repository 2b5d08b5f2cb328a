#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>

#include "config/settings.h"
#include "config/settingslines.h"
#include "support/settingsguard.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

/// Every key with its default, in the order in which a save appends them.
constexpr char kAllDefaults[] =
    "host=\r\nport=0\r\ntimeout=4000\r\ncomment=\r\npassword=\r\nfilteractive=0\r\n"
    "filtermarks=127.0.0.1\r\nfilterlist=1\r\nlogsuccess=0\r\nlogfails=1\r\n"
    "oklogfile=log1.txt\r\nbadlogfile=log2.txt\r\nverboselogfile=\r\nallowupdates=1\r\n"
    "allowmanage=1\r\nupdateaddr=127.0.0.1\r\nmanageaddr=127.0.0.1\r\nunc=1\r\nfreespace=1\r\n"
    "foldersize=1\r\ncountfiles=1\r\nfileexists=1\r\nfilecrc=1\r\ncomparefiles=1\r\nprocess=1\r\n"
    "cpuusage=1\r\nscript=1\r\nexternal=1\r\nping=1\r\ntcp=1\r\nudp=1\r\ntextlog=1\r\n"
    "shellscript=1\r\nexecuteaction=0\r\ntcpudpaction=0\r\nsyslogaction=0\r\n";

class SettingsFileTest : public testing::Test {
 protected:
  /// A record loaded from a file that holds `text`.
  TQovSettings Loaded(const std::string& text) {
    TQovSettings record;
    folder.File("qov.cfg", text).copy(record.configfile, sizeof record.configfile - 1);
    record.tmpdir = ToString(folder.Path());
    record.LoadOptions_(err);
    return record;
  }
  std::string File(const char* name = "qov.cfg") const { return ReadFile(folder.Path(name)); }

  TSettingsGuard guard;
  TTempDir folder;
  const std::string path = folder.Path("qov.cfg");
  String err;
};

TEST_F(SettingsFileTest, AppendsEveryKeyThatTheFileLacks) {
  TQovSettings record = Loaded("");
  ASSERT_EQ(record.SaveOptions_(err), 1);
  EXPECT_EQ(File(), kAllDefaults);
  ASSERT_EQ(record.SaveOptions_(err), 1);
  EXPECT_EQ(File(), kAllDefaults) << "a second save changes nothing";
  EXPECT_EQ(File("qov.cfg.Old"), kAllDefaults);
  EXPECT_NE(access(folder.Path("qov.cfg.New").c_str(), F_OK), 0);
}

// What a save makes of lines in a file that has every key elsewhere. The record holds port 99,
// comment "a b", unc on, allowupdates off, and the list 10.0.0.1, 10.0.0.2.
TEST_F(SettingsFileTest, ReplacesValuesInPlace) {
  const std::string blanks(1015, ' ');
  const std::string longText(1500, 'x');
  const struct {
    std::string before, after;
  } cases[] = {
      {"port=1\r\n", "port=99\r\n"},
      {" \tPorT \t=\t  1 ; x\n", " \tPorT \t=\t  99\r\n"},
      {"comment=\n", "comment=a b\r\n"},
      {"comment=  \t\r\n", "comment=  \ta b\r\n"},
      {"comment=old", "comment=a b\r\n"},
      {"comment=old\ncomment=older\n", "comment=a b\r\ncomment=a b\r\n"},
      {"filterlist=x\r\n", "filterlist=10.0.0.1 10.0.0.2\r\n"},
      {"allowupdates=1 ; remote\n", "allowupdates=0 ; remote\n"},
      {"unc=true\r\n", "unc=1rue\r\n"},
      {"unc=\n", "unc=1\n"},
      {"unc= \t\r\n", "unc= \t1\r\n"},
      {"unc=", "unc=1\r\n"},
      {"#port=1\n;port=1\r\n #port=1\nport\n\n \r\n",
       "#port=1\n;port=1\r\n #port=1\nport\n\n \r\n"},
      {"tmpdir=/x\npidfile=y\nother=1\n=2\n", "tmpdir=/x\npidfile=y\nother=1\n=2\n"},
      {"no end", "no end\r\n"},
      {std::string("zero\0=1\0\n", 9), std::string("zero\0=1\0\n", 9)},
      {"#" + longText + "port=1\nother=" + longText + "\n",
       "#" + longText + "port=1\nother=" + longText + "\n"},
      {"comment=" + longText + "\n", "comment=a b\r\n" + longText.substr(1015) + "\n"},
      // No room behind the blanks for any value: the line stays, and the key is not met.
      {"comment=" + blanks + "\n", "comment=" + blanks + "\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.before.substr(0, 40));
    TQovSettings record = Loaded(kAllDefaults + c.before);
    record.port = 99;
    record.comment = "a b";
    record.unc = 1;
    record.allowupdates = 0;
    record.filterlist = "10.0.0.1\r\n10.0.0.2";
    ASSERT_EQ(record.SaveOptions_(err), 1);
    const std::string saved = File();
    const size_t start = saved.find("syslogaction=0\r\n") + 16;
    EXPECT_EQ(saved.substr(start), c.after);
  }
}

TEST_F(SettingsFileTest, ValuesReadBackAndNeverMakeALine) {
  const struct {
    std::string value, saved;
  } cases[] = {
      {"a\nport=7", "a port=7"},
      {"a\r\n\r\npassword=\r", "a  password="},
      {"\n \t a \r\n", "a"},
      {"# a ; b = c", "# a ; b = c"},
      {std::string(1005, 'x') + "........port=7", std::string(1005, 'x') + "........"},
  };
  for (const char* file : {"comment=old\n", ""}) {
    for (const auto& c : cases) {
      SCOPED_TRACE(c.value.substr(0, 20));
      TQovSettings record = Loaded(file);
      record.comment = ToString(c.value);
      record.filterlist = "1\nport=7\r\r2";
      record.password = "p";
      ASSERT_EQ(record.SaveOptions_(err), 1);
      const TQovSettings back = Loaded(File());
      EXPECT_EQ(ToStd(back.comment), c.saved);
      EXPECT_EQ(back.filterlist, "1\r\nport=7\r\n2");
      EXPECT_EQ(back.port, 0);
      EXPECT_EQ(back.password, "p");
    }
  }
}

TEST_F(SettingsFileTest, SavesEveryKeyThatIsSavedAndReadsItBack) {
  TQovSettings record = Loaded("");
  int n = 40;
  for (const TSettingKey& key : kSettingKeys) {
    if (key.text != nullptr) record.*key.text = ToString("v" + std::to_string(++n));
    if (key.number != nullptr) {
      record.*key.number = key.form == formFlag ? 1 - record.*key.number : ++n;
    }
  }
  const TQovSettings wanted = record;
  ASSERT_EQ(record.SaveOptions_(err), 1);
  TQovSettings back = Loaded(File());
  for (const TSettingKey& key : kSettingKeys) {
    if (key.text == &TQovSettings::tmpdir) continue;  // settled by the environment
    SCOPED_TRACE(key.name);
    const bool same = key.text != nullptr ? back.*key.text == wanted.*key.text
                                          : back.*key.number == wanted.*key.number;
    EXPECT_EQ(same, key.saved);
  }
}

TEST_F(SettingsFileTest, KeepsOwnerAndModeAndFollowsNoPlantedLink) {
  TQovSettings record = Loaded("port=1\n");
  chmod(path.c_str(), 0642);
  EXPECT_EQ(geteuid() == 0 ? chown(path.c_str(), 1, 2) : 0, 0);
  const std::string victim = folder.File("victim", "untouched");
  ASSERT_EQ(symlink(victim.c_str(), folder.Path("qov.cfg.New").c_str()), 0);
  struct stat before, after;
  ASSERT_EQ(stat(path.c_str(), &before), 0);
  ASSERT_EQ(record.SaveOptions_(err), 1);
  ASSERT_EQ(lstat(path.c_str(), &after), 0);
  EXPECT_EQ(after.st_mode, before.st_mode);
  EXPECT_EQ(after.st_uid, before.st_uid);
  EXPECT_EQ(after.st_gid, before.st_gid);
  EXPECT_EQ(ReadFile(victim), "untouched");
}

/// Exit status of `run` in a child process.
template <class TRun>
int InChild(TRun run) {
  const pid_t pid = fork();
  if (pid == 0) _exit(run());
  int status = -1;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST_F(SettingsFileTest, AFailedSaveLeavesTheFileAlone) {
  const std::string refusal = "Cannot create new configuration file '" + path + ".New'";
  TQovSettings record = Loaded("port=1\n");
  record.port = 2;
  // The disk is full from the tenth byte on.
  EXPECT_EQ(InChild([&] {
              signal(SIGXFSZ, SIG_IGN);
              const rlimit ten = {10, 10};
              setrlimit(RLIMIT_FSIZE, &ten);
              return record.SaveOptions_(err) == 0 && ToStd(err) == refusal ? 7 : 1;
            }),
            7);
  EXPECT_EQ(File(), "port=1\n");
  EXPECT_NE(access((path + ".New").c_str(), F_OK), 0);

  // An owner that cannot be kept.
  if (geteuid() == 0) {
    ASSERT_EQ(chmod(folder.Path().c_str(), 0777), 0);
    ASSERT_EQ(chmod(path.c_str(), 0644), 0);
    EXPECT_EQ(InChild([&] {
                if (setgid(65534) != 0 || setuid(65534) != 0) return 2;
                return record.SaveOptions_(err) == 0 && ToStd(err) == refusal ? 7 : 1;
              }),
              7);
    EXPECT_EQ(File(), "port=1\n");
    EXPECT_NE(access((path + ".New").c_str(), F_OK), 0);
  }

  folder.Folder("qov.cfg.New");
  EXPECT_EQ(record.SaveOptions_(err), 0);
  EXPECT_EQ(ToStd(err), refusal);
  EXPECT_EQ(File(), "port=1\n");
  EXPECT_NE(access((path + ".Old").c_str(), F_OK), 0);
}

TEST_F(SettingsFileTest, AnOldFileThatCannotBeKeptIsNoFailure) {
  folder.File("qov.cfg.Old/in the way");
  TQovSettings record = Loaded("port=1\n");
  EXPECT_EQ(record.SaveOptions_(err), 1);
  EXPECT_EQ(File().substr(0, 8), "port=1\r\n");
}

TEST_F(SettingsFileTest, AKilledSaveLeavesACompleteFile) {
  TQovSettings record = Loaded(kAllDefaults);
  std::mt19937 random(1);
  for (int i = 0; i < 20; ++i) {
    const pid_t pid = fork();
    if (pid == 0) {
      for (;;) record.SaveOptions_(err);
    }
    usleep(static_cast<useconds_t>(random() % 20000));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    const bool moved = access(path.c_str(), F_OK) != 0;
    EXPECT_EQ(File(moved ? "qov.cfg.Old" : "qov.cfg"), kAllDefaults);
    if (moved) folder.File("qov.cfg", kAllDefaults);
  }
}

}  // namespace

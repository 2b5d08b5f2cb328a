#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <tuple>

#include "support/scopes.h"

namespace {

/// Every saved key with its default, in the order in which a save appends them.
constexpr char kAllDefaults[] =
    "host=\r\nport=0\r\ntimeout=4000\r\ncomment=\r\npassword=\r\nfilteractive=0\r\n"
    "filtermarks=127.0.0.1\r\nfilterlist=1\r\nlogsuccess=0\r\nlogfails=1\r\n"
    "oklogfile=log1.txt\r\nbadlogfile=log2.txt\r\nverboselogfile=\r\nallowupdates=1\r\n"
    "allowmanage=1\r\nupdateaddr=127.0.0.1\r\nmanageaddr=127.0.0.1\r\nunc=1\r\nfreespace=1\r\n"
    "foldersize=1\r\ncountfiles=1\r\nfileexists=1\r\nfilecrc=1\r\ncomparefiles=1\r\nprocess=1\r\n"
    "cpuusage=1\r\nscript=1\r\nexternal=1\r\nping=1\r\ntcp=1\r\nudp=1\r\ntextlog=1\r\n"
    "shellscript=1\r\nexecuteaction=0\r\ntcpudpaction=0\r\nsyslogaction=0\r\n";

class SettingsFileTest : public TSettingsTest {
 protected:
  bool Exists(const char* name) const { return access(folder.Path(name).c_str(), F_OK) == 0; }
  const std::string refusal = "Cannot create new configuration file '" + path + ".New'";
};

TEST_F(SettingsFileTest, AppendsEveryKeyThatTheFileLacks) {
  TQovSettings record = Loaded("");
  for (int i = 0; i < 2; ++i) {
    ASSERT_EQ(record.SaveOptions_(err), 1);
    EXPECT_EQ(File(), kAllDefaults) << "a second save changes nothing";
  }
  EXPECT_EQ(File("qov.cfg.Old"), kAllDefaults);
  EXPECT_FALSE(Exists("qov.cfg.New"));
}

// What a save makes of lines in a file that has every key elsewhere too.
TEST_F(SettingsFileTest, ReplacesValuesInPlace) {
  const std::string blanks(1015, ' ');
  const std::string x(1500, 'x');
  const std::string cases[][2] = {
      {"port=1\r\n", "port=99\r\n"},
      {" \tPorT \t=\t  1 ; x\n", " \tPorT \t=\t  99\r\n"},
      {"comment=\n", "comment=a b\r\n"},
      {"comment=  \t\r\n", "comment=  \ta b\r\n"},
      {"comment=old\ncomment=older", "comment=a b\r\ncomment=a b\r\n"},
      {"filterlist=x\r\n", "filterlist=10.0.0.1 10.0.0.2\r\n"},
      {"allowupdates=1 ; remote\n", "allowupdates=0 ; remote\n"},
      {"unc=true\r\nunc= \t\r\nunc=\nunc=", "unc=1rue\r\nunc= \t1\r\nunc=1\nunc=1\r\n"},
      {"comment=" + x + "\n", "comment=a b\r\n" + x.substr(1015) + "\n"},
      {"no end", "no end\r\n"},
      // Left alone: comments, what is no key, keys that are not saved, long lines, and a line
      // without room for a value.
      {"#port=1\n;port=1\r\n #port=1\nport\n\n \r\n=2\nother=1\n", ""},
      {"tmpdir=/x\npidfile=y\n" + std::string("zero\0=1\0\n", 9), ""},
      {"#" + x + "port=1\nother=" + x + "\n", ""},
      {"comment=" + blanks + "\n", ""},
  };
  for (const auto& [before, after] : cases) {
    TQovSettings record = Loaded(kAllDefaults + before);
    record.port = 99;
    record.comment = "a b";
    record.unc = 1;
    record.allowupdates = 0;
    record.filterlist = "10.0.0.1\r\n10.0.0.2";
    ASSERT_EQ(record.SaveOptions_(err), 1);
    const std::string saved = File();
    EXPECT_EQ(saved.substr(saved.find("syslogaction=0\r\n") + 16), after.empty() ? before : after);
  }
}

TEST_F(SettingsFileTest, ValuesReadBackAndNeverMakeALine) {
  const std::string room(1013, 'x');
  const std::string cases[][2] = {
      {"a\nport=7", "a port=7"}, {"a\r\n\r\npassword=\r", "a  password="},
      {"\n \t a \r\n", "a"},     {"# a ; b=c", "# a ; b=c"},
      {room + "xxport=7", room},
  };
  for (const char* file : {"comment=old\n", ""}) {
    for (const auto& [value, saved] : cases) {
      TQovSettings record = Loaded(file);
      record.comment = ToString(value);
      record.filterlist = "1\nport=7\r\r2";
      record.password = "p";
      ASSERT_EQ(record.SaveOptions_(err), 1);
      EXPECT_EQ(Values(Loaded(File()), {"comment", "filterlist", "port", "password"}),
                saved + " 1\r\nport=7\r\n2 0 p ");
    }
  }
}

TEST_F(SettingsFileTest, KeepsOwnerAndModeAndFollowsNoPlantedLink) {
  TQovSettings record = Loaded("port=1\n");
  chmod(path.c_str(), 0642);
  EXPECT_EQ(geteuid() == 0 ? chown(path.c_str(), 1, 2) : 0, 0);
  EXPECT_EQ(symlink(agent.c_str(), folder.Path("qov.cfg.New").c_str()), 0);
  folder.File("qov.cfg.Old/in the way");  // an old file that cannot be kept is no failure
  struct stat f[2] = {};
  stat(path.c_str(), &f[0]);
  ASSERT_EQ(record.SaveOptions_(err), 1);
  lstat(path.c_str(), &f[1]);
  EXPECT_EQ(std::tie(f[1].st_mode, f[1].st_uid, f[1].st_gid),
            std::tie(f[0].st_mode, f[0].st_uid, f[0].st_gid));
  EXPECT_EQ(ReadFile(agent), "");
}

TEST_F(SettingsFileTest, AFailedSaveLeavesTheFileAlone) {
  TQovSettings record = Loaded("port=1\n");
  record.port = 2;
  const auto refused = [&] {
    EXPECT_EQ(record.SaveOptions_(err), 0);
    EXPECT_EQ(ToStd(err), refusal);
    return ToStd(err) == refusal;
  };
  const auto onFullDisk = [&] {
    signal(SIGXFSZ, SIG_IGN);
    const rlimit ten = {10, 10};
    _exit(setrlimit(RLIMIT_FSIZE, &ten) == 0 && refused() ? 7 : 1);
  };
  EXPECT_EXIT(onFullDisk(), testing::ExitedWithCode(7), "");
  if (geteuid() == 0) {
    ASSERT_EQ(chmod(folder.Path().c_str(), 0777) + chmod(path.c_str(), 0644), 0);
    const auto asNobody = [&] {
      _exit(setgid(65534) == 0 && setuid(65534) == 0 && refused() ? 7 : 1);
    };
    EXPECT_EXIT(asNobody(), testing::ExitedWithCode(7), "") << "the owner cannot be kept";
  }
  EXPECT_FALSE(Exists("qov.cfg.New"));
  folder.Folder("qov.cfg.New");
  refused();
  EXPECT_EQ(File(), "port=1\n");
  EXPECT_FALSE(Exists("qov.cfg.Old"));
}

TEST_F(SettingsFileTest, AKilledSaveLeavesACompleteFile) {
  TQovSettings record = Loaded(kAllDefaults);
  std::mt19937 random(1);
  for (int i = 0; i < 20; ++i) {
    const pid_t pid = fork();
    while (pid == 0) record.SaveOptions_(err);
    usleep(static_cast<useconds_t>(random() % 20000));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    EXPECT_EQ(File(), kAllDefaults);
    folder.File("qov.cfg", kAllDefaults);
  }
}

}  // namespace

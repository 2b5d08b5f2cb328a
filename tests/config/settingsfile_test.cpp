#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <set>

#include "built.h"
#include "config/settingslines.h"
#include "support/scopes.h"

namespace {

// The calls of a save that is watched, a letter each, and which of them fail.
bool watched = false;
std::string calls;
std::set<std::string> refused;

template <typename... TArguments>
int Perform(char letter, long number, TArguments... arguments) {
  if (watched && !(letter == 'w' && calls.ends_with('w'))) calls += letter;
  errno = EIO;
  const bool refuses = watched && refused.count(calls) != 0;
  return refuses ? -1 : static_cast<int>(syscall(number, arguments...));
}

}  // namespace

// In the place of the C library's; a write takes little at a time.
extern "C" ssize_t write(int fd, const void* data, size_t size) {
  return Perform('w', SYS_write, fd, data, watched ? std::min<size_t>(size, 100) : size);
}
extern "C" int fchown(int fd, uid_t user, gid_t group) noexcept {
  return Perform('o', SYS_fchown, fd, user, group);
}
extern "C" int fsync(int fd) { return Perform('s', SYS_fsync, fd); }
extern "C" int link(const char* from, const char* to) noexcept {
  return Perform('l', SYS_linkat, AT_FDCWD, from, AT_FDCWD, to, 0);
}
extern "C" int rename(const char* from, const char* to) noexcept {
  return Perform('r', SYS_renameat2, AT_FDCWD, from, AT_FDCWD, to, 0);
}

namespace {

using SettingsFileTest = TSettingsTest;

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
TEST_F(SettingsFileTest, ReplacesValuesInPlace) {
  const std::string x(2000, 'x');
  const std::string room = "comment=" + x.substr(0, 1015);
  const std::string blanks(1015, ' ');
  const std::string cases[][3] = {
      {"port=1\r\n", "port=99\r\n"},
      {" \tPorT \t=\t  1 ; x\n", " \tPorT \t=\t  99\r\n"},
      {"comment=\n", "comment=a b\r\n"},
      {"comment=  \t\r\n", "comment=  \ta b\r\n"},
      {"comment=old\ncomment=older", "comment=a b\r\ncomment=a b\r\n"},
      {"filterlist=x\r\n", "filterlist=10.0.0.1 10.0.0.2 \r\n"},
      {"allowupdates=1 ; remote\n", "allowupdates=0 ; remote\n"},
      {"unc=true\r\nunc= \t\r\nunc=\nunc=", "unc=1rue\r\nunc= \t1\r\nunc=1\nunc=1\r\n"},
      {"no end", "no end\r\n"},
      // A line takes 1,023 bytes before its end, which is then a piece of its own.
      {"comment=\n", room + "\r\n", x},
      {room + "\r\nport=1\n", "comment=a b\r\nport=99\r\n"},
      {"comment=" + x + "\n", "comment=a b\r\n" + x.substr(1015) + "\n"},
      {"comment=" + blanks.substr(1) + "\n", "comment=" + blanks.substr(1) + "x\r\n", x},
      // Left alone: comments, what is no key, keys that are not saved, long lines, and a line
      // without room for a value.
      {"#port=1\n;port=1\r\n #port=1\nport\n\n \r\n=2\nother=1\n", ""},
      {"tmpdir=/x\npidfile=y\n" + std::string("zero\0=1\0\n", 9), ""},
      {"#" + x + "port=1\nother=" + x + "\n\n", ""},
      {"comment=" + blanks + "\n", ""},
      // No value makes a line of its own.
      {"comment=\n", "comment=a port=7\rb\r\n", "a\nport=7\rb"},
  };
  for (const auto& [before, after, comment] : cases) {
    TQovSettings record = Loaded(kAllDefaults + before);
    for (int i = 0; i < 2; ++i) {
      record.port = 99;
      record.comment = ToString(comment.empty() ? "a b" : comment);
      record.unc = 1;
      record.allowupdates = 0;
      record.filterlist = "10.0.0.1\r\n10.0.0.2\r\n";
      EXPECT_EQ(record.SaveOptions_(err), 1);
      const std::string saved = File();
      EXPECT_EQ(saved.substr(saved.find("syslogaction=0\r\n") + 16),
                after.empty() ? before : after);
    }
  }
}

TEST_F(SettingsFileTest, AppendsEveryKeyThatTheFileLacks) {
  TQovSettings record = Loaded("");
  ASSERT_EQ(record.SaveOptions_(err), 1);
  EXPECT_EQ(File(), kAllDefaults);
  const std::string room(1015, 'x');
  const std::string cases[][3] = {// value, how it is written, how it is read
                                  {room + "xx=1", room + "xx=1", room},
                                  {room + "port=7", room, room},
                                  {room + std::string(1000, ' ') + "Qovpath =/", room, room},
                                  {"# a\r\nport=7", "# a port=7", "# a port=7"}};
  for (const auto& [value, written, read] : cases) {
    record = Named("port=1");
    record.comment = ToString(value);
    ASSERT_EQ(record.SaveOptions_(err), 1);
    EXPECT_NE(File().find("\ncomment=" + written + "\r\n"), std::string::npos) << value;
    EXPECT_EQ(Values(Loaded(File()), {"comment", "qovpath", "port"}), read + "  0 ");
  }
}

TEST_F(SettingsFileTest, ReplacesTheFileAtOnceOrNotAtAll) {
  const bool root = geteuid() == 0;
  const std::string o = root ? "oo" : "";  // gives the file its owner and group
  const std::string noNew = "Cannot create new configuration file '" + path + ".New'";
  const std::string noRename = "Cannot overwrite configuration file '" + path + "'";
  const struct {
    std::set<std::string> refused;
    std::string calls, err;
  } cases[] = {{{}, "wslrs", ""},
               {{o + "wslrs"}, "wslrs", ""},
               {{o + "wsl"}, "wslrrs", ""},  // without links the old file is renamed
               {{o + "wsl", o + "wslr"}, "wslrrs", ""},
               {{o + "w"}, "w", noNew},
               {{o + "ws"}, "ws", noNew},
               {{o + "wslr"}, "wslrr", noRename},
               {{o + "wsl", o + "wslrr"}, "wslrrr", noRename},
               {{o + "wsl", o + "wslr", o + "wslrr"}, "wslrr", noRename},
               {{root ? "o" : "w"}, root ? "" : "w", noNew},
               {{root ? "oo" : ""}, "wslrs", ""}};  // a group that cannot be given has no rights
  for (const auto& c : cases) {
    TQovSettings record = Loaded("port=1\nfiltermarks=\n");
    record.port = 2;
    EXPECT_EQ(chmod(path.c_str(), 0642) + (root ? chown(path.c_str(), 1, 2) : 0), 0);
    EXPECT_EQ(symlink(agent.c_str(), (path + ".New").c_str()), 0);
    struct stat old = {}, now = {};
    stat(path.c_str(), &old);
    refused = c.refused;
    calls = "";
    watched = true;
    EXPECT_EQ(record.SaveOptions_(err), c.err.empty());
    watched = false;
    SCOPED_TRACE(calls);
    EXPECT_TRUE(calls == o + c.calls || calls == "o");
    EXPECT_EQ(ToStd(err), c.err);
    EXPECT_EQ(File().substr(0, 7), c.err.empty() ? "port=2\r" : "port=1\n");
    stat(path.c_str(), &now);
    const bool noGroup = root && refused.count("oo") != 0;
    EXPECT_EQ(std::tie(now.st_mode, now.st_uid),
              std::make_tuple(noGroup ? S_IFREG | 0602 : old.st_mode, old.st_uid));
    EXPECT_EQ(now.st_gid, noGroup ? getegid() : old.st_gid);
    EXPECT_EQ(ReadFile(agent), "") << "a planted link is not followed";
    EXPECT_NE(access((path + ".New").c_str(), F_OK), 0);
    unlink((path + ".Old").c_str());
  }
}

TEST_F(SettingsFileTest, RefusesWhatNoLoadWouldTake) {
  const size_t room = kMaxSettingsFileBytes - sizeof kAllDefaults + 1;
  for (const size_t extra : {0, 1}) {
    const std::string old = "#" + std::string(room + extra - 2, 'x') + "\n";
    TQovSettings record = Loaded(old);
    EXPECT_EQ(record.SaveOptions_(err), extra == 0);
    EXPECT_TRUE(File() == (extra == 0 ? old + kAllDefaults : old));
  }
  EXPECT_EQ(ToStd(err), "Settings exceed 16 MiB of configuration file '" + path + "'");
  for (const int extra : {0, 1}) {
    Loaded("#" + std::string(kMaxSettingsFileBytes + extra - 2, 'x') + "\n");
    EXPECT_EQ(err.Pos("Cannot open") != 0, extra == 1);
  }
}

TEST_F(SettingsFileTest, TheSampleExplainsEveryKeyAndIsSafe) {
  const std::string sample = ReadFile(QOV_SOURCE_DIR "/packaging/qov.cfg");
  const std::string manual = ReadFile(QOV_SOURCE_DIR "/docs/configuration.md");
  for (const TSettingKey& key : kSettingKeys) {
    const size_t at = ("\n" + sample).find("\n" + std::string(key.name) + "=");
    ASSERT_NE(at, std::string::npos) << key.name;
    EXPECT_EQ(sample.substr(sample.rfind('\n', at - 2) + 1, 2), "# ") << key.name;
    EXPECT_NE(manual.find("\n| `" + std::string(key.name) + "` |"), std::string::npos) << key.name;
  }
  const TQovSettings record = Loaded(sample + "password=x\nqovpath=" + agent + "\n");
  EXPECT_EQ(result, 1);
  EXPECT_EQ(err, "");
  EXPECT_EQ(record.effectivefilter, "\r\n127.0.0.1\r\n");
  EXPECT_EQ(Values(record, {"host", "filteractive", "allowupdates", "shellscript", "external",
                            "executeaction", "tcpudpaction", "syslogaction"}),
            "127.0.0.1 1 0 0 0 0 0 0 ");
}

}  // namespace

#include "client/configcheck.h"

#include <sys/stat.h>
#include <unistd.h>

#include "core/iplib.h"
#include "core/owned.h"
#include "support/peers.h"
#include "support/scopes.h"

struct ConfigCheckTest : TSettingsTest {
  ConfigCheckTest() {
    chmod(folder.File("plain").c_str(), 0600);
    chmod(folder.Folder("tmp").c_str(), 0700);
    chmod(folder.Folder("open").c_str(), 0701);
  }
  /// The findings of a file that holds `text`, a line each: its number, E or W, the text.
  std::string Check(const std::string& text) {
    chmod(folder.File("qov.cfg", text).c_str(), mode);
    std::string shown;
    for (const TConfigFinding& finding : CheckConfig(path.c_str())) {
      shown +=
          std::to_string(finding.line) + (finding.error ? "E " : "W ") + ToStd(finding.text) + "\n";
    }
    return shown;
  }
  /// The same of the good file with `lines` in place of the line with the first one's key, or
  /// behind its ten lines.
  std::string CheckGoodWith(const std::string& lines) {
    std::string text = good;
    const size_t start = text.find("\n" + lines.substr(0, lines.find('=') + 1)) + 1;
    return Check(start == 0 ? text + lines
                            : text.replace(start, text.find('\n', start) + 1 - start, lines));
  }

  const std::string good = "# good\nport=" + std::to_string(FindFreePort()) +
                           "\nhost=127.0.0.1\npassword=twelve bytes\nqovpath=" + agent +
                           "\nfilterlist=127.0.0.1\nfiltermarks=1\ntmpdir=" + folder.Path("tmp") +
                           "\nprocess=0\ncpuusage=0\n";
  mode_t mode = 0600;
};

TEST_F(ConfigCheckTest, GivesEachFaultItsLine) {
  const std::string x(1100, 'x');
  const std::string there = folder.Path();
  const std::string cases[][2] = {
      {";comment=\n#comment=\n", ""},
      {"port=0\n", "2E TCP post is not specified!\n"},
      {"password=\n", "4E Password is not specified!\n"},
      {"password=eleven byte\n", "4W the password is shorter than 12 characters\n"},
      {"qovpath=agent\n", "5E Full path to the agent is not specified!\n"},
      {"qovpath=/nowhere/qov\n", "5E Invalid path to the agent!\n"},
      {"filtermarks=11\n", "7W FilterMarks has less items than FilterList\n"},
      {"filterlist=10.0.0.9 10.0.0.8\n",
       "6W 2 items, but filtermarks has 1: those without a mark are not used\n"},
      {"filterlist=10.0.0.12\n", "6W the filter also admits 10.0.0.1 as a part of 10.0.0.12\n"},
      {"filterlist=10.0.0.123\n",
       "6W the filter also admits 10.0.0.12 as a part of 10.0.0.123, and 1 more\n"},
      {"filtermarks=110\nfilterlist=10.0.0.12 10.0.0.1 10.0.0.99\n",
       "8W 'filterlist' stands in line 6 already: the last one counts\n"},
      {"tmpdir=" + there + "/open\n", "8W the temporary folder is open to every user\n"},
      {"timeout=999\n", "11W a timeout below 1000 milliseconds is one of 0 seconds\n"},
      {"timeout=1000\n", ""},
      {" #x=1\n\nTypo = 1\n", "11W unknown key '#x'\n13W unknown key 'typo'\n"},
      {"unc=1\nPORT=2\nunc=0\n",
       "12W 'port' stands in line 2 already: the first one counts\n"
       "13W 'unc' stands in line 11 already: the last one counts\n"},
      {"#" + x + "=" + x + "\n#" + x.substr(0, 1022) + "\r\n",
       "11W longer than 1023 characters: the rest is read as a line of its own\n"},
      {"process=1\nproccntscript=nothing\nproclistscript=" + there + "/plain\n",
       "10W proccntscript '" + there + "//nothing' does not exist\n11W " + "proclistscript '" +
           there + "/plain' is not executable\n"},
  };
  for (const auto& [lines, findings] : cases) EXPECT_EQ(CheckGoodWith(lines), findings);
}

TEST_F(ConfigCheckTest, NamesWhatIsNotSet) {
  const TEnvironment none("TMPDIR", nullptr);
  EXPECT_EQ(Check("tmpdir=/nowhere\n"),
            "0W FilterMarks has less items than FilterList\n"
            "0E TCP post is not specified!\n0E Password is not specified!\n"
            "0E Full path to the agent is not specified!\n"
            "0W proccntscript is not set\n0W proclistscript is not set\n"
            "0W cpuusagescript is not set\n"
            "1W '/nowhere' is not a folder: '.' is used\n");
  EXPECT_EQ(CheckConfig("/nowhere/x").at(0).text, "Cannot open configuration file '/nowhere/x'");
}

TEST_F(ConfigCheckTest, LooksAtTheFileAndItsFolder) {
  for (const mode_t readable : {0640u, 0604u}) {
    mode = readable;
    EXPECT_EQ(Check(good),
              "0W the file holds the password and is readable by others than its owner\n");
  }
  mode = 0600;
  if (geteuid() != 0) GTEST_SKIP() << "needs a file of another user";
  Check(good);
  ASSERT_EQ(chown(path.c_str(), 1, 1), 0);
  EXPECT_EQ(Check(good), "0W the agent cannot rewrite the file: its folder is not writable\n");
  EXPECT_EQ(CheckGoodWith("allowmanage=0\n"), "");
  ASSERT_EQ(chown(folder.Path().c_str(), 0, 1) + chmod(folder.Path().c_str(), 0770), 0);
  EXPECT_EQ(Check(good), "");
}

TEST_F(ConfigCheckTest, ReportsATakenPort) {
  String text;
  const int port = FindFreePort();
  const TFd listener(TcpListen("127.0.0.1", port, nullptr, text));
  EXPECT_EQ(CheckGoodWith("port=" + std::to_string(port) + "\n"),
            "2W the port is taken (by the agent, if it runs) or may not be opened\n");
}

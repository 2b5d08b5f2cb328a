#include "client/configcheck.h"

#include "support/peers.h"

struct ConfigCheckTest : TSettingsTest {
  /// The findings of a file that holds `text`, a line each: its number, E or W, the text.
  std::string Check(const std::string& text) {
    chmod(folder.File("qov.cfg", text).c_str(), mode);
    std::string shown;
    for (const auto& [line, error, finding] : CheckConfig(path.c_str()))
      shown += '\n' + std::to_string(line) + (error ? "E " : "W ") + ToStd(finding);
    return shown.substr(shown.empty() ? 0 : 1);
  }
  /// The same of the good file with `lines` for that of the first one's key, or behind its twelve.
  std::string CheckGoodWith(const std::string& lines) {
    std::string text = good;
    const size_t start = text.find("\n" + lines.substr(0, lines.find('=') + 1)) + 1;
    return Check(start == 0 ? text + lines + '\n'
                            : text.replace(start, text.find('\n', start) - start, lines));
  }

  const std::string good = "# good\nport=" + std::to_string(FindFreePort()) +
                           "\nhost=127.0.0.1\npassword=twelve bytes\nqovpath=" + agent +
                           "\nfilterlist=127.0.0.1\nfiltermarks=1\ntmpdir=" + folder.Path() +
                           "\nprocess=0\ncpuusage=0\n#timeout=\ntimeout=1000\n";
  mode_t mode = 0600;
};

TEST_F(ConfigCheckTest, GivesEachFaultItsLine) {
  EXPECT_EQ(
      Check("filtermarks=1\n\ntmpdir=/nowhere\nport=1\npassword=twelve bytes\nqovpath=" + agent),
      "0W proccntscript is not set\n0W proclistscript is not set\n"
      "0W cpuusagescript is not set\n3W '/nowhere' is not a folder: '.' is used");
  const std::string x(1100, 'x'), port = std::to_string(FindFreePort());
  const TFd listener = Bind(SOCK_STREAM, TAddress(std::stoi(port)));
  ASSERT_EQ(0, listen(listener.Get(), 1));
  const std::string cases[][2] = {
      {"port=0", "2E TCP post is not specified!"},
      {"port=" + port, "2W the port is taken (by the agent, if it runs) or may not be opened"},
      {"password=", "4E Password is not specified!"},
      {"password=eleven byte", "4W the password is shorter than 12 characters"},
      {"qovpath=agent", "5E Full path to the agent is not specified!"},
      {"qovpath=/nowhere/qov", "5E Invalid path to the agent!"},
      {"filtermarks=11", "7W FilterMarks has less items than FilterList"},
      {"filterlist=10.0.0.9 10.0.0.8",
       "6W 2 items, but filtermarks has 1: those without a mark are not used"},
      {"filterlist=10.0.0.123",
       "6W the filter also admits 10.0.0.12 as a part of 10.0.0.123, and 1 more"},
      {"filtermarks=110\nfilterlist=10.0.0.12 10.0.0.1 10.0.0.99",
       "8W 'filterlist' stands in line 6 already: the last one counts"},
      {"tmpdir=/tmp", "8W the temporary folder is open to every user"},
      {"timeout=999", "12W a timeout below 1000 milliseconds is one of 0 seconds"},
      {" #x=1\n\nTypo = 1", "13W unknown key '#x'\n15W unknown key 'typo'"},
      {"unc=1\nPORT=2", "14W 'port' stands in line 2 already: the first one counts"},
      {"#" + x + "=" + x + "\n#" + x.substr(0, 1022) + "\r",
       "13W longer than 1023 characters: the rest is read as a line of its own"},
      {"process=1\nproccntscript=nothing\nproclistscript=" + agent,
       "10W proccntscript '" + folder.Path() + "//nothing' does not exist\n11W proclistscript '" +
           agent + "' is not executable"},
  };
  for (const auto& [lines, findings] : cases) EXPECT_EQ(CheckGoodWith(lines), findings);
  mode = 0640;
  EXPECT_EQ(Check(good), "0W the file holds the password and is readable by others than its owner");
  EXPECT_EQ(CheckConfig("/nowhere/x").at(0).text, "Cannot open configuration file '/nowhere/x'");
}

TEST_F(ConfigCheckTest, LooksAtTheFileAndItsFolder) {
  Check(good);
  if (geteuid() != 0) GTEST_SKIP() << "needs a file of another user";
  ASSERT_EQ(chown(path.c_str(), 1, 1), 0);
  EXPECT_EQ(Check(good), "0W the agent cannot rewrite the file: its folder is not writable");
  EXPECT_EQ(CheckGoodWith("allowmanage=0"), "");
  ASSERT_EQ(chown(folder.Path().c_str(), 0, 1) + chmod(folder.Path().c_str(), 0770), 0);
  EXPECT_EQ(Check(good), "");
}

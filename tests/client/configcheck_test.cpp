#include "client/configcheck.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/iplib.h"
#include "core/owned.h"
#include "support/rawpeer.h"
#include "support/settingsguard.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

class ConfigCheckTest : public testing::Test {
 protected:
  ConfigCheckTest() {
    chmod(folder.File("agent").c_str(), 0700);
    chmod(folder.File("plain").c_str(), 0600);
    chmod(folder.Folder("tmp").c_str(), 0700);
    chmod(folder.Folder("open").c_str(), 0701);
  }
  /// Ten lines that nothing is wrong with; the cases start at line 11.
  std::string Good() const {
    return "# a good file\nport=" + port +
           "\nhost=127.0.0.1\npassword=twelve bytes\nqovpath=" + agent +
           "\nfilterlist=127.0.0.1\nfiltermarks=1\ntmpdir=" + folder.Path("tmp") +
           "\nprocess=0\ncpuusage=0\n";
  }
  std::vector<std::string> Check(const std::string& text) {
    const std::string path = folder.File("qov.cfg", text);
    chmod(path.c_str(), mode);
    std::vector<std::string> shown;
    for (const TConfigFinding& finding : CheckConfig(path.c_str())) {
      shown.push_back(std::to_string(finding.line) + (finding.error ? " error: " : " warning: ") +
                      ToStd(finding.text));
    }
    return shown;
  }

  TSettingsGuard guard;
  TTempDir folder;
  const std::string agent = folder.Path("agent");
  const std::string port = std::to_string(FindFreePort());
  mode_t mode = 0600;
};

TEST_F(ConfigCheckTest, GivesEachFaultItsLine) {
  const std::string filler(1100, 'x');
  const std::string there = folder.Path();
  const struct {
    std::string text;
    std::vector<std::string> findings;
  } cases[] = {
      {"", {}},
      {" #x=1\n\nTypo = 1\n", {"11 warning: unknown key '#x'", "13 warning: unknown key 'typo'"}},
      {"host=127.0.0.1\nunc=1\nPORT=2\nunc=0\n",
       {"11 warning: 'host' stands in line 3 already: the last one counts",
        "13 warning: 'port' stands in line 2 already: the first one counts",
        "14 warning: 'unc' stands in line 12 already: the last one counts"}},
      {"#" + filler + "=" + filler + "\n#" + filler.substr(0, 1022) + "\r\n",
       {"11 warning: longer than 1023 characters: the rest is read as a line of its own"}},
      {"timeout=999\n", {"11 warning: a timeout below 1000 milliseconds is one of 0 seconds"}},
      {"timeout=1000\n", {}},
      {"timeout=-1\n", {}},
      {"process=1\nproccntscript=nothing\nproclistscript=" + there + "/plain\n",
       {"11 warning: 'process' stands in line 9 already: the last one counts",
        "12 warning: proccntscript '" + there + "//nothing' does not exist",
        "13 warning: proclistscript '" + there + "/plain' is not executable"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text.substr(0, 40));
    EXPECT_THAT(Check(Good() + c.text), testing::ElementsAreArray(c.findings));
  }
}

// A value of the good file made bad: its line counts.
TEST_F(ConfigCheckTest, LooksAtValues) {
  const std::string shared = folder.Path("open");
  const struct {
    const char* key;
    std::string value;
    std::vector<std::string> findings;
  } cases[] = {
      {"port", "0", {"2 error: TCP post is not specified!"}},
      {"password", "", {"4 error: Password is not specified!"}},
      {"password", "eleven byte", {"4 warning: the password is shorter than 12 characters"}},
      {"qovpath", "agent", {"5 error: Full path to the agent is not specified!"}},
      {"qovpath", "/nowhere/qov", {"5 error: Invalid path to the agent!"}},
      {"filtermarks", "11", {"7 warning: FilterMarks has less items than FilterList"}},
      {"filterlist",
       "10.0.0.9 10.0.0.8",
       {"6 warning: 2 items, but filtermarks has 1: those without a mark are not used"}},
      {"filterlist",
       "10.0.0.12",
       {"6 warning: the filter also admits 10.0.0.1 as a part of 10.0.0.12"}},
      {"filterlist",
       "10.0.0.123",
       {"6 warning: the filter also admits 10.0.0.12 as a part of 10.0.0.123, and 1 more"}},
      {"tmpdir", shared, {"8 warning: the temporary folder is open to every user"}},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.key) + "=" + c.value);
    std::string text = "\n" + Good();
    const size_t start = text.find("\n" + std::string(c.key) + "=") + strlen(c.key) + 2;
    text.replace(start, text.find('\n', start) - start, c.value);
    EXPECT_THAT(Check(text.substr(1)), testing::ElementsAreArray(c.findings));
  }
}

TEST_F(ConfigCheckTest, ListedPartsAreNoSurprise) {
  EXPECT_THAT(Check("port=" + port + "\npassword=twelve bytes\nqovpath=" + agent +
                    "\ntmpdir=" + folder.Path("tmp") + "\nprocess=0\ncpuusage=0\n" +
                    "filterlist=10.0.0.1 10.0.0.12 10.0.0.25\nfiltermarks=110\n"),
              testing::IsEmpty());
}

TEST_F(ConfigCheckTest, NamesWhatIsNotSet) {
  unsetenv("TMPDIR");
  EXPECT_THAT(Check("tmpdir=/nowhere\n"),
              testing::ElementsAre(
                  "0 warning: FilterMarks has less items than FilterList",
                  "0 error: TCP post is not specified!", "0 error: Password is not specified!",
                  "0 error: Full path to the agent is not specified!",
                  "0 warning: proccntscript is not set", "0 warning: proclistscript is not set",
                  "0 warning: cpuusagescript is not set",
                  "1 warning: '/nowhere' is not a folder: '.' is used"));
  const std::string missing = folder.Path("missing");
  const auto findings = CheckConfig(missing.c_str());
  ASSERT_EQ(findings.size(), 1u);
  EXPECT_TRUE(findings[0].error);
  EXPECT_EQ(ToStd(findings[0].text), "Cannot open configuration file '" + missing + "'");
}

TEST_F(ConfigCheckTest, LooksAtTheFileAndItsFolder) {
  for (const mode_t readable : {0640, 0604}) {
    mode = readable;
    EXPECT_THAT(
        Check(Good()),
        testing::ElementsAre(
            "0 warning: the file holds the password and is readable by others than its owner"));
  }
  mode = 0600;
  if (geteuid() != 0) GTEST_SKIP() << "needs a file of another user";
  Check(Good());
  ASSERT_EQ(chown(folder.Path("qov.cfg").c_str(), 1, 1), 0);
  EXPECT_THAT(Check(Good()),
              testing::ElementsAre(
                  "0 warning: the agent cannot rewrite the file: its folder is not writable"));
  EXPECT_THAT(Check(Good() + "allowmanage=0\n"), testing::IsEmpty());
  ASSERT_EQ(chown(folder.Path().c_str(), 0, 1), 0);
  ASSERT_EQ(chmod(folder.Path().c_str(), 0770), 0);
  EXPECT_THAT(Check(Good()), testing::IsEmpty());
}

TEST_F(ConfigCheckTest, ReportsATakenPort) {
  String err;
  const TFd listener(TcpListen("127.0.0.1", 0, nullptr, err));
  sockaddr_in address{};
  socklen_t size = sizeof address;
  ASSERT_EQ(getsockname(listener.Get(), reinterpret_cast<sockaddr*>(&address), &size), 0);
  std::string text = Good();
  text.replace(text.find(port), port.size(), std::to_string(ntohs(address.sin_port)));
  EXPECT_THAT(Check(text),
              testing::ElementsAre("2 warning: the port is taken (by the agent, if it runs) or "
                                   "may not be opened"));
}

}  // namespace

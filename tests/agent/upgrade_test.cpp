#include "agent/upgrade.h"

#include <signal.h>
#include <sys/resource.h>

#include "agent/flags.h"
#include "client/vxwire.h"
#include "protocol/twofish.h"
#include "support/scopes.h"

namespace fs = std::filesystem;

using UpgradeTest = TSettingsTest;

TEST_F(UpgradeTest, EndsByItsDigest) {
  const TWorkingFolder work(folder.Path());
  const TEnvironment tmp("TMPDIR", folder.Path().c_str());
  const std::string upd = folder.Path("qov__.upd"), script = folder.Path("qovupd__.sh");
  const std::string victim = folder.File("victim");
  ChangeSettings([](TQovSettings& settings) { settings.qovpath = "/qov"; });
  const std::string wanted =
      "#! /bin/sh\noldQOV='/qov'\nnewQOV='" + upd +
      "'\nretries=10\nrm $oldQOV\n"
      "while [ -f $oldQOV ] &&  [ $retries -gt 0 ]\ndo\n  retries=`expr $retries - 1`\n"
      "  echo $retries\n  sleep 1\ndone\ncp -f $newQOV $oldQOV\nrm -f $newQOV\n"
      "$oldQOV $1 $2 $3 $4 $5 $6\nrm " +
      script + "\n";
  Twofish_initialise();
  const std::string program(200, 'p');
  const std::string md5 = "\x6a\x13\xd0\xe6\x30\x2f\x0d\xea\x7b\x35\xb7\xa7\x1d\x4b\xed\xaa";
  const std::string good = BuildReply("key", md5).substr(4);
  std::string bad = good;
  ++bad[9];
  const std::string noFlag = "Cannot set exec flag new module";
  const std::string noScript = "Binary code transferred. Cannot create script file";
  const struct {
    std::string before, amid;  // shell commands: at first, and in front of the last chunk
    rlim_t fileLimit;
    std::vector<std::string> chunks;
    std::string error, left;  // which of the program's file (u) and the script's (s)
  } cases[] = {
      {"", "", 999, {program + good}, "", "us"},
      {"", "", 999, {"ppp", program.substr(4), "p" + good}, "", "us"},
      {"ln -s victim qov__.upd; ln -s victim qovupd__.sh", "", 999, {program, good}, "", "us"},
      {"", "", 999, {program + good.substr(0, 7)}, "Wrong CRC", ""},
      {"", "", 999, {program + good + "x"}, "Wrong CRC", ""},
      {"", "", 999, {program, bad}, "Wrong CRC", ""},
      {"", "", 999, {"q" + program.substr(1), good}, "Wrong CRC", ""},
      {"", "", 999, {program + "p" + good}, "Wrong CRC", ""},
      {"mkdir -p qov__.upd/held", "", 999, {program}, "Cannot create temp file", "u"},
      {"", "mkdir -p qovupd__.sh/held", 999, {program, good}, noScript, "s"},
      {"", "rm qov__.upd", 999, {program, good}, noFlag, "s"},
      {"", "ln -sf victim qov__.upd", 999, {program, good}, noFlag, "s"},
      {"", "rm qov__.upd", 999, {program, bad}, "Wrong CRC", ""},
      {"", "", 199, {program, good}, "Write error", "u"},
      {"", "", 210, {program, good}, noScript, ""},  // no room for the script
  };
  const sighandler_t handler = signal(SIGXFSZ, SIG_IGN);
  rlimit former;
  getrlimit(RLIMIT_FSIZE, &former);
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    EXPECT_EQ(0, system(c.before.c_str()));
    UpgradeRec rec;
    ASSERT_TRUE(rec.RequestUpgrade("key"));
    EXPECT_FALSE(UpgradeRec().RequestUpgrade("key"));
    rec.expectedSize = 200;
    String error;
    const rlimit limit{c.fileLimit, former.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    result = DoUpgrading(rec, nullptr, 0, error);
    for (std::string chunk : c.chunks) {
      if (rec.active == 0) break;
      EXPECT_EQ(1, result);
      EXPECT_EQ(0, system(chunk == c.chunks.back() ? c.amid.c_str() : ""));
      result = DoUpgrading(rec, chunk.data(), static_cast<int>(chunk.size()), error);
    }
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(rec.script.Empty() ? 0 : 1, result);
    EXPECT_EQ(0u, rec.active);
    EXPECT_EQ(c.error, ToStd(error));
    // The claim goes with a failure; after a success it stays for as long as the files do.
    EXPECT_EQ(c.error.empty(), QovFlags.upgrading == 1);
    std::string left;
    for (const std::string& file : {upd, script}) {
      if (!fs::exists(fs::symlink_status(file))) continue;
      left += file == upd ? "u" : "s";
      if (c.error.empty()) {
        EXPECT_EQ(file == upd ? program : wanted, ReadFile(file));
        EXPECT_EQ(fs::perms{0775}, fs::status(file).permissions());
      }
      fs::remove_all(file);
    }
    EXPECT_EQ(c.left, left);
    rec.ClearanceUpgrade();
  }
  signal(SIGXFSZ, handler);
  EXPECT_EQ("", ReadFile(victim));
  EXPECT_EQ(fs::perms{}, fs::status(victim).permissions() & fs::perms::owner_exec);
}

#include "agent/upgrade.h"

#include <signal.h>
#include <sys/resource.h>

#include "agent/flags.h"
#include "client/vxwire.h"
#include "protocol/twofish.h"
#include "support/scopes.h"

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
  using TChunks = std::vector<std::string>;
  // Commands at first and before the last chunk, most bytes of a file, chunks; error, files left.
  const std::tuple<const char*, const char*, rlim_t, TChunks, std::string, const char*> cases[] = {
      {"", "", 999, {program + good}, "", "us"},
      {"", "", 999, {"ppp", program.substr(4), "p" + good}, "", "us"},
      {"ln -s victim qov__.upd; ln -s victim qovupd__.sh", "", 999, {program, good}, "", "us"},
      {"", "", 999, {program + good.substr(0, 7)}, "Wrong CRC", ""},
      {"", "", 999, {program + good + "x"}, "Wrong CRC", ""},
      {"", "", 999, {program, bad}, "Wrong CRC", ""},
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
  for (const auto& [before, amid, mostBytes, chunks, fault, files] : cases) {
    SCOPED_TRACE(before + chunks.back() + amid);
    EXPECT_EQ(0, system(before));
    UpgradeRec rec;
    ASSERT_TRUE(rec.RequestUpgrade("key"));
    EXPECT_FALSE(UpgradeRec().RequestUpgrade("key"));
    rec.expectedSize = 200;
    String error;
    const rlimit limit{mostBytes, former.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    result = DoUpgrading(rec, nullptr, 0, error);
    for (std::string chunk : chunks) {
      if (rec.active == 0) break;
      EXPECT_EQ(1, result);
      EXPECT_EQ(0, system(chunk == chunks.back() ? amid : ""));
      result = DoUpgrading(rec, chunk.data(), static_cast<int>(chunk.size()), error);
    }
    setrlimit(RLIMIT_FSIZE, &former);
    // The claim goes with a failure; after a success it stays for as long as the files do.
    const bool done = fault.empty();
    EXPECT_EQ(std::tuple(!rec.script.Empty(), 0u, fault, done),
              std::tuple(result == 1, rec.active, ToStd(error), QovFlags.upgrading == 1));
    std::string left;
    for (const std::string& file : {upd, script}) {
      if (!fs::exists(fs::symlink_status(file))) continue;
      left += file == upd ? "u" : "s";
      if (done) {
        EXPECT_EQ(file == upd ? program : wanted, ReadFile(file));
        EXPECT_EQ(fs::perms{0775}, fs::status(file).permissions());
      }
      fs::remove_all(file);
    }
    EXPECT_EQ(files, left);
    rec.ClearanceUpgrade();
  }
  signal(SIGXFSZ, handler);
  EXPECT_EQ("", ReadFile(victim));
  EXPECT_EQ(fs::perms{}, fs::status(victim).permissions() & fs::perms::owner_exec);
}

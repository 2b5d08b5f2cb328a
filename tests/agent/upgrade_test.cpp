#include "agent/upgrade.h"

#include <gtest/gtest.h>
#include <nettle/md5.h>
#include <signal.h>
#include <sys/resource.h>

#include <filesystem>

#include "agent/flags.h"
#include "client/vxwire.h"
#include "protocol/twofish.h"
#include "support/scopes.h"
#include "support/text.h"

namespace fs = std::filesystem;

namespace {

const std::string kProgram(200, 'p');

std::string Trailer(const std::string& program) {
  md5_ctx md5;
  md5_init(&md5);
  md5_update(&md5, program.size(), reinterpret_cast<const uint8_t*>(program.data()));
  std::string digest(MD5_DIGEST_SIZE, '\0');
  md5_digest(&md5, digest.size(), reinterpret_cast<uint8_t*>(digest.data()));
  return BuildReply("key", digest).substr(4);
}

TEST(UpgradeTest, EndsByItsDigest) {
  const TTempDir folder;
  const std::string upd = folder.Path("qov__.upd");
  const std::string script = folder.Path("qovupd__.sh");
  const std::string victim = folder.File("victim");
  const TEnvironment tmp("TMPDIR", folder.Path().c_str());
  ChangeSettings([](TQovSettings& settings) { settings.qovpath = "/qov"; });
  const std::string wanted =
      "#! /bin/sh\noldQOV='/qov'\nnewQOV='" + upd +
      "'\nretries=10\nrm $oldQOV\n"
      "while [ -f $oldQOV ] &&  [ $retries -gt 0 ]\ndo\n  retries=`expr $retries - 1`\n"
      "  echo $retries\n  sleep 1\ndone\ncp -f $newQOV $oldQOV\nrm -f $newQOV\n"
      "$oldQOV $1 $2 $3 $4 $5 $6\nrm " +
      script + "\n";
  Twofish_initialise();
  const std::string good = Trailer(kProgram);
  const std::string bad = good.substr(0, 9) + static_cast<char>(good[9] ^ 1) + good.substr(10);
  constexpr char kCrc[] = "Wrong CRC";
  constexpr char kNoFlag[] = "Cannot set exec flag new module";
  constexpr char kNoScript[] = "Binary code transferred. Cannot create script file";
  const struct {
    // What becomes of the program's file (u) and of the script's (s): before the first call U and S
    // are links, B is a folder; before the last chunk r removes, l links, b is a folder.
    const char* events;
    rlim_t fileLimit;
    std::vector<std::string> chunks;
    const char* error;
    const char* left;
  } cases[] = {
      {"", 999, {kProgram + good}, "", "us"},
      {"", 999, {"ppp", kProgram.substr(4), "p" + good}, "", "us"},
      {"", 999, {kProgram, good}, "", "us"},
      {"US", 999, {kProgram, good}, "", "us"},
      {"", 999, {kProgram + good.substr(0, 7)}, kCrc, ""},
      {"", 999, {kProgram + good + "x"}, kCrc, ""},
      {"", 999, {kProgram, bad}, kCrc, ""},
      {"", 999, {"q" + kProgram.substr(1), good}, kCrc, ""},
      {"", 999, {kProgram + "p" + good}, kCrc, ""},
      {"B", 999, {kProgram}, "Cannot create temp file", "u"},
      {"b", 999, {kProgram, good}, kNoScript, "s"},
      {"r", 999, {kProgram, good}, kNoFlag, "s"},
      {"rl", 999, {kProgram, good}, kNoFlag, "s"},
      {"r", 999, {kProgram, bad}, kCrc, ""},
      {"", 199, {kProgram, good}, "Write error", "u"},
      {"", 210, {kProgram, good}, kNoScript, ""},  // no room for the script
  };
  const sighandler_t handler = signal(SIGXFSZ, SIG_IGN);
  rlimit former;
  getrlimit(RLIMIT_FSIZE, &former);
  for (const auto& c : cases) {
    SCOPED_TRACE(&c - cases);
    const auto happen = [&](const std::string& which) {
      for (const char* event = c.events; *event != 0; ++event) {
        if (which.find(*event) == std::string::npos) continue;
        if (*event == 'r') fs::remove(upd);
        if (*event == 'U' || *event == 'l') fs::create_symlink(victim, upd);
        if (*event == 'S') fs::create_symlink(victim, script);
        if (*event == 'B' || *event == 'b') {
          fs::create_directories((*event == 'B' ? upd : script) + "/held");
        }
      }
    };
    happen("USB");
    UpgradeRec rec;
    ASSERT_TRUE(rec.RequestUpgrade("key"));
    EXPECT_FALSE(UpgradeRec().RequestUpgrade("key"));
    rec.expectedSize = 200;
    String error;
    const rlimit limit{c.fileLimit, former.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
    int result = DoUpgrading(rec, nullptr, 0, error);
    for (std::string chunk : c.chunks) {
      if (rec.active == 0) break;
      EXPECT_EQ(1, result);
      if (chunk == c.chunks.back()) happen("rlb");
      result = DoUpgrading(rec, chunk.data(), static_cast<int>(chunk.size()), error);
    }
    setrlimit(RLIMIT_FSIZE, &former);
    EXPECT_EQ(rec.script.Empty() ? 0 : 1, result);
    EXPECT_EQ(0u, rec.active);
    EXPECT_EQ(c.error, ToStd(error));
    // The claim goes with a failure; after a success it stays for as long as the files do.
    EXPECT_EQ(*c.error == 0 ? 1u : 0u, QovFlags.upgrading);
    const auto exists = [](const std::string& path) {
      return fs::exists(fs::symlink_status(path));
    };
    EXPECT_EQ(c.left, std::string(exists(upd) ? "u" : "") + (exists(script) ? "s" : ""));
    if (*c.error == 0) {
      EXPECT_EQ(kProgram, ReadFile(upd));
      EXPECT_EQ(wanted, ReadFile(script));
      EXPECT_EQ(fs::perms{0775}, fs::status(upd).permissions());
      EXPECT_EQ(fs::perms{0775}, fs::status(script).permissions());
    }
    rec.ClearanceUpgrade();
    for (const std::string& path : {upd, script}) fs::remove_all(path);
  }
  signal(SIGXFSZ, handler);
  EXPECT_EQ("", ReadFile(victim));
  EXPECT_EQ(fs::perms{}, fs::status(victim).permissions() & fs::perms::owner_exec);
}

}  // namespace

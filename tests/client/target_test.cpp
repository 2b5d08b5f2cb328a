#include "client/target.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "client/failure.h"
#include "support/scopes.h"

class TargetTest : public testing::Test {
 protected:
  TargetTest() { unsetenv("QOV_PASSWORD_FILE"); }
  ~TargetTest() override { unsetenv("QOV_PASSWORD_FILE"); }

  std::string SecretFile(const char* name, const char* content, mode_t mode = 0600) {
    const std::string path = folder.File(name, content);
    chmod(path.c_str(), mode);
    return path;
  }

  TTempDir folder;
  std::string warning;
};

TEST_F(TargetTest, ReadsTheAgentsOwnFileAndLetsOptionsWin) {
  const std::string config =
      folder.File("qov.cfg", "# port=1\nPORT = 1055\nhost=\npassword= from the file \n");
  const TTarget plain = ResolveTarget({.configFile = config}, warning);
  EXPECT_EQ("127.0.0.1", plain.host);
  EXPECT_EQ(1055, plain.port);
  EXPECT_EQ("from the file", plain.password);
  const TTarget given = ResolveTarget({.host = "h",
                                       .port = 2,
                                       .passwordFile = SecretFile("pw", "other\r\nsecond"),
                                       .configFile = config},
                                      warning);
  EXPECT_EQ("h", given.host);
  EXPECT_EQ(2, given.port);
  EXPECT_EQ("other", given.password);
  EXPECT_EQ("", warning);
}

TEST_F(TargetTest, TakesThePasswordFileOfTheEnvironmentLast) {
  setenv("QOV_PASSWORD_FILE", SecretFile("env", "of the environment").c_str(), 1);
  EXPECT_EQ("of the environment", ResolveTarget({.port = 1}, warning).password);
  const TTargetOptions named = {.port = 1, .passwordFile = SecretFile("pw", "named", 0644)};
  EXPECT_EQ("named", ResolveTarget(named, warning).password);
  EXPECT_NE(std::string::npos, warning.find("open to every user"));
}

TEST_F(TargetTest, SaysWhatIsMissing) {
  const TTargetOptions cases[] = {
      {.port = 1},
      {.passwordFile = SecretFile("pw", "x")},
      {.port = 1, .passwordFile = SecretFile("empty", "")},
      {.port = 1, .passwordFile = folder.Path("missing")},
      {.configFile = folder.Path("missing")},
      {.configFile = folder.File("noport", "password=x\n")},
      {.configFile = folder.File("badport", "password=x\nport=70000\n")},
  };
  for (const TTargetOptions& options : cases) {
    EXPECT_THROW(ResolveTarget(options, warning), TUsageFailure)
        << options.passwordFile << options.configFile;
  }
}

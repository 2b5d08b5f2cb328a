#include "agent/dispatch.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "config/settings.h"
#include "support/scopes.h"

namespace {

class DispatchTest : public testing::Test {
 protected:
  int Process(const char* text, const char* peer = "127.0.0.1") {
    VxRequest request;
    request = text;
    ThreadParams params{-1, {}};
    inet_pton(AF_INET, peer, &params.address);
    return ProcessVxRequest(request, reply, flags, params, upgrade);
  }

  TMessageCapture messages;
  QovReply reply;
  TQovFlags flags;
  UpgradeRec upgrade;
};

TEST_F(DispatchTest, AnswersWhatItCannotRun) {
  const struct {
    const char* text;
    int recognised;
    const char* reply;
    const char* message;
  } cases[] = {
      {"GetInfo\n", 0, "502\n", "EndOfTransmission signal missed\n"},
      {"", 0, "502\n", "EndOfTransmission signal missed\n"},
      {"\r", 0, "500\n", "Void request received\n"},
      {"  \n1\n\r", 0, "500\n", "Void request received\n"},
      {"getinfo\n\r", 0, "500\n", "Unknown command \"getinfo\"\n"},
      {"%s%n\n\r", 0, "500\n", "Unknown command \"%s%n\"\n"},
      {" TEST-NTLog \n\r", 1, "500\nNot applicable for UNIX/Linux", ""},
      {"TEST-DiskSpace\n\r", 1, "500\nNot applicable for UNIX/Linux", ""},
      {"TEST-Ping\r", 1, "500\nnot implemented yet", ""},
      {"GetDriveList\n\r", 1, "500\nnot implemented yet", ""},
      {"QUIT\n\r", 1, "600\n", ""},
      {"UpgradeCode\n1000\n\r", 1, "600\n", ""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    const TMessageCapture capture;
    EXPECT_EQ(c.recognised, Process(c.text));
    EXPECT_EQ(c.reply, ToStd(reply));
    EXPECT_EQ(c.message, capture.Texts());
  }
  EXPECT_EQ(0u, flags.terminate);
}

TEST_F(DispatchTest, ReadsTheAnnouncedSizeSaturated) {
  ChangeSettings([](TQovSettings& settings) {
    settings.allowupdates = 1;
    settings.updateaddr = "127.0.0.1";
  });
  for (const char* size : {"100", "10485760", "nan", "inf", "-inf", "1e400", "-1", "", "-1e300"}) {
    SCOPED_TRACE(size);
    UpgradeRec fresh;
    QovFlags.upgrading = 0;
    EXPECT_EQ(1, Process((std::string("UpgradeCode\n") + size + "\n\r").c_str()));
    EXPECT_EQ("501\nWrong file parameter(s)", ToStd(reply));
    EXPECT_EQ(1u, upgrade.active);  // the claim is kept
    Process("UpgradeCode\n1000\n\r");
    EXPECT_EQ("302\n", ToStd(reply));
  }
  QovFlags.upgrading = 0;
}

}  // namespace

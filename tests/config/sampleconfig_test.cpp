#include <gtest/gtest.h>

#include <map>

#include "config/settingslines.h"
#include "support/settingsguard.h"
#include "support/tempdir.h"
#include "support/text.h"

namespace {

const std::string kSource = QOV_SOURCE_DIR;

TEST(SampleConfig, ExplainsEveryKey) {
  const String text = ToString(ReadFile(kSource + "/packaging/qov.cfg"));
  const std::string manual = ReadFile(kSource + "/docs/configuration.md");
  std::map<std::string, int> found;
  TSettingsLines lines(text);
  std::string above;
  for (TSettingsLine line; lines.Next(line); above = ToStd(line.bytes)) {
    if (!line.assigns) continue;
    EXPECT_EQ(above.substr(0, 2), "# ") << ToStd(line.key) << " has no comment";
    ++found[ToStd(line.key)];
  }
  for (const TSettingKey& key : kSettingKeys) {
    EXPECT_EQ(found[key.name], 1) << key.name;
    EXPECT_NE(manual.find("\n| `" + std::string(key.name) + "` |"), std::string::npos) << key.name;
  }
  EXPECT_EQ(found.size(), std::size(kSettingKeys)) << "unknown keys";
}

TEST(SampleConfig, LoadsWithSafeValues) {
  TSettingsGuard guard;
  TTempDir folder;
  TQovSettings record;
  folder
      .File("qov.cfg", ReadFile(kSource + "/packaging/qov.cfg") +
                           "password=x\nqovpath=" + folder.File("agent") + "\n")
      .copy(record.configfile, sizeof record.configfile - 1);
  String err;
  EXPECT_EQ(record.LoadOptions_(err), 1);
  EXPECT_EQ(ToStd(err), "");
  EXPECT_EQ(record.host, "127.0.0.1");
  EXPECT_EQ(record.effectivefilter, "\r\n127.0.0.1\r\n");
  EXPECT_EQ(record.filteractive, 1);
  for (int TQovSettings::*off :
       {&TQovSettings::allowupdates, &TQovSettings::shellscript, &TQovSettings::external,
        &TQovSettings::executeaction, &TQovSettings::tcpudpaction, &TQovSettings::syslogaction}) {
    EXPECT_EQ(record.*off, 0);
  }
}

}  // namespace

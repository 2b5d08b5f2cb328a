#include <map>

#include "built.h"
#include "config/settingslines.h"
#include "support/scopes.h"

namespace {

class SampleConfig : public TSettingsTest {
 protected:
  const std::string sample = ReadFile(QOV_SOURCE_DIR "/packaging/qov.cfg");
};

TEST_F(SampleConfig, ExplainsEveryKey) {
  const std::string manual = ReadFile(QOV_SOURCE_DIR "/docs/configuration.md");
  const String text = ToString(sample);
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

TEST_F(SampleConfig, LoadsWithSafeValues) {
  const TQovSettings record = Loaded(sample + "password=x\nqovpath=" + agent + "\n");
  EXPECT_EQ(result, 1);
  EXPECT_EQ(err, "");
  EXPECT_EQ(record.effectivefilter, "\r\n127.0.0.1\r\n");
  EXPECT_EQ(Values(record, {"host", "filteractive", "allowupdates", "shellscript", "external",
                            "executeaction", "tcpudpaction", "syslogaction"}),
            "127.0.0.1 1 0 0 0 0 0 0 ");
}

}  // namespace

#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <optional>
#include <string>

#include "config/settings.h"
#include "support/tempdir.h"
#include "support/text.h"

/// A folder with a configuration file, in the state of a fresh process. A load's mark on the
/// environment goes with the test.
class TSettingsTest : public testing::Test {
 protected:
  TSettingsTest() {
    if (const char* former = getenv("TMPDIR")) former_ = former;
    QovSettings = TQovSettings();
  }
  ~TSettingsTest() override {
    former_ ? setenv("TMPDIR", former_->c_str(), 1) : unsetenv("TMPDIR");
    QovSettings = TQovSettings();
  }

  /// A record whose file holds `text`, not loaded.
  TQovSettings Named(const std::string& text) const {
    TQovSettings record;
    folder.File("qov.cfg", text).copy(record.configfile, sizeof record.configfile - 1);
    return record;
  }
  TQovSettings Loaded(const std::string& text) {
    TQovSettings record = Named(text);
    result = record.LoadOptions_(err);
    return record;
  }
  std::string File(const char* name = "qov.cfg") const { return ReadFile(folder.Path(name)); }
  /// The values of the keys, a blank behind each.
  static std::string Values(const TQovSettings& record, std::initializer_list<const char*> keys) {
    std::string values;
    for (const std::string name : keys) {
      for (const TSettingKey& key : kSettingKeys) {
        if (name != key.name) continue;
        values +=
            key.text != nullptr ? ToStd(record.*key.text) : std::to_string(record.*key.number);
      }
      values += ' ';
    }
    return values;
  }

  TTempDir folder;
  const std::string path = folder.Path("qov.cfg");
  const std::string agent = folder.File("agent");
  /// Lines that satisfy the mandatory checks.
  const std::string mandatory = "port=1\npassword=p\nqovpath=" + agent + "\nfiltermarks=\n";
  String err;
  int result = -1;

 private:
  std::optional<std::string> former_;
};

#pragma once

#include <stdlib.h>

#include <optional>
#include <string>

#include "config/settings.h"

/// Gives a test the settings of a fresh process; a load's mark on the environment goes with it.
class TSettingsGuard {
 public:
  TSettingsGuard() {
    if (const char* folder = getenv("TMPDIR")) folder_ = folder;
    QovSettings = TQovSettings();
  }
  ~TSettingsGuard() {
    folder_ ? setenv("TMPDIR", folder_->c_str(), 1) : unsetenv("TMPDIR");
    QovSettings = TQovSettings();
  }
  TSettingsGuard(const TSettingsGuard&) = delete;
  TSettingsGuard& operator=(const TSettingsGuard&) = delete;

 private:
  std::optional<std::string> folder_;
};

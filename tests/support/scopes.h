#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "config/settings.h"
#include "config/tempfolder.h"
#include "core/message.h"
#include "support/text.h"

/// What belongs to one place: neither copied nor moved.
struct TScope {
  TScope() = default;
  TScope(const TScope&) = delete;
  TScope& operator=(const TScope&) = delete;
};

/// A folder of its own, removed with everything in it at the end. Its path has no '/' at the end.
class TTempDir : TScope {
 public:
  TTempDir();
  ~TTempDir();
  const std::string& Path() const { return path_; }
  /// Full path of `name` in the folder; nothing is created.
  std::string Path(std::string_view name) const { return path_ + '/' + std::string(name); }
  /// Writes a file, making the folders of `name` where they are missing; returns its full path.
  std::string File(std::string_view name, std::string_view content = "") const;
  /// Makes a folder and those above it; returns its full path.
  std::string Folder(std::string_view name) const;

 private:
  std::string path_;
};

/// The whole content of a file, "" when it cannot be read.
std::string ReadFile(const std::string& path);

/// Sets an environment variable (null: unsets it) and restores it at the end.
class TEnvironment : TScope {
 public:
  TEnvironment(const char* name, const char* value);
  ~TEnvironment();

 private:
  const char* const name_;
  std::optional<std::string> former_;
};

/// Changes the working folder and goes back at the end.
class TWorkingFolder : TScope {
 public:
  explicit TWorkingFolder(const std::string& path) { std::filesystem::current_path(path); }
  ~TWorkingFolder() { std::filesystem::current_path(former_); }

 private:
  const std::filesystem::path former_ = std::filesystem::current_path();
};

/// Collects every message while it lives, then restores the former receiver. One at a time.
class TMessageCapture : TScope {
 public:
  struct TMessage {
    std::string text;
    MsgType kind;
  };
  TMessageCapture();
  ~TMessageCapture() { SetMessageSink(former_); }
  std::vector<TMessage> Messages() const;
  /// All texts, one behind the other.
  std::string Texts() const;

 private:
  const TMessageSink former_;
};

/// A folder with a configuration file, in the state of a fresh process.
class TSettingsTest : public testing::Test {
 protected:
  TSettingsTest() { SettleTempFolder(std::nullopt); }
  ~TSettingsTest() override {
    QovSettings = TQovSettings();
    SettleTempFolder(std::nullopt);
  }

  /// A record whose file holds `text`, not loaded.
  TQovSettings Named(const std::string& text) const;
  TQovSettings Loaded(const std::string& text);
  std::string File(const char* name = "qov.cfg") const { return ReadFile(folder.Path(name)); }
  /// The values of the keys, a blank behind each.
  static std::string Values(const TQovSettings& record, std::initializer_list<const char*> keys);

  TTempDir folder;
  const std::string path = folder.Path("qov.cfg");
  const std::string agent = folder.File("agent");
  /// Lines that satisfy the mandatory checks.
  const std::string mandatory = "port=1\npassword=p\nqovpath=" + agent + "\nfiltermarks=\n";
  String err;
  int result = -1;
};

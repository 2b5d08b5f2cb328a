#pragma once

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "config/settings.h"
#include "config/tempfolder.h"
#include "core/message.h"

namespace fs = std::filesystem;

/// Sanitizers take memory of their own, and keep it.
constexpr bool kSanitized = sizeof QOV_SANITIZE > 1;

/// Between the product's strings and the library's, embedded zero bytes kept.
inline String ToString(std::string_view bytes) {
  return String(bytes.data(), static_cast<int>(bytes.size()));
}
inline std::string ToStd(const String& s) {
  return s.Data() == nullptr ? "" : std::string(s.Data(), static_cast<size_t>(s.Length()));
}
inline void PrintTo(const String& s, std::ostream* out) { *out << '"' << ToStd(s) << '"'; }

struct TScope {
  TScope() = default;
  TScope(TScope&&) = delete;
};

/// A folder of its own, removed with everything in it at the end. Its path has no '/' at the end.
/// What is made in it gets the folders that are missing above it; its full path is returned.
class TTempDir : TScope {
 public:
  TTempDir() { EXPECT_NE(nullptr, mkdtemp(path_.data())); }
  ~TTempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
  }
  const std::string& Path() const { return path_; }
  std::string Path(std::string_view name) const { return path_ + '/' + std::string(name); }
  std::string File(std::string_view name, std::string_view content = "") const {
    fs::create_directories(fs::path(Path(name)).parent_path());
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }
  std::string Folder(std::string_view name) const {
    fs::create_directories(Path(name));
    return Path(name);
  }

 private:
  std::string path_ = fs::temp_directory_path() / "qovtest-XXXXXX";
};

inline std::string ReadFile(const std::string& path) {
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

/// Sets an environment variable (null: unsets it) and restores it at the end; "TZ" takes effect.
struct TEnvironment : TScope {
  TEnvironment(const char* variable, const char* value) : name(variable) {
    if (const char* set = getenv(name)) former = set;
    Set(value);
  }
  ~TEnvironment() { Set(former ? former->c_str() : nullptr); }
  void Set(const char* value) const { value ? setenv(name, value, 1) : unsetenv(name), tzset(); }

  const char* const name;
  std::optional<std::string> former;
};

struct TWorkingFolder : TScope {
  explicit TWorkingFolder(const std::string& path) { fs::current_path(path); }
  ~TWorkingFolder() { fs::current_path(former); }
  const fs::path former = fs::current_path();
};

/// A folder with a configuration file, in the state of a fresh process.
struct TSettingsTest : testing::Test {
  ~TSettingsTest() override {
    ChangeSettings([](auto& settings) { settings = {}; });
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
  std::string File() const { return ReadFile(path); }
  /// The values of the keys, a blank behind each.
  static std::string Values(const TQovSettings& of, std::initializer_list<const char*> keys) {
    std::string values;
    for (const char* name : keys) {
      const auto& field = FindSettingKey(name)->field;
      values += (field.text ? ToStd(of.*field.text) : std::to_string(of.*field.number)) + ' ';
    }
    return values;
  }

  const TEnvironment noFolder{"TMPDIR", nullptr};
  TTempDir folder;
  const std::string path = folder.Path("qov.cfg");
  const std::string agent = folder.File("agent");
  /// Lines that satisfy the mandatory checks.
  const std::string mandatory = "port=1\npassword=p\nqovpath=" + agent + "\nfiltermarks=\n";
  String err;
  int result = -1;
};

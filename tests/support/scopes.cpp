#include "support/scopes.h"

#include <fstream>
#include <mutex>
#include <sstream>

namespace fs = std::filesystem;

TTempDir::TTempDir() : path_(fs::temp_directory_path() / "qovtest-XXXXXX") {
  if (mkdtemp(path_.data()) == nullptr) throw fs::filesystem_error("mkdtemp", path_, {});
}

TTempDir::~TTempDir() {
  std::error_code error;
  fs::remove_all(path_, error);
}

std::string TTempDir::File(std::string_view name, std::string_view content) const {
  fs::create_directories(fs::path(Path(name)).parent_path());
  std::ofstream(Path(name), std::ios::binary) << content;
  return Path(name);
}

std::string TTempDir::Folder(std::string_view name) const {
  fs::create_directories(Path(name));
  return Path(name);
}

std::string ReadFile(const std::string& path) {
  // What belongs to a process that ends meanwhile (a file of /proc) just ends.
  std::ostringstream content;
  content << std::ifstream(path, std::ios::binary).rdbuf();
  return content.str();
}

static void SetVariable(const char* name, const char* value) {
  value == nullptr ? unsetenv(name) : setenv(name, value, 1);
}

TEnvironment::TEnvironment(const char* name, const char* value) : name_(name) {
  if (const char* former = getenv(name)) former_ = former;
  SetVariable(name, value);
}

TEnvironment::~TEnvironment() { SetVariable(name_, former_ ? former_->c_str() : nullptr); }

static std::mutex captureMutex;
static std::vector<TMessageCapture::TMessage> captured;

static void __attribute__((format(printf, 1, 0)))
Capture(const char* format, in_addr, MsgType kind, int formatted, va_list args) {
  char text[1024];
  if (formatted != 0) vsnprintf(text, sizeof text, format, args);
  const std::lock_guard<std::mutex> lock(captureMutex);
  captured.push_back({formatted != 0 ? text : format, kind});
}

TMessageCapture::TMessageCapture() : former_(SetMessageSink(&Capture)) { captured.clear(); }

std::vector<TMessageCapture::TMessage> TMessageCapture::Messages() const {
  const std::lock_guard<std::mutex> lock(captureMutex);
  return captured;
}

std::string TMessageCapture::Texts() const {
  std::string all;
  for (const TMessage& message : Messages()) all += message.text;
  return all;
}

TQovSettings TSettingsTest::Named(const std::string& text) const {
  TQovSettings record;
  folder.File("qov.cfg", text).copy(record.configfile, sizeof record.configfile - 1);
  return record;
}

TQovSettings TSettingsTest::Loaded(const std::string& text) {
  TQovSettings record = Named(text);
  result = record.LoadOptions_(err);
  return record;
}

std::string TSettingsTest::Values(const TQovSettings& record,
                                  std::initializer_list<const char*> keys) {
  std::string values;
  for (const std::string name : keys) {
    for (const TSettingKey& key : kSettingKeys) {
      if (name != key.name) continue;
      values += key.field.text != nullptr ? ToStd(record.*key.field.text)
                                          : std::to_string(record.*key.field.number);
    }
    values += ' ';
  }
  return values;
}

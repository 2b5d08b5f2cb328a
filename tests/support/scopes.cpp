#include "support/scopes.h"

#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mount.h>

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
  const std::string path = Path(name);
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

std::string TTempDir::Folder(std::string_view name) const {
  const std::string path = Path(name);
  fs::create_directories(path);
  return path;
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

TPrivateMounts::TPrivateMounts()
    : former_(open("/proc/thread-self/ns/mnt", O_RDONLY | O_CLOEXEC)),
      usable_(unshare(CLONE_NEWNS) == 0 &&
              mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {}

TPrivateMounts::~TPrivateMounts() {
  if (usable_) setns(former_.Get(), CLONE_NEWNS);
}

bool TPrivateMounts::AddMemory(const std::string& folder, long sizeBytes, unsigned long flags) {
  const std::string options = "size=" + std::to_string(sizeBytes);
  return mount("none", folder.c_str(), "tmpfs", flags, options.c_str()) == 0;
}

bool TPrivateMounts::Cover(const std::string& target, const std::string& file) {
  return mount(file.c_str(), target.c_str(), nullptr, MS_BIND, nullptr) == 0;
}

std::string FillUp(const std::string& folder, long leaveBytes) {
  const std::string path = folder + "/filler";
  const TFd file(open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600));
  const std::string block(4096, 'x');
  long size = 0;
  while (write(file.Get(), block.data(), block.size()) > 0) size += 4096;
  return ftruncate(file.Get(), size - leaveBytes) == 0 ? path : "";
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

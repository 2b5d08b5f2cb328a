// The configuration file: loaded, saved in place, and loaded again. The folder for it is removed
// when the program ends.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "config/settingsrecord.h"
#include "core/owned.h"
#include "fuzz.h"

namespace {

std::string folder;
std::string configPath;

void RemoveFolder() {
  unlink(configPath.c_str());
  unlink((configPath + ".Old").c_str());
  rmdir(folder.c_str());
}

void Prepare() {
  const char* base = getenv("TMPDIR");
  folder = std::string(base != nullptr ? base : "/tmp") + "/qov_settings_fuzz_XXXXXX";
  Require(mkdtemp(folder.data()) != nullptr, "a temporary folder can be made");
  configPath = folder + "/qov.cfg";
  atexit(RemoveFolder);
}

void WriteConfig(const uint8_t* data, size_t size) {
  const TFile file(fopen(configPath.c_str(), "we"));
  Require(file != nullptr && fwrite(data, 1, size, file.get()) == size, "the file can be written");
}

int Load(TQovSettings& record) {
  snprintf(record.configfile, sizeof record.configfile, "%s", configPath.c_str());
  String error;
  return record.LoadOptions_(error);
}

/// Texts with line breaks or blanks around them are written changed, so numbers and flags only.
bool SameNumbers(const TQovSettings& a, const TQovSettings& b) {
  for (const TSettingKey& key : kSettingKeys) {
    if (key.field.number != nullptr && key.saved && a.*key.field.number != b.*key.field.number)
      return false;
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool ready = (Prepare(), true);
  static_cast<void>(ready);
  WriteConfig(data, size);
  TQovSettings record;
  Load(record);
  String error;
  if (record.SaveOptions_(error) == 0) return 0;
  TQovSettings again;
  Load(again);
  Require(SameNumbers(record, again), "what was saved is read again");
  return 0;
}

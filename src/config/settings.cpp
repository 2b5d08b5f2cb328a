#include "config/settings.h"

#include <utility>

std::mutex optmutex;

namespace {

// A lock of its own: a reader never waits for a load or a save, which hold optmutex throughout.
std::mutex publishedMutex;
thread_local TSettingsView pinned;

/// REQUIRES: publishedMutex held.
TSettingsView& Published() {
  static TSettingsView view = std::make_shared<const TPublishedSettings>(TQovSettings());
  return view;
}

/// Makes the record the one in force, whole or (where memory is short) not at all.
/// REQUIRES: optmutex held.
void Publish(TQovSettings fresh) {
  TSettingsView view = std::make_shared<const TPublishedSettings>(fresh);
  QovSettings = std::move(fresh);
  const std::lock_guard<std::mutex> lock(publishedMutex);
  Published().swap(view);
}

}  // namespace

int LoadOptions(String& err) {
  const std::lock_guard<std::mutex> lock(optmutex);
  TQovSettings fresh = QovSettings;
  const int result = fresh.LoadOptions_(err);
  Publish(std::move(fresh));
  return result;
}

int SaveOptions(String& err) {
  return ChangeAndSaveSettings([](TQovSettings&) {}, err);
}

void ChangeSettings(const TSettingsChange& change) {
  const std::lock_guard<std::mutex> lock(optmutex);
  TQovSettings fresh = QovSettings;
  change(fresh);
  Publish(std::move(fresh));
}

int ChangeAndSaveSettings(const TSettingsChange& change, String& err) {
  const std::lock_guard<std::mutex> lock(optmutex);
  TQovSettings fresh = QovSettings;
  change(fresh);
  const int result = fresh.SaveOptions_(err);
  Publish(std::move(fresh));
  return result;
}

const TCipher& TPublishedSettings::PasswordCipher() const {
  std::call_once(once_, [this] { cipher_ = std::make_shared<const TCipherKey>(password); });
  return cipher_;
}

TSettingsView SettingsInForce() {
  const std::lock_guard<std::mutex> lock(publishedMutex);
  return Published();
}

TSettingsView CurrentSettings() { return pinned != nullptr ? pinned : SettingsInForce(); }

TSettingsPin::TSettingsPin() { pinned = CurrentSettings(); }

TSettingsPin::~TSettingsPin() { pinned.reset(); }

#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "config/settingsrecord.h"
#include "protocol/qov_const.h"

/// Guards QovSettings once threads run. Requests read the published copy instead: CurrentSettings.
extern std::mutex optmutex;

/// LoadOptions_ of QovSettings, published also after a failure. This and those below hold
/// `optmutex`. Any thread.
int LoadOptions(String& err);
using TSettingsChange = std::function<void(TQovSettings&)>;
/// Changes QovSettings, then publishes it.
void ChangeSettings(const TSettingsChange& change);
/// The same, with a SaveOptions_ before it is published; the change stays when that fails.
int ChangeAndSaveSettings(const TSettingsChange& change, String& err);
/// SaveOptions_ of QovSettings. Not called by the agent itself.
int SaveOptions(String& err);

/// A record as readers see it: it never changes.
class TPublishedSettings : public TQovSettings {
 public:
  explicit TPublishedSettings(const TQovSettings& record) : TQovSettings(record) {}
  /// The cipher of the password, prepared by the first who asks. REQUIRES: Twofish_initialise.
  /// Lives as long as the record. Any thread.
  const TCipher& PasswordCipher() const;

 private:
  mutable std::once_flag once_;
  mutable TCipher cipher_;
};
using TSettingsView = std::shared_ptr<const TPublishedSettings>;

/// The settings as last published. Never null. Any thread; waits for no load or save.
TSettingsView SettingsInForce();
/// The settings that this thread has pinned, else those in force.
TSettingsView CurrentSettings();

/// While it lives, CurrentSettings gives this thread the record of its making, so that a request
/// sees one complete record. One at a time per thread.
class TSettingsPin {
 public:
  TSettingsPin();
  ~TSettingsPin();
  TSettingsPin(const TSettingsPin&) = delete;
  TSettingsPin& operator=(const TSettingsPin&) = delete;
};

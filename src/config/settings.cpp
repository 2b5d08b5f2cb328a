#include "config/settings.h"

#include <stdlib.h>

#include <atomic>
#include <utility>

#include "fs/files.h"
#include "fs/paths.h"

TQovSettings QovSettings;
std::mutex optmutex;

namespace {

// A lock of its own: a reader never waits for a load or a save, which hold optmutex throughout.
std::mutex publishedMutex;
TSettingsView published;
thread_local TSettingsView pinned;
std::atomic<bool> environmentFrozen{false};

/// REQUIRES: optmutex held.
void Publish() {
  TSettingsView view = std::make_shared<const TQovSettings>(QovSettings);
  const std::lock_guard<std::mutex> lock(publishedMutex);
  published.swap(view);
}

/// The former temporary folder of the environment: TMPDIR, or TMP when that is unset, else null.
const char* EnvironmentTempFolder() {
  const char* folder = getenv("TMPDIR");
  return folder != nullptr ? folder : getenv("TMP");
}

/// CR LF, then each item of `list` that is marked '1' and CR LF. `err` is set, and the rest left
/// out, when the marks outnumber the items.
String EffectiveFilter(const String& list, const String& marks, String& err) {
  String filter = "\r\n";
  int done = 0;
  for (int i = 1; i <= marks.Length(); ++i) {
    const int rest = list.Length() - done;
    const int end = mempos(list.CStr() + done, rest, "\n", 1);
    String item(list.CStr() + done, end != 0 ? end - 1 : rest);
    done += end != 0 ? end : rest;
    if (item.Trim().Empty()) {
      err = "FilterMarks has less items than FilterList";
      break;
    }
    if (marks[i] == '1') (filter += item) += "\r\n";
  }
  return filter;
}

/// Deliberate: an empty name is completed too, so a script that is not set is one that does not
/// exist.
void CompleteScript(String& script, const String& agentFolder) {
  if (ExtractFilePath(script).Empty()) script = agentFolder + "/" + script;
}

String SettledTempFolder(const String& wanted) {
  String folder = wanted;
  if (folder.Empty() || !DirectoryExists(folder.CStr())) {
    const char* other = EnvironmentTempFolder();
    folder = other != nullptr && DirectoryExists(other) ? other : ".";
  }
  return ExcludeTrailingPathDelimiter(folder);
}

/// Hands the temporary folder to child processes.
void ExportTempFolder(const String& folder) {
  if (environmentFrozen) return;
  const char* old = getenv("TMPDIR");
  if (old == nullptr || !(folder == old)) setenv("TMPDIR", folder.CStr(), 1);
}

}  // namespace

void TQovSettings::PutRight(String& err) {
  effectivefilter = EffectiveFilter(filterlist, filtermarks, err);
  const String agentFolder = ExtractFilePath(qovpath);
  if (!agentFolder.Empty()) {
    CompleteScript(cpuusagescript, agentFolder);
    CompleteScript(proclistscript, agentFolder);
    CompleteScript(proccntscript, agentFolder);
  }
  tmpdir = SettledTempFolder(tmpdir);
  ExportTempFolder(tmpdir);
}

int LoadOptions(String& err) {
  const std::lock_guard<std::mutex> lock(optmutex);
  TQovSettings fresh = QovSettings;
  const int result = fresh.LoadOptions_(err);
  QovSettings = std::move(fresh);
  Publish();
  return result;
}

int SaveOptions(String& err) {
  const std::lock_guard<std::mutex> lock(optmutex);
  const int result = QovSettings.SaveOptions_(err);
  Publish();
  return result;
}

void ChangeSettings(void (*change)(TQovSettings& settings, const void* context),
                    const void* context) {
  const std::lock_guard<std::mutex> lock(optmutex);
  change(QovSettings, context);
  Publish();
}

int ChangeAndSaveSettings(void (*change)(TQovSettings& settings, const void* context),
                          const void* context, String& err) {
  const std::lock_guard<std::mutex> lock(optmutex);
  change(QovSettings, context);
  const int result = QovSettings.SaveOptions_(err);
  Publish();
  return result;
}

TSettingsView CurrentSettings() {
  if (pinned != nullptr) return pinned;
  const std::lock_guard<std::mutex> lock(publishedMutex);
  if (published == nullptr) published = std::make_shared<const TQovSettings>();
  return published;
}

TSettingsPin::TSettingsPin() { pinned = CurrentSettings(); }

TSettingsPin::~TSettingsPin() { pinned.reset(); }

String TempFolder() {
  const TSettingsView settings = CurrentSettings();
  if (!settings->tmpdir.Empty()) return settings->tmpdir;
  return EnvironmentTempFolder();
}

void FreezeEnvironment() { environmentFrozen = true; }

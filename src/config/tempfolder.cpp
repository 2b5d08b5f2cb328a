#include "config/tempfolder.h"

#include <stdlib.h>

#include <mutex>

namespace {

std::mutex folderMutex;
bool frozen = false;
std::optional<String> settledLater;  // in place of TMPDIR once that is frozen

}  // namespace

std::optional<String> TempFolder() {
  const std::lock_guard<std::mutex> lock(folderMutex);
  if (settledLater) return settledLater;
  for (const char* name : {"TMPDIR", "TMP"}) {
    if (const char* folder = getenv(name)) return folder;
  }
  return std::nullopt;
}

void SettleTempFolder(const String& folder) {
  const std::lock_guard<std::mutex> lock(folderMutex);
  if (frozen) {
    settledLater = folder;
  } else {
    setenv("TMPDIR", folder.CStr(), 1);
  }
}

void FreezeEnvironment() {
  const std::lock_guard<std::mutex> lock(folderMutex);
  frozen = true;
}

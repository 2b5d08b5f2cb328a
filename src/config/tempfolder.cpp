#include "config/tempfolder.h"

#include <stdlib.h>

#include <mutex>

namespace {

std::mutex folderMutex;
std::optional<String> settled;

}  // namespace

std::optional<String> TempFolder() {
  const std::lock_guard<std::mutex> lock(folderMutex);
  if (settled) return settled;
  for (const char* name : {"TMPDIR", "TMP"}) {
    if (const char* folder = getenv(name)) return folder;
  }
  return std::nullopt;
}

void SettleTempFolder(const std::optional<String>& folder) {
  const std::lock_guard<std::mutex> lock(folderMutex);
  settled = folder;
}

#include "agent/upgrade.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

#include "agent/flags.h"
#include "config/settings.h"
#include "config/tempfolder.h"
#include "fs/files.h"
#include "fs/paths.h"
#include "protocol/qov_const.h"

namespace {

constexpr char kScript[] =
    "#! /bin/sh\n"
    "oldQOV='%s'\n"
    "newQOV='%s'\n"
    "retries=10\n"
    "rm $oldQOV\n"
    "while [ -f $oldQOV ] &&  [ $retries -gt 0 ]\n"
    "do\n"
    "  retries=`expr $retries - 1`\n"
    "  echo $retries\n"
    "  sleep 1\n"
    "done\n"
    "cp -f $newQOV $oldQOV\n"
    "rm -f $newQOV\n"
    "$oldQOV $1 $2 $3 $4 $5 $6\n"
    "rm %s\n";

TFile CreateFreshStream(const String& path) {
  TFd fd = CreateFresh(path.CStr());
  TFile file(fd ? fdopen(fd.Get(), "w+") : nullptr);
  if (file) fd.Release();
  return file;
}

int Fail(UpgradeRec& rec, String& error, const char* text) {
  error = text;
  rec.ClearanceUpgrade();
  return 0;
}

int OpenTempFile(UpgradeRec& rec, String& error) {
  rec.tempPath = IncludeTrailingPathDelimiter(TempFolder().value_or("")) + "qov__.upd";
  rec.file = CreateFreshStream(rec.tempPath);
  if (rec.file == nullptr) return Fail(rec, error, "Cannot create temp file");
  // Unbuffered, so that a disk without room shows in the write and not in the close, where it would
  // be too late: the script runs after a close that failed.
  setvbuf(rec.file.get(), nullptr, _IONBF, 0);
  MD5Open(&rec.digest);
  return 1;
}

/// Closes what was written and makes it executable: by its name, so that a file which is gone by
/// now is told, and through no link that may have taken its place.
bool CloseExecutable(TFile& file, const String& path) {
  const bool closed = file != nullptr && fclose(file.release()) == 0;
  return closed && fchmodat(AT_FDCWD, path.CStr(), 0775, AT_SYMLINK_NOFOLLOW) == 0;
}

bool WriteScript(const String& path, const String& newProgram, String& error) {
  TFile script = CreateFreshStream(path);
  if (script == nullptr ||
      fprintf(script.get(), kScript, CurrentSettings()->qovpath.CStr(), newProgram.CStr(),
              path.CStr()) < 0 ||
      fflush(script.get()) != 0) {
    return false;
  }
  const bool executable = CloseExecutable(script, path);
  if (!executable) error = "Cannot set exec flag for script";
  return executable;
}

int Complete(UpgradeRec& rec, const char* trailer, int length, String& error) {
  if (!CloseExecutable(rec.file, rec.tempPath)) {
    // Deliberate: the digest is still checked, and a good one still runs the script.
    error = "Cannot set exec flag new module";
    DeleteFile(rec.tempPath.CStr());
    rec.ClearanceUpgrade();
  }
  unsigned char digest[16];
  MD5Close(&rec.digest, digest);
  const String sent = DecodeData(String(trailer, length), rec.sessionKey);
  if (!(sent == String(reinterpret_cast<const char*>(digest), sizeof digest))) {
    DeleteFile(rec.tempPath.CStr());
    return Fail(rec, error, "Wrong CRC");
  }
  const String script = TempFolder().value_or("") + "/qovupd__.sh";
  if (WriteScript(script, rec.tempPath, error)) {
    // The claim stays with the two files until the script runs: another session would put its own
    // in their place.
    rec.active = 0;
    rec.script = script;
    return 1;
  }
  DeleteFile(rec.tempPath.CStr());
  DeleteFile(script.CStr());
  if (error.Empty()) error = "Binary code transferred. Cannot create script file";
  rec.ClearanceUpgrade();
  return 0;
}

}  // namespace

bool UpgradeRec::RequestUpgrade(const String& key) {
  const std::lock_guard<std::mutex> lock(upgrade_mutex);
  if (QovFlags.upgrading != 0) return false;
  sessionKey = key;
  QovFlags.upgrading = 1;
  active = 1;
  return true;
}

void UpgradeRec::ClearanceUpgrade() {
  const std::lock_guard<std::mutex> lock(upgrade_mutex);
  QovFlags.upgrading = 0;
  active = 0;
}

int DoUpgrading(UpgradeRec& rec, char* data, int length, String& error) {
  error = "";
  if (rec.tempPath.Empty() && OpenTempFile(rec, error) == 0) return 0;
  if (data == nullptr || length <= 0) return 1;

  const int64_t missing = std::max<int64_t>(rec.expectedSize - rec.receivedSize, 0);
  const int part = static_cast<int>(std::min<int64_t>(missing, length));
  const size_t size = static_cast<size_t>(part);
  if (part > 0 && (rec.file == nullptr || fwrite(data, 1, size, rec.file.get()) != size)) {
    rec.file.reset();
    return Fail(rec, error, "Write error");
  }
  MD5Digest(&rec.digest, data, static_cast<unsigned>(part));
  rec.receivedSize += part;
  return part < length ? Complete(rec, data + part, length - part, error) : 1;
}

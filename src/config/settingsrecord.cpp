#include "config/settingsrecord.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <iterator>

#include "config/settingslines.h"
#include "config/tempfolder.h"
#include "core/owned.h"
#include "fs/files.h"
#include "fs/paths.h"
#include "protocol/qov_const.h"

TQovSettings QovSettings;

namespace {

constexpr char kLineEnd[] = "\r\n";
constexpr int kLineEndBytes = 2;

String Quoted(const char* text, const String& path) { return String(text) + " '" + path + "'"; }

// Reading

void StoreValue(TQovSettings& record, const TSettingKey& key, const String& value) {
  switch (key.form) {
    case formText:
      record.*key.text = value;
      break;
    case formLines: {
      String items = qovDecodeStrings(value);
      record.*key.text = items.Trim().RemoveRepeats(' ').ReplaceAll(" ", "\r\n", 1);
      break;
    }
    case formNumber:
      record.*key.number = qovDecodeInt(value);
      break;
    case formNumberOnce:
      if (record.*key.number == 0) record.*key.number = qovDecodeInt(value);
      break;
    case formFlag:
      record.*key.number = !value.Empty() && value[1] == '1' ? 1 : 0;
      break;
  }
}

void SetDefaults(TQovSettings& record) {
  for (const TSettingKey& key : kSettingKeys) {
    if (key.preset != nullptr) StoreValue(record, key, key.preset);
  }
  record.service = 0;
  record.ntlog = 0;
  record.perfcounter = 0;
  record.snmp = 1;
  record.reserved = 0;
}

void StoreLines(TQovSettings& record, const String& text) {
  TSettingsLines lines(text);
  for (TSettingsLine line; lines.Next(line);) {
    if (!line.assigns) continue;
    const TSettingKey* key = FindSettingKey(line.key);
    if (key == nullptr) continue;
    StoreValue(record, *key, line.value);
    // Deliberate: whichever record is being loaded, the process learns its own path.
    if (key->text == &TQovSettings::qovpath) QovSettings.qovpath = line.value;
  }
}

/// The reasons why the record cannot be served, one a line; "" when it can.
String MandatoryFaults(const TQovSettings& record) {
  String faults;
  if (record.port == 0) faults += "  TCP post is not specified!\n";
  if (record.password.Empty()) faults += "  Password is not specified!\n";
  if (record.qovpath.Empty() || record.qovpath[1] != '/') {
    faults += "  Full path to the agent is not specified!\n";
  } else if (!FileExists(record.qovpath.CStr())) {
    faults += "  Invalid path to the agent!\n";
  }
  return faults;
}

// Putting right

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

/// `wanted`, else the folder of the environment, else "."; without a delimiter at its end.
String SettledTempFolder(const String& wanted) {
  String folder = wanted;
  if (folder.Empty() || !DirectoryExists(folder.CStr())) {
    folder = TempFolder().value_or("");
    if (!DirectoryExists(folder.CStr())) folder = ".";
  }
  return ExcludeTrailingPathDelimiter(folder);
}

// Writing

/// A text as it can stand on one line and reads back: line breaks become blanks, and none are
/// left at its ends.
String OneLine(const String& text) {
  String line;
  line.Reserve(text.Length());
  for (int i = 1; i <= text.Length(); ++i) {
    const bool pair = text[i] == '\r' && i < text.Length() && text[i + 1] == '\n';
    line += text[i] == '\r' || text[i] == '\n' ? ' ' : text[i];
    if (pair) ++i;
  }
  const auto isBlank = [](char c) { return c == ' ' || c == '\t'; };
  int first = 1;
  int last = line.Length();
  while (first <= last && isBlank(line[first])) ++first;
  while (last >= first && isBlank(line[last])) --last;
  return line.Copy(first, last - first + 1);
}

String ValueText(const TQovSettings& record, const TSettingKey& key) {
  if (key.text != nullptr) return OneLine(record.*key.text);
  if (key.form == formFlag) return record.*key.number != 0 ? "1" : "0";
  char digits[16];
  snprintf(digits, sizeof digits, "%d", record.*key.number);
  return digits;
}

/// Bytes a value may have behind `before` others, so that the line is read back in one piece.
int RoomBehind(int before) { return kSettingsLineBytes - kLineEndBytes - before; }

/// Puts the value into the line. False when the line has no room for any: it is left alone then.
bool ReplaceValue(TSettingsLine& line, const TSettingKey& key, const String& value) {
  String& bytes = line.bytes;
  const int before = line.valueAt - 1;
  const int room = RoomBehind(before);
  if (room < 1) return false;
  if (key.form == formFlag) {
    const int replaced = line.value.Empty() ? 0 : 1;
    bytes = bytes.Copy(1, before) + value + bytes.Copy(line.valueAt + replaced, bytes.Length());
  } else {
    bytes = bytes.Copy(1, before) + value.Copy(1, room) + kLineEnd;
  }
  return true;
}

/// The configuration text with the record's values in the place of the old ones, and the keys that
/// it lacks behind it.
String RewrittenText(const TQovSettings& record, const String& old) {
  bool written[std::size(kSettingKeys)] = {};
  String text;
  text.Reserve(old.Length());
  TSettingsLines lines(old);
  for (TSettingsLine line; lines.Next(line);) {
    const TSettingKey* key = line.assigns ? FindSettingKey(line.key) : nullptr;
    if (key != nullptr && key->saved && ReplaceValue(line, *key, ValueText(record, *key))) {
      written[key - kSettingKeys] = true;
    }
    text += line.bytes;
  }
  if (!text.Empty() && text[text.Length()] != '\n') text += kLineEnd;
  for (const TSettingKey& key : kSettingKeys) {
    if (!key.saved || written[&key - kSettingKeys]) continue;
    const String start = String(key.name) + "=";
    text += start + ValueText(record, key).Copy(1, RoomBehind(start.Length())) + kLineEnd;
  }
  return text;
}

/// Gives the new file the owner and mode of the old one. False when it would get another owner; a
/// group that cannot be given loses its rights instead.
bool TakeOwnerAndMode(int fd, const struct stat& old) {
  struct stat now;
  if (fstat(fd, &now) != 0) return false;
  mode_t mode = old.st_mode & 07777;
  if (now.st_uid != old.st_uid && fchown(fd, old.st_uid, static_cast<gid_t>(-1)) != 0) return false;
  if (now.st_gid != old.st_gid && fchown(fd, static_cast<uid_t>(-1), old.st_gid) != 0) {
    mode &= static_cast<mode_t>(~S_IRWXG);
  }
  return fchmod(fd, mode) == 0;
}

bool WriteAll(int fd, const String& text) {
  for (int done = 0; done < text.Length();) {
    const ssize_t put = write(fd, text.Data() + done, static_cast<size_t>(text.Length() - done));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    done += static_cast<int>(put);
  }
  return true;
}

/// Creates the file, never following a link, and sees it onto the disk. On failure there is none.
bool CreateLike(const char* path, const struct stat& old, const String& text) {
  TFd file = CreateFresh(path);
  if (!file) return false;
  const bool complete =
      TakeOwnerAndMode(file.Get(), old) && WriteAll(file.Get(), text) && fsync(file.Get()) == 0;
  if (close(file.Release()) == 0 && complete) return true;
  unlink(path);
  return false;
}

/// Gives the file the name of the old one as well, so that at no time a configuration is missing:
/// the process may end here. Without links on the file system it is renamed. False when neither
/// could be done.
bool KeepOld(const char* path, const char* oldPath) {
  unlink(oldPath);
  return link(path, oldPath) == 0 || rename(path, oldPath) == 0;
}

void SyncFolderOf(const String& path) {
  const String folder = ExtractFilePath(path);
  const TFd fd(open(folder.Empty() ? "." : folder.CStr(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) fsync(fd.Get());
}

}  // namespace

const TSettingKey* FindSettingKey(const String& name) {
  const auto* found = std::find_if(std::begin(kSettingKeys), std::end(kSettingKeys),
                                   [&](const TSettingKey& key) { return name == key.name; });
  return found == std::end(kSettingKeys) ? nullptr : found;
}

int TQovSettings::LoadOptions_(String& err) {
  err = "";
  SetDefaults(*this);
  if (configfile[0] == 0) {
    err = "Configuration file is not specified";
    return 0;
  }
  String text;
  if (!ReadSettingsFile(configfile, text, nullptr)) {
    err = Quoted("Cannot open configuration file", configfile);
    return 0;
  }
  StoreLines(*this, text);
  PutRight(err);
  if (timeout == 0) timeout = kDefaultTimeoutMs;
  const String faults = MandatoryFaults(*this);
  err += faults;
  return faults.Empty() ? 1 : 0;
}

void TQovSettings::PutRight(String& err) {
  effectivefilter = EffectiveFilter(filterlist, filtermarks, err);
  const String agentFolder = ExtractFilePath(qovpath);
  if (!agentFolder.Empty()) {
    CompleteScript(cpuusagescript, agentFolder);
    CompleteScript(proclistscript, agentFolder);
    CompleteScript(proccntscript, agentFolder);
  }
  tmpdir = SettledTempFolder(tmpdir);
  SettleTempFolder(tmpdir);
}

int TQovSettings::SaveOptions_(String& err) {
  err = "";
  PutRight(err);
  if (configfile[0] == 0) {
    err = "Configuration file is not specified";
    return 0;
  }
  const String path = configfile;
  const String newPath = path + ".New";
  const String oldPath = path + ".Old";
  String text;
  struct stat facts;
  if (!ReadSettingsFile(configfile, text, &facts)) {
    err = Quoted("Cannot open configuration file", path);
    return 0;
  }
  if (!CreateLike(newPath.CStr(), facts, RewrittenText(*this, text))) {
    err = Quoted("Cannot create new configuration file", newPath);
    return 0;
  }
  const bool kept = KeepOld(path.CStr(), oldPath.CStr());
  if (rename(newPath.CStr(), path.CStr()) != 0) {
    err = Quoted("Cannot overwrite configuration file", path);
    if (kept) rename(oldPath.CStr(), path.CStr());
    unlink(newPath.CStr());
    return 0;
  }
  SyncFolderOf(path);
  return 1;
}

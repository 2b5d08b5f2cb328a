#include "config/settingsrecord.h"

#include <fcntl.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <iterator>
#include <string>

#include "config/settingslines.h"
#include "config/tempfolder.h"
#include "core/owned.h"
#include "fs/files.h"
#include "fs/paths.h"
#include "protocol/qov_const.h"

TQovSettings QovSettings;

namespace {

constexpr char kLineEnd[] = "\r\n";

String Quoted(const char* text, const String& path) { return String(text) + " '" + path + "'"; }

/// False with the reason in `err`.
bool ReadConfiguration(const char* path, String& text, struct stat& facts, String& err) {
  if (ReadSettingsFile(path, text, facts)) return true;
  err = path[0] == 0 ? "Configuration file is not specified"
                     : Quoted("Cannot open configuration file", path);
  return false;
}

void StoreValue(TQovSettings& record, const TSettingKey& key, const String& value) {
  if (key.form == formText) {
    record.*key.field.text = value;
  } else if (key.form == formLines) {
    String items = qovDecodeStrings(value);
    record.*key.field.text = items.Trim().RemoveRepeats(' ').ReplaceAll(" ", "\r\n", 1);
  } else if (key.form == formFlag) {
    record.*key.field.number = !value.Empty() && value[1] == '1' ? 1 : 0;
  } else if (key.form == formNumber || record.*key.field.number == 0) {
    record.*key.field.number = qovDecodeInt(value);
  }
}

void SetDefaults(TQovSettings& record) {
  for (const TSettingKey& key : kSettingKeys) {
    if (key.preset != nullptr) StoreValue(record, key, key.preset);
  }
  record.service = record.ntlog = record.perfcounter = record.reserved = 0;
  record.snmp = 1;
}

void StoreLines(TQovSettings& record, const String& text) {
  TSettingsLines lines(text);
  for (TSettingsLine line; lines.Next(line);) {
    if (!line.assigns) continue;
    const TSettingKey* key = FindSettingKey(line.key);
    if (key == nullptr) continue;
    StoreValue(record, *key, line.value);
    // Deliberate: whichever record is being loaded, the process learns its own path.
    if (key->field.text == &TQovSettings::qovpath) QovSettings.qovpath = line.value;
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

/// CR LF, then each item of `list` that is marked '1' and CR LF. `err` is set, and the rest left
/// out, when the marks outnumber the items.
String EffectiveFilter(const String& list, const String& marks, String& err) {
  String filter = "\r\n";
  int done = 0;
  for (int i = 1; i <= marks.Length(); ++i) {
    const int rest = list.Length() - done;
    const int end = mempos(list.CStr() + done, rest, "\n", 1);
    String item = list.Copy(done + 1, end != 0 ? end - 1 : rest);
    done += end != 0 ? end : rest;
    if (item.Trim().Empty()) {
      err = "FilterMarks has less items than FilterList";
      break;
    }
    if (marks[i] == '1') (filter += item) += "\r\n";
  }
  return filter;
}

/// A text as it can stand on one line: the line breaks between items become blanks. Deliberate: a
/// line feed alone does too, as what stands behind it would be a line of the file.
String OneLine(const String& text) {
  String line;
  line.Reserve(text.Length());
  for (int i = 1; i <= text.Length(); ++i) {
    const bool feeds = text[i] == '\r' && i < text.Length() && text[i + 1] == '\n';
    if (!feeds) line += text[i] == '\n' ? ' ' : text[i];
  }
  return line;
}

String ValueText(const TQovSettings& record, const TSettingKey& key) {
  if (key.field.text != nullptr) return OneLine(record.*key.field.text);
  const int number = record.*key.field.number;
  if (key.form == formFlag) return number != 0 ? "1" : "0";
  return std::to_string(number).c_str();
}

bool EndsInLineFeed(const String& text) { return !text.Empty() && text[text.Length()] == '\n'; }

/// Puts the value into the line, cut so that it is read back in one piece. False when the line has
/// no room for any: it is left alone then.
bool ReplaceValue(TSettingsLine& line, const TSettingKey& key, const String& value) {
  String& bytes = line.bytes;
  const int before = line.valueAt - 1;
  const int room = kSettingsLineBytes - before;
  if (room < 1) return false;
  if (key.form == formFlag) {
    const int replaced = line.value.Empty() ? 0 : 1;
    bytes = bytes.Copy(1, before) + value + bytes.Copy(line.valueAt + replaced, bytes.Length());
  } else {
    bytes = bytes.Copy(1, before) + value.Copy(1, room) + kLineEnd;
  }
  return true;
}

/// The line of a key that the file lacks. Deliberate: the value stands there whole, though a load
/// reads what is too long as lines of their own; cut only when one of these would set something.
String AppendedLine(const TSettingKey& key, const String& value) {
  const String text = String(key.name) + "=" + value;
  TSettingsLines pieces(text);
  TSettingsLine piece;
  for (pieces.Next(piece); pieces.Next(piece);) {
    if (piece.assigns && FindSettingKey(piece.key) != nullptr) {
      return text.Copy(1, kSettingsLineBytes) + kLineEnd;
    }
  }
  return text + kLineEnd;
}

/// The text with the record's values in place of the old ones; the keys that it lacks follow.
String RewrittenText(const TQovSettings& record, const String& old) {
  bool written[std::size(kSettingKeys)] = {};
  String text;
  text.Reserve(old.Length());
  TSettingsLines lines(old);
  bool ended = false;  // the line's own end comes as the next piece
  for (TSettingsLine line; lines.Next(line);) {
    const bool superfluous = ended && (line.bytes == "\n" || line.bytes == "\r\n");
    const bool open = !EndsInLineFeed(line.bytes);
    const TSettingKey* key = line.assigns ? FindSettingKey(line.key) : nullptr;
    if (key != nullptr && key->saved && ReplaceValue(line, *key, ValueText(record, *key))) {
      written[key - kSettingKeys] = true;
    }
    ended = open && EndsInLineFeed(line.bytes);
    if (!superfluous) text += line.bytes;
  }
  if (!text.Empty() && !EndsInLineFeed(text)) text += kLineEnd;
  for (const TSettingKey& key : kSettingKeys) {
    if (key.saved && !written[&key - kSettingKeys]) {
      text += AppendedLine(key, ValueText(record, key));
    }
  }
  return text;
}

/// Gives the new file the owner and mode of the old one; false when it would get another owner. A
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

/// Creates the file, never following a link, and sees it onto the disk. On failure there is none.
bool CreateLike(const char* path, const struct stat& old, const String& text) {
  TFd file = CreateFresh(path);
  if (!file) return false;
  const bool complete = TakeOwnerAndMode(file.Get(), old) &&
                        WriteFully(file.Get(), text.CStr(), static_cast<size_t>(text.Length())) &&
                        fsync(file.Get()) == 0;
  if (close(file.Release()) == 0 && complete) return true;
  unlink(path);
  return false;
}

void SyncFolderOf(const String& path) {
  const String folder = ExtractFilePath(path);
  const TFd fd(open(folder.Empty() ? "." : folder.CStr(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (fd) fsync(fd.Get());
}

}  // namespace

const TSettingKey* FindSettingKey(const String& name) {
  for (const TSettingKey& key : kSettingKeys) {
    if (name == key.name) return &key;
  }
  return nullptr;
}

int TQovSettings::LoadOptions_(String& err) {
  err = "";
  SetDefaults(*this);
  String text;
  struct stat facts;
  if (!ReadConfiguration(configfile, text, facts, err)) return 0;
  StoreLines(*this, text);
  PutRight(err);
  if (timeout == 0) timeout = 4000;
  const String faults = MandatoryFaults(*this);
  err += faults;
  return faults.Empty() ? 1 : 0;
}

void TQovSettings::PutRight(String& err) {
  effectivefilter = EffectiveFilter(filterlist, filtermarks, err);
  const String agentFolder = ExtractFilePath(qovpath);
  // Deliberate: an empty name is completed too; a script that is not set does not exist.
  for (String* helper : {&cpuusagescript, &proclistscript, &proccntscript}) {
    const bool bare = ExtractFilePath(*helper).Empty();
    if (bare && !agentFolder.Empty()) *helper = agentFolder + "/" + *helper;
  }
  if (tmpdir.Empty() || !DirectoryExists(tmpdir.CStr())) {
    tmpdir = TempFolder().value_or("");
    if (!DirectoryExists(tmpdir.CStr())) tmpdir = ".";
  }
  tmpdir = ExcludeTrailingPathDelimiter(tmpdir);
  SettleTempFolder(tmpdir);
}

int TQovSettings::SaveOptions_(String& err) {
  err = "";
  PutRight(err);
  String text;
  struct stat facts;
  if (!ReadConfiguration(configfile, text, facts, err)) return 0;
  const String newPath = String(configfile) + ".New";
  const String oldPath = String(configfile) + ".Old";
  text = RewrittenText(*this, text);
  if (text.Length() > kMaxSettingsFileBytes) {  // no load would take it
    err = Quoted("Settings exceed 16 MiB of configuration file", configfile);
    return 0;
  }
  if (!CreateLike(newPath.CStr(), facts, text)) {
    // Deliberate: what could not be written whole is not put in place either.
    err = Quoted("Cannot create new configuration file", newPath);
    return 0;
  }
  // The old file keeps its name, so that at no time a configuration is missing: the process may end
  // here. Without links on the file system it is renamed.
  unlink(oldPath.CStr());
  const bool kept =
      link(configfile, oldPath.CStr()) == 0 || rename(configfile, oldPath.CStr()) == 0;
  if (rename(newPath.CStr(), configfile) == 0) {
    SyncFolderOf(configfile);
    return 1;
  }
  err = Quoted("Cannot overwrite configuration file", configfile);
  if (kept) rename(oldPath.CStr(), configfile);
  unlink(newPath.CStr());
  return 0;
}

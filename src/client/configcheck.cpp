#include "client/configcheck.h"

#include <arpa/inet.h>
#include <stdio.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <set>
#include <string>

#include "client/target.h"
#include "config/settingslines.h"
#include "config/settingsrecord.h"
#include "core/iplib.h"
#include "core/owned.h"
#include "fs/files.h"
#include "fs/paths.h"

namespace {

constexpr int kShortPasswordBytes = 12;

/// A text of the loader and the key that it is about.
struct TLoaderText {
  const char* text;
  const char* key;
  bool error;
};

constexpr TLoaderText kLoaderTexts[] = {
    {"FilterMarks has less items than FilterList", "filtermarks", false},
    {"TCP post is not specified!", "port", true},
    {"Password is not specified!", "password", true},
    {"Full path to the agent is not specified!", "qovpath", true},
    {"Invalid path to the agent!", "qovpath", true},
};

struct THelper {
  const char* key;
  String TQovSettings::*script;
  int TQovSettings::*enable;
};

constexpr THelper kHelpers[] = {
    {"proccntscript", &TQovSettings::proccntscript, &TQovSettings::process},
    {"proclistscript", &TQovSettings::proclistscript, &TQovSettings::process},
    {"cpuusagescript", &TQovSettings::cpuusagescript, &TQovSettings::cpuusage},
};

/// The items of a text whose lines end in CR LF, empty ones left out.
std::vector<std::string> Items(const String& text) {
  std::vector<std::string> items;
  const int count = static_cast<int>(std::count(text.CStr(), text.CStr() + text.Length(), '\n'));
  for (int i = 1; i <= count + 1; ++i) {
    const String item = text.GetWord(i, '\n').Trim();
    if (!item.Empty()) items.push_back(StdString(item));
  }
  return items;
}

/// Whether the agent, running as the file's owner when this is root, may make files in the folder.
bool MayWriteFolder(const char* folder, const struct stat& file) {
  if (geteuid() != 0) return access(folder, W_OK | X_OK) == 0;
  if (file.st_uid == 0) return true;
  struct stat facts;
  if (stat(folder, &facts) != 0) return false;
  const mode_t needed = facts.st_uid == file.st_uid   ? S_IWUSR | S_IXUSR
                        : facts.st_gid == file.st_gid ? S_IWGRP | S_IXGRP
                                                      : S_IWOTH | S_IXOTH;
  return (facts.st_mode & needed) == needed;
}

class TConfigCheck {
 public:
  explicit TConfigCheck(const char* path) : path_(path) {
    snprintf(record_.configfile, sizeof record_.configfile, "%s", path);
  }

  std::vector<TConfigFinding> Run() {
    String err;
    record_.LoadOptions_(err);
    if (!ReadSettingsFile(record_.configfile, text_, facts_)) {
      Add(0, true, StdString(err));
      return findings_;
    }
    CheckLines();
    for (const TLoaderText& row : kLoaderTexts) {
      if (err.Pos(row.text) != 0) Add(LineOf(row.key), row.error, row.text);
    }
    CheckValues();
    CheckFilter();
    CheckFile();
    CheckTempFolder();
    CheckHelpers();
    CheckPort();
    std::stable_sort(findings_.begin(), findings_.end(),
                     [](const auto& a, const auto& b) { return a.line < b.line; });
    return findings_;
  }

 private:
  void Add(int line, bool error, const std::string& text) {
    findings_.push_back({line, error, String(text.data(), static_cast<int>(text.size()))});
  }
  void Warn(int line, const std::string& text) { Add(line, false, text); }
  void Warn(const char* key, const std::string& text) { Warn(LineOf(key), text); }

  /// The line that gives the key its value, 0 for none.
  int LineOf(const std::string& key) const {
    const auto found = given_.find(key);
    return found == given_.end() ? 0 : found->second.number;
  }

  void CheckLines() {
    TSettingsLines lines(text_);
    int former = 0;
    int reported = 0;
    for (TSettingsLine line; lines.Next(line); former = line.number) {
      const bool piece = line.number == former;
      if (piece && line.number != reported && line.bytes != "\n" && line.bytes != "\r\n") {
        Warn(line.number, "longer than 1023 characters: the rest is read as a line of its own");
        reported = line.number;
      }
      if (line.assigns) CheckKey(line, piece);
    }
  }

  void CheckKey(const TSettingsLine& line, bool piece) {
    const std::string name = StdString(line.key);
    const TSettingKey* key = FindSettingKey(line.key);
    if (key == nullptr) {
      if (!piece) Warn(line.number, "unknown key '" + name + "'");
      return;
    }
    const int earlier = LineOf(name);
    const bool firstCounts = key->form == formNumberOnce;
    if (earlier != 0) {
      Warn(line.number, "'" + name + "' stands in line " + std::to_string(earlier) +
                            " already: the " + (firstCounts ? "first" : "last") + " one counts");
    }
    if (earlier == 0 || !firstCounts) given_[name] = line;
  }

  void CheckValues() {
    const int length = record_.password.Length();
    if (length > 0 && length < kShortPasswordBytes) {
      Warn("password",
           "the password is shorter than " + std::to_string(kShortPasswordBytes) + " characters");
    }
    if (record_.timeout > 0 && record_.timeout < 1000) {
      Warn("timeout", "a timeout below 1000 milliseconds is one of 0 seconds");
    }
  }

  void CheckFilter() {
    const size_t items = Items(record_.filterlist).size();
    const size_t marks = static_cast<size_t>(record_.filtermarks.Length());
    if (items > marks) {
      Warn("filterlist", std::to_string(items) + " items, but filtermarks has " +
                             std::to_string(marks) + ": those without a mark are not used");
    }
    const std::vector<std::string> admitted = Items(record_.effectivefilter);
    const std::set<std::string> listed(admitted.begin(), admitted.end());
    std::string example;
    int count = 0;
    for (const std::string& item : admitted) {
      const size_t dot = item.rfind('.');
      if (dot == std::string::npos || inet_addr(item.c_str()) == INADDR_NONE) continue;
      for (size_t end = item.size() - 1; end > dot + 1; --end) {
        const std::string part = item.substr(0, end);
        if (listed.count(part) != 0) continue;
        if (count++ == 0) example = part + " as a part of " + item;
      }
    }
    if (count == 0) return;
    const std::string others = count > 1 ? ", and " + std::to_string(count - 1) + " more" : "";
    Warn("filterlist", "the filter also admits " + example + others);
  }

  void CheckFile() {
    if ((facts_.st_mode & (S_IRGRP | S_IROTH)) != 0) {
      Warn(0, "the file holds the password and is readable by others than its owner");
    }
    const String folder = ExtractFilePath(path_);
    // Only a manager's change makes the agent write.
    if (record_.allowmanage != 0 && !MayWriteFolder(folder.Empty() ? "." : folder.CStr(), facts_)) {
      Warn(0, "the agent cannot rewrite the file: its folder is not writable");
    }
  }

  void CheckTempFolder() {
    const auto given = given_.find("tmpdir");
    const std::string wanted = given == given_.end() ? "" : StdString(given->second.value);
    const std::string used = ": '" + StdString(record_.tmpdir) + "' is used";
    struct stat facts;
    if (wanted.empty()) {
      Warn("tmpdir", "no temporary folder is set" + used);
    } else if (stat(wanted.c_str(), &facts) != 0 || !S_ISDIR(facts.st_mode)) {
      Warn("tmpdir", "'" + wanted + "' is not a folder" + used);
    } else if ((facts.st_mode & S_IRWXO) != 0) {
      Warn("tmpdir", "the temporary folder is open to every user");
    }
  }

  void CheckHelpers() {
    for (const THelper& helper : kHelpers) {
      if (record_.*helper.enable == 0) continue;
      const String& script = record_.*helper.script;
      const std::string name = std::string(helper.key) + " '" + StdString(script) + "'";
      if (LineOf(helper.key) == 0) {
        Warn(0, std::string(helper.key) + " is not set");
      } else if (!FileExists(script.CStr())) {
        Warn(helper.key, name + " does not exist");
      } else if (access(script.CStr(), X_OK) != 0) {
        Warn(helper.key, name + " is not executable");
      }
    }
  }

  void CheckPort() {
    if (record_.port < 1 || record_.port > 65535) return;
    String err;
    const char* host = record_.host.Empty() ? nullptr : record_.host.CStr();
    const int listener = TcpListen(host, record_.port, nullptr, err);
    if (listener != 0) {
      close(listener);
    } else {
      Warn("port", "the port is taken (by the agent, if it runs) or may not be opened");
    }
  }

  const String path_;
  TQovSettings record_;
  String text_;
  struct stat facts_ {};
  std::map<std::string, TSettingsLine> given_;
  std::vector<TConfigFinding> findings_;
};

}  // namespace

std::vector<TConfigFinding> CheckConfig(const char* path) { return TConfigCheck(path).Run(); }

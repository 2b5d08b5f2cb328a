#pragma once

#include "config/settings.h"

/// How a key's value is written in the configuration file.
enum TSettingForm {
  formText,        ///< the rest of the line
  formLines,       ///< items on one line separated by blanks, CR LF between them in the record
  formNumber,      ///< decimal, saturated
  formNumberOnce,  ///< a number that is taken only while the record holds 0
  formFlag,        ///< on when the first character is '1'
};

/// One key of the configuration file.
struct TSettingKey {
  const char* name;  ///< lower case, as compared with the file
  TSettingForm form;
  String TQovSettings::*text;  ///< formText and formLines, else null
  int TQovSettings::*number;   ///< the number and flag forms, else null
  const char* preset;          ///< value at the start of a load; null keeps the old one
  bool saved;                  ///< false: read from the file, never written to it
};

namespace setting {

constexpr TSettingKey Text(const char* name, String TQovSettings::*field, const char* preset) {
  return {name, formText, field, nullptr, preset, true};
}
constexpr TSettingKey Lines(const char* name, String TQovSettings::*field, const char* preset) {
  return {name, formLines, field, nullptr, preset, true};
}
constexpr TSettingKey Number(const char* name, int TQovSettings::*field, const char* preset) {
  return {name, formNumber, nullptr, field, preset, true};
}
constexpr TSettingKey NumberOnce(const char* name, int TQovSettings::*field) {
  return {name, formNumberOnce, nullptr, field, nullptr, true};
}
constexpr TSettingKey Flag(const char* name, int TQovSettings::*field, const char* preset) {
  return {name, formFlag, nullptr, field, preset, true};
}
constexpr TSettingKey Unsaved(TSettingKey key) {
  key.saved = false;
  return key;
}

}  // namespace setting

/// Every key. Row order is the order in which a save appends the keys that a file lacks.
inline constexpr TSettingKey kSettingKeys[] = {
    setting::Text("host", &TQovSettings::host, nullptr),
    setting::NumberOnce("port", &TQovSettings::port),  // the command line wins over the file
    setting::Number("timeout", &TQovSettings::timeout, nullptr),  // 0 becomes 4000 after the load
    setting::Text("comment", &TQovSettings::comment, ""),
    setting::Text("password", &TQovSettings::password, ""),
    setting::Flag("filteractive", &TQovSettings::filteractive, "0"),
    // Deliberate: the defaults of list and marks are crossed; without a list in the file a load
    // warns about the marks. Harmless, as the filter is off by default.
    setting::Text("filtermarks", &TQovSettings::filtermarks, "127.0.0.1"),
    setting::Lines("filterlist", &TQovSettings::filterlist, "1"),
    setting::Flag("logsuccess", &TQovSettings::logsuccess, "0"),
    setting::Flag("logfails", &TQovSettings::logfails, "1"),
    setting::Text("oklogfile", &TQovSettings::oklogfile, "log1.txt"),
    setting::Text("badlogfile", &TQovSettings::badlogfile, "log2.txt"),
    setting::Text("verboselogfile", &TQovSettings::verboselogfile, nullptr),
    setting::Flag("allowupdates", &TQovSettings::allowupdates, "1"),
    setting::Flag("allowmanage", &TQovSettings::allowmanage, "1"),
    setting::Text("updateaddr", &TQovSettings::updateaddr, "127.0.0.1"),
    setting::Text("manageaddr", &TQovSettings::manageaddr, "127.0.0.1"),
    setting::Flag("unc", &TQovSettings::unc, "1"),
    setting::Flag("freespace", &TQovSettings::freespace, "1"),
    setting::Flag("foldersize", &TQovSettings::foldersize, "1"),
    setting::Flag("countfiles", &TQovSettings::countfiles, "1"),
    setting::Flag("fileexists", &TQovSettings::fileexists, "1"),
    setting::Flag("filecrc", &TQovSettings::filecrc, "1"),
    setting::Flag("comparefiles", &TQovSettings::comparefiles, "1"),
    setting::Flag("process", &TQovSettings::process, "1"),
    setting::Flag("cpuusage", &TQovSettings::cpuusage, "1"),
    setting::Flag("script", &TQovSettings::script, "1"),
    setting::Flag("external", &TQovSettings::external, "1"),
    setting::Flag("ping", &TQovSettings::ping, "1"),
    setting::Flag("tcp", &TQovSettings::tcp, "1"),
    setting::Flag("udp", &TQovSettings::udp, "1"),
    setting::Flag("textlog", &TQovSettings::textlog, "1"),
    setting::Flag("shellscript", &TQovSettings::shellscript, "1"),
    setting::Flag("executeaction", &TQovSettings::executeaction, "0"),
    setting::Flag("tcpudpaction", &TQovSettings::tcpudpaction, "0"),
    setting::Flag("syslogaction", &TQovSettings::syslogaction, "0"),
    setting::Unsaved(setting::Text("qovpath", &TQovSettings::qovpath, "")),
    setting::Unsaved(setting::Text("tmpdir", &TQovSettings::tmpdir, "")),
    setting::Unsaved(setting::Text("pidfile", &TQovSettings::pidfile, "")),
    setting::Unsaved(setting::Number("delayforscripts", &TQovSettings::delayforscripts, "90000")),
    setting::Unsaved(setting::Text("cpuusagescript", &TQovSettings::cpuusagescript, nullptr)),
    setting::Unsaved(setting::Text("proclistscript", &TQovSettings::proclistscript, nullptr)),
    setting::Unsaved(setting::Text("proccntscript", &TQovSettings::proccntscript, nullptr)),
};

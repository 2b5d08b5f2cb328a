#pragma once

#include "core/wqstring.h"

/// The whole configuration. A record of its own belongs to one thread. Flags hold 0 or 1.
struct TQovSettings {
  // Run modes of the command line, never read from the file.
  unsigned interactive = 0;  ///< 1: foreground, messages on standard output
  unsigned verbose = 0;      ///< 1: messages go to the verbose log too
  unsigned debug = 0;        ///< 1: messages of the debug kind are emitted
  char configfile[512] = {};

  String tmpdir;   ///< folder for temporary files
  String qovpath;  ///< full path of the agent's executable
  String pidfile;
  String host;              ///< address to listen on, empty for all
  int port = 0;             ///< TCP port to serve
  int timeout = 0;          ///< idle limit of a connection, milliseconds
  int delayforscripts = 0;  ///< pause before the CPU script and shell scripts, microseconds
  String password;
  String comment;
  String verboselogfile;
  int logsuccess = 0;
  String oklogfile;
  int filteractive = 0;
  int logfails = 0;
  String badlogfile;
  String filterlist;  ///< items separated by CR LF
  int allowupdates = 0;
  String updateaddr;
  String filtermarks;  ///< one character an item of filterlist, '1' = used
  int allowmanage = 0;
  String manageaddr;
  String effectivefilter;  ///< CR LF, then each marked item and CR LF; built by PutRight

  // One enable a test or action. The five without a key stand for tests of other platforms.
  int unc = 0, freespace = 0, foldersize = 0, countfiles = 0, fileexists = 0, filecrc = 0;
  int comparefiles = 0, process = 0, service = 0, ntlog = 0, cpuusage = 0, perfcounter = 0;
  int snmp = 0, script = 0, external = 0, ping = 0, tcp = 0, udp = 0, textlog = 0, reserved = 0;
  int shellscript = 0, executeaction = 0, tcpudpaction = 0, syslogaction = 0;

  String cpuusagescript;
  String proclistscript;
  String proccntscript;

  /// Sets the defaults, reads `configfile`, normalises and checks. Returns 1 when all mandatory
  /// settings are valid (`err` may hold a warning), else 0 with the reasons in `err` and the record
  /// left with the defaults and what the file set.
  /// Deliberate: a "qovpath" in the file goes into QovSettings too, whichever record is loaded.
  int LoadOptions_(String& err);
  /// Rewrites `configfile` in place, keeping comments, order and unknown lines. Returns 1, or 0
  /// with the reason in `err` and the file as it was.
  int SaveOptions_(String& err);
  /// Rebuilds the effective filter, completes script paths, settles the temporary folder. May put
  /// a warning into `err`.
  void PutRight(String& err);
};

/// The process-wide settings; see config/settings.h for who may look at them.
extern TQovSettings QovSettings;

/// How a key's value is written in the configuration file.
enum TSettingForm {
  formText,        ///< the rest of the line
  formLines,       ///< items on one line separated by blanks, CR LF between them in the record
  formNumber,      ///< decimal, saturated
  formNumberOnce,  ///< a number that is taken only while the record holds 0
  formFlag,        ///< on when the first character is '1'
};

/// A field of the record: a text or a number.
struct TSettingField {
  constexpr TSettingField(String TQovSettings::*field) : text(field) {}
  constexpr TSettingField(int TQovSettings::*field) : number(field) {}
  String TQovSettings::*text = nullptr;  ///< formText and formLines, else null
  int TQovSettings::*number = nullptr;   ///< the number and flag forms, else null
};

/// One key of the configuration file.
struct TSettingKey {
  const char* name;  ///< lower case, as compared with the file
  TSettingForm form;
  TSettingField field;
  const char* preset;  ///< value at the start of a load; null keeps the old one
  bool saved = true;   ///< false: read from the file, never written to it
};
inline constexpr bool kUnsaved = false;

/// Every key. Row order is the order in which a save appends the keys that a file lacks.
inline constexpr TSettingKey kSettingKeys[] = {
    {"host", formText, &TQovSettings::host, nullptr},
    {"port", formNumberOnce, &TQovSettings::port, nullptr},  // the command line wins over the file
    {"timeout", formNumber, &TQovSettings::timeout, nullptr},
    {"comment", formText, &TQovSettings::comment, ""},
    {"password", formText, &TQovSettings::password, ""},
    {"filteractive", formFlag, &TQovSettings::filteractive, "0"},
    // Deliberate: the defaults of list and marks are crossed; without a list in the file a load
    // warns about the marks. Harmless, as the filter is off by default.
    {"filtermarks", formText, &TQovSettings::filtermarks, "127.0.0.1"},
    {"filterlist", formLines, &TQovSettings::filterlist, "1"},
    {"logsuccess", formFlag, &TQovSettings::logsuccess, "0"},
    {"logfails", formFlag, &TQovSettings::logfails, "1"},
    {"oklogfile", formText, &TQovSettings::oklogfile, "log1.txt"},
    {"badlogfile", formText, &TQovSettings::badlogfile, "log2.txt"},
    {"verboselogfile", formText, &TQovSettings::verboselogfile, nullptr},
    {"allowupdates", formFlag, &TQovSettings::allowupdates, "1"},
    {"allowmanage", formFlag, &TQovSettings::allowmanage, "1"},
    {"updateaddr", formText, &TQovSettings::updateaddr, "127.0.0.1"},
    {"manageaddr", formText, &TQovSettings::manageaddr, "127.0.0.1"},
    {"unc", formFlag, &TQovSettings::unc, "1"},
    {"freespace", formFlag, &TQovSettings::freespace, "1"},
    {"foldersize", formFlag, &TQovSettings::foldersize, "1"},
    {"countfiles", formFlag, &TQovSettings::countfiles, "1"},
    {"fileexists", formFlag, &TQovSettings::fileexists, "1"},
    {"filecrc", formFlag, &TQovSettings::filecrc, "1"},
    {"comparefiles", formFlag, &TQovSettings::comparefiles, "1"},
    {"process", formFlag, &TQovSettings::process, "1"},
    {"cpuusage", formFlag, &TQovSettings::cpuusage, "1"},
    {"script", formFlag, &TQovSettings::script, "1"},
    {"external", formFlag, &TQovSettings::external, "1"},
    {"ping", formFlag, &TQovSettings::ping, "1"},
    {"tcp", formFlag, &TQovSettings::tcp, "1"},
    {"udp", formFlag, &TQovSettings::udp, "1"},
    {"textlog", formFlag, &TQovSettings::textlog, "1"},
    {"shellscript", formFlag, &TQovSettings::shellscript, "1"},
    {"executeaction", formFlag, &TQovSettings::executeaction, "0"},
    {"tcpudpaction", formFlag, &TQovSettings::tcpudpaction, "0"},
    {"syslogaction", formFlag, &TQovSettings::syslogaction, "0"},
    {"qovpath", formText, &TQovSettings::qovpath, "", kUnsaved},
    {"tmpdir", formText, &TQovSettings::tmpdir, "", kUnsaved},
    {"pidfile", formText, &TQovSettings::pidfile, "", kUnsaved},
    {"delayforscripts", formNumber, &TQovSettings::delayforscripts, "90000", kUnsaved},
    {"cpuusagescript", formText, &TQovSettings::cpuusagescript, nullptr, kUnsaved},
    {"proclistscript", formText, &TQovSettings::proclistscript, nullptr, kUnsaved},
    {"proccntscript", formText, &TQovSettings::proccntscript, nullptr, kUnsaved},
};

/// The row of a key in lower case; null for an unknown one.
const TSettingKey* FindSettingKey(const String& name);

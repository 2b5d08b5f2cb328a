#pragma once

#include "config/settingsrecord.h"

/// A setting that "SetSettings" stores. On the wire a flag is on when it is exactly "1", and the
/// line breaks between items are "%0D%0A".
struct TRemoteKey {
  const char* name;   ///< compared exactly
  TSettingForm form;  ///< any but formNumberOnce
  TSettingField field;
};

/// Every key that can be set from afar, in the order in which the client lists them.
/// Deliberate: "Shell Script" is reported but cannot be set.
inline constexpr TRemoteKey kRemoteKeys[] = {
    {"Comment", formText, &TQovSettings::comment},
    {"Port", formNumber, &TQovSettings::port},
    {"Timeout", formNumber, &TQovSettings::timeout},
    {"Password", formText, &TQovSettings::password},
    {"LogOkConn", formFlag, &TQovSettings::logsuccess},
    {"LogBadConn", formFlag, &TQovSettings::logfails},
    {"OkLogFile", formText, &TQovSettings::oklogfile},
    {"BadLogFile", formText, &TQovSettings::badlogfile},
    {"Ping", formFlag, &TQovSettings::ping},
    {"TCP", formFlag, &TQovSettings::tcp},
    {"UDP", formFlag, &TQovSettings::udp},
    {"UNC", formFlag, &TQovSettings::unc},
    {"Drive Space", formFlag, &TQovSettings::freespace},
    {"Folder Size", formFlag, &TQovSettings::foldersize},
    {"Count Files", formFlag, &TQovSettings::countfiles},
    {"File Availability", formFlag, &TQovSettings::fileexists},
    {"File Compare", formFlag, &TQovSettings::comparefiles},
    {"Text Log", formFlag, &TQovSettings::textlog},
    {"File Integrity", formFlag, &TQovSettings::filecrc},
    {"Process", formFlag, &TQovSettings::process},
    {"Service", formFlag, &TQovSettings::service},
    {"NT Event Log", formFlag, &TQovSettings::ntlog},
    {"CPU Usage", formFlag, &TQovSettings::cpuusage},
    {"Perf Counter", formFlag, &TQovSettings::perfcounter},
    {"Script", formFlag, &TQovSettings::script},
    {"External", formFlag, &TQovSettings::external},
    {"SNMP", formFlag, &TQovSettings::snmp},
    {"Execute external command", formFlag, &TQovSettings::executeaction},
    {"TCP/UDP send", formFlag, &TQovSettings::tcpudpaction},
    {"Syslog", formFlag, &TQovSettings::syslogaction},
    {"IPFiltering", formFlag, &TQovSettings::filteractive},
    {"IPFilterAddr", formLines, &TQovSettings::filterlist},
    {"IPFilterMarks", formText, &TQovSettings::filtermarks},
    {"AllowUpdates", formFlag, &TQovSettings::allowupdates},
    {"AllowRManage", formFlag, &TQovSettings::allowmanage},
    {"UpdateAddr", formText, &TQovSettings::updateaddr},
    {"ManageAddr", formText, &TQovSettings::manageaddr},
};

#include <gtest/gtest.h>

#include "checks/actions.h"
#include "checks/files/diskfolder.h"
#include "checks/files/filetests.h"
#include "checks/log/textlog.h"
#include "checks/nettests.h"
#include "checks/process/proctests.h"
#include "support/handlercall.h"

TEST(Gates, OpenByTheirOwnSettingAlone) {
  using TSet = TQovSettings;
  constexpr char kTest[] = "600\ntest is not allowed";
  constexpr char kAction[] = "600\noperation is not allowed";
  const THandler handlers[] = {
      ProcessTest_UNC,         ProcessTest_FolderSize,    ProcessTest_FileExists,
      ProcessTest_FileCompare, ProcessTest_FileCRC,       ProcessTest_CountFiles,
      ProcessTest_TCP,         ProcessTest_UDP,           ProcessTest_CPU,
      ProcessTest_Process,     ProcessInfo_ProcessesList, ProcessTest_External,
      ProcessTest_ShellScript, ProcessTest_TextLog,       ProcessTest_TextLog2,
      ProcessAct_ExternalCmd,  ProcessAct_TCPSend,        ProcessAct_Syslog};
  int TSet::*const flags[] = {&TSet::unc,           &TSet::foldersize,   &TSet::fileexists,
                              &TSet::comparefiles,  &TSet::filecrc,      &TSet::countfiles,
                              &TSet::tcp,           &TSet::udp,          &TSet::cpuusage,
                              &TSet::process,       &TSet::process,      &TSet::external,
                              &TSet::shellscript,   &TSet::textlog,      &TSet::textlog,
                              &TSet::executeaction, &TSet::tcpudpaction, &TSet::syslogaction};
  for (size_t i = 0; i < std::size(handlers); ++i) {
    SCOPED_TRACE(i);
    const char* refusal = i < 15 ? kTest : kAction;  // the last three
    const TEnabledTests others(1, flags[i]);
    EXPECT_EQ(refusal, CallHandler(handlers[i], {}));
    const TEnabledTests own(0, flags[i]);
    EXPECT_NE(refusal, CallHandler(handlers[i], {}));
  }
  const TEnabledTests unc(0, &TSet::unc);  // any check of files opens the file list, unc does not
  EXPECT_EQ(kTest, CallHandler(ProcessInfo_GetFileList, {}));
  const TEnabledTests textlog(0, &TSet::textlog);
  EXPECT_EQ("200\n/\n0\n2\n", CallHandler(ProcessInfo_GetFileList, {}));
}

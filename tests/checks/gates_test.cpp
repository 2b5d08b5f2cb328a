#include <gtest/gtest.h>

#include "checks/actions.h"
#include "checks/files/diskfolder.h"
#include "checks/files/filelist.h"
#include "checks/files/filetests.h"
#include "checks/log/textlog.h"
#include "checks/nettests.h"
#include "checks/process/proctests.h"
#include "support/handlercall.h"

TEST(Gates, OpenByTheirOwnSettingAlone) {
  using TSet = TQovSettings;
  constexpr char kTest[] = "600\ntest is not allowed";
  constexpr char kAction[] = "600\noperation is not allowed";
  const struct {
    THandler handler;
    int TQovSettings::*flag;
    const char* refusal;
  } gates[] = {{ProcessTest_UNC, &TSet::unc, kTest},
               {ProcessTest_FolderSize, &TSet::foldersize, kTest},
               {ProcessTest_FileExists, &TSet::fileexists, kTest},
               {ProcessTest_FileCompare, &TSet::comparefiles, kTest},
               {ProcessTest_FileCRC, &TSet::filecrc, kTest},
               {ProcessTest_CountFiles, &TSet::countfiles, kTest},
               {ProcessTest_TCP, &TSet::tcp, kTest},
               {ProcessTest_UDP, &TSet::udp, kTest},
               {ProcessTest_Process, &TSet::process, kTest},
               {ProcessInfo_ProcessesList, &TSet::process, kTest},
               {ProcessTest_CPU, &TSet::cpuusage, kTest},
               {ProcessTest_External, &TSet::external, kTest},
               {ProcessTest_ShellScript, &TSet::shellscript, kTest},
               {ProcessTest_TextLog, &TSet::textlog, kTest},
               {ProcessTest_TextLog2, &TSet::textlog, kTest},
               {ProcessAct_ExternalCmd, &TSet::executeaction, kAction},
               {ProcessAct_TCPSend, &TSet::tcpudpaction, kAction},
               {ProcessAct_Syslog, &TSet::syslogaction, kAction}};
  for (const auto& gate : gates) {
    SCOPED_TRACE(&gate - gates);
    const TEnabledTests others(1, gate.flag);
    EXPECT_EQ(gate.refusal, CallHandler(gate.handler, {}));
    const TEnabledTests own(0, gate.flag);
    EXPECT_NE(gate.refusal, CallHandler(gate.handler, {}));
  }
  const TEnabledTests unc(0, &TSet::unc);  // any check of files opens the file list, unc does not
  EXPECT_EQ(kTest, CallHandler(ProcessInfo_GetFileList, {}));
  const TEnabledTests textlog(0, &TSet::textlog);
  EXPECT_EQ("200\n/\n0\n2\n", CallHandler(ProcessInfo_GetFileList, {}));
}

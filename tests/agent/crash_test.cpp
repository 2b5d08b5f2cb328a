#include "agent/crash.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "agent/flags.h"
#include "agent/wake.h"
#include "core/message.h"

namespace {

constexpr int kRestarted = 7;

/// An agent of this age gets SIGSEGV, in a process of its own that reports on standard error: as a
/// fault of the main loop gives it, or as another process sends it.
void Crash(int ageSec, bool faulted) {
  SetMessageSink([](const char* text, in_addr, MsgType, int, va_list) { fputs(text, stderr); });
  QovFlags.startTime = time(nullptr) - ageSec;
  OpenWake();
  InstallCrashHandler([] { _exit(kRestarted); });
  siginfo_t info = {};
  info.si_code = faulted ? int{SEGV_MAPERR} : int{SI_QUEUE};
  syscall(SYS_rt_tgsigqueueinfo, getpid(), syscall(SYS_gettid), SIGSEGV, &info);
  AnswerCrashMark();
  const bool ignored = signal(SIGSEGV, SIG_DFL) == SIG_IGN;
  _exit(QovFlags.reload == 1 && ignored ? kRestarted : 1);
}

TEST(CrashDeathTest, RestartsAnOldProcessOnly) {
  for (const bool faulted : {false, true}) {
    EXPECT_EXIT(Crash(181, faulted), testing::ExitedWithCode(kRestarted),
                testing::Eq("Segmentation fault!!\nRestarting..\n"));
    EXPECT_EXIT(Crash(170, faulted), testing::KilledBySignal(SIGSEGV),
                testing::Eq("Segmentation fault!!\n"));
  }
}

TEST(WakeTest, KeepsTheErrorNumber) {
  OpenWake();
  eventfd_write(WakeDescriptor(), 0xffff'ffff'ffff'fffe);  // one more does not fit
  errno = EDOM;
  WakeMainLoop();
  EXPECT_EQ(EDOM, errno);
}

}  // namespace

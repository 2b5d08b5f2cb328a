#include "agent/signals.h"

#include <gtest/gtest.h>

#include "agent/flags.h"
#include "support/scopes.h"

namespace {

constexpr int kBeyondGuardSec = 181;

TEST(SignalsTest, AnOldProcessRestartsAfterACrash) {
  const TMessageCapture messages;
  const time_t start = QovFlags.startTime;
  QovFlags.startTime -= kBeyondGuardSec;
  AnswerCrash();
  QovFlags.startTime = start;
  EXPECT_EQ("Segmentation fault!!\nRestarting..\n", messages.Texts());
  EXPECT_EQ(1u, QovFlags.reload.exchange(0));
  EXPECT_EQ(SIG_IGN, signal(SIGSEGV, SIG_DFL));
}

TEST(SignalsDeathTest, AYoungProcessEndsByTheCrash) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(AnswerCrash(), testing::KilledBySignal(SIGSEGV), "");
}

}  // namespace

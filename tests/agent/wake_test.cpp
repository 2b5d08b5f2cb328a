#include "agent/wake.h"

#include <gtest/gtest.h>

TEST(WakeTest, KeepsTheErrorNumber) {
  errno = EDOM;
  WakeMainLoop();  // fails, as nothing is open
  EXPECT_EQ(EDOM, errno);
}

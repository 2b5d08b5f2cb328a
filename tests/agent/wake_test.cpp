#include "agent/wake.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

TEST(WakeTest, KeepsTheErrorNumber) {
  OpenWake();
  eventfd_write(WakeDescriptor(), 0xffff'ffff'ffff'fffe);  // one more does not fit
  errno = EDOM;
  WakeMainLoop();
  EXPECT_EQ(EDOM, errno);
}

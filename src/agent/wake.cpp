#include "agent/wake.h"

#include <errno.h>
#include <sys/eventfd.h>

namespace {

int wakeDescriptor = -1;

}  // namespace

void OpenWake() { wakeDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK); }

int WakeDescriptor() { return wakeDescriptor; }

void WakeMainLoop() {
  const int former = errno;
  eventfd_write(wakeDescriptor, 1);  // fails only when it is full, and thus awake already
  errno = former;
}

void ClearWake() {
  eventfd_t count;
  eventfd_read(wakeDescriptor, &count);
}

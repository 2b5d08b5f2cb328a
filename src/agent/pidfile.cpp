#include "agent/pidfile.h"

#include <fcntl.h>
#include <unistd.h>

#include "config/settings.h"
#include "core/message.h"
#include "core/owned.h"

namespace {

/// The lock belongs to this open file, not to the process: a check that opens and closes the same
/// file does not end it.
bool LockWhole(FILE* file) {
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(fileno(file), F_OFD_SETLK, &lock) == 0;
}

}  // namespace

FILE* createpidfile() {
  const String path = CurrentSettings()->pidfile;
  TFile file(fopen(path.CStr(), "we"));
  if (file == nullptr) {
    showmessage("Failed to create pid file %s\n", kNoPeer, msgFail, 1, path.CStr());
    return nullptr;
  }
  if (!LockWhole(file.get())) {
    showmessage("Failed to lock pid file %s\n", kNoPeer, msgFail, 1, path.CStr());
    return nullptr;
  }
  fprintf(file.get(), "%d\n", static_cast<int>(getpid()));
  fflush(file.get());
  return file.release();
}

void closepidfile(FILE* file) {
  if (file == nullptr) return;
  unlink(CurrentSettings()->pidfile.CStr());  // while the lock still keeps others out
  fclose(file);
}

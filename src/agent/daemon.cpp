#include "agent/daemon.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include "config/settings.h"
#include "core/message.h"
#include "core/owned.h"

void OpenMissingStreams() {
  for (int fd = STDIN_FILENO; fd <= STDERR_FILENO; ++fd) {
    // The lowest free number is taken, which is this one.
    if (fcntl(fd, F_GETFD) == -1 && open("/dev/null", O_RDWR) != fd) return;
  }
}

int daemon_init() {
  fflush(stdout);
  const pid_t child = fork();
  if (child < 0) return -1;
  if (child > 0) {
    puts("Daemon started");
    exit(0);
  }
  setsid();
  for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const TFd null(open("/dev/null", (fd == STDIN_FILENO ? O_RDONLY : O_WRONLY) | O_CLOEXEC));
    if (null) dup2(null.Get(), fd);
  }
  return 0;
}

FILE* createpidfile() {
  const String path = CurrentSettings()->pidfile;
  TFile file(fopen(path.CStr(), "we"));
  if (file == nullptr) {
    showmessage("Failed to create pid file %s\n", kNoPeer, msgFail, 1, path.CStr());
    return nullptr;
  }
  // The lock belongs to this open file, not to the process: a check that opens and closes the same
  // file does not end it.
  struct flock lock = {};
  lock.l_type = F_WRLCK;
  if (fcntl(fileno(file.get()), F_OFD_SETLK, &lock) != 0) {
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

#include "agent/daemon.h"

#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include "core/owned.h"

namespace {

void ReopenOnNull(int fd, int flags) {
  const TFd null(open("/dev/null", flags | O_CLOEXEC));
  if (null) dup2(null.Get(), fd);
}

}  // namespace

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
  ReopenOnNull(STDIN_FILENO, O_RDONLY);
  ReopenOnNull(STDOUT_FILENO, O_WRONLY);
  ReopenOnNull(STDERR_FILENO, O_WRONLY);
  return 0;
}

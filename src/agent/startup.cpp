#include "agent/startup.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/cmdline.h"
#include "agent/control.h"
#include "agent/daemon.h"
#include "agent/limits.h"
#include "agent/listener.h"
#include "agent/messages.h"
#include "agent/selfcheck.h"
#include "agent/signals.h"
#include "checks/process/runner.h"
#include "config/settings.h"
#include "config/tempfolder.h"

namespace {

constexpr int kExitSettings = 1;
constexpr int kExitDaemon = 2;
constexpr int kExitSelfCheck = 3;
constexpr int kExitListen = 4;

bool CheckSettings() {
  printf("Settings checking .. ");
  String error;
  if (LoadOptions(error) == 0) {
    printf("Error\n%s\nPlease check '%s' file\n\n", error.CStr(), QovSettings.configfile);
    return false;
  }
  if (error.Empty()) {
    puts("Ok");
  } else {
    printf("Warning: %s\n", error.CStr());
  }
  return true;
}

/// Proves that the port can be opened.
bool CheckSocket() {
  printf("Sock testing .. ");
  fflush(stdout);
  unsigned int addressLength = 0;
  String error;
  const int socket = Listen(addressLength, error);
  if (socket == 0) {
    printf("TCP listen error:\n%s\n\n", error.CStr());
    return false;
  }
  puts("Ok");
  shutdown(socket, SHUT_RDWR);
  close(socket);
  return true;
}

}  // namespace

int RunAgent(int argc, char** argv, char** envp) {
  OpenMissingStreams();
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  RememberStart(argv, envp);
  RaiseDescriptorLimit();
  PrepareToWaitForChildren();
  PrintBanner();
  printf("Command line checking .. ");
  ParseCommandLine(argc, argv);
  puts("Ok");
  if (!CheckSettings()) return kExitSettings;
  ReportPlatform();
  if (!CheckCipher() || !CheckCodec()) return kExitSelfCheck;
  if (!CheckSocket()) return kExitListen;
  if (QovSettings.interactive == 0 && daemon_init() != 0) {
    fprintf(stderr, "Error initializing daemon: %s\n", strerror(errno));
    return kExitDaemon;
  }
  InstallSignals();
  InstallMessages();
  FreezeEnvironment();
  const int status = ServeConnections();
  RemoveTempFiles();  // those of sessions that still run
  return status;
}

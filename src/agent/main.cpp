#include <errno.h>
#include <malloc.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "agent/cmdline.h"
#include "agent/control.h"
#include "agent/crash.h"
#include "agent/daemon.h"
#include "agent/image.h"
#include "agent/listener.h"
#include "agent/messages.h"
#include "agent/signals.h"
#include "agent/wake.h"
#include "checks/process/child.h"
#include "checks/process/tempfile.h"
#include "config/settings.h"
#include "config/tempfolder.h"
#include "protocol/ciplib.h"
#include "protocol/qov_const.h"
#include "protocol/twofish.h"

namespace {

constexpr char kPassphrase[] = "test-key-value";
constexpr char kPlainText[16] = "123456789012345";

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

/// Runs the cipher's self test, which ends the process with status 3 on a fault, then takes one
/// block there and back.
bool CheckCipher() {
  Twofish_initialise();
  THash_SHA hash;
  const char* digest = hash.GetHash(kPassphrase, static_cast<long>(strlen(kPassphrase)));
  Twofish_key key;
  Twofish_prepare_key(Bytes(digest), hash.GetHashSize(), &key);
  unsigned char block[sizeof kPlainText];
  Twofish_encrypt(&key, Bytes(kPlainText), block);
  Twofish_decrypt(&key, block, block);
  const bool same = memcmp(block, kPlainText, sizeof block) == 0;
  printf("Basic encyption checking .. %s\n", same ? "Ok" : "Error");
  return same;
}

/// Takes one text through the packet codec and back.
bool CheckCodec() {
  const String coded = EncodeData(kPlainText, kPassphrase, 0);
  const bool same = DecodeData(coded, kPassphrase) == kPlainText;
  printf("QOV encyption checking .. %s\n", same ? "Ok" : "Error");
  return same;
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

/// What a request took goes back to the system with it. Without a limit of ours the library raises
/// its own with each large piece that is freed, and each thread gets an arena that keeps its own.
void BoundMemory() {
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  mallopt(M_ARENA_MAX, 2);
}

/// Returns the exit status: 0 after a terminate request, 1 for a settings error, 2 when the daemon
/// could not be started, 3 when a self-check failed, kExitListen.
int RunAgent(int argc, char** argv, char** envp) {
  BoundMemory();
  OpenMissingStreams();
  setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  RememberStart(argv, envp);
  PrepareToWaitForChildren();
  PrintBanner();
  printf("Command line checking .. ");
  ParseCommandLine(argc, argv);
  puts("Ok");
  if (!CheckSettings()) return 1;
  FreezeEnvironment();
  puts("CPU testing .. Ok");
  if (QovSettings.debug != 0) puts("stat.size: 8\nsrec.size: 8\nint64 = double");
  if (!CheckCipher() || !CheckCodec()) return 3;
  if (!CheckSocket()) return kExitListen;
  if (QovSettings.interactive == 0 && daemon_init() != 0) {
    fprintf(stderr, "Error initializing daemon: %s\n", strerror(errno));
    return 2;
  }
  if (QovSettings.interactive == 0) InstallReloadSignal();
  OpenWake();
  InstallSignals();
  InstallMessages();
  int status;
  if (sigsetjmp(mainLoopCrashed, 1) == 0) {
    InstallCrashHandler();
    status = StartListening() != 0 ? kExitListen : ServeConnections();
  } else {
    // The loop answers its own fault, too, and goes on when the restart fails. What the frames
    // given up owned stays open.
    status = ServeConnections();
  }
  RemoveTempFiles();            // those of sessions that still run
  SetSignal(SIGSEGV, SIG_DFL);  // nothing answers a crash any more
  return status;
}

}  // namespace

int main(int argc, char** argv, char** envp) {
  const int status = RunAgent(argc, argv, envp);
  fflush(stdout);
  _exit(status);  // session threads may still run: no destructor may pull globals away from them
}

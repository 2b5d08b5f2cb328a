// Loaded into an agent in front of the C library: calls fail, or take their time.
//   FAULT_THREADS=N                      every Nth start of a thread fails
//   FAULT_SEND_MS=N, FAULT_RENAME_MS=N   delay every send, the return of every rename
//   FAULT_LOOKUP_MS=N                    delays every look-up of a name
//   FAULT_<CALL>="F L E"                 the Fth to the Lth of these calls fail with errno E; for 0
//                                        they end in a segmentation fault
//   FAULT_AGE_SEC=N                      the process was started N seconds earlier
//   FAULT_CIPHER=1, 2                    the cipher, or what follows its check, is wrong
// A pause of a second takes 10 ms.

#include <dlfcn.h>
#include <errno.h>
#include <netdb.h>
#include <nettle/twofish.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

namespace {

/// The number in an environment variable, 0 without one.
int Number(const char* name) {
  const char* text = getenv(name);
  return text != nullptr ? atoi(text) : 0;
}

bool Fails(const char* name, int call) {
  int first = 0;
  int last = 0;
  int error = 0;
  const char* text = getenv(name);
  if (text == nullptr || sscanf(text, "%d %d %d", &first, &last, &error) != 3) return false;
  if (call < first || call > last) return false;
  siginfo_t info = {};
  info.si_code = SEGV_MAPERR;  // as a fault of the thread itself gives it
  if (error == 0) syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGSEGV, &info);
  errno = error;
  return error != 0;
}

void PauseMs(int ms) { usleep(static_cast<useconds_t>(ms) * 1000); }

std::atomic<bool> cipherChecked{false};

}  // namespace

#define NEXT(call) \
  static const auto next = reinterpret_cast<decltype(&call)>(dlsym(RTLD_NEXT, #call))
#define FAILING(name, call, ...)    \
  NEXT(call);                       \
  static std::atomic<int> calls{0}; \
  return Fails(name, ++calls) ? -1 : next(__VA_ARGS__)

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*run)(void*), void* data) {
  NEXT(pthread_create);
  static std::atomic<int> calls{0};
  const int every = Number("FAULT_THREADS");
  return every != 0 && ++calls % every == 0 ? EAGAIN : next(thread, attr, run, data);
}
ssize_t send(int socket, const void* bytes, size_t count, int flags) {
  PauseMs(Number("FAULT_SEND_MS"));
  FAILING("FAULT_SEND", send, socket, bytes, count, flags);
}
pid_t fork() noexcept { FAILING("FAULT_FORK", fork); }
int bind(int socket, const sockaddr* address, socklen_t length) noexcept {
  FAILING("FAULT_BIND", bind, socket, address, length);
}
int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  FAILING("FAULT_ACCEPT", accept4, socket, address, length, flags);
}
int rename(const char* from, const char* to) noexcept {
  NEXT(rename);
  const int result = next(from, to);
  PauseMs(Number("FAULT_RENAME_MS"));
  return result;
}
int gethostbyname_r(const char* name, hostent* result, char* buf, size_t size, hostent** found,
                    int* error) {
  NEXT(gethostbyname_r);
  PauseMs(Number("FAULT_LOOKUP_MS"));
  return next(name, result, buf, size, found, error);
}

unsigned sleep(unsigned seconds) {
  PauseMs(static_cast<int>(seconds) * 10);
  return 0;
}
time_t time(time_t*) noexcept {
  static std::atomic<bool> started{false};
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec - (started.exchange(true) ? 0 : Number("FAULT_AGE_SEC"));
}
void nettle_twofish_decrypt(const twofish_ctx* key, size_t size, uint8_t* to, const uint8_t* from) {
  NEXT(nettle_twofish_decrypt);
  next(key, size, to, from);
  if (memcmp(to, "123456789012345", 16) != 0) return;
  cipherChecked = true;
  if (Number("FAULT_CIPHER") == 1) to[15] ^= 1;
}
void nettle_twofish_encrypt(const twofish_ctx* key, size_t size, uint8_t* to, const uint8_t* from) {
  NEXT(nettle_twofish_encrypt);
  static std::atomic<uint8_t> noise{0};
  next(key, size, to, from);
  if (cipherChecked && Number("FAULT_CIPHER") == 2) to[0] ^= ++noise;
}
}

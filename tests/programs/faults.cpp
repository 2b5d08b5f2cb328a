// Loaded into an agent in front of the C library: calls fail, or take their time, now and then.
//   FAULT_THREADS=N                  every Nth start of a thread fails
//   FAULT_SEND_MS=N, FAULT_RENAME_MS=N  delay every send, the return of every rename
//   FAULT_SEND="F L"                 the Fth to the Lth send is a segmentation fault
//   FAULT_FORK, _BIND, _ACCEPT="F L" the Fth to the Lth of these calls fails
//   FAULT_AGE_SEC=N                  the process has been started N seconds earlier than it was
//   FAULT_CIPHER=1, 2                the cipher, or what follows its check at the start, is wrong
// A pause of seconds takes hundredths of seconds.

#include <dlfcn.h>
#include <errno.h>
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

/// Whether this call is among those that the variable names; errno is `error` then.
bool Fails(const char* name, std::atomic<int>& calls, int error) {
  const char* text = getenv(name);
  int first = 0;
  int last = 0;
  if (text != nullptr) sscanf(text, "%d %d", &first, &last);
  const int call = ++calls;
  errno = error;
  return first <= call && call <= last;
}

void PauseMs(int ms) { usleep(static_cast<useconds_t>(ms) * 1000); }

std::atomic<int> threads{0}, sends{0}, forks{0}, binds{0}, accepts{0};
std::atomic<bool> aged{false}, cipherChecked{false};

}  // namespace

#define NEXT(call) \
  static const auto next = reinterpret_cast<decltype(&call)>(dlsym(RTLD_NEXT, #call))

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*run)(void*),
                   void* argument) {
  NEXT(pthread_create);
  const int every = Number("FAULT_THREADS");
  if (every != 0 && ++threads % every == 0) return EAGAIN;
  return next(thread, attributes, run, argument);
}

ssize_t send(int socket, const void* bytes, size_t count, int flags) {
  NEXT(send);
  PauseMs(Number("FAULT_SEND_MS"));
  if (Fails("FAULT_SEND", sends, 0)) {
    siginfo_t info = {};
    info.si_code = SEGV_MAPERR;
    syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), SIGSEGV, &info);
  }
  return next(socket, bytes, count, flags);
}

int rename(const char* from, const char* to) noexcept {
  NEXT(rename);
  const int result = next(from, to);
  PauseMs(Number("FAULT_RENAME_MS"));
  return result;
}

pid_t fork() noexcept {
  NEXT(fork);
  return Fails("FAULT_FORK", forks, EAGAIN) ? -1 : next();
}

int bind(int socket, const sockaddr* address, socklen_t length) noexcept {
  NEXT(bind);
  return Fails("FAULT_BIND", binds, EADDRINUSE) ? -1 : next(socket, address, length);
}

int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  NEXT(accept4);
  return Fails("FAULT_ACCEPT", accepts, EMFILE) ? -1 : next(socket, address, length, flags);
}

unsigned sleep(unsigned seconds) {
  PauseMs(static_cast<int>(seconds) * 10);
  return 0;
}

time_t time(time_t*) noexcept {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec - (aged.exchange(true) ? 0 : Number("FAULT_AGE_SEC"));
}

void nettle_twofish_decrypt(const twofish_ctx* key, size_t length, uint8_t* to,
                            const uint8_t* from) {
  NEXT(nettle_twofish_decrypt);
  next(key, length, to, from);
  if (memcmp(to, "123456789012345", 16) != 0) return;
  cipherChecked = true;
  if (Number("FAULT_CIPHER") == 1) to[15] ^= 1;
}

void nettle_twofish_encrypt(const twofish_ctx* key, size_t length, uint8_t* to,
                            const uint8_t* from) {
  NEXT(nettle_twofish_encrypt);
  static std::atomic<uint8_t> noise{0};
  next(key, length, to, from);
  if (cipherChecked && Number("FAULT_CIPHER") == 2) to[0] ^= ++noise;
}
}

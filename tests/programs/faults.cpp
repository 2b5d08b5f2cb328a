// Loaded into an agent in front of the C library: calls fail, or take their time, now and then.
// FAULT_THREADS=N lets every Nth start of a thread fail, FAULT_SEND_MS=N delays every send,
// FAULT_RENAME_MS=N the return of every rename.

#include <dlfcn.h>
#include <errno.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>

namespace {

/// The number in an environment variable, 0 without one.
int Number(const char* name) {
  const char* text = getenv(name);
  return text != nullptr ? atoi(text) : 0;
}

template <class TFunction>
TFunction Next(const char* name) {
  return reinterpret_cast<TFunction>(dlsym(RTLD_NEXT, name));
}

std::atomic<int> threads{0};

}  // namespace

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*run)(void*), void* argument) {
  static const auto next = Next<decltype(&pthread_create)>("pthread_create");
  static const int every = Number("FAULT_THREADS");
  if (every != 0 && ++threads % every == 0) return EAGAIN;
  return next(thread, attributes, run, argument);
}

extern "C" ssize_t send(int socket, const void* bytes, size_t count, int flags) {
  static const auto next = Next<decltype(&send)>("send");
  static const int delayMs = Number("FAULT_SEND_MS");
  if (delayMs != 0) usleep(static_cast<useconds_t>(delayMs) * 1000);
  return next(socket, bytes, count, flags);
}

extern "C" int rename(const char* from, const char* to) noexcept {
  static const auto next = Next<decltype(&rename)>("rename");
  static const int delayMs = Number("FAULT_RENAME_MS");
  const int result = next(from, to);
  if (delayMs != 0) usleep(static_cast<useconds_t>(delayMs) * 1000);
  return result;
}

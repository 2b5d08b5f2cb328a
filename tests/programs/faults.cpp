// Loaded into an agent in front of the C library: calls fail, or take their time.
//   FAULT_<CALL>='F L E'   the Fth to the Lth of these calls fail with errno E; for 0 they end in a
//                          segmentation fault. FAULT_DIGEST: they write nothing.
//   FAULT_MEMORY=1         one allocation fails after each connection: the first, after the next
//                          the second, and so on until a connection takes fewer; then anew
//   FAULT_SEND_MS=N, FAULT_AGE_SEC=N   every send is delayed, the process was started earlier
// A pause of a second takes 10 ms; the host is called by an address, so that no server is asked.

#include <dlfcn.h>
#include <errno.h>
#include <nettle/sha1.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

/// The number in an environment variable, 0 without one.
static unsigned Number(const char* name) {
  const char* text = getenv(name);
  return text != nullptr ? static_cast<unsigned>(atoi(text)) : 0;
}

static bool Fails(const char* name, int call) {
  int first = 0, last = 0, error = 0;
  const char* text = getenv(name);
  if (text == nullptr || sscanf(text, "%d %d %d", &first, &last, &error) != 3) return false;
  if (call < first || call > last) return false;
  static volatile int* volatile nowhere = nullptr;
  if (error == 0) *nowhere = 0;
  errno = error;
  return true;
}

static std::atomic<unsigned> place{0}, allocations{0};
static bool IsOut() { return ++allocations == place; }

#define FAILING(name, failed, call, ...)                                               \
  static const auto next = reinterpret_cast<decltype(&call)>(dlsym(RTLD_NEXT, #call)); \
  static std::atomic<int> calls{0};                                                    \
  return Fails(name, ++calls) ? failed : next(__VA_ARGS__)

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attr, void* (*run)(void*), void* data) {
  FAILING("FAULT_THREAD", errno, pthread_create, thread, attr, run, data);
}
ssize_t send(int socket, const void* bytes, size_t count, int flags) {
  usleep(1000 * Number("FAULT_SEND_MS"));
  FAILING("FAULT_SEND", -1, send, socket, bytes, count, flags);
}
pid_t fork() noexcept { FAILING("FAULT_FORK", -1, fork); }
int bind(int socket, const sockaddr* address, socklen_t length) noexcept {
  FAILING("FAULT_BIND", -1, bind, socket, address, length);
}
#ifdef QOV_MEMORY_FAULTS
void* __libc_malloc(size_t size);
void* __libc_realloc(void* piece, size_t size);
void* malloc(size_t size) { return IsOut() ? nullptr : __libc_malloc(size); }
void* realloc(void* piece, size_t size) { return IsOut() ? nullptr : __libc_realloc(piece, size); }
#endif
int accept4(int socket, sockaddr* address, socklen_t* length, int flags) {
  if (Number("FAULT_MEMORY") != 0) place = allocations.exchange(0) < place ? 1 : place + 1;
  FAILING("FAULT_ACCEPT", -1, accept4, socket, address, length, flags);
}
int gethostname(char* name, size_t size) noexcept { return snprintf(name, size, "127.0.0.1") < 0; }
unsigned sleep(unsigned seconds) { return static_cast<unsigned>(usleep(seconds * 10000)); }
time_t time(time_t*) noexcept {
  static std::atomic<bool> started{false};
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  return now.tv_sec - (started.exchange(true) ? 0 : Number("FAULT_AGE_SEC"));
}
void nettle_sha1_digest(sha1_ctx* context, size_t size, uint8_t* digest) {
  FAILING("FAULT_DIGEST", void(), nettle_sha1_digest, context, size, digest);
}
}

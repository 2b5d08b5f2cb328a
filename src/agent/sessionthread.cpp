#include "agent/sessionthread.h"

#include <errno.h>
#include <pthread.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "agent/session.h"

namespace {

/// How long a thread waits for its next session: making one costs as much as a small request.
constexpr std::chrono::seconds kSpareTime{3};

/// A thread between two sessions. Held by who calls it, too, as the thread may end meanwhile.
struct TSpare {
  std::condition_variable called;
  std::optional<ThreadParams> next;  // under spareMutex
};
using TSpareRef = std::shared_ptr<TSpare>;

std::mutex spareMutex;
std::vector<TSpareRef> spares;  // under spareMutex; the last one was busy last

/// Nothing when none came, or memory is short.
std::optional<ThreadParams> NextSession(TSpareRef& self) try {
  if (self == nullptr) self = std::make_shared<TSpare>();
  std::unique_lock<std::mutex> lock(spareMutex);
  spares.push_back(self);
  if (!self->called.wait_for(lock, kSpareTime, [&self] { return self->next.has_value(); })) {
    std::erase(spares, self);
  }
  return std::exchange(self->next, std::nullopt);
} catch (const std::bad_alloc&) {
  return std::nullopt;
}

TSpareRef CallSpare(const ThreadParams& params) {
  const std::lock_guard<std::mutex> lock(spareMutex);
  if (spares.empty()) return nullptr;
  TSpareRef spare = std::move(spares.back());
  spares.pop_back();
  spare->next = params;
  return spare;
}

/// Thread body: one session after the other, for as long as some come.
/// @param block  the first one's ThreadParams, made with new and taken over
void* ClientExecute(void* block) {
  pthread_detach(pthread_self());
  TSpareRef self;
  std::optional params = *std::unique_ptr<ThreadParams>(static_cast<ThreadParams*>(block));
  for (; params; params = NextSession(self)) {
    errno = 0;
    RunSession(*params);
  }
  return nullptr;
}

}  // namespace

bool StartSession(const ThreadParams& params) {
  if (const TSpareRef spare = CallSpare(params)) {
    spare->called.notify_one();  // without the lock, which the thread takes first
    return true;
  }
  auto block = std::make_unique<ThreadParams>(params);
  pthread_t thread;
  if (pthread_create(&thread, nullptr, &ClientExecute, block.get()) != 0) return false;
  block.release();  // NOLINT(bugprone-unused-return-value): the thread frees it
  return true;
}

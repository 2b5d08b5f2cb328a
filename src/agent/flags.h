#pragma once

#include <stdint.h>
#include <time.h>

#include <atomic>
#include <mutex>

#include "core/wqstring.h"

/// The process-wide control record: sessions raise, the main loop polls at least once a second.
struct TQovFlags {
  uint32_t upgrading = 0;  ///< 1 while a session holds the upgrade; guarded by upgrade_mutex
  std::atomic<uint32_t> terminate{0};
  std::atomic<uint32_t> reload{0};   ///< asks for a re-execution of the agent
  std::atomic<uint32_t> upgrade{0};  ///< asks for the execution of upgradeScript
  String upgradeScript;              ///< full path, guarded by thread_mutex
  time_t startTime = time(nullptr);  ///< when the process started, seconds since the epoch
};

inline TQovFlags QovFlags;
inline std::mutex upgrade_mutex;

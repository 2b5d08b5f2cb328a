#pragma once

#include <stdint.h>

#include <atomic>
#include <mutex>

/// What the agent tells of itself. The texts are fixed; the counters are atomic, so any thread
/// reads them without a lock.
struct TAgentStatus {
  const char* tag;
  int32_t recordVersion;
  int32_t reserved;
  const char* AgentName;
  const char* AgentPlatform;
  const char* AgentVersion;
  const char* AgentDeveloper;
  int32_t Service;
  int32_t Active;
  std::atomic<uint32_t> ActiveConnections;  ///< sessions now running
  std::atomic<uint32_t> OpenedConnections;  ///< sessions started since the process began
  std::atomic<uint32_t> FailedConnections;  ///< connections refused by the address filter
};

extern TAgentStatus AgentStatus;

/// Guards the counters' changes by sessions and the raising of the upgrade flag.
extern std::mutex thread_mutex;

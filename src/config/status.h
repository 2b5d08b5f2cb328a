#pragma once

#include <stdint.h>

#include <atomic>
#include <mutex>

/// What the agent tells of itself. The texts are fixed; the counters are atomic, so any thread
/// reads them without a lock.
struct TAgentStatus {
  const char* tag = "WqVxQoStRec";
  int32_t recordVersion = 1;
  int32_t reserved = 0;
  const char* AgentName = "WQ Orvane";
  const char* AgentPlatform = "Linux (Red Hat, Mandrake, SuSE)";
  const char* AgentVersion;
  const char* AgentDeveloper = "The qov developers (https://qov.invalid)";
  int32_t Service = 0;
  int32_t Active = 0;
  std::atomic<uint32_t> ActiveConnections = 0;  ///< sessions now running
  std::atomic<uint32_t> OpenedConnections = 0;  ///< sessions started since the process began
  std::atomic<uint32_t> FailedConnections = 0;  ///< connections refused by the address filter
};

extern TAgentStatus AgentStatus;

/// Guards the counters' changes by sessions and the raising of the upgrade flag.
extern std::mutex thread_mutex;

#pragma once

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/agentprocess.h"

/// Limit within which an agent answers while something else goes on; more under a sanitizer.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int kAnswerLimitMs = 5000;
#else
inline constexpr int kAnswerLimitMs = 1000;
#endif

/// How often a test repeats what it does: `brief` in every run, `full` in the long ones that
/// tools/stress.sh starts.
int Repeats(int brief, int full);

/// True when the agent answers "200" within kAnswerLimitMs; a failure tells what it did instead.
bool AnswersInTime(const TAgentProcess& agent, const std::string& command,
                   const std::vector<std::string>& params = {});

/// Puts the same question again and again, on a thread of its own, until Stop or the end. An answer
/// that is late or not "200" is a failure of the test.
class TProbe {
 public:
  TProbe(const TAgentProcess& agent, const std::string& command,
         const std::vector<std::string>& params = {});
  ~TProbe() { Stop(); }
  TProbe(const TProbe&) = delete;
  TProbe& operator=(const TProbe&) = delete;

  /// @return how many answers came in time
  int Stop();

 private:
  std::atomic<bool> stop_{false};
  int answered_ = 0;
  std::thread thread_;
};

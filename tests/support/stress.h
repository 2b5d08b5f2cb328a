#pragma once

#include <stdlib.h>

/// How often a test repeats what it does: `brief` in every run, `full` in the long ones that
/// tools/stress.sh starts.
inline int Repeats(int brief, int full) { return getenv("QOV_STRESS") != nullptr ? full : brief; }

/// Limit within which an agent answers while something else goes on; more under a sanitizer.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int kAnswerLimitMs = 5000;
#else
inline constexpr int kAnswerLimitMs = 1000;
#endif

#pragma once

#include <stdlib.h>

/// How often a test repeats what it does: `brief` in every run, `full` in the long ones that
/// tools/stress.sh starts.
inline int Repeats(int brief, int full) { return getenv("QOV_STRESS") != nullptr ? full : brief; }

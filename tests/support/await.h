#pragma once

#include <unistd.h>

#include "support/rawpeer.h"

/// Repeats `done` until it holds; false when the limit has passed before.
template <class TCondition>
bool Await(TCondition done, int limitMs = 20000) {
  constexpr int kPauseMs = 5;
  const long long end = NowMs() + limitMs;
  while (!done()) {
    if (NowMs() >= end) return false;
    usleep(kPauseMs * 1000);
  }
  return true;
}

#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include "core/wqstring.h"

/// What each target defines: one run on one input.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

inline String ToString(const uint8_t* data, size_t size) {
  return String(reinterpret_cast<const char*>(data), static_cast<int>(size));
}

/// Aborts when a property of the code under test does not hold.
inline void Require(bool holds, const char* property) {
  if (holds) return;
  fprintf(stderr, "does not hold: %s\n", property);
  abort();
}

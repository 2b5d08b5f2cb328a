#pragma once

#include <stddef.h>
#include <stdint.h>
#include <string.h>

#include <bit>

/// Sixteen bytes looked at together, in the compiler's portable vectors.
inline constexpr ptrdiff_t kLanes = 16;
using TLanes = uint8_t __attribute__((vector_size(kLanes)));
using TLaneHalves = uint64_t __attribute__((vector_size(kLanes)));

inline TLanes LoadLanes(const char* p) {
  TLanes lanes;
  memcpy(&lanes, p, sizeof lanes);
  return lanes;
}

inline TLanes FillLanes(char c) {
  TLanes lanes;
  memset(&lanes, c, sizeof lanes);
  return lanes;
}

/// 0xFF in each lane where both are equal, else 0.
inline TLanes EqualLanes(TLanes a, TLanes b) { return reinterpret_cast<TLanes>(a == b); }

/// Half 0 or 1 of the marks as one number, whose low bytes are the first lanes.
inline uint64_t MarkedHalf(TLanes marks, int half) {
  const uint64_t word = reinterpret_cast<TLaneHalves>(marks)[half];
  return std::endian::native == std::endian::big ? __builtin_bswap64(word) : word;
}

inline bool AnyMarked(TLanes marks) { return (MarkedHalf(marks, 0) | MarkedHalf(marks, 1)) != 0; }

/// The first or last marked lane; REQUIRES: AnyMarked.
inline int FirstMarked(TLanes marks) {
  const uint64_t low = MarkedHalf(marks, 0);
  return low != 0 ? std::countr_zero(low) / 8 : 8 + std::countr_zero(MarkedHalf(marks, 1)) / 8;
}
inline int LastMarked(TLanes marks) {
  const uint64_t high = MarkedHalf(marks, 1);
  return high != 0 ? 15 - std::countl_zero(high) / 8
                   : 7 - std::countl_zero(MarkedHalf(marks, 0)) / 8;
}

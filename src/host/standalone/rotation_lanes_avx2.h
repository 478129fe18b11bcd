// Squad segments eight fractions at a time on processors with AVX2.
#pragma once

#include <cstddef>

#include "host/standalone/rotation_lanes.h"

// The build compiles rotation_lanes_avx2.cpp for AVX2 and says so where it can.
#if defined(KV_HAVE_ROTATION_AVX2)
#define KV_ROTATION_AVX2 1
#else
#define KV_ROTATION_AVX2 0
#endif

namespace kv::standalone::lanes {

#if KV_ROTATION_AVX2
// The squad of the arcs `outer` and `inner` at the fractions s[0..count) in groups of eight, as
// x, y, z, w each into `out`: bit for bit what Squad gives one at a time. Returns how many
// fractions it did (a multiple of eight); the caller does the rest. Only where HasAvx2().
std::size_t SquadRunAvx2(const ArcL<float>& outer, const ArcL<float>& inner, const float* s,
                         std::size_t count, float* out);

// Whether to use it; tests turn it off to check the four-wide path on machines that have it.
inline bool& Avx2Allowed() {
  static bool allowed = true;
  return allowed;
}
inline bool HasAvx2() {
  static const bool has = __builtin_cpu_supports("avx2");
  return has && Avx2Allowed();
}
#endif

}  // namespace kv::standalone::lanes

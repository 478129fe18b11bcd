// How the 3ds Max host splits a parallel loop: how many ranges, where each starts and ends,
// and the job that hands them out to whichever thread asks next. Plain C++, so the tests run
// it with their own threads; parallel_for.cpp runs it on the Windows thread pool.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>

#include "host/interface.h"

namespace kv::max {

// Ranges for n items on `threads` threads: one per thread at most, and never so many that a
// range holds fewer than `grain` items (one range when n itself is below grain).
inline size_t RangeCount(size_t n, size_t grain, size_t threads) {
  if (n == 0) return 0;
  const size_t byGrain = std::max<size_t>(n / std::max<size_t>(grain, 1), 1);
  return std::min(std::max<size_t>(threads, 1), byGrain);
}

// Ranges handed out one at a time, so that a slow range does not hold up the others. Range c
// of `chunks` is [n * c / chunks, n * (c + 1) / chunks): together they cover [0, n) once.
struct ParallelJob {
  const host::RangeFn* fn;
  size_t n, chunks;
  std::atomic<size_t> next{0};
  void Run() {
    for (size_t c = next++; c < chunks; c = next++) (*fn)(n * c / chunks, n * (c + 1) / chunks);
  }
};

}  // namespace kv::max

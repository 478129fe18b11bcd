// How the 3ds Max host splits a parallel loop: ranges of at least the grain, no more than the
// threads, and a job that, run by several threads at once, covers every item exactly once.
#include "host/max/parallel_ranges.h"

#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kv::max {
namespace {

TEST(MaxParallelRanges, CountRespectsGrainAndThreads) {
  EXPECT_EQ(RangeCount(0, 16, 8), 0u);
  EXPECT_EQ(RangeCount(10, 16, 8), 1u);    // below one grain: one range
  EXPECT_EQ(RangeCount(47, 16, 8), 2u);    // two full grains fit, not three
  EXPECT_EQ(RangeCount(4096, 16, 8), 8u);  // capped by the threads
  EXPECT_EQ(RangeCount(100, 0, 4), 4u);    // a zero grain counts as one item
  EXPECT_EQ(RangeCount(100, 10, 0), 1u);   // no thread count known: the caller alone
}

TEST(MaxParallelRanges, JobCoversEveryItemOnceAcrossThreads) {
  for (size_t n : {1u, 7u, 64u, 1000u, 4097u}) {
    for (size_t chunks : {1u, 3u, 8u}) {
      if (chunks > n) continue;
      SCOPED_TRACE(testing::Message() << "n=" << n << " chunks=" << chunks);
      std::vector<std::atomic<int>> hits(n);
      std::atomic<size_t> calls{0};
      auto body = [&](size_t b, size_t e) {
        ++calls;
        for (size_t i = b; i < e; ++i) ++hits[i];
      };
      const host::RangeFn fn(body);
      ParallelJob job{&fn, n, chunks};
      std::vector<std::thread> threads;
      for (int t = 0; t < 3; ++t) threads.emplace_back([&job] { job.Run(); });
      job.Run();
      for (std::thread& t : threads) t.join();
      EXPECT_EQ(calls.load(), chunks);
      for (size_t i = 0; i < n; ++i) ASSERT_EQ(hits[i].load(), 1) << "item " << i;
    }
  }
}

}  // namespace
}  // namespace kv::max

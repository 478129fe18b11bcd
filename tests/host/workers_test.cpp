#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "host/standalone/scene.h"

namespace {

using kv::standalone::Scene;

struct Calls {
  std::vector<std::pair<size_t, size_t>> ranges;
  std::vector<std::thread::id> threads;
};

// The ranges fn was called with (sorted) and the threads that ran them.
Calls Split(Scene& scene, size_t n, size_t grain, std::vector<int>& hits) {
  Calls calls;
  std::mutex lock;
  hits.assign(n, 0);
  scene.ParallelFor(n, grain, [&](size_t begin, size_t end) {
    for (size_t i = begin; i < end; ++i) ++hits[i];  // each item owned by one range
    std::lock_guard<std::mutex> g(lock);
    calls.ranges.push_back({begin, end});
    calls.threads.push_back(std::this_thread::get_id());
  });
  std::sort(calls.ranges.begin(), calls.ranges.end());
  return calls;
}

TEST(ParallelFor, CoversEveryItemOnceInRangesOfAtLeastTheGrain) {
  Scene scene;
  std::vector<int> hits;
  for (int threads : {0, 2, 3}) {
    scene.SetThreadCount(threads);
    for (size_t grain : {1, 7, 1000}) {
      const size_t n = 100003;
      const Calls c = Split(scene, n, grain, hits);
      EXPECT_TRUE(std::all_of(hits.begin(), hits.end(), [](int h) { return h == 1; }))
          << threads << " threads, grain " << grain;
      for (const auto& [b, e] : c.ranges) EXPECT_GE(e - b, grain);
      EXPECT_GT(c.ranges.size(), 1u) << "the work was not shared";
    }
  }
  const Calls none = Split(scene, 0, 10, hits);
  EXPECT_TRUE(none.ranges.empty());
}

TEST(ParallelFor, OneThreadOrLittleWorkStaysOnTheCaller) {
  Scene scene;
  std::vector<int> hits;
  scene.SetThreadCount(1);
  EXPECT_EQ(scene.ThreadCount(), 1);
  Calls c = Split(scene, 50000, 10, hits);
  ASSERT_EQ(c.ranges.size(), 1u);
  EXPECT_EQ(c.ranges[0], std::make_pair(size_t{0}, size_t{50000}));
  EXPECT_EQ(c.threads[0], std::this_thread::get_id());

  scene.SetThreadCount(0);  // every core
  EXPECT_GE(scene.ThreadCount(), 1);
  c = Split(scene, 64, 64, hits);  // no more than one grain: not worth a task
  ASSERT_EQ(c.ranges.size(), 1u);
  EXPECT_EQ(c.threads[0], std::this_thread::get_id());
}

}  // namespace

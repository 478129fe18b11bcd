// Scene time to cache time, per-element times with triggers and group rules, unit factors.
#include <gtest/gtest.h>

#include <bit>
#include <random>
#include <vector>

#include "cache/frame.h"
#include "groups/fake_host.h"
#include "host/standalone/scene.h"
#include "object/time_mapping.h"
#include "object/units.h"

namespace kv {
namespace {

constexpr int kTpf = 160;
const SceneTiming kScene30{kTpf, 30};

CacheTiming Cache(int samples, int fps = 30, int elements = 4) {
  return {fps, samples, elements};
}

TEST(GlobalCacheTime, ConstantSpeedStartAndFrameRates) {
  PlaybackSettings p;
  p.start = 10;
  // One frame before the start the cache runs at speed 1, whatever the speed parameter says.
  p.speed = 5.0f;
  EXPECT_FLOAT_EQ(GlobalCacheTime(9 * kTpf, p, kScene30, Cache(100)), -kTpf);
  EXPECT_FLOAT_EQ(GlobalCacheTime(10 * kTpf, p, kScene30, Cache(100)), 0.0f);

  // Speed 2 counted at 15 fps in a 30 fps scene: both double the pace.
  p.speed = 2.0f;
  p.fps = 15;
  EXPECT_FLOAT_EQ(GlobalCacheTime(20 * kTpf, p, kScene30, Cache(100)), 2 * 2 * 10 * kTpf);

  // A 25 fps scene (192 ticks per frame) played at 25 fps runs one to one.
  p.speed = 1.0f;
  p.fps = 25;
  p.start = 0;
  EXPECT_FLOAT_EQ(GlobalCacheTime(7 * 192, p, {192, 25}, Cache(100)), 7 * 192);
}

TEST(GlobalCacheTime, AnimatedSpeedIntegratesSlicesAndIgnoresFps) {
  PlaybackSettings p;
  p.start = 2;
  p.fps = 15;  // must not matter while the speed is animated
  p.speedSteps = 3;
  std::vector<TimeValue> sampled;
  p.speedAt = [&](TimeValue u) {
    sampled.push_back(u);
    return u < 400 ? 1.0f : 3.0f;
  };
  // From 320 to 450: slices of 20 ticks sampled at their left ends, the last one 10 ticks.
  const float r = GlobalCacheTime(450, p, kScene30, Cache(100));
  const std::vector<TimeValue> want = {320, 340, 360, 380, 400, 420, 440};
  EXPECT_EQ(sampled, want);
  EXPECT_FLOAT_EQ(r, 80 * 1.0f + 50 * 3.0f);

  // Whole-frame slices when the steps are off.
  sampled.clear();
  p.speedSteps = 0;
  GlobalCacheTime(320 + 3 * kTpf, p, kScene30, Cache(100));
  EXPECT_EQ(sampled, (std::vector<TimeValue>{320, 480, 640}));

  // Before the start the animated speed is not consulted, but the frame-rate ratio is.
  sampled.clear();
  EXPECT_FLOAT_EQ(GlobalCacheTime(160, p, kScene30, Cache(100)), -320.0f);
  EXPECT_TRUE(sampled.empty());
}

TEST(GlobalCacheTime, ReverseAndGraph) {
  PlaybackSettings p;
  p.start = 5;
  p.reverse = true;
  // 31 samples at 30 fps: L = 160 * 30. At the start frame the last sample shows.
  EXPECT_FLOAT_EQ(GlobalCacheTime(5 * kTpf, p, kScene30, Cache(31)), 160.0f * 30);
  EXPECT_FLOAT_EQ(GlobalCacheTime(6 * kTpf, p, kScene30, Cache(31)), 160.0f * 29);
  // L truncates 4800 / fps before multiplying: 7 fps gives 685 ticks per cache frame.
  EXPECT_FLOAT_EQ(GlobalCacheTime(5 * kTpf, p, kScene30, Cache(3, 7)), 685.0f * 2);

  // The graph ignores start, speed and reverse; frame 12.5 lies halfway between 12 and 13.
  p.useGraph = true;
  p.frame = 12.5f;
  p.speed = 4.0f;
  EXPECT_FLOAT_EQ(GlobalCacheTime(0, p, kScene30, Cache(31)), 12.5f * kTpf);
  // A 60 fps cache in a 30 fps scene: graph frames count scene frames.
  EXPECT_FLOAT_EQ(GlobalCacheTime(0, p, kScene30, Cache(31, 60)), 12.5f * kTpf * 0.5f);
}

struct Pass {
  std::vector<TimeValue> at;                        // trigger ticks
  std::vector<KelvaneTools::ElementFrameState> el;  // the results
  std::vector<DistanceCheck> dist;
  explicit Pass(int n) : at(size_t(n), kNotTriggered), el(size_t(n)) {}
  PassResult Run(TimeValue t, const PlaybackSettings& p, const CacheTiming& c, bool trig,
                 std::span<const GroupRule> groups = {}) {
    return ComputeElementTimes(t, p, kScene30, c, trig, groups, at, dist, el);
  }
};

TEST(ElementTimes, TriggersMoveEachElementToItsOwnClock) {
  PlaybackSettings p;
  p.start = 1;  // 160 ticks
  Pass s(3);
  s.at[0] = 400;
  s.at[1] = 1000;
  const TimeValue t = 800;
  s.el[2].removed = true;  // stale from an earlier pass
  s.el[2].matIdOverride = 4;
  s.Run(t, p, Cache(31), true);
  const float global = 800 - 160;
  EXPECT_FLOAT_EQ(s.el[0].time, global - (400 - 160));  // started 240 ticks late
  EXPECT_FLOAT_EQ(s.el[1].time, -kTpf - 1000 + 800);    // still waiting: before the first sample
  EXPECT_FLOAT_EQ(s.el[2].time, 0.0f);                  // never triggered: the first sample
  EXPECT_FALSE(s.el[2].removed);
  EXPECT_EQ(s.el[2].matIdOverride, -1);

  // Reverse: waiting elements sit past the last sample, untriggered ones on it.
  p.reverse = true;
  const PassResult r = s.Run(t, p, Cache(31), true);
  const float L = 160.0f * 30;
  EXPECT_FLOAT_EQ(s.el[0].time, (400 - 160) + (L - global));
  EXPECT_FLOAT_EQ(s.el[1].time, 31 * kTpf - 800 + 1000);
  EXPECT_FLOAT_EQ(s.el[2].time, 30 * kTpf);
  EXPECT_TRUE(r.reverse);

  // Inactive triggers leave everything on the global clock.
  s.Run(t, p, Cache(31), false);
  for (const auto& e : s.el) EXPECT_FLOAT_EQ(e.time, L - global);

  // Under the graph a triggered element keeps the graph time.
  p.useGraph = true;
  p.frame = 3;
  s.Run(t, p, Cache(31), true);
  EXPECT_FLOAT_EQ(s.el[0].time, 3.0f * kTpf);
}

TEST(ElementTimes, RangeRulesSwapOnlyUnderPlainReverse) {
  PlaybackSettings p;
  p.inORT = kOrtHide;
  p.outORT = kOrtLoop;
  Pass s(1);
  PassResult r = s.Run(0, p, Cache(5), false);
  EXPECT_EQ(r.inORT, kOrtHide);
  EXPECT_EQ(r.outORT, kOrtLoop);
  EXPECT_FALSE(r.reverse);
  p.reverse = true;
  r = s.Run(0, p, Cache(5), false);
  EXPECT_EQ(r.inORT, kOrtLoop);
  EXPECT_EQ(r.outORT, kOrtHide);
  EXPECT_TRUE(r.reverse);
  p.useGraph = true;
  r = s.Run(0, p, Cache(5), false);
  EXPECT_EQ(r.inORT, kOrtHide);
  EXPECT_FALSE(r.reverse);
}

TEST(ElementTimes, GroupModesOrderAndOverrides) {
  PlaybackSettings p;
  const CacheTiming c = Cache(31);  // L = 4800
  const float L = 4800.0f;
  const std::vector<int32_t> a = {0, 1, 2, 99, -1};  // out-of-range indices are ignored
  const std::vector<int32_t> b = {1, 3};
  const std::vector<int32_t> d = {2};
  std::vector<GroupRule> g(4);
  g[0].mode = kModeHoldOut, g[0].elements = a;
  g[1].mode = kModeSetFrame, g[1].frame = 7.0f, g[1].elements = b;  // wins for element 1
  g[2].mode = kModeSetMatId, g[2].matIndex = 6, g[2].elements = b;
  g[3].mode = kModeDelay, g[3].delay = 2.0f, g[3].elements = d;  // offsets the unheld time
  Pass s(5);
  const TimeValue t = 1600;
  s.Run(t, p, c, false, g);
  EXPECT_FLOAT_EQ(s.el[0].time, L);
  EXPECT_FLOAT_EQ(s.el[1].time, 7.0f * kTpf);
  EXPECT_FLOAT_EQ(s.el[2].time, 1600.0f - 2 * kTpf);
  EXPECT_FLOAT_EQ(s.el[3].time, 7.0f * kTpf);
  EXPECT_FLOAT_EQ(s.el[4].time, 1600.0f);
  EXPECT_EQ(s.el[1].matIdOverride, 6);
  EXPECT_EQ(s.el[3].matIdOverride, 6);
  EXPECT_EQ(s.el[0].matIdOverride, -1);

  // Disabled groups do nothing; a later hold-in overrides an earlier hold-out.
  g[1].enabled = false;
  g[2].mode = kModeHoldIn;
  s.Run(t, p, c, false, g);
  EXPECT_FLOAT_EQ(s.el[1].time, 0.0f);
  EXPECT_FLOAT_EQ(s.el[0].time, L);
  EXPECT_EQ(s.el[1].matIdOverride, -1);

  // Under reverse the delay adds; set frame converts cache frames at a 60 fps cache.
  p.reverse = true;
  g[1].enabled = true;
  s.Run(t, p, Cache(31, 60), false, g);
  EXPECT_FLOAT_EQ(s.el[2].time, (2400.0f - 1600.0f) + 2 * kTpf);
}

TEST(ElementTimes, DeleteByAgeDistanceAndTriggerSwitch) {
  PlaybackSettings p;
  const std::vector<int32_t> all = {0, 1, 2};
  GroupRule del;
  del.mode = kModeDelete;
  del.deleteByAge = true;
  del.deleteAge = 5.0f;  // 800 ticks
  del.elements = all;
  Pass s(3);
  // No switch on: delete removes nothing.
  GroupRule idle = del;
  idle.deleteByAge = false;
  s.Run(5000, p, Cache(100), false, std::span(&idle, 1));
  for (const auto& e : s.el) EXPECT_FALSE(e.removed);

  s.at[0] = 0;
  s.at[1] = 400;
  // Element 0 has played 800 ticks: old enough. Element 1 only 400. Element 2 is not
  // triggered and the group respects activation, so it is left alone.
  s.Run(800, p, Cache(100), true, std::span(&del, 1));
  EXPECT_TRUE(s.el[0].removed);
  EXPECT_FALSE(s.el[1].removed);
  EXPECT_FALSE(s.el[2].removed);

  // Without the trigger switch the age is the global time: every element is 800 old.
  del.trigger = false;
  s.Run(800, p, Cache(100), true, std::span(&del, 1));
  EXPECT_TRUE(s.el[1].removed);
  EXPECT_TRUE(s.el[2].removed);

  // Age 0 removes every element, even one whose time is still negative.
  del.deleteAge = 0.0f;
  p.start = 100;
  s.Run(0, p, Cache(100), false, std::span(&del, 1));
  for (const auto& e : s.el) EXPECT_TRUE(e.removed);
  // Only 0 is special: a negative age is compared like any other. At time -1600 an element is
  // younger than -2 frames (-320 ticks) and stays; at -100 it is older and goes.
  del.deleteAge = -2.0f;
  p.start = 10;
  s.Run(0, p, Cache(100), false, std::span(&del, 1));
  for (const auto& e : s.el) {
    EXPECT_FLOAT_EQ(e.time, -1600.0f);
    EXPECT_FALSE(e.removed);
  }
  s.Run(1500, p, Cache(100), false, std::span(&del, 1));
  for (const auto& e : s.el) EXPECT_TRUE(e.removed);

  // Distance: queued with the squared limit unless removed already; a removed element is
  // skipped by later groups too.
  p.start = 0;
  del.deleteByAge = true;
  del.deleteAge = 3.0f;  // 480 ticks
  del.deleteByDistance = true;
  del.deleteDistance = 3.0f;
  GroupRule hold;
  hold.mode = kModeHoldIn;
  hold.elements = all;
  s.at = {0, 200, kNotTriggered};
  const std::vector<GroupRule> two = {del, hold};
  s.Run(600, p, Cache(100), false, two);
  EXPECT_TRUE(s.el[0].removed);
  EXPECT_FLOAT_EQ(s.el[0].time, 600.0f);  // hold skipped it
  ASSERT_TRUE(s.dist.empty());            // every element was old enough
  s.Run(400, p, Cache(100), false, two);
  ASSERT_EQ(s.dist.size(), 3u);
  EXPECT_FLOAT_EQ(s.dist[1].limitSquared, 9.0f);

  struct P {
    float x, y, z;
  };
  const P pos[3] = {{0, 0, 0}, {3, 0, 0}, {0, 2.9f, 0}};
  ApplyDistanceDeletion(
      std::span<const DistanceCheck>(s.dist), P{0, 0, 0}, [&](int32_t e) { return pos[e]; },
      std::span(s.el));
  EXPECT_FALSE(s.el[0].removed);
  EXPECT_TRUE(s.el[1].removed);  // exactly at the limit counts
  EXPECT_FALSE(s.el[2].removed);
}

TEST(ElementTimes, AgeUnderReverseCountsFromTheEnd) {
  PlaybackSettings p;
  p.reverse = true;
  const std::vector<int32_t> one = {0};
  GroupRule del;
  del.mode = kModeDelete;
  del.deleteByAge = true;
  del.deleteAge = 2.0f;  // 320 ticks
  del.elements = one;
  Pass s(1);
  s.Run(300, p, Cache(31), false, std::span(&del, 1));
  EXPECT_FALSE(s.el[0].removed);
  s.Run(320, p, Cache(31), false, std::span(&del, 1));
  EXPECT_TRUE(s.el[0].removed);
}

// Records left from an earlier frame change nothing: every rule applies in order (a later
// group overriding an earlier one, a removed element skipped by later rules) over values the
// pass sets itself, and the sampling fields frame assembly owns are left as they were.
TEST(ElementTimes, StaleRecordsLeaveNoTrace) {
  const int n = 12;
  Pass fresh(n);
  for (int e = 0; e < n; e += 2) fresh.at[size_t(e)] = 100 * e;
  const std::vector<int32_t> low{0, 1, 2, 3, 4, 5}, odd{1, 3, 5, 7, 9, 11},
      high{6, 7, 8, 9, 10, 11};
  std::vector<GroupRule> g(5);
  g[0].mode = kModeDelay, g[0].delay = 2, g[0].trigger = false, g[0].elements = low;
  g[1].mode = kModeSetMatId, g[1].matIndex = 3, g[1].trigger = false, g[1].elements = odd;
  g[2].mode = kModeDelete, g[2].deleteByAge = true, g[2].deleteAge = 10, g[2].trigger = false;
  g[2].elements = high;
  g[3].mode = kModeSetMatId, g[3].matIndex = 5, g[3].trigger = false, g[3].elements = low;
  g[4].mode = kModeHoldOut, g[4].trigger = false, g[4].elements = high;
  PlaybackSettings p;
  for (const bool trig : {true, false}) {
    for (const TimeValue t : {0, 700, 2000}) {
      Pass stale = fresh;
      for (auto& f : stale.el) f.time = -7, f.removed = true, f.matIdOverride = 9, f.sampleA = 4;
      fresh.Run(t, p, Cache(31, 30, n), trig, g);
      stale.Run(t, p, Cache(31, 30, n), trig, g);
      for (size_t e = 0; e < size_t(n); ++e) {
        EXPECT_EQ(stale.el[e].time, fresh.el[e].time) << e;
        EXPECT_EQ(stale.el[e].removed, fresh.el[e].removed) << e;
        EXPECT_EQ(stale.el[e].matIdOverride, fresh.el[e].matIdOverride) << e;
        EXPECT_EQ(stale.el[e].sampleA, 4) << e;
      }
      EXPECT_EQ(stale.dist.size(), fresh.dist.size());
      // The rules did act: the later tag wins, and the held end waits for the age to pass.
      const auto& f = stale.el;
      EXPECT_EQ(f[1].matIdOverride, 5);
      EXPECT_EQ(f[9].matIdOverride, 3);
      EXPECT_EQ(f[8].removed, t >= 2000);
      if (t < 2000) {
        EXPECT_EQ(f[8].time, 30.0f * kTpf);
      }
      EXPECT_EQ(f[11].removed, t >= 2000);
    }
  }
}

TEST(Units, FactorsAndConversions) {
  EXPECT_FLOAT_EQ(UnitScale(5, 0), 1.0f / 39.3701f);  // metres to inches
  EXPECT_EQ(UnitScale(6, 2), 160900.0f / 39370.1f);   // kilometres to miles, single precision
  EXPECT_EQ(kUnitFactors[2], 160900.0f);
  EXPECT_EQ(UnitScale(3, 3), 1.0f);
  EXPECT_EQ(UnitScale(-1, 1), 12.0f);
}

// A host that cuts the work into ranges of `grain` and runs them last first, on one thread: a
// result that depended on the order of the ranges would show it every time.
struct BackwardsHost : test::FakeInterface {
  void ParallelFor(size_t n, size_t grain, host::RangeFn fn) override {
    for (size_t end = n; end > 0;) {
      const size_t begin = end > grain ? end - grain : 0;
      fn(begin, end);
      end = begin;
    }
  }
};

// Shared among threads, the pass gives exactly what it gives on one: every rule in order over
// ranges of each group, and the distance queue in the group's order.
TEST(ElementTimes, ThreadsChangeNothing) {
  const int n = 5 * int(kPassGrain) + 123;
  std::mt19937 gen(11);
  Pass serial(n);
  for (TimeValue& a : serial.at) a = gen() % 4 == 0 ? kNotTriggered : TimeValue(gen() % 3200);
  // Overlapping groups of every mode, each listing a random part of the elements in order.
  std::vector<std::vector<int32_t>> lists(6);
  for (auto& l : lists)
    for (int e = 0; e < n; ++e)
      if (gen() % 3 == 0) l.push_back(e);
  std::vector<GroupRule> g(6);
  g[0].mode = kModeDelay, g[0].delay = 3;
  g[1].mode = kModeSetMatId, g[1].matIndex = 2, g[1].trigger = false;
  g[2].mode = kModeDelete, g[2].deleteByAge = true, g[2].deleteAge = 2;
  g[2].deleteByDistance = true, g[2].deleteDistance = 2;
  g[3].mode = kModeHoldOut, g[3].trigger = false;
  g[4].mode = kModeSetFrame, g[4].frame = 4;
  g[5].mode = kModeHoldIn;
  for (size_t k = 0; k < g.size(); ++k) g[k].elements = lists[k];

  standalone::Scene scene;
  scene.SetThreadCount(2);
  BackwardsHost backwards;
  PlaybackSettings p;
  for (const auto& [t, host] : {std::pair<TimeValue, host::Interface*>{800, &scene},
                                {2400, &scene},
                                {800, &backwards},
                                {2400, &backwards}}) {
    serial.Run(t, p, Cache(31, 30, n), true, g);
    Pass shared = serial;
    for (auto& f : shared.el) f = {};
    ComputeElementTimes(t, p, kScene30, Cache(31, 30, n), true, g, shared.at, shared.dist,
                        shared.el, host);
    int removed = 0, tagged = 0;
    for (size_t e = 0; e < size_t(n); ++e) {
      const auto& a = serial.el[e];
      const auto& b = shared.el[e];
      ASSERT_EQ(std::bit_cast<uint32_t>(a.time), std::bit_cast<uint32_t>(b.time)) << e;
      ASSERT_EQ(a.removed, b.removed) << e;
      ASSERT_EQ(a.matIdOverride, b.matIdOverride) << e;
      removed += a.removed;
      tagged += a.matIdOverride >= 0;
    }
    ASSERT_EQ(shared.dist.size(), serial.dist.size());
    for (size_t k = 0; k < serial.dist.size(); ++k)
      EXPECT_EQ(shared.dist[k].element, serial.dist[k].element) << k;
    // The rules did act on a good share of the elements.
    EXPECT_GT(removed, n / 100);
    EXPECT_GT(tagged, n / 5);
    EXPECT_GT(serial.dist.size(), size_t(n / 100));
  }
}

}  // namespace
}  // namespace kv

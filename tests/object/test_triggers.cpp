// Trigger scan: reach test, gizmo scale, slicing, refinement to the tick, cancel.
#include <gtest/gtest.h>

#include <vector>

#include "object/triggers.h"

namespace kv {
namespace {

struct Scan {
  std::vector<TimeValue> el;
  std::vector<TriggerHit> hits;
  explicit Scan(size_t n) : el(n), hits(n) {}
  bool Run(const TriggerScanSettings& s, const std::vector<Point3>& pos,
           const std::function<TriggerVolume(TimeValue)>& at,
           const std::function<bool(TimeValue)>& cancel = {}) {
    return ScanTriggers(s, pos, at, cancel, el, hits);
  }
};

TriggerScanSettings Range(TimeValue u0, TimeValue u1, int steps = 0, bool graph = false) {
  return ScanRange(Interval(u0, u1), graph, u0 / 160, 160, steps);
}

TEST(Triggers, StillGizmoReachesStrictlyInsideItsScaledRadius) {
  const std::vector<Point3> pos = {{39.9f, 0, 0}, {0, 40.0f, 0}, {0, 0, 79.9f}, {80.0f, 0, 0}};
  int evaluations = 0;
  Scan s(pos.size());
  ASSERT_TRUE(s.Run(Range(0, 1600), pos, [&](TimeValue) {
    ++evaluations;
    return TriggerVolume{};
  }));
  EXPECT_NE(s.el[0], kNotTriggered);
  EXPECT_EQ(s.el[0], 0);
  EXPECT_EQ(s.el[1], kNotTriggered);  // exactly on the sphere is outside
  EXPECT_EQ(s.el[2], kNotTriggered);

  // A gizmo scaled by 2 reaches twice as far in world terms.
  TriggerVolume big;
  big.tm = ScaleMatrix({2, 2, 2});
  s.Run(Range(0, 1600), pos, [&](TimeValue) { return big; });
  EXPECT_NE(s.el[1], kNotTriggered);
  EXPECT_NE(s.el[2], kNotTriggered);
  EXPECT_EQ(s.el[3], kNotTriggered);
  EXPECT_EQ(s.hits[2].tm, big.tm);
  EXPECT_FLOAT_EQ(s.hits[2].radius, kGizmoTriggerRadius);

  // Omni-style volumes: the radius alone grows.
  s.Run(Range(0, 320), pos, [&](TimeValue u) {
    return TriggerVolume{Matrix3(), u >= 160 ? 85.f : 1.f};
  });
  for (const TimeValue at : s.el) {
    EXPECT_GT(at, 0);
    EXPECT_LE(at, 160);
  }
}

TEST(Triggers, SlicesAndRefinementFindTheTick) {
  // The gizmo slides along +X a quarter unit per tick from x = -1000; the element at the
  // origin is first strictly inside at tick 3841.
  const auto at = [](TimeValue u) {
    return TriggerVolume{TransMatrix({-1000.0f + 0.25f * static_cast<float>(u), 0, 0}), 40.0f};
  };
  const std::vector<Point3> pos = {{0, 0, 0}};
  std::vector<TimeValue> scanned;
  Scan s(1);
  ASSERT_TRUE(s.Run(Range(0, 4800, 3), pos, at, [&](TimeValue u) {
    scanned.push_back(u);
    return false;
  }));
  ASSERT_GE(scanned.size(), 3u);
  EXPECT_EQ(scanned[1] - scanned[0], 20);  // 1/8 frame slices
  EXPECT_EQ(scanned.back(), 3860);         // the scan stops once everything is triggered
  ASSERT_NE(s.el[0], kNotTriggered);
  EXPECT_GT(s.el[0], 3840);  // never before the true crossing
  EXPECT_LE(s.el[0], 3842);  // and far closer than the 20-tick slice

  // Whole-frame scanning lands on 4000 and refines just as close.
  s.Run(Range(0, 4800, 0), pos, at);
  EXPECT_GT(s.el[0], 3840);
  EXPECT_LE(s.el[0], 3842);

  // The last slice is shortened to land on the range end.
  scanned.clear();
  Scan far(1);
  far.Run(Range(0, 250), {{5000, 0, 0}}, at, [&](TimeValue u) {
    scanned.push_back(u);
    return false;
  });
  EXPECT_EQ(scanned, (std::vector<TimeValue>{0, 160, 250}));
  EXPECT_EQ(far.el[0], kNotTriggered);
}

TEST(Triggers, RefinementStaysAtTheStartWithoutGraph) {
  // Reached at the first scan time: no refinement without the graph, refinement before the
  // start with it (the volume did not move, which counts as reaching).
  const std::vector<Point3> pos = {{0, 0, 0}};
  Scan s(1);
  s.Run(Range(800, 1600), pos, [](TimeValue) { return TriggerVolume{}; });
  EXPECT_EQ(s.el[0], 800);
  s.Run(Range(800, 1600, 0, true), pos, [](TimeValue) { return TriggerVolume{}; });
  EXPECT_LT(s.el[0], 800);
  EXPECT_GT(s.el[0], 800 - 160);

  // Reached in the second 1/8-frame slice, by a volume that also covers the element before
  // the start: the first probe, half a frame back, lands before the start and succeeds, and
  // reaching the start ends the search (a further probe at 700 would succeed too).
  const auto at = [](TimeValue u) {
    return TriggerVolume{Matrix3(), (u > 800 || u < 790) ? 50.f : 1.f};
  };
  s.Run(Range(800, 1600, 3), {{0, 10, 0}}, at);
  EXPECT_EQ(s.el[0], 740);
  // Under the graph the search goes on to the tick.
  s.Run(Range(800, 1600, 3, true), {{0, 10, 0}}, at);
  EXPECT_LT(s.el[0], 740);
}

TEST(Triggers, OnlyChangesAboveTheSmallestNormalFloatCountAsMoves) {
  // A radius that differs by a denormal is the same radius; 2e-38 is a change.
  const TriggerVolume zero{Matrix3(), 0.0f}, denormal{Matrix3(), 1e-39f}, tiny{Matrix3(), 2e-38f};
  EXPECT_FALSE(VolumeChanged(zero, zero));
  EXPECT_FALSE(VolumeChanged(zero, denormal));
  EXPECT_TRUE(VolumeChanged(zero, tiny));
  TriggerVolume moved = zero;
  moved.tm = TransMatrix({0, 0, 1e-10f});
  EXPECT_TRUE(VolumeChanged(zero, moved));
  moved.tm = TransMatrix({0, 0, 1e-39f});
  EXPECT_FALSE(VolumeChanged(zero, moved));
  moved.tm = RotateZMatrix(1e-6f);  // the rotation rows count as much as the translation
  EXPECT_TRUE(VolumeChanged(zero, moved));
}

TEST(Triggers, CancelResetsEverythingAndRangeFollowsSettings) {
  std::vector<TimeValue> el(2);
  std::vector<TriggerHit> hits(2);
  el[1] = 99;  // stale
  int polls = 0;
  const std::vector<Point3> pos = {{0, 0, 0}, {500, 0, 0}};
  EXPECT_FALSE(ScanTriggers(
      Range(0, 1600), pos, [](TimeValue) { return TriggerVolume{}; },
      [&](TimeValue) { return ++polls == 2; }, el, hits));
  EXPECT_EQ(el[0], kNotTriggered);  // it was reached at the first scan time
  EXPECT_EQ(el[1], kNotTriggered);
  EXPECT_EQ(hits[0].radius, 0.0f);  // nor does it keep the volume that reached it

  // Range: graph starts at the animation range, else at the playback start; never ends
  // before it starts.
  TriggerScanSettings r = ScanRange(Interval(320, 3200), true, 50, 160, 2);
  EXPECT_EQ(r.u0, 320);
  EXPECT_EQ(r.u1, 3200);
  r = ScanRange(Interval(320, 3200), false, 50, 160, 2);
  EXPECT_EQ(r.u0, 8000);
  EXPECT_EQ(r.u1, 8000);
}

}  // namespace
}  // namespace kv

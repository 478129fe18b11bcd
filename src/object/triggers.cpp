#include "object/triggers.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace kv {

namespace {
constexpr float kChangeEpsilon = std::numeric_limits<float>::min();  // 1.1754944e-38
}  // namespace

bool VolumeChanged(const TriggerVolume& a, const TriggerVolume& b) {
  if (std::fabs(a.radius - b.radius) > kChangeEpsilon) return true;
  for (int i = 0; i < 4; ++i) {
    if ((a.tm.GetRow(i) - b.tm.GetRow(i)).Length() > kChangeEpsilon) return true;
  }
  return false;
}

bool VolumeContains(const TriggerVolume& v, const Matrix3& inverseTm, const Point3& p) {
  return v.radius > inverseTm.PointTransform(p).Length();
}

TriggerScanSettings ScanRange(const Interval& animRange, bool useGraph, int playStart,
                              int ticksPerFrame, int stepsIndex) {
  TriggerScanSettings s;
  s.ticksPerFrame = ticksPerFrame;
  s.stepsIndex = stepsIndex;
  s.useGraph = useGraph;
  s.u0 = useGraph ? animRange.Start()
                  : static_cast<TimeValue>(static_cast<int64_t>(playStart) * ticksPerFrame);
  s.u1 = animRange.End() < s.u0 ? s.u0 : animRange.End();
  return s;
}

void ResetTriggers(std::span<TimeValue> triggerTimes) {
  std::fill(triggerTimes.begin(), triggerTimes.end(), kNotTriggered);
}

bool ScanTriggers(const TriggerScanSettings& s, std::span<const Point3> positions,
                  const std::function<TriggerVolume(TimeValue)>& volumeAt,
                  const std::function<bool(TimeValue)>& cancel, std::span<TimeValue> triggerTimes,
                  std::span<TriggerHit> hits) {
  ResetTriggers(triggerTimes);
  const size_t n = std::min({positions.size(), triggerTimes.size(), hits.size()});
  if (n == 0) return true;

  const int64_t step = std::max(SliceTicks(s.ticksPerFrame, s.stepsIndex), 1);
  TriggerVolume prev;
  size_t remaining = n;
  bool first = true;
  for (int64_t u = s.u0;; u = std::min<int64_t>(u + step, s.u1)) {
    const TimeValue ut = static_cast<TimeValue>(u);
    if (cancel && cancel(ut)) {
      ResetTriggers(triggerTimes);
      std::fill(hits.begin(), hits.end(), TriggerHit{});
      return false;
    }
    const TriggerVolume v = volumeAt(ut);
    const bool test = first || VolumeChanged(prev, v);
    prev = v;
    first = false;
    if (test) {
      const Matrix3 inv = Inverse(v.tm);
      for (size_t i = 0; i < n; ++i) {
        if (triggerTimes[i] != kNotTriggered || !VolumeContains(v, inv, positions[i])) continue;
        triggerTimes[i] = ut;
        hits[i] = {v.tm, v.radius};
        --remaining;
      }
    }
    if (remaining == 0 || u >= s.u1) break;
  }

  // Refinement: the scan only knows the slice in which an element was reached; probe back by
  // halving distances to find the tick. A volume that did not move since the previous probe
  // cannot have left the element, so it counts as reaching it.
  if (s.ticksPerFrame < 2) return true;
  for (size_t i = 0; i < n; ++i) {
    TimeValue& at = triggerTimes[i];
    if (at == kNotTriggered) continue;
    if (!s.useGraph && at == s.u0) continue;
    // With sub-frame slices the first probes can reach back before u0; a success there ends
    // the search without the graph, since playback starts at u0.
    for (int half = s.ticksPerFrame / 2; half >= 1; half /= 2) {
      const TimeValue probe = at - half;
      const TriggerVolume v = volumeAt(probe);
      const bool unchanged = !VolumeChanged(prev, v);
      prev = v;
      if (unchanged || VolumeContains(v, Inverse(v.tm), positions[i])) {
        at = probe;
        hits[i] = {v.tm, v.radius};
      }
      if (half == 1 || (!s.useGraph && at <= s.u0)) break;
    }
  }
  return true;
}

}  // namespace kv

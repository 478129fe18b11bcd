// Trigger scan: finds, for every element, the first scene time at which a trigger volume (a
// sphere carried by a transform) reaches the element's rest position. Pure logic: the volume
// over time and the cancel poll come in as callables, so gizmo and omni modes share it.
#pragma once

#include <functional>
#include <span>

#include "geom/matrix3.h"
#include "geom/point.h"
#include "geom/time.h"
#include "object/time_mapping.h"

namespace kv {

// The gizmo's sphere radius, in gizmo space.
inline constexpr float kGizmoTriggerRadius = 40.0f;

// The trigger sphere at one time: its transform and its radius in that transform's space.
struct TriggerVolume {
  Matrix3 tm;
  float radius = kGizmoTriggerRadius;
};

// Whether the volume moved between two evaluations: any row of the transform differing by
// more than the smallest normal float, or the radius doing so. Unchanged volumes need no
// retest, which keeps a scan over a still gizmo cheap.
bool VolumeChanged(const TriggerVolume& a, const TriggerVolume& b);

// Whether a point lies strictly inside the volume (tested in the volume's own space, so a
// scaled gizmo scales its reach).
bool VolumeContains(const TriggerVolume& v, const Matrix3& inverseTm, const Point3& p);

// The transform and radius an element was triggered with.
struct TriggerHit {
  Matrix3 tm;
  float radius = 0.0f;
};

struct TriggerScanSettings {
  TimeValue u0 = 0;  // first scan time
  TimeValue u1 = 0;  // last scan time (>= u0)
  int ticksPerFrame = 160;
  int stepsIndex = 0;     // `triggerSteps`
  bool useGraph = false;  // `playUseGraph`: refinement may then reach before u0
};

// The scan range for the scene's animation range: from the range start under the graph, else
// from the playback start frame; to the range end, or u0 when the range ends before it.
TriggerScanSettings ScanRange(const Interval& animRange, bool useGraph, int playStart,
                              int ticksPerFrame, int stepsIndex);

// Scans [u0, u1] in slices of SliceTicks(ticksPerFrame, stepsIndex), then refines each trigger
// time towards the tick by halving probes. `positions` holds one rest position per element;
// `triggerTimes` and `hits` are resized by the caller to the same count, reset here and filled
// (kNotTriggered for an element the volume never reaches). `cancel(u)` is polled once per scan
// time; when it returns true every trigger and hit is reset and the scan returns false. Returns
// true when the scan completed (also when nothing was triggered).
bool ScanTriggers(const TriggerScanSettings& s, std::span<const Point3> positions,
                  const std::function<TriggerVolume(TimeValue)>& volumeAt,
                  const std::function<bool(TimeValue)>& cancel, std::span<TimeValue> triggerTimes,
                  std::span<TriggerHit> hits);

// Marks every element not triggered.
void ResetTriggers(std::span<TimeValue> triggerTimes);

}  // namespace kv

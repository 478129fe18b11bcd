// Playback time mapping: scene time to one global cache time, then to one cache time per
// element (triggers and group rules applied). Pure functions over small input records, so
// that the cache object, explode and the viewport share one implementation and the rules can
// be tested without a host or a file.
#pragma once

#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <vector>

#include "geom/time.h"

namespace KelvaneTools {
struct ElementFrameState;
}
namespace kv::host {
class Interface;
}

namespace kv {

// Out-of-range rules, values of `playInORT` / `playOutORT`.
enum OutOfRange : int { kOrtHide = 0, kOrtHold = 1, kOrtLoop = 2, kOrtPingPong = 3 };

// Group modes (values stored with the groups).
enum GroupRuleMode : uint32_t {
  kModeDelete = 0,
  kModeHoldIn = 1,
  kModeHoldOut = 2,
  kModeDelay = 3,
  kModeSetFrame = 4,
  kModeSetMatId = 5,
};

// Sub-frame steps per frame for `playSpeedSteps` / `triggerSteps` 0..3 (1, 2, 4, 8); an
// out-of-range index is clamped.
int SubSteps(int stepsIndex);

// Length of one slice when a frame of `ticksPerFrame` is cut into SubSteps(stepsIndex): the
// whole frame when it has no more ticks than slices.
int SliceTicks(int ticksPerFrame, int stepsIndex);

struct SceneTiming {
  int ticksPerFrame = 160;
  int frameRate = 30;
};

// What the open cache tells the time mapping.
struct CacheTiming {
  int fps = 30;         // cache frame rate (frames per second)
  int numSamples = 0;   // N
  int numElements = 0;  // E
  int LastSample() const { return numSamples > 0 ? numSamples - 1 : 0; }
  // L = (4800 / fps) * (N - 1) in integers: the quotient is truncated first, and the sample
  // spacing stored in the file does not enter.
  TimeValue Length() const { return fps > 0 ? (kTicksPerSecond / fps) * LastSample() : 0; }
};

// The playback parameters, read at the scene time of the pass.
struct PlaybackSettings {
  bool useGraph = false;  // `playUseGraph`
  float frame = 0.0f;     // `playFrame` at t
  int start = 0;          // `playStart`, scene frames
  float speed = 1.0f;     // `playSpeed` at t
  // `playSpeed` at any tick; set only when the parameter is animated, which switches stage 1
  // to integrating the speed over sub-frame slices.
  std::function<float(TimeValue)> speedAt;
  int fps = 30;           // `playFPS` at t
  int speedSteps = 0;     // `playSpeedSteps`
  bool reverse = false;   // `playReverse`
  int inORT = kOrtHold;   // `playInORT`
  int outORT = kOrtHold;  // `playOutORT`

  // Start of playback in scene ticks (float, as the mapping uses it).
  float StartTicks(const SceneTiming& s) const {
    return static_cast<float>(start) * static_cast<float>(s.ticksPerFrame);
  }
};

// Stage 1: the global cache time (float ticks, relative to the cache start) for scene time t.
// Negative before the start and beyond L after the end; the out-of-range rules decide what
// such times show.
float GlobalCacheTime(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                      const CacheTiming& cache);

// An element's trigger: the scene tick at which the trigger volume first reached it, or this
// for an element it never reached. Kept as one plain tick per element, so that every pass
// reads four bytes an element, and "triggered and due by t" is the single test `time <= t`.
inline constexpr TimeValue kNotTriggered = std::numeric_limits<TimeValue>::max();

// One group as the time mapping sees it (built from the object's group list each pass).
struct GroupRule {
  bool enabled = true;
  uint32_t mode = kModeHoldIn;
  float delay = 0.0f;   // frames
  int matIndex = 0;     // zero-based material id
  bool trigger = true;  // act only on triggered elements while triggers are active
  bool deleteByDistance = false;
  float deleteDistance = 0.0f;
  bool deleteByAge = false;
  float deleteAge = 0.0f;             // frames
  float frame = 0.0f;                 // the group's `elementFrames` entry at t
  std::span<const int32_t> elements;  // ascending, unique
};

// An element queued for the distance-to-gizmo test, with its squared limit.
struct DistanceCheck {
  int32_t element = 0;
  float limitSquared = 0.0f;
};

// Results of stage 2 besides the per-element values.
struct PassResult {
  int inORT = kOrtHold;  // in effect (swapped under reverse)
  int outORT = kOrtHold;
  bool reverse = false;  // `playReverse` in effect (never under the graph)
  float globalTime = 0.0f;
};

// Stage 2: per-element times for scene time t, written with each element's removal and
// material override into `frames`, one record per element, where frame assembly reads them
// (the sampling fields are left alone). `triggerTimes` holds each element's trigger tick, read
// while triggers are active (a list of another length counts as inactive triggers). Groups apply
// in list order, later groups winning; `distance` receives the elements that delete-by-
// distance groups queue (cleared first). Element indices outside `frames` are ignored. With a
// host, the elements are shared among its threads (each group's in turn); the results do not
// depend on how.
inline constexpr size_t kPassGrain = 8192;  // elements per range of the host's parallel-for
PassResult ComputeElementTimes(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                               const CacheTiming& cache, bool triggersActive,
                               std::span<const GroupRule> groups,
                               std::span<const TimeValue> triggerTimes,
                               std::vector<DistanceCheck>& distance,
                               std::span<KelvaneTools::ElementFrameState> frames,
                               host::Interface* host = nullptr);

// Distance deletion: every queued element whose position lies at a squared distance >= its
// limit from `gizmoPos` is marked removed in `elements` (records with a `removed` field, such
// as the frame records the pass wrote). `positionOf(element)` gives the element's translation
// in the current frame.
template <class PositionOf, class Point, class Record>
void ApplyDistanceDeletion(std::span<const DistanceCheck> queued, const Point& gizmoPos,
                           PositionOf&& positionOf, std::span<Record> elements) {
  for (const DistanceCheck& d : queued) {
    const Point p = positionOf(d.element);
    const float dx = p.x - gizmoPos.x, dy = p.y - gizmoPos.y, dz = p.z - gizmoPos.z;
    if (dx * dx + dy * dy + dz * dz >= d.limitSquared) elements[d.element].removed = true;
  }
}

}  // namespace kv

#include "object/time_mapping.h"

#include <algorithm>

#include "cache/frame.h"

namespace kv {

int SubSteps(int stepsIndex) {
  return 1 << std::clamp(stepsIndex, 0, 3);
}

int SliceTicks(int ticksPerFrame, int stepsIndex) {
  const int d = SubSteps(stepsIndex);
  return ticksPerFrame > d ? ticksPerFrame / d : ticksPerFrame;
}

float GlobalCacheTime(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                      const CacheTiming& cache) {
  const float tpf = static_cast<float>(scene.ticksPerFrame);
  const float sceneRate = static_cast<float>(scene.frameRate);
  const float cacheRate = static_cast<float>(std::max(cache.fps, 1));
  if (p.useGraph) return p.frame * tpf * (sceneRate / cacheRate);

  const float start = p.StartTicks(scene);
  const float tf = static_cast<float>(t);
  float result;
  if (tf > start && p.speedAt) {
    // The speed is sampled at the left end of each slice; the last slice ends exactly at t.
    // No frame-rate ratio here: an animated speed already says how fast the cache runs.
    const int64_t step = std::max(SliceTicks(scene.ticksPerFrame, p.speedSteps), 1);
    int64_t u = static_cast<int64_t>(start);
    double acc = 0.0;
    while (u < t) {
      const int64_t h = std::min<int64_t>(step, t - u);
      const float speed = p.speedAt(static_cast<TimeValue>(u));
      u += h;
      acc += static_cast<double>(h) * speed;
    }
    result = static_cast<float>(acc);
  } else {
    const float ratio = sceneRate / static_cast<float>(std::max(p.fps, 1));
    // Before the start the cache runs at speed 1, so the in-range rule sees a plain offset.
    const float speed = tf < start ? 1.0f : p.speed;
    result = speed * ratio * (tf - start);
  }
  if (p.reverse) result = static_cast<float>(cache.Length()) - result;
  return result;
}

namespace {

// Where the pass keeps an element's results: in its own record, or in the frame record the
// reader samples from. Either way the element records' trigger fields are the inputs.
struct InElements {
  ElementPlayback* el;
  void Reset(size_t i, float time) const {
    ElementPlayback& e = el[i];
    e.time = time;
    e.matId = e.matId2 = -1;
    e.hasMatId = e.hasMatId2 = false;
    e.removed = false;
  }
  float Time(size_t i) const { return el[i].time; }
  void SetTime(size_t i, float time) const { el[i].time = time; }
  bool Removed(size_t i) const { return el[i].removed; }
  void Remove(size_t i) const { el[i].removed = true; }
  void SetMat(size_t i, int id) const {
    el[i].matId = id;
    el[i].hasMatId = id >= 0;
  }
};
struct InFrames {
  KelvaneTools::ElementFrameState* frames;
  void Reset(size_t i, float time) const {
    KelvaneTools::ElementFrameState& f = frames[i];
    f.time = time;
    f.removed = false;
    f.matIdOverride = -1;
  }
  float Time(size_t i) const { return frames[i].time; }
  void SetTime(size_t i, float time) const { frames[i].time = time; }
  bool Removed(size_t i) const { return frames[i].removed; }
  void Remove(size_t i) const { frames[i].removed = true; }
  void SetMat(size_t i, int id) const { frames[i].matIdOverride = id >= 0 ? id : -1; }
};

template <class Out>
PassResult ElementTimes(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                        const CacheTiming& cache, bool triggersActive,
                        std::span<const GroupRule> groups,
                        std::span<const ElementPlayback> elements,
                        std::vector<DistanceCheck>& distance, PassScratch& scratch, Out out) {
  PassResult r;
  const float global = GlobalCacheTime(t, p, scene, cache);
  r.globalTime = global;
  r.reverse = !p.useGraph && p.reverse;
  r.inORT = r.reverse ? p.outORT : p.inORT;
  r.outORT = r.reverse ? p.inORT : p.outORT;
  distance.clear();

  // One pass sets every element's time from the triggers, kept for the delay rule when a group
  // delays.
  const int64_t tpf = scene.ticksPerFrame;
  const float start = p.StartTicks(scene);
  const int64_t base = r.reverse ? cache.LastSample() : 0;
  const float untriggered = static_cast<float>(base * tpf);
  bool anyDelay = false;
  for (const GroupRule& g : groups) anyDelay |= g.enabled && g.mode == kModeDelay;
  if (anyDelay) scratch.afterTriggers.resize(elements.size());
  float* afterTriggers = anyDelay ? scratch.afterTriggers.data() : nullptr;
  const ElementPlayback* el = elements.data();
  const size_t n = elements.size();
  for (size_t i = 0; i < n; ++i) {
    const ElementPlayback& e = el[i];
    float time = global;
    if (triggersActive) {
      if (!e.triggered) {
        time = untriggered;
      } else if (e.triggerTime <= t) {
        if (!p.useGraph) {
          const float since = static_cast<float>(e.triggerTime) - start;
          time = r.reverse ? since + global : global - since;
        }
      } else {
        // Not yet due: a time before the first (or past the last) sample, so the range rules
        // decide what it shows while it waits.
        time = static_cast<float>(r.reverse ? (base + 1) * tpf - t + e.triggerTime
                                            : (base - 1) * tpf - e.triggerTime + t);
      }
    }
    out.Reset(i, time);
    if (afterTriggers) afterTriggers[i] = time;
  }
  if (groups.empty()) return r;

  const float rateRatio =
      static_cast<float>(scene.frameRate) / static_cast<float>(std::max(cache.fps, 1));
  const float length = static_cast<float>(cache.Length());
  const float tpff = static_cast<float>(tpf);
  const int64_t count = static_cast<int64_t>(n);
  // Until a delete rule has run no element is removed, and the records need not be read.
  bool mayBeRemoved = false;
  for (const GroupRule& g : groups) {
    if (!g.enabled) continue;
    const float delayTicks = g.delay * tpff;
    const float ageTicks = g.deleteAge * tpff * rateRatio;
    const float frameTicks = g.frame * tpff * rateRatio;
    const float limit = g.deleteDistance * g.deleteDistance;
    const bool useCurrentAge = g.trigger || !triggersActive;
    const bool waitForTrigger = triggersActive && g.trigger;
    // The rule's mode is chosen once, outside the loop over its elements.
    auto each = [&](auto&& apply) {
      for (const int32_t idx : g.elements) {
        if (idx < 0 || idx >= count) continue;
        const size_t i = size_t(idx);
        if (mayBeRemoved && out.Removed(i)) continue;
        if (waitForTrigger && (!el[i].triggered || el[i].triggerTime > t)) continue;
        apply(i);
      }
    };
    switch (g.mode) {
      case kModeDelete:
        mayBeRemoved |= g.deleteByAge;
        each([&](size_t i) {
          if (g.deleteByAge) {
            float age = useCurrentAge ? out.Time(i) : global;
            if (r.reverse) age = length - age;
            // An age of 0 removes every element of the group, even one not started yet; any
            // other age, negative ones too, is compared.
            if (g.deleteAge == 0.0f || age >= ageTicks) out.Remove(i);
          }
          if (g.deleteByDistance && !out.Removed(i)) distance.push_back({int32_t(i), limit});
        });
        break;
      case kModeHoldIn:
        each([&](size_t i) { out.SetTime(i, 0.0f); });
        break;
      case kModeHoldOut:
        each([&](size_t i) { out.SetTime(i, length); });
        break;
      case kModeDelay:
        each([&](size_t i) {
          out.SetTime(i, r.reverse ? afterTriggers[i] + delayTicks : afterTriggers[i] - delayTicks);
        });
        break;
      case kModeSetFrame:
        each([&](size_t i) { out.SetTime(i, frameTicks); });
        break;
      case kModeSetMatId:
        each([&](size_t i) { out.SetMat(i, g.matIndex); });
        break;
      default:
        break;
    }
  }
  return r;
}

}  // namespace

PassResult ComputeElementTimes(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                               const CacheTiming& cache, bool triggersActive,
                               std::span<const GroupRule> groups,
                               std::span<ElementPlayback> elements,
                               std::vector<DistanceCheck>& distance, PassScratch& scratch) {
  return ElementTimes(t, p, scene, cache, triggersActive, groups, elements, distance, scratch,
                      InElements{elements.data()});
}

PassResult ComputeElementTimes(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                               const CacheTiming& cache, bool triggersActive,
                               std::span<const GroupRule> groups,
                               std::span<ElementPlayback> elements,
                               std::vector<DistanceCheck>& distance, PassScratch& scratch,
                               std::span<KelvaneTools::ElementFrameState> frames) {
  if (frames.size() != elements.size())
    return ComputeElementTimes(t, p, scene, cache, triggersActive, groups, elements, distance,
                               scratch);
  return ElementTimes(t, p, scene, cache, triggersActive, groups, elements, distance, scratch,
                      InFrames{frames.data()});
}

}  // namespace kv

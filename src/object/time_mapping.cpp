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

// Where the pass hands on an element's final values; called again whenever a rule changes them.
struct NoFrames {
  void operator()(size_t, const ElementPlayback&) const {}
};
struct ToFrames {
  KelvaneTools::ElementFrameState* frames;
  void operator()(size_t i, const ElementPlayback& e) const {
    KelvaneTools::ElementFrameState& f = frames[i];
    f.time = e.time;
    f.removed = e.removed;
    f.matIdOverride = e.hasMatId ? e.matId : -1;
  }
};

template <class Out>
PassResult ElementTimes(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                        const CacheTiming& cache, bool triggersActive,
                        std::span<const GroupRule> groups, std::span<ElementPlayback> elements,
                        std::vector<DistanceCheck>& distance, PassScratch& scratch, Out out) {
  PassResult r;
  const float global = GlobalCacheTime(t, p, scene, cache);
  r.globalTime = global;
  r.reverse = !p.useGraph && p.reverse;
  r.inORT = r.reverse ? p.outORT : p.inORT;
  r.outORT = r.reverse ? p.inORT : p.outORT;
  distance.clear();

  // One pass sets every element's time from the triggers and keeps it for the delay rule.
  const int64_t tpf = scene.ticksPerFrame;
  const float start = p.StartTicks(scene);
  const int64_t base = r.reverse ? cache.LastSample() : 0;
  const float untriggered = static_cast<float>(base * tpf);
  if (!groups.empty()) scratch.afterTriggers.resize(elements.size());
  float* afterTriggers = groups.empty() ? nullptr : scratch.afterTriggers.data();
  for (size_t i = 0; i < elements.size(); ++i) {
    ElementPlayback& e = elements[i];
    e.matId = e.matId2 = -1;
    e.hasMatId = e.hasMatId2 = false;
    e.removed = false;
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
    e.time = time;
    if (afterTriggers) afterTriggers[i] = time;
    out(i, e);
  }
  if (groups.empty()) return r;

  const float rateRatio =
      static_cast<float>(scene.frameRate) / static_cast<float>(std::max(cache.fps, 1));
  const float length = static_cast<float>(cache.Length());
  const float tpff = static_cast<float>(tpf);
  const int64_t count = static_cast<int64_t>(elements.size());
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
        ElementPlayback& e = elements[idx];
        if (e.removed) continue;
        if (waitForTrigger && (!e.triggered || e.triggerTime > t)) continue;
        apply(e, idx);
        out(size_t(idx), e);
      }
    };
    switch (g.mode) {
      case kModeDelete:
        each([&](ElementPlayback& e, int32_t idx) {
          if (g.deleteByAge) {
            float age = useCurrentAge ? e.time : global;
            if (r.reverse) age = length - age;
            // An age of 0 removes every element of the group, even one not started yet; any
            // other age, negative ones too, is compared.
            if (g.deleteAge == 0.0f || age >= ageTicks) e.removed = true;
          }
          if (g.deleteByDistance && !e.removed) distance.push_back({idx, limit});
        });
        break;
      case kModeHoldIn:
        each([](ElementPlayback& e, int32_t) { e.time = 0.0f; });
        break;
      case kModeHoldOut:
        each([length](ElementPlayback& e, int32_t) { e.time = length; });
        break;
      case kModeDelay:
        each([&](ElementPlayback& e, int32_t idx) {
          e.time = r.reverse ? afterTriggers[idx] + delayTicks : afterTriggers[idx] - delayTicks;
        });
        break;
      case kModeSetFrame:
        each([frameTicks](ElementPlayback& e, int32_t) { e.time = frameTicks; });
        break;
      case kModeSetMatId:
        each([&g](ElementPlayback& e, int32_t) {
          e.matId = g.matIndex;
          e.hasMatId = g.matIndex >= 0;
        });
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
                      NoFrames{});
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
                      ToFrames{frames.data()});
}

}  // namespace kv

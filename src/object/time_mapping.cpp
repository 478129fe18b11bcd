#include "object/time_mapping.h"

#include <algorithm>

#include "cache/frame.h"
#include "host/interface.h"

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

PassResult ComputeElementTimes(TimeValue t, const PlaybackSettings& p, const SceneTiming& scene,
                               const CacheTiming& cache, bool triggersActive,
                               std::span<const GroupRule> groups,
                               std::span<const TimeValue> triggerTimes,
                               std::vector<DistanceCheck>& distance,
                               std::span<KelvaneTools::ElementFrameState> frames,
                               host::Interface* host) {
  PassResult r;
  const float global = GlobalCacheTime(t, p, scene, cache);
  r.globalTime = global;
  r.reverse = !p.useGraph && p.reverse;
  r.inORT = r.reverse ? p.outORT : p.inORT;
  r.outORT = r.reverse ? p.inORT : p.outORT;
  distance.clear();

  KelvaneTools::ElementFrameState* const out = frames.data();
  const size_t n = frames.size();
  // The trigger ticks count only while triggers are active and there is one per element.
  const bool triggered = triggersActive && triggerTimes.size() == n;
  const TimeValue* const at = triggerTimes.data();
  // Every element's result depends on its own records alone, so ranges of elements can go to
  // different threads.
  const auto forRanges = [host](size_t count, auto&& fn) {
    if (host)
      host->ParallelFor(count, kPassGrain, fn);
    else if (count > 0)
      fn(size_t{0}, count);
  };

  // An element's time from the triggers. The delay rule offsets this time, not what an earlier
  // group made of it, and computes it again rather than keeping a copy of every element's.
  const int64_t tpf = scene.ticksPerFrame;
  const float start = p.StartTicks(scene);
  const int64_t base = r.reverse ? cache.LastSample() : 0;
  const float untriggered = static_cast<float>(base * tpf);
  // The loops below hand their bodies to the host, so what those read lives in memory the
  // compiler must assume a store to a record may change: each range copies it to its own
  // locals first, which stay in registers.
  const auto fromTriggers = [triggered, at, global, untriggered, t, start, base, tpf,
                             graph = p.useGraph, reverse = r.reverse](size_t i) {
    if (!triggered) return global;
    const TimeValue a = at[i];
    if (a == kNotTriggered) return untriggered;
    if (a <= t) {
      if (graph) return global;
      const float since = static_cast<float>(a) - start;
      return reverse ? since + global : global - since;
    }
    // Not yet due: a time before the first (or past the last) sample, so the range rules
    // decide what it shows while it waits.
    return static_cast<float>(reverse ? (base + 1) * tpf - t + a : (base - 1) * tpf - a + t);
  };
  forRanges(n, [out, fromTriggers](size_t begin, size_t end) {
    const auto timeOf = fromTriggers;
    KelvaneTools::ElementFrameState* const records = out;
    for (size_t i = begin; i < end; ++i) {
      KelvaneTools::ElementFrameState& f = records[i];
      f.time = timeOf(i);
      f.removed = false;
      f.matIdOverride = -1;
    }
  });
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
    const bool useCurrentAge = g.trigger || !triggered;
    const bool waitForTrigger = triggered && g.trigger;
    // The rule's mode is chosen once, outside the loop over its elements. A group lists each
    // element once, so its ranges write disjoint records; only the distance queue, whose order
    // is the group's, is filled on one thread.
    const int32_t* const list = g.elements.data();
    auto each = [&](auto&& apply) {
      const auto range = [&](size_t begin, size_t end) {
        // Copies, kept in registers (see above); `apply` captures what it reads by value.
        const auto fn = apply;
        KelvaneTools::ElementFrameState* const records = out;
        const TimeValue* const ticks = at;
        const int32_t* const ids = list;
        const TimeValue now = t;
        const int64_t total = count;
        const bool skipRemoved = mayBeRemoved, onlyDue = waitForTrigger;
        for (size_t k = begin; k < end; ++k) {
          const int32_t idx = ids[k];
          if (idx < 0 || idx >= total) continue;
          const size_t i = size_t(idx);
          if (skipRemoved && records[i].removed) continue;
          // Triggered and due: kNotTriggered is later than any scene time.
          if (onlyDue && ticks[i] > now) continue;
          fn(records[i], i);
        }
      };
      if (g.mode == kModeDelete && g.deleteByDistance)
        range(0, g.elements.size());
      else
        forRanges(g.elements.size(), range);
    };
    switch (g.mode) {
      case kModeDelete: {
        mayBeRemoved |= g.deleteByAge;
        const bool byAge = g.deleteByAge, byDistance = g.deleteByDistance;
        const bool always = g.deleteAge == 0.0f, reverse = r.reverse;
        std::vector<DistanceCheck>* const queue = &distance;
        each([=](KelvaneTools::ElementFrameState& f, size_t i) {
          if (byAge) {
            float age = useCurrentAge ? f.time : global;
            if (reverse) age = length - age;
            // An age of 0 removes every element of the group, even one not started yet; any
            // other age, negative ones too, is compared.
            if (always || age >= ageTicks) f.removed = true;
          }
          if (byDistance && !f.removed) queue->push_back({int32_t(i), limit});
        });
        break;
      }
      case kModeHoldIn:
        each([](KelvaneTools::ElementFrameState& f, size_t) { f.time = 0.0f; });
        break;
      case kModeHoldOut:
        each([length](KelvaneTools::ElementFrameState& f, size_t) { f.time = length; });
        break;
      case kModeDelay: {
        const float shift = r.reverse ? delayTicks : -delayTicks;
        each([fromTriggers, shift](KelvaneTools::ElementFrameState& f, size_t i) {
          f.time = fromTriggers(i) + shift;
        });
        break;
      }
      case kModeSetFrame:
        each([frameTicks](KelvaneTools::ElementFrameState& f, size_t) { f.time = frameTicks; });
        break;
      case kModeSetMatId: {
        const int mat = g.matIndex >= 0 ? g.matIndex : -1;
        each([mat](KelvaneTools::ElementFrameState& f, size_t) { f.matIdOverride = mat; });
        break;
      }
      default:
        break;
    }
  }
  return r;
}

}  // namespace kv

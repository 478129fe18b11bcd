// Explode and key reduction.
//
// Reduction: 1,000 tracks of 1,000 TCB keys (positions, rotations and scales of a tumbling
// body with a little noise, as explode bakes them), reduced at the default threshold with one
// sample per key: the windowed search against the whole-interval search it must agree with.
// Explode: 10,000 elements over 100 key times, without and with reduction.
//
//   cmake --preset default && cmake --build --preset default --target bench_explode -j2
//   ./build/default/bench/bench_explode
#include "explode/explode.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <filesystem>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "cache/registry.h"
#include "explode/motion_cache.h"
#include "explode/reduce_reference.h"
#include "host/standalone/controls.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"
#include "object/params.h"

namespace {

using namespace kv;

constexpr int kTracks = 1000;
constexpr int kKeys = 1000;
constexpr TimeValue kKeyStep = 160;

// The tracks of a tumbling body: a third positions, a third rotations, a third scales.
const std::vector<std::unique_ptr<host::Control>>& Tracks() {
  static const auto tracks = [] {
    std::vector<std::unique_ptr<host::Control>> out;
    std::mt19937 rng(7);
    std::normal_distribution<float> noise(0.0f, 0.004f);
    for (int n = 0; n < kTracks; ++n) {
      const host::ControlKind kind = n % 3 == 0   ? host::ControlKind::Position
                                     : n % 3 == 1 ? host::ControlKind::Rotation
                                                  : host::ControlKind::Scale;
      auto c = standalone::MakeControl(kind, host::Interp::TCB, nullptr);
      const float w = 0.01f + 0.0001f * float(n);
      for (int k = 0; k < kKeys; ++k) {
        const float f = float(k);
        const TimeValue t = k * kKeyStep;
        if (kind == host::ControlKind::Position) {
          c->SetValue(t,
                      Point3{f * 0.1f + noise(rng), std::sin(f * w) * 5 + noise(rng),
                             -0.002f * f * f + noise(rng)},
                      true);
        } else if (kind == host::ControlKind::Rotation) {
          c->SetValue(t, Quat(AngAxis{Point3{1, 2, 3}.Normalized(), f * w + noise(rng)}), true);
        } else {
          c->SetValue(t, host::ScaleValue{{1 + noise(rng), 1 + noise(rng), 1}, Quat{}}, true);
        }
      }
      out.push_back(std::move(c));
    }
    return out;
  }();
  return tracks;
}

// Reduces `count` tracks taken every `stride` tracks of the set (a stride not divisible by 3
// takes each kind in turn, and spreads the picks over the set's range of speeds).
template <bool kWindowed>
void ReduceTracks(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const int stride = static_cast<int>(state.range(1));
  const Interval range(0, (kKeys - 1) * kKeyStep);
  standalone::UndoStack undo;
  int64_t kept = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<std::unique_ptr<host::Control>> work;
    for (int n = 0; n < count; ++n) work.push_back(Tracks()[size_t(n * stride)]->Clone());
    state.ResumeTiming();
    kept = 0;
    for (auto& c : work) {
      if constexpr (kWindowed)
        explode::ReduceControllerKeys(undo, *c, range, kKeyStep, 0.02f);
      else
        kvtest::ReduceControllerReference(undo, *c, range, kKeyStep, 0.02f);
      kept += c->NumKeys();
    }
  }
  state.counters["keys_kept"] = double(kept);
  state.SetItemsProcessed(state.iterations() * count * kKeys);
}

// The whole-interval search costs about keys x samples evaluations a track: 30 tracks spread
// over the set show its rate (the full set takes minutes); the windowed search runs on the
// same 30 as well as on the whole set.
BENCHMARK(ReduceTracks<true>)
    ->Name("ReduceWindowed")
    ->Args({kTracks, 1})
    ->Args({30, 34})
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ReduceTracks<false>)
    ->Name("ReduceWholeInterval")
    ->Args({30, 34})
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);

constexpr int kElements = 10000;
constexpr int kSamples = 100;

const std::string& BigCache() {
  static const std::string path = [] {
    const std::string p =
        (std::filesystem::temp_directory_path() / "kv_bench_explode.kvc").string();
    std::vector<kvtest::Motion> motion;
    for (int e = 0; e < kElements; ++e) {
      motion.push_back({"Piece",
                        [e](TimeValue t) {
                          const float f = float(t) / 160.0f;
                          Matrix3 m = Quat(AngAxis{{0, 0, 1}, 0.05f * f + float(e)}).ToMatrix();
                          m.SetTrans({float(e % 100) + 0.1f * f, float(e / 100), -0.01f * f * f});
                          return m;
                        },
                        {}});
    }
    kvtest::WriteMotionCache(p, motion, 0, (kSamples - 1) * 160, 160);
    return p;
  }();
  return path;
}

void ExplodeElements(benchmark::State& state) {
  const bool reduce = state.range(0) != 0;
  for (auto _ : state) {
    state.PauseTiming();
    KelvaneTools::kvCacheRegistry registry;
    auto scene = std::make_unique<standalone::Scene>();
    auto obj = std::make_unique<kvCache_obj>(*scene, registry, false);
    obj->Params().SetInt(param::kPlayStart, 0, 0);
    obj->Params().SetString(param::kFileName, BigCache());
    explode::ExplodeInputs in = explode::InputsFromScript(Interval(0, (kSamples - 1) * 160), 160,
                                                          false, reduce, 160, 0.02f, nullptr);
    state.ResumeTiming();
    const explode::ExplodeResult r = explode::Explode(*scene, *obj, in);
    if (r.nodes.size() != size_t(kElements)) state.SkipWithError("explode made too few nodes");
    state.PauseTiming();
    obj.reset();
    scene.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * kElements * kSamples);
}
BENCHMARK(ExplodeElements)->ArgName("reduce")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

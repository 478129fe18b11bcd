// Affine decomposition and transform blending: playback blends two samples per element per
// frame, so these set the cost of an interpolated frame with many elements.
#include <benchmark/benchmark.h>

#include <random>
#include <vector>

#include "geom/affine.h"

namespace {

// A pool of transforms like those of a rigid-body cache: rotation and translation, some with
// non-uniform stretch and a few mirrored.
std::vector<kv::Matrix3> Transforms(size_t n, unsigned seed) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(-1, 1);
  std::vector<kv::Matrix3> out;
  out.reserve(n);
  for (size_t i = 0; i < n; ++i) {
    kv::Matrix3 m = kv::Quat(u(rng), u(rng), u(rng), u(rng)).Normalized().ToMatrix();
    if (i % 4 == 0) m.PreScale({1 + u(rng) * 0.5f, 1 + u(rng) * 0.5f, 1 + u(rng) * 0.5f});
    if (i % 16 == 0) m.PreScale({-1, 1, 1});
    m.Translate({u(rng) * 100, u(rng) * 100, u(rng) * 100});
    out.push_back(m);
  }
  return out;
}

void BM_DecompAffine(benchmark::State& state) {
  const auto pool = Transforms(4096, 1);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(kv::DecompAffine(pool[i]));
    i = (i + 1) & 4095;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_DecompAffine);

void BM_BlendTransforms(benchmark::State& state) {
  const auto a = Transforms(4096, 2);
  const auto b = Transforms(4096, 3);
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(kv::BlendTransforms(a[i], b[i], 0.37f));
    i = (i + 1) & 4095;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_BlendTransforms);

// One interpolated frame of N elements: blend, then move each element's vertices (a cube's
// worth per element), as frame assembly does.
void BM_BlendFrame(benchmark::State& state) {
  const size_t n = static_cast<size_t>(state.range(0));
  const auto a = Transforms(n, 4);
  const auto b = Transforms(n, 5);
  std::vector<kv::Point3> base(8 * n, {1, 2, 3});
  std::vector<kv::Point3> out(base.size());
  for (auto _ : state) {
    for (size_t e = 0; e < n; ++e) {
      const kv::Matrix3 m = kv::BlendTransforms(a[e], b[e], 0.5f);
      for (size_t v = e * 8; v < e * 8 + 8; ++v) out[v] = base[v] * m;
    }
    benchmark::DoNotOptimize(out.data());
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * n));
}
BENCHMARK(BM_BlendFrame)->Arg(10000)->Unit(benchmark::kMillisecond);

void BM_Slerp(benchmark::State& state) {
  std::mt19937 rng(6);
  std::uniform_real_distribution<float> u(-1, 1);
  std::vector<kv::Quat> q(4096);
  for (auto& x : q) x = kv::Quat(u(rng), u(rng), u(rng), u(rng)).Normalized();
  size_t i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(kv::Slerp(q[i], q[(i + 1) & 4095], 0.3f));
    i = (i + 1) & 4095;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
}
BENCHMARK(BM_Slerp);

}  // namespace

BENCHMARK_MAIN();

// Record Deformations: the analysis that turns a deforming mesh into rigid pieces. Each sample
// splits nothing when the topology holds, so its cost is one rigid fit per piece and sample;
// the baseline moves the same vertices by one matrix each, the least any per-sample pass over
// the mesh can cost.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "geom/matrix3.h"
#include "geom/quat.h"
#include "record/deform.h"
#include "record/rigid_fit.h"

namespace {

// `pieces` separate strips of `verts` vertices (verts - 2 triangles each), crumpled so that no
// piece is flat.
kv::Mesh Pieces(int pieces, int verts) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> u(-0.5f, 0.5f);
  kv::Mesh m;
  m.verts.reserve(size_t(pieces) * size_t(verts));
  for (int p = 0; p < pieces; ++p) {
    const kv::Point3 at{float(p % 100) * 3, float(p / 100) * 3, 0};
    for (int v = 0; v < verts; ++v) m.verts.push_back(at + kv::Point3{u(rng), u(rng), u(rng)});
  }
  m.setNumFaces(pieces * (verts - 2));
  size_t f = 0;
  for (int p = 0; p < pieces; ++p)
    for (int v = 0; v + 2 < verts; ++v) {
      const uint32_t b = uint32_t(p * verts + v);
      m.faces[f++].setVerts(b, b + 1, b + 2);
    }
  return m;
}

// Every piece moved by its own rotation and translation at sample s.
void Move(const kv::Mesh& rest, int pieces, int verts, int s, kv::Mesh& out) {
  for (int p = 0; p < pieces; ++p) {
    const float a = 0.01f * float(s) * float(1 + p % 7);
    kv::Matrix3 tm = kv::RotAngleAxisMatrix(kv::Point3{1, float(p % 3), 1}.Normalized(), a);
    tm.SetTrans({0, 0, 0.1f * float(s)});
    const size_t b = size_t(p) * size_t(verts);
    for (size_t v = b; v < b + size_t(verts); ++v) out.verts[v] = rest.verts[v] * tm;
  }
}

void BM_AnalyseDeformingMesh(benchmark::State& state) {
  const int pieces = int(state.range(0)), verts = int(state.range(1)),
            samples = int(state.range(2));
  const kv::Mesh rest = Pieces(pieces, verts);
  kv::Mesh now = rest;
  int found = 0;
  for (auto _ : state) {
    kv::DeformTracker tracker("Mesh", {});
    std::string error;
    for (int s = 0; s < samples; ++s) {
      state.PauseTiming();
      Move(rest, pieces, verts, s, now);
      state.ResumeTiming();
      if (!tracker.Add(now, error)) state.SkipWithError(error.c_str());
    }
    std::vector<kv::DeformPiece> out;
    tracker.Finish(nullptr, out);
    found = int(out.size());
    benchmark::DoNotOptimize(out.data());
  }
  state.counters["pieces"] = found;
  state.counters["vertex_samples/s"] = benchmark::Counter(
      double(pieces) * verts * samples * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_AnalyseDeformingMesh)
    ->Args({10000, 50, 100})
    ->Args({1000, 50, 100})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

// The baseline: the same vertices moved by one matrix each, sample after sample.
void BM_MoveVerticesBaseline(benchmark::State& state) {
  const int pieces = int(state.range(0)), verts = int(state.range(1)),
            samples = int(state.range(2));
  const kv::Mesh rest = Pieces(pieces, verts);
  kv::Mesh now = rest;
  for (auto _ : state) {
    for (int s = 0; s < samples; ++s) Move(rest, pieces, verts, s, now);
    benchmark::DoNotOptimize(now.verts.data());
  }
  state.counters["vertex_samples/s"] = benchmark::Counter(
      double(pieces) * verts * samples * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MoveVerticesBaseline)
    ->Args({10000, 50, 100})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

// One rigid fit of a 50-vertex piece.
void BM_FitRigid(benchmark::State& state) {
  const kv::Mesh rest = Pieces(1, int(state.range(0)));
  std::vector<kv::Point3> base = rest.verts, now = rest.verts;
  kv::Point3 c;
  for (const kv::Point3& p : base) c += p;
  c = c / float(base.size());
  for (kv::Point3& p : base) p -= c;
  const kv::Matrix3 tm = kv::RotAngleAxisMatrix({0, 0.6f, 0.8f}, 1.0f);
  for (kv::Point3& p : now) p = p * tm;
  for (auto _ : state) benchmark::DoNotOptimize(kv::FitRigid(base, now));
  state.SetItemsProcessed(int64_t(state.iterations()));
}
BENCHMARK(BM_FitRigid)->Arg(50);

}  // namespace

BENCHMARK_MAIN();

// Playback at the scale of large destruction shots: 100,000 elements of 100 vertices (10
// million vertices a frame) and 120 samples. Measures frames per second of a whole evaluation
// of the cache object with 1 and 2 threads and every core, in "Stream" and "Pre-Load" mode,
// against a parallel copy of the same vertex bytes timed in the same iterations, with the
// resident memory of each; and the open of the file against a raw read of the bytes it reads.
//
// The cache (about 870 MB) is written once to the temporary folder and removed at exit. The
// run takes about a minute.
//
//   cmake --build --preset default --target bench_scale -j2
//   ./build/default/bench/bench_scale
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cache/format.h"
#include "cache/reader.h"
#include "cache/registry.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"
#include "scale_file.h"

namespace {

using namespace kv;
using Clock = std::chrono::steady_clock;

constexpr int kElements = 100000;
constexpr int kVerts = 100;
constexpr int kFaces = 48;
constexpr int kSamples = 120;

double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

double ResidentMB() {
  long pages = 0, resident = 0;
  if (std::FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return double(resident) * double(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

// The shape of a large destruction shot, written by hand once (see scale_file.h).
struct ScaleCache {
  std::string path = (std::filesystem::temp_directory_path() /
                      ("kv_bench_scale_" + std::to_string(getpid()) + ".kvc"))
                         .string();
  uint64_t tableOffset = bench::WriteScaleFile(path, {kElements, kVerts, kFaces, kSamples});
  ~ScaleCache() { std::filesystem::remove(path); }
};

ScaleCache& Cache() {
  static ScaleCache c;
  return c;
}

// Copies `bytes` into `to` with the scene's parallel-for: the physical floor of writing a
// frame's vertices with the same threads.
void ParallelCopy(standalone::Scene& scene, const std::vector<Point3>& from,
                  std::vector<Point3>& to) {
  const size_t chunk = 1 << 16;
  scene.ParallelFor((from.size() + chunk - 1) / chunk, 1, [&](size_t b, size_t e) {
    const size_t first = b * chunk, last = std::min(from.size(), e * chunk);
    std::memcpy(to.data() + first, from.data() + first, (last - first) * sizeof(Point3));
  });
}

// range(0): threads (0 = every core); range(1): load type (0 "Stream", 2 "Pre-Load").
void BM_Playback(benchmark::State& st) {
  const std::string& path = Cache().path;
  const double before = ResidentMB();
  standalone::Scene scene;
  scene.SetThreadCount(int(st.range(0)));
  scene.SetAnimRange({0, (kSamples - 1) * 160});
  KelvaneTools::kvCacheRegistry registry{&scene};
  auto obj = std::make_unique<kvCache_obj>(scene, registry, false);
  obj->Params().SetInt(param::kLoadTypeLocal, 0, int(st.range(1)));
  obj->Params().SetString(param::kFileName, path);
  obj->BuildMesh(0);  // opens (and pre-loads)
  if (obj->GetMesh().numVerts() != kElements * kVerts) {
    st.SkipWithError("the cache did not play");
    return;
  }
  std::vector<Point3> from(obj->GetMesh().verts), to(from.size());
  double eval = 0, copy = 0;
  int frame = 0;
  for (auto _ : st) {
    const auto t0 = Clock::now();
    ParallelCopy(scene, from, to);
    benchmark::ClobberMemory();
    const auto t1 = Clock::now();
    frame = (frame + 1) % kSamples;
    obj->BuildMesh(frame * 160);
    benchmark::DoNotOptimize(obj->GetMesh().verts.data());
    const auto t2 = Clock::now();
    copy += Seconds(t0, t1);
    eval += Seconds(t1, t2);
    st.SetIterationTime(Seconds(t1, t2));
  }
  const KelvaneTools::kvCacheReader* reader = obj->Reader();
  st.counters["fps"] = double(st.iterations()) / eval;
  st.counters["x_parallel_copy"] = eval / copy;
  st.counters["threads"] = scene.ThreadCount();
  st.counters["rss_MB"] = ResidentMB() - before;
  const double meshMB = 2.0 * double(obj->GetMesh().verts.size()) * sizeof(Point3) / (1 << 20) +
                        2.0 * double(obj->GetMesh().faces.size()) * sizeof(Face) / (1 << 20);
  st.counters["mesh_MB"] = meshMB;  // the reader's combined mesh and the output mesh
  st.counters["blocks_loaded"] = reader ? reader->NumSamplesLoaded() : 0;
  st.counters["block_MB"] = double(kElements) * (sizeof(Matrix3) + 1) / (1 << 20);
}
BENCHMARK(BM_Playback)
    ->ArgNames({"threads", "load"})
    ->Args({1, 0})
    ->Args({2, 0})
    ->Args({0, 0})
    ->Args({1, 2})
    ->Args({2, 2})
    ->Args({0, 2})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);

void BM_Open(benchmark::State& st) {
  const ScaleCache& c = Cache();
  std::vector<uint8_t> buf(c.tableOffset);
  double op = 0, base = 0;
  for (auto _ : st) {
    const auto t0 = Clock::now();
    std::FILE* f = std::fopen(c.path.c_str(), "rb");
    const size_t n = std::fread(buf.data(), 1, buf.size(), f);
    std::fclose(f);
    benchmark::DoNotOptimize(n);
    const auto t1 = Clock::now();
    KelvaneTools::kvCacheReader r(c.path);
    r.Open();
    benchmark::DoNotOptimize(r.NumElements());
    const auto t2 = Clock::now();
    base += Seconds(t0, t1);
    op += Seconds(t1, t2);
    st.SetIterationTime(Seconds(t1, t2));
  }
  st.counters["x_raw_read"] = op / base;
  st.counters["read_MB"] = double(c.tableOffset) / (1 << 20);
}
BENCHMARK(BM_Open)->UseManualTime()->Unit(benchmark::kMillisecond)->MinTime(2.0);

}  // namespace

BENCHMARK_MAIN();

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

struct Out {
  std::FILE* f;
  std::vector<char> buf;
  void Put(const void* p, size_t n) {
    const char* c = static_cast<const char*>(p);
    buf.insert(buf.end(), c, c + n);
    if (buf.size() > (8u << 20)) Flush();
  }
  template <class T>
  void Put(T v) {
    Put(&v, sizeof v);
  }
  void Flush() {
    std::fwrite(buf.data(), 1, buf.size(), f);
    buf.clear();
  }
};

// Version 1 records (no normals): every element a ring of 100 vertices with 48 faces, each
// sample a turn about its own axis and a fall, so that every element moves rigidly.
struct ScaleCache {
  std::string path = (std::filesystem::temp_directory_path() /
                      ("kv_bench_scale_" + std::to_string(getpid()) + ".kvc"))
                         .string();
  uint64_t tableOffset = 0;

  ScaleCache() {
    Out o{std::fopen(path.c_str(), "wb"), {}};
    uint8_t header[256] = {};
    o.Put(header, sizeof header);
    for (int e = 0; e < kElements; ++e) {
      o.Put(int32_t(1));
      o.Put("E", 1);
      for (float v : {-1.f, -1.f, -1.f, 1.f, 1.f, 1.f}) o.Put(v);
      o.Put(int32_t(kVerts)), o.Put(int32_t(kFaces)), o.Put(int32_t(0));
    }
    std::vector<float> ring;
    for (int v = 0; v < kVerts; ++v) {
      const float a = float(v) * 0.0628f;
      ring.insert(ring.end(), {std::cos(a), std::sin(a), float(v % 7) * 0.1f});
    }
    std::vector<uint8_t> faces;
    for (int f = 0; f < kFaces; ++f) {
      uint8_t rec[KelvaneTools::kFaceSizeV1] = {};
      const uint32_t idx[3] = {uint32_t(2 * f), uint32_t(2 * f + 1), uint32_t(2 * f + 2)};
      rec[2] = 1, rec[6] = 7;
      std::memcpy(rec + 8, idx, sizeof idx);
      faces.insert(faces.end(), rec, rec + sizeof rec);
    }
    for (int e = 0; e < kElements; ++e) {
      o.Put(ring.data(), ring.size() * sizeof(float));
      o.Put(faces.data(), faces.size());
    }
    tableOffset = 256 + uint64_t(kElements) * (4 + 1 + 24 + 12) +
                  uint64_t(kElements) * (kVerts * 12 + faces.size());
    for (int s = 0; s < kSamples; ++s) {
      for (int e = 0; e < kElements; ++e) {
        const float a = 0.05f * float(s) + 0.001f * float(e);
        const float c = std::cos(a), sn = std::sin(a);
        const float row[12] = {c,
                               sn,
                               0,
                               -sn,
                               c,
                               0,
                               0,
                               0,
                               1,
                               float(e % 316) * 3,
                               float(e / 316) * 3,
                               100.0f - 0.5f * float(s)};
        o.Put(row, sizeof row);
        o.Put(uint8_t(1));
      }
    }
    o.Flush();
    // The header, now that the table's place is known.
    uint8_t h[46] = {};
    std::memcpy(h, "KVCACHE", 7);
    h[7] = 1;
    const int32_t fields[] = {
        0,   (kSamples - 1) * 160, 160, 30, kElements, kSamples, int32_t(kElements * 49),
        256, int32_t(tableOffset)};
    std::memcpy(h + 9, fields, sizeof fields);
    std::fseek(o.f, 0, SEEK_SET);
    std::fwrite(h, 1, sizeof h, o.f);
    std::fclose(o.f);
  }
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

// Cache file speed, each figure as a ratio against its physical baseline measured in the same
// iterations: open and index against one raw read of the file, frame assembly against a copy
// of the output vertex bytes, writing against a raw write of the same byte count.
// On a machine shared with other work, the `_cpu` counters (ratios of this thread's CPU time)
// are steadier than the wall-time ratios.
// Run: build/default/bench/bench_cache (--benchmark_filter=OpenLarge for the open of 100,000
// elements alone, about ten seconds)
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cache/reader.h"
#include "cache/writer.h"
#include "scale_file.h"

using namespace KelvaneTools;
using Clock = std::chrono::steady_clock;

namespace {

constexpr int kElements = 10000;
constexpr int kSamples = 30;

// A box of 24 vertices (4 per side) and 12 faces with one texture channel.
kv::Mesh Box24() {
  kv::Mesh m;
  kv::Box3 b({0, 0, 0}, {1, 1, 1});
  static constexpr int kSides[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                       {1, 3, 7, 5}, {3, 2, 6, 7}, {2, 0, 4, 6}};
  m.setMapSupport(1, true);
  for (int s = 0; s < 6; ++s) {
    const uint32_t base = uint32_t(m.verts.size());
    for (int c = 0; c < 4; ++c) {
      m.verts.push_back(b.Corner(kSides[s][c]));
      m.Map(1).verts.push_back({float(c & 1), float(c >> 1), 0});
    }
    for (int t = 0; t < 2; ++t) {
      kv::Face f;
      f.setVerts(base, base + 1 + t, base + 2 + t);
      f.flags = kv::kEdgeAll;
      f.smGroup = 1u << s;
      m.faces.push_back(f);
      m.Map(1).faces.push_back({{base, base + 1 + t, base + 2 + t}});
    }
  }
  m.faceSel.SetSize(m.numFaces());
  return m;
}

struct GridSource : ElementSource {
  kv::Mesh box = Box24();
  int Count() const override { return kElements; }
  std::string Name(int) const override { return "Box"; }
  bool CaptureMesh(int, kv::TimeValue, bool, kv::Mesh& out) override {
    out = box;
    return true;
  }
  kv::host::Mtl* Material(int) const override { return nullptr; }
  void Sample(kv::TimeValue t, std::span<const int> el, kv::Matrix3* tm, float* vis) override {
    const kv::Matrix3 turn = kv::RotateZMatrix(float(t) * 0.0005f);
    for (size_t k = 0; k < el.size(); ++k) {
      tm[k] = turn;
      tm[k].SetTrans({float(el[k] % 100) * 2, float(el[k] / 100) * 2, float(t) * 0.01f});
      vis[k] = 1;
    }
  }
  int FrameRate() const override { return 30; }
};

std::string BenchFile(const char* name) {
  return (std::filesystem::temp_directory_path() /
          ("kv_bench_" + std::to_string(getpid()) + "_" + name + ".kvc"))
      .string();
}

struct Fixture {
  GridSource source;
  std::string path = BenchFile("grid");
  std::unique_ptr<kvCacheWriter> writer;
  uint64_t fileBytes = 0;
  Fixture() {
    writer = std::make_unique<kvCacheWriter>(path, kv::Matrix3(), 0, (kSamples - 1) * 160, 160,
                                             kWriterVersion, source);
    for (int i = 0; i < kElements; ++i) writer->AddElement(i, 0);
    writer->Write();
    fileBytes = std::filesystem::file_size(path);
  }
  ~Fixture() { std::filesystem::remove(path); }
};

Fixture& Shared() {
  static Fixture f;
  return f;
}

double Seconds(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double>(b - a).count();
}

// This thread's CPU seconds, user and system: on a machine shared with other work the ratio of
// these is steadier than that of wall times, which count the waits for a core.
double CpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return double(ts.tv_sec) + double(ts.tv_nsec) * 1e-9;
}

void RawRead(const std::string& path, std::vector<uint8_t>& buf) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  const size_t n = std::fread(buf.data(), 1, buf.size(), f);
  benchmark::DoNotOptimize(n);
  std::fclose(f);
}

void BM_OpenIndex(benchmark::State& state) {
  Fixture& fx = Shared();
  std::vector<uint8_t> buf(fx.fileBytes);
  double op = 0, base = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    RawRead(fx.path, buf);
    const auto t1 = Clock::now();
    kvCacheReader r(fx.path);
    r.Open();
    benchmark::DoNotOptimize(r.NumElements());
    const auto t2 = Clock::now();
    base += Seconds(t0, t1);
    op += Seconds(t1, t2);
    state.SetIterationTime(Seconds(t1, t2));
  }
  state.counters["x_raw_read"] = op / base;
  state.counters["file_MB"] = double(fx.fileBytes) / (1 << 20);
}
BENCHMARK(BM_OpenIndex)->UseManualTime()->Unit(benchmark::kMillisecond);

// The open of a destruction shot (100,000 elements of 100 vertices, as bench_scale writes it)
// with two samples only, so that it is quick to write: against one raw read of the bytes the
// open reads, into a buffer kept from the first iteration.
void BM_OpenLarge(benchmark::State& state) {
  const std::string path = BenchFile("large");
  const uint64_t readBytes = kv::bench::WriteScaleFile(path, {100000, 100, 48, 2});
  std::vector<uint8_t> buf(readBytes);
  double op = 0, base = 0;
  double opCpu = 0, baseCpu = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    const double c0 = CpuSeconds();
    RawRead(path, buf);
    const auto t1 = Clock::now();
    const double c1 = CpuSeconds();
    kvCacheReader r(path);
    if (!r.Open()) state.SkipWithError("the cache did not open");
    benchmark::DoNotOptimize(r.NumElements());
    const auto t2 = Clock::now();
    const double c2 = CpuSeconds();
    base += Seconds(t0, t1);
    op += Seconds(t1, t2);
    baseCpu += c1 - c0;
    opCpu += c2 - c1;
    state.SetIterationTime(Seconds(t1, t2));
  }
  // The same read into memory never touched before, as an open's index is: what the page
  // faults of fresh memory alone cost, outside the timed iterations.
  double fresh = 0;
  for (int k = 0; k < 3; ++k) {
    const auto t0 = Clock::now();
    std::unique_ptr<uint8_t[]> mem(new uint8_t[readBytes]);
    std::FILE* f = std::fopen(path.c_str(), "rb");
    benchmark::DoNotOptimize(std::fread(mem.get(), 1, readBytes, f));
    std::fclose(f);
    fresh += Seconds(t0, Clock::now()) / 3;
  }
  std::filesystem::remove(path);
  state.counters["x_raw_read"] = op / base;
  state.counters["x_raw_read_cpu"] = opCpu / baseCpu;
  state.counters["x_raw_read_fresh"] = op / double(state.iterations()) / fresh;
  state.counters["read_MB"] = double(readBytes) / (1 << 20);
}
BENCHMARK(BM_OpenLarge)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(8);

void BM_Frame(benchmark::State& state) {
  Fixture& fx = Shared();
  kvCacheReader r(fx.path);
  r.Open();
  r.LoadAllSamples();
  FrameSettings s;
  s.interpolate = state.range(0) != 0;
  s.playbackIdle = state.range(1) == 0;  // while the host plays, leaving elements are hidden
  std::vector<ElementFrameState> st(kElements);
  FrameScratch scratch;
  kv::Mesh out;
  float time = 160 * 3.5f;
  for (auto& e : st) e.time = time;
  r.ReadFrame(out, st, s, scratch, true);  // warm: topology built, blocks decomposed
  std::vector<kv::Point3> copy(out.verts.size());
  double op = 0, base = 0;
  for (auto _ : state) {
    const double t0 = CpuSeconds();
    std::memcpy(copy.data(), out.verts.data(), out.verts.size() * sizeof(kv::Point3));
    benchmark::ClobberMemory();
    const double t1 = CpuSeconds();
    r.ReadFrame(out, st, s, scratch, false);
    benchmark::ClobberMemory();
    const double t2 = CpuSeconds();
    base += t1 - t0;
    op += t2 - t1;
    state.SetIterationTime(t2 - t1);
  }
  state.counters["x_vertex_copy"] = op / base;
  state.counters["verts"] = double(out.numVerts());
}
BENCHMARK(BM_Frame)
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->ArgNames({"interpolate", "playing"})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

// Both writes replace a file of the same size that the previous iteration wrote. They take
// turns going first, so that neither always follows the other's close (whose writeback a
// truncation may wait for).
void BM_Write(benchmark::State& state) {
  Fixture& fx = Shared();
  const std::string rawPath = BenchFile("raw");
  std::vector<uint8_t> bytes(fx.fileBytes, 0x5A);
  double base = 0, baseCpu = 0;
  auto rawWrite = [&] {
    const auto t0 = Clock::now();
    const double c0 = CpuSeconds();
    std::FILE* f = std::fopen(rawPath.c_str(), "wb");
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
    baseCpu += CpuSeconds() - c0;
    base += Seconds(t0, Clock::now());
  };
  rawWrite();
  base = baseCpu = 0;
  double op = 0, opCpu = 0;
  bool rawFirst = true;
  for (auto _ : state) {
    if (rawFirst) rawWrite();
    const auto t1 = Clock::now();
    const double c1 = CpuSeconds();
    fx.writer->Write();
    opCpu += CpuSeconds() - c1;
    const double took = Seconds(t1, Clock::now());
    if (!rawFirst) rawWrite();
    rawFirst = !rawFirst;
    op += took;
    state.SetIterationTime(took);
  }
  std::filesystem::remove(rawPath);
  state.counters["x_raw_write"] = op / base;
  state.counters["x_raw_write_cpu"] = opCpu / baseCpu;
  state.counters["file_MB"] = double(fx.fileBytes) / (1 << 20);
}
BENCHMARK(BM_Write)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

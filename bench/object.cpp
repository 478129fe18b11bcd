// A whole evaluation of the cache object (time mapping with triggers and three groups, then
// frame assembly) against the frame assembly alone, for 10,000 box elements, on one thread.
// BM_WholeEvaluation reports the ratio of the two, timed in the same iterations, as
// x_frame_assembly: the assembly of the very frames the evaluation plays. x_uniform_frames
// compares with frames that put every element at the scene time, which skip most of the
// per-element work (no material tags, one sample for all).
//
//   cmake --preset default && cmake --build --preset default --target bench_object -j2
//   ./build/default/bench/bench_object
#include <benchmark/benchmark.h>

#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "cache/reader.h"
#include "cache/registry.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"

namespace {

using namespace kv;

constexpr int kElements = 10000;
constexpr int kSamples = 60;

void Put32(std::string& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<char>(v >> (8 * i)));
}
void PutF(std::string& b, float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  Put32(b, u);
}

// Unit boxes (8 vertices, 12 faces) on a grid, each falling along z and drifting along x.
std::string BoxCache() {
  static const int faces[12][3] = {{0, 2, 3}, {3, 1, 0}, {4, 5, 7}, {7, 6, 4},
                                   {0, 1, 5}, {5, 4, 0}, {1, 3, 7}, {7, 5, 1},
                                   {3, 2, 6}, {6, 7, 3}, {2, 0, 4}, {4, 6, 2}};
  std::string body;
  for (int e = 0; e < kElements; ++e) {
    const std::string name = "Box" + std::to_string(e);
    Put32(body, static_cast<uint32_t>(name.size()));
    body += name;
    for (float f : {0.f, 0.f, 0.f, 1.f, 1.f, 1.f}) PutF(body, f);
    Put32(body, 8), Put32(body, 12), Put32(body, 0);
    body.push_back(0);
  }
  for (int e = 0; e < kElements; ++e) {
    for (int v = 0; v < 8; ++v) {
      PutF(body, static_cast<float>(v & 1)), PutF(body, static_cast<float>((v >> 1) & 1));
      PutF(body, static_cast<float>((v >> 2) & 1));
    }
    for (const auto& f : faces) {
      body += std::string(2, '\0');
      Put32(body, 1);
      body.push_back(7), body.push_back(0);
      Put32(body, f[0]), Put32(body, f[1]), Put32(body, f[2]);
      body += std::string(36, '\0');
    }
  }
  const uint32_t table = 256 + static_cast<uint32_t>(body.size());
  for (int s = 0; s < kSamples; ++s) {
    for (int e = 0; e < kElements; ++e) {
      const float x = static_cast<float>(e % 100) * 3 + 0.1f * s;
      const float y = static_cast<float>(e / 100) * 3;
      const float z = 100.0f - 1.5f * s;
      for (float f : {1.f, 0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f, x, y, z}) PutF(body, f);
      body.push_back(1);
    }
  }
  std::string h = "KVCACHE";
  h.push_back(2), h.push_back(0);
  Put32(h, 0), Put32(h, (kSamples - 1) * 160), Put32(h, 160), Put32(h, 30);
  Put32(h, kElements), Put32(h, kSamples), Put32(h, kElements * 49), Put32(h, 256);
  Put32(h, table);
  h.push_back(0);
  h.resize(256, '\0');
  return h + body;
}

const std::string& CachePath() {
  static const std::string path = [] {
    const std::string p = (std::filesystem::temp_directory_path() / "kv_bench_object.kvc").string();
    std::ofstream(p, std::ios::binary) << BoxCache();
    return p;
  }();
  return path;
}

struct Setup {
  standalone::Scene scene;
  KelvaneTools::kvCacheRegistry registry{&scene};
  std::unique_ptr<kvCache_obj> obj;

  Setup() {
    scene.SetThreadCount(1);
    scene.SetAnimRange({0, (kSamples - 1) * 160});
    obj = std::make_unique<kvCache_obj>(scene, registry, false);
    ParamBlock& pb = obj->Params();
    pb.SetInt(param::kLoadTypeLocal, 0, 2);  // everything in memory: measure the CPU work
    pb.SetInt(param::kTriggerMode, 0, 1);
    obj->SetGizmo(0, ScaleMatrix({4, 4, 4}));  // reaches part of the grid at once
    pb.SetString(param::kFileName, CachePath());
    ElementGroupList& g = obj->Groups();
    std::vector<int32_t> a, b, c;
    for (int e = 0; e < kElements; ++e) (e % 3 == 0 ? a : e % 3 == 1 ? b : c).push_back(e);
    g.addNamed("Held"), g.setElements("Held", a, false);
    g.addNamed("Late"), g.setElements("Late", b, false);
    g.addNamed("Tagged"), g.setElements("Tagged", c, false);
    g.at(1).mode = 3, g.at(1).delay = 5.0f;
    g.at(2).mode = 5, g.at(2).matIndex = 2;
    pb.SetCount(param::kElementFrames, 3);
    obj->BuildMesh(0);  // opens, pre-loads and scans the triggers once
  }
};

// CPU time of the calling thread: on a machine shared with other work, time spent waiting
// for a core counts against neither side of the ratio.
double ThreadSeconds() {
  timespec ts;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// Each side plays a run of frames on its own, so that neither inherits the other's data in the
// caches (that moved a frame-by-frame ratio by a fifth either way); the runs alternate, so that
// the ratio holds on a loaded machine. An iteration times the evaluation's run.
constexpr int kRun = 20;

void BM_WholeEvaluation(benchmark::State& st) {
  Setup s;
  KelvaneTools::kvCacheReader* reader = s.obj->Reader();
  if (!reader) {
    st.SkipWithError("no reader");
    return;
  }
  // The element records the evaluation hands the reader at each time: the assembly alone
  // assembles exactly those frames. Beside it, the lightest frame of the same cache: every
  // element at the scene time, no group applied.
  std::vector<std::vector<KelvaneTools::ElementFrameState>> played(kSamples);
  for (int k = 0; k < kSamples; ++k) {
    s.obj->BuildMesh(k * 160);
    played[size_t(k)] = s.obj->Playback().frame;
  }
  std::vector<KelvaneTools::ElementFrameState> states(kElements);
  const KelvaneTools::FrameSettings settings = s.obj->EvalSettings(false);
  KelvaneTools::FrameScratch scratch, uniformScratch;
  Mesh mesh, uniformMesh;
  double whole = 0, assembly = 0, uniform = 0;
  int first = 0;
  // Thread time of a run of frames: `prepare(k)` untimed, then `play(k)` timed, for the run's
  // k-th frame (its sample index).
  const auto run = [&](auto&& prepare, auto&& play) {
    double sum = 0;
    for (int k = 0; k < kRun; ++k) {
      const int sample = (first + k) % kSamples;
      prepare(sample);
      const double t0 = ThreadSeconds();
      play(sample);
      sum += ThreadSeconds() - t0;
    }
    return sum;
  };
  const auto assemble = [&](Mesh& out, KelvaneTools::FrameScratch& memory) {
    return [&, o = &out, m = &memory](int) {
      reader->ReadFrame(*o, states, settings, *m);
      benchmark::DoNotOptimize(o->verts.data());
    };
  };
  for (auto _ : st) {
    assembly += run([&](int k) { states = played[size_t(k)]; }, assemble(mesh, scratch));
    const double took = run([](int) {},
                            [&](int k) {
                              s.obj->BuildMesh(k * 160);
                              benchmark::DoNotOptimize(s.obj->GetMesh().verts.data());
                            });
    uniform += run(
        [&](int k) {
          for (auto& e : states) e = {}, e.time = static_cast<float>(k * 160);
        },
        assemble(uniformMesh, uniformScratch));
    first = (first + kRun) % kSamples;
    whole += took;
    st.SetIterationTime(took);
  }
  st.counters["elements"] = kElements;
  st.counters["faces"] = s.obj->GetMesh().numFaces();
  st.counters["frame_ms"] = whole * 1e3 / (double(st.iterations()) * kRun);
  st.counters["x_frame_assembly"] = assembly > 0 ? whole / assembly : 0;
  st.counters["x_uniform_frames"] = uniform > 0 ? whole / uniform : 0;
}
BENCHMARK(BM_WholeEvaluation)->UseManualTime()->Unit(benchmark::kMillisecond);

void BM_FrameAssemblyOnly(benchmark::State& st) {
  Setup s;
  KelvaneTools::kvCacheReader* reader = s.obj->Reader();
  if (!reader) {
    st.SkipWithError("no reader");
    return;
  }
  std::vector<KelvaneTools::ElementFrameState> states(kElements);
  KelvaneTools::FrameSettings settings = s.obj->EvalSettings(false);
  KelvaneTools::FrameScratch scratch;
  Mesh mesh;
  TimeValue t = 0;
  for (auto _ : st) {
    t = (t + 160) % (kSamples * 160);
    for (auto& e : states) e.time = static_cast<float>(t);
    reader->ReadFrame(mesh, states, settings, scratch);
    benchmark::DoNotOptimize(mesh.verts.data());
  }
  st.counters["faces"] = mesh.numFaces();
}
BENCHMARK(BM_FrameAssemblyOnly)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

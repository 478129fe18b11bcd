// Viewport speed: drawing a frame of the demo wall (2,001 elements, 24,000 faces) into a
// 1280 x 720 picture, shaded and in wireframe, and picking over 10,000 elements, at the
// object level and at the Elements level, where every element is tested.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include "cli.h"
#include "host/standalone/soft_window.h"
#include "object/params.h"
#include "ui/cache_display.h"
#include "viewer.h"

namespace {

using namespace kv;

constexpr int kWidth = 1280, kHeight = 720;

// The tool's demo wall, simulated and recorded once.
const std::string& WallPath() {
  static const std::string path = [] {
    const auto dir = std::filesystem::temp_directory_path() / "kv_bench_viewport_wall";
    const std::string kvc = (dir / "wall.kvc").string();
    if (!std::filesystem::exists(kvc)) {
      const std::string d = dir.string();
      const char* argv[] = {"kvcache", "--quiet", "demo", d.c_str(), "--frames", "30"};
      std::ostringstream out, err;
      cli::Run(6, argv, out, err);
    }
    return kvc;
  }();
  return path;
}

void Put32(std::string& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<char>(v >> (8 * i)));
}
void PutF(std::string& b, float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  Put32(b, u);
}

// 10,000 unit boxes on a 100 x 100 grid, one sample.
const std::string& GridPath() {
  static const std::string path = [] {
    constexpr int n = 10000;
    static const int faces[12][3] = {{0, 2, 3}, {3, 1, 0}, {4, 5, 7}, {7, 6, 4},
                                     {0, 1, 5}, {5, 4, 0}, {1, 3, 7}, {7, 5, 1},
                                     {3, 2, 6}, {6, 7, 3}, {2, 0, 4}, {4, 6, 2}};
    std::string body;
    for (int e = 0; e < n; ++e) {
      Put32(body, 1), body += "b";
      for (float f : {0.f, 0.f, 0.f, 1.f, 1.f, 1.f}) PutF(body, f);
      Put32(body, 8), Put32(body, 12), Put32(body, 0), body.push_back(0);
    }
    for (int e = 0; e < n; ++e) {
      for (int v = 0; v < 8; ++v) {
        PutF(body, static_cast<float>(v & 1)), PutF(body, static_cast<float>((v >> 1) & 1));
        PutF(body, static_cast<float>((v >> 2) & 1));
      }
      for (const auto& f : faces) {
        body += std::string(2, '\0');
        Put32(body, 1), body.push_back(7), body.push_back(0);
        Put32(body, f[0]), Put32(body, f[1]), Put32(body, f[2]);
        body += std::string(36, '\0');
      }
    }
    const uint32_t table = 256 + static_cast<uint32_t>(body.size());
    for (int e = 0; e < n; ++e) {
      const float x = static_cast<float>(e % 100) * 3, y = static_cast<float>(e / 100) * 3;
      for (float f : {1.f, 0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f, x, y, 0.f}) PutF(body, f);
      body.push_back(1);
    }
    std::string h = "KVCACHE";
    h.push_back(2), h.push_back(0);
    Put32(h, 0), Put32(h, 0), Put32(h, 160), Put32(h, 30), Put32(h, n), Put32(h, 1);
    Put32(h, n * 49), Put32(h, 256), Put32(h, table), h.push_back(0);
    h.resize(256, '\0');
    const std::string p = (std::filesystem::temp_directory_path() / "kv_bench_grid.kvc").string();
    std::ofstream(p, std::ios::binary) << h + body;
    return p;
  }();
  return path;
}

struct View {
  cli::Viewer viewer;
  standalone::SoftWindow gw{kWidth, kHeight};
  TimeValue t = 0;
  View(const std::string& file, double frame, bool wire) {
    std::string error;
    if (!viewer.Open(file, std::nullopt, cli::PlaybackArgs{}, error))
      throw std::runtime_error(error);
    cli::ViewArgs v;
    v.width = kWidth, v.height = kHeight, v.wire = wire;
    viewer.Apply(v);
    t = viewer.FrameTime(frame);
    const TimeValue times[1] = {t};
    cli::Viewer::SetUpWindow(gw, v, viewer.Bounds(times));
    viewer.Draw(t, gw);
  }
};

void BM_DrawWallFrame(benchmark::State& st) {
  View v(WallPath(), 20, st.range(0) != 0);
  for (auto _ : st) {
    v.viewer.Draw(v.t, v.gw);
    benchmark::DoNotOptimize(v.gw.Picture().rgb.data());
  }
  st.SetItemsProcessed(st.iterations());
  st.SetLabel(st.range(0) ? "wireframe" : "shaded");
}
BENCHMARK(BM_DrawWallFrame)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

// Two frames in turn: the object evaluates each before it draws.
void BM_EvaluateAndDrawWallFrame(benchmark::State& st) {
  View v(WallPath(), 20, false);
  const TimeValue t2 = v.viewer.FrameTime(21);
  bool odd = false;
  for (auto _ : st) {
    v.viewer.Draw((odd = !odd) ? t2 : v.t, v.gw);
    benchmark::DoNotOptimize(v.gw.Picture().rgb.data());
  }
  st.SetItemsProcessed(st.iterations());
}
BENCHMARK(BM_EvaluateAndDrawWallFrame)->Unit(benchmark::kMillisecond);

void BM_PickElementsPoint10k(benchmark::State& st) {
  View v(GridPath(), 0, false);
  ui::CacheDisplay& d = v.viewer.Display();
  d.ActivateSubobjSel(ui::kLevelElements);
  const host::IPoint2 at[1] = {{kWidth / 2, kHeight / 2}};
  host::HitLog log;
  for (auto _ : st) {
    log.Clear();
    d.HitTestElements(v.t, v.viewer.Node(), host::HitRegion::Type::Point, false, 0, at, v.gw, log);
    benchmark::DoNotOptimize(log.Hits().data());
  }
  st.counters["hits"] = static_cast<double>(log.Hits().size());
  st.SetItemsProcessed(st.iterations() * 10000);
}
BENCHMARK(BM_PickElementsPoint10k)->Unit(benchmark::kMillisecond);

void BM_PickObjectPoint10k(benchmark::State& st) {
  View v(GridPath(), 0, false);
  ui::CacheDisplay& d = v.viewer.Display();
  const host::IPoint2 at[1] = {{kWidth / 2, kHeight / 2}};
  int hit = 0;
  for (auto _ : st) {
    hit = d.HitTest(v.t, v.viewer.Node(), host::HitRegion::Type::Point, false, 0, at, v.gw);
    benchmark::DoNotOptimize(hit);
  }
  st.counters["hit"] = hit;
}
BENCHMARK(BM_PickObjectPoint10k)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();

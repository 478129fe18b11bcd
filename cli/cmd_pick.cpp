#include <algorithm>
#include <cstdio>
#include <ostream>
#include <vector>

#include "commands.h"
#include "host/standalone/scene_file.h"
#include "viewer.h"

namespace kv::cli {
namespace {

// "N,N,..." with exactly `count` integers.
bool ParseInts(const std::string& text, int count, std::vector<int>& v) {
  v.clear();
  size_t pos = 0;
  while (pos <= text.size() && static_cast<int>(v.size()) < count) {
    size_t used = 0;
    try {
      v.push_back(std::stoi(text.substr(pos), &used));
    } catch (...) {
      return false;
    }
    pos += used;
    if (static_cast<int>(v.size()) < count) {
      if (pos >= text.size() || text[pos] != ',') return false;
      ++pos;
    }
  }
  return static_cast<int>(v.size()) == count && pos == text.size();
}

}  // namespace

int RunPick(const PickArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err) {
  (void)c;
  const auto usage = [&](const std::string& msg) {
    err << "kvcache pick: " << msg << "\nRun with --help for more information.\n";
    return kExitUsage;
  };
  std::vector<int> coords;
  const bool point = !a.at.empty();
  if (point && !ParseInts(a.at, 2, coords)) return usage("--at must be X,Y, not '" + a.at + "'");
  if (!point && !ParseInts(a.window, 4, coords))
    return usage("--window must be X0,Y0,X1,Y1, not '" + a.window + "'");
  if (point && a.crossing) return usage("--crossing applies to --window only");

  Viewer v;
  std::string error;
  if (!v.Open(a.scene, a.node, PlaybackArgs{}, error)) {
    err << "kvcache pick: " << error << '\n';
    return kExitError;
  }
  if (!v.IsSceneFile()) return usage("pick selects in a scene file; " + a.scene + " is a cache");
  v.Apply(a.view);
  const TimeValue t = v.FrameTime(a.frame);
  const TimeValue times[1] = {t};
  const Box3 bounds = v.Bounds(times);
  standalone::SoftWindow gw(a.view.width, a.view.height);
  Viewer::SetUpWindow(gw, a.view, bounds);
  // The picture the pixel positions refer to, so the z-buffer and limits are as drawn.
  v.Draw(t, gw);

  ui::CacheDisplay& display = v.Display();
  display.ActivateSubobjSel(ui::kLevelElements);
  host::HitLog log;
  std::vector<host::IPoint2> pts;
  for (size_t i = 0; i + 1 < coords.size(); i += 2) pts.push_back({coords[i], coords[i + 1]});
  const auto type = point ? host::HitRegion::Type::Point : host::HitRegion::Type::Box;
  gw.SetRndLimits(gw.GetRndMode());
  display.HitTestElements(t, v.Node(), type, a.crossing, 0, pts, gw, log);

  std::vector<uint32_t> hits;
  if (point && !log.Empty()) {
    // A click takes the nearest element under it.
    const auto& h = log.Hits();
    hits.push_back(std::min_element(h.begin(), h.end(), [](const auto& x, const auto& y) {
                     return x.distance < y.distance;
                   })->info);
  } else {
    for (const host::HitRecord& r : log.Hits()) hits.push_back(r.info);
  }
  kvCache_obj& obj = v.Object();
  obj.ClearSelection();
  obj.SelectSubComponent(hits, true, true);

  bool first = true;
  for (uint32_t e : obj.Selection()) {
    out << (first ? "" : " ") << e + 1;
    first = false;
  }
  out << '\n';
  if (hits.empty()) err << "kvcache pick: no element there\n";
  if (a.save) {
    if (!standalone::SaveScene(v.Scene(), a.scene, error)) {
      err << "kvcache pick: " << error << '\n';
      return kExitError;
    }
    err << "Saved the selection into " << a.scene << '\n';
  }
  return kExitOk;
}

}  // namespace kv::cli

#include <fnmatch.h>

#include <cmath>
#include <cstdint>
#include <ostream>
#include <vector>

#include "cache/reader.h"
#include "commands.h"
#include "explode/explode.h"
#include "host/standalone/gltf.h"
#include "host/standalone/scene_file.h"
#include "object/params.h"
#include "object/time_mapping.h"
#include "player.h"
#include "progress.h"
#include "scene_io.h"

namespace kv::cli {
namespace {

bool EndsWith(const std::string& s, const std::string& tail) {
  if (s.size() < tail.size()) return false;
  for (size_t i = 0; i < tail.size(); ++i)
    if (std::tolower(static_cast<unsigned char>(s[s.size() - tail.size() + i])) != tail[i])
      return false;
  return true;
}

}  // namespace

int RunExplode(const ExplodeArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err) {
  const bool toGltf = IsGltfPath(a.output);
  if (!toGltf && !EndsWith(a.output, ".kvs")) {
    err << "kvcache explode: the output must end in .glb, .gltf or .kvs: " << a.output << '\n';
    return kExitUsage;
  }
  // The scene runs at the cache's own rate unless told otherwise, as in play.
  std::vector<uint32_t> selection;
  int sceneFps = 30;
  CacheTiming timing;
  {
    KelvaneTools::kvCacheReader probe(a.file);
    if (!probe.Open()) {
      err << "kvcache explode: " << probe.ErrorMessageText() << '\n';
      return kExitError;
    }
    sceneFps = probe.FrameRate();
    timing = {probe.FrameRate(), probe.NumSamples(), probe.NumElements()};
    if (a.selected) {
      for (int e = 0; e < probe.NumElements(); ++e)
        if (fnmatch(a.selected->c_str(), probe.Element(e).name.c_str(), 0) == 0)
          selection.push_back(static_cast<uint32_t>(e));
    }
  }
  standalone::Scene scene;
  scene.SetFrameRate(a.sceneFps.value_or(sceneFps));
  const int tpf = scene.GetTicksPerFrame();
  const int from = a.from.value_or(a.start);
  const int to =
      a.to.value_or(a.start + static_cast<int>((int64_t{timing.Length()} + tpf - 1) / tpf));
  if (from > to) {
    err << "kvcache explode: the start frame " << from << " is after the end frame " << to
        << "\nRun with --help for more information.\n";
    return kExitUsage;
  }

  CachePlayer player(scene);
  player.Configure(a.file, a);
  kvCache_obj& obj = player.Object();
  ParamBlock& pb = obj.Params();
  pb.SetInt(param::kExplodeTo, 0, a.target);
  if (!selection.empty()) obj.SelectSubComponent(selection, true, true);

  explode::ExplodeInputs in;
  in.interval = Interval(from * tpf, to * tpf);
  in.step = static_cast<TimeValue>(a.step * tpf);
  in.selectedOnly = a.selected.has_value();
  in.reduce = a.reduce;
  in.reduceStep = a.reduceStep * tpf;
  in.reduceThreshold = a.threshold;
  in.fromScript = true;  // no scene selection to keep

  ProgressBar bar(err, !c.quiet);
  explode::ExplodeOptions opt;
  opt.progress = [&](const std::string& status, int percent) {
    std::string label = status;
    while (!label.empty() && (label.back() == '.' || label.back() == ' ')) label.pop_back();
    return bar.Update(label, static_cast<uint64_t>(percent), 100);
  };
  Stopwatch clock;
  const explode::ExplodeResult r = explode::Explode(scene, obj, in, opt);
  bar.Finish();

  switch (r.status) {
    case explode::ExplodeStatus::Exploded:
      break;
    case explode::ExplodeStatus::Cancelled:
      err << "kvcache explode: Operation cancelled. Nothing was written.\n";
      return kExitCancelled;
    case explode::ExplodeStatus::ReaderError:
      err << "kvcache explode: " << r.message << '\n';
      return kExitError;
    default:
      err << "kvcache explode: no element to explode at frame " << from
          << (a.selected ? " (none selected, or none shown there)\n" : " (none shown there)\n");
      return kExitError;
  }
  if (a.reduce && !r.reduced) {
    err << "kvcache explode: Operation cancelled. Nothing was written.\n";
    return kExitCancelled;
  }

  std::string error;
  bool written = false;
  if (toGltf) {
    standalone::GltfExportOptions go;
    go.sampleStep = std::max<TimeValue>(in.step, 1);
    go.visibilityTime = in.interval.Start();
    written = standalone::ExportGltf(scene, a.output, error, go);
  } else {
    written = standalone::SaveScene(scene, a.output, error);
  }
  if (!written) {
    err << "kvcache explode: " << error << '\n';
    return kExitError;
  }
  out << "Exploded " << r.nodes.size() << " element" << (r.nodes.size() == 1 ? "" : "s") << ", "
      << r.samples << " key" << (r.samples == 1 ? "" : "s") << " per track (frames " << from
      << " to " << to << ", step " << a.step << ")";
  if (a.reduce)
    out << ", reduced from " << r.reduction.keysBefore << " to " << r.reduction.keysAfter
        << " keys";
  char took[32];
  std::snprintf(took, sizeof took, " in %.2f s", clock.Seconds());
  out << ", into " << a.output << took << '\n';
  if (r.skipped > 0) err << "kvcache explode: " << r.skipped << " element(s) had no object\n";
  return kExitOk;
}

}  // namespace kv::cli

#include <fnmatch.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <ostream>
#include <string>

#include "cache/base.h"
#include "commands.h"
#include "host/standalone/mesh_sequence.h"
#include "progress.h"
#include "record/recorder.h"
#include "scene_io.h"

namespace kv::cli {

int RunRecord(const RecordArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  std::string error;
  const std::unique_ptr<standalone::Scene> loaded = LoadSceneFile(a.scene, a.fps, caches, error);
  if (!loaded) {
    err << "kvcache record: " << error << '\n';
    return kExitError;
  }
  standalone::Scene& scene = *loaded;

  RecordSettings s;
  for (standalone::SceneNode* n : scene.AllNodes()) {
    const host::Object* obj = n->GetObjectRef();
    if (!obj || obj->GetSuperClass() != host::SuperClass::Geometry) continue;
    if (fnmatch(a.nodes.c_str(), n->GetName().c_str(), 0) != 0) continue;
    s.nodes.push_back(n);
  }
  const int tpf = scene.GetTicksPerFrame();
  s.recStart = a.start.value_or(scene.GetAnimRange().Start() / tpf);
  s.recEnd = a.end.value_or(scene.GetAnimRange().End() / tpf);
  if (s.recStart > s.recEnd) {
    // Named by what the user typed: an option, or the scene's range it fell back on.
    const std::string from = a.start ? "--start " + std::to_string(s.recStart)
                                     : "the scene's start frame " + std::to_string(s.recStart);
    const std::string to = a.end ? "--end " + std::to_string(s.recEnd)
                                 : "the scene's end frame " + std::to_string(s.recEnd);
    err << "kvcache record: " << from << " is after " << to << "\n"
        << "Run with --help for more information.\n";
    return kExitUsage;
  }
  s.recStep = static_cast<float>(a.step);
  s.fileName = a.output;
  s.clearNodeList = false;
  s.writeDeform = a.deform;
  s.writeTopology = a.topology;
  SettingsRecordTarget target(s);

  ProgressBar bar(err, !c.quiet);
  RecordOptions opt;
  opt.quiet = true;  // messages come back in the result and go to standard error
  opt.deformTolerance = static_cast<float>(a.tolerance);
  int shown = 0;  // the writer's phases each count from 0: show the furthest point reached
  opt.progress = [&](const std::string&, int pct) {
    shown = std::max(shown, pct);
    return bar.Update("Recording", static_cast<uint64_t>(shown), 100);
  };
  Stopwatch clock;
  Recorder recorder(scene, nullptr);
  const RecordResult r = recorder.Record(target, opt);
  bar.Finish();

  // A frame file that could not be read says why itself, more plainly than what followed.
  if (!r.ok())
    for (standalone::SceneNode* n : scene.AllNodes())
      if (n->GetObjectRef() && n->GetObjectRef()->GetClassId() == standalone::kMeshSequenceClassId)
        if (const auto& why =
                static_cast<standalone::MeshSequenceObject*>(n->GetObjectRef())->LastError();
            !why.empty())
          err << "kvcache record: " << why << '\n';

  switch (r.status) {
    case RecordStatus::Recorded: {
      std::error_code ec;
      const auto size = std::filesystem::file_size(r.path, ec);
      out << "Recorded " << r.elements << " element" << (r.elements == 1 ? "" : "s") << ", "
          << r.samples << " sample" << (r.samples == 1 ? "" : "s") << " (frames " << s.recStart
          << " to " << s.recEnd << ", step " << a.step << ") into " << r.path << " ("
          << KelvaneTools::SizeText(ec ? 0 : size) << ")";
      char took[32];
      std::snprintf(took, sizeof took, " in %.2f s\n", clock.Seconds());
      out << took;
      if (r.skipped > 0) err << "kvcache record: " << r.skipped << " node(s) had no mesh\n";
      for (const std::string& line : r.deformReport) out << "  " << line << '\n';
      for (const std::string& w : r.warnings) err << "kvcache record: warning: " << w << '\n';
      return kExitOk;
    }
    case RecordStatus::Cancelled:
      err << "kvcache record: " << r.message << " " << a.output << " was left as it was.\n";
      return kExitCancelled;
    case RecordStatus::NothingToCache:
      err << "kvcache record: " << r.message << '\n';
      return kExitError;
    default:
      err << "kvcache record: " << r.message << " (" << r.path << ")\n";
      return kExitError;
  }
}

}  // namespace kv::cli

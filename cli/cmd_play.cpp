#include <cmath>
#include <ostream>

#include "cache/reader.h"
#include "commands.h"
#include "mesh_out.h"
#include "player.h"
#include "progress.h"
#include "scene_io.h"

namespace kv::cli {

namespace {

// A scene's cache object plays with its own saved parameters, groups and selection, at the
// scene's own frame rate.
int PlaySceneNode(const PlayArgs& a, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  kvCache_obj* obj = nullptr;
  std::string error;
  std::unique_ptr<standalone::Scene> scene = OpenSceneNode(a.file, a.node, caches, obj, error);
  if (!scene) {
    err << "kvcache play: " << error << '\n';
    return kExitError;
  }
  scene->SetRendering(true);
  const double ticks =
      a.frame ? std::round(*a.frame * scene->GetTicksPerFrame()) : static_cast<double>(*a.ticks);
  if (!(ticks >= kTimeNegInfinity && ticks <= kTimePosInfinity)) {
    err << "kvcache play: the time lies outside the scene's range of ticks\n";
    return kExitUsage;
  }
  const TimeValue t = static_cast<TimeValue>(ticks);
  scene->SetTime(t);
  Mesh mesh;
  if (!obj->GetTriMesh(t, true, mesh)) mesh.FreeAll();
  const KelvaneTools::kvCacheReader* reader = obj->Reader();
  if (!reader || !reader->HasIndex() || reader->InError()) {
    error = reader ? std::string(reader->ErrorMessageText()) : "File not found.";
    err << "kvcache play: " << error << '\n';
    return kExitError;
  }
  if (!WriteMeshFile(mesh, a.output, error)) {
    err << "kvcache play: " << error << '\n';
    return kExitError;
  }
  out << "Wrote " << mesh.numVerts() << " vertices and " << mesh.numFaces() << " faces at tick "
      << t << " (frame " << TicksToFrames(t, scene->GetTicksPerFrame()) << ") to " << a.output
      << '\n';
  return kExitOk;
}

}  // namespace

int RunPlay(const PlayArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err) {
  if (!IsMeshOutputPath(a.output)) {
    err << "kvcache play: the output must end in .obj, .ply or .glb: " << a.output << '\n';
    return kExitUsage;
  }
  if (!a.node.empty()) return PlaySceneNode(a, out, err);
  // The scene runs at the cache's own rate unless told otherwise; read it before the object
  // is made, since a new object takes the scene's rate as its playback rate.
  int sceneFps = 30;
  {
    KelvaneTools::kvCacheReader probe(a.file);
    if (!probe.Open()) {
      err << probe.ErrorMessageText() << '\n';
      return kExitError;
    }
    sceneFps = probe.FrameRate();
  }
  standalone::Scene scene;
  scene.SetFrameRate(a.sceneFps.value_or(sceneFps));
  scene.SetRendering(true);
  const double ticks =
      a.frame ? std::round(*a.frame * scene.GetTicksPerFrame()) : static_cast<double>(*a.ticks);
  if (!(ticks >= kTimeNegInfinity && ticks <= kTimePosInfinity)) {
    err << "kvcache play: the time lies outside the scene's range of ticks\n";
    return kExitUsage;
  }
  const TimeValue t = static_cast<TimeValue>(ticks);
  scene.SetTime(t);

  Mesh mesh;
  std::string error;
  {
    CachePlayer player(scene);
    player.Configure(a.file, a);
    ProgressBar bar(err, !c.quiet);
    bool cancelled = false;
    const bool loaded = player.Preload(
        [&](uint32_t done, uint32_t total) { return bar.Update("Loading", done, total); }, error,
        cancelled);
    bar.Finish();
    if (!loaded) {
      err << "kvcache play: " << error << '\n';
      return cancelled ? kExitCancelled : kExitError;
    }
    if (!player.Evaluate(t, mesh, error)) {
      err << error << '\n';
      return kExitError;
    }
  }
  if (!WriteMeshFile(mesh, a.output, error)) {
    err << "kvcache play: " << error << '\n';
    return kExitError;
  }
  out << "Wrote " << mesh.numVerts() << " vertices and " << mesh.numFaces() << " faces at tick "
      << t << " (frame " << TicksToFrames(t, scene.GetTicksPerFrame()) << ") to " << a.output
      << '\n';
  return kExitOk;
}

}  // namespace kv::cli

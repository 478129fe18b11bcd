#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iomanip>
#include <ostream>

#include "cache/base.h"
#include "commands.h"
#include "demo_scene.h"
#include "demo_sim.h"
#include "groups/group_ops.h"
#include "host/standalone/gltf.h"
#include "mesh_out.h"
#include "object/params.h"
#include "player.h"
#include "progress.h"
#include "record/object_target.h"

namespace kv::cli {

namespace fs = std::filesystem;

namespace {

// One "took" line per step, aligned.
void Took(std::ostream& out, const char* what, double seconds) {
  char buf[96];
  std::snprintf(buf, sizeof buf, "  %-34s %7.2f s\n", what, seconds);
  out << buf;
}

std::string FrameName(const char* prefix, int frame, const char* ext) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%s_%03d.%s", prefix, frame, ext);
  return buf;
}

std::string Sized(const fs::path& p) {
  std::error_code ec;
  const auto size = fs::file_size(p, ec);
  return p.string() + " (" + KelvaneTools::SizeText(ec ? 0 : size) + ")";
}

}  // namespace

int RunDemo(const DemoArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err) {
  std::error_code ec;
  fs::create_directories(a.dir, ec);
  if (ec || !fs::is_directory(a.dir)) {
    err << "kvcache demo: cannot create the folder " << a.dir
        << (ec ? ": " + ec.message() : std::string()) << '\n';
    return kExitError;
  }
  const fs::path dir = fs::absolute(a.dir);
  ProgressBar bar(err, !c.quiet);
  std::vector<std::string> wrote;

  // 1. The simulation.
  DemoSimOptions so;
  so.columns = a.columns;
  so.rows = a.rows;
  so.frames = a.frames;
  Stopwatch clock;
  bool completed = false;
  const DemoSimResult sim = RunDemoSimulation(
      so,
      [&](int d, int t) {
        return bar.Update("Simulating", static_cast<uint64_t>(d), static_cast<uint64_t>(t));
      },
      completed);
  bar.Finish();
  if (!completed) {
    err << "kvcache demo: Operation cancelled.\n";
    return kExitCancelled;
  }
  out << "Simulated " << sim.bodies.size() - 1 << " bricks and a ball over " << sim.frames
      << " frames at " << sim.fps << " fps\n";
  Took(out, "simulation", clock.Seconds());

  // 2. The bodies as keyframed scene nodes, and that scene as glTF for comparison.
  clock = Stopwatch();
  standalone::Scene scene;
  scene.SetThreadCount(c.threads);
  const std::vector<standalone::SceneNode*> nodes = BuildDemoScene(scene, sim);
  Took(out, "scene nodes and keys", clock.Seconds());
  clock = Stopwatch();
  const fs::path sceneFile = dir / "scene.glb";
  std::string error;
  if (!standalone::ExportGltf(scene, sceneFile.string(), error)) {
    err << "kvcache demo: " << error << '\n';
    return kExitError;
  }
  wrote.push_back(Sized(sceneFile) + "  the animated source scene");
  Took(out, "source scene export", clock.Seconds());

  // 3. Recording through a cache object, as its Record button does.
  CachePlayer player(scene);
  kvCache_obj& obj = player.Object();
  ParamBlock& pb = obj.Params();
  for (standalone::SceneNode* n : nodes) pb.Append(param::kNodes, n);
  pb.SetString(param::kFileName, (dir / "wall.kvc").string());
  pb.SetInt(param::kRecStart, 0, 0);
  pb.SetInt(param::kRecEnd, 0, sim.frames);
  pb.SetFloat(param::kRecStep, 0, 1.0f);
  RegistryRefresher refresher(player.Registry());
  Recorder recorder(scene, &refresher);
  RecordOptions ro;
  ro.quiet = true;
  int shown = 0;
  ro.progress = [&](const std::string&, int pct) {
    shown = std::max(shown, pct);
    return bar.Update("Recording", static_cast<uint64_t>(shown), 100);
  };
  clock = Stopwatch();
  const RecordResult rec = RecordCacheObject(recorder, obj, ro);
  bar.Finish();
  if (!rec.ok()) {
    err << "kvcache demo: " << rec.message << '\n';
    return rec.status == RecordStatus::Cancelled ? kExitCancelled : kExitError;
  }
  wrote.push_back(Sized(rec.path) + "  " + std::to_string(rec.elements) + " elements, " +
                  std::to_string(rec.samples) + " samples");
  if (fs::exists(dir / "wall.mat")) wrote.push_back(Sized(dir / "wall.mat") + "  its materials");
  Took(out, "recording", clock.Seconds());

  // 4. Playback as a renderer asks for it, at a few frames.
  scene.SetRendering(true);
  const int tpf = scene.GetTicksPerFrame();
  const int last = sim.frames;
  auto frameAt = [&](const char* prefix, int frame, const char* ext, const char* what) {
    Mesh mesh;
    const fs::path file = dir / FrameName(prefix, frame, ext);
    if (!player.Evaluate(frame * tpf, mesh, error) || !WriteMeshFile(mesh, file.string(), error)) {
      err << "kvcache demo: " << error << '\n';
      return false;
    }
    wrote.push_back(Sized(file) + "  " + what + ", " + std::to_string(mesh.numFaces()) + " faces");
    return true;
  };
  clock = Stopwatch();
  for (int f : {0, last / 4, last / 2, last})
    if (!frameAt("frame", f, "glb", "played back")) return kExitError;
  if (!frameAt("frame", last / 2, "obj", "played back")) return kExitError;
  Took(out, "playback of 5 frames", clock.Seconds());

  // 5. A group that deletes the ball, and an omni light whose growing range starts the
  // bricks it reaches: the wall now crumbles outwards from where the ball struck.
  clock = Stopwatch();
  const int32_t ball = static_cast<int32_t>(sim.bodies.size() - 1);
  AddGroup(obj, "Ball", false, false);
  SetGroupElements(obj, "Ball", std::span<const int32_t>(&ball, 1));
  SetGroupMode(obj, "Ball", static_cast<uint32_t>(GroupMode::Delete));
  // Deleting by an age of 0 deletes at once; the group acts before the light reaches the ball.
  SetGroupDeleteByAge(obj, "Ball", true);
  SetGroupDeleteAge(obj, "Ball", 0.0f);
  SetGroupTrigger(obj, "Ball", false);
  standalone::SceneNode* omni = scene.CreateLightNode(host::kOmniLightClassId, "Trigger");
  omni->KeyPosition(0, {0, 0, sim.bodies.back().poses.front().pos.z});
  auto* light = static_cast<standalone::LightObject*>(omni->GetObjectRef());
  const float reach = 0.5f * static_cast<float>(so.columns) * so.brickSize.x;
  light->FarAttenEnd().SetValue(0, 0.5f, true);
  light->FarAttenEnd().SetValue(last * tpf, reach, true);
  pb.SetInt(param::kTriggerMode, 0, 2);
  pb.SetNode(param::kTriggerOmni, omni);
  for (int f : {last / 2, last})
    if (!frameAt("triggered", f, "glb", "ball deleted, bricks started by the light"))
      return kExitError;
  Took(out, "triggered playback of 2 frames", clock.Seconds());

  out << "Wrote into " << dir.string() << ":\n";
  for (const std::string& w : wrote) out << "  " << w << '\n';
  return kExitOk;
}

}  // namespace kv::cli

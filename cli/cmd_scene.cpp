#include <filesystem>
#include <ostream>

#include "cache/reader.h"
#include "commands.h"
#include "object/params.h"
#include "scene_io.h"
#include "script/call.h"
#include "script/report.h"

namespace kv::cli {

int RunSceneNew(const SceneNewArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  // Declared first: the object leaves the registry when the scene destroys it.
  KelvaneTools::kvCacheRegistry caches;
  standalone::Scene scene;
  if (!a.cache.empty()) {
    // The scene runs at the cache's rate over the cache's range, so that a new object's
    // playback and record ranges cover it.
    KelvaneTools::kvCacheReader probe(a.cache);
    if (!probe.Open()) {
      err << "kvcache scene new: " << a.cache << ": " << probe.ErrorMessageText() << '\n';
      return kExitError;
    }
    scene.SetFrameRate(probe.FrameRate());
    scene.SetAnimRange(Interval(probe.Header().start, probe.Header().end));
    scene.SetTime(probe.Header().start);
  }
  if (a.name.empty()) {
    err << "kvcache scene new: --name must not be empty\n";
    return kExitUsage;
  }
  auto obj = std::make_unique<kvCache_obj>(scene, caches, false);
  if (!a.cache.empty()) obj->Params().SetString(param::kFileName, a.cache);
  scene.CreateObjectNode(std::move(obj), a.name);
  std::string error;
  if (!SaveSceneFile(scene, a.output, error)) {
    err << "kvcache scene new: " << error << '\n';
    return kExitError;
  }
  out << "Wrote " << a.output << ": node " << a.name << " with a KV Cache object"
      << (a.cache.empty() ? std::string() : " playing " + a.cache) << '\n';
  return kExitOk;
}

int RunCall(const CallArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  kvCache_obj* obj = nullptr;
  std::string error;
  std::unique_ptr<standalone::Scene> scene = OpenSceneNode(a.scene, a.node, caches, obj, error);
  if (!scene) {
    err << "kvcache call: " << error << '\n';
    return kExitError;
  }
  std::vector<script::CallArg> args;
  if (!script::ParseCallArgs(a.args, *scene, args, error)) {
    err << "kvcache call: " << error << '\n';
    return kExitUsage;
  }
  script::CacheFns fns(*obj);
  script::Value result;
  const script::CallStatus status =
      script::CallByName(fns, a.function, args, *scene, scene->GetTime(), result, error);
  // What the function printed to the listener comes first, as it would in the listener.
  out << scene->ListenerText();
  switch (status) {
    case script::CallStatus::Ok:
      break;
    case script::CallStatus::Failed:
      err << error << '\n';
      return kExitError;
    case script::CallStatus::UnknownFunction:
    case script::CallStatus::BadArguments:
      err << "kvcache call: " << error << '\n';
      return kExitUsage;
  }
  out << script::PrintLiteral(result, *scene) << '\n';
  if (a.save && !SaveSceneFile(*scene, a.scene, error)) {
    err << "kvcache call: " << error << '\n';
    return kExitError;
  }
  return kExitOk;
}

int RunSceneInfo(const InfoArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  std::string error;
  std::unique_ptr<standalone::Scene> scene = LoadSceneFile(a.file, std::nullopt, caches, error);
  if (!scene) {
    err << "kvcache info: " << error << '\n';
    return kExitError;
  }
  // Each object opens its cache on its first evaluation, as in a viewport.
  for (standalone::SceneNode* n : scene->AllNodes()) {
    host::Object* o = n->GetObjectRef();
    if (o && o->GetClassId() == host::kKvCacheClassId) {
      static_cast<kvCache_obj*>(o)->BuildMesh(scene->GetTime());
    }
  }
  script::PrintCacheReport(caches, *scene, [&out](const std::string& line) { out << line; });
  return kExitOk;
}

}  // namespace kv::cli

// Parameters, lights and the gizmo of a scene file from the shell.
#include <charconv>
#include <cmath>
#include <ostream>
#include <sstream>

#include "commands.h"
#include "host/standalone/objects.h"
#include "object/params.h"
#include "scene_io.h"
#include "script/cache_fns.h"
#include "script/literal.h"
#include "script/param_access.h"

namespace kv::cli {

namespace {

// Numbers separated by commas, exactly `count` of them, each finite.
bool ParseNumbers(const std::string& text, size_t count, std::vector<float>& out) {
  out.clear();
  size_t pos = 0;
  while (pos <= text.size()) {
    const size_t comma = std::min(text.find(',', pos), text.size());
    const std::string part = text.substr(pos, comma - pos);
    float v = 0;
    const auto [end, ec] = std::from_chars(part.data(), part.data() + part.size(), v);
    if (part.empty() || ec != std::errc() || end != part.data() + part.size() || !std::isfinite(v))
      return false;
    out.push_back(v);
    pos = comma + 1;
  }
  return out.size() == count;
}

bool ParsePoint(const std::string& text, Point3& p) {
  std::vector<float> v;
  if (!ParseNumbers(text, 3, v)) return false;
  p = {v[0], v[1], v[2]};
  return true;
}

TimeValue FrameTicks(double frame, const standalone::Scene& scene) {
  return static_cast<TimeValue>(std::llround(frame * scene.GetTicksPerFrame()));
}

bool FrameInRange(double frame, const standalone::Scene& scene) {
  const double ticks = std::round(frame * scene.GetTicksPerFrame());
  return ticks >= kTimeNegInfinity && ticks <= kTimePosInfinity;
}

const char* ObjectKind(const host::Object* o) {
  if (!o) return "none";
  const host::ClassId id = o->GetClassId();
  if (id == host::kKvCacheClassId) return "KV Cache";
  if (id == host::kOmniLightClassId) return "omni light";
  if (id == host::kSpotLightClassId) return "spot light";
  if (id == host::kDirLightClassId) return "directional light";
  if (id == host::kPointHelperClassId) return "point helper";
  if (id == host::kTriObjectClassId) return "mesh";
  return "object";
}

}  // namespace

int RunGet(const ParamArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  kvCache_obj* obj = nullptr;
  std::string error;
  std::unique_ptr<standalone::Scene> scene = OpenSceneNode(a.scene, a.node, caches, obj, error);
  if (!scene) {
    err << "kvcache get: " << error << '\n';
    return kExitError;
  }
  if (a.frame && !FrameInRange(*a.frame, *scene)) {
    err << "kvcache get: --frame lies outside the scene's range of ticks\n";
    return kExitUsage;
  }
  const TimeValue t = a.frame ? FrameTicks(*a.frame, *scene) : scene->GetTime();
  script::Value v;
  if (!script::GetParam(*obj, a.param, t, v, error)) {
    err << "kvcache get: " << error << '\n';
    return kExitUsage;
  }
  out << script::PrintLiteral(v, *scene) << '\n';
  return kExitOk;
}

int RunSet(const ParamArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  kvCache_obj* obj = nullptr;
  std::string error;
  std::unique_ptr<standalone::Scene> scene = OpenSceneNode(a.scene, a.node, caches, obj, error);
  if (!scene) {
    err << "kvcache set: " << error << '\n';
    return kExitError;
  }
  const param::ParamDef* def = param::FindParamByScriptName(a.param);
  if (!def) {
    err << "kvcache set: no parameter named '" << a.param << "'\n";
    return kExitUsage;
  }
  if (a.frame && !def->Animatable()) {
    err << "kvcache set: " << a.param << " is not animatable: it takes no --frame\n";
    return kExitUsage;
  }
  if (a.frame && !FrameInRange(*a.frame, *scene)) {
    err << "kvcache set: --frame lies outside the scene's range of ticks\n";
    return kExitUsage;
  }
  script::Value v;
  if (!script::ParseLiteral(a.value, *scene, v, error)) {
    err << "kvcache set: " << error << '\n';
    return kExitUsage;
  }
  // A frame sets a key there, as animate mode does; without one the value is set as it is.
  const TimeValue t = a.frame ? FrameTicks(*a.frame, *scene) : 0;
  scene->SetAnimateMode(a.frame.has_value());
  const bool ok = script::SetParam(*obj, a.param, t, v, error);
  scene->SetAnimateMode(false);
  if (!ok) {
    err << "kvcache set: " << error << '\n';
    return kExitUsage;
  }
  // What the block kept (clamped, or pushed by a rule) is what the user should see.
  script::Value now;
  script::GetParam(*obj, a.param, t, now, error);
  out << a.param << " = " << script::PrintLiteral(now, *scene) << '\n';
  if (a.save && !SaveSceneFile(*scene, a.scene, error)) {
    err << "kvcache set: " << error << '\n';
    return kExitError;
  }
  return kExitOk;
}

int RunAddLight(const LightArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  std::string error;
  if (!IsSceneFile(a.scene)) {
    err << "kvcache scene add-light: not a scene file: " << a.scene << '\n';
    return kExitError;
  }
  std::unique_ptr<standalone::Scene> scene = LoadSceneFile(a.scene, std::nullopt, caches, error);
  if (!scene) {
    err << "kvcache scene add-light: " << error << '\n';
    return kExitError;
  }
  Point3 at;
  if (!ParsePoint(a.at, at)) {
    err << "kvcache scene add-light: --at takes X,Y,Z, not " << a.at << '\n';
    return kExitUsage;
  }
  struct Key {
    TimeValue t;
    Point3 p;
    float r;
  };
  std::vector<Key> keys;
  for (const std::string& k : a.keys) {
    // F:X,Y,Z:R
    const size_t c1 = k.find(':'), c2 = k.rfind(':');
    double frame = 0;
    Point3 p;
    std::vector<float> r;
    const std::string f = c1 == std::string::npos ? k : k.substr(0, c1);
    const auto [end, ec] = std::from_chars(f.data(), f.data() + f.size(), frame);
    if (c1 == std::string::npos || c1 == c2 || ec != std::errc() || end != f.data() + f.size() ||
        !std::isfinite(frame) || !FrameInRange(frame, *scene) ||
        !ParsePoint(k.substr(c1 + 1, c2 - c1 - 1), p) || !ParseNumbers(k.substr(c2 + 1), 1, r) ||
        r[0] < 0) {
      err << "kvcache scene add-light: --key takes FRAME:X,Y,Z:RADIUS, not " << k << '\n';
      return kExitUsage;
    }
    keys.push_back({FrameTicks(frame, *scene), p, r[0]});
  }
  if (scene->FindNode(a.name)) {
    err << "kvcache scene add-light: a node named '" << a.name << "' exists already\n";
    return kExitUsage;
  }
  standalone::SceneNode* node =
      scene->CreateLightNode(a.spot ? host::kSpotLightClassId : host::kOmniLightClassId, a.name);
  auto* light = static_cast<standalone::LightObject*>(node->GetObjectRef());
  light->FarAttenEnd().SetValue(0, a.far, false);
  node->SetNodeTM(0, TransMatrix(at), false);
  for (const Key& k : keys) {
    node->KeyPosition(k.t, k.p);
    light->FarAttenEnd().SetValue(k.t, k.r, true);
  }
  if (!SaveSceneFile(*scene, a.scene, error)) {
    err << "kvcache scene add-light: " << error << '\n';
    return kExitError;
  }
  out << "Added " << (a.spot ? "spot" : "omni") << " light " << a.name << " to " << a.scene << '\n';
  return kExitOk;
}

int RunGizmo(const GizmoArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  kvCache_obj* obj = nullptr;
  std::string error;
  std::unique_ptr<standalone::Scene> scene = OpenSceneNode(a.scene, a.node, caches, obj, error);
  if (!scene) {
    err << "kvcache scene gizmo: " << error << '\n';
    return kExitError;
  }
  Matrix3 tm;
  if (!a.matrix.empty()) {
    std::vector<float> v;
    if (!ParseNumbers(a.matrix, 12, v)) {
      err << "kvcache scene gizmo: --matrix takes 12 numbers, row by row, not " << a.matrix << '\n';
      return kExitUsage;
    }
    tm = Matrix3::FromFloats(v.data());
  } else {
    Point3 move;
    if (!a.move.empty() && !ParsePoint(a.move, move)) {
      err << "kvcache scene gizmo: --move takes X,Y,Z, not " << a.move << '\n';
      return kExitUsage;
    }
    tm = ScaleMatrix({a.scale, a.scale, a.scale});
    tm.SetTrans(move);
  }
  if (a.frame && !FrameInRange(*a.frame, *scene)) {
    err << "kvcache scene gizmo: --frame lies outside the scene's range of ticks\n";
    return kExitUsage;
  }
  const TimeValue t = a.frame ? FrameTicks(*a.frame, *scene) : 0;
  scene->SetAnimateMode(a.frame.has_value());
  obj->SetGizmo(t, tm);
  scene->SetAnimateMode(false);
  if (!SaveSceneFile(*scene, a.scene, error)) {
    err << "kvcache scene gizmo: " << error << '\n';
    return kExitError;
  }
  out << (a.frame ? "Keyed" : "Set") << " the gizmo of " << a.node << '\n';
  return kExitOk;
}

int RunList(const ListArgs& a, const CommonArgs&, std::ostream& out, std::ostream& err) {
  KelvaneTools::kvCacheRegistry caches;
  std::string error;
  if (!IsSceneFile(a.scene)) {
    err << "kvcache scene list: not a scene file: " << a.scene << '\n';
    return kExitError;
  }
  std::unique_ptr<standalone::Scene> scene = LoadSceneFile(a.scene, std::nullopt, caches, error);
  if (!scene) {
    err << "kvcache scene list: " << error << '\n';
    return kExitError;
  }
  for (standalone::SceneNode* n : scene->AllNodes()) {
    host::Object* o = n->GetObjectRef();
    out << n->GetName() << "\t" << ObjectKind(o) << '\n';
    if (!o || o->GetClassId() != host::kKvCacheClassId) continue;
    auto* obj = static_cast<kvCache_obj*>(o);
    for (const param::ParamDef& d : param::ParamDefs()) {
      // The second unit shares the first one's script name: a script reaches only the first.
      if (param::FindParamByScriptName(d.scriptName) != &d) continue;
      script::Value v;
      script::GetParam(*obj, d.scriptName, scene->GetTime(), v, error);
      out << "\t" << d.scriptName << " = " << script::PrintLiteral(v, *scene) << '\n';
    }
    const ElementGroupList& groups = obj->Groups();
    for (int32_t i = 0; i < groups.count(); ++i) {
      const ElementGroup& g = groups.at(i);
      out << "\tgroup \"" << g.name() << "\"" << (i == groups.getSelected() ? " (selected)" : "")
          << ": #" << script::GroupModeName(g.mode) << ", " << (g.enabled ? "enabled" : "disabled")
          << ", " << g.elements().size() << " element" << (g.elements().size() == 1 ? "" : "s")
          << '\n';
    }
  }
  return kExitOk;
}

}  // namespace kv::cli

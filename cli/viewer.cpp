#include "viewer.h"

#include <cmath>

#include "cache/reader.h"
#include "object/params.h"
#include "playback_options.h"
#include "scene_io.h"

namespace kv::cli {
namespace P = param;

namespace {

const Point3 kBackground{0.24f, 0.25f, 0.27f};
// A calm blue for caches that bring no material.
constexpr uint32_t kDefaultWire = 0x00B08850;

}  // namespace

Viewer::~Viewer() {
  display_.reset();
  scene_.reset();
}

bool Viewer::Open(const std::string& input, const std::optional<std::string>& node,
                  const PlaybackArgs& play, std::string& error) {
  if (IsGltfPath(input)) {
    error = input + ": a glTF scene holds no cache object; record it first";
    return false;
  }
  KelvaneTools::kvCacheReader probe(input);
  const bool isCache = probe.Open();
  if (isCache) {
    if (node) {
      error = "--node names a node of a scene file, but " + input + " is a cache file";
      return false;
    }
    scene_ = std::make_unique<standalone::Scene>();
    scene_->SetFrameRate(play.sceneFps.value_or(probe.FrameRate()));
    registry_ = std::make_unique<KelvaneTools::kvCacheRegistry>(scene_.get());
    auto obj = std::make_unique<kvCache_obj>(*scene_, *registry_, false);
    obj_ = obj.get();
    ParamBlock& pb = obj_->Params();
    ApplyPlaybackOptions(play, pb);
    // A viewport evaluates with its own switches: they follow the render ones here.
    pb.SetInt(P::kVpBoxMode, 0, play.box ? 1 : 0);
    pb.SetInt(P::kVpInterpolate, 0, play.noInterpolate ? 0 : 1);
    pb.SetInt(P::kVpDeleteObjects, 0, play.dontDelete ? 0 : 1);
    pb.SetString(P::kFileName, input);
    node_ = scene_->CreateNode(std::move(obj), "KV Cache");
    node_->SetWireColor(kDefaultWire);
  } else {
    // Not a cache: a scene file, or a broken cache that deserves its own message.
    std::string sceneError;
    registry_ = std::make_unique<KelvaneTools::kvCacheRegistry>();
    scene_ = LoadSceneFile(input, std::nullopt, *registry_, sceneError);
    if (!scene_) {
      const bool looksLikeCache = input.size() > 4 && input.substr(input.size() - 4) == ".kvc";
      error = looksLikeCache ? input + ": " + std::string(probe.ErrorMessageText()) : sceneError;
      return false;
    }
    sceneFile_ = true;
    for (standalone::SceneNode* n : scene_->AllNodes()) {
      auto* o = dynamic_cast<kvCache_obj*>(n->GetObjectRef());
      if (node ? n->GetName() == *node : o != nullptr) {
        if (!o) {
          error = "node '" + n->GetName() + "' is not a cache object";
          return false;
        }
        node_ = n, obj_ = o;
        break;
      }
    }
    if (!node_) {
      error = node ? "no node named '" + *node + "' in " + input : "no cache object in " + input;
      return false;
    }
  }
  display_ = std::make_unique<ui::CacheDisplay>(*obj_);
  return true;
}

void Viewer::Apply(const ViewArgs& v) {
  ParamBlock& pb = obj_->Params();
  if (!sceneFile_) {
    // A bare cache shows its mesh alone unless asked for more.
    pb.SetInt(P::kVpShowMarkers, 0, 0);
    pb.SetInt(P::kVpDisplayIcon, 0, 0);
  }
  if (v.markers) {
    // Markers show only while invisible elements are kept.
    pb.SetInt(P::kVpShowMarkers, 0, 1);
    pb.SetInt(P::kVpDeleteObjects, 0, 0);
  }
  if (v.icon) pb.SetInt(P::kVpDisplayIcon, 0, 1);
  if (v.boxes) pb.SetInt(P::kVpBoxMode, 0, 1);
}

TimeValue Viewer::FrameTime(double frame) const {
  return static_cast<TimeValue>(std::lround(frame * scene_->GetTicksPerFrame()));
}

Box3 Viewer::Bounds(std::span<const TimeValue> times) {
  Box3 box;
  for (TimeValue t : times) {
    scene_->SetTime(t);
    obj_->BuildMesh(t);
    const Box3 local = obj_->GetMesh().getBoundingBox();
    if (local.IsEmpty()) continue;
    const Matrix3 tm = node_->GetObjectTM(t);
    for (int i = 0; i < 8; ++i) box += local.Corner(i) * tm;
  }
  if (!box.IsEmpty()) return box;
  for (TimeValue t : times) box += display_->GetWorldBoundBox(t, *node_);
  return box;
}

bool Viewer::ParseView(const std::string& name, standalone::ViewKind& kind) {
  if (name == "persp")
    kind = standalone::ViewKind::Persp;
  else if (name == "top")
    kind = standalone::ViewKind::Top;
  else if (name == "front")
    kind = standalone::ViewKind::Front;
  else if (name == "left")
    kind = standalone::ViewKind::Left;
  else
    return false;
  return true;
}

void Viewer::SetUpWindow(standalone::SoftWindow& gw, const ViewArgs& v, const Box3& bounds) {
  standalone::ViewKind kind = standalone::ViewKind::Persp;
  ParseView(v.view, kind);
  gw.SetCamera(standalone::FrameBox(bounds, kind, v.width, v.height));
  gw.SetRndMode(v.wire ? host::kGwWireframe | host::kGwZBuffer : host::kGwIllum | host::kGwZBuffer);
  gw.SetTransform(Matrix3());
}

void Viewer::Draw(TimeValue t, standalone::SoftWindow& gw) {
  scene_->SetTime(t);
  gw.Clear(kBackground);
  gw.SetRndLimits(gw.GetRndMode());
  display_->Display(t, *node_, gw);
}

}  // namespace kv::cli

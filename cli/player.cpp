#include "player.h"

#include "object/params.h"
#include "object/units.h"

namespace kv::cli {

CachePlayer::CachePlayer(standalone::Scene& scene)
    : scene_(scene),
      registry_(&scene),
      obj_(std::make_unique<kvCache_obj>(scene, registry_, false)) {}

// The object leaves the registry in its destructor, so it goes first.
CachePlayer::~CachePlayer() {
  obj_.reset();
}

void CachePlayer::Configure(const std::string& file, const PlayArgs& a) {
  ConfigurePlayback(*obj_, file, a);
}

void ConfigurePlayback(kvCache_obj& obj, const std::string& file, const PlayArgs& a) {
  namespace P = param;
  ParamBlock& pb = obj.Params();
  pb.SetInt(P::kPlayStart, 0, a.start);
  pb.SetFloat(P::kPlaySpeed, 0, a.speed);
  if (a.fps) pb.SetInt(P::kPlayFPS, 0, *a.fps);
  pb.SetInt(P::kPlaySpeedSteps, 0, a.steps);
  pb.SetInt(P::kPlayReverse, 0, a.reverse ? 1 : 0);
  pb.SetInt(P::kPlayUseGraph, 0, a.graphFrame ? 1 : 0);
  if (a.graphFrame) pb.SetFloat(P::kPlayFrame, 0, static_cast<float>(*a.graphFrame));
  pb.SetInt(P::kPlayInORT, 0, a.before);
  pb.SetInt(P::kPlayOutORT, 0, a.after);
  pb.SetInt(P::kRendInterpolate, 0, a.noInterpolate ? 0 : 1);
  pb.SetInt(P::kRendBoxMode, 0, a.box ? 1 : 0);
  pb.SetInt(P::kRendDontDelete, 0, a.dontDelete ? 1 : 0);
  pb.SetInt(P::kVpBoxMode, 0, a.box ? 1 : 0);
  pb.SetInt(P::kVpInterpolate, 0, a.noInterpolate ? 0 : 1);
  pb.SetInt(P::kVpDeleteObjects, 0, a.dontDelete ? 0 : 1);
  // As the unit drop-downs do: the conversion sets the scale, --scale multiplies it.
  pb.SetFloat(P::kScaleUnits, 0, a.scale * UnitScale(a.scaleFrom, a.scaleTo));
  pb.SetInt(P::kScaleUnitsFrom, 0, a.scaleFrom);
  pb.SetInt(P::kScaleUnitsTo, 0, a.scaleTo);
  pb.SetInt(P::kLoadTypeLocal, 0, a.load);
  pb.SetString(P::kFileName, file);
}

bool CachePlayer::Preload(const std::function<bool(uint32_t, uint32_t)>& progress,
                          std::string& error, bool& cancelled) {
  cancelled = false;
  const ParamBlock& pb = obj_->Params();
  if (pb.GetInt(param::kLoadTypeLocal) != 2) return true;
  const std::string path = scene_.ResolveAssetPath(pb.GetString(param::kFileName));
  if (path.empty()) return true;
  // The same entry the object acquires when it evaluates: it then finds every sample loaded.
  KelvaneTools::kvCacheReader* reader = registry_.Acquire(&obj_->Playback(), path).reader;
  if (!reader || reader->InError() || !reader->HasIndex()) return true;
  using Fn = std::function<bool(uint32_t, uint32_t)>;
  Fn fn = progress;
  auto thunk = [](void* user, uint32_t done, uint32_t total) {
    return (*static_cast<Fn*>(user))(done, total);
  };
  reader->SetProgressCallback(thunk, &fn);
  const bool ok = reader->LoadAllSamples();
  reader->SetProgressCallback(nullptr, nullptr);
  if (ok) return true;
  cancelled = reader->ErrorCode() == 7;
  error = std::string(reader->ErrorMessageText());
  return false;
}

bool CachePlayer::Evaluate(TimeValue t, Mesh& out, std::string& error) {
  if (!obj_->GetTriMesh(t, true, out)) {
    out.FreeAll();
  }
  // An object plays nothing rather than failing; the reader says why.
  const KelvaneTools::kvCacheReader* reader = obj_->Reader();
  if (!reader || !reader->HasIndex() || reader->InError()) {
    error = reader ? std::string(reader->ErrorMessageText()) : "File not found.";
    if (error.empty()) error = "Invalid cache file.";
    return false;
  }
  return true;
}

}  // namespace kv::cli

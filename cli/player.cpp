#include "player.h"

#include "object/params.h"

namespace kv::cli {

CachePlayer::CachePlayer(standalone::Scene& scene)
    : scene_(scene),
      registry_(&scene),
      obj_(std::make_unique<kvCache_obj>(scene, registry_, false)) {}

// The object leaves the registry in its destructor, so it goes first.
CachePlayer::~CachePlayer() {
  obj_.reset();
}

void CachePlayer::Configure(const std::string& file, const PlaybackArgs& a) {
  ParamBlock& pb = obj_->Params();
  ApplyPlaybackOptions(a, pb);
  pb.SetString(param::kFileName, file);
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

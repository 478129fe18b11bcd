// A cache object in a standalone scene, set up from the play options, evaluated the way a
// renderer asks for its mesh.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "cache/registry.h"
#include "commands.h"
#include "geom/mesh.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"

namespace kv::cli {

class CachePlayer {
 public:
  // `scene` must outlive the player.
  explicit CachePlayer(standalone::Scene& scene);
  ~CachePlayer();
  CachePlayer(const CachePlayer&) = delete;
  CachePlayer& operator=(const CachePlayer&) = delete;

  // Points the object at `file` and applies the playback and render options of `a`.
  void Configure(const std::string& file, const PlaybackArgs& a);
  // With the "Pre-Load" type, reads every sample of the file now, reporting (done, total) to
  // `progress`, which answers false to cancel: the read is the long part of playing a big
  // cache. False with `error` set when the read failed or was cancelled (`cancelled` set);
  // true with nothing done for the other load types or a file that does not open (Evaluate
  // says why).
  bool Preload(const std::function<bool(uint32_t, uint32_t)>& progress, std::string& error,
               bool& cancelled);
  // The render mesh at scene time t. False with `error` set when the cache cannot be played.
  bool Evaluate(TimeValue t, Mesh& out, std::string& error);

  kvCache_obj& Object() { return *obj_; }
  KelvaneTools::kvCacheRegistry& Registry() { return registry_; }

 private:
  standalone::Scene& scene_;
  KelvaneTools::kvCacheRegistry registry_;
  std::unique_ptr<kvCache_obj> obj_;
};

}  // namespace kv::cli

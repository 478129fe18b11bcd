// Loads the scenes the tool records from into the standalone host.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cache/registry.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"

namespace kv::cli {

// A mesh sequence (wall.####.obj, or one file of it: one node, its frames the scene's range), a
// glTF scene (.gltf or .glb, at `fps` frames per second, 30 when not given) or a standalone
// scene file (at its own rate unless `fps` is given). Cache objects in a scene file play
// through `caches`, which must outlive the scene. Null with `error` set when the file cannot
// be read.
std::unique_ptr<standalone::Scene> LoadSceneFile(const std::string& path, std::optional<int> fps,
                                                 KelvaneTools::kvCacheRegistry& caches,
                                                 std::string& error);

// True when the file starts as a standalone scene file does (a cache file does not).
bool IsSceneFile(const std::string& path);

// The cache object carried by the live node `name` of `scene`, or null with `error` saying
// which of the two is missing.
kvCache_obj* FindCacheObject(standalone::Scene& scene, const std::string& name, std::string& error);

// Opens a scene file whose cache objects play through `caches`, and finds the cache object of
// node `name` in it; null (with `error`) when either fails. The object is evaluated once at the
// scene's current time, as a viewport would, so that it holds its cache open.
std::unique_ptr<standalone::Scene> OpenSceneNode(const std::string& path, const std::string& name,
                                                 KelvaneTools::kvCacheRegistry& caches,
                                                 kvCache_obj*& object, std::string& error);

// Writes the scene (through a temporary file, so a failed write leaves the old one).
bool SaveSceneFile(const standalone::Scene& scene, const std::string& path, std::string& error);

// True for .gltf and .glb (any letter case).
bool IsGltfPath(const std::string& path);

}  // namespace kv::cli

// Loads the scenes the tool records from into the standalone host.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "cache/registry.h"
#include "host/standalone/scene.h"

namespace kv::cli {

// A mesh sequence (wall.####.obj, or one file of it: one node, its frames the scene's range), a
// glTF scene (.gltf or .glb, at `fps` frames per second, 30 when not given) or a standalone
// scene file (at its own rate unless `fps` is given). Cache objects in a scene file play
// through `caches`, which must outlive the scene. Null with `error` set when the file cannot
// be read.
std::unique_ptr<standalone::Scene> LoadSceneFile(const std::string& path, std::optional<int> fps,
                                                 KelvaneTools::kvCacheRegistry& caches,
                                                 std::string& error);

// True for .gltf and .glb (any letter case).
bool IsGltfPath(const std::string& path);

}  // namespace kv::cli

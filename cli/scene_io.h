// Loads the scenes the tool records from into the standalone host.
#pragma once

#include <string>

#include "host/standalone/scene.h"

namespace kv::cli {

// A glTF scene (.gltf or .glb) or a standalone scene file, chosen by the extension. False
// with `error` set when the file cannot be read.
bool LoadSceneFile(standalone::Scene& scene, const std::string& path, std::string& error);

// True for .gltf and .glb (any letter case).
bool IsGltfPath(const std::string& path);

}  // namespace kv::cli

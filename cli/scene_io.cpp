#include "scene_io.h"

#include <algorithm>
#include <cctype>

#include "host/standalone/gltf.h"

namespace kv::cli {

namespace {

std::string LowerExtension(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || path.find_first_of("/\\", dot) != std::string::npos) return {};
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char ch) { return static_cast<char>(std::tolower(ch)); });
  return ext;
}

}  // namespace

bool IsGltfPath(const std::string& path) {
  const std::string ext = LowerExtension(path);
  return ext == "gltf" || ext == "glb";
}

bool LoadSceneFile(standalone::Scene& scene, const std::string& path, std::string& error) {
  if (IsGltfPath(path)) return standalone::ImportGltf(scene, path, error);
  error = "unsupported scene type (use .gltf or .glb): " + path;
  return false;
}

}  // namespace kv::cli

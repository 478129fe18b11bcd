#include "scene_io.h"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "host/standalone/gltf.h"
#include "host/standalone/mesh_sequence.h"
#include "host/standalone/scene_file.h"
#include "object/cache_obj.h"

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

std::unique_ptr<standalone::Scene> LoadSceneFile(const std::string& path, std::optional<int> fps,
                                                 KelvaneTools::kvCacheRegistry& caches,
                                                 std::string& error) {
  std::error_code ec;
  if (standalone::IsSequencePattern(path)) {
    return standalone::LoadMeshSequenceScene(path, fps.value_or(30), error);
  }
  if (!std::filesystem::is_regular_file(path, ec)) {
    error = path + " does not exist";
    return nullptr;
  }
  if (IsGltfPath(path)) {
    auto scene = std::make_unique<standalone::Scene>();
    // glTF counts time in seconds: the frame rate only decides where frames fall.
    scene->SetFrameRate(fps.value_or(30));
    if (!standalone::ImportGltf(*scene, path, error)) return nullptr;
    return scene;
  }
  standalone::ClassRegistry classes;
  classes.Register(host::kKvCacheClassId, [&caches](standalone::Scene& s) {
    return std::unique_ptr<host::Object>(std::make_unique<kvCache_obj>(s, caches, true));
  });
  std::unique_ptr<standalone::Scene> scene = standalone::LoadScene(path, error, classes);
  if (scene && fps) scene->SetFrameRate(*fps);
  return scene;
}

}  // namespace kv::cli

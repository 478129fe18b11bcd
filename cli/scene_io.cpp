#include "scene_io.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>

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

bool IsSceneFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  char magic[8] = {};
  in.read(magic, sizeof magic);
  return in.gcount() == sizeof magic && std::memcmp(magic, "KVSCENE", 8) == 0;
}

kvCache_obj* FindCacheObject(standalone::Scene& scene, const std::string& name,
                             std::string& error) {
  standalone::SceneNode* node = scene.FindNode(name);
  if (!node || node->IsDeleted()) {
    error = "no node named '" + name + "' in the scene";
    return nullptr;
  }
  host::Object* obj = node->GetObjectRef();
  auto* cache =
      obj && obj->GetClassId() == host::kKvCacheClassId ? dynamic_cast<kvCache_obj*>(obj) : nullptr;
  if (!cache) error = "node '" + name + "' carries no KV Cache object";
  return cache;
}

std::unique_ptr<standalone::Scene> OpenSceneNode(const std::string& path, const std::string& name,
                                                 KelvaneTools::kvCacheRegistry& caches,
                                                 kvCache_obj*& object, std::string& error) {
  object = nullptr;
  if (!IsSceneFile(path)) {
    error = "not a scene file: " + path;
    return nullptr;
  }
  std::unique_ptr<standalone::Scene> scene = LoadSceneFile(path, std::nullopt, caches, error);
  if (!scene) return nullptr;
  object = FindCacheObject(*scene, name, error);
  if (!object) return nullptr;
  object->BuildMesh(scene->GetTime());
  return scene;
}

bool SaveSceneFile(const standalone::Scene& scene, const std::string& path, std::string& error) {
  return standalone::SaveScene(scene, path, error);
}

}  // namespace kv::cli

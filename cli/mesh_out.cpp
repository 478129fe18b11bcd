#include "mesh_out.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

namespace kv::cli {
namespace {

std::string Extension(const std::string& path) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of("/\\");
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return {};
  std::string ext = path.substr(dot + 1);
  std::transform(ext.begin(), ext.end(), ext.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

struct FileCloser {
  void operator()(std::FILE* f) const {
    if (f) std::fclose(f);
  }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::vector<uint32_t> VisibleTriangles(const Mesh& m) {
  std::vector<uint32_t> idx;
  idx.reserve(m.faces.size() * 3);
  for (const Face& f : m.faces)
    if (!f.Hidden()) idx.insert(idx.end(), {f.v[0], f.v[1], f.v[2]});
  return idx;
}

bool WriteObj(const Mesh& m, std::FILE* f) {
  std::fprintf(f, "# kvcache: %d vertices, %d faces\n", m.numVerts(), m.numFaces());
  for (const Point3& p : m.verts) std::fprintf(f, "v %.9g %.9g %.9g\n", p.x, p.y, p.z);
  for (const Face& face : m.faces)
    if (!face.Hidden())
      std::fprintf(f, "f %u %u %u\n", face.v[0] + 1, face.v[1] + 1, face.v[2] + 1);
  return true;
}

bool WritePly(const Mesh& m, std::FILE* f) {
  const std::vector<uint32_t> idx = VisibleTriangles(m);
  std::fprintf(f,
               "ply\nformat binary_little_endian 1.0\nelement vertex %d\n"
               "property float x\nproperty float y\nproperty float z\n"
               "element face %zu\nproperty list uchar uint vertex_indices\nend_header\n",
               m.numVerts(), idx.size() / 3);
  if (!m.verts.empty() &&
      std::fwrite(m.verts.data(), sizeof(Point3), m.verts.size(), f) != m.verts.size())
    return false;
  std::vector<unsigned char> faces(idx.size() / 3 * 13);
  for (size_t i = 0; i < idx.size() / 3; ++i) {
    faces[i * 13] = 3;
    std::memcpy(&faces[i * 13 + 1], &idx[i * 3], 12);
  }
  return faces.empty() || std::fwrite(faces.data(), 1, faces.size(), f) == faces.size();
}

bool WriteGlb(const Mesh& m, std::FILE* f) {
  const std::vector<uint32_t> idx = VisibleTriangles(m);
  std::vector<float> pos;
  pos.reserve(m.verts.size() * 3);
  float lo[3] = {0, 0, 0}, hi[3] = {0, 0, 0};
  for (size_t i = 0; i < m.verts.size(); ++i) {
    const Point3& p = m.verts[i];
    const float v[3] = {p.x, p.z, -p.y};
    for (int k = 0; k < 3; ++k) {
      lo[k] = i ? std::min(lo[k], v[k]) : v[k];
      hi[k] = i ? std::max(hi[k], v[k]) : v[k];
      pos.push_back(v[k]);
    }
  }
  const size_t posBytes = pos.size() * 4, idxBytes = idx.size() * 4;
  nlohmann::json j;
  j["asset"] = {{"version", "2.0"}, {"generator", "kvcache"}};
  j["scene"] = 0;
  j["scenes"] = nlohmann::json::array({{{"nodes", {0}}}});
  nlohmann::json node = {{"name", "KV Cache"}};
  // glTF accessors may not be empty: a mesh without triangles becomes a node without a mesh.
  if (!idx.empty()) {
    node["mesh"] = 0;
    j["meshes"] = nlohmann::json::array(
        {{{"primitives", {{{"attributes", {{"POSITION", 0}}}, {"indices", 1}, {"mode", 4}}}}}});
    j["accessors"] = nlohmann::json::array(
        {{{"bufferView", 0},
          {"componentType", 5126},
          {"count", m.verts.size()},
          {"type", "VEC3"},
          {"min", {lo[0], lo[1], lo[2]}},
          {"max", {hi[0], hi[1], hi[2]}}},
         {{"bufferView", 1}, {"componentType", 5125}, {"count", idx.size()}, {"type", "SCALAR"}}});
    j["bufferViews"] = nlohmann::json::array(
        {{{"buffer", 0}, {"byteOffset", 0}, {"byteLength", posBytes}, {"target", 34962}},
         {{"buffer", 0}, {"byteOffset", posBytes}, {"byteLength", idxBytes}, {"target", 34963}}});
    j["buffers"] = nlohmann::json::array({{{"byteLength", posBytes + idxBytes}}});
  }
  j["nodes"] = nlohmann::json::array({node});

  std::string text = j.dump();
  while (text.size() % 4) text += ' ';  // chunks are 4-byte aligned; JSON pads with spaces
  const bool hasBin = !idx.empty();
  const uint32_t binLen = static_cast<uint32_t>(posBytes + idxBytes);  // multiples of 4 already
  const uint32_t total = 12 + 8 + static_cast<uint32_t>(text.size()) + (hasBin ? 8 + binLen : 0);
  auto put32 = [&](uint32_t v) { return std::fwrite(&v, 4, 1, f) == 1; };
  bool ok = put32(0x46546C67u) && put32(2) && put32(total);  // "glTF", version 2
  ok = ok && put32(static_cast<uint32_t>(text.size())) && put32(0x4E4F534Au) &&  // "JSON"
       std::fwrite(text.data(), 1, text.size(), f) == text.size();
  if (ok && hasBin) {
    ok = put32(binLen) && put32(0x004E4942u) &&  // "BIN\0"
         std::fwrite(pos.data(), 1, posBytes, f) == posBytes &&
         std::fwrite(idx.data(), 1, idxBytes, f) == idxBytes;
  }
  return ok;
}

}  // namespace

bool IsMeshOutputPath(const std::string& path) {
  const std::string ext = Extension(path);
  return ext == "obj" || ext == "ply" || ext == "glb";
}

bool WriteMeshFile(const Mesh& mesh, const std::string& path, std::string& error) {
  const std::string ext = Extension(path);
  if (!IsMeshOutputPath(path)) {
    error = "unsupported output type (use .obj, .ply or .glb): " + path;
    return false;
  }
  File f(std::fopen(path.c_str(), ext == "obj" ? "w" : "wb"));
  if (!f) {
    error = "cannot create " + path + ": " + std::strerror(errno);
    return false;
  }
  bool ok = ext == "obj"   ? WriteObj(mesh, f.get())
            : ext == "ply" ? WritePly(mesh, f.get())
                           : WriteGlb(mesh, f.get());
  ok = std::fflush(f.get()) == 0 && ok;
  if (std::fclose(f.release()) != 0) ok = false;
  if (!ok) {
    error = "cannot write " + path + ": " + std::strerror(errno);
    std::remove(path.c_str());
  }
  return ok;
}

}  // namespace kv::cli

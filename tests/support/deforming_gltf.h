// A small glTF file, built here value by value, with the two kinds of deforming mesh: a skinned
// "Debris" of two triangles, each bound to its own joint (one joint moves, the other turns),
// and a "Blob" triangle with one morph target whose weight goes from 0 to 1 over one second.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace kvtest {

inline std::string Base64(const std::vector<uint8_t>& b) {
  static const char* k = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  for (size_t i = 0; i < b.size(); i += 3) {
    const uint32_t n = (uint32_t(b[i]) << 16) | (i + 1 < b.size() ? uint32_t(b[i + 1]) << 8 : 0) |
                       (i + 2 < b.size() ? uint32_t(b[i + 2]) : 0);
    out += k[(n >> 18) & 63];
    out += k[(n >> 12) & 63];
    out += i + 1 < b.size() ? k[(n >> 6) & 63] : '=';
    out += i + 2 < b.size() ? k[n & 63] : '=';
  }
  return out;
}

// `blend`: the debris' third vertex follows both joints half and half (not rigid).
inline void WriteDeformingGltf(const std::string& path, bool blend) {
  std::vector<uint8_t> buf;
  nlohmann::json views = nlohmann::json::array(), accessors = nlohmann::json::array();
  auto add = [&](const void* data, size_t bytes, int count, const char* type, int componentType) {
    while (buf.size() % 4) buf.push_back(0);
    views.push_back({{"buffer", 0}, {"byteOffset", buf.size()}, {"byteLength", bytes}});
    const auto* p = static_cast<const uint8_t*>(data);
    buf.insert(buf.end(), p, p + bytes);
    accessors.push_back({{"bufferView", views.size() - 1},
                         {"count", count},
                         {"type", type},
                         {"componentType", componentType}});
    return int(accessors.size() - 1);
  };
  const float pos[18] = {0, 0, 0, 1, 0, 0, 0, 1, 0, 5, 0, 0, 6, 0, 0, 5, 1, 0};
  const uint8_t joints[24] = {0, 0, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0,
                              1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};
  const float half = blend ? 0.5f : 0.0f;
  const float weights[24] = {1, 0, 0, 0, 1, 0, 0, 0, 1 - half, half, 0, 0,
                             1, 0, 0, 0, 1, 0, 0, 0, 1,        0,    0, 0};
  const uint32_t idx[6] = {0, 1, 2, 3, 4, 5};
  const float times[2] = {0, 1};
  const float moves[6] = {0, 0, 0, 0, 2, 0};
  const float turns[8] = {0, 0, 0, 1, 0, 0, 0.70710678f, 0.70710678f};
  const float blob[9] = {0, 0, 0, 1, 0, 0, 0, 1, 0};
  const float delta[9] = {0, 0, 0, 0, 0, 0, 0, 0, 1};
  const float wkeys[2] = {0, 1};
  const uint32_t tri[3] = {0, 1, 2};
  // Accessors 0 to 11, in this order.
  add(pos, sizeof pos, 6, "VEC3", 5126);
  add(joints, sizeof joints, 6, "VEC4", 5121);
  add(weights, sizeof weights, 6, "VEC4", 5126);
  add(idx, sizeof idx, 6, "SCALAR", 5125);
  add(times, sizeof times, 2, "SCALAR", 5126);
  add(moves, sizeof moves, 2, "VEC3", 5126);
  add(turns, sizeof turns, 2, "VEC4", 5126);
  add(blob, sizeof blob, 3, "VEC3", 5126);
  add(delta, sizeof delta, 3, "VEC3", 5126);
  add(wkeys, sizeof wkeys, 2, "SCALAR", 5126);
  add(tri, sizeof tri, 3, "SCALAR", 5125);
  // The turner's pivot is at (5, 0, 0): its inverse bind matrix takes the second triangle
  // there to its own origin.
  const float ibm[32] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0,  0, 0, 1,
                         1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, -5, 0, 0, 1};
  add(ibm, sizeof ibm, 2, "MAT4", 5126);
  accessors[4]["min"] = {0};
  accessors[4]["max"] = {1};
  accessors[0]["min"] = {0, 0, 0};
  accessors[0]["max"] = {6, 1, 0};
  accessors[7]["min"] = {0, 0, 0};
  accessors[7]["max"] = {1, 1, 0};
  nlohmann::json doc = nlohmann::json::parse(R"({
    "asset": {"version": "2.0"},
    "scene": 0,
    "scenes": [{"nodes": [0, 1, 2, 3]}],
    "nodes": [
      {"name": "Debris", "mesh": 0, "skin": 0},
      {"name": "Mover"},
      {"name": "Turner", "translation": [5, 0, 0]},
      {"name": "Blob", "mesh": 1, "translation": [0, 0, -10]}],
    "skins": [{"joints": [1, 2], "inverseBindMatrices": 11}],
    "meshes": [
      {"name": "Debris", "primitives": [{"attributes":
        {"POSITION": 0, "JOINTS_0": 1, "WEIGHTS_0": 2}, "indices": 3}]},
      {"name": "Blob", "weights": [0], "primitives": [{"attributes": {"POSITION": 7},
        "targets": [{"POSITION": 8}], "indices": 10}]}],
    "animations": [{
      "samplers": [{"input": 4, "output": 5}, {"input": 4, "output": 6},
                   {"input": 4, "output": 9}],
      "channels": [{"sampler": 0, "target": {"node": 1, "path": "translation"}},
                   {"sampler": 1, "target": {"node": 2, "path": "rotation"}},
                   {"sampler": 2, "target": {"node": 3, "path": "weights"}}]}]
  })");
  doc["bufferViews"] = views;
  doc["accessors"] = accessors;
  doc["buffers"] = {
      {{"byteLength", buf.size()}, {"uri", "data:application/octet-stream;base64," + Base64(buf)}}};
  std::ofstream(path) << doc.dump(1);
}

}  // namespace kvtest

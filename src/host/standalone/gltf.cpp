#include "host/standalone/gltf.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <numbers>

#include "host/standalone/gltf_deform.h"

#define TINYGLTF_IMPLEMENTATION
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE
#define TINYGLTF_NOEXCEPTION
#include <tiny_gltf.h>

#include "geom/affine.h"
#include "host/standalone/controls.h"

namespace kv::standalone {
namespace {

namespace fs = std::filesystem;
using host::ControlKind;
using host::Interp;
using nlohmann::json;

// glTF (x, y, z) -> scene (x, -z, y): a quarter turn about +X.
const Quat kYUpToZUp(0.70710678f, 0, 0, 0.70710678f);
Point3 ToZUp(const Point3& p) {
  return {p.x, -p.z, p.y};
}
Point3 ToYUp(const Point3& p) {
  return {p.x, p.z, -p.y};
}

bool NoImages(tinygltf::Image*, const int, std::string*, std::string*, int, int,
              const unsigned char*, int, void*) {
  return true;  // textures are not used: skip decoding
}

// ---------------------------------------------------------------- reading accessors

// An accessor without a bufferView is all zeros (plus its sparse values); nothing in the file
// bounds its count, so it is bounded here before anything is allocated for it.
constexpr size_t kMaxZeroElements = size_t{1} << 24;

// Where `count` elements of `elem` bytes each lie, `offset` bytes into bufferView `view`: the
// view is checked against its buffer and the elements against the view, overflow-safe,
// before anything is allocated or read.
bool Locate(const tinygltf::Model& m, int view, size_t offset, size_t count, size_t elem,
            const unsigned char*& at, size_t& stride, std::string& err, const std::string& what) {
  if (view < 0 || view >= static_cast<int>(m.bufferViews.size())) {
    err = what + " has a bufferView index out of range";
    return false;
  }
  const tinygltf::BufferView& v = m.bufferViews[static_cast<size_t>(view)];
  if (v.buffer < 0 || v.buffer >= static_cast<int>(m.buffers.size())) {
    err = what + " has a buffer index out of range";
    return false;
  }
  const std::vector<unsigned char>& data = m.buffers[static_cast<size_t>(v.buffer)].data;
  if (v.byteOffset > data.size() || v.byteLength > data.size() - v.byteOffset) {
    err = what + ": its bufferView reaches past its buffer";
    return false;
  }
  stride = v.byteStride ? v.byteStride : elem;
  if (stride < elem) {
    err = what + " has a byteStride smaller than its elements";
    return false;
  }
  if (count > 0 && (offset > v.byteLength || elem > v.byteLength - offset ||
                    count - 1 > (v.byteLength - offset - elem) / stride)) {
    err = what + " holds more elements than its bufferView";
    return false;
  }
  at = data.data() + v.byteOffset + offset;
  return true;
}

// One component as a float (normalised integers scaled to 0..1 or -1..1).
bool ComponentAsFloat(const unsigned char* p, int type, float& f) {
  switch (type) {
    case TINYGLTF_COMPONENT_TYPE_FLOAT:
      std::memcpy(&f, p, 4);
      return true;
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
      f = p[0] / 255.0f;
      return true;
    case TINYGLTF_COMPONENT_TYPE_BYTE:
      f = std::max(static_cast<int8_t>(p[0]) / 127.0f, -1.0f);
      return true;
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: {
      uint16_t u;
      std::memcpy(&u, p, 2);
      f = u / 65535.0f;
      return true;
    }
    case TINYGLTF_COMPONENT_TYPE_SHORT: {
      int16_t v;
      std::memcpy(&v, p, 2);
      f = std::max(v / 32767.0f, -1.0f);
      return true;
    }
    default:
      return false;
  }
}

// Reads `count` unsigned integers of 1, 2 or 4 bytes.
bool ReadUInts(const tinygltf::Model& m, int view, size_t offset, int componentType, size_t count,
               std::vector<uint32_t>& out, std::string& err, const std::string& what) {
  const int csize = tinygltf::GetComponentSizeInBytes(static_cast<uint32_t>(componentType));
  if (componentType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE &&
      componentType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT &&
      componentType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT) {
    err = what + " has a bad component type";
    return false;
  }
  const unsigned char* at = nullptr;
  size_t stride = 0;
  if (!Locate(m, view, offset, count, static_cast<size_t>(csize), at, stride, err, what))
    return false;
  out.resize(count);
  for (size_t i = 0; i < count; ++i) {
    const unsigned char* p = at + stride * i;
    uint32_t x = 0;
    if (csize == 1) x = p[0];
    if (csize == 2) {
      uint16_t u;
      std::memcpy(&u, p, 2);
      x = u;
    }
    if (csize == 4) std::memcpy(&x, p, 4);
    out[i] = x;
  }
  return true;
}

// Reads `count` elements of `comps` components as floats into out[first...] (out sized by
// the caller), or, with `indices`, into the elements those indices name.
bool ReadElements(const tinygltf::Model& m, int view, size_t offset, int componentType, int comps,
                  size_t count, const std::vector<uint32_t>* indices, std::vector<float>& out,
                  std::string& err, const std::string& what) {
  const int csize = tinygltf::GetComponentSizeInBytes(static_cast<uint32_t>(componentType));
  if (csize <= 0 || componentType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT ||
      componentType == TINYGLTF_COMPONENT_TYPE_INT ||
      componentType == TINYGLTF_COMPONENT_TYPE_DOUBLE) {
    err = what + " has an unsupported component type";
    return false;
  }
  const size_t elem = static_cast<size_t>(csize) * static_cast<size_t>(comps);
  const unsigned char* at = nullptr;
  size_t stride = 0;
  if (!Locate(m, view, offset, count, elem, at, stride, err, what)) return false;
  const size_t ucomps = static_cast<size_t>(comps);
  for (size_t i = 0; i < count; ++i) {
    const size_t to = indices ? (*indices)[i] : i;
    const unsigned char* p = at + stride * i;
    for (size_t c = 0; c < ucomps; ++c) {
      float f = 0;
      ComponentAsFloat(p + static_cast<size_t>(csize) * c, componentType, f);
      if (!std::isfinite(f)) {
        err = what + " holds a non-finite value";
        return false;
      }
      out[to * ucomps + c] = f;
    }
  }
  return true;
}

// Reads accessor `index`, `comps` components per element, as floats, sparse values applied.
bool ReadFloats(const tinygltf::Model& m, int index, int comps, std::vector<float>& out,
                std::string& err) {
  out.clear();
  if (index < 0 || index >= static_cast<int>(m.accessors.size())) {
    err = "accessor index " + std::to_string(index) + " out of range";
    return false;
  }
  const tinygltf::Accessor& a = m.accessors[static_cast<size_t>(index)];
  const std::string what = "accessor " + std::to_string(index);
  if (tinygltf::GetNumComponentsInType(static_cast<uint32_t>(a.type)) != comps) {
    err = what + " has the wrong type";
    return false;
  }
  if (a.bufferView < 0 && a.count > kMaxZeroElements) {
    err = what + " has more elements than it can hold";
    return false;
  }
  // With a bufferView the elements are located before the array is sized.
  const unsigned char* at = nullptr;
  size_t stride = 0;
  const int csize = tinygltf::GetComponentSizeInBytes(static_cast<uint32_t>(a.componentType));
  if (a.bufferView >= 0 &&
      !Locate(m, a.bufferView, a.byteOffset, a.count,
              static_cast<size_t>(std::max(csize, 1)) * static_cast<size_t>(comps), at, stride, err,
              what))
    return false;
  out.assign(a.count * static_cast<size_t>(comps), 0.0f);
  if (a.bufferView >= 0 && !ReadElements(m, a.bufferView, a.byteOffset, a.componentType, comps,
                                         a.count, nullptr, out, err, what))
    return false;
  if (!a.sparse.isSparse) return true;
  // Sparse values replace the elements their indices name.
  const size_t n = static_cast<size_t>(std::max(a.sparse.count, 0));
  if (n > a.count) {
    err = what + " has more sparse values than elements";
    return false;
  }
  std::vector<uint32_t> idx;
  if (!ReadUInts(m, a.sparse.indices.bufferView,
                 static_cast<size_t>(std::max(a.sparse.indices.byteOffset, 0)),
                 a.sparse.indices.componentType, n, idx, err, what + " (sparse indices)"))
    return false;
  for (uint32_t i : idx)
    if (i >= a.count) {
      err = what + " has a sparse index out of range";
      return false;
    }
  return ReadElements(m, a.sparse.values.bufferView,
                      static_cast<size_t>(std::max(a.sparse.values.byteOffset, 0)), a.componentType,
                      comps, n, &idx, out, err, what + " (sparse values)");
}

bool ReadIndices(const tinygltf::Model& m, int index, std::vector<uint32_t>& out,
                 std::string& err) {
  out.clear();
  if (index < 0 || index >= static_cast<int>(m.accessors.size())) {
    err = "index accessor " + std::to_string(index) + " out of range";
    return false;
  }
  const tinygltf::Accessor& a = m.accessors[static_cast<size_t>(index)];
  const std::string what = "index accessor " + std::to_string(index);
  if (a.type != TINYGLTF_TYPE_SCALAR || a.sparse.isSparse) {
    err = what + " is not a plain list of scalars";
    return false;
  }
  return ReadUInts(m, a.bufferView, a.byteOffset, a.componentType, a.count, out, err, what);
}

// ---------------------------------------------------------------- import

struct ImportedMesh {
  Mesh mesh;
  std::vector<int> materials;  // glTF material per material id (-1: none)
  MorphTargets morph;          // position offsets per target, in mesh vertex order
  // JOINTS_0 and WEIGHTS_0 per vertex; empty when no primitive has them.
  std::vector<std::array<uint32_t, 4>> joints;
  std::vector<std::array<float, 4>> weights;
};

// JOINTS_0 as integers: the float reader scales integer components into 0..1.
bool ReadJoints(const tinygltf::Model& m, int index, size_t nv,
                std::vector<std::array<uint32_t, 4>>& out, std::string& err) {
  std::vector<float> f;
  if (!ReadFloats(m, index, 4, f, err)) return false;
  if (f.size() != nv * 4) {
    err = "JOINTS_0 count differs from POSITION";
    return false;
  }
  const int type = m.accessors[static_cast<size_t>(index)].componentType;
  const float scale = type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE    ? 255.0f
                      : type == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT ? 65535.0f
                                                                       : 1.0f;
  for (size_t v = 0; v < nv; ++v) {
    std::array<uint32_t, 4> j{};
    for (size_t k = 0; k < 4; ++k)
      j[k] = static_cast<uint32_t>(std::lround(std::max(f[v * 4 + k], 0.0f) * scale));
    out.push_back(j);
  }
  return true;
}

bool BuildMesh(const tinygltf::Model& m, const tinygltf::Mesh& gm, ImportedMesh& out,
               std::string& err) {
  std::vector<float> pos, nrm, uv, col;
  std::vector<uint32_t> idx;
  for (const tinygltf::Primitive& prim : gm.primitives) {
    if (prim.mode != TINYGLTF_MODE_TRIANGLES && prim.mode != -1) continue;  // points, lines
    const auto p = prim.attributes.find("POSITION");
    if (p == prim.attributes.end()) continue;
    if (!ReadFloats(m, p->second, 3, pos, err)) return false;
    const size_t nv = pos.size() / 3;
    if (prim.indices >= 0) {
      if (!ReadIndices(m, prim.indices, idx, err)) return false;
    } else {
      idx.resize(nv);
      for (size_t i = 0; i < nv; ++i) idx[i] = static_cast<uint32_t>(i);
    }
    for (uint32_t i : idx)
      if (i >= nv) {
        err = "mesh \"" + gm.name + "\" indexes a vertex that does not exist";
        return false;
      }
    auto attr = [&](const char* name, int comps, std::vector<float>& into) -> bool {
      into.clear();
      const auto a = prim.attributes.find(name);
      if (a == prim.attributes.end()) return true;
      if (!ReadFloats(m, a->second, comps, into, err)) {
        // COLOR_0 may be RGBA.
        if (std::string(name) != "COLOR_0" || !ReadFloats(m, a->second, 4, into, err)) return false;
        std::vector<float> rgb;
        for (size_t i = 0; i + 3 < into.size(); i += 4)
          rgb.insert(rgb.end(), {into[i], into[i + 1], into[i + 2]});
        into = std::move(rgb);
        err.clear();
      }
      if (into.size() != nv * 3 && !(comps == 2 && into.size() == nv * 2)) {
        err = std::string(name) + " count differs from POSITION";
        return false;
      }
      return true;
    };
    if (!attr("NORMAL", 3, nrm) || !attr("TEXCOORD_0", 2, uv) || !attr("COLOR_0", 3, col))
      return false;

    Mesh part;
    part.setNumVerts(static_cast<int>(nv));
    for (size_t i = 0; i < nv; ++i) part.verts[i] = {pos[3 * i], pos[3 * i + 1], pos[3 * i + 2]};
    const int nf = static_cast<int>(idx.size() / 3);
    part.setNumFaces(nf);
    const MtlID id = static_cast<MtlID>(out.materials.size());
    for (int f = 0; f < nf; ++f) {
      Face& face = part.faces[f];
      face.setVerts(idx[3 * f], idx[3 * f + 1], idx[3 * f + 2]);
      face.setEdgeVisBits(kEdgeAll);
      face.smGroup = 1;
      face.setMatID(id);
    }
    auto channel = [&](int ch, const std::vector<float>& src, int comps, bool flipV) {
      if (src.empty()) return;
      part.setMapSupport(ch, true);
      MapChannel& mc = part.Map(ch);
      mc.verts.resize(nv);
      for (size_t i = 0; i < nv; ++i) {
        const float* s = &src[i * static_cast<size_t>(comps)];
        mc.verts[i] =
            comps == 2 ? Point3{s[0], flipV ? 1 - s[1] : s[1], 0} : Point3{s[0], s[1], s[2]};
      }
      for (int f = 0; f < nf; ++f)
        mc.faces[f] = {{part.faces[f].v[0], part.faces[f].v[1], part.faces[f].v[2]}};
    };
    channel(0, col, 3, false);
    channel(1, uv, 2, true);
    if (!nrm.empty()) {
      part.specNormals.resize(static_cast<size_t>(nf) * 3);
      for (int f = 0; f < nf; ++f)
        for (int c = 0; c < 3; ++c) {
          const uint32_t v = part.faces[f].v[c];
          part.specNormals[static_cast<size_t>(f) * 3 + c] = {nrm[3 * v], nrm[3 * v + 1],
                                                              nrm[3 * v + 2]};
        }
    } else if (out.mesh.hasSpecNormals()) {
      // Keep the explicit normals aligned: flat normals for a primitive that has none.
      part.specNormals.resize(static_cast<size_t>(nf) * 3);
      for (int f = 0; f < nf; ++f) {
        const Face& fc = part.faces[f];
        const Point3 n = CrossProd(part.verts[fc.v[1]] - part.verts[fc.v[0]],
                                   part.verts[fc.v[2]] - part.verts[fc.v[0]])
                             .Normalized();
        for (int c = 0; c < 3; ++c) part.specNormals[static_cast<size_t>(f) * 3 + c] = n;
      }
    }
    if (part.hasSpecNormals() && !out.mesh.hasSpecNormals() && out.mesh.numFaces() > 0) {
      out.mesh.specNormals.resize(static_cast<size_t>(out.mesh.numFaces()) * 3);
      for (int f = 0; f < out.mesh.numFaces(); ++f) {
        const Face& fc = out.mesh.faces[f];
        const Point3 n = CrossProd(out.mesh.verts[fc.v[1]] - out.mesh.verts[fc.v[0]],
                                   out.mesh.verts[fc.v[2]] - out.mesh.verts[fc.v[0]])
                             .Normalized();
        for (int c = 0; c < 3; ++c) out.mesh.specNormals[static_cast<size_t>(f) * 3 + c] = n;
      }
    }
    // Morph targets: every primitive of a mesh has the same number; a target without
    // positions moves nothing.
    const size_t before = out.mesh.verts.size();
    if (out.morph.deltas.size() < prim.targets.size())
      out.morph.deltas.resize(prim.targets.size(), std::vector<Point3>(before));
    for (size_t k = 0; k < out.morph.deltas.size(); ++k) {
      std::vector<Point3>& d = out.morph.deltas[k];
      d.resize(before + nv);
      if (k >= prim.targets.size()) continue;
      const auto tp = prim.targets[k].find("POSITION");
      if (tp == prim.targets[k].end()) continue;
      std::vector<float> off;
      if (!ReadFloats(m, tp->second, 3, off, err)) return false;
      if (off.size() != nv * 3) {
        err = "morph target POSITION count differs from POSITION";
        return false;
      }
      for (size_t i = 0; i < nv; ++i) d[before + i] = {off[3 * i], off[3 * i + 1], off[3 * i + 2]};
    }
    const auto pj = prim.attributes.find("JOINTS_0");
    const auto pw = prim.attributes.find("WEIGHTS_0");
    if ((pj != prim.attributes.end()) != (pw != prim.attributes.end())) {
      err = "mesh \"" + gm.name + "\" has JOINTS_0 without WEIGHTS_0 or the other way round";
      return false;
    }
    if (pj != prim.attributes.end() || !out.joints.empty()) {
      // Vertices of primitives without a skin are bound to nothing and stay where they are.
      out.joints.resize(before);
      out.weights.resize(before);
      if (pj == prim.attributes.end()) {
        out.joints.resize(before + nv);
        out.weights.resize(before + nv);
      } else {
        std::vector<float> w;
        if (!ReadJoints(m, pj->second, nv, out.joints, err) ||
            !ReadFloats(m, pw->second, 4, w, err))
          return false;
        if (w.size() != nv * 4) {
          err = "WEIGHTS_0 count differs from POSITION";
          return false;
        }
        for (size_t i = 0; i < nv; ++i)
          out.weights.push_back({w[4 * i], w[4 * i + 1], w[4 * i + 2], w[4 * i + 3]});
      }
    }
    out.mesh.Append(part);
    out.materials.push_back(prim.material);
  }
  out.morph.weights.assign(gm.weights.begin(), gm.weights.end());
  out.mesh.MarkCachesValid();
  return true;
}

struct Track {
  int node = -1;
  enum class What { Translation, Rotation, Scale, Visibility } what;
  Interp interp = Interp::Linear;
  std::vector<TimeValue> times;
  std::vector<float> values;  // comps per key, or 3 x comps per key for cubic splines
};

bool ReadSampler(const tinygltf::Model& m, const tinygltf::AnimationSampler& s, int comps, Track& t,
                 std::string& err, bool anyMultiple = false) {
  std::vector<float> in;
  if (!ReadFloats(m, s.input, 1, in, err) || !ReadFloats(m, s.output, comps, t.values, err))
    return false;
  t.interp = s.interpolation == "STEP"          ? Interp::Step
             : s.interpolation == "CUBICSPLINE" ? Interp::Bezier
                                                : Interp::Linear;
  const size_t per = t.interp == Interp::Bezier ? 3 : 1;
  // Morph weights hold as many values per key as the mesh has targets.
  const size_t want = in.size() * per * static_cast<size_t>(comps);
  if (anyMultiple ? (in.empty() || t.values.size() % want != 0) : t.values.size() != want) {
    err = "animation sampler output count does not match its input";
    return false;
  }
  t.times.clear();
  for (float sec : in) {
    const TimeValue tick =
        static_cast<TimeValue>(std::llround(static_cast<double>(sec) * kTicksPerSecond));
    if (!t.times.empty() && tick <= t.times.back()) {
      err = "animation times do not increase";
      return false;
    }
    t.times.push_back(tick);
  }
  return true;
}

// Splits a .glb into its JSON text and binary chunk, or takes a .gltf's text as it is.
bool ReadContainer(const std::string& path, std::string& jsonText, std::vector<unsigned char>& bin,
                   bool& isGlb, std::string& err) {
  std::ifstream f(path, std::ios::binary);
  if (!f) {
    err = "cannot open \"" + path + "\"";
    return false;
  }
  std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(f)),
                                   std::istreambuf_iterator<char>());
  isGlb = bytes.size() >= 4 && std::memcmp(bytes.data(), "glTF", 4) == 0;
  if (!isGlb) {
    jsonText.assign(bytes.begin(), bytes.end());
    return true;
  }
  auto u32 = [&](size_t at) {
    uint32_t v;
    std::memcpy(&v, bytes.data() + at, 4);
    return v;
  };
  if (bytes.size() < 20 || u32(8) > bytes.size()) {
    err = "truncated .glb file";
    return false;
  }
  const size_t total = u32(8);
  size_t at = 12;
  bool haveJson = false;
  while (at + 8 <= total) {
    const size_t len = u32(at);
    const uint32_t type = u32(at + 4);
    if (len > total - at - 8) {
      err = "truncated .glb chunk";
      return false;
    }
    const unsigned char* p = bytes.data() + at + 8;
    if (type == 0x4E4F534Au && !haveJson)
      jsonText.assign(p, p + len), haveJson = true;
    else if (type == 0x004E4942u && bin.empty())
      bin.assign(p, p + len);
    at += 8 + len;
  }
  if (!haveJson) {
    err = ".glb file without a JSON chunk";
    return false;
  }
  return true;
}

// Visibility channels point at "/nodes/N/extensions/KHR_node_visibility/visible". The glTF
// parser in use wants a target node on every channel, so these are taken out of the JSON
// here and read separately.
struct VisChannel {
  int animation, sampler, node;
};

// The node of a pointer "/nodes/N/extensions/KHR_node_visibility/visible", exactly that.
bool VisibilityPointerNode(const std::string& ptr, int& node) {
  static const std::string head = "/nodes/", tail = "/extensions/KHR_node_visibility/visible";
  if (ptr.size() <= head.size() + tail.size() || ptr.compare(0, head.size(), head) != 0 ||
      ptr.compare(ptr.size() - tail.size(), tail.size(), tail) != 0)
    return false;
  const std::string num = ptr.substr(head.size(), ptr.size() - head.size() - tail.size());
  if (num.empty() || num.size() > 9 ||
      !std::all_of(num.begin(), num.end(), [](char c) { return c >= '0' && c <= '9'; }))
    return false;
  node = std::stoi(num);
  return true;
}

std::vector<VisChannel> TakeVisibilityChannels(json& doc) {
  std::vector<VisChannel> out;
  if (!doc.contains("animations") || !doc["animations"].is_array()) return out;
  for (size_t a = 0; a < doc["animations"].size(); ++a) {
    json& anim = doc["animations"][a];
    if (!anim.is_object() || !anim.contains("channels") || !anim["channels"].is_array()) continue;
    json kept = json::array();
    for (json& ch : anim["channels"]) {
      const json* target = ch.is_object() && ch.contains("target") ? &ch["target"] : nullptr;
      if (target && target->is_object() && !target->contains("node")) {
        const json ptr = target->value("extensions", json::object())
                             .value("KHR_animation_pointer", json::object())
                             .value("pointer", json());
        int node = -1;
        if (ptr.is_string() && VisibilityPointerNode(ptr.get<std::string>(), node) &&
            ch.contains("sampler") && ch["sampler"].is_number_integer())
          out.push_back({static_cast<int>(a), ch["sampler"].get<int>(), node});
        continue;  // other pointer targets are not imported
      }
      kept.push_back(ch);
    }
    anim["channels"] = kept;
  }
  return out;
}

}  // namespace

bool ImportGltf(Scene& scene, const std::string& path, std::string& error) {
  error.clear();
  std::string text;
  std::vector<unsigned char> bin;
  bool isGlb = false;
  if (!ReadContainer(path, text, bin, isGlb, error)) return false;
  json doc = json::parse(text, nullptr, false);
  if (doc.is_discarded() || !doc.is_object()) {
    error = "\"" + path + "\" is not glTF JSON";
    return false;
  }
  const std::vector<VisChannel> visChannels = TakeVisibilityChannels(doc);
  text = doc.dump();

  tinygltf::Model m;
  tinygltf::TinyGLTF loader;
  loader.SetImageLoader(&NoImages, nullptr);
  std::string err, warn;
  const std::string base = fs::path(path).parent_path().string();
  bool ok = false;
  try {
    if (isGlb) {
      // Rebuild the container around the edited JSON.
      while (text.size() % 4) text.push_back(' ');
      std::vector<unsigned char> glb;
      auto put32 = [&](uint32_t v) {
        const unsigned char* p = reinterpret_cast<const unsigned char*>(&v);
        glb.insert(glb.end(), p, p + 4);
      };
      const size_t binLen = (bin.size() + 3) & ~size_t{3};
      const size_t total = 12 + 8 + text.size() + (bin.empty() ? 0 : 8 + binLen);
      glb.insert(glb.end(), {'g', 'l', 'T', 'F'});
      put32(2);
      put32(static_cast<uint32_t>(total));
      put32(static_cast<uint32_t>(text.size()));
      put32(0x4E4F534Au);
      glb.insert(glb.end(), text.begin(), text.end());
      if (!bin.empty()) {
        put32(static_cast<uint32_t>(binLen));
        put32(0x004E4942u);
        glb.insert(glb.end(), bin.begin(), bin.end());
        glb.resize(total, 0);
      }
      ok = loader.LoadBinaryFromMemory(&m, &err, &warn, glb.data(),
                                       static_cast<unsigned int>(glb.size()), base);
    } else {
      ok = loader.LoadASCIIFromString(&m, &err, &warn, text.c_str(),
                                      static_cast<unsigned int>(text.size()), base);
    }
  } catch (...) {
    ok = false;
    err = "unexpected error while parsing";
  }
  if (!ok) {
    error = "cannot read \"" + path + "\": " + err;
    return false;
  }

  // ---- read everything first, so that a failure adds nothing to the scene
  std::vector<ImportedMesh> meshes(m.meshes.size());
  for (size_t i = 0; i < m.meshes.size(); ++i)
    if (!BuildMesh(m, m.meshes[i], meshes[i], error)) return false;
  const int nn = static_cast<int>(m.nodes.size());
  std::vector<int> parentOf(static_cast<size_t>(nn), -1);
  for (int i = 0; i < nn; ++i)
    for (int c : m.nodes[static_cast<size_t>(i)].children) {
      if (c < 0 || c >= nn || parentOf[static_cast<size_t>(c)] != -1 || c == i) {
        error = "the node hierarchy is not a tree";
        return false;
      }
      parentOf[static_cast<size_t>(c)] = i;
    }
  // Skins: their inverse bind matrices (column-major 4x4 in the file), identity when absent.
  std::vector<std::vector<Matrix3>> skinBinds(m.skins.size());
  for (size_t si = 0; si < m.skins.size(); ++si) {
    const tinygltf::Skin& sk = m.skins[si];
    for (int j : sk.joints)
      if (j < 0 || j >= nn) {
        error = "skin " + std::to_string(si) + " names a joint node that does not exist";
        return false;
      }
    skinBinds[si].assign(sk.joints.size(), Matrix3());
    if (sk.inverseBindMatrices < 0) continue;
    std::vector<float> f;
    if (!ReadFloats(m, sk.inverseBindMatrices, 16, f, error)) return false;
    if (f.size() != sk.joints.size() * 16) {
      error = "skin " + std::to_string(si) + " has not one inverse bind matrix per joint";
      return false;
    }
    for (size_t j = 0; j < sk.joints.size(); ++j) {
      const float* a = &f[j * 16];
      skinBinds[si][j] = Matrix3({a[0], a[1], a[2]}, {a[4], a[5], a[6]}, {a[8], a[9], a[10]},
                                 {a[12], a[13], a[14]});
    }
  }
  for (const tinygltf::Node& gn : m.nodes)
    if (gn.skin >= static_cast<int>(m.skins.size())) {
      error = "a node names a skin that does not exist";
      return false;
    }

  // The default scene's nodes (every root node when the file has no scene), parents first.
  std::vector<int> order;
  if (m.scenes.empty()) {
    for (int i = 0; i < nn; ++i)
      if (parentOf[static_cast<size_t>(i)] < 0) order.push_back(i);
  } else {
    const int si = m.defaultScene >= 0 ? m.defaultScene : 0;
    if (si >= static_cast<int>(m.scenes.size())) {
      error = "the default scene does not exist";
      return false;
    }
    std::vector<bool> listed(static_cast<size_t>(nn), false);
    for (int r : m.scenes[static_cast<size_t>(si)].nodes) {
      if (r < 0 || r >= nn || parentOf[static_cast<size_t>(r)] >= 0 ||
          listed[static_cast<size_t>(r)]) {
        error = "the scene lists a node that is not a root node";
        return false;
      }
      listed[static_cast<size_t>(r)] = true;
      order.push_back(r);
    }
  }
  for (size_t k = 0; k < order.size(); ++k)
    for (int c : m.nodes[static_cast<size_t>(order[k])].children) order.push_back(c);

  std::vector<Track> tracks, weightTracks;
  for (const tinygltf::Animation& a : m.animations)
    for (const tinygltf::AnimationChannel& ch : a.channels) {
      Track t;
      t.node = ch.target_node;
      int comps = 3;
      if (ch.target_path == "translation")
        t.what = Track::What::Translation;
      else if (ch.target_path == "rotation")
        t.what = Track::What::Rotation, comps = 4;
      else if (ch.target_path == "scale")
        t.what = Track::What::Scale;
      else if (ch.target_path == "weights") {
        if (t.node < 0 || t.node >= nn || ch.sampler < 0 ||
            ch.sampler >= static_cast<int>(a.samplers.size())) {
          error = "animation channel with a bad node or sampler";
          return false;
        }
        // One weight per target and key, read as scalars.
        Track w;
        w.node = t.node;
        if (!ReadSampler(m, a.samplers[static_cast<size_t>(ch.sampler)], 1, w, error, true))
          return false;
        weightTracks.push_back(std::move(w));
        continue;
      } else
        continue;
      if (t.node < 0 || t.node >= nn || ch.sampler < 0 ||
          ch.sampler >= static_cast<int>(a.samplers.size())) {
        error = "animation channel with a bad node or sampler";
        return false;
      }
      if (!ReadSampler(m, a.samplers[static_cast<size_t>(ch.sampler)], comps, t, error))
        return false;
      tracks.push_back(std::move(t));
    }
  for (const VisChannel& v : visChannels) {
    if (v.animation >= static_cast<int>(m.animations.size()) || v.node < 0 || v.node >= nn ||
        v.sampler < 0 ||
        v.sampler >=
            static_cast<int>(m.animations[static_cast<size_t>(v.animation)].samplers.size())) {
      error = "visibility channel with a bad node or sampler";
      return false;
    }
    Track t;
    t.node = v.node;
    t.what = Track::What::Visibility;
    if (!ReadSampler(
            m,
            m.animations[static_cast<size_t>(v.animation)].samplers[static_cast<size_t>(v.sampler)],
            1, t, error))
      return false;
    t.interp = Interp::Step;
    tracks.push_back(std::move(t));
  }

  // ---- build the scene: only what the default scene's nodes use
  std::vector<host::Mtl*> mtls(m.materials.size(), nullptr);
  host::Mtl* fallback = nullptr;
  auto mtlFor = [&](int gi) -> host::Mtl* {
    if (gi < 0 || gi >= static_cast<int>(mtls.size())) {
      if (!fallback) fallback = scene.NewStdMtl("Default", {0.8f, 0.8f, 0.8f});
      return fallback;
    }
    host::Mtl*& made = mtls[static_cast<size_t>(gi)];
    if (!made) {
      const tinygltf::Material& gm = m.materials[static_cast<size_t>(gi)];
      const auto& c = gm.pbrMetallicRoughness.baseColorFactor;
      const Point3 d =
          c.size() >= 3 ? Point3{float(c[0]), float(c[1]), float(c[2])} : Point3{1, 1, 1};
      made = scene.NewStdMtl(gm.name.empty() ? "Material" + std::to_string(gi) : gm.name, d);
    }
    return made;
  };
  std::vector<host::Object*> objects(meshes.size(), nullptr);
  std::vector<host::Mtl*> meshMtl(meshes.size(), nullptr);
  for (int i : order) {
    const int gmesh = m.nodes[static_cast<size_t>(i)].mesh;
    if (gmesh < 0 || gmesh >= static_cast<int>(meshes.size())) continue;
    const size_t mi = static_cast<size_t>(gmesh);
    if (objects[mi] || meshes[mi].mesh.numFaces() == 0) continue;
    objects[mi] = scene.AddObject(std::make_unique<TriObject>(std::move(meshes[mi].mesh)));
    const auto& ids = meshes[mi].materials;
    if (ids.size() == 1) {
      meshMtl[mi] = mtlFor(ids[0]);
    } else {
      MultiMtl* mm = scene.NewMultiMtl(m.meshes[mi].name.empty() ? "Multi" : m.meshes[mi].name);
      for (int g : ids) mm->subs.push_back(mtlFor(g));
      meshMtl[mi] = mm;
    }
  }

  std::vector<SceneNode*> made(static_cast<size_t>(nn), nullptr);
  std::vector<std::pair<int, DeformingMeshObject*>> deforming;
  for (int i : order) {
    const tinygltf::Node& gn = m.nodes[static_cast<size_t>(i)];
    const bool root = parentOf[static_cast<size_t>(i)] < 0;
    std::string name = gn.name;
    if (name.empty() && gn.mesh >= 0 && gn.mesh < static_cast<int>(m.meshes.size()))
      name = m.meshes[static_cast<size_t>(gn.mesh)].name;
    if (name.empty()) name = "Node";
    name = scene.MakeUniqueName(name);
    SceneNode* n = nullptr;
    if (gn.mesh >= 0 && gn.mesh < static_cast<int>(objects.size()) &&
        objects[static_cast<size_t>(gn.mesh)]) {
      n = scene.CreateNode(
          nullptr, name,
          root ? nullptr : made[static_cast<size_t>(parentOf[static_cast<size_t>(i)])]);
      const ImportedMesh& im = meshes[static_cast<size_t>(gn.mesh)];
      const bool skinned = gn.skin >= 0 && !im.joints.empty();
      if (!im.morph.Empty() || skinned) {
        // Deformation is per node (its weights, its skin): an object of its own.
        const auto* tri = static_cast<const TriObject*>(objects[static_cast<size_t>(gn.mesh)]);
        MorphTargets morph = im.morph;
        if (!gn.weights.empty()) morph.weights.assign(gn.weights.begin(), gn.weights.end());
        for (const Track& w : weightTracks)
          if (w.node == i)
            morph.times = w.times, morph.values = w.values, morph.step = w.interp == Interp::Step;
        SkinBinding skin;
        if (skinned) skin.joint = im.joints, skin.weight = im.weights;
        auto obj =
            std::make_unique<DeformingMeshObject>(tri->mesh, std::move(morph), std::move(skin));
        deforming.emplace_back(i, obj.get());
        n->SetObjectRef(scene.AddObject(std::move(obj)));
      } else {
        n->SetObjectRef(objects[static_cast<size_t>(gn.mesh)]);
      }
      n->SetMtl(meshMtl[static_cast<size_t>(gn.mesh)]);
    } else {
      n = scene.CreateNode(
          std::make_unique<PointHelperObject>(), name,
          root ? nullptr : made[static_cast<size_t>(parentOf[static_cast<size_t>(i)])]);
    }
    made[static_cast<size_t>(i)] = n;
    // Rest transform. Root nodes take the Y-up to Z-up turn: S R T C = S (R C) T(t C).
    Point3 t, s{1, 1, 1};
    Quat r;
    if (gn.matrix.size() == 16) {
      Matrix3 mm;
      for (int row = 0; row < 4; ++row)
        mm.SetRow(row, {float(gn.matrix[static_cast<size_t>(row * 4)]),
                        float(gn.matrix[static_cast<size_t>(row * 4 + 1)]),
                        float(gn.matrix[static_cast<size_t>(row * 4 + 2)])});
      const AffineParts ap = DecompAffine(mm);
      t = ap.t, r = ap.q, s = ap.k * ap.f;
    } else {
      if (gn.translation.size() == 3)
        t = {float(gn.translation[0]), float(gn.translation[1]), float(gn.translation[2])};
      if (gn.rotation.size() == 4)
        r = Quat(float(gn.rotation[0]), float(gn.rotation[1]), float(gn.rotation[2]),
                 float(gn.rotation[3]))
                .Normalized();
      if (gn.scale.size() == 3) s = {float(gn.scale[0]), float(gn.scale[1]), float(gn.scale[2])};
    }
    if (root) t = ToZUp(t), r = r * kYUpToZUp;
    host::Control* prs = n->GetTMController();
    prs->GetPositionController()->SetValue(0, t, false);
    prs->GetRotationController()->SetValue(0, r, false);
    prs->GetScaleController()->SetValue(0, host::ScaleValue{s, Quat{}}, false);
    const auto vis = gn.extensions.find("KHR_node_visibility");
    if (vis != gn.extensions.end() && vis->second.Has("visible") &&
        vis->second.Get("visible").IsBool() && !vis->second.Get("visible").Get<bool>())
      n->EnsureVisController().SetValue(0, 0.0f, false);
  }

  // Skins refer to joint nodes, which exist only now.
  for (auto [i, obj] : deforming) {
    obj->SetOwner(made[static_cast<size_t>(i)]);
    const int si = m.nodes[static_cast<size_t>(i)].skin;
    if (si < 0 || obj->Skin().joint.empty()) continue;
    SkinBinding& skin = obj->Skin();
    skin.joints.clear();
    for (int j : m.skins[static_cast<size_t>(si)].joints)
      skin.joints.push_back(j >= 0 && j < nn ? made[static_cast<size_t>(j)] : nullptr);
    skin.inverseBind.assign(skin.joints.size(), Matrix3());
    for (size_t j = 0; j < skin.joints.size() && j < skinBinds[static_cast<size_t>(si)].size(); ++j)
      skin.inverseBind[j] = skinBinds[static_cast<size_t>(si)][j];
  }

  TimeValue first = kTimePosInfinity, last = kTimeNegInfinity;
  for (const Track& w : weightTracks)
    if (made[static_cast<size_t>(w.node)] && !w.times.empty())
      first = std::min(first, w.times.front()), last = std::max(last, w.times.back());
  for (const Track& tr : tracks) {
    SceneNode* n = made[static_cast<size_t>(tr.node)];
    if (!n || tr.times.empty()) continue;
    const bool root = parentOf[static_cast<size_t>(tr.node)] < 0;
    first = std::min(first, tr.times.front());
    last = std::max(last, tr.times.back());
    host::Control* prs = n->GetTMController();
    host::Control* c = tr.what == Track::What::Translation ? prs->GetPositionController()
                       : tr.what == Track::What::Rotation  ? prs->GetRotationController()
                       : tr.what == Track::What::Scale     ? prs->GetScaleController()
                                                           : &n->EnsureVisController();
    SetInterp(*c, tr.interp);
    const size_t comps = tr.what == Track::What::Rotation     ? 4
                         : tr.what == Track::What::Visibility ? 1
                                                              : 3;
    const bool cubic = tr.interp == Interp::Bezier;
    auto value = [&](size_t k, int part) -> host::ControlValue {
      // part: 0 in-tangent, 1 value, 2 out-tangent (cubic splines); tangents per second.
      const float* v = &tr.values[(cubic ? 3 * k + static_cast<size_t>(part) : k) * comps];
      const float per = part == 1 ? 1.0f : 1.0f / kTicksPerSecond;
      switch (tr.what) {
        case Track::What::Translation: {
          Point3 p = Point3{v[0], v[1], v[2]} * per;
          return root ? ToZUp(p) : p;
        }
        case Track::What::Rotation: {
          Quat q(v[0] * per, v[1] * per, v[2] * per, v[3] * per);
          if (part == 1) q = q.Normalized();
          // Right-multiplying by the fixed turn is linear, so tangents turn the same way.
          return root ? q * kYUpToZUp : q;
        }
        case Track::What::Scale:
          return host::ScaleValue{Point3{v[0], v[1], v[2]} * per, Quat{}};
        case Track::What::Visibility:
          return v[0] > 0.5f ? 1.0f : 0.0f;
      }
      return 0.0f;
    };
    for (size_t k = 0; k < tr.times.size(); ++k) {
      c->SetValue(tr.times[k], value(k, 1), true);
      if (cubic) SetKeyTangents(*c, static_cast<int>(k), value(k, 0), value(k, 2));
    }
  }
  if (first <= last) {
    const int tpf = scene.GetTicksPerFrame();
    const TimeValue s0 = static_cast<TimeValue>(std::floor(double(first) / tpf)) * tpf;
    const TimeValue s1 = static_cast<TimeValue>(std::ceil(double(last) / tpf)) * tpf;
    scene.SetAnimRange(Interval(s0, s1));
  }
  return true;
}

// ---------------------------------------------------------------- export

namespace {

class Exporter {
 public:
  Exporter(Scene& s, const GltfExportOptions& o) : scene_(s), opt_(o) {
    m_.asset.version = "2.0";
    m_.asset.generator = "kvcache";
    m_.buffers.emplace_back();
  }

  void Run() {
    tinygltf::Scene gs;
    for (host::Node* r : scene_.GetRootNodes())
      gs.nodes.push_back(AddNode(static_cast<SceneNode*>(r), true));
    m_.scenes.push_back(gs);
    m_.defaultScene = 0;
    if (!anim_.channels.empty()) {
      anim_.name = "Scene";
      m_.animations.push_back(anim_);
    }
  }
  tinygltf::Model& Model() { return m_; }

 private:
  int AddView(const void* data, size_t bytes, int target) {
    auto& buf = m_.buffers[0].data;
    while (buf.size() % 4) buf.push_back(0);
    tinygltf::BufferView v;
    v.buffer = 0;
    v.byteOffset = buf.size();
    v.byteLength = bytes;
    if (target) v.target = target;
    const unsigned char* p = static_cast<const unsigned char*>(data);
    buf.insert(buf.end(), p, p + bytes);
    m_.bufferViews.push_back(v);
    return static_cast<int>(m_.bufferViews.size()) - 1;
  }

  int AddAccessor(const std::vector<float>& v, int type, int comps, int target, bool minmax) {
    tinygltf::Accessor a;
    a.bufferView = AddView(v.data(), v.size() * 4, target);
    a.componentType = TINYGLTF_COMPONENT_TYPE_FLOAT;
    a.type = type;
    a.count = v.size() / static_cast<size_t>(comps);
    if (minmax) {
      a.minValues.assign(static_cast<size_t>(comps), 1e30);
      a.maxValues.assign(static_cast<size_t>(comps), -1e30);
      for (size_t i = 0; i < v.size(); ++i) {
        const size_t c = i % static_cast<size_t>(comps);
        a.minValues[c] = std::min(a.minValues[c], double(v[i]));
        a.maxValues[c] = std::max(a.maxValues[c], double(v[i]));
      }
    }
    m_.accessors.push_back(a);
    return static_cast<int>(m_.accessors.size()) - 1;
  }

  int MaterialIndex(host::Mtl* mtl) {
    if (!mtl) return -1;
    const auto it = mtlIndex_.find(mtl);
    if (it != mtlIndex_.end()) return it->second;
    tinygltf::Material gm;
    gm.name = mtl->GetName();
    Point3 d{0.8f, 0.8f, 0.8f};
    if (auto* s = dynamic_cast<StdMtl*>(mtl)) d = s->diffuse;
    gm.pbrMetallicRoughness.baseColorFactor = {std::clamp(d.x, 0.f, 1.f), std::clamp(d.y, 0.f, 1.f),
                                               std::clamp(d.z, 0.f, 1.f), 1.0};
    gm.pbrMetallicRoughness.metallicFactor = 0.0;
    m_.materials.push_back(gm);
    return mtlIndex_[mtl] = static_cast<int>(m_.materials.size()) - 1;
  }

  int AddMesh(const Mesh& mesh, host::Mtl* mtl, const std::string& name) {
    std::map<MtlID, std::vector<int>> byId;
    for (int f = 0; f < mesh.numFaces(); ++f) byId[mesh.faces[f].getMatID()].push_back(f);
    tinygltf::Mesh gm;
    gm.name = name;
    for (const auto& [id, faces] : byId) {
      std::vector<float> pos, nrm, uv, col;
      for (int f : faces) {
        const Face& fc = mesh.faces[f];
        const Point3 flat = CrossProd(mesh.verts[fc.v[1]] - mesh.verts[fc.v[0]],
                                      mesh.verts[fc.v[2]] - mesh.verts[fc.v[0]])
                                .Normalized();
        for (int c = 0; c < 3; ++c) {
          const Point3& p = mesh.verts[fc.v[c]];
          pos.insert(pos.end(), {p.x, p.y, p.z});
          Point3 n = mesh.hasSpecNormals()
                         ? mesh.specNormals[static_cast<size_t>(f) * 3 + c].Normalized()
                         : flat;
          if (n.LengthSquared() == 0) n = {0, 0, 1};
          nrm.insert(nrm.end(), {n.x, n.y, n.z});
          if (mesh.mapSupport(1)) {
            const Point3 t = mesh.Map(1).verts[mesh.Map(1).faces[f].t[c]];
            uv.insert(uv.end(), {t.x, 1 - t.y});
          }
          if (mesh.mapSupport(0)) {
            const Point3 t = mesh.Map(0).verts[mesh.Map(0).faces[f].t[c]];
            col.insert(col.end(), {std::clamp(t.x, 0.f, 1.f), std::clamp(t.y, 0.f, 1.f),
                                   std::clamp(t.z, 0.f, 1.f)});
          }
        }
      }
      tinygltf::Primitive prim;
      prim.mode = TINYGLTF_MODE_TRIANGLES;
      prim.attributes["POSITION"] =
          AddAccessor(pos, TINYGLTF_TYPE_VEC3, 3, TINYGLTF_TARGET_ARRAY_BUFFER, true);
      prim.attributes["NORMAL"] =
          AddAccessor(nrm, TINYGLTF_TYPE_VEC3, 3, TINYGLTF_TARGET_ARRAY_BUFFER, false);
      if (!uv.empty())
        prim.attributes["TEXCOORD_0"] =
            AddAccessor(uv, TINYGLTF_TYPE_VEC2, 2, TINYGLTF_TARGET_ARRAY_BUFFER, false);
      if (!col.empty())
        prim.attributes["COLOR_0"] =
            AddAccessor(col, TINYGLTF_TYPE_VEC3, 3, TINYGLTF_TARGET_ARRAY_BUFFER, false);
      host::Mtl* sub = mtl;
      if (mtl && mtl->IsMultiMtl()) sub = mtl->GetSubMtl(id % mtl->NumSubMtls());
      prim.material = MaterialIndex(sub);
      gm.primitives.push_back(prim);
    }
    m_.meshes.push_back(gm);
    return static_cast<int>(m_.meshes.size()) - 1;
  }

  // A Bezier or TCB position or scale track as CUBICSPLINE keys: per key the in-tangent, the
  // value and the out-tangent, tangents per second. False when the track cannot say its
  // tangents (then it is sampled instead).
  bool CubicKeys(host::Control* c, bool translation, bool root, std::vector<float>& in,
                 std::vector<float>& out) {
    const int n = c->NumKeys();
    for (int i = 0; i < n; ++i) {
      host::ControlValue a, b;
      if (!GetKeySlopes(*c, i, a, b)) return false;
      const TimeValue t = c->GetKeyTime(i);
      in.push_back(static_cast<float>(t) / kTicksPerSecond);
      auto put = [&](Point3 v) {
        if (translation && root) v = ToYUp(v);
        out.insert(out.end(), {v.x, v.y, v.z});
      };
      const float perSecond = static_cast<float>(kTicksPerSecond);
      if (translation) {
        put(std::get<Point3>(a) * perSecond);
        put(c->GetPoint3(t));
        put(std::get<Point3>(b) * perSecond);
      } else {
        put(std::get<host::ScaleValue>(a).s * perSecond);
        put(c->GetScale(t).s);
        put(std::get<host::ScaleValue>(b).s * perSecond);
      }
    }
    return true;
  }

  // Keys of one sub-controller as glTF times and values (root values turned to Y-up).
  void AddChannel(int node, host::Control* c, const char* path, bool root) {
    if (!c || c->NumKeys() == 0) return;
    const std::string p = path;
    std::vector<float> in, out;
    const Interp ip = c->GetInterp();
    std::string interpolation = ip == Interp::Step ? "STEP" : "LINEAR";
    const bool smooth = (ip == Interp::Bezier || ip == Interp::TCB) && c->NumKeys() > 1;
    if (smooth && p != "rotation" && CubicKeys(c, p == "translation", root, in, out)) {
      interpolation = "CUBICSPLINE";
    } else {
      in.clear(), out.clear();
      std::vector<TimeValue> times;
      if (!smooth) {
        for (int i = 0; i < c->NumKeys(); ++i) times.push_back(c->GetKeyTime(i));
      } else {
        const TimeValue step = opt_.sampleStep > 0 ? opt_.sampleStep : scene_.GetTicksPerFrame();
        const TimeValue a = c->GetKeyTime(0), b = c->GetKeyTime(c->NumKeys() - 1);
        for (int64_t t = a; t < b; t += step) times.push_back(static_cast<TimeValue>(t));
        times.push_back(b);
      }
      Quat prev;
      for (TimeValue t : times) {
        in.push_back(static_cast<float>(t) / kTicksPerSecond);
        if (p == "translation") {
          Point3 v = c->GetPoint3(t);
          if (root) v = ToYUp(v);
          out.insert(out.end(), {v.x, v.y, v.z});
        } else if (p == "rotation") {
          Quat q = c->GetQuat(t).Normalized();
          if (root) q = q * kYUpToZUp.Conjugate();
          q = q.Closest(prev);
          prev = q;
          out.insert(out.end(), {q.x, q.y, q.z, q.w});
        } else {
          const Point3 s = c->GetScale(t).s;
          out.insert(out.end(), {s.x, s.y, s.z});
        }
      }
    }
    tinygltf::AnimationSampler s;
    s.input = AddAccessor(in, TINYGLTF_TYPE_SCALAR, 1, 0, true);
    s.output = AddAccessor(out, p == "rotation" ? TINYGLTF_TYPE_VEC4 : TINYGLTF_TYPE_VEC3,
                           p == "rotation" ? 4 : 3, 0, false);
    s.interpolation = interpolation;
    anim_.samplers.push_back(s);
    tinygltf::AnimationChannel ch;
    ch.sampler = static_cast<int>(anim_.samplers.size()) - 1;
    ch.target_node = node;
    ch.target_path = path;
    anim_.channels.push_back(ch);
  }

  int AddNode(SceneNode* n, bool root) {
    const int index = static_cast<int>(m_.nodes.size());
    m_.nodes.emplace_back();
    {
      tinygltf::Node gn;
      gn.name = n->GetName();
      host::Control* prs = n->GetTMController();
      Point3 t = prs->GetPositionController()->GetPoint3(0);
      Quat r = prs->GetRotationController()->GetQuat(0).Normalized();
      const Point3 s = prs->GetScaleController()->GetScale(0).s;
      if (root) t = ToYUp(t), r = r * kYUpToZUp.Conjugate();
      if (t != Point3{}) gn.translation = {t.x, t.y, t.z};
      if (!r.Equals(Quat{}, 1e-7f)) gn.rotation = {r.x, r.y, r.z, r.w};
      if (s != Point3{1, 1, 1}) gn.scale = {s.x, s.y, s.z};
      Mesh mesh;
      if (n->EvalTriMesh(0, true, mesh)) {
        // The object offset has no place in glTF: it is baked into the vertices.
        if (!n->GetObjectOffset().IsIdentity())
          for (Point3& v : mesh.verts) v = v * n->GetObjectOffset();
        gn.mesh = AddMesh(mesh, n->GetMtl(), n->GetName());
      }
      // The node's own visibility: glTF hides the children of a hidden node by itself.
      const host::Control* vis = n->GetVisController();
      if (vis && vis->GetFloat(opt_.visibilityTime) <= 0.0f) {
        tinygltf::Value::Object v;
        v["visible"] = tinygltf::Value(false);
        gn.extensions["KHR_node_visibility"] = tinygltf::Value(v);
        if (std::find(m_.extensionsUsed.begin(), m_.extensionsUsed.end(), "KHR_node_visibility") ==
            m_.extensionsUsed.end())
          m_.extensionsUsed.push_back("KHR_node_visibility");
      }
      m_.nodes[static_cast<size_t>(index)] = gn;
    }
    host::Control* prs = n->GetTMController();
    AddChannel(index, prs->GetPositionController(), "translation", root);
    AddChannel(index, prs->GetRotationController(), "rotation", root);
    AddChannel(index, prs->GetScaleController(), "scale", root);
    std::vector<int> kids;
    for (SceneNode* c : n->Children())
      if (!c->IsDeleted()) kids.push_back(AddNode(c, false));
    m_.nodes[static_cast<size_t>(index)].children = kids;
    return index;
  }

  Scene& scene_;
  GltfExportOptions opt_;
  tinygltf::Model m_;
  tinygltf::Animation anim_;
  std::map<host::Mtl*, int> mtlIndex_;
};

}  // namespace

bool ExportGltf(Scene& scene, const std::string& path, std::string& error,
                const GltfExportOptions& options) {
  error.clear();
  Exporter ex(scene, options);
  ex.Run();
  tinygltf::Model& m = ex.Model();
  if (m.buffers[0].data.empty()) m.buffers.clear(), m.bufferViews.clear();
  const bool glb = fs::path(path).extension() == ".glb";
  tinygltf::TinyGLTF writer;
  bool ok = false;
  try {
    ok = writer.WriteGltfSceneToFile(&m, path, false, true, !glb, glb);
  } catch (...) {
    ok = false;
  }
  if (!ok) error = "cannot write \"" + path + "\"";
  return ok;
}

}  // namespace kv::standalone

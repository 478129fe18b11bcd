// glTF import against a hand-written animated file and Blender's own evaluation of a real
// scene; export checked by the Khronos validator and by importing it back.
#include "host/standalone/gltf.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "support/gltf_validator.h"
#include "support/reference_data.h"

namespace kv::standalone {
namespace {

namespace fs = std::filesystem;

fs::path TempDir(const std::string& name) {
  fs::path p = fs::temp_directory_path() / ("kv_gltf_" + name + "_" + std::to_string(getpid()));
  fs::remove_all(p);
  fs::create_directories(p);
  return p;
}

// One mesh of two primitives (two materials, normals and UVs on the first), a root node
// "Box" with LINEAR translation, STEP rotation, CUBICSPLINE scale and animated visibility,
// and a child "Kid" that shares the mesh.
void WriteHandFile(const fs::path& dir) {
  const std::vector<float> data = {
      0, 0,    0, 1, 0, 0,           0, 1,           0,  // 0: positions 0
      0, 0,    1, 1, 0, 1,           0, 1,           1,  // 36: positions 1
      0, 0,    1, 0, 0, 1,           0, 0,           1,  // 72: normals 0
      0, 0,    1, 0, 0, 0.25f,                           // 108: uv 0
      0, 1,                                              // 132: times
      0, 0,    0, 2, 4, 6,                               // 140: translation
      0, 0,    0, 1, 0, 0.70710678f, 0, 0.70710678f,     // 164: rotation
      0, 0,    0, 1, 1, 1,           4, 4,           4,
      0, 0,    0, 3, 3, 3,           0, 0,           0,  // 196: cubic scale
      0, 0.5f,                                           // 268: visibility times
      1, 0};                                             // 276: visibility
  std::ofstream(dir / "hand.bin", std::ios::binary)
      .write(reinterpret_cast<const char*>(data.data()),
             static_cast<std::streamsize>(data.size() * 4));
  std::ofstream(dir / "hand.gltf") << R"({
  "asset": {"version": "2.0"},
  "extensionsUsed": ["KHR_node_visibility", "KHR_animation_pointer"],
  "scene": 0, "scenes": [{"nodes": [0]}],
  "nodes": [{"name": "Box", "mesh": 0, "children": [1]}, {"name": "Kid", "mesh": 0, "translation": [0, 5, 0]}],
  "materials": [{"name": "Red", "pbrMetallicRoughness": {"baseColorFactor": [1, 0, 0, 1]}},
                {"name": "Green", "pbrMetallicRoughness": {"baseColorFactor": [0, 1, 0, 1]}}],
  "meshes": [{"name": "Tri", "primitives": [
     {"attributes": {"POSITION": 0, "NORMAL": 2, "TEXCOORD_0": 3}, "material": 0},
     {"attributes": {"POSITION": 1}, "material": 1}]}],
  "buffers": [{"uri": "hand.bin", "byteLength": 284}],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 284}],
  "accessors": [
    {"bufferView": 0, "byteOffset": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0,0,0], "max": [1,1,0]},
    {"bufferView": 0, "byteOffset": 36, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0,0,1], "max": [1,1,1]},
    {"bufferView": 0, "byteOffset": 72, "componentType": 5126, "count": 3, "type": "VEC3"},
    {"bufferView": 0, "byteOffset": 108, "componentType": 5126, "count": 3, "type": "VEC2"},
    {"bufferView": 0, "byteOffset": 132, "componentType": 5126, "count": 2, "type": "SCALAR", "min": [0], "max": [1]},
    {"bufferView": 0, "byteOffset": 140, "componentType": 5126, "count": 2, "type": "VEC3"},
    {"bufferView": 0, "byteOffset": 164, "componentType": 5126, "count": 2, "type": "VEC4"},
    {"bufferView": 0, "byteOffset": 196, "componentType": 5126, "count": 6, "type": "VEC3"},
    {"bufferView": 0, "byteOffset": 268, "componentType": 5126, "count": 2, "type": "SCALAR", "min": [0], "max": [0.5]},
    {"bufferView": 0, "byteOffset": 276, "componentType": 5126, "count": 2, "type": "SCALAR"}],
  "animations": [{"samplers": [
      {"input": 4, "output": 5, "interpolation": "LINEAR"},
      {"input": 4, "output": 6, "interpolation": "STEP"},
      {"input": 4, "output": 7, "interpolation": "CUBICSPLINE"},
      {"input": 8, "output": 9, "interpolation": "STEP"}],
    "channels": [
      {"sampler": 0, "target": {"node": 0, "path": "translation"}},
      {"sampler": 1, "target": {"node": 0, "path": "rotation"}},
      {"sampler": 2, "target": {"node": 0, "path": "scale"}},
      {"sampler": 3, "target": {"path": "pointer", "extensions": {"KHR_animation_pointer":
          {"pointer": "/nodes/0/extensions/KHR_node_visibility/visible"}}}}]}]
})";
}

bool Near(const Point3& a, const Point3& b, float eps) {
  return (a - b).Length() <= eps;
}

TEST(Gltf, ImportsHandWrittenAnimationBetweenKeys) {
  const fs::path dir = TempDir("hand");
  WriteHandFile(dir);
  Scene s;
  std::string err;
  ASSERT_TRUE(ImportGltf(s, (dir / "hand.gltf").string(), err)) << err;
  SceneNode* box = s.FindNode("Box");
  SceneNode* kid = s.FindNode("Kid");
  ASSERT_TRUE(box && kid);
  EXPECT_EQ(kid->GetParent(), box);
  EXPECT_EQ(kid->GetObjectRef(), box->GetObjectRef());
  EXPECT_EQ(s.GetAnimRange(), Interval(0, 4800));

  // LINEAR translation halfway: glTF (1, 2, 3) is (1, -3, 2) in the Z-up scene.
  EXPECT_TRUE(Near(box->GetNodeTM(2400).GetTrans(), {1, -3, 2}, 1e-5f));
  // STEP rotation: still the rest pose at 0.75 s, a quarter turn about glTF +Y at 1 s, which
  // takes glTF +X to glTF -Z, i.e. scene +Y. CUBICSPLINE scale at 0.5 s with out-tangent 4:
  // 0.5*1 + 0.125*4 + 0.5*3 = 2.5 (linear would give 2).
  const Point3 x75 = box->GetNodeTM(3600).VectorTransform({1, 0, 0});
  EXPECT_TRUE(Near(x75.Normalized(), {1, 0, 0}, 1e-5f));
  EXPECT_TRUE(Near(box->GetNodeTM(4800).VectorTransform({1, 0, 0}), {0, 3, 0}, 1e-4f));
  EXPECT_NEAR(box->GetNodeTM(2400).VectorTransform({1, 0, 0}).Length(), 2.5f, 1e-4f);
  // Visibility steps off at 0.5 s, and the child inherits it.
  EXPECT_EQ(box->GetVisibility(1200), 1.0f);
  EXPECT_EQ(box->GetVisibility(2880), 0.0f);
  EXPECT_EQ(kid->GetVisibility(2880), 0.0f);
  // The child's rest translation is in the parent's (Y-up) space: no second turn.
  EXPECT_TRUE(Near(kid->GetNodeTM(0).GetTrans(), {0, 0, 5}, 1e-5f));

  // Two primitives: one mesh with material ids 0 and 1 under a multi-material.
  Mesh m;
  ASSERT_TRUE(box->EvalTriMesh(0, false, m));
  ASSERT_EQ(m.numFaces(), 2);
  EXPECT_EQ(m.faces[1].getMatID(), 1);
  EXPECT_EQ(m.faces[1].v[0], 3u);
  ASSERT_TRUE(box->GetMtl() && box->GetMtl()->NumSubMtls() == 2);
  EXPECT_EQ(static_cast<StdMtl*>(box->GetMtl()->GetSubMtl(1))->diffuse, (Point3{0, 1, 0}));
  ASSERT_TRUE(m.mapSupport(1));
  EXPECT_FLOAT_EQ(m.Map(1).verts[2].y, 0.75f);  // v flipped
  ASSERT_TRUE(m.hasSpecNormals());
  EXPECT_EQ(m.specNormals[0], (Point3{0, 0, 1}));
  fs::remove_all(dir);
}

TEST(Gltf, BadFilesFailClearlyAndAddNothing) {
  const fs::path dir = TempDir("bad");
  WriteHandFile(dir);
  Scene s;
  std::string err;
  EXPECT_FALSE(ImportGltf(s, (dir / "missing.gltf").string(), err));
  EXPECT_NE(err.find("cannot open"), std::string::npos);
  // Truncate the buffer: accessors now reach past it.
  fs::resize_file(dir / "hand.bin", 200);
  EXPECT_FALSE(ImportGltf(s, (dir / "hand.gltf").string(), err));
  EXPECT_FALSE(err.empty());
  std::ofstream(dir / "junk.glb", std::ios::binary) << "glTF\x02\0\0\0";
  EXPECT_FALSE(ImportGltf(s, (dir / "junk.glb").string(), err));
  EXPECT_TRUE(s.AllNodes(true).empty());
  EXPECT_TRUE(s.Materials().empty());
  fs::remove_all(dir);
}

// Bytes of a little buffer, built field by field.
struct Bytes {
  std::vector<unsigned char> b;
  Bytes& F(std::initializer_list<float> fs) {
    for (float f : fs) Raw(&f, 4);
    return *this;
  }
  Bytes& U(std::initializer_list<uint32_t> us) {
    for (uint32_t u : us) Raw(&u, 4);
    return *this;
  }
  void Raw(const void* p, size_t n) {
    const auto* c = static_cast<const unsigned char*>(p);
    b.insert(b.end(), c, c + n);
  }
};

// Two scenes (the second is the default), one triangle with RGBA colours, texture
// coordinates and a sparse position, a CUBICSPLINE translation over half a second, an
// unnormalised rotation, and an animation pointer at something other than visibility.
nlohmann::json WriteSecondFile(const fs::path& dir) {
  Bytes d;
  d.F({0, 0, 0, 1, 0, 0, 0, 1, 0});                             // 0: positions
  d.F({1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 1, 0.5f});                 // 36: colours
  d.F({0, 0, 1, 0, 0, 0.25f});                                  // 84: uv
  d.F({0, 0.5f});                                               // 108: times
  d.F({0, 0, 0, 0, 0, 0, 4, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0});  // 116: cubic translation
  d.F({0, 0, 0, 3, 0, 0, 0, 3});                                // 188: rotation
  d.F({5, 5, 5});                                               // 220: sparse value
  d.U({2});                                                     // 232: sparse index
  d.F({0, 0});                                                  // 236: pointer values
  std::ofstream(dir / "two.bin", std::ios::binary)
      .write(reinterpret_cast<const char*>(d.b.data()), static_cast<std::streamsize>(d.b.size()));
  nlohmann::json j = nlohmann::json::parse(R"({
  "asset": {"version": "2.0"},
  "extensionsUsed": ["KHR_animation_pointer"],
  "scene": 1, "scenes": [{"nodes": [0]}, {"nodes": [1]}],
  "nodes": [{"name": "Other", "mesh": 0}, {"name": "Tri", "mesh": 0}],
  "meshes": [{"name": "Tri", "primitives": [
     {"attributes": {"POSITION": 0, "COLOR_0": 1, "TEXCOORD_0": 2}}]}],
  "buffers": [{"uri": "two.bin", "byteLength": 244}],
  "bufferViews": [{"buffer": 0, "byteOffset": 0, "byteLength": 244}],
  "accessors": [
    {"bufferView": 0, "byteOffset": 0, "componentType": 5126, "count": 3, "type": "VEC3",
     "min": [0,0,0], "max": [5,5,5], "sparse": {"count": 1,
       "indices": {"bufferView": 0, "byteOffset": 232, "componentType": 5125},
       "values": {"bufferView": 0, "byteOffset": 220}}},
    {"bufferView": 0, "byteOffset": 36, "componentType": 5126, "count": 3, "type": "VEC4"},
    {"bufferView": 0, "byteOffset": 84, "componentType": 5126, "count": 3, "type": "VEC2"},
    {"bufferView": 0, "byteOffset": 108, "componentType": 5126, "count": 2, "type": "SCALAR", "min": [0], "max": [0.5]},
    {"bufferView": 0, "byteOffset": 116, "componentType": 5126, "count": 6, "type": "VEC3"},
    {"bufferView": 0, "byteOffset": 188, "componentType": 5126, "count": 2, "type": "VEC4"},
    {"bufferView": 0, "byteOffset": 236, "componentType": 5126, "count": 2, "type": "SCALAR"}],
  "animations": [{"samplers": [
      {"input": 3, "output": 4, "interpolation": "CUBICSPLINE"},
      {"input": 3, "output": 5, "interpolation": "LINEAR"},
      {"input": 3, "output": 6, "interpolation": "STEP"}],
    "channels": [
      {"sampler": 0, "target": {"node": 1, "path": "translation"}},
      {"sampler": 1, "target": {"node": 1, "path": "rotation"}},
      {"sampler": 2, "target": {"path": "pointer", "extensions": {"KHR_animation_pointer":
          {"pointer": "/nodes/1/translation"}}}}]}]
})");
  std::ofstream(dir / "two.gltf") << j.dump();
  return j;
}

TEST(Gltf, ImportsColoursSparseDataAndCubicTangentsOverShortKeys) {
  const fs::path dir = TempDir("two");
  WriteSecondFile(dir);
  Scene s;
  std::string err;
  ASSERT_TRUE(ImportGltf(s, (dir / "two.gltf").string(), err)) << err;
  // Only the default scene comes in.
  EXPECT_EQ(s.FindNode("Other"), nullptr);
  SceneNode* tri = s.FindNode("Tri");
  ASSERT_NE(tri, nullptr);
  EXPECT_EQ(s.AllNodes(true).size(), 1u);
  EXPECT_EQ(s.Objects().size(), 1u);

  Mesh m;
  ASSERT_TRUE(tri->EvalTriMesh(0, false, m));
  EXPECT_EQ(m.verts[2], (Point3{5, 5, 5}));  // the sparse value replaced vertex 2
  // Vertex colours in channel 0 (alpha dropped), texture coordinates in 1 with v flipped.
  ASSERT_TRUE(m.mapSupport(0) && m.mapSupport(1));
  EXPECT_EQ(m.Map(0).verts[m.Map(0).faces[0].t[1]], (Point3{0, 1, 0}));
  EXPECT_EQ(m.Map(0).verts[m.Map(0).faces[0].t[2]], (Point3{0, 0, 1}));
  EXPECT_EQ(m.Map(1).verts[m.Map(1).faces[0].t[2]], (Point3{0, 0.75f, 0}));
  EXPECT_EQ(m.Map(1).verts[m.Map(1).faces[0].t[1]], (Point3{1, 1, 0}));

  // Halfway through a 0.5 s cubic segment with out-tangent 4 per second: the tangent
  // counts for 4 * 0.5 = 2, so x = 0.125 * 2 + 0.5 * 1 = 0.75.
  EXPECT_EQ(s.GetAnimRange(), Interval(0, 2400));
  const Matrix3 tm = tri->GetNodeTM(1200);
  EXPECT_NEAR(tm.GetTrans().x, 0.75f, 1e-5f);
  // The rotation keys (0, 0, 0, 3) are unit rotations: only the Y-up turn remains.
  EXPECT_NEAR(tm.VectorTransform({0, 1, 0}).Length(), 1.0f, 1e-5f);
  EXPECT_TRUE(Near(tm.VectorTransform({0, 1, 0}), {0, 0, 1}, 1e-5f));
  // A pointer at anything but visibility is left alone.
  EXPECT_EQ(tri->GetVisController(), nullptr);
  EXPECT_EQ(tri->GetVisibility(2400), 1.0f);
  fs::remove_all(dir);
}

TEST(Gltf, MalformedAccessorsFailClearlyAndAddNothing) {
  const fs::path dir = TempDir("malformed");
  const nlohmann::json good = WriteSecondFile(dir);
  struct Case {
    const char* what;
    std::function<void(nlohmann::json&)> spoil;
    const char* expect;
  };
  const std::vector<Case> cases = {
      {"position accessor missing",
       [](nlohmann::json& j) { j["meshes"][0]["primitives"][0]["attributes"]["POSITION"] = 99; },
       "out of range"},
      {"index past the vertices",
       [](nlohmann::json& j) {
         j["meshes"][0]["primitives"][0]["indices"] = 7;
         j["accessors"].push_back({{"bufferView", 0},
                                   {"byteOffset", 232},
                                   {"componentType", 5125},
                                   {"count", 3},
                                   {"type", "SCALAR"}});
         j["accessors"][7]["byteOffset"] = 228;  // the bits of 5.0f: no such vertex
       },
       "does not exist"},
      {"count beyond the buffer", [](nlohmann::json& j) { j["accessors"][1]["count"] = 1000; },
       "more elements"},
      {"count that overflows an offset",
       [](nlohmann::json& j) { j["accessors"][2]["count"] = uint64_t{1} << 61; }, "more elements"},
      {"huge count without data",
       [](nlohmann::json& j) {
         j["accessors"][1].erase("bufferView");
         j["accessors"][1]["count"] = uint64_t{1} << 40;
       },
       "more elements"},
      {"sparse index out of range",
       [](nlohmann::json& j) { j["accessors"][0]["sparse"]["indices"]["byteOffset"] = 228; },
       "sparse index"},
      {"bufferView past its buffer",
       [](nlohmann::json& j) { j["bufferViews"][0]["byteLength"] = 4000; }, "past its buffer"},
      {"default scene missing", [](nlohmann::json& j) { j["scene"] = 5; }, "scene"},
  };
  for (const Case& c : cases) {
    nlohmann::json j = good;
    c.spoil(j);
    std::ofstream(dir / "bad.gltf") << j.dump();
    Scene s;
    std::string err;
    EXPECT_FALSE(ImportGltf(s, (dir / "bad.gltf").string(), err)) << c.what;
    EXPECT_NE(err.find(c.expect), std::string::npos) << c.what << ": " << err;
    EXPECT_TRUE(s.AllNodes(true).empty() && s.Objects().empty() && s.Materials().empty()) << c.what;
  }
  fs::remove_all(dir);
}

TEST(Gltf, ExportPassesTheValidatorAndImportsBack) {
  const fs::path dir = TempDir("export");
  Scene s;
  Mesh m;
  m.setNumVerts(4);
  m.verts = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 1}};
  m.setNumFaces(2);
  m.faces[0].setVerts(0, 1, 2);
  m.faces[1].setVerts(0, 2, 3);
  m.faces[1].setMatID(1);
  m.setMapSupport(1);
  m.Map(1).verts = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  m.Map(1).faces = {{{0, 1, 2}}, {{0, 2, 3}}};
  auto* root = static_cast<SceneNode*>(s.CreateMeshNode(m, "Root"));
  MultiMtl* mm = s.NewMultiMtl("Both");
  mm->subs = {s.NewStdMtl("A", {1, 0, 0}), s.NewStdMtl("B", {0, 0, 1})};
  root->SetMtl(mm);
  auto* child = static_cast<SceneNode*>(s.CreateMeshNode(m, "Child"));
  s.Link(child, root);
  root->KeyPosition(0, {0, 0, 0});
  root->KeyPosition(1600, {10, 5, 2});
  root->KeyPosition(3200, {0, 8, 0});
  root->KeyRotation(0, Quat{});
  root->KeyRotation(3200, Quat(AngAxis{{0, 0, 1}, 2.0f}));
  child->KeyPosition(0, {1, 2, 3});
  child->KeyScale(800, {2, 2, 2});
  child->KeyScale(1600, {1, 3, 1});

  for (const char* name : {"out.glb", "out.gltf"}) {
    const fs::path file = dir / name;
    std::string err;
    ASSERT_TRUE(ExportGltf(s, file.string(), err)) << err;
    bool skip = false;
    const std::string report = kvtest::ValidateGltf(file, skip);
    if (skip) {
      GTEST_SKIP() << "node is not installed: the glTF validator cannot run";
    }
    EXPECT_EQ(report, "") << name;

    Scene back;
    ASSERT_TRUE(ImportGltf(back, file.string(), err)) << err;
    SceneNode* r2 = back.FindNode("Root");
    SceneNode* c2 = back.FindNode("Child");
    ASSERT_TRUE(r2 && c2);
    for (TimeValue t : {0, 800, 1600, 2400, 3200}) {
      EXPECT_TRUE(r2->GetNodeTM(t).Equals(root->GetNodeTM(t), 1e-3f)) << name << " t " << t;
      EXPECT_TRUE(c2->GetNodeTM(t).Equals(child->GetNodeTM(t), 1e-3f)) << name << " t " << t;
    }
    Mesh got;
    ASSERT_TRUE(r2->EvalTriMesh(0, false, got));
    EXPECT_EQ(got.numFaces(), 2);
    ASSERT_TRUE(r2->GetMtl() && r2->GetMtl()->NumSubMtls() == 2);
    EXPECT_EQ(r2->GetMtl()->GetSubMtl(1)->GetName(), "B");
  }
  fs::remove_all(dir);
}

TEST(Gltf, SmoothTracksExportAsTheSameCurveAndHiddenNodesStayHidden) {
  const fs::path dir = TempDir("cubic");
  Scene s;
  auto* n = static_cast<SceneNode*>(s.CreatePointHelperNode("Spline"));
  auto* hidden = static_cast<SceneNode*>(s.CreatePointHelperNode("Hidden"));
  hidden->EnsureVisController().SetValue(0, 0.0f, false);
  host::Control* prs = n->GetTMController();
  ASSERT_TRUE(
      prs->SetPositionController(s.NewKeyControl(host::ControlKind::Position, host::Interp::TCB)));
  ASSERT_TRUE(
      prs->SetScaleController(s.NewKeyControl(host::ControlKind::Scale, host::Interp::TCB)));
  ASSERT_TRUE(
      prs->SetRotationController(s.NewKeyControl(host::ControlKind::Rotation, host::Interp::TCB)));
  // Uneven spacing and non-zero tension, continuity and bias: the tangents differ on each
  // side of a key.
  const TimeValue times[] = {0, 160, 560, 640, 1600};
  host::Control* pos = prs->GetPositionController();
  host::Control* scl = prs->GetScaleController();
  host::Control* rot = prs->GetRotationController();
  for (int k = 0; k < 5; ++k) {
    const float f = float(k);
    pos->SetValue(times[k], Point3{f * f, std::sin(f) * 4, -f}, true);
    pos->SetKeyTCB(k, 0.3f * (k % 2), -0.2f, 0.4f);
    scl->SetValue(times[k], host::ScaleValue{{1 + f, 2 - 0.3f * f, 1}, Quat{}}, true);
    rot->SetValue(times[k], Quat(AngAxis{{0, 0, 1}, 0.7f * f}), true);
  }
  GltfExportOptions opt;
  opt.sampleStep = 80;
  const fs::path file = dir / "cubic.gltf";
  std::string err;
  ASSERT_TRUE(ExportGltf(s, file.string(), err, opt)) << err;
  const nlohmann::json doc = nlohmann::json::parse(std::ifstream(file));
  std::map<std::string, std::string> interp;
  for (const auto& ch : doc["animations"][0]["channels"])
    interp[ch["target"]["path"]] =
        doc["animations"][0]["samplers"][ch["sampler"].get<int>()]["interpolation"];
  EXPECT_EQ(interp["translation"], "CUBICSPLINE");
  EXPECT_EQ(interp["scale"], "CUBICSPLINE");
  EXPECT_EQ(interp["rotation"], "LINEAR");
  bool skip = false;
  const std::string report = kvtest::ValidateGltf(file, skip);
  if (!skip) {
    EXPECT_EQ(report, "");
  }

  Scene back;
  ASSERT_TRUE(ImportGltf(back, file.string(), err)) << err;
  SceneNode* n2 = back.FindNode("Spline");
  ASSERT_TRUE(n2 && back.FindNode("Hidden"));
  EXPECT_EQ(back.FindNode("Hidden")->GetVisibility(0), 0.0f);
  EXPECT_EQ(n2->GetVisibility(0), 1.0f);
  host::Control* prs2 = n2->GetTMController();
  for (TimeValue t = 0; t <= 1600; t += 40) {
    EXPECT_LT((prs2->GetPositionController()->GetPoint3(t) - pos->GetPoint3(t)).Length(), 1e-4f)
        << t;
    EXPECT_LT((prs2->GetScaleController()->GetScale(t).s - scl->GetScale(t).s).Length(), 1e-4f)
        << t;
  }
  // Rotations are sampled every 80 ticks: exact there.
  for (TimeValue t = 0; t <= 1600; t += 80)
    EXPECT_TRUE(prs2->GetRotationController()
                    ->GetQuat(t)
                    .Closest(rot->GetQuat(t))
                    .Equals(rot->GetQuat(t), 1e-5f))
        << t;
  fs::remove_all(dir);
}

TEST(Gltf, BlenderSceneMatchesBlendersOwnPositions) {
  const fs::path data = kvtest::ReferenceDataDir();
  const std::string text = kvtest::ReadGzip(data / "blender-stack-positions.json.gz");
  ASSERT_FALSE(text.empty()) << "missing " << (data / "blender-stack-positions.json.gz");
  const nlohmann::json ref = nlohmann::json::parse(text);
  Scene s;
  std::string err;
  ASSERT_TRUE(ImportGltf(s, (data / "blender-stack.glb").string(), err)) << err;
  EXPECT_EQ(s.GetAnimRange(), Interval(0, 30 * 160));

  int compared = 0;
  for (const auto& [frame, objects] : ref["frames"].items()) {
    const TimeValue t = std::stoi(frame) * s.GetTicksPerFrame();
    for (const auto& [name, points] : objects.items()) {
      SceneNode* n = s.FindNode(name);
      ASSERT_NE(n, nullptr) << name;
      Mesh m;
      ASSERT_TRUE(n->EvalTriMesh(t, false, m)) << name;
      const Matrix3 tm = n->GetObjectTM(t);
      std::vector<Point3> ours;
      for (const Point3& v : m.verts) ours.push_back(v * tm);
      std::vector<Point3> theirs;
      for (const auto& p : points)
        theirs.push_back({p[0].get<float>(), p[1].get<float>(), p[2].get<float>()});
      // As point sets: every point of each has a partner in the other.
      EXPECT_LT(kvtest::PointSetDistance(theirs, ours), 1e-4f) << name << " frame " << frame;
      ++compared;
    }
  }
  EXPECT_GT(compared, 31 * 20);
}

}  // namespace
}  // namespace kv::standalone

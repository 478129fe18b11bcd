#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "mesh_out.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;

std::string Slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

uint32_t U32(const std::string& s, size_t at) {
  uint32_t v;
  std::memcpy(&v, s.data() + at, 4);
  return v;
}

// Two triangles sharing an edge; the second is hidden.
Mesh Quad() {
  Mesh m;
  m.verts = {{0, 0, 0}, {1, 0, 0}, {1, 2, 0}, {0, 2, 3}};
  m.faces.resize(2);
  m.faces[0].setVerts(0, 1, 2);
  m.faces[1].setVerts(0, 2, 3);
  m.faces[1].Hide();
  return m;
}

class MeshOut : public ::testing::Test {
 protected:
  fs::path dir_ = fs::temp_directory_path() / ("kv_mesh_out_" + std::to_string(::getpid()));
  void SetUp() override { fs::create_directories(dir_); }
  void TearDown() override { fs::remove_all(dir_); }
};

TEST_F(MeshOut, ObjKeepsVertexOrderAndLeavesHiddenFacesOut) {
  std::string err;
  ASSERT_TRUE(WriteMeshFile(Quad(), (dir_ / "q.OBJ").string(), err)) << err;
  std::istringstream in(Slurp(dir_ / "q.OBJ"));
  std::vector<Point3> v;
  std::vector<std::string> faces;
  for (std::string line; std::getline(in, line);) {
    std::istringstream ls(line);
    std::string tag;
    ls >> tag;
    if (tag == "v") {
      Point3 p;
      ls >> p.x >> p.y >> p.z;
      v.push_back(p);
    } else if (tag == "f") {
      faces.push_back(line);
    }
  }
  EXPECT_EQ(v, Quad().verts);
  ASSERT_EQ(faces.size(), 1u);
  EXPECT_EQ(faces[0], "f 1 2 3");
}

TEST_F(MeshOut, PlyIsLittleEndianWithByteCountedFaces) {
  std::string err;
  ASSERT_TRUE(WriteMeshFile(Quad(), (dir_ / "q.ply").string(), err)) << err;
  const std::string s = Slurp(dir_ / "q.ply");
  const std::string header =
      "ply\nformat binary_little_endian 1.0\nelement vertex 4\nproperty float x\n"
      "property float y\nproperty float z\nelement face 1\n"
      "property list uchar uint vertex_indices\nend_header\n";
  ASSERT_EQ(s.substr(0, header.size()), header);
  ASSERT_EQ(s.size(), header.size() + 4 * 12 + 13);
  float z3;
  std::memcpy(&z3, s.data() + header.size() + 3 * 12 + 8, 4);
  EXPECT_EQ(z3, 3.0f);
  const size_t f = header.size() + 48;
  EXPECT_EQ(static_cast<unsigned char>(s[f]), 3);
  EXPECT_EQ(U32(s, f + 1), 0u);
  EXPECT_EQ(U32(s, f + 5), 1u);
  EXPECT_EQ(U32(s, f + 9), 2u);
}

TEST_F(MeshOut, GlbChunksAreAlignedAndPositionsAreYUp) {
  std::string err;
  ASSERT_TRUE(WriteMeshFile(Quad(), (dir_ / "q.glb").string(), err)) << err;
  const std::string s = Slurp(dir_ / "q.glb");
  ASSERT_GE(s.size(), 20u);
  EXPECT_EQ(s.substr(0, 4), "glTF");
  EXPECT_EQ(U32(s, 4), 2u);
  EXPECT_EQ(U32(s, 8), s.size());
  const uint32_t jsonLen = U32(s, 12);
  EXPECT_EQ(jsonLen % 4, 0u);
  EXPECT_EQ(s.substr(16, 4), "JSON");
  const nlohmann::json j = nlohmann::json::parse(s.substr(20, jsonLen));
  const size_t bin = 20 + jsonLen;
  EXPECT_EQ(U32(s, bin), 4u * 12 + 3 * 4);
  EXPECT_EQ(s.substr(bin + 4, 4), std::string("BIN\0", 4));
  EXPECT_EQ(j["accessors"][0]["count"], 4);
  EXPECT_EQ(j["accessors"][1]["count"], 3);
  // Scene (0, 2, 3) is glTF (0, 3, -2).
  float p[3];
  std::memcpy(p, s.data() + bin + 8 + 3 * 12, 12);
  EXPECT_EQ(p[0], 0.0f);
  EXPECT_EQ(p[1], 3.0f);
  EXPECT_EQ(p[2], -2.0f);
  EXPECT_EQ(j["accessors"][0]["min"][2], -2.0);
  EXPECT_EQ(j["accessors"][0]["max"][1], 3.0);
}

TEST_F(MeshOut, EmptyMeshAndBadPathsAreHandled) {
  std::string err;
  ASSERT_TRUE(WriteMeshFile(Mesh(), (dir_ / "e.glb").string(), err)) << err;
  const std::string s = Slurp(dir_ / "e.glb");
  EXPECT_EQ(U32(s, 8), s.size());
  EXPECT_FALSE(nlohmann::json::parse(s.substr(20, U32(s, 12)))["nodes"][0].contains("mesh"));

  EXPECT_FALSE(WriteMeshFile(Quad(), (dir_ / "q.stl").string(), err));
  EXPECT_NE(err.find("unsupported"), std::string::npos);
  EXPECT_FALSE(WriteMeshFile(Quad(), (dir_ / "missing" / "q.obj").string(), err));
  EXPECT_NE(err.find("cannot create"), std::string::npos);
}

}  // namespace
}  // namespace kv::cli

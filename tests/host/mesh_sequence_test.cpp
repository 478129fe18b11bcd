#include "host/standalone/mesh_sequence.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/standalone/gltf.h"
#include "host/standalone/scene.h"
#include "support/deforming_gltf.h"

namespace kv::standalone {
namespace {

namespace fs = std::filesystem;

class MeshSequenceTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_seq_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  std::string Write(const std::string& name, const std::string& text) {
    const fs::path p = dir_ / name;
    std::ofstream(p, std::ios::binary) << text;
    return p.string();
  }
  // A quad (two triangles) at height z, its vertices numbered from 1 as .obj does.
  std::string Frame(const std::string& name, float z) {
    const std::string h = std::to_string(z);
    return Write(name, "v 0 0 " + h + "\nv 1 0 " + h + "\nv 1 1 " + h + "\nv 0 1 " + h +
                           "\nvt 0 0\nvt 1 0\nvt 1 1\nvt 0 1\nf 1/1 2/2 3/3 4/4\n");
  }

  fs::path dir_;
};

TEST_F(MeshSequenceTest, ObjFramesReadWithFacesAndTextureCoordinates) {
  Mesh m;
  std::string error;
  ASSERT_TRUE(ReadMeshFile(Frame("a.obj", 2), m, error)) << error;
  ASSERT_EQ(m.numVerts(), 4);
  ASSERT_EQ(m.numFaces(), 2);  // the quad fanned
  EXPECT_EQ(m.verts[2], (Point3{1, 1, 2}));
  std::vector<int> uses(4, 0);
  for (const Face& f : m.faces)
    for (uint32_t v : f.v) ++uses[v < 4 ? v : 0];
  for (int u : uses) EXPECT_GE(u, 1);  // every corner of the quad used
  ASSERT_TRUE(m.mapSupport(1));
  EXPECT_EQ(m.Map(1).verts[m.Map(1).faces[0].t[1]], (Point3{1, 0, 0}));

  EXPECT_FALSE(ReadMeshFile(Write("bad.obj", "v 0 0 0\nf 1 2 9\n"), m, error));
  EXPECT_NE(error.find("bad.obj"), std::string::npos);
  EXPECT_FALSE(ReadMeshFile((dir_ / "none.obj").string(), m, error));
  EXPECT_NE(error.find("none.obj"), std::string::npos);
}

TEST_F(MeshSequenceTest, PlyFramesReadInAsciiAndBinary) {
  Mesh m;
  std::string error;
  const std::string ascii =
      "ply\nformat ascii 1.0\nelement vertex 4\nproperty float x\nproperty float y\n"
      "property float z\nproperty uchar red\nelement face 1\n"
      "property list uchar int vertex_indices\nend_header\n"
      "0 0 0 255\n1 0 0 0\n1 1 0 0\n0 1 5 0\n4 0 1 2 3\n";
  ASSERT_TRUE(ReadMeshFile(Write("a.ply", ascii), m, error)) << error;
  ASSERT_EQ(m.numVerts(), 4);
  ASSERT_EQ(m.numFaces(), 2);
  EXPECT_EQ(m.verts[3], (Point3{0, 1, 5}));
  EXPECT_EQ(m.faces[1].v[2], 3u);

  // Big-endian binary, doubles and a short count type, bytes laid out by hand.
  std::string bin =
      "ply\nformat binary_big_endian 1.0\nelement vertex 3\nproperty double x\n"
      "property double y\nproperty double z\nelement face 1\n"
      "property list ushort uint vertex_indices\nend_header\n";
  auto be = [&](const void* p, size_t n) {
    const char* c = static_cast<const char*>(p);
    for (size_t i = n; i-- > 0;) bin.push_back(c[i]);
  };
  const double xyz[9] = {0, 0, 0, 2, 0, 0, 0, 3, -1.5};
  for (double d : xyz) be(&d, 8);
  const uint16_t three = 3;
  be(&three, 2);
  for (uint32_t i : {0u, 1u, 2u}) be(&i, 4);
  ASSERT_TRUE(ReadMeshFile(Write("b.ply", bin), m, error)) << error;
  ASSERT_EQ(m.numFaces(), 1);
  EXPECT_EQ(m.verts[2], (Point3{0, 3, -1.5f}));

  // Cut short: an error, not a partial mesh taken for whole.
  EXPECT_FALSE(ReadMeshFile(Write("c.ply", bin.substr(0, bin.size() - 5)), m, error));
  EXPECT_NE(error.find("c.ply"), std::string::npos);
  EXPECT_FALSE(ReadMeshFile(Write("d.ply",
                                  "ply\nformat ascii 1.0\nelement vertex 1\n"
                                  "property float x\nend_header\n1\n"),
                            m, error));
}

TEST_F(MeshSequenceTest, FramesComeFromTheNamesAndAGapIsNamed) {
  for (int f : {3, 4, 5, 6}) Frame("wall." + std::to_string(1000 + f).substr(1) + ".obj", float(f));
  Frame("wall.notes.obj", 0);  // not a frame
  Frame("other.004.obj", 0);
  SequenceFiles files;
  std::string error;
  ASSERT_TRUE(FindSequence((dir_ / "wall.###.obj").string(), files, error)) << error;
  ASSERT_EQ(files.frames.size(), 4u);
  EXPECT_EQ(files.frames.front().first, 3);
  EXPECT_EQ(files.frames.back().first, 6);
  EXPECT_EQ(files.name, "wall");
  // One file of the sequence names it too.
  EXPECT_TRUE(IsSequencePattern((dir_ / "wall.004.obj").string()));
  ASSERT_TRUE(FindSequence((dir_ / "wall.004.obj").string(), files, error)) << error;
  EXPECT_EQ(files.frames.size(), 4u);

  fs::remove(dir_ / "wall.005.obj");
  EXPECT_FALSE(FindSequence((dir_ / "wall.###.obj").string(), files, error));
  EXPECT_NE(error.find("Frame 5"), std::string::npos) << error;
  EXPECT_NE(error.find("wall.005.obj"), std::string::npos) << error;

  EXPECT_FALSE(FindSequence((dir_ / "none.####.obj").string(), files, error));
  EXPECT_NE(error.find("none.####.obj"), std::string::npos);
  EXPECT_FALSE(FindSequence((dir_ / "wall.###.txt").string(), files, error));
}

TEST_F(MeshSequenceTest, SceneStreamsOneFrameAtATime) {
  for (int f = 10; f <= 20; f += 2) Frame("drop_" + std::to_string(f) + ".obj", float(f));
  std::string error;
  std::unique_ptr<Scene> scene = LoadMeshSequenceScene((dir_ / "drop_#.obj").string(), 30, error);
  ASSERT_TRUE(scene) << error;
  EXPECT_EQ(scene->GetAnimRange().Start(), 10 * 160);
  EXPECT_EQ(scene->GetAnimRange().End(), 20 * 160);
  host::Node* n = scene->GetNodeByName("drop");
  ASSERT_NE(n, nullptr);
  auto* seq = static_cast<MeshSequenceObject*>(n->GetObjectRef());
  EXPECT_EQ(seq->Files().step, 2);
  Mesh m;
  ASSERT_TRUE(n->EvalTriMesh(14 * 160, true, m));
  EXPECT_FLOAT_EQ(m.verts[0].z, 14);
  ASSERT_TRUE(n->EvalTriMesh(15 * 160 + 10, true, m));  // between files: the one before
  EXPECT_FLOAT_EQ(m.verts[0].z, 14);
  EXPECT_EQ(seq->Reads(), 1);
  ASSERT_TRUE(n->EvalTriMesh(0, true, m));  // before the start: the first
  EXPECT_FLOAT_EQ(m.verts[0].z, 10);

  // A frame that goes bad after the sequence was found: no mesh, and the reason kept.
  Write("drop_16.obj", "v 0 0 0\nf 1 2 3\n");
  EXPECT_FALSE(n->EvalTriMesh(16 * 160, true, m));
  EXPECT_NE(seq->LastError().find("drop_16.obj"), std::string::npos);
}

}  // namespace
}  // namespace kv::standalone

namespace kv::standalone {
namespace {

// Skins and morph targets evaluate per time: each skinned vertex where its joints put it, a
// morphed vertex by its weight at that time.
TEST_F(MeshSequenceTest, GltfSkinsAndMorphTargetsDeformOverTime) {
  const std::string path = (dir_ / "rig.gltf").string();
  kvtest::WriteDeformingGltf(path, true);
  Scene scene;
  std::string error;
  ASSERT_TRUE(ImportGltf(scene, path, error)) << error;
  host::Node* debris = scene.GetNodeByName("Debris");
  host::Node* mover = scene.GetNodeByName("Mover");
  host::Node* turner = scene.GetNodeByName("Turner");
  host::Node* blob = scene.GetNodeByName("Blob");
  ASSERT_TRUE(debris && mover && turner && blob);
  EXPECT_EQ(scene.GetAnimRange().End(), 4800);
  const Point3 rest[6] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {5, 0, 0}, {6, 0, 0}, {5, 1, 0}};
  for (TimeValue t : {0, 1200, 2400, 4800}) {
    Mesh m;
    ASSERT_TRUE(debris->EvalTriMesh(t, true, m));
    ASSERT_EQ(m.numVerts(), 6);
    const Matrix3 toWorld = debris->GetObjectTM(t);
    const Matrix3 j0 = mover->GetNodeTM(t);
    const Matrix3 j1 = TransMatrix({-5, 0, 0}) * turner->GetNodeTM(t);  // its inverse bind
    for (int v = 0; v < 6; ++v) {
      Point3 want = rest[v] * (v < 3 ? j0 : j1);
      if (v == 2) want = (rest[v] * j0 + rest[v] * j1) * 0.5f;
      EXPECT_LT((m.verts[size_t(v)] * toWorld - want).Length(), 1e-4f) << "t " << t << " v " << v;
    }
    ASSERT_TRUE(blob->EvalTriMesh(t, true, m));
    EXPECT_NEAR(m.verts[2].z, float(t) / 4800.0f, 1e-5f) << t;  // in the mesh's own space
    EXPECT_EQ(m.verts[1], (Point3{1, 0, 0}));
  }
  // The joints really move: the first triangle has left the origin by the end.
  Mesh end;
  ASSERT_TRUE(debris->EvalTriMesh(4800, true, end));
  EXPECT_GT((end.verts[0] * debris->GetObjectTM(4800)).Length(), 1.9f);
}

}  // namespace
}  // namespace kv::standalone

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <nlohmann/json.hpp>

#include "commands.h"
#include "host/standalone/gltf.h"
#include "support.h"
#include "support/deforming_gltf.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;
using testing::Call;
using testing::ObjVertices;
using testing::PointSetDistance;

class DeformCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_deform_cli_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string P(const std::string& name) const { return (dir_ / name).string(); }

  fs::path dir_;
};

// Another program's rigid-body simulation, turned into one mesh per frame (the whole scene as
// a single .obj, as a package that bakes its simulation exports it) and recorded back into
// rigid pieces: every object becomes one piece again, though its glTF mesh is split at every
// hard edge, and playback lands where the author's program put the objects.
TEST_F(DeformCommand, ObjSequenceOfARealSimulationBecomesItsObjects) {
  const std::string data = kvtest::ReferenceDataDir().string();
  const nlohmann::json ref = nlohmann::json::parse(
      kvtest::ReadGzip(data + "/blender-stack-positions.json.gz"), nullptr, false);
  ASSERT_FALSE(ref.is_discarded());
  ASSERT_EQ(Call({"record", data + "/blender-stack.glb", "-o", P("rigid.kvc")}).code, 0);
  fs::create_directories(dir_ / "seq");
  for (int f = 0; f <= 30; ++f) {
    char name[32];
    std::snprintf(name, sizeof name, "seq/stack.%04d.obj", f);
    ASSERT_EQ(Call({"play", P("rigid.kvc"), "--frame", std::to_string(f), "-o", P(name)}).code, 0);
  }
  const testing::Outcome rec =
      Call({"record", P("seq/stack.####.obj"), "-o", P("pieces.kvc"), "--deform"});
  ASSERT_EQ(rec.code, 0) << rec.err;
  EXPECT_NE(rec.out.find("Recorded 22 elements, 31 samples"), std::string::npos) << rec.out;
  EXPECT_NE(rec.out.find("stack: 22 pieces"), std::string::npos) << rec.out;
  EXPECT_EQ(rec.err.find("warning"), std::string::npos) << rec.err;

  for (const int frame : {0, 12, 30}) {
    ASSERT_EQ(
        Call({"play", P("pieces.kvc"), "--frame", std::to_string(frame), "-o", P("f.obj")}).code,
        0);
    std::vector<Point3> theirs;
    for (const auto& [name, points] : ref["frames"][std::to_string(frame)].items())
      for (const auto& p : points)
        theirs.push_back({p[0].get<float>(), p[1].get<float>(), p[2].get<float>()});
    EXPECT_LT(PointSetDistance(ObjVertices(P("f.obj")), theirs), 1e-3f) << frame;
  }
}

// A skinned debris rig and a morph animation from glTF: the debris' triangles follow their
// joints rigidly, one piece each; the morphing triangle is not rigid, is warned about, and is
// still exact at every sample.
TEST_F(DeformCommand, GltfSkinAndMorphTargetsRecordAsPieces) {
  const std::string rig = P("rig.gltf");
  kvtest::WriteDeformingGltf(rig, false);
  const testing::Outcome rec = Call({"record", rig, "-o", P("rig.kvc"), "--deform"});
  ASSERT_EQ(rec.code, 0) << rec.err;
  EXPECT_NE(rec.out.find("Debris: 2 pieces"), std::string::npos) << rec.out;
  EXPECT_NE(rec.out.find("Blob: 1 piece"), std::string::npos) << rec.out;
  EXPECT_NE(rec.err.find("warning: Blob does not move rigidly"), std::string::npos) << rec.err;
  EXPECT_EQ(rec.err.find("Debris"), std::string::npos) << rec.err;

  standalone::Scene scene;
  std::string error;
  ASSERT_TRUE(standalone::ImportGltf(scene, rig, error)) << error;
  for (const int frame : {0, 10, 30}) {
    const TimeValue t = frame * 160;
    std::vector<Point3> want;
    for (const char* name : {"Debris", "Blob"}) {
      host::Node* n = scene.GetNodeByName(name);
      Mesh m;
      ASSERT_TRUE(n->EvalTriMesh(t, true, m));
      for (const Point3& p : m.verts) want.push_back(p * n->GetObjectTM(t));
    }
    ASSERT_EQ(Call({"play", P("rig.kvc"), "--frame", std::to_string(frame), "-o", P("f.obj")}).code,
              0);
    EXPECT_LT(PointSetDistance(ObjVertices(P("f.obj")), want), 1e-4f) << frame;
  }
}

TEST_F(DeformCommand, BadSequencesAndOptionsAreRefused) {
  for (int f : {1, 2, 4}) {
    const std::string name = P("m_" + std::to_string(f) + ".obj");
    kvtest::WriteFile(name, "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  }
  testing::Outcome o = Call({"record", P("m_#.obj"), "-o", P("m.kvc"), "--deform"});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_NE(o.err.find("m_3.obj"), std::string::npos) << o.err;
  EXPECT_FALSE(fs::exists(P("m.kvc")));

  o = Call({"record", P("m_#.obj"), "-o", P("m.kvc"), "--topology"});
  EXPECT_EQ(o.code, kExitUsage);
  EXPECT_NE(o.err.find("--topology needs --deform"), std::string::npos) << o.err;
  o = Call({"record", P("none.####.obj"), "-o", P("m.kvc"), "--deform"});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_NE(o.err.find("none.####.obj"), std::string::npos) << o.err;

  // A frame whose vertex count differs, without --topology: the tool says which mesh.
  kvtest::WriteFile(P("m_3.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 5 5 5\nf 1 2 3\nf 1 2 4\n");
  o = Call({"record", P("m_#.obj"), "-o", P("m.kvc"), "--deform"});
  EXPECT_EQ(o.code, kExitError);
  EXPECT_NE(o.err.find("record its topology"), std::string::npos) << o.err;
  o = Call({"record", P("m_#.obj"), "-o", P("m.kvc"), "--deform", "--topology"});
  EXPECT_EQ(o.code, kExitOk) << o.err;
}

}  // namespace
}  // namespace kv::cli

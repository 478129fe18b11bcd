// kvcache explode: the exploded nodes against play, the glTF against the validator and a
// second recording, and what bad input and Ctrl-C leave behind.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "commands.h"
#include "host/standalone/scene.h"
#include "host/standalone/scene_file.h"
#include "progress.h"
#include "support.h"
#include "support/gltf_validator.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;
using testing::Call;
using testing::ObjVertices;
using testing::Outcome;
using testing::PointSetDistance;
using testing::ReadFile;

class Explode : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_explode_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    // A small wall knocked over by a ball: real rotations from the physics library.
    const Outcome o = Call({"demo", P("demo"), "--columns", "4", "--rows", "3", "--frames", "8"});
    ASSERT_EQ(o.code, kExitOk) << o.err;
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string P(const std::string& name) const { return (dir_ / name).string(); }

  // Every vertex the cache shows at frame f, hidden elements included.
  std::vector<Point3> Played(const std::string& cache, int f) {
    const std::string obj = P("play_" + std::to_string(f) + ".obj");
    const Outcome o =
        Call({"play", cache, "--frame", std::to_string(f), "--dont-delete", "-o", obj});
    EXPECT_EQ(o.code, kExitOk) << o.err;
    return ObjVertices(obj);
  }
  fs::path dir_;
};

TEST_F(Explode, NodesMatchPlaybackAndTheirGltfRecordsTheSameMotion) {
  const std::string wall = P("demo/wall.kvc");
  Outcome o = Call({"explode", wall, "-o", P("ex.kvs"), "--step", "2"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_NE(o.out.find("Exploded 13 elements, 5 keys per track (frames 0 to 8, step 2)"),
            std::string::npos)
      << o.out;
  std::string error;
  const std::unique_ptr<standalone::Scene> scene = standalone::LoadScene(P("ex.kvs"), error);
  ASSERT_TRUE(scene) << error;
  for (int f : {0, 2, 4, 6, 8}) {
    std::vector<Point3> exploded;
    for (standalone::SceneNode* n : scene->AllNodes()) {
      Mesh m;
      ASSERT_TRUE(n->EvalTriMesh(0, false, m)) << n->GetName();
      const Matrix3 tm = n->GetObjectTM(f * scene->GetTicksPerFrame());
      for (const Point3& v : m.verts) exploded.push_back(v * tm);
    }
    const std::vector<Point3> played = Played(wall, f);
    ASSERT_FALSE(played.empty());
    EXPECT_LT(PointSetDistance(exploded, played), 1e-3f) << "frame " << f;
  }

  // Every frame a key, reduced: the glTF passes the validator, and recording it again gives a
  // cache that plays the same positions.
  o = Call({"explode", wall, "-o", P("ex.glb"), "--reduce", "--threshold", "0.0001"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  EXPECT_NE(o.out.find("reduced from"), std::string::npos) << o.out;
  bool skip = false;
  const std::string report = kvtest::ValidateGltf(P("ex.glb"), skip);
  if (!skip) {
    EXPECT_EQ(report, "");
  }
  o = Call({"record", P("ex.glb"), "-o", P("again.kvc"), "--start", "0", "--end", "8"});
  ASSERT_EQ(o.code, kExitOk) << o.err;
  // Frame 8 is left out: the end of the interval is never compared, so reduction may drop
  // the key there.
  for (int f : {0, 3, 5, 7})
    EXPECT_LT(PointSetDistance(Played(P("again.kvc"), f), Played(wall, f)), 2e-3f) << "frame " << f;
}

TEST_F(Explode, BadInputAndCtrlCWriteNothing) {
  const std::string wall = P("demo/wall.kvc");
  struct Case {
    std::vector<std::string> args;
    int code;
    std::string message;
  } cases[] = {
      {{"explode", wall, "-o", P("out.obj")}, kExitUsage, "must end in .glb, .gltf or .kvs"},
      {{"explode", P("none.kvc"), "-o", P("out.glb")}, kExitError, "kvcache explode: "},
      {{"explode", wall, "-o", P("out.glb"), "--start", "6", "--end", "2"},
       kExitUsage,
       "the start frame 6 is after the end frame 2"},
      {{"explode", wall, "-o", P("out.glb"), "--to", "teapot"}, kExitUsage, "teapot"},
      {{"explode", wall, "-o", P("out.glb"), "--selected", "Nothing*"},
       kExitError,
       "no element to explode"},
  };
  for (const Case& c : cases) {
    const Outcome o = Call(c.args);
    EXPECT_EQ(o.code, c.code) << c.args[3] << ": " << o.err;
    EXPECT_NE(o.err.find(c.message), std::string::npos) << o.err;
  }
  RequestInterrupt();  // what the SIGINT handler does
  const Outcome o = Call({"explode", wall, "-o", P("out.glb")});
  ClearInterrupt();
  EXPECT_EQ(o.code, kExitCancelled);
  EXPECT_NE(o.err.find("Operation cancelled."), std::string::npos) << o.err;
  for (const char* f : {"out.glb", "out.obj"}) EXPECT_FALSE(fs::exists(P(f))) << f;

  // A selection by name explodes only those elements.
  const Outcome sel = Call({"explode", wall, "-o", P("some.kvs"), "--selected", "Brick*"});
  ASSERT_EQ(sel.code, kExitOk) << sel.err;
  EXPECT_NE(sel.out.find("Exploded 12 elements"), std::string::npos) << sel.out;
}

}  // namespace
}  // namespace kv::cli

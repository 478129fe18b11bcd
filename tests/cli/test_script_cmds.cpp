// The scene-file commands: a scene with a cache object, edited and read through the script
// interface from the shell.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "support.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;
using testing::Call;
using testing::ObjVertices;
using testing::Outcome;
using testing::ReadFile;
using testing::WriteFile;

class SceneCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_scenecmd_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    cache_ = P("two.kvc");
    scene_ = P("shot.kvs");
    WriteFile(cache_, testing::TwoElementCache());
    const Outcome made = Call({"scene", "new", scene_, "--cache", cache_, "--name", "Wall"});
    ASSERT_EQ(made.code, 0) << made.err;
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string P(const std::string& f) const { return (dir_ / f).string(); }
  Outcome Fn(std::vector<std::string> args) {
    args.insert(args.begin(), {"call", scene_, "Wall"});
    return Call(args);
  }

  fs::path dir_;
  std::string cache_, scene_;
};

TEST_F(SceneCommands, CallsEditTheSceneOnlyWhenSavedAndSucceeded) {
  EXPECT_EQ(Fn({"cacheNumNodes"}).out, "2\n");
  EXPECT_EQ(Fn({"cacheEnd"}).out, "2f\n");
  EXPECT_EQ(Fn({"getElementNames", "pattern:\"B*\""}).out, "#(#(0, \"Box\"), #(1, \"Ball\"))\n");

  // Without --save nothing is written.
  EXPECT_EQ(Fn({"addGroup", "groupName:\"A\""}).out, "true\n");
  EXPECT_EQ(Fn({"getSelectedGroup"}).out, "\"\"\n");

  ASSERT_EQ(Fn({"addGroup", "groupName:\"A\"", "--save"}).code, 0);
  ASSERT_EQ(Fn({"addGroupElements", "\"A\"", "#(0, 2, 3)", "--save"}).out, "true\n");
  ASSERT_EQ(Fn({"setGroupMode", "\"A\"", "#Delay", "--save"}).out, "true\n");
  EXPECT_EQ(Fn({"getGroupElements", "\"A\""}).out, "#{2}\n");
  EXPECT_EQ(Fn({"getGroupMode", "\"A\""}).out, "#delay\n");

  // A runtime error prints its exact text, exits 1 and leaves the file as it was.
  const std::string before = ReadFile(scene_);
  const Outcome bad = Fn({"setGroupMatID", "\"A\"", "150", "--save"});
  EXPECT_EQ(bad.code, 1);
  EXPECT_EQ(bad.err, "Material ID out of range (1-99) < 1 or > 99: 150\n");
  EXPECT_EQ(bad.out, "");
  // Malformed literals and unknown names are usage errors.
  const Outcome malformed = Fn({"addGroupElements", "\"A\"", "#(1, 2", "--save"});
  EXPECT_EQ(malformed.code, 2);
  EXPECT_NE(malformed.err.find("malformed literal at character 7"), std::string::npos)
      << malformed.err;
  EXPECT_EQ(Fn({"setGroupDelay", "\"A\"", "#soon", "--save"}).code, 2);
  EXPECT_EQ(Fn({"noSuchFunction", "--save"}).code, 2);
  EXPECT_EQ(Call({"call", scene_, "Nobody", "version"}).code, 1);
  EXPECT_EQ(ReadFile(scene_), before);
}

TEST_F(SceneCommands, ExplodeCallMakesOneNodePerElementInTheSavedScene) {
  const Outcome ex = Fn({"explode", "(interval 0f 2f)", "1f", "reduceKeys:false", "--save"});
  ASSERT_EQ(ex.code, 0) << ex.err;
  EXPECT_NE(ex.out.find("Box"), std::string::npos) << ex.out;
  EXPECT_NE(ex.out.find("Ball"), std::string::npos) << ex.out;
  const Outcome list = Call({"scene", "list", scene_});
  ASSERT_EQ(list.code, 0) << list.err;
  EXPECT_NE(list.out.find("Ball"), std::string::npos) << list.out;
}

TEST_F(SceneCommands, InfoReportsTheScenesCachesAndPlayUsesTheObjectsGroups) {
  const Outcome info = Call({"info", scene_});
  ASSERT_EQ(info.code, 0) << info.err;
  EXPECT_NE(info.out.find("Cache File : \"" + cache_ + "\"\n"), std::string::npos) << info.out;
  EXPECT_NE(info.out.find("\tReferenced by 1 node :\n\t\t$'Wall'\n"), std::string::npos);

  // Box (a triangle, first in the mesh) moves one unit a frame; held in, it stays at its
  // first sample.
  const std::string obj = P("frame.obj");
  ASSERT_EQ(Call({"play", scene_, "--node", "Wall", "--frame", "1", "-o", obj}).code, 0);
  ASSERT_EQ(ObjVertices(obj).size(), 7u);
  EXPECT_FLOAT_EQ(ObjVertices(obj)[0].x, 1.0f);
  ASSERT_EQ(Fn({"addGroup", "groupName:\"Held\"", "--save"}).code, 0);
  ASSERT_EQ(Fn({"setGroupElements", "\"Held\"", "#(1)", "--save"}).code, 0);
  ASSERT_EQ(Fn({"setGroupMode", "\"Held\"", "#holdin", "--save"}).code, 0);
  const Outcome played = Call({"play", scene_, "--node", "Wall", "--frame", "1", "-o", obj});
  ASSERT_EQ(played.code, 0) << played.err;
  const std::vector<Point3> v = ObjVertices(obj);
  ASSERT_EQ(v.size(), 7u);
  EXPECT_FLOAT_EQ(v[0].x, 0.0f);
  EXPECT_EQ(Call({"play", scene_, "--node", "Nobody", "--frame", "1", "-o", obj}).code, 1);
}

}  // namespace
}  // namespace kv::cli

// Parameters, lights and the gizmo of scene files, edited from the shell.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "cache/registry.h"
#include "host/standalone/objects.h"
#include "host/standalone/scene_file.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "scene_io.h"
#include "support.h"

namespace kv::cli {
namespace {

namespace fs = std::filesystem;
using testing::Call;
using testing::ObjVertices;
using testing::Outcome;
using testing::ReadFile;
using testing::WriteFile;

class ParamCommands : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_paramcmd_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    cache_ = P("two.kvc");
    scene_ = P("shot.kvs");
    WriteFile(cache_, testing::TwoElementCache());
    // Twenty frames at 30 per second, the cache object in "Wall", a mesh and a helper.
    KelvaneTools::kvCacheRegistry caches;
    standalone::Scene s;
    s.SetAnimRange(Interval(0, 20 * 160));
    auto obj = std::make_unique<kvCache_obj>(s, caches, false);
    obj->Params().SetString(param::kFileName, cache_);
    s.CreateObjectNode(std::move(obj), "Wall");
    Mesh m;
    m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    m.setNumFaces(1);
    m.faces[0].setVerts(0, 1, 2);
    s.CreateMeshNode(m, "Rock");
    s.CreatePointHelperNode("Point");
    std::string error;
    ASSERT_TRUE(standalone::SaveScene(s, scene_, error)) << error;
  }
  void TearDown() override { fs::remove_all(dir_); }
  std::string P(const std::string& f) const { return (dir_ / f).string(); }
  std::string Get(const std::string& param, std::vector<std::string> extra = {}) {
    std::vector<std::string> args = {"get", scene_, "Wall", param};
    args.insert(args.end(), extra.begin(), extra.end());
    const Outcome o = Call(args);
    EXPECT_EQ(o.code, 0) << param << ": " << o.err;
    return o.out.empty() ? o.out : o.out.substr(0, o.out.size() - 1);
  }
  Outcome Set(const std::string& param, const std::string& value,
              std::vector<std::string> extra = {"--save"}) {
    std::vector<std::string> args = {"set", scene_, "Wall", param, value};
    args.insert(args.end(), extra.begin(), extra.end());
    return Call(args);
  }
  // Box's first vertex, x, when the scene plays at `frame`.
  float BoxX(double frame) {
    const std::string obj = P("frame.obj");
    const Outcome o =
        Call({"play", scene_, "--node", "Wall", "--frame", std::to_string(frame), "-o", obj});
    EXPECT_EQ(o.code, 0) << o.err;
    const std::vector<Point3> v = ObjVertices(obj);
    return v.empty() ? -999.0f : v[0].x;
  }

  fs::path dir_;
  std::string cache_, scene_;
};

TEST_F(ParamCommands, EveryParameterRoundTripsThroughTheSceneFile) {
  ASSERT_EQ(Call({"scene", "add-light", scene_, "Omni", "--at", "0,0,0", "--far", "5"}).code, 0);
  int checked = 0;
  for (const param::ParamDef& d : param::ParamDefs()) {
    if (param::FindParamByScriptName(d.scriptName) != &d) continue;  // the second unit
    if (d.flags & param::kNotScriptable) {
      EXPECT_EQ(Set(std::string(d.scriptName), "#()").code, 2) << d.scriptName;
      continue;
    }
    // A value other than the default, inside the limits.
    std::string value;
    switch (d.type) {
      case param::Type::Int:
        value = std::to_string(
            static_cast<int>(d.HasLimits() && d.def + 1 > d.hi ? d.def - 1 : d.def + 1));
        break;
      case param::Type::Bool:
        value = d.HasLimits() ? "2" : (d.def != 0 ? "false" : "true");
        break;
      case param::Type::Float:
      case param::Type::World:
        value = "2.5";
        break;
      case param::Type::FileName:
        value = "\"" + cache_ + "\"";
        break;
      case param::Type::Node:
        value = d.id == param::kTriggerOmni ? "$Omni" : "$Point";
        break;
      case param::Type::NodeList:
        value = "#($Rock)";
        break;
      case param::Type::FloatList:
        break;
    }
    const Outcome set = Set(std::string(d.scriptName), value);
    ASSERT_EQ(set.code, 0) << d.scriptName << " = " << value << ": " << set.err;
    EXPECT_EQ(Get(std::string(d.scriptName)), value) << d.scriptName;
    ++checked;
  }
  EXPECT_EQ(checked, 50);
  EXPECT_EQ(Get("scaleUnitsFrom"), "1");
}

TEST_F(ParamCommands, WrongValuesExitTwoAndLeaveTheSceneAlone) {
  ASSERT_EQ(
      Call({"scene", "add-light", scene_, "Spot", "--at", "0,0,0", "--far", "5", "--spot"}).code,
      0);
  const std::string before = ReadFile(scene_);
  const Outcome spot = Set("triggerOmni", "$Spot");
  EXPECT_EQ(spot.code, 2);
  EXPECT_EQ(spot.err, "kvcache set: triggerOmni takes an omni light; $'Spot' is none\n");
  EXPECT_EQ(Set("playStart", "1.5").err, "kvcache set: playStart takes an integer, not 1.5\n");
  EXPECT_EQ(Set("playReverse", "1").code, 2);
  EXPECT_EQ(Set("nodes", "#($Wall)").code, 2);  // the node carrying the object itself
  EXPECT_EQ(Set("nodes", "#($Rock, $Rock)").code, 2);
  EXPECT_EQ(Set("noSuchParameter", "1").err, "kvcache set: no parameter named 'noSuchParameter'\n");
  EXPECT_EQ(Set("playStart", "#(1").code, 2);
  EXPECT_EQ(Set("playStart", "3", {"--frame", "2", "--save"}).code, 2);  // not animatable
  EXPECT_EQ(Call({"get", scene_, "Wall", "noSuchParameter"}).code, 2);
  EXPECT_EQ(ReadFile(scene_), before);
  // The limits clamp rather than refuse, as the spinners do.
  EXPECT_EQ(Set("rendMatID", "150").out, "rendMatID = 99\n");
}

TEST_F(ParamCommands, RangeEndsPushEachOther) {
  ASSERT_EQ(Set("recStart", "10").code, 0);
  EXPECT_EQ(Get("recEnd"), "20");
  const Outcome pushed = Set("recEnd", "5");
  ASSERT_EQ(pushed.code, 0) << pushed.err;
  EXPECT_EQ(Get("recStart"), "5");
  EXPECT_EQ(Get("recEnd"), "5");
  ASSERT_EQ(Set("explodeEnd", "-3").code, 0);
  EXPECT_EQ(Get("explodeStart"), "-3");
}

TEST_F(ParamCommands, KeyedSpeedDrivesPlayback) {
  // Box moves one unit a frame over frames 0 to 2 of the cache and holds after.
  EXPECT_FLOAT_EQ(BoxX(1), 1.0f);
  ASSERT_EQ(Set("playSpeed", "0.5", {"--frame", "0", "--save"}).code, 0);
  ASSERT_EQ(Set("playSpeed", "0.5", {"--frame", "20", "--save"}).code, 0);
  EXPECT_EQ(Get("playSpeed", {"--frame", "10"}), "0.5");
  EXPECT_FLOAT_EQ(BoxX(1), 0.5f);
  EXPECT_FLOAT_EQ(BoxX(3), 1.5f);
}

TEST_F(ParamCommands, ALightKeyedAcrossTheElementsTriggersThem) {
  // The light passes Box (at the origin in its first sample) going +x from -10 to 10 over
  // twenty frames with a radius of 1: Box waits at its first sample until the light reaches it.
  ASSERT_EQ(Call({"scene", "add-light", scene_, "Omni", "--at", "-10,0,0", "--far", "1", "--key",
                  "0:-10,0,0:1", "--key", "20:10,0,0:1"})
                .code,
            0);
  ASSERT_EQ(Set("triggerOmni", "$Omni").code, 0);
  ASSERT_EQ(Set("triggerMode", "2").code, 0);

  // The frame at which the light first holds Box, from the saved scene itself.
  KelvaneTools::kvCacheRegistry caches;
  std::string error;
  auto scene = LoadSceneFile(scene_, std::nullopt, caches, error);
  ASSERT_TRUE(scene) << error;
  host::Node* light = scene->GetNodeByName("Omni");
  int first = -1;
  for (int f = 0; f <= 20 && first < 0; ++f) {
    if (light->GetObjectTM(f * 160).GetTrans().Length() < 1.0f) first = f;
  }
  ASSERT_GT(first, 2);
  EXPECT_FLOAT_EQ(BoxX(first - 2), 0.0f);
  EXPECT_FLOAT_EQ(BoxX(first - 1), 0.0f);
  // Triggered within the frame before `first`, it has played between 0 and 2 frames by
  // first + 1.
  const float x = BoxX(first + 1);
  EXPECT_GT(x, 0.0f);
  EXPECT_LE(x, 2.0f);

  // The gizmo as the trigger, a sphere of 40 units: far away it holds nothing, scaled by
  // 100 it holds Box from the first frame.
  ASSERT_EQ(Set("triggerMode", "1").code, 0);
  ASSERT_EQ(Call({"scene", "gizmo", scene_, "Wall", "--move", "1000,0,0"}).code, 0);
  EXPECT_FLOAT_EQ(BoxX(1), 0.0f);
  ASSERT_EQ(Call({"scene", "gizmo", scene_, "Wall", "--move", "1000,0,0", "--scale", "100"}).code,
            0);
  EXPECT_FLOAT_EQ(BoxX(1), 1.0f);
  const Outcome listed = Call({"scene", "list", scene_});
  EXPECT_NE(listed.out.find("Omni\tomni light\n"), std::string::npos) << listed.out;
  EXPECT_NE(listed.out.find("\ttriggerMode = 1\n"), std::string::npos) << listed.out;
  ASSERT_EQ(Call({"call", scene_, "Wall", "addGroup", "groupName:\"Debris\"", "--save"}).code, 0);
  EXPECT_NE(Call({"scene", "list", scene_})
                .out.find("\tgroup \"Debris\": #holdin, enabled, 0 elements\n"),
            std::string::npos);
}

}  // namespace
}  // namespace kv::cli

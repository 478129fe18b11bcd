// Explode to objects on the standalone host: the key grid, the nodes and their motion, the
// element choice, names, target kinds, undo, cancel and bad input.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "cache/registry.h"
#include "explode/explode.h"
#include "geom/affine.h"
#include "host/standalone/scene.h"
#include "motion_cache.h"
#include "object/cache_obj.h"
#include "object/params.h"

namespace kv {
namespace {

namespace P = param;
using explode::ExplodeInputs;
using explode::ExplodeResult;
using explode::ExplodeStatus;
using kvtest::Motion;

constexpr int kTpf = 160;

Quat AxisAngle(Point3 axis, float angle) {
  return Quat(AngAxis{axis.Normalized(), angle});
}

class ExplodeTest : public ::testing::Test {
 protected:
  // Declared before the scene: the cache object the scene owns leaves it when it goes.
  KelvaneTools::kvCacheRegistry registry;
  standalone::Scene scene;
  kvCache_obj* obj = nullptr;
  host::Node* cacheNode = nullptr;
  // Named by process and test: tests run as parallel processes, where addresses repeat.
  std::string dir = (std::filesystem::temp_directory_path() /
                     ("kv_explode_" + std::to_string(::getpid()) + "_" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name()))
                        .string();

  void SetUp() override { std::filesystem::create_directories(dir); }
  void TearDown() override { std::filesystem::remove_all(dir); }

  // A cache of `motion` over frames 0..frames, a cache object playing it from frame 0 on a
  // node placed at `nodeTM`.
  void Make(const std::vector<Motion>& motion, int frames, const Matrix3& nodeTM = Matrix3()) {
    const std::string path = dir + "/m.kvc";
    ASSERT_TRUE(kvtest::WriteMotionCache(path, motion, 0, frames * kTpf, kTpf));
    auto o = std::make_unique<kvCache_obj>(scene, registry, false);
    obj = o.get();
    obj->Params().SetInt(P::kPlayStart, 0, 0);
    obj->Params().SetString(P::kFileName, path);
    auto* n = static_cast<standalone::SceneNode*>(scene.CreateObjectNode(std::move(o), "KV Cache"));
    n->SetNodeTM(0, nodeTM, false);
    cacheNode = n;
  }

  ExplodeInputs Script(int from, int to, TimeValue step) const {
    return explode::InputsFromScript(Interval(from * kTpf, to * kTpf), step, false, false, kTpf,
                                     0.02f, nullptr);
  }

  int LiveNodes() const {
    int n = 0;
    for (auto* node : scene.AllNodes()) n += !node->IsDeleted();
    return n;
  }
};

// Element e moves along x, turns about z and is stretched along its own axis.
std::vector<Motion> Moving(int count) {
  std::vector<Motion> m;
  for (int e = 0; e < count; ++e) {
    m.push_back({"Brick",
                 [e](TimeValue t) {
                   const float f = float(t) / kTpf;
                   Matrix3 tm = ScaleMatrix({1 + 0.1f * e, 1, 2}) *
                                AxisAngle({0, 0, 1}, 0.3f * f + e).ToMatrix();
                   tm.SetTrans({f * 2 + e, float(e), 0.5f * f});
                   return tm;
                 },
                 {}});
  }
  return m;
}

TEST(ExplodeGrid, KeysAtEveryStepUpToTheEnd) {
  using V = std::vector<TimeValue>;
  EXPECT_EQ(explode::ExplodeSampleTimes(Interval(0, 10 * kTpf), 3 * kTpf),
            (V{0, 3 * kTpf, 6 * kTpf, 9 * kTpf}));
  EXPECT_EQ(explode::ExplodeSampleTimes(Interval(0, 10 * kTpf), 5 * kTpf),
            (V{0, 5 * kTpf, 10 * kTpf}));
  EXPECT_EQ(explode::ExplodeSampleTimes(Interval(320, 320), kTpf), (V{320}));
  EXPECT_EQ(explode::ExplodeSampleTimes(Interval(0, 3), 0), (V{0, 1, 2, 3}));
  // Negative times and a step longer than the interval.
  EXPECT_EQ(explode::ExplodeSampleTimes(Interval(-5, 5), 100), (V{-5}));
}

TEST(ExplodeInputsTest, RolloutReadsFramesAndWholeReduceFrames) {
  KelvaneTools::kvCacheRegistry reg;
  standalone::Scene s;
  kvCache_obj o(s, reg, false);
  ParamBlock& pb = o.Params();
  pb.SetInt(P::kExplodeStart, 0, 2);
  pb.SetInt(P::kExplodeEnd, 0, 12);
  pb.SetFloat(P::kExplodeStep, 0, 0.5f);
  pb.SetInt(P::kExplodeReduce, 0, 1);
  pb.SetFloat(P::kExplodeReduceStep, 0, 1.5f);
  pb.SetFloat(P::kExplodeReduceThresh, 0, 0.5f);
  ExplodeInputs in = explode::InputsFromRollout(o, s);
  EXPECT_EQ(in.interval, Interval(2 * kTpf, 12 * kTpf));
  EXPECT_EQ(in.step, kTpf / 2);
  EXPECT_TRUE(in.reduce);
  EXPECT_EQ(in.reduceStep, kTpf);  // 1.5 frames read as 1
  EXPECT_FLOAT_EQ(in.reduceThreshold, 0.5f);
  EXPECT_FALSE(in.fromScript);
  pb.SetInt(P::kExplodeReduce, 0, 0);
  pb.SetFloat(P::kExplodeReduceStep, 0, 4.0f);
  in = explode::InputsFromRollout(o, s);
  EXPECT_EQ(in.reduceStep, kTpf);
  EXPECT_FLOAT_EQ(in.reduceThreshold, 0.02f);
}

TEST_F(ExplodeTest, NodesReproduceTheCachedMotionAtEveryKey) {
  std::vector<Motion> m = Moving(3);
  // A mirrored element: its scale keys carry the sign.
  m.push_back({"Mirror",
               [](TimeValue t) {
                 Matrix3 tm = ScaleMatrix({-1, 1, 1});
                 tm.SetTrans({0, 0, float(t) / kTpf});
                 return tm;
               },
               {}});
  Matrix3 nodeTM = AxisAngle({1, 0, 0}, 0.4f).ToMatrix();
  nodeTM.SetTrans({5, -3, 1});
  Make(m, 10, nodeTM);
  const ExplodeResult r = explode::Explode(scene, *obj, Script(0, 10, 3 * kTpf));
  ASSERT_EQ(r.status, ExplodeStatus::Exploded);
  ASSERT_EQ(r.nodes.size(), 4u);
  EXPECT_EQ(r.samples, 4);
  for (size_t i = 0; i < r.nodes.size(); ++i) {
    host::Node* n = r.nodes[i];
    host::Control* prs = n->GetTMController();
    ASSERT_TRUE(prs && prs->GetPositionController() && prs->GetRotationController());
    for (host::Control* c :
         {prs->GetPositionController(), prs->GetRotationController(), prs->GetScaleController()}) {
      EXPECT_EQ(c->NumKeys(), 4);
      EXPECT_EQ(c->GetInterp(), host::Interp::TCB);
      EXPECT_EQ(c->GetKeyTime(3), 9 * kTpf);
    }
    for (TimeValue t : {0, 3 * kTpf, 6 * kTpf, 9 * kTpf}) {
      const Matrix3 want = m[i].tm(t) * nodeTM;
      EXPECT_TRUE(n->GetNodeTM(t).Equals(want, 1e-4f)) << i << " at " << t;
    }
  }
  // Element 0 turns 0.9 rad per key, and its rotation keys never flip hemisphere.
  host::Control* rot = r.nodes[0]->GetTMController()->GetRotationController();
  for (int k = 1; k < 4; ++k)
    EXPECT_GT(rot->GetQuat(rot->GetKeyTime(k)).Dot(rot->GetQuat(rot->GetKeyTime(k - 1))), 0);
  // A one-frame interval gives one key per controller.
  const ExplodeResult one = explode::Explode(scene, *obj, Script(4, 4, kTpf));
  ASSERT_EQ(one.nodes.size(), 4u);
  EXPECT_EQ(one.nodes[0]->GetTMController()->GetPositionController()->NumKeys(), 1);
}

TEST_F(ExplodeTest, NamesSelectionAndVisibilityAtTheStart) {
  std::vector<Motion> m = Moving(3);
  m[2].name = "Other";
  m[1].visible = [](TimeValue t) { return t >= 2 * kTpf; };
  Make(m, 4);
  // A node of that name exists already.
  scene.CreatePointHelperNode("Brick");
  ExplodeResult r = explode::Explode(scene, *obj, Script(0, 4, kTpf));
  ASSERT_EQ(r.nodes.size(), 3u);
  EXPECT_EQ(r.nodes[0]->GetName(), "Brick001");
  EXPECT_EQ(r.nodes[1]->GetName(), "Brick002");
  EXPECT_EQ(r.nodes[2]->GetName(), "Other");
  EXPECT_EQ(r.nodes[0]->GetVisibility(0), 1.0f);
  EXPECT_EQ(r.nodes[1]->GetVisibility(0), 0.0f);

  // Selected only: the element selection, in index order.
  const uint32_t picked[] = {2, 0};
  obj->SelectSubComponent(picked, true, true);
  ExplodeInputs in = Script(2, 4, kTpf);
  in.selectedOnly = true;
  r = explode::Explode(scene, *obj, in);
  EXPECT_EQ(r.elements, (std::vector<int>{0, 2}));
  EXPECT_EQ(r.nodes[1]->GetName(), "Other001");

  // Hidden at the start (playback begins later, "Hide" before it): nothing to explode.
  obj->Params().SetInt(P::kPlayStart, 0, 10);
  obj->Params().SetInt(P::kPlayInORT, 0, 0);
  const int before = LiveNodes();
  r = explode::Explode(scene, *obj, Script(0, 4, kTpf));
  EXPECT_EQ(r.status, ExplodeStatus::NothingToExplode);
  EXPECT_EQ(LiveNodes(), before);
}

TEST_F(ExplodeTest, TargetKinds) {
  Make(Moving(2), 2);
  struct Case {
    int kind;
    int verts;  // of the node's mesh; -1: no mesh
  } cases[] = {{explode::kToMesh, 4}, {explode::kToBox, 8}, {explode::kToPoint, -1}};
  for (const Case& c : cases) {
    obj->Params().SetInt(P::kExplodeTo, 0, c.kind);
    const ExplodeResult r = explode::Explode(scene, *obj, Script(0, 2, kTpf));
    ASSERT_EQ(r.nodes.size(), 2u) << c.kind;
    Mesh mesh;
    const bool has = r.nodes[0]->EvalTriMesh(0, false, mesh);
    EXPECT_EQ(has ? mesh.numVerts() : -1, c.verts) << c.kind;
    if (c.kind == explode::kToPoint) {
      EXPECT_EQ(r.nodes[0]->GetObjectRef()->GetClassId(), host::kPointHelperClassId);
    }
  }
  // Custom: an instance of a mesh object; a helper does not convert, so nothing is made.
  obj->Params().SetInt(P::kExplodeTo, 0, explode::kToCustom);
  host::Node* shape = scene.CreateMeshNode(kvtest::Tetra(), "Shape");
  obj->Params().SetNode(P::kExplodeToNode, shape);
  ExplodeResult r = explode::Explode(scene, *obj, Script(0, 2, kTpf));
  ASSERT_EQ(r.nodes.size(), 2u);
  EXPECT_EQ(r.nodes[1]->GetObjectRef(), shape->GetObjectRef());
  obj->Params().SetNode(P::kExplodeToNode, scene.CreatePointHelperNode("Dot"));
  r = explode::Explode(scene, *obj, Script(0, 2, kTpf));
  EXPECT_TRUE(r.nodes.empty());
  EXPECT_EQ(r.skipped, 2);
}

TEST_F(ExplodeTest, UndoStepsAndTheSceneSelection) {
  Make(Moving(2), 6);
  host::Node* other = scene.CreatePointHelperNode("Chosen");
  other->SetSelected(true);
  const int steps = scene.UndoHistory().NumUndoSteps();
  const int live = LiveNodes();

  // From the rollout: the new nodes become the selection; reduce is a second step.
  ExplodeInputs in = Script(0, 6, kTpf);
  in.fromScript = false;
  in.reduce = true;
  ExplodeResult r = explode::Explode(scene, *obj, in);
  ASSERT_TRUE(r.ok());
  EXPECT_TRUE(r.reduced);
  EXPECT_LT(r.reduction.keysAfter, r.reduction.keysBefore);
  EXPECT_EQ(scene.UndoHistory().NumUndoSteps(), steps + 2);
  EXPECT_EQ(scene.UndoHistory().UndoLabel(), "Reduce Keys");
  EXPECT_FALSE(other->Selected());
  for (host::Node* n : r.nodes) EXPECT_TRUE(n->Selected());
  const int reducedKeys = r.nodes[0]->GetTMController()->GetPositionController()->NumKeys();
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(scene.UndoHistory().UndoLabel(), "Explode To Objects");
  EXPECT_GT(r.nodes[0]->GetTMController()->GetPositionController()->NumKeys(), reducedKeys);
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(LiveNodes(), live);
  EXPECT_TRUE(other->Selected());

  // From a script: the selection stays as it was.
  r = explode::Explode(scene, *obj, Script(0, 6, kTpf));
  EXPECT_TRUE(other->Selected());
  for (host::Node* n : r.nodes) EXPECT_FALSE(n->Selected());
}

TEST_F(ExplodeTest, CancelLeavesTheSceneAsItWas) {
  Make(Moving(3), 4);
  const int steps = scene.UndoHistory().NumUndoSteps();
  const int live = LiveNodes();
  // Polls: one per element while creating objects (1 to 3), one clearing Escape (4), one
  // per key time while creating animation (5 to 9).
  for (int poll : {2, 6, 9}) {
    scene.GetResponder().PressEscAfter(poll);
    const ExplodeResult r = explode::Explode(scene, *obj, Script(0, 4, kTpf));
    EXPECT_EQ(r.status, ExplodeStatus::Cancelled) << poll;
    EXPECT_TRUE(r.nodes.empty());
    EXPECT_EQ(LiveNodes(), live) << poll;
    EXPECT_EQ(scene.UndoHistory().NumUndoSteps(), steps) << poll;
    scene.GetResponder().escAnswers.clear();
  }
  // The caller's progress sink cancels the same way. Meanwhile the status field's bar counts
  // the elements made, then the key times, and is gone at the end.
  explode::ExplodeOptions opt;
  std::vector<std::pair<int, int>> bar;
  opt.progress = [&](const std::string& status, int) {
    bar.emplace_back(obj->ProgressValue(), obj->ProgressTotal());
    return status != "Creating Animation ...";
  };
  EXPECT_EQ(explode::Explode(scene, *obj, Script(0, 4, kTpf), opt).status,
            ExplodeStatus::Cancelled);
  EXPECT_EQ(bar, (std::vector<std::pair<int, int>>{{1, 3}, {2, 3}, {3, 3}, {1, 5}}));
  EXPECT_EQ(obj->ProgressValue(), -1);
  EXPECT_EQ(LiveNodes(), live);
  EXPECT_EQ(scene.UndoHistory().NumUndoSteps(), steps);
  EXPECT_EQ(scene.StatusText(), "");
}

TEST_F(ExplodeTest, BadInputCreatesNothing) {
  Make(Moving(1), 2);
  const int live = LiveNodes();
  obj->Params().SetString(P::kFileName, "");
  EXPECT_EQ(explode::Explode(scene, *obj, Script(0, 2, kTpf)).status, ExplodeStatus::NoFile);
  obj->Params().SetString(P::kFileName, dir + "/missing.kvc");
  ExplodeResult r = explode::Explode(scene, *obj, Script(0, 2, kTpf));
  EXPECT_EQ(r.status, ExplodeStatus::ReaderError);
  EXPECT_FALSE(r.message.empty());
  // A cache cut short.
  std::string bytes;
  {
    std::ifstream in(dir + "/m.kvc", std::ios::binary);
    bytes.assign(std::istreambuf_iterator<char>(in), {});
  }
  std::ofstream(dir + "/cut.kvc", std::ios::binary) << bytes.substr(0, bytes.size() / 2);
  obj->Params().SetString(P::kFileName, dir + "/cut.kvc");
  r = explode::Explode(scene, *obj, Script(0, 2, kTpf));
  EXPECT_EQ(r.status, ExplodeStatus::ReaderError);
  EXPECT_FALSE(r.message.empty());
  EXPECT_EQ(LiveNodes(), live);
  EXPECT_EQ(scene.UndoHistory().NumUndoSteps(), 0);
}

}  // namespace
}  // namespace kv

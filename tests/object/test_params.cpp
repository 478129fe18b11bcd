#include <gtest/gtest.h>

#include <cmath>

#include "groups/element_group.h"
#include "groups/fake_host.h"
#include "object/param_block.h"
#include "object/params.h"
#include "res/strings.h"

namespace kv {
namespace {

using namespace param;
using test::FakeInterface;

TEST(ParamTable, DeclarationOrderAndNameQuirksAreKept) {
  std::vector<int> order;
  for (const ParamDef& d : ParamDefs()) order.push_back(d.id);
  // scaleUnits follows playFrame; 49 precedes 48; everything else in id order.
  std::vector<int> expected;
  for (int id = 0; id < kNumParams; ++id)
    if (id != kScaleUnits) expected.push_back(id);
  expected.insert(std::find(expected.begin(), expected.end(), kPlayInORT), kScaleUnits);
  std::swap(*std::find(expected.begin(), expected.end(), 48),
            *std::find(expected.begin(), expected.end(), 49));
  EXPECT_EQ(order, expected);

  EXPECT_EQ(FindParamDef(kScaleUnitsFrom)->scriptName, "scaleUnitsFrom");
  EXPECT_EQ(FindParamDef(kScaleUnitsTo)->scriptName, "scaleUnitsFrom");
  EXPECT_EQ(FindParamByScriptName("scaleUnitsFrom")->id, kScaleUnitsFrom);
  EXPECT_EQ(ParamBlock::IdOfScriptName("scaleUnitsFrom"), 8);
  EXPECT_EQ(ParamBlock::IdOfScriptName("pb_recWriteDeform"), 48);
  EXPECT_EQ(ParamBlock::IdOfScriptName("pb_recWriteTransform"), 49);
  EXPECT_EQ(ParamBlock::IdOfScriptName("recWriteTopology"), -1);
  EXPECT_EQ(ParamBlock::IdOfScriptName("ScaleUnits"), -1);  // case-sensitive
  EXPECT_EQ(FindParamDef(52), nullptr);
  EXPECT_EQ(FindParamDef(-1), nullptr);
}

TEST(ParamTable, EveryTextTheTableNamesIsInTheStringTable) {
  for (const ParamDef& d : ParamDefs()) {
    for (int id : d.items) EXPECT_FALSE(res::FindString(id).empty()) << d.scriptName;
    for (int id : {d.displayNameId, d.tooltipId, d.labelId, d.promptId}) {
      if (id) {
        EXPECT_FALSE(res::FindString(id).empty()) << d.scriptName;
      }
    }
  }
  std::string units;
  for (int id : UnitNames()) units += std::string(res::FindString(id)) + ",";
  EXPECT_EQ(units, "Inches,Feet,Miles,Milimeters,Centimeters,Meters,Kilometers,");
  EXPECT_EQ(res::FindString(FindParamDef(kElementFrames)->displayNameId), "Group Frames");
  EXPECT_EQ(res::FindString(FindParamDef(kRecWriteDeform)->labelId), "Record Deformations");
  EXPECT_EQ(res::FindString(FindParamDef(kTriggerOmni)->promptId), "Pick an Omni light");

  std::string rollouts;
  for (const RolloutDef& r : Rollouts())
    rollouts += std::string(res::FindString(r.titleId)) + (r.open ? "+" : "-") + ",";
  EXPECT_EQ(rollouts,
            "Cache File+,File Info-,Record+,Playback+,Viewport / Render+,Per-Element Control+,"
            "Explode to Objects-,About-,");
}

TEST(ParamBlock, DefaultsAndClampingAtEveryLimit) {
  FakeInterface ip;
  ParamBlock pb(ip);
  EXPECT_EQ(pb.GetInt(kPlayInORT), kOrtHold);
  EXPECT_EQ(pb.GetInt(kRendMatID), 99);
  EXPECT_FLOAT_EQ(pb.GetFloat(kExplodeReduceThresh), 0.02f);
  EXPECT_TRUE(pb.GetBool(kRecWriteTransform));
  EXPECT_EQ(pb.Count(kNodes), 0);
  EXPECT_EQ(pb.Count(kElementFrames), 0);

  for (const ParamDef& d : ParamDefs()) {
    if (!d.HasLimits()) continue;
    SCOPED_TRACE(std::string(d.scriptName));
    const float span = static_cast<float>(d.hi - d.lo);
    ASSERT_TRUE(pb.SetFloat(d.id, 0, static_cast<float>(d.lo) - span));
    EXPECT_FLOAT_EQ(pb.GetFloat(d.id), static_cast<float>(d.lo));
    ASSERT_TRUE(pb.SetFloat(d.id, 0, static_cast<float>(d.hi) + span));
    EXPECT_FLOAT_EQ(pb.GetFloat(d.id), static_cast<float>(d.hi));
  }
  pb.SetInt(kRendMatID, 0, 0);
  EXPECT_EQ(pb.GetInt(kRendMatID), 1);
  pb.SetInt(kRendMatID, 0, 100);
  EXPECT_EQ(pb.GetInt(kRendMatID), 99);
  pb.SetFloat(kRecStep, 0, 0.0001f);
  EXPECT_FLOAT_EQ(pb.GetFloat(kRecStep), 0.001f);
  pb.SetFloat(kExplodeStep, 0, -3.0f);
  EXPECT_FLOAT_EQ(pb.GetFloat(kExplodeStep), 0.001f);
  pb.SetFloat(kScaleUnits, 0, 0.0f);
  EXPECT_GT(pb.GetFloat(kScaleUnits), 0.0f);
  pb.SetInt(kVpWireframe, 0, 7);  // a plain switch stays a switch
  EXPECT_EQ(pb.GetInt(kVpWireframe), 1);
  pb.SetInt(kTriggerMode, 0, 2);  // a switch used as an index keeps its value
  EXPECT_EQ(pb.GetInt(kTriggerMode), 2);

  EXPECT_FALSE(pb.SetFloat(kFileName, 0, 1.0f));
  EXPECT_FALSE(pb.SetString(kPlayStart, "x"));
  EXPECT_FALSE(pb.SetFloat(kPlaySpeed, 0, std::nanf("")));

  pb.ResetAll();
  EXPECT_EQ(pb.GetInt(kRendMatID), 99);
  EXPECT_FLOAT_EQ(pb.GetFloat(kRecStep), 1.0f);
}

TEST(ParamBlock, AnimateModeMakesKeysOnlyOnAnimatableParameters) {
  FakeInterface ip;
  ParamBlock pb(ip);
  pb.SetFloat(kPlaySpeed, 0, 2.0f);  // outside animate mode: the constant changes
  EXPECT_EQ(pb.GetController(kPlaySpeed)->NumKeys(), 0);
  EXPECT_FLOAT_EQ(pb.GetFloat(kPlaySpeed, 4800), 2.0f);

  ip.animate = true;
  pb.SetFloat(kPlaySpeed, 0, 1.0f);
  pb.SetFloat(kPlaySpeed, 1600, 3.0f);
  EXPECT_EQ(pb.GetController(kPlaySpeed)->NumKeys(), 2);
  EXPECT_FLOAT_EQ(pb.GetFloat(kPlaySpeed, 800), 2.0f);
  EXPECT_FLOAT_EQ(pb.GetFloat(kPlaySpeed, 0), 1.0f);

  pb.SetInt(kPlayFPS, 160, 24);  // int and animatable: keyed, read back as an int
  EXPECT_EQ(pb.GetController(kPlayFPS)->NumKeys(), 1);
  EXPECT_EQ(pb.GetInt(kPlayFPS, 160), 24);

  pb.SetInt(kPlayStart, 160, 5);  // not animatable: constant even in animate mode
  EXPECT_EQ(pb.GetController(kPlayStart), nullptr);
  EXPECT_EQ(pb.GetInt(kPlayStart, 99999), 5);

  pb.SetCount(kElementFrames, 2);
  pb.SetListFloat(kElementFrames, 1, 320, 12.5f);
  EXPECT_EQ(pb.GetController(kElementFrames, 1)->NumKeys(), 1);
  EXPECT_EQ(pb.GetController(kElementFrames, 0)->NumKeys(), 0);
  EXPECT_FLOAT_EQ(pb.GetListFloat(kElementFrames, 1, 320), 12.5f);
  EXPECT_FALSE(pb.SetListFloat(kElementFrames, 2, 0, 1.0f));
}

TEST(ParamBlock, CreationDefaultsComeFromTheSceneWithoutKeys) {
  FakeInterface ip;
  ip.fps = 25;                                     // 192 ticks per frame
  ip.range = Interval(10 * 192, 250 * 192 + 100);  // a sub-frame end truncates
  ip.animate = true;
  ParamBlock pb(ip);
  pb.ApplyCreationDefaults();
  pb.ApplySceneFrameRate();
  EXPECT_EQ(pb.GetInt(kPlayStart), 10);
  EXPECT_EQ(pb.GetInt(kRecStart), 10);
  EXPECT_EQ(pb.GetInt(kRecEnd), 250);
  EXPECT_EQ(pb.GetInt(kExplodeStart), 10);
  EXPECT_EQ(pb.GetInt(kExplodeEnd), 250);
  EXPECT_EQ(pb.GetInt(kPlayFPS), 25);
  EXPECT_EQ(pb.GetController(kPlayFPS)->NumKeys(), 0);
  EXPECT_EQ(ip.suspendAnimate, 0);
  EXPECT_EQ(ip.hold.Steps(), 0u);
}

TEST(ParamBlock, WritesUndoRedoAndReportTheChangedId) {
  FakeInterface ip;
  ParamBlock pb(ip);
  std::vector<int> changes;
  pb.SetChangeCallback([&](int id) { changes.push_back(id); });

  pb.SetInt(kRecEnd, 0, 40);  // no hold open: no undo step
  EXPECT_EQ(ip.hold.Steps(), 0u);

  ip.hold.Begin();
  pb.SetString(kFileName, "a.kvc");
  ip.hold.Accept("Set Filename");
  test::FakeNode n1("n1", nullptr), n2("n2", nullptr);
  ip.hold.Begin();
  pb.Append(kNodes, &n1);
  pb.Append(kNodes, &n2);
  ip.hold.Accept("Add node");
  EXPECT_EQ(pb.LastChangedId(), kNodes);

  changes.clear();
  ASSERT_TRUE(ip.hold.Undo());
  EXPECT_EQ(pb.Count(kNodes), 0);
  EXPECT_EQ(changes, (std::vector<int>{kNodes, kNodes}));
  ASSERT_TRUE(ip.hold.Undo());
  EXPECT_EQ(pb.GetString(kFileName), "");
  EXPECT_EQ(pb.LastChangedId(), kFileName);
  ASSERT_TRUE(ip.hold.Redo());
  ASSERT_TRUE(ip.hold.Redo());
  EXPECT_EQ(pb.GetString(kFileName), "a.kvc");
  ASSERT_EQ(pb.Count(kNodes), 2);
  EXPECT_EQ(pb.GetNode(kNodes, 1), &n2);
  EXPECT_EQ(pb.GetInt(kRecEnd), 40);

  ip.hold.Begin();  // an animated value comes back with its keys
  ip.animate = true;
  pb.SetFloat(kPlayFrame, 480, 7.0f);
  ip.hold.Accept("key");
  ip.hold.Undo();
  EXPECT_EQ(pb.GetController(kPlayFrame)->NumKeys(), 0);
  ip.hold.Redo();
  EXPECT_FLOAT_EQ(pb.GetFloat(kPlayFrame, 480), 7.0f);

  EXPECT_FALSE(pb.Delete(kNodes, 1, 2));
  EXPECT_TRUE(pb.Delete(kNodes, 0, 1));
  EXPECT_EQ(pb.GetNode(kNodes, 0), &n2);
}

TEST(ParamBlock, ElementFrameNamesFollowTheGroups) {
  struct Names : ParamAccessor {
    const ElementGroupList* groups;
    std::string GetEntryName(int id, int index) const override {
      return id == kElementFrames ? ElementFrameName(*groups, index) : std::string();
    }
  };
  FakeInterface ip;
  ParamBlock pb(ip);
  EXPECT_EQ(pb.GetEntryName(kElementFrames, 0), "");
  ElementGroupList groups;
  groups.addDefault();
  groups.addNamed("Wall");
  groups.addDefault();
  Names names;
  names.groups = &groups;
  pb.SetAccessor(&names);
  EXPECT_EQ(pb.GetEntryName(kElementFrames, 0), "Group001_Frame");
  EXPECT_EQ(pb.GetEntryName(kElementFrames, 1), "Wall_Frame");
  EXPECT_EQ(pb.GetEntryName(kElementFrames, 3), "");
  EXPECT_EQ(pb.GetEntryName(kElementFrames, -1), "");
}

std::vector<unsigned char> SaveBlock(const ParamBlock& pb) {
  test::MemSave s;
  EXPECT_TRUE(pb.Save(s));
  return s.bytes;
}

TEST(ParamBlock, StoredBytesMatchTheDocumentedLayout) {
  FakeInterface ip;
  ParamBlock pb(ip);
  pb.SetString(kFileName, "ab");
  const std::vector<unsigned char> bytes = SaveBlock(pb);
  // Header chunk, then the first parameter in declaration order (iconSize, 0.0f), then
  // nodes (empty list), then fileName.
  const std::vector<unsigned char> expected = {
      0x01, 0x00, 8,  0, 0,   0,  1, 0, 0, 0, 52, 0, 0, 0,     // header: version 1, 52 chunks
      0x02, 0x00, 13, 0, 0,   0,  0, 0, 0, 0, 2,  1, 0, 0, 0,  // iconSize: id 0, world, 1 entry
      0,    0,    0,  0,                                       //   0.0f
      0x02, 0x00, 9,  0, 0,   0,  2, 0, 0, 0, 6,  0, 0, 0, 0,  // nodes: id 2, node list, 0 entries
      0x02, 0x00, 15, 0, 0,   0,  3, 0, 0, 0, 4,  1, 0, 0, 0,  // fileName: id 3, file name, 1
      2,    0,    0,  0, 'a', 'b'};
  ASSERT_GE(bytes.size(), expected.size());
  EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + expected.size()), expected);
}

TEST(ParamBlock, SaveLoadKeepsValuesKeysAndNodesAndBadStreamsChangeNothing) {
  FakeInterface ip;
  test::FakeNode omni("Omni01", nullptr), box("Box01", nullptr);
  ip.nodes = {&omni, &box};
  ParamBlock pb(ip);
  pb.SetString(kFileName, "c:/caches/a.kvc");
  pb.SetInt(kRendMatID, 0, 12);
  pb.SetFloat(kRecStep, 0, 0.5f);
  pb.SetNode(kTriggerOmni, &omni);
  pb.Append(kNodes, &box);
  pb.Append(kNodes, nullptr);
  pb.SetCount(kElementFrames, 2);
  ip.animate = true;
  pb.SetFloat(kPlaySpeed, 0, 1.0f);
  pb.SetFloat(kPlaySpeed, 4800, 4.0f);
  pb.SetListFloat(kElementFrames, 1, 160, 9.0f);
  ip.animate = false;
  const std::vector<unsigned char> bytes = SaveBlock(pb);

  ParamBlock back(ip);
  test::MemLoad l(bytes);
  ASSERT_EQ(back.Load(l), host::IOResult::Ok);
  EXPECT_EQ(SaveBlock(back), bytes);
  EXPECT_EQ(back.GetString(kFileName), "c:/caches/a.kvc");
  EXPECT_EQ(back.GetInt(kRendMatID), 12);
  EXPECT_EQ(back.GetNode(kTriggerOmni), &omni);
  ASSERT_EQ(back.Count(kNodes), 2);
  EXPECT_EQ(back.GetNode(kNodes, 0), &box);
  EXPECT_EQ(back.GetNode(kNodes, 1), nullptr);
  EXPECT_EQ(back.GetController(kPlaySpeed)->NumKeys(), 2);
  EXPECT_FLOAT_EQ(back.GetFloat(kPlaySpeed, 2400), 2.5f);
  EXPECT_FLOAT_EQ(back.GetListFloat(kElementFrames, 1, 160), 9.0f);

  EXPECT_TRUE(back.IsControlled(kPlaySpeed));
  EXPECT_FALSE(back.IsControlled(kScaleUnits));

  // A speed whose keys were all deleted keeps its controller through saving: one more chunk
  // lists such entries by id and index.
  ParamBlock keyless(ip);
  ip.animate = true;
  keyless.SetFloat(kPlaySpeed, 0, 3.0f);
  ip.animate = false;
  keyless.GetController(kPlaySpeed)->DeleteKey(0);
  const std::vector<unsigned char> kb = SaveBlock(keyless);
  const std::vector<unsigned char> tail = {
      0x03, 0x00, 12, 0, 0, 0, 1, 0, 0, 0, static_cast<unsigned char>(kPlaySpeed),
      0,    0,    0,  0, 0, 0, 0};
  ASSERT_GE(kb.size(), tail.size());
  EXPECT_EQ(std::vector<unsigned char>(kb.end() - long(tail.size()), kb.end()), tail);
  EXPECT_EQ(SaveBlock(ParamBlock(ip)).size() + tail.size(), kb.size());  // nothing else added
  ParamBlock kback(ip);
  test::MemLoad kl(kb);
  ASSERT_EQ(kback.Load(kl), host::IOResult::Ok);
  EXPECT_TRUE(kback.IsControlled(kPlaySpeed));
  EXPECT_EQ(kback.GetController(kPlaySpeed)->NumKeys(), 0);

  // Every truncation fails and leaves the target as it was.
  for (size_t n = 0; n < bytes.size(); ++n) {
    std::vector<unsigned char> cut(bytes.begin(), bytes.begin() + n);
    ParamBlock target(ip);
    target.SetInt(kRendMatID, 0, 5);
    test::MemLoad lc(cut);
    const host::IOResult r = target.Load(lc);
    if (r == host::IOResult::Ok) {
      // A cut exactly between chunks is a shorter but valid stream.
      continue;
    }
    EXPECT_EQ(target.GetInt(kRendMatID), 5) << n;
    EXPECT_EQ(target.GetString(kFileName), "") << n;
  }
}

}  // namespace
}  // namespace kv

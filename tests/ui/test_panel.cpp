// The panel driven as a user would: press, type, choose, hold Shift; then what the parameters,
// the undo history and the controls show.
#include <cmath>

#include "cache/base.h"
#include "object/params.h"
#include "panel_fixture.h"
#include "res/control_ids.h"

namespace kv::ui::testing {
namespace {

namespace P = param;
using namespace kv::res;

TEST_F(PanelTest, RefreshEnablesEachControlByItsRule) {
  Panel& p = Open();
  ParamBlock& pb = obj_->Params();
  auto on = [&](int id) { return p.Control(id).enabled; };

  // Force Wireframe follows Display Cache.
  EXPECT_TRUE(on(IDC_VP_WIREFRAME));
  ASSERT_TRUE(p.Press(IDC_VP_DISPLAY_CACHE));
  EXPECT_FALSE(pb.GetBool(P::kVpDisplayCache));
  EXPECT_FALSE(on(IDC_VP_WIREFRAME));
  EXPECT_FALSE(on(IDC_VP_HIDE_FACES));
  p.Press(IDC_VP_DISPLAY_CACHE);

  // Delete Faces (on by default) disables Hide Faces and Draw Markers whatever Display Cache.
  EXPECT_TRUE(pb.GetBool(P::kVpDeleteObjects));
  EXPECT_FALSE(on(IDC_VP_HIDE_FACES));
  EXPECT_FALSE(on(IDC_VP_MARKERS));
  p.Press(IDC_VP_DELETE_FACES);
  EXPECT_TRUE(on(IDC_VP_HIDE_FACES));
  EXPECT_TRUE(on(IDC_VP_MARKERS));

  // The playback graph takes over start, speed, rate, sample and reverse.
  for (int id : {IDC_PLAY_START_SPIN, IDC_PLAY_SPEED_LABEL, IDC_PLAY_FPS_EDIT, IDC_PLAY_SAMPLE,
                 IDC_PLAY_REVERSE})
    EXPECT_TRUE(on(id)) << id;
  EXPECT_FALSE(on(IDC_PLAY_FRAME_SPIN));
  p.Press(IDC_PLAY_USE_GRAPH);
  for (int id : {IDC_PLAY_START_SPIN, IDC_PLAY_SPEED_LABEL, IDC_PLAY_FPS_EDIT, IDC_PLAY_SAMPLE,
                 IDC_PLAY_REVERSE})
    EXPECT_FALSE(on(id)) << id;
  EXPECT_TRUE(on(IDC_PLAY_FRAME_SPIN));
  // A disabled control ignores the user.
  EXPECT_FALSE(p.Type(IDC_PLAY_START_SPIN, 7));
  EXPECT_EQ(pb.GetInt(P::kPlayStart), 0);

  // Triggers: disabled, by gizmo, by omni light.
  EXPECT_FALSE(on(IDC_TRIGGER_UPDATE));
  EXPECT_FALSE(on(IDC_TRIGGER_SAMPLE));
  p.Press(IDC_TRIGGER_GIZMO);
  EXPECT_EQ(pb.GetInt(P::kTriggerMode), 1);
  EXPECT_TRUE(p.Control(IDC_TRIGGER_GIZMO).checked);
  EXPECT_FALSE(p.Control(IDC_TRIGGER_DISABLED).checked);
  EXPECT_FALSE(on(IDC_TRIGGER_PICK));
  EXPECT_TRUE(on(IDC_TRIGGER_UPDATE));
  EXPECT_TRUE(on(IDC_TRIGGER_INTERACTIVE));
  EXPECT_TRUE(on(IDC_TRIGGER_SAMPLE_LABEL));
  p.Press(IDC_TRIGGER_OMNI);
  EXPECT_TRUE(on(IDC_TRIGGER_PICK));

  // Explode: reduction settings follow Reduce Keys; the source picker follows Custom.
  EXPECT_TRUE(on(IDC_EXP_THRESH_SPIN));
  p.Press(IDC_EXP_REDUCE);
  EXPECT_FALSE(on(IDC_EXP_THRESH_SPIN));
  EXPECT_FALSE(on(IDC_EXP_REDUCE_STEP_LABEL));
  EXPECT_FALSE(on(IDC_EXP_PICK));
  p.Press(IDC_EXP_TO_CUSTOM);
  EXPECT_EQ(pb.GetInt(P::kExplodeTo), 3);
  EXPECT_TRUE(on(IDC_EXP_PICK));

  // Render material id: needs both Don't Delete and Set Mat ID.
  EXPECT_FALSE(on(IDC_REND_APPLY_MATID));
  p.Press(IDC_REND_DONT_DELETE);
  EXPECT_TRUE(on(IDC_REND_APPLY_MATID));
  EXPECT_FALSE(on(IDC_REND_MATID_SPIN));
  p.Press(IDC_REND_APPLY_MATID);
  EXPECT_TRUE(on(IDC_REND_MATID_SPIN));
  // The transform switch is always recorded: its button never takes a press.
  EXPECT_FALSE(p.Press(IDC_REC_TRANSFORM));
}

TEST_F(PanelTest, ParameterChangesMadeElsewhereShowInTheControls) {
  Panel& p = Open();
  ParamBlock& pb = obj_->Params();
  pb.SetInt(P::kPlayInORT, 0, P::kOrtPingPong);
  pb.SetInt(P::kRecStart, 0, 12);
  pb.SetFloat(P::kRecStep, 0, 2.5f);
  p.Refresh();
  EXPECT_EQ(p.Control(IDC_ORT_BEFORE).current, 3);
  EXPECT_EQ(p.Control(IDC_ORT_BEFORE).items[3], "Ping-Pong");
  EXPECT_EQ(p.Control(IDC_REC_START_EDIT).text, "12");
  EXPECT_DOUBLE_EQ(p.Control(IDC_REC_STEP_SPIN).value, 2.5);
  ASSERT_EQ(p.Control(IDC_LOAD_SLAVE).items.size(), 2u);
  EXPECT_EQ(p.Control(IDC_LOAD_SLAVE).items[0], "Per-Sample");
  // Typing into an edit sets its parameter through its spinner.
  ASSERT_TRUE(p.Type(IDC_PLAY_SPEED_EDIT, 0.5));
  EXPECT_FLOAT_EQ(pb.GetFloat(P::kPlaySpeed), 0.5f);
  EXPECT_FALSE(p.Type(IDC_PLAY_SPEED_EDIT, NAN));
  EXPECT_FALSE(p.Choose(IDC_ORT_AFTER, 4));
  EXPECT_EQ(pb.GetInt(P::kPlayOutORT), P::kOrtHold);
}

TEST_F(PanelTest, LoadShowsTheFileAndItsInfoAndUnloadLeavesNone) {
  const std::string file = Record("wall.kvc", {"wallA", "wallB", "roof"});
  Panel& p = Open();
  EXPECT_EQ(p.Control(IDC_FILE_NAME).text, "<None>");
  EXPECT_EQ(p.Control(IDC_INFO_NODES).text, "");

  // A cancelled dialog changes nothing.
  ASSERT_TRUE(p.Press(IDC_LOAD));
  EXPECT_EQ(obj_->Params().GetString(P::kFileName), "");
  EXPECT_EQ(UndoSteps(), 0);

  User().fileAnswers.push_back(file);
  ASSERT_TRUE(p.Press(IDC_LOAD));
  EXPECT_EQ(obj_->Params().GetString(P::kFileName), file);
  EXPECT_EQ(UndoLabel(), "Set Filename");
  EXPECT_EQ(p.Control(IDC_FILE_NAME).text, "wall.kvc");
  EXPECT_EQ(p.Control(IDC_FILE_NAME).tooltip, file);
  EXPECT_EQ(p.Control(IDC_INFO_NODES).text, "3");
  EXPECT_EQ(p.Control(IDC_INFO_FRAMES).text, "11");
  EXPECT_EQ(p.Control(IDC_INFO_STEP).text, "160 ticks");
  EXPECT_EQ(p.Control(IDC_INFO_FRAME_RATE).text, "30 FPS");
  EXPECT_EQ(p.Control(IDC_INFO_FILE_SIZE).text, KelvaneTools::SizeText(fs::file_size(file)));
  EXPECT_FALSE(p.Control(IDC_INFO_MESH).text.empty());

  ASSERT_TRUE(p.Press(IDC_UNLOAD));
  EXPECT_EQ(obj_->Params().GetString(P::kFileName), "");
  EXPECT_EQ(UndoLabel(), "Unload Cache");
  EXPECT_EQ(p.Control(IDC_FILE_NAME).text, "<None>");
  EXPECT_EQ(p.Control(IDC_FILE_NAME).tooltip, "");
  for (int id : {IDC_INFO_FILE_SIZE, IDC_INFO_MESH, IDC_INFO_ANIMATION, IDC_INFO_FRAMES,
                 IDC_INFO_STEP, IDC_INFO_FRAME_RATE, IDC_INFO_NODES})
    EXPECT_EQ(p.Control(id).text, "") << id;

  // Undo brings the file back into the field.
  ASSERT_TRUE(scene_->Undo());
  EXPECT_EQ(p.Control(IDC_FILE_NAME).text, "wall.kvc");
}

TEST_F(PanelTest, UnitDropDownsSetTheScaleFromTheInchFactors) {
  Panel& p = Open();
  ParamBlock& pb = obj_->Params();
  ASSERT_TRUE(p.Choose(IDC_UNITS_FROM, 5));  // Meters
  EXPECT_EQ(p.Control(IDC_UNITS_FROM).items[5], "Meters");
  ASSERT_TRUE(p.Choose(IDC_UNITS_TO, 0));  // Inches
  EXPECT_NEAR(pb.GetFloat(P::kScaleUnits), 1.0 / 39.3701, 1e-7);
  p.Choose(IDC_UNITS_FROM, 0);
  p.Choose(IDC_UNITS_TO, 2);  // Miles, with its own factor
  EXPECT_FLOAT_EQ(pb.GetFloat(P::kScaleUnits), 160900.0f);
  EXPECT_EQ(p.Control(IDC_SCALE_EDIT).text, "160900");
}

TEST_F(PanelTest, RemoveEmptiesOrDeletesTheSelectedEntries) {
  Panel& p = Open();
  ParamBlock& pb = obj_->Params();
  auto fill = [&] {
    pb.SetCount(P::kNodes, 0);
    for (const char* n : {"A", "B", "C"}) pb.Append(P::kNodes, scene_->GetNodeByName(n));
    p.Refresh();
  };
  for (const char* n : {"A", "B", "C"}) Tri(n);
  fill();
  ASSERT_EQ(p.Control(IDC_REC_NODE_LIST).items, (std::vector<std::string>{"A", "B", "C"}));

  // Nothing selected, no Shift: nothing happens and no undo step opens.
  const int steps = UndoSteps();
  ASSERT_TRUE(p.Press(IDC_REC_REMOVE));
  EXPECT_EQ(pb.Count(P::kNodes), 3);
  EXPECT_EQ(UndoSteps(), steps);

  // Every entry selected: the whole list goes, under "Empty node list".
  p.Press(IDC_REC_ALL);
  p.Press(IDC_REC_REMOVE);
  EXPECT_EQ(pb.Count(P::kNodes), 0);
  EXPECT_EQ(UndoLabel(), "Empty node list");

  // Some selected: those go, from the highest down.
  fill();
  ASSERT_TRUE(p.SelectItems(IDC_REC_NODE_LIST, {0, 2}));
  p.Press(IDC_REC_REMOVE);
  ASSERT_EQ(pb.Count(P::kNodes), 1);
  EXPECT_EQ(pb.GetNode(P::kNodes, 0)->GetName(), "B");
  EXPECT_EQ(UndoLabel(), "Remove node(s)");
  EXPECT_FALSE(p.EditingList());
  ASSERT_TRUE(scene_->Undo());
  EXPECT_EQ(pb.Count(P::kNodes), 3);

  // Shift with nothing selected empties the list.
  fill();
  User().shiftDown = true;
  p.Press(IDC_REC_REMOVE);
  EXPECT_EQ(pb.Count(P::kNodes), 0);
  EXPECT_EQ(UndoLabel(), "Empty node list");
  // ... but not an empty one: no step.
  const int after = UndoSteps();
  p.Press(IDC_REC_REMOVE);
  EXPECT_EQ(UndoSteps(), after);
}

TEST_F(PanelTest, SelectionButtonsWorkTheListEntries) {
  Panel& p = Open();
  for (const char* n : {"A", "B", "C"}) obj_->Params().Append(P::kNodes, Tri(n));
  p.Refresh();
  p.SelectItems(IDC_REC_NODE_LIST, {1});
  p.Press(IDC_REC_INVERT);
  EXPECT_EQ(p.Control(IDC_REC_NODE_LIST).selected, (std::vector<bool>{true, false, true}));
  p.Press(IDC_REC_NONE);
  EXPECT_EQ(p.Control(IDC_REC_NODE_LIST).selected, (std::vector<bool>{false, false, false}));
  EXPECT_FALSE(p.SelectItems(IDC_REC_NODE_LIST, {3}));
}

TEST_F(PanelTest, RangeButtonTakesTheSceneRangeInWholeFrames) {
  scene_->SetAnimRange(Interval(10 * 160, 250 * 160 + 100));
  Panel& p = Open();
  ASSERT_TRUE(p.Press(IDC_REC_RANGE));
  EXPECT_EQ(obj_->Params().GetInt(P::kRecStart), 10);
  EXPECT_EQ(obj_->Params().GetInt(P::kRecEnd), 250);
  EXPECT_EQ(UndoLabel(), "Set Record Range");
  EXPECT_EQ(p.Control(IDC_REC_END_EDIT).text, "250");
  // One step: undo restores both ends.
  ASSERT_TRUE(scene_->Undo());
  EXPECT_EQ(obj_->Params().GetInt(P::kRecStart), 0);
  EXPECT_EQ(obj_->Params().GetInt(P::kRecEnd), 10);
}

TEST_F(PanelTest, RangeSpinnersPushEachOtherAndComeBack) {
  Panel& p = Open();
  ParamBlock& pb = obj_->Params();
  ASSERT_EQ(pb.GetInt(P::kRecEnd), 10);
  // Dragging the start past the end pushes the end along.
  p.Type(IDC_REC_START_SPIN, 5);
  EXPECT_EQ(p.RangeMark(), 1);
  EXPECT_EQ(p.RangeOther(), 10);
  p.Type(IDC_REC_START_SPIN, 14);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 14);
  EXPECT_EQ(p.RangeOther(), 10);  // still the value from before the drag
  // Coming back, the end follows down to where it was, and no further.
  p.Type(IDC_REC_START_SPIN, 12);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 12);
  p.Type(IDC_REC_START_SPIN, 3);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 10);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 3);
  EXPECT_EQ(p.Control(IDC_REC_END_EDIT).text, "10");

  // The end dragged below the start pushes the start down, and back.
  p.Type(IDC_REC_END_SPIN, -2);
  EXPECT_EQ(p.RangeMark(), 2);
  EXPECT_EQ(p.RangeOther(), 3);
  EXPECT_EQ(pb.GetInt(P::kRecStart), -2);
  p.Type(IDC_REC_END_SPIN, 8);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 3);
  // Any other command clears the mark.
  p.Press(IDC_REC_ALL);
  EXPECT_EQ(p.RangeMark(), 0);

  // A typed value pushes too, but never brings the pushed end back.
  p.Type(IDC_REC_START_EDIT, 20);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 20);
  p.Type(IDC_REC_START_EDIT, 4);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 20);
  EXPECT_EQ(p.RangeMark(), 0);

  // The explode range pair behaves the same under its spinners.
  p.SetRolloutOpen(P::kMapExplode, true);
  p.Type(IDC_EXP_END_SPIN, 30);
  p.Type(IDC_EXP_START_SPIN, 40);
  EXPECT_EQ(pb.GetInt(P::kExplodeEnd), 40);
  p.Type(IDC_EXP_START_SPIN, 0);
  EXPECT_EQ(pb.GetInt(P::kExplodeEnd), 30);
}

TEST_F(PanelTest, StatusFieldFillsWithProgress) {
  Panel& p = Open();
  EXPECT_EQ(p.ProgressFill(200), -1);
  p.Object().SetProgress(25, 100);
  EXPECT_EQ(p.ProgressFill(200), 50);
  p.Object().SetProgress(3, -1);
  EXPECT_EQ(p.ProgressFill(200), -1);
  p.Object().SetProgress(0, 0);
  EXPECT_EQ(p.ProgressFill(200), 0);
}

TEST_F(PanelTest, InitialRefreshDecoratesTheButtons) {
  Panel& p = Open();
  EXPECT_EQ(p.Control(IDC_RELOAD_MATERIAL).image, 4);
  EXPECT_EQ(p.Control(IDC_NEW).image, 0);
  EXPECT_TRUE(p.Control(IDC_REC_PICK).highlight);
  EXPECT_TRUE(p.Control(IDC_GROUP_ENABLED).highlight);
  EXPECT_EQ(p.Control(IDC_REC_RANGE).tooltip, "Set to current time range");
  EXPECT_EQ(p.Control(IDC_EXP_RANGE).tooltip, "Set to current time range");
  EXPECT_EQ(p.Control(IDC_UNLOAD).tooltip, "Unload the current cache file");
  // Closing the panel unhooks it from the object.
  panel_.reset();
  obj_->Params().SetInt(P::kTriggerMode, 0, 2);
  EXPECT_FALSE(static_cast<bool>(obj_->onRefresh));
}

TEST_F(PanelTest, ServicesRunFromTheirButtonsWithShift) {
  int recorded = 0, exploded = 0;
  std::vector<bool> materialAll;
  PanelServices s;
  s.record = [&](kvCache_obj&) { ++recorded; };
  s.explode = [&](kvCache_obj&) { ++exploded; };
  s.reloadMaterial = [&](kvCache_obj&, bool all) {
    materialAll.push_back(all);
    return true;
  };
  Panel& p = Open(s);
  p.Press(IDC_REC_RECORD);
  p.Press(IDC_EXP_EXPLODE);
  p.Press(IDC_RELOAD_MATERIAL);
  User().shiftDown = true;
  p.Press(IDC_RELOAD_MATERIAL);
  EXPECT_EQ(recorded, 1);
  EXPECT_EQ(exploded, 1);
  EXPECT_EQ(materialAll, (std::vector<bool>{false, true}));
  EXPECT_GE(scene_->RedrawCount(), 2);
  // Without an explode service the button cannot be pressed.
  panel_.reset();
  Panel& bare = Open();
  EXPECT_FALSE(bare.Control(IDC_EXP_EXPLODE).enabled);
}

}  // namespace
}  // namespace kv::ui::testing

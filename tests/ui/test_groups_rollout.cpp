// The Per-Element Control rollout: the group list, each edit one undo step, the element list
// dialog behind the element buttons, and the mode-dependent controls.
#include "object/params.h"
#include "panel_fixture.h"
#include "res/control_ids.h"

namespace kv::ui::testing {
namespace {

namespace P = param;
using namespace kv::res;

class GroupsRollout : public PanelTest {
 protected:
  void AddGroup(Panel& p, const std::string& name) {
    obj_->askGroupName = [name](std::string& n) {
      n = name;
      return true;
    };
    ASSERT_TRUE(p.Press(IDC_GROUP_ADD));
  }
};

TEST_F(GroupsRollout, GroupControlsWaitForASelectedGroup) {
  Panel& p = Open();
  for (int id :
       {IDC_GROUP_REMOVE, IDC_GROUP_RENAME, IDC_GROUP_UP, IDC_GROUP_DOWN, IDC_GROUP_ENABLED,
        IDC_GROUP_MODE, IDC_GROUP_TRIGGER, IDC_GROUP_SET_ELEMENTS, IDC_GROUP_MAKE_UNIQUE})
    EXPECT_FALSE(p.Control(id).enabled) << id;
  EXPECT_TRUE(p.Control(IDC_GROUP_ADD).enabled);
  // A cancelled name dialog adds nothing.
  obj_->askGroupName = [](std::string&) { return false; };
  p.Press(IDC_GROUP_ADD);
  EXPECT_EQ(obj_->Groups().count(), 0);
  EXPECT_EQ(UndoSteps(), 0);

  AddGroup(p, "Debris");
  EXPECT_EQ(UndoLabel(), "Add Group");
  EXPECT_EQ(p.Control(IDC_GROUP_LIST).items, (std::vector<std::string>{"Debris"}));
  EXPECT_EQ(p.Control(IDC_GROUP_LIST).selected, (std::vector<bool>{true}));
  EXPECT_TRUE(p.Control(IDC_GROUP_REMOVE).enabled);
  EXPECT_FALSE(p.Control(IDC_GROUP_UP).enabled);
  EXPECT_FALSE(p.Control(IDC_GROUP_DOWN).enabled);
  EXPECT_EQ(p.Control(IDC_GROUP_MODE).items[p.Control(IDC_GROUP_MODE).current], "Hold In");
  EXPECT_TRUE(p.Control(IDC_GROUP_ENABLED).checked);

  AddGroup(p, "Dust");
  EXPECT_TRUE(p.Control(IDC_GROUP_UP).enabled);
  EXPECT_FALSE(p.Control(IDC_GROUP_DOWN).enabled);
  p.Press(IDC_GROUP_UP);
  EXPECT_EQ(UndoLabel(), "Move Group");
  EXPECT_EQ(p.Control(IDC_GROUP_LIST).items, (std::vector<std::string>{"Dust", "Debris"}));
  ASSERT_TRUE(p.SelectItems(IDC_GROUP_LIST, {1}));
  EXPECT_EQ(obj_->Groups().getSelected(), 1);
  EXPECT_EQ(UndoLabel(), "Select Group");
  p.Press(IDC_GROUP_ENABLED);
  EXPECT_EQ(UndoLabel(), "Toggle Group");
  EXPECT_FALSE(obj_->Groups().at(1).enabled);
  EXPECT_FALSE(p.Control(IDC_GROUP_ENABLED).checked);
  p.Press(IDC_GROUP_REMOVE);
  EXPECT_EQ(UndoLabel(), "Remove Group");
  EXPECT_EQ(p.Control(IDC_GROUP_LIST).items, (std::vector<std::string>{"Dust"}));
  // Undo shows the group again.
  ASSERT_TRUE(scene_->Undo());
  EXPECT_EQ(p.Control(IDC_GROUP_LIST).items.size(), 2u);
}

TEST_F(GroupsRollout, ModeSettingsAreEnabledOnlyInTheirMode) {
  Panel& p = Open();
  AddGroup(p, "G");
  auto on = [&](int id) { return p.Control(id).enabled; };
  ASSERT_TRUE(p.Choose(IDC_GROUP_MODE, 3));  // Offset
  EXPECT_EQ(UndoLabel(), "Group Mode");
  EXPECT_TRUE(on(IDC_GROUP_OFFSET_SPIN));
  EXPECT_FALSE(on(IDC_GROUP_FRAME_SPIN));
  EXPECT_FALSE(on(IDC_GROUP_MATID_SPIN));
  EXPECT_FALSE(on(IDC_GROUP_BY_AGE));
  ASSERT_TRUE(p.Type(IDC_GROUP_OFFSET_EDIT, 12));
  EXPECT_FLOAT_EQ(obj_->Groups().at(0).delay, 12.0f);
  EXPECT_EQ(UndoLabel(), "Group Offset");

  p.Choose(IDC_GROUP_MODE, 5);  // Set Material ID, shown one-based
  EXPECT_FALSE(on(IDC_GROUP_OFFSET_SPIN));
  EXPECT_TRUE(on(IDC_GROUP_MATID_SPIN));
  EXPECT_DOUBLE_EQ(p.Control(IDC_GROUP_MATID_SPIN).value, 1.0);
  p.Type(IDC_GROUP_MATID_SPIN, 7);
  EXPECT_EQ(obj_->Groups().at(0).matIndex, 6);
  EXPECT_EQ(UndoLabel(), "Group MatID");

  p.Choose(IDC_GROUP_MODE, 4);  // Set Frame: the group's elementFrames entry
  EXPECT_TRUE(on(IDC_GROUP_FRAME_SPIN));
  p.Type(IDC_GROUP_FRAME_SPIN, 42);
  EXPECT_FLOAT_EQ(obj_->Params().GetListFloat(P::kElementFrames, 0, 0), 42.0f);

  p.Choose(IDC_GROUP_MODE, 0);  // Delete: by age and by distance, each with its value
  EXPECT_TRUE(on(IDC_GROUP_BY_AGE));
  EXPECT_FALSE(on(IDC_GROUP_AGE_SPIN));
  p.Press(IDC_GROUP_BY_AGE);
  EXPECT_EQ(UndoLabel(), "Group By Age");
  EXPECT_TRUE(on(IDC_GROUP_AGE_SPIN));
  EXPECT_FALSE(on(IDC_GROUP_DISTANCE_SPIN));
  p.Press(IDC_GROUP_BY_DISTANCE);
  EXPECT_TRUE(on(IDC_GROUP_DISTANCE_SPIN));
  p.Type(IDC_GROUP_DISTANCE_SPIN, 2.5);
  EXPECT_FLOAT_EQ(obj_->Groups().at(0).deleteDistance, 2.5f);
  EXPECT_EQ(UndoLabel(), "Group Distance");
}

TEST_F(GroupsRollout, RespectActivationSwitchesTheGroupTriggerInTriggerModes) {
  Panel& p = Open();
  AddGroup(p, "G");
  EXPECT_EQ(p.Control(IDC_GROUP_TRIGGER).text, "Respect Activation");
  EXPECT_TRUE(p.Control(IDC_GROUP_TRIGGER).checked);
  EXPECT_FALSE(p.Control(IDC_GROUP_TRIGGER).enabled);
  p.Press(IDC_TRIGGER_GIZMO);
  ASSERT_TRUE(p.Press(IDC_GROUP_TRIGGER));
  EXPECT_EQ(obj_->Groups().at(0).trigger, 0);
  EXPECT_FALSE(p.Control(IDC_GROUP_TRIGGER).checked);
  EXPECT_EQ(UndoLabel(), "Toggle Group Trigger");
}

TEST_F(GroupsRollout, ElementButtonsChooseThroughTheElementListDialog) {
  const std::string file = Record("walls.kvc", {"wallA", "Roof", "WALLB", "floor"});
  obj_->Params().SetString(P::kFileName, file);
  scene_->UndoHistory().Clear();
  Panel& p = Open();
  AddGroup(p, "Walls");

  // Cancelled: nothing changes.
  ASSERT_TRUE(p.Press(IDC_GROUP_SET_ELEMENTS));
  EXPECT_TRUE(obj_->Groups().at(0).elements().empty());
  EXPECT_EQ(UndoLabel(), "Add Group");

  std::vector<std::string> shown;
  User().dialogActions.push_back([&](host::ModalDialog& m) {
    auto& d = dynamic_cast<ElementListDialog&>(m);
    shown = {d.Title(), d.Label()};
    d.SetFilter("wall*");
    d.All();
    return d.Ok();
  });
  p.Press(IDC_GROUP_SET_ELEMENTS);
  EXPECT_EQ(shown, (std::vector<std::string>{"Select elements by name", "Walls"}));
  EXPECT_EQ(obj_->Groups().at(0).elements(), (std::vector<int32_t>{0, 2}));
  EXPECT_EQ(UndoLabel(), "Group Nodes");

  // Set opens with the group's elements selected; Remove takes the chosen ones out.
  std::vector<int> preselected;
  User().dialogActions.push_back([&](host::ModalDialog& m) {
    auto& d = dynamic_cast<ElementListDialog&>(m);
    preselected = d.SelectedRows();
    return d.Cancel();
  });
  p.Press(IDC_GROUP_SET_ELEMENTS);
  EXPECT_EQ(preselected, (std::vector<int>{0, 2}));
  User().dialogActions.push_back([](host::ModalDialog& m) {
    auto& d = dynamic_cast<ElementListDialog&>(m);
    d.SelectRows({2});
    return d.Ok();
  });
  p.Press(IDC_GROUP_REMOVE_ELEMENTS);
  EXPECT_EQ(obj_->Groups().at(0).elements(), (std::vector<int32_t>{0}));
  EXPECT_EQ(UndoLabel(), "Remove Group Nodes");
  p.Press(IDC_GROUP_SELECT_ELEMENTS);
  EXPECT_EQ(UndoLabel(), "Select Group Nodes");
  EXPECT_EQ(obj_->ElementSelection(), (std::vector<int32_t>{0}));
}

}  // namespace
}  // namespace kv::ui::testing

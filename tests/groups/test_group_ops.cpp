#include <gtest/gtest.h>

#include <deque>
#include <functional>

#include "groups/fake_host.h"
#include "groups/group_ops.h"

namespace kv {
namespace {

using test::FakeInterface;

// A cache object reduced to what the group operations use; elementFrames is a plain list
// whose changes are recorded like the parameter block records them.
class FakeOwner : public GroupOwner {
 public:
  explicit FakeOwner(FakeInterface& ip) : ip_(ip) {}
  ElementGroupList& Groups() override { return groups; }
  host::Interface& Host() override { return ip_; }
  void MarkModified() override { ++modified; }
  void RefreshGroupsUI() override { ++refreshes; }
  void InvalidateAndNotify() override { ++invalidations; }
  void ResizeElementFrames(int32_t n) override {
    PutFrames();
    frames.resize(n, 0.0f);
  }
  void DeleteElementFrame(int32_t i) override {
    PutFrames();
    frames.erase(frames.begin() + i);
  }
  std::vector<int32_t> ElementSelection() const override { return selection; }
  void SetElementSelection(const std::vector<int32_t>& s) override {
    struct R : host::RestoreObj {
      FakeOwner* o;
      std::vector<int32_t> undo, redo;
      void Restore(bool) override { redo = o->selection, o->selection = undo; }
      void Redo() override { o->selection = redo; }
      int Size() const override { return 0; }
    };
    auto r = std::make_unique<R>();
    r->o = this;
    r->undo = selection;
    ip_.hold.Put(std::move(r));
    selection = s;
  }
  bool AskGroupName(std::string& name) override {
    asked.push_back(name);
    if (answers.empty()) return false;
    name = answers.front();
    answers.pop_front();
    return true;
  }

  ElementGroupList groups;
  std::vector<float> frames;
  std::vector<int32_t> selection;
  std::deque<std::string> answers;
  std::vector<std::string> asked;
  int modified = 0, refreshes = 0, invalidations = 0;

 private:
  void PutFrames() {
    struct R : host::RestoreObj {
      FakeOwner* o;
      std::vector<float> undo, redo;
      void Restore(bool) override { redo = o->frames, o->frames = undo; }
      void Redo() override { o->frames = redo; }
      int Size() const override { return 0; }
    };
    auto r = std::make_unique<R>();
    r->o = this;
    r->undo = frames;
    ip_.hold.Put(std::move(r));
  }
  FakeInterface& ip_;
};

class GroupOps : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(AddGroup(o, "A", false, false));
    ASSERT_TRUE(AddGroup(o, "B", false, false));
    ASSERT_TRUE(AddGroup(o, "C", false, false));
    o.groups.setElements("A", std::vector<int32_t>{1, 2}, false);
    o.groups.setElements("B", std::vector<int32_t>{2, 3}, false);
    o.groups.setSelected(1);
    o.frames = {10, 20, 30};
  }
  // Runs an edit that must make exactly one undo step with `label`, then checks that undo puts
  // back the exact list (selection included) and frames, and redo the edited ones.
  void ExpectUndoable(const std::string& label, const std::function<bool()>& edit) {
    const ElementGroupList before = o.groups;
    const std::vector<float> framesBefore = o.frames;
    const size_t steps = ip.hold.Steps();
    ASSERT_TRUE(edit()) << label;
    ASSERT_EQ(ip.hold.Steps(), steps + 1) << label;
    EXPECT_EQ(ip.hold.LastLabel(), label);
    EXPECT_FALSE(ip.hold.Holding());
    const ElementGroupList after = o.groups;
    const std::vector<float> framesAfter = o.frames;
    ASSERT_TRUE(ip.hold.Undo());
    EXPECT_EQ(o.groups, before) << label;
    EXPECT_EQ(o.groups.getSelected(), before.getSelected()) << label;
    EXPECT_EQ(o.frames, framesBefore) << label;
    ASSERT_TRUE(ip.hold.Redo());
    EXPECT_EQ(o.groups, after) << label;
    EXPECT_EQ(o.groups.getSelected(), after.getSelected()) << label;
    EXPECT_EQ(o.frames, framesAfter) << label;
  }
  void ExpectRefusedWithoutTrace(const std::function<bool()>& edit) {
    const ElementGroupList before = o.groups;
    const size_t steps = ip.hold.Steps();
    EXPECT_FALSE(edit());
    EXPECT_EQ(o.groups, before);
    EXPECT_EQ(ip.hold.Steps(), steps);
    EXPECT_FALSE(ip.hold.Holding());
  }

  FakeInterface ip;
  FakeOwner o{ip};
};

TEST_F(GroupOps, EveryEditIsOneUndoStepThatUndoesAndRedoesExactly) {
  const std::vector<int32_t> set = {3, 9};
  ExpectUndoable("Add Group", [&] { return AddGroup(o, "D", false, false); });
  EXPECT_EQ(o.frames.size(), 4u);
  ExpectUndoable("Remove Group", [&] { return DeleteGroup(o, "A"); });
  EXPECT_EQ(o.frames, (std::vector<float>{20, 30, 0}));
  ExpectUndoable("Rename Group", [&] { return RenameGroup(o, "B", "Bricks 02"); });
  EXPECT_EQ(o.groups.at(0).key(), "Bricks02");
  ExpectUndoable("Move Group", [&] { return MoveGroup(o, "C", -1); });
  ExpectUndoable("Group Mode", [&] { return SetGroupMode(o, "C", 5); });
  ExpectUndoable("Toggle Group", [&] { return SetGroupEnabled(o, "C", false); });
  ExpectUndoable("Toggle Group Trigger", [&] { return SetGroupTrigger(o, "C", false); });
  ExpectUndoable("Group Offset", [&] { return SetGroupDelay(o, "C", 4.5f); });
  ExpectUndoable("Group By Age", [&] { return SetGroupDeleteByAge(o, "C", true); });
  ExpectUndoable("Group Age", [&] { return SetGroupDeleteAge(o, "C", 12.0f); });
  ExpectUndoable("Group By Distance", [&] { return SetGroupDeleteByDistance(o, "C", true); });
  ExpectUndoable("Group Distance", [&] { return SetGroupDeleteDistance(o, "C", 50.0f); });
  ExpectUndoable("Group MatID", [&] { return SetGroupMatIndex(o, "C", 6); });
  ExpectUndoable("Group Nodes", [&] { return SetGroupElements(o, "C", set); });
  ExpectUndoable("Group Nodes", [&] { return AddGroupElements(o, "C", std::vector<int32_t>{2}); });
  ExpectUndoable("Group Nodes", [&] { return MakeGroupElementsUnique(o, "C"); });
  ExpectUndoable("Remove Group Nodes", [&] { return RemoveGroupElements(o, "C", set); });
  ExpectUndoable("Select Group", [&] { return SetSelectedGroup(o, "C"); });
  ExpectUndoable("Remove All Groups", [&] { return DeleteAllGroups(o); });
  EXPECT_EQ(o.groups.getSelected(), -1);
  EXPECT_TRUE(o.frames.empty());
  EXPECT_GT(o.invalidations, 0);
  EXPECT_GT(o.modified, 0);
}

TEST_F(GroupOps, SettingsReachTheNamedGroup) {
  SetGroupMode(o, "B", 0);
  SetGroupMatIndex(o, "B", 98);
  SetGroupDelay(o, "B", -2.0f);
  const ElementGroup& b = o.groups.at(1);
  EXPECT_EQ(b.mode, 0u);
  EXPECT_EQ(b.matIndex, 98);
  EXPECT_FLOAT_EQ(b.delay, -2.0f);
  EXPECT_EQ(o.groups.at(0).mode, uint32_t(GroupMode::HoldIn));

  AddGroupElements(o, "C", std::vector<int32_t>{2, 7});
  EXPECT_EQ(o.groups.at(1).elements(), (std::vector<int32_t>{2, 3}));  // not exclusive
  MakeGroupElementsUnique(o, "C");
  EXPECT_EQ(o.groups.at(0).elements(), (std::vector<int32_t>{1}));
  EXPECT_EQ(o.groups.at(1).elements(), (std::vector<int32_t>{3}));
  EXPECT_EQ(o.groups.at(2).elements(), (std::vector<int32_t>{2, 7}));

  ASSERT_TRUE(SelectGroupElements(o, "C"));
  EXPECT_EQ(o.selection, (std::vector<int32_t>{2, 7}));
  EXPECT_EQ(ip.hold.LastLabel(), "Select Group Nodes");
  ip.hold.Undo();
  EXPECT_TRUE(o.selection.empty());
}

TEST_F(GroupOps, RefusalsChangeNothingAndLeaveNoUndoStep) {
  ExpectRefusedWithoutTrace([&] { return AddGroup(o, "A", false, false); });
  ExpectRefusedWithoutTrace([&] { return DeleteGroup(o, "Z"); });
  ExpectRefusedWithoutTrace([&] { return RenameGroup(o, "A", "B"); });
  ExpectRefusedWithoutTrace([&] { return RenameGroup(o, "Z", "Y"); });
  ExpectRefusedWithoutTrace([&] { return MoveGroup(o, "A", 0); });
  ExpectRefusedWithoutTrace([&] { return SetSelectedGroup(o, "B"); });  // already selected
  ExpectRefusedWithoutTrace([&] { return SetSelectedGroup(o, "Z"); });
  ExpectRefusedWithoutTrace([&] { return SetGroupMode(o, "A", 6); });
  ExpectRefusedWithoutTrace([&] { return SetGroupDelay(o, "Z", 1.0f); });
  ExpectRefusedWithoutTrace([&] {
    return RemoveGroupElements(o, "A", std::vector<int32_t>{3, 4});
  });
  ExpectRefusedWithoutTrace([&] { return SelectGroupElements(o, "Z"); });

  // No-ops that succeed without an undo step.
  const size_t steps = ip.hold.Steps();
  EXPECT_TRUE(RenameGroup(o, "A", "A"));
  EXPECT_TRUE(MoveGroup(o, "A", -1));
  EXPECT_TRUE(MoveGroup(o, "C", 1));
  EXPECT_EQ(ip.hold.Steps(), steps);

  // Inside an edit the caller already holds, nothing is accepted or cancelled on its behalf.
  ip.hold.Begin();
  EXPECT_TRUE(SetGroupEnabled(o, "A", false));
  EXPECT_TRUE(ip.hold.Holding());
  ip.hold.Accept("outer");
  EXPECT_EQ(ip.hold.LastLabel(), "outer");
}

TEST_F(GroupOps, MovingKeepsTheSelectionOnItsGroupAndFramesInPlace) {
  ASSERT_TRUE(MoveGroup(o, "B", 1));
  EXPECT_EQ(o.groups.at(2).name(), "B");
  EXPECT_EQ(o.groups.getSelected(), 2);
  EXPECT_EQ(o.frames, (std::vector<float>{10, 20, 30}));
  ASSERT_TRUE(MoveGroup(o, "C", -5));  // any negative direction is one step up
  EXPECT_EQ(o.groups.at(0).name(), "C");
  ASSERT_TRUE(DeleteGroup(o, "C"));  // before the selected group: the index follows
  EXPECT_EQ(o.groups.at(o.groups.getSelected()).name(), "B");
}

TEST_F(GroupOps, AddingWithoutANameAsksOrTakesTheNextFreeName) {
  o.selection = {4, 5};
  o.answers = {"", "A", "Rocks"};  // empty and taken answers ask again
  ASSERT_TRUE(AddGroup(o, "", true, true));
  EXPECT_EQ(o.asked, (std::vector<std::string>{"Group001", "", "A"}));
  EXPECT_EQ(o.groups.at(3).name(), "Rocks");
  EXPECT_EQ(o.groups.at(3).elements(), (std::vector<int32_t>{4, 5}));
  EXPECT_EQ(o.groups.getSelected(), 3);

  ExpectRefusedWithoutTrace([&] { return AddGroup(o, "", false, true); });  // cancelled
  ExpectRefusedWithoutTrace([&] { return RenameGroup(o, "A", ""); });       // cancelled

  // The script path: the next free name, and the selection goes nowhere.
  ASSERT_TRUE(AddGroup(o, "", false, false));
  EXPECT_EQ(o.groups.at(4).name(), "Group001");
  EXPECT_TRUE(o.groups.at(4).elements().empty());
  ASSERT_TRUE(AddGroup(o, "", false, false));
  EXPECT_EQ(o.groups.at(5).name(), "Group002");
  ASSERT_TRUE(AddGroup(o, "Sel", true, false));
  EXPECT_EQ(o.groups.at(6).elements(), (std::vector<int32_t>{4, 5}));
  EXPECT_EQ(o.frames.size(), 7u);

  o.answers = {"Renamed"};
  ASSERT_TRUE(RenameGroup(o, "A", ""));
  EXPECT_EQ(o.asked.back(), "A");
  EXPECT_EQ(o.groups.at(0).name(), "Renamed");
}

}  // namespace
}  // namespace kv

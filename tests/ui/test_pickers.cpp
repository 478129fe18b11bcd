// The pickers and dialogs the rollouts open, answered by the standalone host's user.
#include <fstream>

#include "object/params.h"
#include "panel_fixture.h"
#include "res/control_ids.h"

namespace kv::ui::testing {
namespace {

namespace P = param;
using namespace kv::res;
using Shown = standalone::Responder::Shown;

TEST(MatchPattern, WildcardsIgnoreLetterCase) {
  EXPECT_TRUE(MatchPattern("Wall_01", "wall*"));
  EXPECT_TRUE(MatchPattern("WALL", "wall*"));
  EXPECT_FALSE(MatchPattern("xwall", "wall*"));
  EXPECT_TRUE(MatchPattern("brick12", "brick??"));
  EXPECT_FALSE(MatchPattern("brick1", "brick??"));
  EXPECT_TRUE(MatchPattern("a_b_c", "*b*c"));
  EXPECT_FALSE(MatchPattern("a_b_cd", "*b*c"));
  EXPECT_TRUE(MatchPattern("", "*"));
  EXPECT_FALSE(MatchPattern("", "?"));
}

TEST(ProposeCacheFileName, KeepsOnlyLettersAndDigits) {
  EXPECT_EQ(ProposeCacheFileName("Box 01/a"), "Box_01_a.kvc");
  EXPECT_EQ(ProposeCacheFileName("KV Cache"), "KV_Cache.kvc");
  EXPECT_EQ(ProposeCacheFileName("Caf\xc3\xa9"), "Caf__.kvc");  // each byte of a non-ASCII letter
}

TEST_F(PanelTest, PickAddsEachAcceptedNodeOnceAndEndsOnEmptySpace) {
  Panel& p = Open();
  Tri("A");
  Tri("B");
  scene_->CreatePointHelperNode("Helper");
  // A twice (the second is refused), the helper (no mesh), the cache's own node (a loop), B,
  // then a click on empty space; the last click never comes.
  User().picks = {"A", "A", "Helper", "KV Cache", "B", "", "A"};
  ASSERT_TRUE(p.Press(IDC_REC_PICK));
  const ParamBlock& pb = obj_->Params();
  ASSERT_EQ(pb.Count(P::kNodes), 2);
  EXPECT_EQ(pb.GetNode(P::kNodes, 0)->GetName(), "A");
  EXPECT_EQ(pb.GetNode(P::kNodes, 1)->GetName(), "B");
  EXPECT_EQ(UndoSteps(), 2);  // one step per pick
  EXPECT_EQ(UndoLabel(), "Add node");
  EXPECT_EQ(User().picks.size(), 1u);
  EXPECT_FALSE(p.Control(IDC_REC_PICK).checked);
  EXPECT_TRUE(User().prompts.empty());
  EXPECT_EQ(p.Control(IDC_REC_NODE_LIST).items, (std::vector<std::string>{"A", "B"}));
}

TEST_F(PanelTest, PickModePressesTheButtonAndPromptsWhileOn) {
  kvCachePick pick(*scene_, *obj_);
  std::vector<bool> button;
  pick.onButton = [&](bool on) { button.push_back(on); };
  pick.EnterMode();
  EXPECT_EQ(User().prompts, (std::vector<std::string>{"Select objects to add"}));
  EXPECT_TRUE(pick.Pick(nullptr));
  EXPECT_EQ(UndoSteps(), 0);
  pick.ExitMode();
  EXPECT_TRUE(User().prompts.empty());
  EXPECT_EQ(button, (std::vector<bool>{true, false}));
  EXPECT_FALSE(pick.Filter(nullptr));
}

TEST_F(PanelTest, AddByNameOffersOnlyAcceptableNodesAsOneStep) {
  Panel& p = Open();
  obj_->Params().Append(P::kNodes, Tri("A"));
  Tri("B");
  Tri("C");
  Tri("Hidden")->Hide(true);
  scene_->UndoHistory().Clear();

  // Cancelled: nothing.
  ASSERT_TRUE(p.Press(IDC_REC_ADD));
  EXPECT_EQ(UndoSteps(), 0);
  ASSERT_FALSE(User().log.empty());
  EXPECT_EQ(User().log.back().what, Shown::What::ByName);
  EXPECT_EQ(User().log.back().title, "Select objects to add");
  EXPECT_EQ(User().log.back().text, "Add");

  User().byNameAnswers.push_back(std::vector<std::string>{"C", "A", "Hidden", "B", "C"});
  p.Press(IDC_REC_ADD);
  const ParamBlock& pb = obj_->Params();
  ASSERT_EQ(pb.Count(P::kNodes), 3);
  EXPECT_EQ(pb.GetNode(P::kNodes, 1)->GetName(), "C");
  EXPECT_EQ(pb.GetNode(P::kNodes, 2)->GetName(), "B");
  EXPECT_EQ(UndoSteps(), 1);
  EXPECT_EQ(UndoLabel(), "Select Multiple");
  EXPECT_EQ(p.Control(IDC_REC_NODE_LIST).items.size(), 3u);
  ASSERT_TRUE(scene_->Undo());
  EXPECT_EQ(pb.Count(P::kNodes), 1);
}

TEST_F(PanelTest, AddWithShiftTakesTheSceneSelectionThatPasses) {
  Panel& p = Open();
  Tri("A")->SetSelected(true);
  Tri("B");
  scene_->CreatePointHelperNode("Helper")->SetSelected(true);
  scene_->GetNodeByName("KV Cache")->SetSelected(true);
  scene_->UndoHistory().Clear();
  User().shiftDown = true;
  p.Press(IDC_REC_ADD);
  const ParamBlock& pb = obj_->Params();
  ASSERT_EQ(pb.Count(P::kNodes), 1);
  EXPECT_EQ(pb.GetNode(P::kNodes, 0)->GetName(), "A");
  EXPECT_EQ(UndoLabel(), "Select Multiple");
  // The dialog was not shown.
  for (const Shown& s : User().log) EXPECT_NE(s.what, Shown::What::ByName);
}

TEST_F(PanelTest, SelectByNameGathersEachNodeOnce) {
  kvCacheSelByName cb("t", "b", nullptr, nullptr, *obj_);
  host::Node* a = Tri("A");
  host::Node* b = Tri("B");
  cb.proc({a, b});
  cb.proc({b, a});
  EXPECT_EQ(cb.Chosen(), (std::vector<host::Node*>{a, b}));
  EXPECT_FALSE(cb.Busy());
  EXPECT_FALSE(cb.filter(a));  // no filter function: nothing offered
}

TEST_F(PanelTest, SaveDialogProposesANameAndReplacesOnlyAfterYes) {
  const std::string existing = (dir_ / "Box_01_a.kvc").string();
  std::ofstream(existing) << "old";
  // No asks again; Yes deletes the old file at that moment.
  User().fileAnswers = {existing, existing};
  User().msgBoxAnswers = {host::MsgBoxResult::No, host::MsgBoxResult::Yes};
  std::string asset;
  ASSERT_TRUE(SaveCacheFileDialog(*scene_, asset, "Box 01/a", true));
  EXPECT_EQ(asset, existing);
  EXPECT_FALSE(fs::exists(existing));
  ASSERT_EQ(User().log.size(), 4u);
  EXPECT_EQ(User().log[0].what, Shown::What::SaveDialog);
  EXPECT_EQ(User().log[0].title, "Specify Cache File");
  EXPECT_EQ(User().log[0].text, "Box_01_a.kvc");
  EXPECT_EQ(User().log[1].title, "Save Cache");
  EXPECT_EQ(User().log[1].text, "Box_01_a.kvc already exists.\nDo you wish to replace it?");
  EXPECT_EQ(User().log[1].kind, host::MsgBoxKind::Question);
  EXPECT_EQ(User().log[2].what, Shown::What::SaveDialog);
  EXPECT_EQ(LastCacheDirectory(), dir_.string());

  // No, then Cancel: false, and the file stays.
  std::ofstream(existing) << "old";
  User().fileAnswers = {existing, std::nullopt};
  User().msgBoxAnswers = {host::MsgBoxResult::No};
  std::string other = "keep";
  EXPECT_FALSE(SaveCacheFileDialog(*scene_, other, "x", true));
  EXPECT_EQ(other, "keep");
  EXPECT_TRUE(fs::exists(existing));
}

TEST_F(PanelTest, OpenDialogShowsTheCacheFilter) {
  std::string chosen = "unchanged";
  EXPECT_FALSE(OpenCacheFileDialog(*scene_, "", chosen));
  EXPECT_EQ(chosen, "unchanged");
  ASSERT_EQ(User().log.size(), 1u);
  EXPECT_EQ(User().log[0].title, "Select Cache File");
  EXPECT_EQ(User().log[0].text, "Kelvane Cache Files (*.kvc)");
}

// ---- element list dialog

ElementListDialog Walls(std::vector<int32_t> selected) {
  return ElementListDialog({"Wall_01", "wallB", "Roof", "WALL-c", "Floor"},
                           "Select elements by name", "Debris", selected);
}

TEST(ElementListDialog, FilterListsMatchingNamesAndKeepsTheSelection) {
  ElementListDialog d = Walls({1, 2});
  d.Open();
  EXPECT_EQ(d.Items().size(), 5u);
  EXPECT_EQ(d.SelectedRows(), (std::vector<int>{1, 2}));
  d.SetFilter("wall*");
  EXPECT_EQ(d.Items(), (std::vector<std::string>{"Wall_01", "wallB", "WALL-c"}));
  EXPECT_EQ(d.RowElements(), (std::vector<int32_t>{0, 1, 3}));
  EXPECT_EQ(d.SelectedRows(), (std::vector<int>{1}));
  EXPECT_EQ(d.Result(), (std::vector<int32_t>{1}));  // only what is listed is chosen
  // The same names again: the list is not rebuilt, the selection stays.
  const int refills = d.Refills();
  d.SetFilter("WALL*");
  EXPECT_EQ(d.Refills(), refills);
  EXPECT_EQ(d.SelectedRows(), (std::vector<int>{1}));
  // The buttons work the listed rows only.
  d.Invert();
  EXPECT_EQ(d.Result(), (std::vector<int32_t>{0, 3}));
  d.All();
  EXPECT_EQ(d.Result(), (std::vector<int32_t>{0, 1, 3}));
  d.None();
  EXPECT_TRUE(d.Result().empty());
  // An empty filter shows everything; the hidden selection came through.
  d.SetFilter("");
  EXPECT_EQ(d.Result(), (std::vector<int32_t>{2}));
  d.SelectRows({0, 4, 9});
  EXPECT_EQ(d.Result(), (std::vector<int32_t>{0, 4}));
  EXPECT_EQ(d.DoubleClick(0), 1);
  EXPECT_EQ(d.Cancel(), 0);
}

TEST(ElementListDialog, ResizeGrowsTheListAndKeepsButtonsAtTheEdges) {
  ElementListDialog d = Walls({});
  d.Open(2);
  const Rect list = d.ControlRect(IDC_ELEM_LIST), ok = d.ControlRect(IDOK),
             all = d.ControlRect(IDC_ELEM_ALL), filter = d.ControlRect(IDC_ELEM_FILTER),
             label = d.ControlRect(IDC_ELEM_LABEL);
  const int w = d.Width(), h = d.Height();
  d.Size(w + 100, h + 40);
  EXPECT_EQ(d.ControlRect(IDC_ELEM_LIST), (Rect{list.x, list.y, list.w + 100, list.h + 40}));
  EXPECT_EQ(d.ControlRect(IDOK), (Rect{ok.x + 100, ok.y + 40, ok.w, ok.h}));
  EXPECT_EQ(d.ControlRect(IDC_ELEM_ALL), (Rect{all.x + 100, all.y, all.w, all.h}));
  EXPECT_EQ(d.ControlRect(IDC_ELEM_FILTER),
            (Rect{filter.x, filter.y + 40, filter.w + 100, filter.h}));
  EXPECT_EQ(d.ControlRect(IDC_ELEM_LABEL), label);
  // Never narrower than it opened, never lower than 200 pixels.
  d.Size(10, 10);
  EXPECT_EQ(d.Width(), w);
  EXPECT_EQ(d.Height(), ElementListDialog::kMinHeight);
  EXPECT_EQ(d.ControlRect(IDC_ELEM_LIST).w, list.w);
  EXPECT_EQ(d.ControlRect(IDC_ELEM_LIST).h, list.h - (h - 200));
}

TEST_F(PanelTest, FilterFieldTurnsTheHostShortcutsOffWhileFocused) {
  ElementListDialog d = Walls({});
  d.FocusFilter(*scene_, true);
  EXPECT_FALSE(User().accelerators);
  d.FocusFilter(*scene_, false);
  EXPECT_TRUE(User().accelerators);
}

}  // namespace
}  // namespace kv::ui::testing

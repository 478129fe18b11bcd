// The hold and the undo/redo stacks, with controllers and nodes as the things changed.
#include <gtest/gtest.h>

#include "host/standalone/scene.h"

namespace kv::standalone {
namespace {

// Records its own restores so the order can be checked.
struct Probe : host::RestoreObj {
  Probe(std::vector<std::string>& log, std::string name) : log_(log), name_(std::move(name)) {}
  void Restore(bool isUndo) override { log_.push_back((isUndo ? "undo " : "cancel ") + name_); }
  void Redo() override { log_.push_back("redo " + name_); }
  int Size() const override { return 1; }
  std::vector<std::string>& log_;
  std::string name_;
};

TEST(Undo, StepsUndoNewestFirstAndRedoInOrder) {
  UndoStack u;
  std::vector<std::string> log;
  u.Put(std::make_unique<Probe>(log, "dropped"));  // not holding: ignored
  u.Begin();
  u.Put(std::make_unique<Probe>(log, "a"));
  u.Put(std::make_unique<Probe>(log, "b"));
  EXPECT_FALSE(u.Undo());  // refused while a hold is open
  u.Accept("First");
  u.Begin();
  u.Accept("Empty");  // nothing put: no step
  EXPECT_EQ(u.NumUndoSteps(), 1);
  EXPECT_EQ(u.UndoLabel(), "First");
  ASSERT_TRUE(u.Undo());
  ASSERT_TRUE(u.Redo());
  EXPECT_EQ(log, (std::vector<std::string>{"undo b", "undo a", "redo a", "redo b"}));
  EXPECT_FALSE(u.Redo());

  // A new step drops the redo stack.
  ASSERT_TRUE(u.Undo());
  u.Begin();
  u.Put(std::make_unique<Probe>(log, "c"));
  u.Accept("Second");
  EXPECT_EQ(u.NumRedoSteps(), 0);
}

TEST(Undo, CancelSuspendAndNesting) {
  UndoStack u;
  std::vector<std::string> log;
  u.Begin();
  u.Put(std::make_unique<Probe>(log, "outer"));
  u.Begin();
  u.Put(std::make_unique<Probe>(log, "inner"));
  u.Cancel();  // restores only the inner level's record
  EXPECT_EQ(log, (std::vector<std::string>{"cancel inner"}));
  u.Suspend();
  u.Suspend();
  EXPECT_FALSE(u.Holding());
  u.Put(std::make_unique<Probe>(log, "suspended"));
  u.Resume();
  EXPECT_TRUE(u.IsSuspended());  // suspends nest
  u.Resume();
  EXPECT_TRUE(u.Holding());
  u.Accept("Outer");
  log.clear();
  ASSERT_TRUE(u.Undo());
  EXPECT_EQ(log, (std::vector<std::string>{"undo outer"}));
}

// Records and whatever they set see the stack restoring during undo and redo only: not while
// a cancelled hold is put back (that is the user's own change being dropped) nor afterwards.
TEST(Undo, RestoringOrRedoingOnlyWhileUndoOrRedoRuns) {
  UndoStack u;
  std::vector<std::string> log;
  struct Seen : host::RestoreObj {
    Seen(const UndoStack& u, std::vector<std::string>& log) : u_(u), log_(log) {}
    void Restore(bool isUndo) override {
      log_.push_back(std::string(isUndo ? "undo " : "cancel ") +
                     (u_.RestoringOrRedoing() ? "1" : "0"));
    }
    void Redo() override {
      log_.push_back(std::string("redo ") + (u_.RestoringOrRedoing() ? "1" : "0"));
    }
    int Size() const override { return 1; }
    const UndoStack& u_;
    std::vector<std::string>& log_;
  };
  u.Begin();
  u.Put(std::make_unique<Seen>(u, log));
  EXPECT_FALSE(u.RestoringOrRedoing());
  u.Cancel();
  u.Begin();
  u.Put(std::make_unique<Seen>(u, log));
  u.Put(std::make_unique<Seen>(u, log));
  u.Accept("Step");
  ASSERT_TRUE(u.Undo());
  EXPECT_FALSE(u.RestoringOrRedoing());
  ASSERT_TRUE(u.Redo());
  EXPECT_FALSE(u.RestoringOrRedoing());
  EXPECT_EQ(log, (std::vector<std::string>{"cancel 0", "undo 1", "undo 1", "redo 1", "redo 1"}));
}

TEST(Undo, ScopedHoldClosesOnlyWhatItOpened) {
  UndoStack u;
  std::vector<std::string> log;
  {
    host::ScopedHold h(u);
    u.Put(std::make_unique<Probe>(log, "x"));
  }  // not accepted: cancelled
  EXPECT_EQ(log, (std::vector<std::string>{"cancel x"}));
  u.Begin();
  {
    host::ScopedHold inner(u);  // a hold is open: this one does nothing
    u.Put(std::make_unique<Probe>(log, "y"));
    inner.Accept("ignored");
  }
  EXPECT_TRUE(u.Holding());
  u.Accept("Outer");
  EXPECT_EQ(u.UndoLabel(), "Outer");
}

TEST(Undo, ControllersAndNodesAcrossSeveralSteps) {
  Scene s;
  auto* n = static_cast<SceneNode*>(s.CreatePointHelperNode("P"));
  host::Hold& h = s.GetHold();

  h.Begin();
  for (int i = 0; i <= 100; ++i) n->KeyPosition(i * 160, {float(i), 0, 0});  // one bake
  h.Accept("Bake");
  h.Begin();
  n->SetName("Q");
  n->SetWireColor(0x0000FF);
  n->GetTMController()->GetPositionController()->DeleteKey(0);
  h.Accept("Edit");
  h.Begin();
  s.DeleteNode(n);
  h.Accept("Delete");

  EXPECT_EQ(s.GetNodeByName("Q"), nullptr);
  ASSERT_TRUE(s.Undo());  // delete
  EXPECT_FALSE(n->IsDeleted());
  ASSERT_TRUE(s.Undo());  // edit
  EXPECT_EQ(n->GetName(), "P");
  EXPECT_EQ(n->GetWireColor(), 0x00808080u);
  EXPECT_EQ(n->GetTMController()->GetPositionController()->NumKeys(), 101);
  ASSERT_TRUE(s.Undo());  // bake
  EXPECT_EQ(n->GetTMController()->GetPositionController()->NumKeys(), 0);
  ASSERT_TRUE(s.Redo());
  ASSERT_TRUE(s.Redo());
  EXPECT_EQ(n->GetName(), "Q");
  EXPECT_EQ(n->GetTMController()->GetPositionController()->NumKeys(), 100);
  EXPECT_FLOAT_EQ(n->GetNodeTM(160).GetTrans().x, 1.f);

  // Cancel puts back controllers, created nodes and a replaced transform controller.
  h.Begin();
  n->KeyPosition(99999, {7, 7, 7});
  host::Node* made = s.CreateMeshNode(Mesh(), "Made");
  n->SetTMController(s.NewControl(host::ControlKind::PRS));
  h.Cancel();
  EXPECT_TRUE(made->IsDeleted());
  EXPECT_EQ(n->GetTMController()->GetPositionController()->NumKeys(), 100);

  // Swapping a PRS sub-controller (explode puts TCB tracks in) is one undoable change.
  host::Control* prs = n->GetTMController();
  host::Control* before = prs->GetRotationController();
  h.Begin();
  auto tcb = s.NewKeyControl(host::ControlKind::Rotation, host::Interp::TCB);
  tcb->SetValue(0, Quat(AngAxis{{0, 0, 1}, 1.0f}), true);
  ASSERT_TRUE(prs->SetRotationController(std::move(tcb)));
  ASSERT_TRUE(prs->SetScaleController(s.NewControl(host::ControlKind::Scale)));
  h.Accept("Explode");
  EXPECT_EQ(prs->GetRotationController()->NumKeys(), 1);
  ASSERT_TRUE(s.Undo());
  EXPECT_EQ(prs->GetRotationController(), before);
  EXPECT_EQ(prs->GetRotationController()->NumKeys(), 0);
  ASSERT_TRUE(s.Redo());
  EXPECT_EQ(prs->GetRotationController()->NumKeys(), 1);
  EXPECT_EQ(prs->GetRotationController()->GetInterp(), host::Interp::TCB);
  // A PRS controller that is gone by the time of the undo leaves a harmless record.
  h.Begin();
  auto loose = s.NewControl(host::ControlKind::PRS);
  loose->SetPositionController(s.NewControl(host::ControlKind::Position));
  h.Accept("Loose");
  loose.reset();
  EXPECT_TRUE(s.Undo());
  EXPECT_TRUE(s.Redo());
}

}  // namespace
}  // namespace kv::standalone

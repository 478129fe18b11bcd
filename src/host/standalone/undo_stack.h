// The standalone host's undo: a hold that gathers restore records into named steps, and the
// undo and redo stacks of accepted steps.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/undo.h"

namespace kv::standalone {

class UndoStack final : public host::Hold {
 public:
  UndoStack() = default;
  UndoStack(const UndoStack&) = delete;
  UndoStack& operator=(const UndoStack&) = delete;

  // host::Hold. Begin nests: an inner Accept hands its records to the enclosing level, an
  // inner Cancel restores only the records put since its own Begin.
  bool Holding() const override { return !levels_.empty() && suspended_ == 0; }
  void Begin() override;
  void Put(std::unique_ptr<host::RestoreObj> rec) override;
  void Accept(const std::string& label) override;
  void Cancel() override;
  void Suspend() override { ++suspended_; }
  void Resume() override {
    if (suspended_ > 0) --suspended_;
  }
  bool IsSuspended() const override { return suspended_ > 0; }
  bool RestoringOrRedoing() const override { return restoring_; }

  // Undoes the last accepted step (records restored newest first) and moves it to the redo
  // stack; Redo does the reverse. Both refuse (false) while a hold is open or when there is
  // nothing to do.
  bool Undo();
  bool Redo();
  int NumUndoSteps() const { return static_cast<int>(undo_.size()); }
  int NumRedoSteps() const { return static_cast<int>(redo_.size()); }
  // Label of the step Undo or Redo would act on; "" when there is none.
  std::string UndoLabel() const { return undo_.empty() ? std::string() : undo_.back().label; }
  std::string RedoLabel() const { return redo_.empty() ? std::string() : redo_.back().label; }
  // Drops every step (the host does this when a scene is reset or loaded).
  void Clear();

  // Changes whenever a hold level begins or ends, so that an object can put one snapshot per
  // level rather than one per change.
  uint64_t Serial() const { return serial_; }

 private:
  struct Step {
    std::string label;
    std::vector<std::unique_ptr<host::RestoreObj>> records;
  };
  std::vector<std::unique_ptr<host::RestoreObj>> open_;  // records of the open hold
  std::vector<size_t> levels_;                           // where each nested level starts
  std::vector<Step> undo_, redo_;
  int suspended_ = 0;
  bool restoring_ = false;
  uint64_t serial_ = 1;
};

}  // namespace kv::standalone

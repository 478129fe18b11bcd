#include "host/standalone/undo_stack.h"

namespace kv::standalone {

void UndoStack::Begin() {
  levels_.push_back(open_.size());
  ++serial_;
}

void UndoStack::Put(std::unique_ptr<host::RestoreObj> rec) {
  if (!Holding() || !rec) return;
  open_.push_back(std::move(rec));
}

void UndoStack::Accept(const std::string& label) {
  if (levels_.empty()) return;
  levels_.pop_back();
  ++serial_;
  if (!levels_.empty()) return;  // an inner level: the records join the enclosing one
  for (auto& r : open_) r->EndHold();
  if (open_.empty()) return;  // nothing changed: no step
  undo_.push_back({label, std::move(open_)});
  open_.clear();
  redo_.clear();
}

void UndoStack::Cancel() {
  if (levels_.empty()) return;
  const size_t from = levels_.back();
  levels_.pop_back();
  ++serial_;
  for (size_t i = open_.size(); i > from; --i) {
    open_[i - 1]->Restore(false);
    open_[i - 1]->EndHold();
  }
  open_.resize(from);
}

bool UndoStack::Undo() {
  if (!levels_.empty() || undo_.empty()) return false;
  Step step = std::move(undo_.back());
  undo_.pop_back();
  restoring_ = true;
  for (size_t i = step.records.size(); i > 0; --i) step.records[i - 1]->Restore(true);
  restoring_ = false;
  redo_.push_back(std::move(step));
  ++serial_;
  return true;
}

bool UndoStack::Redo() {
  if (!levels_.empty() || redo_.empty()) return false;
  Step step = std::move(redo_.back());
  redo_.pop_back();
  restoring_ = true;
  for (auto& r : step.records) r->Redo();
  restoring_ = false;
  undo_.push_back(std::move(step));
  ++serial_;
  return true;
}

void UndoStack::Clear() {
  undo_.clear();
  redo_.clear();
  ++serial_;
}

}  // namespace kv::standalone

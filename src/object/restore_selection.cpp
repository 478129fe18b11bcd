#include "object/restore_selection.h"

#include "object/cache_obj.h"

namespace kv {

Restore_Selection::Restore_Selection(kvCache_obj& obj, TimeValue t)
    : obj_(obj), time_(t), undo_(obj.Selection()) {}

void Restore_Selection::Restore(bool isUndo) {
  if (isUndo && !redoTaken_) {
    redo_ = obj_.Selection();
    redoTaken_ = true;
  }
  obj_.RestoreSelection(undo_);
}

void Restore_Selection::Redo() {
  obj_.RestoreSelection(redo_);
}

int Restore_Selection::Size() const {
  // A node of a balanced tree holds the value and three pointers.
  constexpr int kNode = static_cast<int>(sizeof(uint32_t) + 3 * sizeof(void*));
  return static_cast<int>(sizeof(*this)) + kNode * static_cast<int>(undo_.size() + redo_.size());
}

void Restore_Selection::EndHold() {
  obj_.SetSelectionHeld(false);
}

}  // namespace kv

// Undo record of the cache object's element selection.
#pragma once

#include <set>

#include "geom/time.h"
#include "host/undo.h"

namespace kv {

class kvCache_obj;

// Holds the selection as it was when put (undo set) and, from the first undo on, as it was
// before that undo (redo set).
class Restore_Selection : public host::RestoreObj {
 public:
  Restore_Selection(kvCache_obj& obj, TimeValue t);
  void Restore(bool isUndo) override;
  void Redo() override;
  int Size() const override;
  void EndHold() override;
  std::string Description() const override { return "Restore_Selection"; }
  TimeValue Time() const { return time_; }

 private:
  kvCache_obj& obj_;
  TimeValue time_;
  std::set<uint32_t> undo_;
  std::set<uint32_t> redo_;
  bool redoTaken_ = false;
};

}  // namespace kv

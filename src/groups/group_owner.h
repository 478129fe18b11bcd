// What the group operations need from the object that owns an element group list. The cache
// object implements it; the operations in group_ops.h work against it alone.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "groups/element_group.h"
#include "host/interface.h"

namespace kv {

class GroupOwner {
 public:
  virtual ~GroupOwner() = default;

  virtual ElementGroupList& Groups() = 0;
  virtual host::Interface& Host() = 0;

  // The object's modified flag (it has unsaved changes).
  virtual void MarkModified() = 0;
  // Redraws the group rollout from the list, when it is open.
  virtual void RefreshGroupsUI() = 0;
  // Empties the cached playback and mesh validity and notifies dependents of a change of all
  // parts over all time; views are redrawn by the caller.
  virtual void InvalidateAndNotify() = 0;

  // `elementFrames` keeps one entry per group: resize it to `count` entries (new ones at the
  // end), or delete the entry at `index`. Both go through the parameter block, so they record
  // their own undo while the hold is open.
  virtual void ResizeElementFrames(int32_t count) = 0;
  virtual void DeleteElementFrame(int32_t index) = 0;

  // The element selection (zero-based indices, ascending), and replacing it as one change that
  // records its own undo record while the hold is open.
  virtual std::vector<int32_t> ElementSelection() const = 0;
  virtual void SetElementSelection(const std::vector<int32_t>& elements) = 0;

  // Asks the user for a group name in a small dialog starting with `name`; false when
  // cancelled. Hosts without a user interface answer false.
  virtual bool AskGroupName(std::string& name) = 0;
};

}  // namespace kv

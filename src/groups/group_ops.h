// Undoable edits of an object's element groups, and their undo record.
//
// Every edit: opens a hold unless one is open, puts a Restore_Groups snapshot, marks the owner
// modified, changes the list, then refreshes the rollout and accepts the hold under the edit's
// label (invalidating and notifying when the mesh can change, and redrawing). A failed edit
// cancels the hold and returns false with nothing changed. Names are exact, case-sensitive.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "geom/time.h"
#include "groups/element_group.h"
#include "groups/group_owner.h"
#include "host/undo.h"

namespace kv {

// Snapshot of a group list for undo: the list (with its selected index) when the record was
// made, and the list found at the first undo for redo. Restore and redo refresh the rollout,
// invalidate and notify.
class Restore_Groups : public host::RestoreObj {
 public:
  Restore_Groups(GroupOwner& owner, TimeValue t);
  void Restore(bool isUndo) override;
  void Redo() override;
  int Size() const override;
  std::string Description() const override { return "Restore_Groups"; }

  TimeValue Time() const { return time_; }
  int32_t UndoSelected() const { return undoSelected_; }

 private:
  GroupOwner& owner_;
  TimeValue time_;
  int32_t undoSelected_;
  ElementGroupList undo_;
  ElementGroupList redo_;
  int32_t redoSelected_ = -1;
};

// Puts a Restore_Groups into the owner's hold when it is holding (the object's file name
// change records one this way).
void PutGroupsRestore(GroupOwner& owner);

// Adds a group and selects it. With a name: that name (false when taken). Without one: interactive
// asks through the owner's name dialog starting at uniqueName("Group001"), again while the
// answer is empty or taken, false on cancel; the script path (interactive false) takes
// uniqueName("Group001") and forces addSelected on. With addSelected the element selection
// becomes the set of the group named `name` as passed in (so the unnamed script path leaves
// the new group empty). elementFrames is resized to the new count.
bool AddGroup(GroupOwner& o, std::string_view name, bool addSelected, bool interactive);
// Removes the group and its elementFrames entry.
bool DeleteGroup(GroupOwner& o, std::string_view name);
bool DeleteAllGroups(GroupOwner& o);
// An empty new name asks through the dialog, starting with the old name. Same name: true,
// nothing recorded. Empty or taken: false.
bool RenameGroup(GroupOwner& o, std::string_view name, std::string_view newName);
// direction < 0 swaps with the group before, > 0 with the one after, 0 fails; at the ends
// true without change. elementFrames entries stay with their positions.
bool MoveGroup(GroupOwner& o, std::string_view name, int direction);
// False when the group is absent or already selected.
bool SetSelectedGroup(GroupOwner& o, std::string_view name);

// Settings; each false when the group is absent. mode must be below kNumGroupModes.
bool SetGroupMode(GroupOwner& o, std::string_view name, uint32_t mode);
bool SetGroupEnabled(GroupOwner& o, std::string_view name, bool on);
bool SetGroupTrigger(GroupOwner& o, std::string_view name, bool on);
bool SetGroupDelay(GroupOwner& o, std::string_view name, float delay);
bool SetGroupDeleteByAge(GroupOwner& o, std::string_view name, bool on);
bool SetGroupDeleteAge(GroupOwner& o, std::string_view name, float age);
bool SetGroupDeleteByDistance(GroupOwner& o, std::string_view name, bool on);
bool SetGroupDeleteDistance(GroupOwner& o, std::string_view name, float distance);
// Zero-based material index (the material ID minus one).
bool SetGroupMatIndex(GroupOwner& o, std::string_view name, int32_t matIndex);

// Element sets (zero-based indices, any order).
bool SetGroupElements(GroupOwner& o, std::string_view name, std::span<const int32_t> set);
bool AddGroupElements(GroupOwner& o, std::string_view name, std::span<const int32_t> set);
// False, recording nothing, when none of `set` was in the group.
bool RemoveGroupElements(GroupOwner& o, std::string_view name, std::span<const int32_t> set);
// Takes the group's elements out of every other group.
bool MakeGroupElementsUnique(GroupOwner& o, std::string_view name);
// Makes the group's elements the element selection.
bool SelectGroupElements(GroupOwner& o, std::string_view name);

}  // namespace kv

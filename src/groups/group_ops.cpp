#include "groups/group_ops.h"

#include <algorithm>
#include <memory>
#include <string>

#include "res/strings.h"

namespace kv {

// ---- Restore_Groups

Restore_Groups::Restore_Groups(GroupOwner& owner, TimeValue t)
    : owner_(owner), time_(t), undoSelected_(owner.Groups().getSelected()), undo_(owner.Groups()) {}

void Restore_Groups::Restore(bool isUndo) {
  if (isUndo) {
    redo_ = owner_.Groups();
    redoSelected_ = redo_.getSelected();
  }
  owner_.Groups() = undo_;
  owner_.Groups().setSelected(undoSelected_);
  owner_.RefreshGroupsUI();
  owner_.InvalidateAndNotify();
}

void Restore_Groups::Redo() {
  owner_.Groups() = redo_;
  owner_.Groups().setSelected(redoSelected_);
  owner_.RefreshGroupsUI();
  owner_.InvalidateAndNotify();
}

int Restore_Groups::Size() const {
  size_t bytes = sizeof(*this);
  for (const ElementGroupList* l : {&undo_, &redo_})
    for (int32_t i = 0; i < l->count(); ++i)
      bytes += sizeof(ElementGroup) + l->at(i).name().size() * 2 +
               l->at(i).elements().size() * sizeof(int32_t);
  return static_cast<int>(std::min<size_t>(bytes, INT32_MAX));
}

void PutGroupsRestore(GroupOwner& owner) {
  host::Hold& hold = owner.Host().GetHold();
  if (hold.Holding()) hold.Put(std::make_unique<Restore_Groups>(owner, owner.Host().GetTime()));
}

namespace {

// One undoable edit of the list: `change` returns false to cancel everything.
template <class F>
bool Edit(GroupOwner& o, int labelId, bool affectsMesh, F&& change) {
  host::Interface& ip = o.Host();
  host::ScopedHold hold(ip.GetHold());
  PutGroupsRestore(o);
  o.MarkModified();
  if (!change(o.Groups())) {
    hold.Cancel();
    return false;
  }
  o.RefreshGroupsUI();
  hold.Accept(res::GetString(labelId));
  if (affectsMesh) o.InvalidateAndNotify();
  ip.RedrawViews(ip.GetTime());
  return true;
}

// A setting of one existing group; absent groups fail before any undo record is made.
template <class F>
bool EditGroup(GroupOwner& o, std::string_view name, int labelId, F&& set) {
  if (!o.Groups().contains(name)) return false;
  return Edit(o, labelId, true, [&](ElementGroupList& l) {
    set(*l.find(name));
    return true;
  });
}

}  // namespace

bool AddGroup(GroupOwner& o, std::string_view name, bool addSelected, bool interactive) {
  const bool scriptDefault = name.empty() && !interactive;
  std::string chosen(name);
  if (name.empty() && interactive) {
    chosen = o.Groups().uniqueName("Group001");
    do {
      if (!o.AskGroupName(chosen)) return false;
    } while (chosen.empty() || o.Groups().contains(chosen));
  }
  if (scriptDefault) addSelected = true;
  // The unnamed script path hands the selection to the empty name, which matches no group.
  const std::string target = scriptDefault ? std::string() : chosen;
  const std::vector<int32_t> selection =
      addSelected ? o.ElementSelection() : std::vector<int32_t>{};
  return Edit(o, res::IDS_UNDO_ADD_GROUP, true, [&](ElementGroupList& l) {
    if (!(scriptDefault ? l.addDefault() : l.addNamed(chosen))) return false;
    if (addSelected) l.setElements(target, selection, false);
    o.ResizeElementFrames(l.count());
    return true;
  });
}

bool DeleteGroup(GroupOwner& o, std::string_view name) {
  const int32_t i = o.Groups().indexOf(name);
  if (i < 0) return false;
  return Edit(o, res::IDS_UNDO_REMOVE_GROUP, true, [&](ElementGroupList& l) {
    l.remove(i);
    o.DeleteElementFrame(i);
    return true;
  });
}

bool DeleteAllGroups(GroupOwner& o) {
  return Edit(o, res::IDS_UNDO_REMOVE_ALL_GROUPS, true, [&](ElementGroupList& l) {
    l.clear();
    o.ResizeElementFrames(0);
    return true;
  });
}

bool RenameGroup(GroupOwner& o, std::string_view name, std::string_view newName) {
  const int32_t i = o.Groups().indexOf(name);
  if (i < 0) return false;
  std::string chosen(newName);
  if (chosen.empty()) {
    chosen = std::string(name);
    if (!o.AskGroupName(chosen)) return false;
  }
  if (chosen == name) return true;
  return Edit(o, res::IDS_UNDO_RENAME_GROUP, false, [&](ElementGroupList& l) {
    if (chosen.empty() || l.contains(chosen)) return false;
    l.at(i).setName(chosen);
    return true;
  });
}

bool MoveGroup(GroupOwner& o, std::string_view name, int direction) {
  const int32_t i = o.Groups().indexOf(name);
  if (i < 0 || direction == 0) return false;
  const int32_t j = direction < 0 ? i - 1 : i + 1;
  if (j < 0 || j >= o.Groups().count()) return true;
  return Edit(o, res::IDS_UNDO_MOVE_GROUP, true, [&](ElementGroupList& l) { return l.swap(i, j); });
}

bool SetSelectedGroup(GroupOwner& o, std::string_view name) {
  const int32_t i = o.Groups().indexOf(name);
  if (i < 0 || i == o.Groups().getSelected()) return false;
  return Edit(o, res::IDS_UNDO_SELECT_GROUP, false,
              [&](ElementGroupList& l) { return l.setSelected(i); });
}

bool SetGroupMode(GroupOwner& o, std::string_view name, uint32_t mode) {
  if (mode >= kNumGroupModes) return false;
  return EditGroup(o, name, res::IDS_UNDO_GROUP_MODE, [&](ElementGroup& g) { g.mode = mode; });
}

bool SetGroupEnabled(GroupOwner& o, std::string_view name, bool on) {
  return EditGroup(o, name, res::IDS_UNDO_TOGGLE_GROUP, [&](ElementGroup& g) { g.enabled = on; });
}

bool SetGroupTrigger(GroupOwner& o, std::string_view name, bool on) {
  return EditGroup(o, name, res::IDS_UNDO_TOGGLE_GROUP_TRIGGER,
                   [&](ElementGroup& g) { g.trigger = on; });
}

bool SetGroupDelay(GroupOwner& o, std::string_view name, float delay) {
  return EditGroup(o, name, res::IDS_UNDO_GROUP_OFFSET, [&](ElementGroup& g) { g.delay = delay; });
}

bool SetGroupDeleteByAge(GroupOwner& o, std::string_view name, bool on) {
  return EditGroup(o, name, res::IDS_UNDO_GROUP_BY_AGE,
                   [&](ElementGroup& g) { g.deleteByAge = on; });
}

bool SetGroupDeleteAge(GroupOwner& o, std::string_view name, float age) {
  return EditGroup(o, name, res::IDS_UNDO_GROUP_AGE, [&](ElementGroup& g) { g.deleteAge = age; });
}

bool SetGroupDeleteByDistance(GroupOwner& o, std::string_view name, bool on) {
  return EditGroup(o, name, res::IDS_UNDO_GROUP_BY_DISTANCE,
                   [&](ElementGroup& g) { g.deleteByDistance = on; });
}

bool SetGroupDeleteDistance(GroupOwner& o, std::string_view name, float distance) {
  return EditGroup(o, name, res::IDS_UNDO_GROUP_DISTANCE,
                   [&](ElementGroup& g) { g.deleteDistance = distance; });
}

bool SetGroupMatIndex(GroupOwner& o, std::string_view name, int32_t matIndex) {
  return EditGroup(o, name, res::IDS_UNDO_GROUP_MATID,
                   [&](ElementGroup& g) { g.matIndex = matIndex; });
}

bool SetGroupElements(GroupOwner& o, std::string_view name, std::span<const int32_t> set) {
  if (!o.Groups().contains(name)) return false;
  return Edit(o, res::IDS_UNDO_GROUP_NODES, true,
              [&](ElementGroupList& l) { return l.setElements(name, set, false); });
}

bool AddGroupElements(GroupOwner& o, std::string_view name, std::span<const int32_t> set) {
  const ElementGroup* g = o.Groups().find(name);
  if (!g) return false;
  std::vector<int32_t> merged(g->elements());
  merged.insert(merged.end(), set.begin(), set.end());
  return Edit(o, res::IDS_UNDO_GROUP_NODES, true,
              [&](ElementGroupList& l) { return l.setElements(name, merged, false); });
}

bool RemoveGroupElements(GroupOwner& o, std::string_view name, std::span<const int32_t> set) {
  const ElementGroup* g = o.Groups().find(name);
  if (!g) return false;
  std::vector<int32_t> sorted(set.begin(), set.end());
  std::sort(sorted.begin(), sorted.end());
  sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
  ElementGroup probe = *g;
  if (!probe.remove(sorted)) return false;  // nothing to remove: no undo step
  return Edit(o, res::IDS_UNDO_REMOVE_GROUP_NODES, true, [&](ElementGroupList& l) {
    l.find(name)->remove(sorted);
    return true;
  });
}

bool MakeGroupElementsUnique(GroupOwner& o, std::string_view name) {
  const ElementGroup* g = o.Groups().find(name);
  if (!g) return false;
  const std::vector<int32_t> own = g->elements();
  return Edit(o, res::IDS_UNDO_GROUP_NODES, true,
              [&](ElementGroupList& l) { return l.setElements(name, own, true); });
}

bool SelectGroupElements(GroupOwner& o, std::string_view name) {
  const ElementGroup* g = o.Groups().find(name);
  if (!g) return false;
  host::Interface& ip = o.Host();
  host::ScopedHold hold(ip.GetHold());
  o.SetElementSelection(g->elements());
  hold.Accept(res::GetString(res::IDS_UNDO_SELECT_GROUP_NODES));
  ip.RedrawViews(ip.GetTime());
  return true;
}

}  // namespace kv

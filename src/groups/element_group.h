// Element groups: named sets of cache elements, each with a playback rule, in an ordered list
// with one selected group. The list is a plain value: copying it is how undo snapshots it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/interface.h"

namespace kv {

enum class GroupMode : uint32_t {
  Delete = 0,
  HoldIn = 1,
  HoldOut = 2,
  Delay = 3,  // shown as "Offset"
  SetFrame = 4,
  SetMatID = 5,
};
inline constexpr uint32_t kNumGroupModes = 6;

// The name reduced to an identifier: leading digits dropped, then only ASCII letters and digits
// kept (any other character also ends the leading-digit run). "Group 001" -> "Group001",
// "12 ab-3" -> "ab3", "001" -> "".
std::string GroupKey(std::string_view name);

class ElementGroup {
 public:
  // Version written by save; records older than this cannot be read.
  static constexpr uint32_t kStoredVersion = 5;

  ElementGroup() = default;
  explicit ElementGroup(std::string_view name) { setName(name); }

  const std::string& name() const { return name_; }
  const std::string& key() const { return key_; }
  void setName(std::string_view name) {
    name_.assign(name);
    key_ = GroupKey(name_);
  }

  // Zero-based element indices, unique and ascending.
  const std::vector<int32_t>& elements() const { return elements_; }
  bool contains(int32_t e) const;
  // Replaces the set; `set` may be unsorted and hold duplicates.
  void setElements(std::span<const int32_t> set);
  void insert(int32_t e);
  // Removes every index of `sortedSet` (ascending, unique); true when anything was removed.
  bool remove(std::span<const int32_t> sortedSet);
  // Drops indices not below `count`.
  void trimTo(int32_t count);

  uint32_t version = 1;  // version of the record as last loaded
  uint32_t enabled = 1;
  uint32_t mode = static_cast<uint32_t>(GroupMode::HoldIn);
  float delay = 0.0f;
  int32_t matIndex = 0;  // material ID minus one
  uint8_t trigger = 1;   // acts only on triggered elements when triggers are active
  uint8_t deleteByDistance = 0;
  float deleteDistance = 0.0f;
  uint32_t deleteByAge = 0;
  float deleteAge = 0.0f;

  bool operator==(const ElementGroup&) const = default;

 private:
  std::string name_;
  std::string key_;
  std::vector<int32_t> elements_;
};

// The ordered groups of one cache object and its selected group (-1: none). Names are
// non-empty and unique; all name comparisons are exact and case-sensitive.
class ElementGroupList {
 public:
  bool contains(std::string_view name) const { return indexOf(name) >= 0; }
  int32_t indexOf(std::string_view name) const;
  int32_t count() const { return static_cast<int32_t>(groups_.size()); }
  // Index must be in [0, count).
  ElementGroup& at(int32_t i) { return groups_[i]; }
  const ElementGroup& at(int32_t i) const { return groups_[i]; }
  ElementGroup* find(std::string_view name);

  int32_t getSelected() const { return selected_; }
  // -1 or a valid index; false (unchanged) otherwise.
  bool setSelected(int32_t i);
  // Sets the selection to -1; false when nothing was selected.
  bool deselect();

  // Appends a group with the default settings and makes it the selected one; false (unchanged)
  // when the name is empty or taken.
  bool addNamed(std::string_view name);
  // Appends uniqueName("Group001"); always succeeds.
  bool addDefault();
  // `candidate` when free; else its trailing digits replaced by the first free number n >= 1,
  // padded to 3 digits ("Group001" taken -> "Group002"; "Chunks" -> "Chunks001").
  std::string uniqueName(std::string_view candidate) const;

  // The named group's set becomes `set`; with `exclusive` every other group loses those
  // indices. False when no group has that name.
  bool setElements(std::string_view name, std::span<const int32_t> set, bool exclusive);

  // Removes group i, keeping the selection on the same group (or -1 if it was i).
  bool remove(int32_t i);
  // Swaps groups i and j; the selection follows the group it was on.
  bool swap(int32_t i, int32_t j);
  // Removes every group; the selection becomes -1.
  void clear();
  // Drops element indices not below `elementCount` from every group (before saving against a
  // cache of that many elements).
  void trimToElementCount(int32_t elementCount);

  // Stored form: u32 count, then per group (version 5): u32 version, u32 name length, the
  // name in the host's 8-bit code page (one byte per character, see host::Interface), u32
  // element count, the elements as u32, u32 mode, u8 enabled, f32 delay, i32 matIndex, u8
  // trigger, f32 deleteDistance, f32 deleteAge; all little-endian. The switches
  // deleteByDistance and deleteByAge are not stored and load as off. False on the first failed
  // write.
  bool save(host::ISave& s, const host::Interface& ip) const;
  // Clears the list, then reads it back. A name that comes back empty or already taken (a
  // damaged file, or characters the code page lacks turned into '?') is replaced by
  // uniqueName of itself, or of "Group001" when empty, so names stay unique and non-empty.
  // A record older than version 5 shows the host's message box, leaves the list empty and
  // returns Error with *incompatible set (the caller may go on loading what follows); a short
  // read also returns Error with the list empty, and leaves *incompatible false.
  host::IOResult load(host::ILoad& l, host::Interface& ip, bool* incompatible = nullptr);

  bool operator==(const ElementGroupList&) const = default;

 private:
  std::vector<ElementGroup> groups_;
  int32_t selected_ = -1;
};

// Computed name of `elementFrames` entry i: group i's name + "_Frame"; "" past the last group.
std::string ElementFrameName(const ElementGroupList& groups, int32_t i);

}  // namespace kv

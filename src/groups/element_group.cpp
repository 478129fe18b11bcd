#include "groups/element_group.h"

#include <algorithm>
#include <cstdio>
#include <unordered_set>

#include "groups/chunk_io.h"
#include "res/strings.h"

namespace kv {
namespace {

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}
bool IsAlnum(char c) {
  return IsDigit(c) || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

void SortUnique(std::vector<int32_t>& v) {
  std::sort(v.begin(), v.end());
  v.erase(std::unique(v.begin(), v.end()), v.end());
}

}  // namespace

std::string GroupKey(std::string_view name) {
  std::string key;
  bool leading = true;
  for (char c : name) {
    if (leading && IsDigit(c)) continue;
    leading = false;
    if (IsAlnum(c)) key.push_back(c);
  }
  return key;
}

// ---- ElementGroup

bool ElementGroup::contains(int32_t e) const {
  return std::binary_search(elements_.begin(), elements_.end(), e);
}

void ElementGroup::setElements(std::span<const int32_t> set) {
  elements_.assign(set.begin(), set.end());
  SortUnique(elements_);
}

void ElementGroup::insert(int32_t e) {
  const auto it = std::lower_bound(elements_.begin(), elements_.end(), e);
  if (it == elements_.end() || *it != e) elements_.insert(it, e);
}

bool ElementGroup::remove(std::span<const int32_t> sortedSet) {
  std::vector<int32_t> kept;
  kept.reserve(elements_.size());
  std::set_difference(elements_.begin(), elements_.end(), sortedSet.begin(), sortedSet.end(),
                      std::back_inserter(kept));
  if (kept.size() == elements_.size()) return false;
  elements_ = std::move(kept);
  return true;
}

void ElementGroup::trimTo(int32_t count) {
  elements_.erase(std::lower_bound(elements_.begin(), elements_.end(), count), elements_.end());
}

// ---- ElementGroupList

int32_t ElementGroupList::indexOf(std::string_view name) const {
  for (size_t i = 0; i < groups_.size(); ++i)
    if (groups_[i].name() == name) return static_cast<int32_t>(i);
  return -1;
}

ElementGroup* ElementGroupList::find(std::string_view name) {
  const int32_t i = indexOf(name);
  return i >= 0 ? &groups_[i] : nullptr;
}

bool ElementGroupList::setSelected(int32_t i) {
  if (i < -1 || i >= count()) return false;
  selected_ = i;
  return true;
}

bool ElementGroupList::deselect() {
  if (selected_ == -1) return false;
  selected_ = -1;
  return true;
}

bool ElementGroupList::addNamed(std::string_view name) {
  if (name.empty() || contains(name)) return false;
  groups_.emplace_back(name);
  selected_ = count() - 1;
  return true;
}

bool ElementGroupList::addDefault() {
  return addNamed(uniqueName("Group001"));
}

std::string ElementGroupList::uniqueName(std::string_view candidate) const {
  if (!contains(candidate)) return std::string(candidate);
  size_t end = candidate.size();
  while (end > 0 && IsDigit(candidate[end - 1])) --end;
  const std::string base(candidate.substr(0, end));
  // One pass over the names instead of one per number tried: lists of thousands of groups
  // stay fast. Terminates: each group blocks at most one number.
  std::unordered_set<std::string_view> taken;
  for (const ElementGroup& g : groups_) taken.insert(g.name());
  for (uint64_t n = 1;; ++n) {
    char num[24];
    std::snprintf(num, sizeof num, "%03llu", static_cast<unsigned long long>(n));
    std::string name = base + num;
    if (!taken.count(name)) return name;
  }
}

bool ElementGroupList::setElements(std::string_view name, std::span<const int32_t> set,
                                   bool exclusive) {
  const int32_t target = indexOf(name);
  if (target < 0) return false;
  groups_[target].setElements(set);
  if (exclusive) {
    const std::vector<int32_t>& sorted = groups_[target].elements();
    for (int32_t i = 0; i < count(); ++i)
      if (i != target) groups_[i].remove(sorted);
  }
  return true;
}

bool ElementGroupList::remove(int32_t i) {
  if (i < 0 || i >= count()) return false;
  groups_.erase(groups_.begin() + i);
  if (selected_ == i)
    selected_ = -1;
  else if (selected_ > i)
    --selected_;
  return true;
}

bool ElementGroupList::swap(int32_t i, int32_t j) {
  if (i < 0 || j < 0 || i >= count() || j >= count()) return false;
  std::swap(groups_[i], groups_[j]);
  if (selected_ == i)
    selected_ = j;
  else if (selected_ == j)
    selected_ = i;
  return true;
}

void ElementGroupList::clear() {
  groups_.clear();
  selected_ = -1;
}

void ElementGroupList::trimToElementCount(int32_t elementCount) {
  for (ElementGroup& g : groups_) g.trimTo(elementCount);
}

bool ElementGroupList::save(host::ISave& s, const host::Interface& ip) const {
  if (!io::WriteU32(s, static_cast<uint32_t>(groups_.size()))) return false;
  for (const ElementGroup& g : groups_) {
    // One byte per character in the code page: the stored length counts both.
    const std::string bytes = ip.ToCodePage(g.name());
    bool ok = io::WriteU32(s, ElementGroup::kStoredVersion) &&
              io::WriteU32(s, static_cast<uint32_t>(bytes.size())) && io::WriteBytes(s, bytes) &&
              io::WriteU32(s, static_cast<uint32_t>(g.elements().size()));
    for (int32_t e : g.elements()) ok = ok && io::WriteU32(s, static_cast<uint32_t>(e));
    ok = ok && io::WriteU32(s, g.mode) && io::WriteU8(s, g.enabled ? 1 : 0) &&
         io::WriteF32(s, g.delay) && io::WriteI32(s, g.matIndex) &&
         io::WriteU8(s, g.trigger ? 1 : 0) && io::WriteF32(s, g.deleteDistance) &&
         io::WriteF32(s, g.deleteAge);
    if (!ok) return false;
  }
  return true;
}

host::IOResult ElementGroupList::load(host::ILoad& l, host::Interface& ip, bool* incompatible) {
  clear();
  if (incompatible) *incompatible = false;
  uint32_t n;
  if (!io::ReadU32(l, n)) return host::IOResult::Error;
  auto fail = [this] {
    clear();
    return host::IOResult::Error;
  };
  for (uint32_t i = 0; i < n; ++i) {  // no reserve: n is not trusted
    ElementGroup g;
    if (!io::ReadU32(l, g.version)) return fail();
    if (g.version < ElementGroup::kStoredVersion) {
      clear();
      if (incompatible) *incompatible = true;
      ip.MessageBox(res::GetString(res::IDS_GROUPS_LOAD_INCOMPATIBLE),
                    res::GetString(res::IDS_GROUPS_LOAD_CAPTION), host::MsgBoxKind::Warning);
      return host::IOResult::Error;
    }
    std::string name;
    uint32_t count;
    if (!io::ReadString(l, name) || !io::ReadU32(l, count)) return fail();
    name = ip.FromCodePage(name);
    std::vector<int32_t> elements;
    for (uint32_t k = 0; k < count; ++k) {
      uint32_t e;
      if (!io::ReadU32(l, e)) return fail();
      elements.push_back(static_cast<int32_t>(e));
    }
    g.setElements(elements);
    uint8_t enabled, trigger;
    if (!io::ReadU32(l, g.mode) || !io::ReadU8(l, enabled) || !io::ReadF32(l, g.delay) ||
        !io::ReadI32(l, g.matIndex) || !io::ReadU8(l, trigger) ||
        !io::ReadF32(l, g.deleteDistance) || !io::ReadF32(l, g.deleteAge))
      return fail();
    g.enabled = enabled;
    g.trigger = trigger;
    g.setName(name.empty() ? uniqueName("Group001") : uniqueName(name));
    groups_.push_back(std::move(g));
  }
  return host::IOResult::Ok;
}

std::string ElementFrameName(const ElementGroupList& groups, int32_t i) {
  if (i < 0 || i >= groups.count()) return {};
  return groups.at(i).name() + "_Frame";
}

}  // namespace kv

#include <gtest/gtest.h>

#include <vector>

#include "groups/element_group.h"
#include "groups/fake_host.h"

namespace kv {
namespace {

using Bytes = std::vector<unsigned char>;

void U32(Bytes& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<unsigned char>(v >> (8 * i)));
}

TEST(GroupNames, KeysAndUniqueNames) {
  EXPECT_EQ(GroupKey("Group 001"), "Group001");
  EXPECT_EQ(GroupKey("12 ab-3"), "ab3");
  EXPECT_EQ(GroupKey("001"), "");
  EXPECT_EQ(GroupKey("-12ab"), "12ab");  // a dropped character still ends the leading digits
  EXPECT_EQ(GroupKey("Wände"), "Wnde");  // non-ASCII letters are not kept

  ElementGroupList l;
  EXPECT_EQ(l.uniqueName("Group001"), "Group001");
  ASSERT_TRUE(l.addDefault());
  ASSERT_TRUE(l.addDefault());
  ASSERT_TRUE(l.addDefault());
  EXPECT_EQ(l.at(1).name(), "Group002");
  EXPECT_EQ(l.at(2).name(), "Group003");
  l.remove(1);
  l.addDefault();
  EXPECT_EQ(l.at(2).name(), "Group002");
  l.addNamed("Chunks");
  EXPECT_EQ(l.uniqueName("Chunks"), "Chunks001");
  EXPECT_EQ(l.uniqueName("Chunks7"), "Chunks7");
  for (int i = 0; i < 997; ++i) l.addDefault();        // takes Group004 .. Group1000
  EXPECT_EQ(l.at(l.count() - 1).name(), "Group1000");  // past 999 the number just grows

  EXPECT_FALSE(l.addNamed(""));
  EXPECT_FALSE(l.addNamed("Group001"));
  EXPECT_FALSE(l.contains("group001"));  // names are case-sensitive
}

TEST(GroupList, SelectionFollowsAddRemoveAndSwap) {
  ElementGroupList l;
  EXPECT_EQ(l.getSelected(), -1);
  EXPECT_FALSE(l.deselect());
  l.addNamed("A");
  l.addNamed("B");
  l.addNamed("C");
  EXPECT_EQ(l.getSelected(), 2);  // the new group is selected
  const ElementGroup& c = l.at(2);
  EXPECT_EQ(c.mode, uint32_t(GroupMode::HoldIn));
  EXPECT_EQ(c.enabled, 1u);
  EXPECT_EQ(c.trigger, 1);
  EXPECT_EQ(c.key(), "C");

  l.remove(0);  // before the selection: it moves down
  EXPECT_EQ(l.getSelected(), 1);
  EXPECT_EQ(l.at(l.getSelected()).name(), "C");
  l.swap(0, 1);
  EXPECT_EQ(l.at(l.getSelected()).name(), "C");
  l.setSelected(1);
  l.swap(0, 1);  // the neighbour's selection follows too
  EXPECT_EQ(l.at(l.getSelected()).name(), "B");
  l.remove(l.getSelected());
  EXPECT_EQ(l.getSelected(), -1);
  EXPECT_FALSE(l.setSelected(5));
  l.clear();
  EXPECT_EQ(l.count(), 0);
  EXPECT_EQ(l.getSelected(), -1);
}

TEST(GroupList, ExclusiveAndSharedElementSets) {
  ElementGroupList l;
  l.addNamed("A");
  l.addNamed("B");
  const std::vector<int32_t> ab = {5, 1, 3, 3};
  ASSERT_TRUE(l.setElements("A", ab, false));
  ASSERT_TRUE(l.setElements("B", std::vector<int32_t>{3, 4}, false));
  EXPECT_EQ(l.at(0).elements(), (std::vector<int32_t>{1, 3, 5}));
  EXPECT_TRUE(l.at(1).contains(3));  // one index may be in several groups
  ASSERT_TRUE(l.setElements("B", std::vector<int32_t>{5, 3}, true));
  EXPECT_EQ(l.at(0).elements(), (std::vector<int32_t>{1}));
  EXPECT_EQ(l.at(1).elements(), (std::vector<int32_t>{3, 5}));
  EXPECT_FALSE(l.setElements("Z", ab, true));

  l.trimToElementCount(4);
  EXPECT_EQ(l.at(1).elements(), (std::vector<int32_t>{3}));
  EXPECT_EQ(ElementFrameName(l, 1), "B_Frame");
  EXPECT_EQ(ElementFrameName(l, 2), "");
}

// The stored bytes of two groups, built field by field.
Bytes TwoGroupsBytes() {
  Bytes b;
  U32(b, 2);
  U32(b, 5);  // version
  U32(b, 2);  // name length
  b.push_back('W');
  b.push_back('1');
  U32(b, 3);  // elements
  U32(b, 0);
  U32(b, 7);
  U32(b, 70000);
  U32(b, 3);           // mode: delay
  b.push_back(0);      // enabled
  U32(b, 0x40200000);  // delay 2.5f
  U32(b, 0xFFFFFFFF);  // matIndex -1
  b.push_back(0);      // trigger
  U32(b, 0x41200000);  // distance 10.0f
  U32(b, 0x3F800000);  // age 1.0f
  U32(b, 5);
  U32(b, 1);
  b.push_back('B');
  U32(b, 0);
  U32(b, 1);  // hold in
  b.push_back(1);
  U32(b, 0);
  U32(b, 4);
  b.push_back(1);
  U32(b, 0);
  U32(b, 0);
  return b;
}

ElementGroupList TwoGroups() {
  ElementGroupList l;
  l.addNamed("W1");
  l.addNamed("B");
  ElementGroup& w = l.at(0);
  w.setElements(std::vector<int32_t>{70000, 0, 7});
  w.mode = uint32_t(GroupMode::Delay);
  w.enabled = 0;
  w.delay = 2.5f;
  w.matIndex = -1;
  w.trigger = 0;
  w.deleteDistance = 10.0f;
  w.deleteAge = 1.0f;
  w.deleteByAge = 1;  // the switches are not stored
  w.deleteByDistance = 1;
  l.at(1).matIndex = 4;
  return l;
}

TEST(GroupStorage, BytesMatchTheStoredFormAndLoadBack) {
  test::FakeInterface ip;
  test::MemSave s;
  ASSERT_TRUE(TwoGroups().save(s, ip));
  EXPECT_EQ(s.bytes, TwoGroupsBytes());

  ElementGroupList l;
  l.addNamed("old");
  test::MemLoad in(TwoGroupsBytes());
  ASSERT_EQ(l.load(in, ip), host::IOResult::Ok);
  EXPECT_EQ(in.Left(), 0u);
  ASSERT_EQ(l.count(), 2);
  EXPECT_EQ(l.getSelected(), -1);
  const ElementGroup& w = l.at(0);
  EXPECT_EQ(w.name(), "W1");
  EXPECT_EQ(w.key(), "W1");
  EXPECT_EQ(w.version, 5u);
  EXPECT_EQ(w.elements(), (std::vector<int32_t>{0, 7, 70000}));
  EXPECT_EQ(w.mode, 3u);
  EXPECT_EQ(w.enabled, 0u);
  EXPECT_FLOAT_EQ(w.delay, 2.5f);
  EXPECT_EQ(w.matIndex, -1);
  EXPECT_EQ(w.trigger, 0);
  EXPECT_FLOAT_EQ(w.deleteDistance, 10.0f);
  EXPECT_FLOAT_EQ(w.deleteAge, 1.0f);
  EXPECT_EQ(w.deleteByAge, 0u);
  EXPECT_EQ(w.deleteByDistance, 0);
  EXPECT_EQ(l.at(1).matIndex, 4);
  EXPECT_TRUE(ip.messages.empty());

  Bytes empty;
  U32(empty, 0);
  test::MemLoad none(empty);
  EXPECT_EQ(l.load(none, ip), host::IOResult::Ok);
  EXPECT_EQ(l.count(), 0);
}

// One group record with only its name set, as written for a name of `bytes`.
Bytes NamedRecord(const std::string& bytes) {
  Bytes b;
  U32(b, 5);
  U32(b, static_cast<uint32_t>(bytes.size()));
  b.insert(b.end(), bytes.begin(), bytes.end());
  U32(b, 0);  // no elements
  U32(b, 1);  // hold in
  b.push_back(1);
  U32(b, 0), U32(b, 0);
  b.push_back(1);
  U32(b, 0), U32(b, 0);
  return b;
}

TEST(GroupStorage, NamesGoThroughTheCodePageWhole) {
  test::FakeInterface ip;
  ElementGroupList l;
  for (const char* name : {"Größe", "é", "éa", "Wände", "€ 5", "日本"})
    ASSERT_TRUE(l.addNamed(name));
  test::MemSave s;
  ASSERT_TRUE(l.save(s, ip));

  // One byte per character in Windows-1252; a character it lacks is '?'.
  Bytes want;
  U32(want, 6);
  for (const char* bytes : {"Gr\xF6\xDF"
                            "e",
                            "\xE9",
                            "\xE9"
                            "a",
                            "W\xE4nde", "\x80 5", "??"}) {
    const Bytes r = NamedRecord(bytes);
    want.insert(want.end(), r.begin(), r.end());
  }
  EXPECT_EQ(s.bytes, want);

  test::MemLoad in(s.bytes);
  ASSERT_EQ(l.load(in, ip), host::IOResult::Ok);
  std::vector<std::string> names;
  for (int32_t i = 0; i < l.count(); ++i) names.push_back(l.at(i).name());
  EXPECT_EQ(names, (std::vector<std::string>{"Größe", "é", "éa", "Wände", "€ 5", "??"}));
  EXPECT_EQ(l.at(0).key(), "Gre");
}

TEST(GroupStorage, EmptyOrTakenNamesAreMadeUniqueOnLoad) {
  // Two names the code page turns into the same text, an empty name, and a name taken by an
  // earlier record: every loaded group still has its own non-empty name.
  Bytes b;
  U32(b, 5);
  for (const char* bytes : {"??", "??", "", "Group001", "Group001"}) {
    const Bytes r = NamedRecord(bytes);
    b.insert(b.end(), r.begin(), r.end());
  }
  test::FakeInterface ip;
  ElementGroupList l;
  test::MemLoad in(b);
  ASSERT_EQ(l.load(in, ip), host::IOResult::Ok);
  std::vector<std::string> names;
  for (int32_t i = 0; i < l.count(); ++i) names.push_back(l.at(i).name());
  EXPECT_EQ(names, (std::vector<std::string>{"??", "??001", "Group001", "Group002", "Group003"}));
}

TEST(GroupStorage, OldRecordsAndShortStreamsLeaveTheListEmpty) {
  Bytes old;
  U32(old, 1);
  U32(old, 4);  // version 4
  U32(old, 1);
  old.push_back('A');
  test::FakeInterface ip;
  ElementGroupList l;
  l.addNamed("keep?");
  test::MemLoad in(old);
  bool incompatible = false;
  EXPECT_EQ(l.load(in, ip, &incompatible), host::IOResult::Error);
  EXPECT_TRUE(incompatible);
  EXPECT_EQ(l.count(), 0);
  EXPECT_EQ(l.getSelected(), -1);
  ASSERT_EQ(ip.messages.size(), 1u);
  EXPECT_EQ(ip.messages[0],
            "Kelvane Cache - Loading Groups|The element groups stored in this max file could not "
            "be loaded because they are incompatible with this version of the Kelvane Cache "
            "plugin.");

  const Bytes full = TwoGroupsBytes();
  for (size_t n = 0; n < full.size(); ++n) {
    ElementGroupList t;
    t.addNamed("x");
    test::MemLoad cut(Bytes(full.begin(), full.begin() + n));
    incompatible = true;
    EXPECT_EQ(t.load(cut, ip, &incompatible), host::IOResult::Error) << n;
    EXPECT_FALSE(incompatible) << n;  // damage, not an old record
    EXPECT_EQ(t.count(), 0) << n;
  }
  // A huge count with nothing behind it fails without allocating for it.
  Bytes huge;
  U32(huge, 0xFFFFFFFF);
  U32(huge, 5);
  U32(huge, 0xFFFFFFF0);
  test::MemLoad hin(huge);
  EXPECT_EQ(l.load(hin, ip), host::IOResult::Error);

  test::MemSave failing;
  failing.failAfter = 20;
  EXPECT_FALSE(TwoGroups().save(failing, ip));
}

}  // namespace
}  // namespace kv

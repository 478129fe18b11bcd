#include <gtest/gtest.h>

#include <string>

#include "res/strings.h"

namespace kv::res {
namespace {

TEST(StringTable, FixedIdsCarryTheirTexts) {
  EXPECT_EQ(FindString(1), "Kelvane");
  EXPECT_EQ(FindString(3), "KV Cache");
  EXPECT_EQ(FindString(4), "KV_Cache");
  EXPECT_EQ(FindString(16), "Record");
  EXPECT_EQ(FindString(32), "Ping-Pong");
  EXPECT_EQ(FindString(59), "%s already exists.\nDo you wish to replace it?");
  EXPECT_EQ(FindString(108), "File not found.");
  EXPECT_EQ(FindString(127), "Pick an object to use as source");
  EXPECT_EQ(FindString(146), "Set Filename");
  EXPECT_EQ(FindString(160), "About");
  EXPECT_EQ(FindString(2004), "Record Transformations");
  EXPECT_EQ(FindString(2022), "Milimeters");
  EXPECT_EQ(FindString(2025), "Kilometers");
  EXPECT_EQ(FindString(0), "");
  EXPECT_EQ(FindString(161), "");
  EXPECT_EQ(FindString(2026), "");

  // Every id lies in the ranges the resource file reserves.
  for (const StringEntry& e : StringTable()) {
    EXPECT_TRUE((e.id >= 1 && e.id <= 160) || (e.id >= 2004 && e.id <= 2025)) << e.id;
    EXPECT_FALSE(e.text.empty()) << e.id;
    EXPECT_LT(e.text.size(), kLoadBufferSize) << e.id;
  }
}

TEST(StringTable, LoadSharesOneBufferValidUntilTheNextLoad) {
  const std::string_view a = LoadString(IDS_UNDO_ADD_GROUP);
  EXPECT_EQ(a, "Add Group");
  const char* first = a.data();
  const std::string_view b = LoadString(IDS_CLASS_NAME);
  EXPECT_EQ(b.data(), first);                 // the same buffer ...
  EXPECT_EQ(std::string(first), "KV Cache");  // ... now holding the new text, terminated
  EXPECT_EQ(LoadString(9999), "");
  EXPECT_EQ(*first, '\0');
  EXPECT_EQ(GetString(IDS_UNDO_GROUP_MATID), "Group MatID");
}

}  // namespace
}  // namespace kv::res

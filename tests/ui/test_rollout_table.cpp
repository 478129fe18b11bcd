// The dialog table that both hosts build their rollouts from.
#include <gtest/gtest.h>

#include <set>

#include "object/params.h"
#include "res/control_ids.h"
#include "res/strings.h"
#include "ui/rollout_table.h"

namespace kv::ui {
namespace {

namespace P = param;

TEST(RolloutTable, ControlIdsAreUniqueAndBuddiesPair) {
  std::set<int> seen;
  for (const DialogDef& d : RolloutDefs()) {
    for (const ControlDef& c : d.controls) {
      if (c.id == res::IDC_STATIC) continue;
      EXPECT_TRUE(seen.insert(c.id).second) << "control id " << c.id << " used twice";
      if (c.kind == Kind::Spinner || c.kind == Kind::Edit) {
        const ControlDef* other = d.Find(c.buddy);
        ASSERT_NE(other, nullptr) << c.id;
        EXPECT_EQ(other->buddy, c.id);
        EXPECT_EQ(other->param, c.param);
      }
    }
  }
  for (const ControlDef& c : ElementListDialogDef().controls)
    EXPECT_FALSE(seen.count(c.id)) << "dialog control " << c.id << " clashes with a rollout";
}

TEST(RolloutTable, EveryBoundParameterSitsInItsOwnRolloutWithMatchingItems) {
  std::set<int> bound;
  for (const DialogDef& d : RolloutDefs()) {
    for (const ControlDef& c : d.controls) {
      if (c.param < 0) continue;
      const P::ParamDef* pd = P::FindParamDef(c.param);
      ASSERT_NE(pd, nullptr) << c.id;
      if (pd->map != P::kMapNone) {
        EXPECT_EQ(pd->map, d.map) << pd->scriptName;
      }
      bound.insert(c.param);
      if (c.kind == Kind::DropDown && c.items.empty()) {
        EXPECT_EQ(static_cast<double>(pd->items.size()), pd->hi + 1) << pd->scriptName;
      }
      if (c.kind == Kind::Radio) {
        EXPECT_LT(c.value, pd->radioCount) << c.id;
      }
    }
  }
  // Every parameter with a control of its own has one in the table.
  for (const P::ParamDef& pd : P::ParamDefs())
    if (pd.control != P::Control::None) {
      EXPECT_TRUE(bound.count(pd.id)) << pd.scriptName;
    }
}

TEST(RolloutTable, RolloutsInMapOrderWithTheirTitlesTemplatesAndStates) {
  const auto r = RolloutDefs();
  ASSERT_EQ(r.size(), 8u);
  const int templates[] = {101, 109, 103, 104, 102, 106, 110, 111};
  const bool open[] = {true, false, true, true, true, true, false, false};
  const char* titles[] = {
      "Cache File",          "File Info",          "Record", "Playback", "Viewport / Render",
      "Per-Element Control", "Explode to Objects", "About"};
  for (int i = 0; i < 8; ++i) {
    EXPECT_EQ(r[i].map, i);
    EXPECT_EQ(r[i].templateId, templates[i]);
    EXPECT_EQ(r[i].open, open[i]);
    EXPECT_EQ(res::GetString(r[i].titleId), titles[i]);
    EXPECT_EQ(FindDialog(templates[i]), &r[i]);
  }
  int map = -1;
  const ControlDef* pick = FindRolloutControl(res::IDC_REC_PICK, &map);
  ASSERT_NE(pick, nullptr);
  EXPECT_EQ(map, P::kMapRecord);
  EXPECT_EQ(res::GetString(pick->tooltipId), "Pick Node");
  EXPECT_EQ(FindRolloutControl(res::IDC_GROUP_TRIGGER)->Caption(), "Respect Activation");
}

}  // namespace
}  // namespace kv::ui

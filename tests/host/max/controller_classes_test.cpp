#include "host/max/controller_classes.h"

#include <gtest/gtest.h>

#include <set>

namespace kv::max {
namespace {

using host::ControlKind;
using host::Interp;

uint32_t ClassFor(ControlKind k, Interp i) {
  const KeyControlClass* c = FindKeyControlClass(k, i);
  return c ? c->classIdA : 0;
}

// The ids 3ds Max documents for its keyframe controllers; a wrong one creates the wrong
// controller or makes key reduction pick the wrong tolerance.
TEST(MaxKeyControlClasses, DocumentedIdsForEveryKindAndInterpolation) {
  EXPECT_EQ(ClassFor(ControlKind::Float, Interp::Linear), 0x2001u);
  EXPECT_EQ(ClassFor(ControlKind::Position, Interp::Linear), 0x2002u);
  EXPECT_EQ(ClassFor(ControlKind::Rotation, Interp::Linear), 0x2003u);
  EXPECT_EQ(ClassFor(ControlKind::Scale, Interp::Linear), 0x2004u);
  EXPECT_EQ(ClassFor(ControlKind::Float, Interp::Bezier), 0x2007u);
  EXPECT_EQ(ClassFor(ControlKind::Position, Interp::Bezier), 0x2008u);
  EXPECT_EQ(ClassFor(ControlKind::Rotation, Interp::Bezier), 0x2009u);
  EXPECT_EQ(ClassFor(ControlKind::Point3, Interp::Bezier), 0x200Au);
  EXPECT_EQ(ClassFor(ControlKind::Scale, Interp::Bezier), 0x2010u);
  EXPECT_EQ(ClassFor(ControlKind::Float, Interp::TCB), 0x442311u);
  EXPECT_EQ(ClassFor(ControlKind::Position, Interp::TCB), 0x442312u);
  EXPECT_EQ(ClassFor(ControlKind::Rotation, Interp::TCB), 0x442313u);
  EXPECT_EQ(ClassFor(ControlKind::Point3, Interp::TCB), 0x442314u);
  EXPECT_EQ(ClassFor(ControlKind::Scale, Interp::TCB), 0x442315u);

  // No keyframe class: the caller falls back to the default controller.
  EXPECT_EQ(FindKeyControlClass(ControlKind::Float, Interp::Step), nullptr);
  EXPECT_EQ(FindKeyControlClass(ControlKind::Point3, Interp::Linear), nullptr);
  EXPECT_EQ(FindKeyControlClass(ControlKind::PRS, Interp::TCB), nullptr);
  EXPECT_EQ(FindKeyControlClass(ControlKind::Matrix, Interp::Linear), nullptr);

  // Each class is created under the super class of its kind.
  for (const KeyControlClass& c : kKeyControlClasses) {
    switch (c.kind) {
      case ControlKind::Float:
        EXPECT_EQ(c.superClassId, 0x9003u);
        break;
      case ControlKind::Point3:
        EXPECT_EQ(c.superClassId, 0x900bu);
        break;
      case ControlKind::Position:
        EXPECT_EQ(c.superClassId, 0x900cu);
        break;
      case ControlKind::Rotation:
        EXPECT_EQ(c.superClassId, 0x900du);
        break;
      case ControlKind::Scale:
        EXPECT_EQ(c.superClassId, 0x900eu);
        break;
      default:
        ADD_FAILURE() << "no keyframe class for this kind";
    }
  }
}

TEST(MaxKeyControlClasses, InterpolationComesBackFromTheClass) {
  std::set<uint32_t> ids;
  for (const KeyControlClass& c : kKeyControlClasses) {
    EXPECT_TRUE(ids.insert(c.classIdA).second) << std::hex << c.classIdA;
    EXPECT_EQ(InterpOfClass(c.classIdA, 0), c.interp) << std::hex << c.classIdA;
  }
  // Classes between and around the keyframe ones are no keyframe controllers: the PRS and
  // look-at controllers, an id with a second part, an unknown id.
  EXPECT_EQ(InterpOfClass(0x2005, 0), Interp::Linear);
  EXPECT_EQ(InterpOfClass(0x2006, 0), Interp::Linear);
  EXPECT_EQ(InterpOfClass(0x442311, 1), Interp::Linear);
  EXPECT_EQ(InterpOfClass(0x12345678, 0x9abcdef0), Interp::Linear);
  // Usable where the binding checks it against the SDK at compile time.
  static_assert(InterpOfClass(0x442313, 0) == Interp::TCB);
  static_assert(InterpOfClass(0x2009, 0) == Interp::Bezier);
}

}  // namespace
}  // namespace kv::max

#include "ui/gizmo_transform.h"

#include <gtest/gtest.h>

#include <numbers>

namespace kv::ui {
namespace {

void ExpectNear(const Point3& a, const Point3& b) {
  EXPECT_NEAR(a.x, b.x, 1e-4f);
  EXPECT_NEAR(a.y, b.y, 1e-4f);
  EXPECT_NEAR(a.z, b.z, 1e-4f);
}

Matrix3 At(const Point3& p) {
  Matrix3 m;
  m.SetTrans(p);
  return m;
}

// A move is given in the axis system and lands in object space: an object scaled up in the
// world moves its gizmo by less, an axis system turned a quarter turn moves it sideways.
TEST(GizmoTransform, MoveGoesThroughTheAxisAndTheObjectTransform) {
  const Matrix3 gizmo = At({1, 2, 3});
  ExpectNear(MoveGizmo(gizmo, Matrix3(), Matrix3(), {10, 0, 0}).GetTrans(), {11, 2, 3});
  ExpectNear(MoveGizmo(gizmo, ScaleMatrix({2, 2, 2}), Matrix3(), {10, 0, 0}).GetTrans(), {6, 2, 3});
  const Matrix3 turned = RotateZMatrix(std::numbers::pi_v<float> / 2);
  const Point3 sideways = turned.VectorTransform({10, 0, 0});
  ExpectNear(MoveGizmo(gizmo, Matrix3(), turned, {10, 0, 0}).GetTrans(),
             Point3{1, 2, 3} + sideways);
  // Where the object sits in the world does not change a move.
  ExpectNear(MoveGizmo(gizmo, At({100, 0, 0}), At({5, 5, 5}), {0, 0, 4}).GetTrans(), {1, 2, 7});
}

// Rotation turns the gizmo about the axis system's origin in the world (so an object standing
// away from the origin swings its gizmo round), or about the gizmo's centre with localOrigin.
TEST(GizmoTransform, RotationTurnsAboutTheAxisOriginOrTheGizmoCentre) {
  const Quat q(AngAxis{{0, 0, 1}, std::numbers::pi_v<float> / 2});
  const Matrix3 op = q.ToMatrix();
  const Matrix3 gizmo = At({10, 0, 0});
  const Matrix3 objToWorld = At({100, 0, 0});

  const Matrix3 about = RotateGizmo(gizmo, objToWorld, Matrix3(), q, false);
  ExpectNear(about.GetTrans(), op.PointTransform({110, 0, 0}) - Point3{100, 0, 0});
  ExpectNear(about.GetRow(0), op.GetRow(0));

  const Matrix3 local = RotateGizmo(gizmo, objToWorld, Matrix3(), q, true);
  ExpectNear(local.GetTrans(), {10, 0, 0});
  ExpectNear(local.GetRow(0), op.GetRow(0));
  // An axis system placed at the gizmo's centre is the same as the local origin.
  const Matrix3 there = RotateGizmo(gizmo, objToWorld, At({110, 0, 0}), q, false);
  EXPECT_TRUE(there.Equals(local, 1e-4f));
}

TEST(GizmoTransform, ScaleAboutTheAxisOriginOrTheGizmoCentre) {
  const Matrix3 gizmo = At({10, 0, 0});
  const Matrix3 grown = ScaleGizmo(gizmo, Matrix3(), Matrix3(), {2, 3, 1}, false);
  ExpectNear(grown.GetTrans(), {20, 0, 0});
  ExpectNear(grown.GetRow(0), {2, 0, 0});
  ExpectNear(grown.GetRow(1), {0, 3, 0});
  const Matrix3 local = ScaleGizmo(gizmo, Matrix3(), Matrix3(), {2, 3, 1}, true);
  ExpectNear(local.GetTrans(), {10, 0, 0});
  ExpectNear(local.GetRow(1), {0, 3, 0});
  // A scaled object: the scale is applied in world space and comes back to object space.
  const Matrix3 big = ScaleGizmo(gizmo, ScaleMatrix({2, 2, 2}), Matrix3(), {2, 2, 2}, false);
  ExpectNear(big.GetTrans(), {20, 0, 0});
}

}  // namespace
}  // namespace kv::ui

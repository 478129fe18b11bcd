#include "ui/gizmo_transform.h"

namespace kv::ui {

namespace {

// Applies `op`, given in the axis system, to the gizmo: into axis space, op, back to world,
// back to object space.
Matrix3 InAxis(const Matrix3& gizmo, const Matrix3& objToWorld, Matrix3 axis, const Matrix3& op,
               bool localOrigin) {
  if (localOrigin) axis.SetTrans((gizmo * objToWorld).GetTrans());
  return gizmo * objToWorld * Inverse(axis) * op * axis * Inverse(objToWorld);
}

}  // namespace

Matrix3 MoveGizmo(const Matrix3& gizmo, const Matrix3& objToWorld, const Matrix3& axis,
                  const Point3& move) {
  const Point3 world = axis.VectorTransform(move);
  Matrix3 out = gizmo;
  out.Translate(Inverse(objToWorld).VectorTransform(world));
  return out;
}

Matrix3 RotateGizmo(const Matrix3& gizmo, const Matrix3& objToWorld, const Matrix3& axis,
                    const Quat& rotation, bool localOrigin) {
  Matrix3 op;
  op.Rotate(rotation);
  return InAxis(gizmo, objToWorld, axis, op, localOrigin);
}

Matrix3 ScaleGizmo(const Matrix3& gizmo, const Matrix3& objToWorld, const Matrix3& axis,
                   const Point3& scale, bool localOrigin) {
  return InAxis(gizmo, objToWorld, axis, ScaleMatrix(scale), localOrigin);
}

}  // namespace kv::ui

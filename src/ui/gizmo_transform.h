// The gizmo level's move, rotate and scale: a transform the user makes in the viewport, in the
// axis system the host gives, turned into the gizmo's new matrix (gizmo space to object space).
#pragma once

#include "geom/matrix3.h"
#include "geom/point.h"
#include "geom/quat.h"

namespace kv::ui {

// `objToWorld` takes object space to world space; `axis` is the world axis system the value
// is given in. With `localOrigin` rotation and scale turn about the gizmo's own centre rather
// than the axis system's origin (the axes keep their directions).
Matrix3 MoveGizmo(const Matrix3& gizmo, const Matrix3& objToWorld, const Matrix3& axis,
                  const Point3& move);
Matrix3 RotateGizmo(const Matrix3& gizmo, const Matrix3& objToWorld, const Matrix3& axis,
                    const Quat& rotation, bool localOrigin);
Matrix3 ScaleGizmo(const Matrix3& gizmo, const Matrix3& objToWorld, const Matrix3& axis,
                   const Point3& scale, bool localOrigin);

}  // namespace kv::ui

// The best rigid motion of a point set onto another: the rotation and translation that bring
// a piece's rest vertices closest, in the least-squares sense, to where they are now.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "geom/matrix3.h"
#include "geom/point.h"

namespace kv {

struct RigidFit {
  Matrix3 tm;             // rest -> now: a proper rotation (never a mirror) and a translation
  float maxError = 0.0f;  // the largest distance of a vertex from where `tm` puts it
};

// `base` are the rest positions with their centroid at the origin; `verts[index[i]]` is where
// base[i] is now. The rotation comes from the quaternion that maximises the alignment of the
// two sets, so a mirrored set still gets a rotation. Fewer than two points give a pure
// translation; a degenerate set (a line) gets one of the rotations that fit it equally well.
RigidFit FitRigid(std::span<const Point3> base, const Point3* verts,
                  std::span<const uint32_t> index);

// The same with the current positions in base order.
RigidFit FitRigid(std::span<const Point3> base, std::span<const Point3> now);

}  // namespace kv

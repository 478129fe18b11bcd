// Carrying packed vertex arrays by an affine matrix: the inner loop of every playback frame.
#pragma once

#include <cstddef>

#include "geom/matrix3.h"
#include "geom/point.h"

namespace kv {

// out[i] = in[i] x m for i in [0, n). Equal to Matrix3::PointTransform within float rounding
// (the vector paths may fuse multiply and add). Reads and writes nothing outside the two
// ranges; they must not overlap.
void TransformPoints(const Matrix3& m, const Point3* in, Point3* out, std::size_t n);

}  // namespace kv

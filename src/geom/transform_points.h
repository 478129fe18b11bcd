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

// One element's vertices and the matrix that carries them (pointed at, not copied: most
// elements play a stored sample matrix as it is).
struct PointRun {
  const Matrix3* m = nullptr;
  const Point3* in = nullptr;
  Point3* out = nullptr;
  std::size_t n = 0;
};

// TransformPoints for every run, with the results it would give run by run; the vector path
// is chosen once for the lot and the loop over runs stays inside it.
void TransformPointRuns(const PointRun* runs, std::size_t count);

}  // namespace kv

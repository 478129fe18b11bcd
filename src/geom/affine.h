// Polar decomposition of an affine matrix into translation, rotation and stretch.
#pragma once

#include "geom/matrix3.h"
#include "geom/quat.h"

namespace kv {

// M = inverse(U) x Scale(k) x U x Scale(f) x Q x Translate(t) in row-vector order:
// u rotates into the stretch axes, k stretches along them, f (+1 or -1) mirrors, q rotates,
// t translates.
struct AffineParts {
  Point3 t;           // translation
  Quat q;             // essential rotation
  Quat u;             // stretch rotation
  Point3 k{1, 1, 1};  // stretch factors
  float f = 1;        // sign of the determinant
};

// The standard polar decomposition (M = Q S with Q orthogonal, S symmetric, then the spectral
// decomposition of S). Never produces NaN for finite input; a singular matrix gives zero
// stretch along the collapsed axis.
AffineParts DecompAffine(const Matrix3& m);

// The rebuild of the formula above.
Matrix3 ComposeAffine(const AffineParts& parts);

// Blend of two transforms by fraction f: translation, stretch and sign linearly, rotations by
// slerp (the second made closest to the first). f = 0 gives a, f = 1 gives b.
Matrix3 BlendTransforms(const Matrix3& a, const Matrix3& b, float f);

}  // namespace kv

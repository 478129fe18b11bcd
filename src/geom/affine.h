// Polar decomposition of an affine matrix into translation, rotation and stretch.
#pragma once

#include <cstddef>

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

// The same blend from transforms decomposed once beforehand (a playback frame blends many
// elements between the same two samples). Equal to BlendTransforms of the matrices within
// float rounding. When both stretches are uniform, which DecompAffine reports exactly (equal
// factors, identity stretch rotation) for rigid and uniformly scaled matrices, the stretch
// rotation drops out and the result is the scaled rotation matrix of the slerped q.
Matrix3 BlendAffineParts(const AffineParts& a, const AffineParts& b, float f);

// What a slerp by one fraction needs besides the two quaternions: the polynomials in
// cos(theta) - 1 whose values are the weights sin((1 - f) theta) / sin(theta) and
// sin(f theta) / sin(theta). Many elements blended by the same fraction share one.
struct SlerpWeights {
  static constexpr int kTerms = 9;
  float f = 0;
  float wa[kTerms] = {};  // coefficients, lowest power first
  float wb[kTerms] = {};
  explicit SlerpWeights(float fraction);
};
Matrix3 BlendAffineParts(const AffineParts& a, const AffineParts& b, const SlerpWeights& w);

// BlendAffineParts(*a[i], *b[i], w) into *out[i] for i < count, bit for bit, four elements
// at a time on the vector unit where it can (the same operations in the same order).
void BlendAffinePartsMany(const AffineParts* const* a, const AffineParts* const* b,
                          std::size_t count, const SlerpWeights& w, Matrix3* const* out);

// Slerp from a to b (made closest to a) by t in [0, 1], without trigonometry when the two
// are within about 106 degrees of rotation: the weights sin(t theta) / sin(theta) come from
// their series in cos(theta) - 1, truncated where its error is below 1e-7. Wider angles use
// Slerp. The result is normalised.
Quat SlerpSeries(const Quat& a, const Quat& b, float t);
Quat SlerpSeries(const Quat& a, const Quat& b, const SlerpWeights& w);

}  // namespace kv

#include "geom/affine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

namespace kv {
namespace {

constexpr float kPi = std::numbers::pi_v<float>;

float MaxAbs(const Matrix3& m) {
  float s = 0;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) s = std::max(s, std::fabs(m.GetRow(r)[c]));
  return s;
}

// Largest element difference, relative to the size of the expected matrix.
float RelError(const Matrix3& got, const Matrix3& want) {
  float e = 0;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) e = std::max(e, std::fabs(got.GetRow(r)[c] - want.GetRow(r)[c]));
  return e / std::max(1.0f, MaxAbs(want));
}

bool IsUnit(const Quat& q) {
  return std::fabs(q.Dot(q) - 1) < 1e-5f;
}

class RandomMatrices {
 public:
  explicit RandomMatrices(unsigned seed) : rng_(seed) {}
  float Uniform(float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(rng_); }
  Quat Rotation() {
    const Point3 axis{Uniform(-1, 1), Uniform(-1, 1), Uniform(-1, 1)};
    return Quat(AngAxis{axis.LengthSquared() > 1e-4f ? axis : Point3{0, 0, 1}, Uniform(-kPi, kPi)});
  }
  // Stretch along rotated axes, optional mirror, rotation and translation.
  Matrix3 Affine(bool mirror) {
    const Quat axes = Rotation();
    Matrix3 m = axes.Inverse().ToMatrix();
    m.Scale({Uniform(0.05f, 20), Uniform(0.05f, 20), Uniform(0.05f, 20)});
    m.Rotate(axes);
    if (mirror) m.Scale({-1, 1, 1});
    m.Rotate(Rotation());
    m.Translate({Uniform(-500, 500), Uniform(-500, 500), Uniform(-500, 500)});
    return m;
  }
  // Any 3x3 (skew included) with a translation.
  Matrix3 General() {
    Matrix3 m;
    for (int r = 0; r < 4; ++r) m.SetRow(r, {Uniform(-3, 3), Uniform(-3, 3), Uniform(-3, 3)});
    return m;
  }

 private:
  std::mt19937 rng_;
};

TEST(DecompAffine, RebuildReproducesRandomMatrices) {
  RandomMatrices gen(7);
  for (int i = 0; i < 2000; ++i) {
    const Matrix3 m = i % 3 == 2 ? gen.General() : gen.Affine(i % 2 == 1);
    const AffineParts p = DecompAffine(m);
    ASSERT_LT(RelError(ComposeAffine(p), m), 1e-5f) << "matrix " << i;
    EXPECT_TRUE(IsUnit(p.q)) << i;
    EXPECT_TRUE(IsUnit(p.u)) << i;
    EXPECT_EQ(p.f, m.Determinant() < 0 ? -1.0f : 1.0f) << i;
    EXPECT_GE(std::min({p.k.x, p.k.y, p.k.z}), 0.0f) << i;
  }
}

TEST(DecompAffine, SeparatesTheFactorsOfAKnownMatrix) {
  // Stretch (2, 3, 4) along the axes, then a mirror, then 90 degrees about Z, then a move.
  Matrix3 m = ScaleMatrix({2, 3, 4});
  m.Scale({-1, -1, -1});
  m.RotateZ(kPi / 2);
  m.Translate({5, 6, 7});
  const AffineParts p = DecompAffine(m);
  EXPECT_EQ(p.t, (Point3{5, 6, 7}));
  EXPECT_EQ(p.f, -1.0f);
  EXPECT_NEAR(p.k.x, 2, 1e-5);
  EXPECT_NEAR(p.k.y, 3, 1e-5);
  EXPECT_NEAR(p.k.z, 4, 1e-5);
  // Axis-aligned stretch needs no stretch rotation.
  EXPECT_NEAR(std::fabs(p.u.w), 1, 1e-6);
  // The mirror is taken out of the rotation, which is left as 90 degrees about Z.
  EXPECT_TRUE(p.q.Closest(Quat()).Equals(Quat(AngAxis{{0, 0, 1}, kPi / 2}), 1e-6f));
}

TEST(DecompAffine, StretchRotationIsTheSmallestOneThatFits) {
  // A stretch along axes turned by 10 degrees: any of the 24 equivalent axis orders would
  // rebuild the matrix, but only the near-identity one blends sensibly.
  for (float turn : {0.17f, -0.6f, 1.2f, 2.9f}) {
    const Quat axes(AngAxis{{1, 2, 3}, turn});
    Matrix3 m = axes.Inverse().ToMatrix();
    m.Scale({1, 2, 5});
    m.Rotate(axes);
    const AffineParts p = DecompAffine(m);
    EXPECT_LT(RelError(ComposeAffine(p), m), 1e-5f);
    const float uAngle = p.u.ToAngAxis().angle;
    EXPECT_LE(uAngle, std::fabs(turn) + 1e-4f) << turn;
    // The 24 axis orders reach every orientation within 62.8 degrees, so the nearest one is
    // never farther than that.
    EXPECT_LE(uAngle, 62.8f * kPi / 180) << turn;
  }
  RandomMatrices gen(3);
  for (int i = 0; i < 500; ++i) {
    const Quat axes = gen.Rotation();
    Matrix3 m = axes.Inverse().ToMatrix();
    m.Scale({gen.Uniform(0.1f, 1), gen.Uniform(1.1f, 2), gen.Uniform(2.1f, 3)});
    m.Rotate(axes);
    EXPECT_LE(DecompAffine(m).u.ToAngAxis().angle, 62.8f * kPi / 180) << i;
  }
  // Equal stretch along two axes: the free turn about the odd axis is not used.
  Matrix3 m = ScaleMatrix({3, 3, 1});
  const AffineParts p = DecompAffine(m);
  EXPECT_NEAR(std::fabs(p.u.w), 1, 1e-6);
  EXPECT_NEAR(p.k.z, 1, 1e-6);
}

TEST(DecompAffine, SingularAndDegenerateInputStayFinite) {
  const Matrix3 cases[] = {
      Matrix3({0, 0, 0}, {0, 0, 0}, {0, 0, 0}, {1, 2, 3}),  // everything collapsed
      Matrix3({2, 0, 0}, {0, 3, 0}, {0, 0, 0}, {}),         // flattened onto a plane
      Matrix3({1, 1, 0}, {2, 2, 0}, {0, 0, 0}, {}),         // onto a line
      Matrix3({1, 2, 3}, {4, 5, 6}, {7, 8, 9}, {}),         // rank 2, skewed
      ScaleMatrix({1e-4f, 1, 1e4f}),                        // badly conditioned
  };
  for (const Matrix3& m : cases) {
    const AffineParts p = DecompAffine(m);
    const Matrix3 r = ComposeAffine(p);
    for (int row = 0; row < 4; ++row)
      for (int c = 0; c < 3; ++c) ASSERT_TRUE(std::isfinite(r.GetRow(row)[c]));
    EXPECT_LT(RelError(r, m), 1e-5f);
    EXPECT_TRUE(IsUnit(p.q));
    EXPECT_TRUE(IsUnit(p.u));
  }
  // A collapsed axis shows as a zero stretch factor.
  const AffineParts flat = DecompAffine(cases[1]);
  EXPECT_FLOAT_EQ(std::min({flat.k.x, flat.k.y, flat.k.z}), 0);
}

TEST(BlendTransforms, EndsAndMidpoints) {
  RandomMatrices gen(11);
  for (int i = 0; i < 200; ++i) {
    const Matrix3 a = gen.Affine(i % 4 == 0);
    const Matrix3 b = gen.Affine(i % 3 == 0);
    EXPECT_LT(RelError(BlendTransforms(a, b, 0), a), 1e-5f) << i;
    EXPECT_LT(RelError(BlendTransforms(a, b, 1), b), 1e-5f) << i;
  }

  // Half way between two rotations about one axis is the half-angle rotation, also when the
  // two are more than 180 degrees apart the short way round is taken.
  const Point3 axis = Point3{1, -2, 0.5f}.Normalized();
  const Matrix3 a = RotAngleAxisMatrix(axis, 0.3f);
  const Matrix3 b = RotAngleAxisMatrix(axis, 1.5f);
  EXPECT_TRUE(BlendTransforms(a, b, 0.5f).Equals(RotAngleAxisMatrix(axis, 0.9f), 1e-5f));
  EXPECT_TRUE(BlendTransforms(a, b, 0.25f).Equals(RotAngleAxisMatrix(axis, 0.6f), 1e-5f));
  const Matrix3 c = RotAngleAxisMatrix(axis, 2.9f);
  const Matrix3 d = RotAngleAxisMatrix(axis, -2.9f);
  EXPECT_TRUE(BlendTransforms(c, d, 0.5f).Equals(RotAngleAxisMatrix(axis, kPi), 1e-5f));

  // Translation and stretch move linearly; rotation is independent of them.
  Matrix3 s = ScaleMatrix({1, 2, 3});
  s.Translate({10, 0, 0});
  Matrix3 e = ScaleMatrix({3, 2, 1});
  e.Translate({20, 40, 0});
  Matrix3 want = ScaleMatrix({1.5f, 2, 2.5f});
  want.Translate({12.5f, 10, 0});
  EXPECT_TRUE(BlendTransforms(s, e, 0.25f).Equals(want, 1e-5f));
}

TEST(BlendTransforms, StretchAxesFollowTheBlendedRotation) {
  // The same stretch along axes turned by 0 and by 40 degrees: half way the stretch lies along
  // axes turned by 20 degrees, with the same factors (not a squashed average of the two).
  auto stretched = [](float turn) {
    const Quat axes(AngAxis{{0, 0, 1}, turn});
    Matrix3 m = axes.Inverse().ToMatrix();
    m.Scale({4, 1, 1});
    m.Rotate(axes);
    return m;
  };
  const Matrix3 mid = BlendTransforms(stretched(0), stretched(40 * kPi / 180), 0.5f);
  EXPECT_LT(RelError(mid, stretched(20 * kPi / 180)), 1e-5f);
}

}  // namespace
}  // namespace kv

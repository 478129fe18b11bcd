#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <random>

#include "geom/matrix3.h"
#include "geom/quat.h"

namespace kv {
namespace {

constexpr float kPi = std::numbers::pi_v<float>;

void ExpectNear(const Point3& a, const Point3& b, float eps = 1e-5f) {
  EXPECT_NEAR(a.x, b.x, eps);
  EXPECT_NEAR(a.y, b.y, eps);
  EXPECT_NEAR(a.z, b.z, eps);
}

bool SameRotation(const Quat& a, const Quat& b, float eps = 1e-5f) {
  return a.Equals(b, eps) || a.Equals(-b, eps);
}

TEST(Quat, RightHandedAndAgreesWithItsMatrix) {
  // 90 degrees about Z turns X into Y (counter-clockwise seen from +Z), as the axis matrices do.
  const Quat z90(AngAxis{{0, 0, 1}, kPi / 2});
  ExpectNear(z90.Rotate({1, 0, 0}), {0, 1, 0});
  ExpectNear(Point3{1, 0, 0} * RotateZMatrix(kPi / 2), {0, 1, 0});
  ExpectNear(Point3{0, 1, 0} * RotateXMatrix(kPi / 2), {0, 0, 1});
  ExpectNear(Point3{0, 0, 1} * RotateYMatrix(kPi / 2), {1, 0, 0});
  EXPECT_TRUE(RotAngleAxisMatrix({0, 0, 2}, kPi / 2).Equals(RotateZMatrix(kPi / 2), 1e-6f));

  std::mt19937 rng(5);
  std::uniform_real_distribution<float> u(-1, 1);
  for (int i = 0; i < 200; ++i) {
    const Quat a = Quat(u(rng), u(rng), u(rng), u(rng)).Normalized();
    const Quat b = Quat(u(rng), u(rng), u(rng), u(rng)).Normalized();
    const Point3 p{u(rng) * 10, u(rng) * 10, u(rng) * 10};
    ExpectNear(p * a.ToMatrix(), a.Rotate(p), 1e-4f);
    // a * b applies a first, like the matrix product.
    ExpectNear((a * b).Rotate(p), b.Rotate(a.Rotate(p)), 1e-4f);
    EXPECT_TRUE((a * b).ToMatrix().Equals(a.ToMatrix() * b.ToMatrix(), 1e-5f));
    ExpectNear((a * a.Inverse()).Rotate(p), p, 1e-4f);
  }
}

TEST(Quat, MatrixRoundTripIncludingHalfTurns) {
  const Point3 axes[] = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 0}, {-1, 2, 3}, {0, -1, 1}};
  const float angles[] = {0, 0.01f, 1, kPi / 2, 3, kPi - 1e-3f, kPi};
  for (const Point3& axis : axes) {
    for (float angle : angles) {
      const Quat q(AngAxis{axis, angle});
      const Quat back(q.ToMatrix());
      EXPECT_TRUE(SameRotation(back, q)) << axis.x << axis.y << axis.z << " " << angle;
      // Scale is not part of the rotation, nor is a mirror, which counts as a scale of -1.
      Matrix3 m = q.ToMatrix();
      m.PreScale({2, 0.5f, 3});
      m.Translate({4, 5, 6});
      EXPECT_TRUE(SameRotation(Quat(m), q));
      m.PreScale({1, 1, -1});
      Matrix3 turned = q.ToMatrix();
      turned.PreScale({-1, -1, 1});
      EXPECT_TRUE(SameRotation(Quat(m), Quat(turned)));
      const AngAxis aa = q.ToAngAxis();
      EXPECT_TRUE(SameRotation(Quat(aa), q));
      EXPECT_GE(aa.angle, 0);
      EXPECT_LE(aa.angle, kPi + 1e-6f);
    }
  }
  EXPECT_EQ(Quat(Matrix3()), Quat());
}

TEST(Quat, SlerpFollowsTheShortArcAtConstantSpeed) {
  const Point3 axis = Point3{1, 2, 2}.Normalized();
  const Quat a(AngAxis{axis, 0.2f});
  const Quat b(AngAxis{axis, 1.4f});
  EXPECT_EQ(Slerp(a, b, 0), a);
  EXPECT_EQ(Slerp(a, b, 1), b);
  for (float t : {0.1f, 0.5f, 0.9f})
    EXPECT_TRUE(SameRotation(Slerp(a, b, t), Quat(AngAxis{axis, 0.2f + 1.2f * t}))) << t;
  // -b is the same rotation; the blend must not take the long way round.
  EXPECT_TRUE(SameRotation(Slerp(a, -b, 0.5f), Quat(AngAxis{axis, 0.8f})));
  // 170 and -170 degrees meet at 180, not at 0.
  const Quat c(AngAxis{axis, 170 * kPi / 180});
  const Quat d(AngAxis{axis, -170 * kPi / 180});
  EXPECT_TRUE(SameRotation(Slerp(c, d, 0.5f), Quat(AngAxis{axis, kPi})));
  // Nearly equal inputs stay unit length and finite.
  const Quat e(AngAxis{axis, 0.2f + 1e-6f});
  const Quat m = Slerp(a, e, 0.5f);
  EXPECT_NEAR(m.Dot(m), 1, 1e-6);
}

TEST(Matrix3, InverseUndoesTheTransform) {
  std::mt19937 rng(9);
  std::uniform_real_distribution<float> u(-2, 2);
  for (int i = 0; i < 200; ++i) {
    Matrix3 m({u(rng), u(rng), u(rng)}, {u(rng), u(rng), u(rng)}, {u(rng), u(rng), u(rng)},
              {u(rng) * 5, u(rng) * 5, u(rng) * 5});
    if (std::fabs(m.Determinant()) < 0.5f) continue;
    EXPECT_TRUE((m * Inverse(m)).IsIdentity(1e-4f)) << i;
    EXPECT_TRUE((Inverse(m) * m).IsIdentity(1e-4f)) << i;
  }
  // A singular matrix gives no NaN: the identity with the translation undone.
  const Matrix3 flat({1, 0, 0}, {0, 1, 0}, {0, 0, 0}, {1, 2, 3});
  EXPECT_EQ(Inverse(flat), TransMatrix({-1, -2, -3}));
}

TEST(Matrix3, PreAndPostFormsApplyBeforeAndAfter) {
  const Matrix3 base({0, 2, 0}, {-2, 0, 0}, {0, 0, 2}, {10, 20, 30});  // scale 2, turn, move
  const Point3 p{1, 2, 3};
  const Quat q(AngAxis{{1, 1, 0}, 0.7f});

  Matrix3 m = base;
  m.Translate({1, 1, 1});
  ExpectNear(p * m, p * base + Point3{1, 1, 1});
  m = base;
  m.PreTranslate({1, 1, 1});
  ExpectNear(p * m, (p + Point3{1, 1, 1}) * base);

  m = base;
  m.Rotate(q);
  ExpectNear(p * m, q.Rotate(p * base), 1e-4f);
  m = base;
  m.PreRotate(q);
  ExpectNear(p * m, q.Rotate(p) * base, 1e-4f);

  m = base;
  m.Scale({2, 3, 4});
  ExpectNear(p * m, CompMul(p * base, {2, 3, 4}));
  m = base;
  m.Scale({2, 3, 4}, false);
  EXPECT_EQ(m.GetTrans(), base.GetTrans());
  ExpectNear(VectorTransform(m, p), CompMul(VectorTransform(base, p), {2, 3, 4}));
  m = base;
  m.PreScale({2, 3, 4});
  ExpectNear(p * m, CompMul(p, {2, 3, 4}) * base);

  // Products read left to right, and the float layout is row by row.
  ExpectNear(p * (TransMatrix({1, 0, 0}) * ScaleMatrix({2, 2, 2})), (p + Point3{1, 0, 0}) * 2);
  float f[12];
  base.ToFloats(f);
  EXPECT_EQ(f[1], 2);
  EXPECT_EQ(f[3], -2);
  EXPECT_EQ(f[11], 30);
  EXPECT_EQ(Matrix3::FromFloats(f), base);
  EXPECT_TRUE(ScaleMatrix({1, -1, 1}).Parity());
  EXPECT_FALSE(base.Parity());
}

}  // namespace
}  // namespace kv

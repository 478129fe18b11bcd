// The blend of pre-decomposed transforms (the playback path) against the general blend of
// the matrices, and the series slerp against the trigonometric one.
#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <numbers>
#include <random>
#include <vector>

#include "geom/affine.h"

namespace kv {
namespace {

constexpr float kPi = std::numbers::pi_v<float>;

// Largest element difference, relative to the size of the expected matrix.
float RelError(const Matrix3& got, const Matrix3& want) {
  float e = 0, size = 1;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) {
      e = std::max(e, std::fabs(got.GetRow(r)[c] - want.GetRow(r)[c]));
      size = std::max(size, std::fabs(want.GetRow(r)[c]));
    }
  return e / size;
}

// Distance between two rotations, blind to the sign of the quaternion.
float QuatDistance(const Quat& a, const Quat& b) {
  const Quat c = b.Closest(a);
  return std::max(
      {std::fabs(a.x - c.x), std::fabs(a.y - c.y), std::fabs(a.z - c.z), std::fabs(a.w - c.w)});
}

struct Random {
  std::mt19937 gen{20240611};
  float Uniform(float lo, float hi) { return std::uniform_real_distribution<float>(lo, hi)(gen); }
  Point3 Axis() {
    for (;;) {
      const Point3 p{Uniform(-1, 1), Uniform(-1, 1), Uniform(-1, 1)};
      if (p.LengthSquared() > 0.01f && p.LengthSquared() <= 1) return p.Normalized();
    }
  }
  Matrix3 Rotation(float maxAngle) { return RotAngleAxisMatrix(Axis(), Uniform(0, maxAngle)); }
  Point3 Translation() { return {Uniform(-100, 100), Uniform(-100, 100), Uniform(-100, 100)}; }
};

enum class Kind { Rigid, Uniform, Mirrored, Stretched };

Matrix3 MakeTransform(Random& rnd, Kind kind, const Matrix3& near, float step) {
  Matrix3 m = near * rnd.Rotation(step);
  switch (kind) {
    case Kind::Rigid:
      break;
    case Kind::Uniform:
      m = ScaleMatrix(Point3{1, 1, 1} * rnd.Uniform(0.2f, 3)) * m;
      break;
    case Kind::Mirrored:
      m = ScaleMatrix({-1.5f, -1.5f, -1.5f}) * m;
      break;
    case Kind::Stretched:
      m = rnd.Rotation(kPi) * ScaleMatrix({rnd.Uniform(0.3f, 3), rnd.Uniform(0.3f, 3), 1}) * m;
      break;
  }
  m.SetTrans(rnd.Translation());
  return m;
}

TEST(BlendAffineParts, MatchesTheGeneralBlendOnRandomTransforms) {
  Random rnd;
  const Kind kinds[] = {Kind::Rigid, Kind::Uniform, Kind::Mirrored, Kind::Stretched};
  // Small steps (neighbouring samples), wide ones up to the series' limit, and wider ones
  // that fall back to the trigonometric slerp.
  const float steps[] = {0.01f, 0.5f, 1.8f, 3.1f};
  float worst = 0;
  for (Kind ka : kinds)
    for (Kind kb : kinds)
      for (float step : steps)
        for (int i = 0; i < 40; ++i) {
          const Matrix3 base = rnd.Rotation(kPi);
          const Matrix3 a = MakeTransform(rnd, ka, base, 0);
          const Matrix3 b = MakeTransform(rnd, kb, base, step);
          const AffineParts pa = DecompAffine(a), pb = DecompAffine(b);
          for (float f : {0.0f, 1e-4f, rnd.Uniform(0, 1), 0.5f, 0.9999f}) {
            const float err = RelError(BlendAffineParts(pa, pb, f), BlendTransforms(a, b, f));
            worst = std::max(worst, err);
            ASSERT_LT(err, 1e-5f) << "kinds " << int(ka) << "," << int(kb) << " step " << step
                                  << " f " << f;
          }
        }
  RecordProperty("worst", std::to_string(worst));
}

TEST(BlendAffineParts, SharedWeightsEqualFreshOnes) {
  // A frame computes the weights once per fraction: they must give what a fresh call gives.
  Random rnd;
  const SlerpWeights w(0.37f);
  for (int i = 0; i < 20; ++i) {
    const Matrix3 base = rnd.Rotation(kPi);
    const AffineParts pa = DecompAffine(MakeTransform(rnd, Kind::Rigid, base, 0));
    const AffineParts pb = DecompAffine(MakeTransform(rnd, Kind::Stretched, base, 0.3f));
    EXPECT_EQ(BlendAffineParts(pa, pb, w), BlendAffineParts(pa, pb, 0.37f));
    EXPECT_EQ(BlendAffineParts(pa, pa, w), BlendAffineParts(pa, pa, 0.37f));
  }
}

TEST(BlendAffineParts, ManyAtOnceEqualOneByOneBitForBit) {
  // Batches mix every kind of motion, steps that leave the series, a sign flip between the
  // samples, equal samples and degenerate parts, in every batch length through two groups of
  // eight (or five of four), so each lane falls back on its own and the spare lanes of a last
  // group are ignored.
  Random rnd;
  const Kind kinds[] = {Kind::Rigid, Kind::Uniform, Kind::Mirrored, Kind::Stretched};
  const float steps[] = {0.01f, 0.5f, 1.8f, 3.1f};
  std::vector<AffineParts> pa, pb;
  for (int i = 0; i < 64; ++i) {
    const Matrix3 base = rnd.Rotation(kPi);
    const Kind ka = i % 5 == 0 ? kinds[(i / 5) % 4] : Kind::Rigid;
    const Kind kb = i % 3 == 0 ? kinds[(i / 3) % 4] : ka;
    const Matrix3 a = MakeTransform(rnd, ka, base, 0);
    pa.push_back(DecompAffine(a));
    pb.push_back(i % 7 == 0 ? pa.back() : DecompAffine(MakeTransform(rnd, kb, base, steps[i % 4])));
    if (i % 11 == 0) pb.back().q = -pb.back().q;
  }
  pa[9].q = {0, 0, 0, 0};  // no rotation left to normalise: the lane gives the first parts
  pb[9].q = {0, 0, 0, 0};
  pa[10].k = {0, 0, 0};  // a collapsed element
  pb[10].k = {0, 0, 0};
  for (float f : {0.0f, 0.25f, rnd.Uniform(0, 1), 0.9999f}) {
    const SlerpWeights w(f);
    for (size_t count = 0; count <= 20; ++count)
      for (size_t first = 0; first + count <= pa.size(); first += 13) {
        std::vector<const AffineParts*> a, b;
        std::vector<Matrix3> got(count + 1, ScaleMatrix({7, 7, 7}));
        std::vector<Matrix3*> out;
        for (size_t i = 0; i < count; ++i) {
          a.push_back(&pa[first + i]);
          b.push_back(&pb[first + i]);
          out.push_back(&got[i]);
        }
        BlendAffinePartsMany(a.data(), b.data(), count, w, out.data());
        for (size_t i = 0; i < count; ++i) {
          const Matrix3 want = BlendAffineParts(*a[i], *b[i], w);
          float g[12], e[12];
          got[i].ToFloats(g);
          want.ToFloats(e);
          for (int c = 0; c < 12; ++c)
            ASSERT_EQ(std::bit_cast<uint32_t>(g[c]), std::bit_cast<uint32_t>(e[c]))
                << "element " << first + i << " of " << count << " float " << c << " f " << f;
        }
        EXPECT_EQ(got[count], ScaleMatrix({7, 7, 7})) << "written past the batch";
      }
  }
}

TEST(SlerpSeries, MatchesSlerpFromNoAngleToAHalfTurn) {
  Random rnd;
  for (float angle = 0; angle < 2 * kPi; angle += 0.05f) {
    for (int i = 0; i < 20; ++i) {
      const Quat a(AngAxis{rnd.Axis(), rnd.Uniform(-kPi, kPi)});
      Quat b = a * Quat(AngAxis{rnd.Axis(), angle});
      if (i % 2) b = -b;  // either sign describes the same rotation
      const float t = i == 0 ? 0.0f : (i == 1 ? 1.0f : rnd.Uniform(0, 1));
      const Quat want = Slerp(a, b, t), got = SlerpSeries(a, b, t);
      ASSERT_LT(QuatDistance(got, want), 1e-6f) << "angle " << angle << " t " << t;
      ASSERT_NEAR(got.Dot(got), 1.0f, 1e-6f);
    }
  }
  // Equal inputs give themselves, for any fraction.
  const Quat q(AngAxis{{0, 0, 1}, 1.0f});
  EXPECT_LT(QuatDistance(SlerpSeries(q, q, 0.3f), q), 1e-7f);
}

}  // namespace
}  // namespace kv

// The standalone controllers' own sine, cosine and arc cosine: close to the true values over
// the angles rotations reach, and the same bits four at a time as one at a time.
#include "host/standalone/rotation_lanes.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <numbers>

namespace kv::standalone::lanes {
namespace {

TEST(RotationLanes, SineCosineAndArcCosineAreAccurate) {
  double worstSin = 0, worstCos = 0, worstAcos = 0;
  // Angles from 0 to a little over pi, densest near 0 where rotations are small.
  for (int n = 0; n <= 200000; ++n) {
    const float x = n < 100000 ? float(n) * 1e-7f : float(n - 100000) * 3.2e-5f;
    float s, c;
    SinCos(x, s, c);
    ASSERT_EQ(std::bit_cast<uint32_t>(s), std::bit_cast<uint32_t>(Sin(x))) << x;
    // Relative error for the sine (small angles keep their precision), absolute for the
    // cosine, in units of float's epsilon.
    const double ts = std::sin(double(x)), tc = std::cos(double(x));
    if (ts != 0) worstSin = std::max(worstSin, std::abs(s - ts) / std::abs(ts));
    worstCos = std::max(worstCos, std::abs(c - tc));
  }
  for (int n = -100000; n <= 100000; ++n) {
    const float d = float(n) * 1e-5f;
    worstAcos = std::max(worstAcos, std::abs(Acos(d) - std::acos(double(d))));
  }
  // Near 1 the angle comes through the half-angle square root: relative precision.
  for (float d = 1.0f; d > 0.999f; d = std::nextafter(d, 0.0f)) {
    const double t = std::acos(double(d));
    ASSERT_LE(std::abs(Acos(d) - t), 4e-7 * t) << d;
  }
  EXPECT_EQ(Acos(1.0f), 0.0f);
  EXPECT_NEAR(Acos(-1.0f), std::numbers::pi, 3e-7);
  EXPECT_LT(worstSin, 3e-7);
  EXPECT_LT(worstCos, 3e-7);
  EXPECT_LT(worstAcos, 5e-7);
}

#if KV_ROTATION_LANES
TEST(RotationLanes, FourAtOnceGiveTheBitsOfOneAtATime) {
  const float xs[] = {0.0f, 1e-7f, 0.3f, 0.785398f, 0.7854f, 1.5707963f, 2.0f, 3.1415927f};
  const float ds[] = {-1.0f, -0.7f, -0.5f, -0.49f, 0.0f, 0.5f, 0.50001f, 0.9999999f};
  for (int b = 0; b < 2; ++b) {
    F4 x(_mm_loadu_ps(xs + 4 * b)), d(_mm_loadu_ps(ds + 4 * b));
    F4 s, c;
    SinCos(x, s, c);
    const F4 a = Acos(d);
    float so[4], co[4], ao[4];
    _mm_storeu_ps(so, s.v), _mm_storeu_ps(co, c.v), _mm_storeu_ps(ao, a.v);
    for (int l = 0; l < 4; ++l) {
      float s1, c1;
      SinCos(xs[4 * b + l], s1, c1);
      EXPECT_EQ(std::bit_cast<uint32_t>(so[l]), std::bit_cast<uint32_t>(s1)) << xs[4 * b + l];
      EXPECT_EQ(std::bit_cast<uint32_t>(co[l]), std::bit_cast<uint32_t>(c1)) << xs[4 * b + l];
      EXPECT_EQ(std::bit_cast<uint32_t>(ao[l]), std::bit_cast<uint32_t>(Acos(ds[4 * b + l])))
          << ds[4 * b + l];
    }
  }
}
#endif

}  // namespace
}  // namespace kv::standalone::lanes

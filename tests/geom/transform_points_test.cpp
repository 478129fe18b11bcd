#include "geom/transform_points.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

namespace kv {
namespace {

TEST(TransformPoints, EqualsPointTransformForEveryLengthAndTouchesNothingElse) {
  std::mt19937 gen(7);
  std::uniform_real_distribution<float> u(-50, 50);
  Matrix3 m({0.8f, -0.6f, 0.1f}, {0.6f, 0.8f, -0.2f}, {0.05f, 0.3f, 1.7f}, {12, -7, 3});
  const Point3 guard{1234.5f, -999, 42};
  // Every length through three groups of eight, so each vector width and tail is reached,
  // at an odd start so that nothing relies on alignment.
  for (size_t n = 0; n <= 27; ++n) {
    std::vector<Point3> in(n);  // exact size: an over-read shows under the sanitizer
    for (Point3& p : in) p = {u(gen), u(gen), u(gen)};
    std::vector<Point3> out(n + 3, guard);
    TransformPoints(m, in.data(), out.data() + 1, n);
    EXPECT_EQ(out.front(), guard) << n;
    EXPECT_EQ(out[n + 1], guard) << n;
    EXPECT_EQ(out[n + 2], guard) << n;
    for (size_t i = 0; i < n; ++i) {
      const Point3 want = m.PointTransform(in[i]);
      for (int c = 0; c < 3; ++c) ASSERT_NEAR(out[i + 1][c], want[c], 1e-4f) << n << " " << i;
    }
  }
}

}  // namespace
}  // namespace kv

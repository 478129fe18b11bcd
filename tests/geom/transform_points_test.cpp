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

TEST(TransformPoints, RunsGiveTheResultsOfOneCallEachAndStayInTheirOwnRanges) {
  std::mt19937 gen(11);
  std::uniform_real_distribution<float> u(-50, 50);
  // Runs of every length through two groups of eight, and some empty ones, packed back to back
  // in one input and one output array with a guard between outputs, each with its own matrix.
  std::vector<size_t> lengths;
  for (size_t n = 0; n <= 17; ++n) lengths.push_back(n);
  lengths.insert(lengths.end(), {24, 0, 0, 5, 100});
  size_t total = 0;
  for (size_t n : lengths) total += n;
  std::vector<Point3> in(total);
  for (Point3& p : in) p = {u(gen), u(gen), u(gen)};
  const Point3 guard{-1, 2, -3};
  std::vector<Point3> out(total + lengths.size() + 1, guard);
  std::vector<PointRun> runs;
  std::vector<Matrix3> matrices;
  matrices.reserve(lengths.size());
  size_t from = 0, to = 1;
  for (size_t n : lengths) {
    const Matrix3& m =
        matrices.emplace_back(Matrix3({u(gen), u(gen), u(gen)}, {u(gen), u(gen), u(gen)},
                                      {u(gen), u(gen), u(gen)}, {u(gen), u(gen), u(gen)}));
    runs.push_back({&m, in.data() + from, out.data() + to, n});
    from += n;
    to += n + 1;
  }
  TransformPointRuns(runs.data(), runs.size());

  EXPECT_EQ(out.front(), guard);
  for (const PointRun& r : runs) {
    std::vector<Point3> alone(r.n);
    TransformPoints(*r.m, r.in, alone.data(), r.n);
    for (size_t i = 0; i < r.n; ++i) {
      // Bit for bit: a frame must not depend on how its elements were grouped.
      ASSERT_EQ(r.out[i], alone[i]) << r.n << " " << i;
      const Point3 want = r.m->PointTransform(r.in[i]);
      for (int c = 0; c < 3; ++c) ASSERT_NEAR(r.out[i][c], want[c], 1e-3f) << r.n << " " << i;
    }
    EXPECT_EQ(r.out[r.n], guard) << r.n;
  }
}

}  // namespace
}  // namespace kv

#include <gtest/gtest.h>

#include <cmath>

#include "demo_sim.h"

namespace kv::cli {
namespace {

DemoSimOptions Small() {
  DemoSimOptions o;
  o.columns = 8;
  o.rows = 6;
  o.frames = 20;
  o.ballRadius = 0.6f;
  return o;
}

float Dist(const Point3& a, const Point3& b) {
  return (a - b).Length();
}

TEST(DemoSim, WallIsStruckAndKnockedOver) {
  bool done = false;
  const DemoSimResult r = RunDemoSimulation(Small(), nullptr, done);
  ASSERT_TRUE(done);
  ASSERT_EQ(r.bodies.size(), 8u * 6u + 1u);
  EXPECT_EQ(r.bodies.back().name, "Ball");
  EXPECT_TRUE(r.bodies.back().sphere);
  EXPECT_EQ(r.bodies.front().name, "Brick_00_00");
  for (const SimBody& b : r.bodies) ASSERT_EQ(b.poses.size(), 21u) << b.name;

  // Frame 0 is the wall as laid: courses stacked without gaps, resting on the ground.
  const Point3 s = Small().brickSize;
  for (int row = 0; row < 6; ++row)
    EXPECT_NEAR(r.bodies[static_cast<size_t>(row) * 8].poses[0].pos.z, (row + 0.5f) * s.z, 1e-5f);

  // The ball goes through the wall's plane; bricks in its path are thrown forward.
  const SimBody& ball = r.bodies.back();
  EXPECT_LT(ball.poses.front().pos.y, 0.0f);
  EXPECT_GT(ball.poses.back().pos.y, 0.0f);
  int moved = 0;
  for (size_t i = 0; i + 1 < r.bodies.size(); ++i)
    if (Dist(r.bodies[i].poses.front().pos, r.bodies[i].poses.back().pos) > 0.2f) ++moved;
  EXPECT_GT(moved, 4);

  // Rotations stay unit quaternions.
  for (const SimBody& b : r.bodies)
    for (const BodyPose& p : b.poses) {
      const float n = p.rot.x * p.rot.x + p.rot.y * p.rot.y + p.rot.z * p.rot.z + p.rot.w * p.rot.w;
      ASSERT_NEAR(n, 1.0f, 1e-4f);
    }
}

TEST(DemoSim, StoppingThroughProgressKeepsWhatWasSimulated) {
  bool done = true;
  int calls = 0;
  const DemoSimResult r = RunDemoSimulation(
      Small(), [&](int d, int) { return ++calls, d < 5; }, done);
  EXPECT_FALSE(done);
  EXPECT_EQ(calls, 5);
  EXPECT_EQ(r.frames, 5);
  for (const SimBody& b : r.bodies) EXPECT_EQ(b.poses.size(), 6u);
}

}  // namespace
}  // namespace kv::cli

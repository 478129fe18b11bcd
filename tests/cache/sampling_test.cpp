#include <gtest/gtest.h>

#include "cache/frame.h"

using namespace KelvaneTools;

namespace {

constexpr int32_t kStep = 160;

struct Mapped {
  int32_t a, b;
  float f;
  bool interp, shown, before, after;
};

Mapped Map(float position, int32_t samples, int in, int out, bool reverse = false) {
  FrameSettings s;
  s.inOrt = in;
  s.outOrt = out;
  s.reverse = reverse;
  ElementFrameState r;
  r.time = position * kStep;
  MapTimeToSamples(kStep, samples, s, r);
  return {r.sampleA, r.sampleB, r.fraction, r.interpolate, r.shown, r.beforeRange, r.afterRange};
}

TEST(MapTimeToSamples, InsideTheRange) {
  const Mapped on = Map(2, 5, kOrtHold, kOrtHold);
  EXPECT_EQ(on.a, 2);
  EXPECT_EQ(on.f, 0);
  EXPECT_FALSE(on.interp);
  const Mapped between = Map(2.25f, 5, kOrtHold, kOrtHold);
  EXPECT_EQ(between.a, 2);
  EXPECT_EQ(between.b, 3);
  EXPECT_FLOAT_EQ(between.f, 0.25f);
  EXPECT_TRUE(between.interp && between.shown && !between.before && !between.after);

  FrameSettings noInterp;
  ElementFrameState r;
  r.time = 2.5f * kStep;
  noInterp.interpolate = false;
  EXPECT_FALSE(MapTimeToSamples(kStep, 5, noInterp, r));
  EXPECT_EQ(r.sampleA, 2);
}

TEST(MapTimeToSamples, HideAndHoldAtBothEnds) {
  const Mapped early = Map(-1.5f, 5, kOrtHide, kOrtHold);
  EXPECT_FALSE(early.shown);
  EXPECT_TRUE(early.before);
  EXPECT_EQ(early.a, 0);
  // Less than one step early truncates to sample 0: hidden by the second-sample rule.
  const Mapped justEarly = Map(-0.5f, 5, kOrtHide, kOrtHold);
  EXPECT_FALSE(justEarly.shown);
  EXPECT_TRUE(justEarly.before);
  const Mapped heldEarly = Map(-0.5f, 5, kOrtHold, kOrtHold);
  EXPECT_TRUE(heldEarly.shown);
  EXPECT_EQ(heldEarly.a, 0);
  EXPECT_FALSE(heldEarly.interp);

  // "Hide" at the end hides exactly on the last sample; just before it blends the last two.
  const Mapped onLast = Map(4, 5, kOrtHold, kOrtHide);
  EXPECT_FALSE(onLast.shown);
  EXPECT_TRUE(onLast.after);
  const Mapped beforeLast = Map(3.75f, 5, kOrtHold, kOrtHide);
  EXPECT_TRUE(beforeLast.shown && beforeLast.interp);
  EXPECT_EQ(beforeLast.a, 3);
  EXPECT_EQ(beforeLast.b, 4);
  const Mapped late = Map(7.5f, 5, kOrtHold, kOrtHold);
  EXPECT_EQ(late.a, 4);
  EXPECT_TRUE(late.shown && late.after && !late.interp);
}

TEST(MapTimeToSamples, LoopAndPingPong) {
  const Mapped loopEnd = Map(4.5f, 5, kOrtHold, kOrtLoop);
  EXPECT_EQ(loopEnd.a, 0);
  EXPECT_EQ(loopEnd.b, 1);
  EXPECT_FLOAT_EQ(loopEnd.f, 0.5f);
  EXPECT_TRUE(loopEnd.after);
  const Mapped loopStart = Map(-0.25f, 5, kOrtLoop, kOrtHold);
  EXPECT_EQ(loopStart.a, 3);
  EXPECT_EQ(loopStart.b, 4);
  EXPECT_FLOAT_EQ(loopStart.f, 0.75f);
  EXPECT_TRUE(loopStart.before);
  const Mapped farBack = Map(-1e7f, 5, kOrtLoop, kOrtHold);  // no per-period stepping
  EXPECT_GE(farBack.a, 0);
  EXPECT_LE(farBack.a, 4);

  const Mapped pp = Map(5.25f, 5, kOrtHold, kOrtPingPong);
  EXPECT_EQ(pp.a, 2);
  EXPECT_EQ(pp.b, 3);
  EXPECT_FLOAT_EQ(pp.f, 0.75f);

  // Eleven samples: the period is ten samples.
  EXPECT_EQ(Map(10, 11, kOrtHold, kOrtLoop).a, 10);
  EXPECT_EQ(Map(13, 11, kOrtHold, kOrtLoop).a, 3);
  EXPECT_EQ(Map(13, 11, kOrtHold, kOrtPingPong).a, 7);
  EXPECT_EQ(Map(25, 11, kOrtHold, kOrtPingPong).a, 5);
  const Mapped ppBack = Map(-3, 11, kOrtPingPong, kOrtHold);
  EXPECT_EQ(ppBack.a, 3);
  EXPECT_TRUE(ppBack.before);

  // After a "Loop" or "Ping-Pong" adjustment before the start the in-type also rules the end:
  // an out-type "Hide" does not hide a time folded onto the last sample.
  const Mapped looped = Map(-3.25f, 5, kOrtLoop, kOrtHide);
  EXPECT_TRUE(looped.shown && looped.interp && looped.before && looped.after);
  EXPECT_EQ(looped.a, 0);
  EXPECT_EQ(looped.b, 1);
  EXPECT_FLOAT_EQ(looped.f, 0.75f);
  const Mapped bounced = Map(-4.5f, 5, kOrtPingPong, kOrtHide);
  EXPECT_TRUE(bounced.shown && bounced.interp);
  EXPECT_EQ(bounced.a, 3);
  EXPECT_EQ(bounced.b, 4);
  EXPECT_FLOAT_EQ(bounced.f, 0.5f);
}

TEST(MapTimeToSamples, SingleAndNoSample) {
  for (int ort : {kOrtHide, kOrtHold, kOrtLoop, kOrtPingPong}) {
    for (float pos : {-2.5f, -0.5f, 0.0f, 0.5f, 3.0f}) {
      SCOPED_TRACE(testing::Message() << ort << " " << pos);
      const Mapped m = Map(pos, 1, ort == kOrtHide ? kOrtHold : ort, ort);
      EXPECT_EQ(m.a, 0);
      EXPECT_FALSE(m.interp);
      if (ort == kOrtHide) {
        EXPECT_FALSE(m.shown);
      }
      if (ort == kOrtHold) {
        EXPECT_TRUE(m.shown);
      }
    }
  }
  const Mapped none = Map(0, 0, kOrtHold, kOrtHold);
  EXPECT_FALSE(none.shown);
  EXPECT_EQ(none.a, 0);
}

TEST(MapTimeToSamples, ReverseSwapsTheRangeFlags) {
  const Mapped early = Map(-2, 5, kOrtHold, kOrtHold, true);
  EXPECT_TRUE(early.after);
  EXPECT_FALSE(early.before);
  const Mapped late = Map(9, 5, kOrtHold, kOrtHold, true);
  EXPECT_TRUE(late.before);
  EXPECT_FALSE(late.after);
  // Reversed, the "Hide" end is sample 0 under the in-type.
  const Mapped first = Map(0, 5, kOrtHide, kOrtHold, true);
  EXPECT_FALSE(first.shown);
  EXPECT_TRUE(first.after);
  EXPECT_TRUE(Map(4, 5, kOrtHold, kOrtHide, true).shown);
}

}  // namespace

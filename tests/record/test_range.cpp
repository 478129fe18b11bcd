#include <gtest/gtest.h>

#include "record/recorder.h"

namespace kv {
namespace {

TEST(RecordRange, StepIsTruncatedToWholeTicksAndNeverZero) {
  EXPECT_EQ(ComputeRecordRange(0, 10, 0.5f, 160).step, 80);
  EXPECT_EQ(ComputeRecordRange(0, 10, 0.001f, 160).step, 1);
  EXPECT_EQ(ComputeRecordRange(0, 10, 0.0001f, 160).step, 1);
  // 1/3 of a frame at 160 ticks: 53.33 truncates to 53.
  EXPECT_EQ(ComputeRecordRange(0, 10, 1.0f / 3.0f, 160).step, 53);
  EXPECT_EQ(ComputeRecordRange(0, 10, 2.0f, 192).step, 384);
  // 0.7f is just below 0.7: the float product rounds to 112, the exact one truncates to 111.
  EXPECT_EQ(ComputeRecordRange(0, 10, 0.7f, 160).step, 112);
}

TEST(RecordRange, EndSnapsDownToTheLastSample) {
  const RecordRange r = ComputeRecordRange(0, 10, 3.0f, 160);
  EXPECT_EQ(r.start, 0);
  EXPECT_EQ(r.end, 9 * 160);
  EXPECT_EQ(r.NumSamples(), 4);

  const RecordRange exact = ComputeRecordRange(5, 25, 5.0f, 160);
  EXPECT_EQ(exact.start, 800);
  EXPECT_EQ(exact.end, 4000);
  EXPECT_EQ(exact.NumSamples(), 5);

  const RecordRange negative = ComputeRecordRange(-10, -1, 4.0f, 160);
  EXPECT_EQ(negative.start, -1600);
  EXPECT_EQ(negative.end, -320);
  EXPECT_EQ(negative.NumSamples(), 3);

  // A step longer than the range samples the start alone.
  const RecordRange one = ComputeRecordRange(0, 10, 50.0f, 160);
  EXPECT_EQ(one.end, 0);
  EXPECT_EQ(one.NumSamples(), 1);

  // Extreme frames at 1 frame per second neither overflow nor give a count the file cannot hold.
  const RecordRange huge = ComputeRecordRange(-9999999, 9999999, 0.5f, 4800);
  EXPECT_EQ(huge.start, kTimeNegInfinity);
  EXPECT_EQ(huge.step, 2400);
  EXPECT_LE(int64_t{huge.end} - huge.start + huge.step, int64_t{kTimePosInfinity});
  EXPECT_GT(huge.NumSamples(), 800000);

  // An end before the start still records the start rather than nothing.
  const RecordRange backwards = ComputeRecordRange(10, 5, 1.0f, 160);
  EXPECT_EQ(backwards.start, 1600);
  EXPECT_EQ(backwards.end, 1600);
  EXPECT_EQ(backwards.NumSamples(), 1);
}

TEST(RecordRange, LifetimesCountFramesAtTheSceneRate) {
  EXPECT_EQ(LifetimeTicks(10, 25), 1920);  // 192 ticks per frame at 25
  EXPECT_EQ(LifetimeTicks(-3, 60), -240);
  EXPECT_EQ(LifetimeTicks(9999999, 1), kTimePosInfinity);
  EXPECT_EQ(LifetimeTicks(-9999999, 1), kTimeNegInfinity);
}

TEST(RecordRange, MaterialLibrarySitsBesideTheCache) {
  EXPECT_EQ(MaterialLibraryPath("/a/b/wall.kvc"), "/a/b/wall.mat");
  EXPECT_EQ(MaterialLibraryPath("C:\\x\\Y.KVC"), "C:\\x\\Y.mat");
}

}  // namespace
}  // namespace kv

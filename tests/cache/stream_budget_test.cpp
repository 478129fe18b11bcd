// What "Stream" keeps of the samples it played: everything while it fits its budget, else the
// blocks used most recently, never at the cost of the frame being read.
#include <gtest/gtest.h>

#include "cache/reader.h"
#include "fixtures.h"

using namespace KelvaneTools;

namespace {

constexpr int kElements = 4, kSamples = 6;

struct Player {
  kvtest::TempFile file{"stream_budget"};
  kvCacheReader reader{file.path};
  std::vector<ElementFrameState> st = std::vector<ElementFrameState>(kElements);
  FrameSettings s;
  FrameScratch scratch;
  kv::Mesh out;
  Player() {
    file.Write(kvtest::GridCache(kElements, kSamples).b);
    reader.Open();
  }
  // Element 0's first vertex sits at the origin and sample k moves it by k along x.
  float At(float sample) {
    for (auto& r : st) r.time = sample * 160;
    EXPECT_TRUE(reader.ReadFrame(out, st, s, scratch));
    return out.verts.empty() ? -1.0f : out.verts[0].x;
  }
};

TEST(StreamBudget, BeyondItTheBlocksUsedLongestAgoGoAndComeBackWhenWanted) {
  Player p;
  p.reader.SetStreamBudget(0);  // as if one block were larger than the budget: two stay
  EXPECT_EQ(p.At(0), 0.0f);
  EXPECT_EQ(p.At(1), 1.0f);
  EXPECT_EQ(p.reader.NumSamplesLoaded(), 2);
  p.At(0);  // sample 0 used again: sample 1 is now the oldest
  EXPECT_EQ(p.At(2), 2.0f);
  EXPECT_TRUE(p.reader.IsSampleLoaded(0));
  EXPECT_FALSE(p.reader.IsSampleLoaded(1));
  EXPECT_TRUE(p.reader.IsSampleLoaded(2));
  for (int k = 0; k < kSamples; ++k) {
    EXPECT_EQ(p.At(float(k)), float(k));
    EXPECT_LE(p.reader.NumSamplesLoaded(), 2);
  }
  EXPECT_NEAR(p.At(3.5f), 3.5f, 1e-5f);  // a blend holds both its samples
  EXPECT_TRUE(p.reader.IsSampleLoaded(3) && p.reader.IsSampleLoaded(4));
  EXPECT_EQ(p.At(1), 1.0f);  // scrubbing back reads the block again
  EXPECT_EQ(p.reader.NumSamplesLoaded(), 2);
}

TEST(StreamBudget, WithinItAndUnderPreLoadEverythingPlayedStays) {
  Player p;  // the default budget holds this small cache whole
  for (int k = kSamples - 1; k >= 0; --k) EXPECT_EQ(p.At(float(k)), float(k));
  EXPECT_TRUE(p.reader.AllSamplesLoaded());

  Player pre;
  pre.reader.SetStreamBudget(0);
  pre.s.loadType = LoadType::PreLoad;
  ASSERT_TRUE(pre.reader.LoadAllSamples());
  for (int k = 0; k < kSamples; ++k) EXPECT_EQ(pre.At(float(k)), float(k));
  EXPECT_TRUE(pre.reader.AllSamplesLoaded());
}

}  // namespace

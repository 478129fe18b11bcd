// Frames whose elements differ in size, time and kind of motion, checked element by element
// against the general blend of the stored samples.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "cache/reader.h"
#include "fixtures.h"

using namespace KelvaneTools;
using kvtest::Bytes;

namespace {

// Element e has e + 1 vertices (one face on the first three) so that every vertex-loop tail
// occurs; its samples turn it by random amounts, and every third element also stretches.
Bytes MixedMotionCache(int elements, int samples, std::vector<kv::Matrix3>& tms) {
  std::mt19937 gen(99);
  std::uniform_real_distribution<float> u(-1, 1);
  Bytes f;
  kvtest::HeaderFields h;
  h.end = (samples - 1) * 160;
  h.nodes = elements;
  h.samples = samples;
  h.stride = elements * 49;
  kvtest::PutHeader(f, h);
  f.zeros(256 - f.size());
  for (int e = 0; e < elements; ++e) f.i32(1).str("e").zeros(24).i32(e + 3).i32(1).i32(0).u8(0);
  for (int e = 0; e < elements; ++e) {
    for (int v = 0; v < e + 3; ++v) f.f32(u(gen) * 5).f32(u(gen) * 5).f32(u(gen) * 5);
    f.u16(0).u32(1).u8(7).u8(0).u32(0).u32(1).u32(2).zeros(36);
  }
  f.PatchI32(kvtest::kTableOffsetField, int32_t(f.size()));
  for (int s = 0; s < samples; ++s)
    for (int e = 0; e < elements; ++e) {
      kv::Matrix3 m = kv::RotAngleAxisMatrix({u(gen), u(gen), 1}, u(gen) * 2);
      if (e % 3 == 0) m = kv::ScaleMatrix({1.5f + u(gen), 1, 0.7f}) * m;
      m.SetTrans({u(gen) * 20, u(gen) * 20, float(s)});
      float rows[12];
      m.ToFloats(rows);
      for (float x : rows) f.f32(x);
      f.u8(1);
      tms.push_back(m);
    }
  return f;
}

TEST(ReadFrameFast, EveryElementMatchesTheGeneralBlendOfItsSamples) {
  // Elements over three words of the frame's bit sets, the last one part full.
  constexpr int kElements = 150, kSamples = 4;
  std::vector<kv::Matrix3> tms;
  kvtest::TempFile file("mixed_motion");
  file.Write(MixedMotionCache(kElements, kSamples, tms).b);
  kvCacheReader reader(file.path);
  ASSERT_TRUE(reader.Open());
  std::vector<ElementFrameState> st(kElements);
  FrameSettings s;
  s.unitScale = 0.5f;
  FrameScratch scratch;
  kv::Mesh out;
  // Runs of equal times (which share one mapping), times on a sample, and times between
  // different pairs of samples with different fractions.
  const float positions[] = {0.25f, 0.25f, 0.25f, 1, 1, 2.5f, 0.25f, 2.9f, 0, 1.75f};
  // The last round removes scattered elements and a run across a word boundary, and gives
  // some of the others a material: the rest close up in order and keep their own motion.
  const auto removed = [](int round, int e) {
    return round == 3 && (e % 7 == 3 || (e >= 60 && e < 70) || e == kElements - 1);
  };
  // Then every element but one shares a time between samples, and every element but one a
  // time on a sample, with one material in a word: whole words play alike, and one odd element
  // breaks a word's run. A material kept from one frame to the next (130 from round 5 on, 131
  // in rounds 6 and 7) lets the run go on; one that goes away (130's in round 7) does not.
  const auto time = [&](int round, int e) {
    if (round == 4 || round == 6) return (e == 100 ? 1.75f : 0.25f) * 160;
    if (round == 5 || round == 7) return (e == 70 ? 2.5f : 1.0f) * 160;
    return positions[size_t(e + round) % std::size(positions)] * 160;
  };
  const auto material = [](int round, int e) {
    return (round == 3 && e % 11 == 0) || (round == 4 && e == 101) ||
                   (round >= 5 && round <= 6 && e == 130) || (round >= 6 && e == 131)
               ? 5
               : -1;
  };
  for (int round = 0; round < 8; ++round) {
    int keptVerts = 0;
    for (int e = 0; e < kElements; ++e) {
      ElementFrameState& r = st[size_t(e)];
      r.time = time(round, e);
      r.removed = removed(round, e);
      r.matIdOverride = material(round, e);
      if (!r.removed) keptVerts += reader.Element(e).numVerts;
    }
    // The caller may give the mesh new storage of the same shape between frames.
    if (round == 2) out = kv::Mesh(out);
    ASSERT_TRUE(reader.ReadFrame(out, st, s, scratch, round == 0));
    ASSERT_EQ(out.numVerts(), keptVerts);
    int outVert = 0, outFace = 0;
    for (int e = 0; e < kElements; ++e) {
      if (removed(round, e)) continue;
      ElementFrameState alone = st[size_t(e)];
      MapTimeToSamples(160, kSamples, s, alone);
      const ElementFrameState& r = st[size_t(e)];
      ASSERT_EQ(r.sampleA, alone.sampleA);
      ASSERT_EQ(r.sampleB, alone.sampleB);
      ASSERT_EQ(r.fraction, alone.fraction);
      ASSERT_EQ(r.interpolate, alone.interpolate);
      const kv::Matrix3& a = tms[size_t(r.sampleA * kElements + e)];
      const kv::Matrix3& b = tms[size_t(r.sampleB * kElements + e)];
      const kv::Matrix3 m = (r.interpolate ? kv::BlendTransforms(a, b, r.fraction) : a) * 0.5f;
      const CacheElement& el = reader.Element(e);
      for (int v = 0; v < el.numVerts; ++v) {
        const kv::Point3 want = reader.CombinedMesh().verts[size_t(el.vertOffset + v)] * m;
        const kv::Point3 got = out.verts[size_t(outVert + v)];
        for (int c = 0; c < 3; ++c)
          ASSERT_NEAR(got[c], want[c], 1e-4f) << "round " << round << " element " << e;
      }
      outVert += el.numVerts;
      for (int f = 0; f < el.numFaces; ++f, ++outFace)
        EXPECT_EQ(out.faces[size_t(outFace)].getMatID(), r.matIdOverride >= 0 ? 5 : 0)
            << "round " << round << " element " << e;
    }
  }
}

}  // namespace

// Frames assembled on several threads against the same frames on one: the elements are split
// among threads, and the output must not depend on how.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "cache/reader.h"
#include "fixtures.h"
#include "host/standalone/scene.h"

using namespace KelvaneTools;
using kvtest::Bytes;

namespace {

constexpr int kElements = 3000, kSamples = 5, kVerts = 20, kFaces = 4;

// Enough vertices for the frame to be split into several ranges; every element has explicit
// normals, turns, stretches on every third, and is invisible at some samples.
Bytes BigCache() {
  std::mt19937 gen(7);
  std::uniform_real_distribution<float> u(-1, 1);
  Bytes f;
  kvtest::HeaderFields h;
  h.end = (kSamples - 1) * 160;
  h.nodes = kElements;
  h.samples = kSamples;
  h.stride = kElements * 49;
  kvtest::PutHeader(f, h);
  f.zeros(256 - f.size());
  for (int e = 0; e < kElements; ++e)
    f.i32(1).str("e").zeros(24).i32(kVerts).i32(kFaces).i32(0).u8(1);
  for (int e = 0; e < kElements; ++e) {
    for (int v = 0; v < kVerts; ++v) f.f32(u(gen) * 5).f32(u(gen) * 5).f32(u(gen) * 5);
    for (int k = 0; k < kFaces; ++k) {
      f.u16(uint16_t(k))
          .u32(1)
          .u8(7)
          .u8(0)
          .u32(uint32_t(k))
          .u32(uint32_t(k + 1))
          .u32(uint32_t(k + 2));
      for (int c = 0; c < 3; ++c) f.f32(u(gen)).f32(u(gen)).f32(1);
    }
  }
  f.PatchI32(kvtest::kTableOffsetField, int32_t(f.size()));
  for (int s = 0; s < kSamples; ++s)
    for (int e = 0; e < kElements; ++e) {
      kv::Matrix3 m = kv::RotAngleAxisMatrix({u(gen), u(gen), 1}, u(gen) * 2);
      if (e % 3 == 0) m = kv::ScaleMatrix({1.5f + u(gen), 1, 0.7f}) * m;
      m.SetTrans({u(gen) * 20, u(gen) * 20, float(s)});
      float rows[12];
      m.ToFloats(rows);
      for (float x : rows) f.f32(x);
      f.u8((e + s) % 11 == 0 ? 0 : 1);
    }
  return f;
}

struct Result {
  std::vector<kv::Point3> verts, normals;
  std::vector<kv::Face> faces;
  bool Same(const Result& o) const {
    auto same = [](const auto& a, const auto& b) {
      return a.size() == b.size() &&
             (a.empty() || std::memcmp(a.data(), b.data(), a.size() * sizeof a[0]) == 0);
    };
    return same(verts, o.verts) && same(normals, o.normals) && same(faces, o.faces);
  }
};

// Three frames of mixed times, removals, material overrides and hiding, read with `host`
// (null: no host, so serially).
std::vector<Result> PlayFrames(const std::string& path, kv::host::Interface* host) {
  kvCacheReader reader(path, host);
  EXPECT_TRUE(reader.Open());
  std::vector<ElementFrameState> st(kElements);
  FrameSettings s;
  s.unitScale = 0.25f;
  FrameScratch scratch;
  kv::Mesh out;
  std::vector<Result> frames;
  for (int round = 0; round < 3; ++round) {
    s.playbackIdle = round != 1;  // hiding in place instead of removing
    for (int e = 0; e < kElements; ++e) {
      ElementFrameState& r = st[size_t(e)];
      r.time = float((e / 7 + round) % 9) * 0.45f * 160;
      r.removed = (e + round) % 13 == 0;
      r.matIdOverride = e % 17 == 0 ? round : -1;
    }
    EXPECT_TRUE(reader.ReadFrame(out, st, s, scratch, round == 0));
    frames.push_back({out.verts, out.specNormals, out.faces});
  }
  return frames;
}

TEST(ParallelFrame, OutputIsByteIdenticalWhateverTheThreadCount) {
  kvtest::TempFile file("parallel_frames");
  file.Write(BigCache().b);
  const std::vector<Result> serial = PlayFrames(file.path, nullptr);
  ASSERT_EQ(serial.size(), 3u);
  ASSERT_GT(serial[0].verts.size(), 0u);
  ASSERT_LT(serial[0].verts.size(), serial[1].verts.size());  // removals left the mesh
  for (int threads : {1, 2, 3, 8}) {
    kv::standalone::Scene scene;
    scene.SetThreadCount(threads);
    const std::vector<Result> frames = PlayFrames(file.path, &scene);
    ASSERT_EQ(frames.size(), serial.size());
    for (size_t k = 0; k < frames.size(); ++k)
      EXPECT_TRUE(frames[k].Same(serial[k])) << threads << " threads, frame " << k;
  }
}

}  // namespace

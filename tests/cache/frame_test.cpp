#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <new>

#include "cache/reader.h"
#include "fixtures.h"

using namespace KelvaneTools;
using kvtest::Bytes;
using kvtest::TempFile;

namespace {

void ExpectNear(const kv::Point3& a, const kv::Point3& b, float eps = 1e-4f) {
  EXPECT_NEAR(a.x, b.x, eps);
  EXPECT_NEAR(a.y, b.y, eps);
  EXPECT_NEAR(a.z, b.z, eps);
}

// One triangle with explicit normals (1,0,0); sample 0 is the identity, sample 1 turns a
// quarter about Z, doubles the size and moves to x = 5.
Bytes TurningCache() {
  Bytes f;
  kvtest::HeaderFields h;
  h.end = 160;
  h.samples = 2;
  kvtest::PutHeader(f, h);
  f.zeros(256 - f.size());
  f.i32(3).str("Arm").f32(0).f32(0).f32(0).f32(1).f32(1).f32(0).i32(3).i32(1).i32(0).u8(1);
  f.f32(0).f32(0).f32(0).f32(1).f32(0).f32(0).f32(0).f32(1).f32(0);
  f.u16(0).u32(1).u8(7).u8(0).u32(0).u32(1).u32(2);
  for (int c = 0; c < 3; ++c) f.f32(1).f32(0).f32(0);
  f.PatchI32(kvtest::kTableOffsetField, int32_t(f.size()));
  kvtest::PutSample(f, 1, 0, 0, 0, true);
  f.f32(0).f32(2).f32(0).f32(-2).f32(0).f32(0).f32(0).f32(0).f32(2).f32(5).f32(0).f32(0).u8(1);
  return f;
}

struct Frame {
  TempFile file;
  kvCacheReader reader;
  std::vector<ElementFrameState> st;
  FrameSettings s;
  FrameScratch scratch;
  kv::Mesh out;
  Frame(const Bytes& bytes, const char* name) : file(name), reader(file.path) {
    file.Write(bytes.b);
    reader.Open();
    st.resize(size_t(reader.NumElements()));
  }
  void At(float samplePosition) {
    for (auto& r : st) r.time = samplePosition * 160;
  }
  bool Read(bool newlyOpened = false) {
    out.MarkCachesValid();
    return reader.ReadFrame(out, st, s, scratch, newlyOpened);
  }
};

TEST(ReadFrame, BlendsTransformsScalesAndCarriesNormals) {
  Frame fr(TurningCache(), "turning");
  ASSERT_TRUE(fr.reader.HasIndex());
  const kv::Matrix3 a;  // sample 0 is the identity
  fr.At(1);
  ASSERT_TRUE(fr.Read(true));
  ASSERT_EQ(fr.out.numVerts(), 3);
  ExpectNear(fr.out.verts[1], {5, 2, 0});        // (1,0,0) turned, doubled, moved
  ExpectNear(fr.out.specNormals[0], {0, 1, 0});  // turned, still unit length

  fr.At(0.3f);
  fr.s.unitScale = 2;
  ASSERT_TRUE(fr.Read());
  const kv::Matrix3 b = fr.reader.SampleTransform(0, 1);
  const kv::Matrix3 blend = kv::BlendTransforms(a, b, 0.3f) * 2.0f;
  for (int v = 0; v < 3; ++v)
    ExpectNear(fr.out.verts[size_t(v)], fr.reader.CombinedMesh().verts[size_t(v)] * blend);
  EXPECT_TRUE(fr.out.TopologyCacheValid());  // same elements: topology kept
  EXPECT_FALSE(fr.out.GeomCacheValid());

  fr.s.interpolate = false;
  ASSERT_TRUE(fr.Read());
  ExpectNear(fr.out.verts[1], {2, 0, 0});  // sample 0 as stored, times the unit scale
}

TEST(ReadFrame, RemovedElementsLeaveAndComeBack) {
  Frame fr(kvtest::GridCache(3, 5), "removed");
  fr.At(2);
  ASSERT_TRUE(fr.Read(true));
  ASSERT_EQ(fr.out.numFaces(), 3);
  ExpectNear(fr.out.verts[6], {2 + 2, 2, 0});
  EXPECT_FALSE(fr.out.TopologyCacheValid());

  fr.st[1].removed = true;
  ASSERT_TRUE(fr.Read());
  ASSERT_EQ(fr.out.numVerts(), 6);
  ASSERT_EQ(fr.out.numFaces(), 2);
  EXPECT_FALSE(fr.out.TopologyCacheValid());
  EXPECT_EQ(fr.out.faces[1].v[0], 3u);       // element 2 now starts at vertex 3
  EXPECT_EQ(fr.out.faces[1].getMatID(), 2);  // and keeps its own face data
  ExpectNear(fr.out.verts[3], {2 + 2, 2, 0});

  // Same removal, another time: topology kept, vertices move.
  fr.At(3);
  ASSERT_TRUE(fr.Read());
  EXPECT_TRUE(fr.out.TopologyCacheValid());
  ExpectNear(fr.out.verts[3], {2 + 3, 2, 0});

  // The "Hide" rule removes too; everything removed empties the mesh.
  fr.s.outOrt = kOrtHide;
  fr.At(4);
  ASSERT_TRUE(fr.Read());
  EXPECT_EQ(fr.out.numVerts(), 0);
  EXPECT_EQ(fr.out.numFaces(), 0);

  fr.st[1].removed = false;
  fr.s.outOrt = kOrtHold;
  ASSERT_TRUE(fr.Read());
  EXPECT_EQ(fr.out.numFaces(), 3);
  ExpectNear(fr.out.verts[3], {1 + 4, 1, 0});
}

TEST(ReadFrame, InvisibleElementsHiddenRelabelledOrDeleted) {
  Frame fr(kvtest::TwoElementCache(2), "hidden");
  fr.At(0);  // element 1 is stored invisible at sample 0
  fr.s.interpolate = false;
  ASSERT_TRUE(fr.Read(true));
  EXPECT_EQ(fr.out.numFaces(), 1);  // deleted by default
  EXPECT_EQ(fr.out.getNumMaps(), 4);
  EXPECT_EQ(fr.out.Map(3).faces.size(), 1u);

  fr.s.deleteInvisible = false;
  fr.s.hideInvisible = true;
  fr.st[0].matIdOverride = 7;
  ASSERT_TRUE(fr.Read());
  ASSERT_EQ(fr.out.numFaces(), 2);
  EXPECT_TRUE(fr.out.faces[1].Hidden());
  EXPECT_FALSE(fr.out.faces[0].Hidden());
  EXPECT_EQ(fr.out.faces[0].getMatID(), 7);

  // Next frame, element 1 visible and no override: the kept topology is reset.
  fr.At(1);
  fr.st[0].matIdOverride = -1;
  ASSERT_TRUE(fr.Read());
  EXPECT_TRUE(fr.out.TopologyCacheValid());
  EXPECT_FALSE(fr.out.faces[1].Hidden());
  EXPECT_EQ(fr.out.faces[0].getMatID(), 4);
  ExpectNear(fr.out.verts[3], {25, 5, 5});

  // Render-style: kept and re-labelled instead of hidden.
  fr.At(0);
  fr.s.hideInvisible = false;
  fr.s.applyHiddenMatId = true;
  fr.s.hiddenMatId = 98;
  ASSERT_TRUE(fr.Read());
  EXPECT_FALSE(fr.out.faces[1].Hidden());
  EXPECT_EQ(fr.out.faces[1].getMatID(), 98);
  EXPECT_EQ(fr.out.faces[0].getMatID(), 4);

  // During playback removal turns into hiding in place.
  fr.s = FrameSettings{};
  fr.s.playbackIdle = false;
  ASSERT_TRUE(fr.Read());
  EXPECT_EQ(fr.out.numFaces(), 2);
  EXPECT_TRUE(fr.out.faces[1].Hidden());
  // Played on from a frame where every element shows, it is hidden again.
  fr.At(1);
  ASSERT_TRUE(fr.Read());
  EXPECT_FALSE(fr.out.faces[1].Hidden());
  fr.At(0);
  ASSERT_TRUE(fr.Read());
  EXPECT_EQ(fr.out.numFaces(), 2);
  EXPECT_TRUE(fr.out.faces[1].Hidden());
}

TEST(ReadFrame, BoxModeUsesTheBoundsBoxes) {
  Frame fr(kvtest::TwoElementCache(2), "boxes");
  fr.At(1);
  fr.s.boxMode = true;
  ASSERT_TRUE(fr.Read(true));
  ASSERT_EQ(fr.out.numVerts(), 16);
  ASSERT_EQ(fr.out.numFaces(), 24);
  EXPECT_TRUE(fr.out.specNormals.empty());
  ExpectNear(fr.out.verts[8 + 7], {26, 6, 5});  // element 1's max corner at x + 20
  for (const kv::Face& f : fr.out.faces) EXPECT_LT(f.v[0], 16u);

  fr.s.boxMode = false;  // switching back rebuilds the real topology
  ASSERT_TRUE(fr.Read());
  EXPECT_EQ(fr.out.numFaces(), 2);
  EXPECT_FALSE(fr.out.TopologyCacheValid());
}

TEST(ReadFrame, FailsWithoutIndexOrWhenSamplesCannotBeRead) {
  Frame fr(kvtest::GridCache(2, 3), "fail");
  fr.At(1);
  fr.reader.SetKeepOpen(false);
  ASSERT_TRUE(fr.reader.Open());
  std::remove(fr.file.path.c_str());
  EXPECT_FALSE(fr.Read(true));
  EXPECT_TRUE(fr.reader.InError());
  EXPECT_FALSE(fr.reader.HasIndex());
  EXPECT_FALSE(fr.Read());  // stays failed until reopened
}

}  // namespace

// Counts every allocation of the test binary, so that a frame can be shown to make none.
static std::atomic<long> gAllocations{0};
void* operator new(size_t n) {
  ++gAllocations;
  if (void* p = std::malloc(n ? n : 1)) return p;
  throw std::bad_alloc();
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, size_t) noexcept {
  std::free(p);
}

namespace {

TEST(ReadFrame, WarmFramesAllocateNothing) {
  Frame fr(kvtest::GridCache(50, 6), "warm");
  fr.s.deleteInvisible = false;
  fr.s.hideInvisible = true;
  for (int e = 0; e < 50; e += 7) fr.st[size_t(e)].matIdOverride = 3;
  fr.st[4].removed = true;
  // Warm up: every block loaded and decomposed, topology built.
  for (float at : {0.5f, 1.5f, 2.5f, 3.5f, 4.5f}) {
    fr.At(at);
    ASSERT_TRUE(fr.Read());
  }
  const long before = gAllocations.load();
  for (float at : {0.25f, 4.75f, 2.0f, 3.3f}) {
    fr.At(at);
    ASSERT_TRUE(fr.reader.ReadFrame(fr.out, fr.st, fr.s, fr.scratch, false));
  }
  EXPECT_EQ(gAllocations.load(), before);
  EXPECT_EQ(fr.out.numFaces(), 49);
}

}  // namespace

#include "geom/mesh.h"

#include <gtest/gtest.h>

#include <cmath>

namespace kv {
namespace {

// A strip of triangles where every per-face datum names its face: the smoothing group is the
// original face index, the map vertex of corner c in channel ch is (face, c, ch) and the
// explicit normal of corner c is (face, c, -1). After an edit each face can be checked against
// everything that should have travelled with it.
Mesh TaggedStrip(int numFaces, bool channels = true, bool normals = true) {
  Mesh m;
  m.setNumVerts(numFaces + 2);
  for (int i = 0; i < m.numVerts(); ++i) m.verts[i] = {static_cast<float>(i), i % 2 ? 1.f : 0.f, 0};
  m.setNumFaces(numFaces);
  for (int f = 0; f < numFaces; ++f) {
    m.faces[f].setVerts(f, f + 1, f + 2);
    m.faces[f].smGroup = static_cast<uint32_t>(f);
  }
  if (channels) {
    for (int ch : {1, 3}) {
      m.setMapSupport(ch);
      MapChannel& map = m.Map(ch);
      for (int f = 0; f < numFaces; ++f)
        for (int c = 0; c < 3; ++c) {
          map.faces[f].t[c] = static_cast<uint32_t>(map.verts.size());
          map.verts.push_back(
              {static_cast<float>(f), static_cast<float>(c), static_cast<float>(ch)});
        }
    }
  }
  if (normals) {
    m.specNormals.resize(static_cast<size_t>(numFaces) * 3);
    for (int f = 0; f < numFaces; ++f)
      for (int c = 0; c < 3; ++c)
        m.specNormals[f * 3 + c] = {static_cast<float>(f), static_cast<float>(c), -1};
  }
  return m;
}

// Checks face i of m still carries everything of original face `orig` of a TaggedStrip.
void ExpectFaceCarries(const Mesh& m, int i, int orig) {
  SCOPED_TRACE(testing::Message() << "face " << i << " (was " << orig << ")");
  const Face& f = m.faces[i];
  EXPECT_EQ(f.smGroup, static_cast<uint32_t>(orig));
  for (int c = 0; c < 3; ++c) {
    ASSERT_LT(f.v[c], static_cast<uint32_t>(m.numVerts()));
    EXPECT_EQ(m.verts[f.v[c]].x, static_cast<float>(orig + c));  // same corner position
    for (int ch : {1, 3}) {
      if (!m.mapSupport(ch)) continue;
      const MapChannel& map = m.Map(ch);
      ASSERT_EQ(map.faces.size(), m.faces.size());
      ASSERT_LT(map.faces[i].t[c], map.verts.size());
      EXPECT_EQ(map.verts[map.faces[i].t[c]],
                (Point3{static_cast<float>(orig), static_cast<float>(c), static_cast<float>(ch)}));
    }
    if (m.hasSpecNormals()) {
      EXPECT_EQ(m.specNormals[i * 3 + c],
                (Point3{static_cast<float>(orig), static_cast<float>(c), -1}));
    }
  }
}

TEST(Mesh, DeleteFaceSetKeepsEveryChannelAlignedWithItsFaces) {
  Mesh m = TaggedStrip(8);
  ASSERT_EQ(m.getNumMaps(), 4);  // slots 0..3, of which 1 and 3 are used
  EXPECT_FALSE(m.mapSupport(0));
  EXPECT_FALSE(m.mapSupport(2));
  m.faceSel.Set(0), m.faceSel.Set(4), m.faceSel.Set(6);

  BitArray del(8);
  del.Set(0), del.Set(1), del.Set(2), del.Set(6);  // a run at the start and a single face
  m.DeleteFaceSet(del);

  const int kept[] = {3, 4, 5, 7};
  ASSERT_EQ(m.numFaces(), 4);
  for (int i = 0; i < 4; ++i) ExpectFaceCarries(m, i, kept[i]);
  ASSERT_EQ(m.faceSel.GetSize(), 4);
  EXPECT_FALSE(m.faceSel[0]);
  EXPECT_TRUE(m.faceSel[1]);  // was face 4
  EXPECT_EQ(m.faceSel.NumberSet(), 1);
  ASSERT_EQ(m.specNormals.size(), 12u);
  // Vertices 0..2 only served deleted faces; the others are all still in use.
  EXPECT_EQ(m.numVerts(), 7);
  EXPECT_EQ(m.getBoundingBox().pmin.x, 3);
  EXPECT_FALSE(m.TopologyCacheValid());

  // Map vertices of the deleted faces go only when asked for, and faces still find theirs.
  EXPECT_EQ(m.Map(1).verts.size(), 24u);
  m.DeleteIsoMapVerts();
  EXPECT_EQ(m.Map(1).verts.size(), 12u);
  EXPECT_EQ(m.Map(3).verts.size(), 12u);
  for (int i = 0; i < 4; ++i) ExpectFaceCarries(m, i, kept[i]);

  // Deleting everything leaves an empty, consistent mesh.
  BitArray all(4);
  all.SetAll();
  m.DeleteFaceSet(all);
  EXPECT_EQ(m.numFaces(), 0);
  EXPECT_EQ(m.numVerts(), 0);
  EXPECT_TRUE(m.Map(3).faces.empty());
  EXPECT_TRUE(m.getBoundingBox().IsEmpty());
}

TEST(Mesh, ResizingAndSupportKeepChannelsSized) {
  Mesh m = TaggedStrip(3);
  m.faceSel.Set(2);
  m.setNumFaces(5);
  EXPECT_EQ(m.faceSel.GetSize(), 5);
  EXPECT_TRUE(m.faceSel[2]);
  EXPECT_EQ(m.Map(1).faces.size(), 5u);
  EXPECT_EQ(m.Map(3).faces.size(), 5u);
  EXPECT_EQ(m.specNormals.size(), 15u);
  for (int i = 0; i < 3; ++i) ExpectFaceCarries(m, i, i);
  m.setNumFaces(2);
  EXPECT_EQ(m.Map(3).faces.size(), 2u);
  EXPECT_EQ(m.specNormals.size(), 6u);

  m.setMapSupport(7);
  EXPECT_EQ(m.getNumMaps(), 8);
  EXPECT_EQ(m.Map(7).faces.size(), 2u);
  m.setMapSupport(1, false);
  EXPECT_FALSE(m.mapSupport(1));
  EXPECT_TRUE(m.Map(1).verts.empty());
  m.setMapSupport(kMaxMapChannels);  // no such channel: ignored
  m.setNumMaps(500);
  EXPECT_EQ(m.getNumMaps(), kMaxMapChannels);

  m.FreeAll();
  EXPECT_EQ(m.numVerts() + m.numFaces() + m.getNumMaps(), 0);
  EXPECT_FALSE(m.hasSpecNormals());
  EXPECT_EQ(m.faceSel.GetSize(), 0);
}

TEST(Mesh, AppendOffsetsIndicesAndFillsMissingChannels) {
  Mesh a = TaggedStrip(2, /*channels=*/false, /*normals=*/false);
  a.setMapSupport(1);
  a.Map(1).verts.push_back({9, 9, 9});  // both faces share one map vertex
  a.faceSel.Set(1);
  Mesh b = TaggedStrip(3);
  b.faceSel.Set(0);

  a.Append(b);
  ASSERT_EQ(a.numFaces(), 5);
  ASSERT_EQ(a.numVerts(), 4 + 5);
  for (int i = 0; i < 3; ++i) ExpectFaceCarries(a, 2 + i, i);  // b's faces, tags intact
  EXPECT_EQ(a.faceSel.GetSize(), 5);
  EXPECT_TRUE(a.faceSel[1]);
  EXPECT_TRUE(a.faceSel[2]);
  EXPECT_EQ(a.faceSel.NumberSet(), 2);

  // Channel 3 was only in b: a's faces get valid map faces in it too.
  ASSERT_TRUE(a.mapSupport(3));
  for (int ch : {1, 3}) {
    const MapChannel& map = a.Map(ch);
    ASSERT_EQ(map.faces.size(), 5u);
    for (const TVFace& f : map.faces)
      for (uint32_t t : f.t) EXPECT_LT(t, map.verts.size()) << "channel " << ch;
  }
  EXPECT_EQ(a.Map(1).verts[a.Map(1).faces[0].t[0]], (Point3{9, 9, 9}));

  // Normals were only in b: a's faces get their face normals (the strip lies in z = 0).
  ASSERT_EQ(a.specNormals.size(), 15u);
  EXPECT_NEAR(std::fabs(a.specNormals[0].z), 1, 1e-6);
  EXPECT_EQ(a.specNormals.back(), (Point3{2, 2, -1}));
  EXPECT_EQ(a.getBoundingBox().pmax.x, 4);

  // Appending onto an empty mesh copies.
  Mesh e;
  e.Append(b);
  ASSERT_EQ(e.numFaces(), 3);
  for (int i = 0; i < 3; ++i) ExpectFaceCarries(e, i, i);
  EXPECT_EQ(e.Map(3).verts.size(), b.Map(3).verts.size());
}

}  // namespace
}  // namespace kv

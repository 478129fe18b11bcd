// The explicit normals copied towards the SDK, run on a normal set of MeshNormalSpec's shape:
// each face corner gets its own explicit normal in corner order, counts are set once, and a
// mesh without normals for every face leaves the set untouched.
#include "host/max/mesh_normals.h"

#include <gtest/gtest.h>

#include <vector>

namespace kv::max {
namespace {

struct FakePoint {
  float x = 0, y = 0, z = 0;
  bool operator==(const FakePoint&) const = default;
};

struct FakeFace {
  int id[3] = {-1, -1, -1};
  bool specified = false;
  void SpecifyAll(bool on = true) { specified = on; }
  void SetNormalID(int corner, int n) { id[corner] = n; }
};

struct FakeSpec {
  std::vector<FakePoint> normals;
  std::vector<bool> isExplicit;
  std::vector<FakeFace> faces;
  int sizings = 0;  // SetNumFaces and SetNumNormals calls
  int checks = 0;
  bool checkedAfterFaces = false;

  bool SetNumFaces(int n) {
    ++sizings;
    faces.assign(static_cast<size_t>(n), FakeFace{});
    return true;
  }
  bool SetNumNormals(int n) {
    ++sizings;
    normals.assign(static_cast<size_t>(n), FakePoint{});
    isExplicit.assign(static_cast<size_t>(n), false);
    return true;
  }
  FakePoint& Normal(int i) { return normals.at(static_cast<size_t>(i)); }
  void SetNormalExplicit(int i, bool on) { isExplicit.at(static_cast<size_t>(i)) = on; }
  FakeFace& Face(int f) { return faces.at(static_cast<size_t>(f)); }
  void CheckNormals() {
    ++checks;
    checkedAfterFaces = !faces.empty() && faces.back().id[2] >= 0;
  }
};

FakePoint ToFake(const kv::Point3& p) {
  return {p.x, p.y, p.z};
}

kv::Mesh TwoFaces() {
  kv::Mesh m;
  m.setNumVerts(4);
  m.setNumFaces(2);
  m.faces[0].setVerts(0, 1, 2);
  m.faces[1].setVerts(0, 2, 3);
  m.specNormals.resize(6);
  for (int i = 0; i < 6; ++i) m.specNormals[static_cast<size_t>(i)] = {float(i), 0.5f, -1.0f};
  return m;
}

TEST(MaxMeshNormals, EveryCornerGetsItsOwnExplicitNormalInCornerOrder) {
  const kv::Mesh m = TwoFaces();
  ASSERT_EQ(m.specNormals.size(), 6u);
  FakeSpec spec;
  ASSERT_TRUE(CopyExplicitNormals(m, spec, ToFake));
  EXPECT_EQ(spec.sizings, 2);
  ASSERT_EQ(spec.faces.size(), 2u);
  ASSERT_EQ(spec.normals.size(), 6u);
  for (int f = 0; f < 2; ++f) {
    EXPECT_TRUE(spec.faces[f].specified) << f;
    for (int k = 0; k < 3; ++k) {
      const int n = spec.faces[f].id[k];
      EXPECT_EQ(n, f * 3 + k);
      EXPECT_EQ(spec.normals[static_cast<size_t>(n)], (FakePoint{float(f * 3 + k), 0.5f, -1.0f}));
      EXPECT_TRUE(spec.isExplicit[static_cast<size_t>(n)]);
    }
  }
  EXPECT_EQ(spec.checks, 1);
  EXPECT_TRUE(spec.checkedAfterFaces);
}

TEST(MaxMeshNormals, MissingOrShortNormalsLeaveTheSetAlone) {
  kv::Mesh none = TwoFaces();
  none.clearSpecNormals();
  kv::Mesh shortOne = TwoFaces();
  shortOne.specNormals.pop_back();
  kv::Mesh empty;
  for (const kv::Mesh* m : {&none, &shortOne, &empty}) {
    FakeSpec spec;
    EXPECT_FALSE(CopyExplicitNormals(*m, spec, ToFake));
    EXPECT_EQ(spec.sizings, 0);
    EXPECT_EQ(spec.checks, 0);
  }
}

}  // namespace
}  // namespace kv::max

#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <functional>

#include "cache/reader.h"
#include "geom/quat.h"
#include "host/standalone/scene.h"
#include "record/deform.h"
#include "record/recorder.h"
#include "record/rigid_fit.h"

namespace kv {
namespace {

namespace fs = std::filesystem;

// A closed box of 8 vertices and 12 faces, its vertices offset by `first` in the mesh.
void AddBox(Mesh& m, const Point3& lo, const Point3& hi) {
  const uint32_t b = static_cast<uint32_t>(m.verts.size());
  for (int k = 0; k < 8; ++k)
    m.verts.push_back({(k & 1) ? hi.x : lo.x, (k & 2) ? hi.y : lo.y, (k & 4) ? hi.z : lo.z});
  static const uint32_t f[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6},
                                    {0, 1, 5}, {0, 5, 4}, {2, 6, 7}, {2, 7, 3},
                                    {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
  const int n = m.numFaces();
  m.setNumFaces(n + 12);
  for (int i = 0; i < 12; ++i)
    m.faces[size_t(n + i)].setVerts(b + f[i][0], b + f[i][1], b + f[i][2]);
}

// A flat quad (two triangles) of its own four vertices.
void AddQuad(Mesh& m, const Point3& o, float w) {
  const uint32_t b = static_cast<uint32_t>(m.verts.size());
  m.verts.insert(m.verts.end(), {o, o + Point3{w, 0, 0}, o + Point3{w, w, 0}, o + Point3{0, w, 0}});
  const int n = m.numFaces();
  m.setNumFaces(n + 2);
  m.faces[size_t(n)].setVerts(b, b + 1, b + 2);
  m.faces[size_t(n + 1)].setVerts(b, b + 2, b + 3);
}

// Moves vertices [from, to) of a mesh by a matrix.
Mesh Moved(Mesh m, size_t from, size_t to, const Matrix3& tm) {
  for (size_t i = from; i < to; ++i) m.verts[i] = m.verts[i] * tm;
  return m;
}

Matrix3 Motion(float angle, const Point3& axis, const Point3& move) {
  Matrix3 r = RotAngleAxisMatrix(axis.Normalized(), angle);
  r.SetTrans(move);
  return r;
}

// Where every piece shown at sample s puts its vertices.
std::vector<Point3> Played(const std::vector<DeformPiece>& pieces, int s) {
  std::vector<Point3> out;
  for (const DeformPiece& p : pieces)
    if (p.Shown(s))
      for (const Point3& v : p.mesh.verts) out.push_back(v * p.At(s));
  return out;
}

// The largest distance from a vertex of `want` to the nearest of `got`, and back.
float SetDistance(const std::vector<Point3>& want, const std::vector<Point3>& got) {
  auto oneWay = [](const std::vector<Point3>& a, const std::vector<Point3>& b) {
    float worst = 0;
    for (const Point3& p : a) {
      float best = INFINITY;
      for (const Point3& q : b) best = std::min(best, (p - q).Length());
      worst = std::max(worst, best);
    }
    return worst;
  };
  return std::max(oneWay(want, got), oneWay(got, want));
}

TEST(RigidFit, RecoversRotationAndTranslationAndNeverMirrors) {
  const std::vector<Point3> base{{1, 0, 0}, {-1, 0.5f, 0}, {0, -0.5f, 2}, {0, 0, -2}};
  const Matrix3 want = Motion(2.5f, {1, 2, 3}, {100, -40, 7});
  std::vector<Point3> now;
  for (const Point3& p : base) now.push_back(p * want);
  const RigidFit f = FitRigid(base, now);
  EXPECT_TRUE(f.tm.Equals(want, 1e-5f));
  EXPECT_LT(f.maxError, 1e-4f);

  // A mirror image: the best proper rotation, its residual reported.
  std::vector<Point3> mirrored;
  for (const Point3& p : base) mirrored.push_back({-p.x, p.y, p.z});
  const RigidFit m = FitRigid(base, mirrored);
  EXPECT_NEAR(m.tm.Determinant(), 1.0f, 1e-5f);
  EXPECT_GT(m.maxError, 0.5f);

  // One point: a translation; none: the identity.
  const std::vector<Point3> one{{0, 0, 0}};
  const std::vector<Point3> there{{3, 4, 5}};
  EXPECT_TRUE(FitRigid(one, there).tm.Equals(TransMatrix({3, 4, 5}), 0));
  EXPECT_TRUE(FitRigid({}, std::span<const Point3>{}).tm.IsIdentity());
}

TEST(DeformTracker, KnownRigidPiecesAreRecoveredWithTheirVertexOrder) {
  Mesh rest;
  AddBox(rest, {0, 0, 0}, {1, 2, 3});
  AddBox(rest, {5, 0, 0}, {5.5f, 0.5f, 4});
  // Faces listed out of vertex order: the piece keeps the mesh's vertex order regardless.
  std::swap(rest.faces[0], rest.faces[5]);
  DeformTracker tr("Debris", {});
  std::string error;
  std::vector<Matrix3> a, b;
  for (int s = 0; s < 5; ++s) {
    a.push_back(Motion(0.3f * float(s), {0, 0, 1}, {float(s), 0, 0}));
    b.push_back(Motion(-0.7f * float(s), {1, 1, 0}, {0, 2.0f * float(s), 1000}));
    const Matrix3 pa = a.back(), pb = b.back();
    ASSERT_TRUE(tr.Add(Moved(Moved(rest, 0, 8, pa), 8, 16, pb), error)) << error;
  }
  std::vector<DeformPiece> pieces;
  const DeformReport r = tr.Finish(nullptr, pieces);
  ASSERT_EQ(pieces.size(), 2u);
  EXPECT_EQ(r.pieces, 2);
  EXPECT_EQ(r.exactSamples, 0);
  EXPECT_LT(r.maxError, 1e-3f);  // float positions near 1000
  EXPECT_FALSE(r.exceeds);
  EXPECT_EQ(pieces[0].name, "Debris_0001");
  for (int p = 0; p < 2; ++p) {
    const DeformPiece& piece = pieces[size_t(p)];
    ASSERT_EQ(piece.mesh.numVerts(), 8);
    EXPECT_EQ(piece.mesh.numFaces(), 12);
    EXPECT_EQ(piece.FirstShown(), 0);
    EXPECT_EQ(piece.LastShown(), 4);
    for (int s = 0; s < 5; ++s) {
      const Matrix3& motion = (p == 0 ? a : b)[size_t(s)];
      for (int v = 0; v < 8; ++v) {
        const Point3 want = rest.verts[size_t(p * 8 + v)] * motion;
        EXPECT_LT((piece.mesh.verts[size_t(v)] * piece.At(s) - want).Length(), 2e-4f)
            << "piece " << p << " sample " << s << " vertex " << v;
      }
      // The rotation part is the motion's own, not merely one that lands the points.
      for (int row = 0; row < 3; ++row)
        EXPECT_LT((piece.At(s).GetRow(row) - motion.GetRow(row)).Length(), 1e-5f);
    }
  }
}

TEST(DeformTracker, TouchingPiecesJoinOrSplitByTheTolerance) {
  // Two quads 0.01 apart at one edge, sharing no vertex.
  Mesh rest;
  AddQuad(rest, {0, 0, 0}, 1);
  AddQuad(rest, {1.01f, 0, 0}, 1);
  auto pieces = [&](float tol, bool apart) {
    DeformTracker tr("Sheet", {false, tol});
    std::string error;
    for (int s = 0; s < 4; ++s) {
      const Matrix3 all = Motion(0.2f * float(s), {0, 1, 0}, {0, 0, float(s)});
      Mesh m = Moved(rest, 0, 8, all);
      if (apart) m = Moved(m, 4, 8, TransMatrix({0, 0, 0.5f * float(s)}));
      EXPECT_TRUE(tr.Add(m, error)) << error;
    }
    std::vector<DeformPiece> out;
    tr.Finish(nullptr, out);
    return out;
  };
  EXPECT_EQ(pieces(0.02f, false).size(), 1u);
  EXPECT_EQ(pieces(0.005f, false).size(), 2u);
  // Touching at rest but moving apart: two pieces whatever the tolerance.
  EXPECT_EQ(pieces(0.02f, true).size(), 2u);
  // The joined piece plays back where both quads are.
  const auto joined = pieces(0.02f, false);
  ASSERT_EQ(joined[0].mesh.numVerts(), 8);
  const Mesh at3 = Moved(rest, 0, 8, Motion(0.6f, {0, 1, 0}, {0, 0, 3}));
  EXPECT_LT(SetDistance(at3.verts, Played(joined, 3)), 1e-4f);
}

TEST(DeformTracker, NonRigidPieceIsWarnedAndExactAtEverySample) {
  Mesh rest;
  AddBox(rest, {0, 0, 0}, {1, 1, 1});
  AddBox(rest, {3, 0, 0}, {4, 1, 1});
  DeformTracker tr("Jelly", {false, 0.001f});
  std::string error;
  std::vector<Mesh> truth;
  for (int s = 0; s < 4; ++s) {
    Mesh m = Moved(rest, 8, 16, TransMatrix({0, float(s), 0}));  // the second box is rigid
    for (size_t v = 0; v < 8; ++v) m.verts[v].z *= 1.0f + 0.5f * float(s);  // the first stretches
    if (s == 3) {                                                           // and mirrors
      for (size_t v = 0; v < 8; ++v) m.verts[v].x = -m.verts[v].x;
    }
    truth.push_back(m);
    ASSERT_TRUE(tr.Add(m, error)) << error;
  }
  std::vector<DeformPiece> pieces;
  const DeformReport r = tr.Finish(nullptr, pieces);
  EXPECT_EQ(r.pieces, 2);
  EXPECT_TRUE(r.exceeds);
  EXPECT_GT(r.maxError, 0.4f);
  EXPECT_EQ(r.exactSamples, 3);  // samples 1, 2 and 3 of the stretching box
  ASSERT_EQ(pieces.size(), 5u);
  for (const DeformPiece& p : pieces)
    for (const Matrix3& tm : p.tms) EXPECT_NEAR(tm.Determinant(), 1.0f, 1e-4f) << p.name;
  for (int s = 0; s < 4; ++s)
    EXPECT_LT(SetDistance(truth[size_t(s)].verts, Played(pieces, s)), 1e-4f) << s;

  DeformScene scene;
  scene.reports.push_back(r);
  std::vector<std::string> warnings;
  const auto lines = DeformReportLines(scene, 0.001f, &warnings);
  ASSERT_EQ(lines.size(), 1u);
  ASSERT_EQ(warnings.size(), 1u);
  EXPECT_NE(warnings[0].find("Jelly"), std::string::npos);
}

TEST(DeformTracker, TopologyFollowsPiecesThatAppearVanishAndRenumber) {
  Mesh a, ab, ba;
  AddBox(a, {0, 0, 0}, {1, 1, 1});
  AddBox(ab, {0, 0, 0}, {1, 1, 1});
  AddQuad(ab, {5, 5, 5}, 2);
  AddQuad(ba, {5, 5, 5}, 2);  // the same two pieces, listed the other way round
  AddBox(ba, {0, 0, 0}, {1, 1, 1});

  DeformTracker tr("Shatter", {true, 0.001f});
  std::string error;
  for (int s = 0; s < 20; ++s) {
    const Matrix3 move = TransMatrix({0.1f * float(s), 0, 0});
    const Mesh& m = s < 10 ? a : (s < 15 ? ab : ba);
    Mesh moved = Moved(m, 0, m.verts.size(), move);
    if (s >= 18) moved = Mesh();  // everything gone
    ASSERT_TRUE(tr.Add(moved, error)) << error;
  }
  std::vector<DeformPiece> pieces;
  tr.Finish(nullptr, pieces);
  ASSERT_EQ(pieces.size(), 2u);  // renumbering did not make new pieces
  EXPECT_EQ(pieces[0].FirstShown(), 0);
  EXPECT_EQ(pieces[0].LastShown(), 17);
  EXPECT_EQ(pieces[1].FirstShown(), 10);  // appears at 10, hidden before
  EXPECT_FALSE(pieces[1].Shown(9));
  EXPECT_EQ(pieces[1].LastShown(), 17);
  EXPECT_LT((pieces[1].mesh.verts[0] * pieces[1].At(16) - Point3{6.6f, 5, 5}).Length(), 1e-4f);

  // Without topology the same change is an error that names the mesh.
  DeformTracker strict("Shatter", {false, 0.001f});
  ASSERT_TRUE(strict.Add(a, error));
  EXPECT_FALSE(strict.Add(ab, error));
  EXPECT_NE(error.find("Shatter"), std::string::npos);
  EXPECT_NE(error.find("sample 1"), std::string::npos);
}

TEST(DeformTracker, BadFacesAreRefused) {
  Mesh m;
  AddBox(m, {0, 0, 0}, {1, 1, 1});
  m.faces[3].v[1] = 99;
  DeformTracker tr("Broken", {});
  std::string error;
  EXPECT_FALSE(tr.Add(m, error));
  EXPECT_NE(error.find("Broken"), std::string::npos);
}

// A geometry object whose mesh is whatever a function gives at the time asked.
class FunctionObject final : public host::Object {
 public:
  explicit FunctionObject(std::function<Mesh(TimeValue)> f) : f_(std::move(f)) {}
  host::ClassId GetClassId() const override { return {0x1234, 0x5678}; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Geometry; }
  bool CanConvertToTriObject() const override { return true; }
  bool GetTriMesh(TimeValue t, bool, Mesh& out) override {
    out = f_(t);
    return out.numVerts() > 0;
  }
  std::unique_ptr<Object> Clone() const override { return std::make_unique<FunctionObject>(f_); }
  bool Save(host::ISave&) const override { return true; }
  host::IOResult Load(host::ILoad&) override { return host::IOResult::Ok; }

 private:
  std::function<Mesh(TimeValue)> f_;
};

class DeformRecordTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_deform_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  standalone::Scene scene_;
  fs::path dir_;
};

TEST_F(DeformRecordTest, FracturingMeshRecordsPiecesWithLifetimes) {
  // A box flying along x; from frame 10 a quad breaks off and rises; frames 0..19.
  auto mesh = [](TimeValue t) {
    const float f = float(t) / 160.0f;
    Mesh m;
    AddBox(m, {f, 0, 0}, {f + 1, 1, 1});
    if (f >= 10) AddQuad(m, {0, 0, f}, 1);
    return m;
  };
  host::Node* n = scene_.CreateObjectNode(std::make_unique<FunctionObject>(mesh), "Rock");
  ASSERT_NE(n, nullptr);
  n->GetTMController();
  RecordSettings s;
  s.nodes = {n};
  s.fileName = (dir_ / "rock.kvc").string();
  s.recStart = 0;
  s.recEnd = 19;
  s.clearNodeList = false;
  s.writeDeform = true;
  s.writeTopology = true;
  SettingsRecordTarget target(s);
  Recorder rec(scene_, nullptr);
  RecordOptions o;
  o.quiet = true;
  const RecordResult r = rec.Record(target, o);
  ASSERT_TRUE(r.ok()) << r.message;
  EXPECT_EQ(r.elements, 2);
  ASSERT_EQ(r.deformReport.size(), 1u);
  EXPECT_TRUE(r.warnings.empty());

  KelvaneTools::kvCacheReader reader(s.fileName);
  ASSERT_TRUE(reader.Open()) << reader.ErrorMessageText();
  ASSERT_EQ(reader.NumElements(), 2);
  EXPECT_EQ(reader.Element(0).name, "Rock_0001");
  ASSERT_TRUE(reader.LoadAllSamples());
  for (int smp = 0; smp < 20; ++smp) {
    EXPECT_TRUE(reader.SampleVisible(0, smp));
    EXPECT_EQ(reader.SampleVisible(1, smp), smp >= 10) << smp;
    const Mesh want = mesh(smp * 160);
    std::vector<Point3> got;
    for (int e = 0; e < 2; ++e)
      if (reader.SampleVisible(e, smp))
        for (const Point3& p : reader.ElementMesh(e).verts)
          got.push_back(p * reader.SampleTransform(e, smp));
    EXPECT_LT(SetDistance(want.verts, got), 1e-4f) << smp;
  }
}

TEST_F(DeformRecordTest, TopologyChangeWithoutTheSwitchFailsAndKeepsTheOldFile) {
  auto mesh = [](TimeValue t) {
    Mesh m;
    AddBox(m, {0, 0, 0}, {1, 1, 1});
    if (t >= 5 * 160) AddQuad(m, {3, 0, 0}, 1);
    return m;
  };
  host::Node* n = scene_.CreateObjectNode(std::make_unique<FunctionObject>(mesh), "Rock");
  const std::string path = (dir_ / "keep.kvc").string();
  { std::ofstream(path) << "old"; }
  RecordSettings s;
  s.nodes = {n};
  s.fileName = path;
  s.recEnd = 9;
  s.clearNodeList = false;
  s.writeDeform = true;
  SettingsRecordTarget target(s);
  Recorder rec(scene_, nullptr);
  RecordOptions o;
  o.quiet = true;
  const RecordResult r = rec.Record(target, o);
  EXPECT_EQ(r.status, RecordStatus::Failed);
  EXPECT_NE(r.message.find("Rock"), std::string::npos);
  EXPECT_EQ(fs::file_size(path), 3u);
}

}  // namespace
}  // namespace kv

// The scene file: hand-built bytes, a full round trip with an object class from outside the
// host, and every kind of damaged file.
#include "host/standalone/scene_file.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "host/standalone/controls.h"

namespace kv::standalone {
namespace {

namespace fs = std::filesystem;

fs::path TempFile(const std::string& name) {
  return fs::temp_directory_path() / ("kv_scenefile_" + std::to_string(getpid()) + "_" + name);
}

std::vector<uint8_t> ReadAll(const fs::path& p) {
  std::ifstream f(p, std::ios::binary);
  return {std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>()};
}

void WriteAll(const fs::path& p, const std::vector<uint8_t>& b) {
  std::ofstream(p, std::ios::binary)
      .write(reinterpret_cast<const char*>(b.data()), static_cast<std::streamsize>(b.size()));
}

void Le(std::vector<uint8_t>& b, uint32_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) b.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

// An object class the host does not know, registered from outside as the cache object is.
struct Counter final : host::Object {
  static constexpr host::ClassId kId{0x1234, 0x5678};
  int32_t value = 0;
  host::ClassId GetClassId() const override { return kId; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Helper; }
  bool GetTriMesh(TimeValue, bool, Mesh&) override { return false; }
  std::unique_ptr<Object> Clone() const override { return std::make_unique<Counter>(*this); }
  bool Save(host::ISave& s) const override {
    s.BeginChunk(0x0100);
    s.Write(&value, 4);
    s.EndChunk();
    return true;
  }
  host::IOResult Load(host::ILoad& l) override {
    host::IOResult r;
    while ((r = l.OpenChunk()) == host::IOResult::Ok) {
      if (l.CurChunkID() == 0x0100 && l.Read(&value, 4) != host::IOResult::Ok)
        return host::IOResult::Error;
      l.CloseChunk();
    }
    return r == host::IOResult::End ? host::IOResult::Ok : r;
  }
};

TEST(SceneFile, BytesOfAnEmptySceneAreExactlyTheLayout) {
  Scene s;
  s.SetFrameRate(25);
  s.SetAnimRange(Interval(-192, 4800));
  s.SetTime(96);
  const fs::path p = TempFile("empty.kvs");
  std::string err;
  ASSERT_TRUE(SaveScene(s, p.string(), err)) << err;
  std::vector<uint8_t> want = {'K', 'V', 'S', 'C', 'E', 'N', 'E', 0};
  Le(want, 1, 4);                   // version
  Le(want, 1, 2), Le(want, 16, 4);  // time chunk
  Le(want, 25, 4), Le(want, static_cast<uint32_t>(-192), 4), Le(want, 4800, 4), Le(want, 96, 4);
  for (uint32_t id : {2u, 3u, 4u}) Le(want, id, 2), Le(want, 0, 4);  // empty lists
  EXPECT_EQ(ReadAll(p), want);

  // The same bytes, built by hand, load; unknown top-level chunks are skipped.
  Le(want, 0x7777, 2), Le(want, 3, 4), want.insert(want.end(), {1, 2, 3});
  WriteAll(p, want);
  auto back = LoadScene(p.string(), err);
  ASSERT_NE(back, nullptr) << err;
  EXPECT_EQ(back->GetFrameRate(), 25);
  EXPECT_EQ(back->GetAnimRange(), Interval(-192, 4800));
  EXPECT_EQ(back->GetTime(), 96);
  fs::remove(p);
}

TEST(SceneFile, WholeSceneRoundTrips) {
  ClassRegistry reg;
  reg.Register(Counter::kId, [](Scene&) { return std::make_unique<Counter>(); });
  Scene s;
  Mesh m;
  m.setNumVerts(4);
  m.verts = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 2}};
  m.setNumFaces(2);
  m.faces[0].setVerts(0, 1, 2);
  m.faces[1].setVerts(0, 2, 3);
  m.faces[1].setMatID(7);
  m.faces[1].smGroup = 5;
  m.faceSel.Set(1);
  m.setMapSupport(3);
  m.Map(3).verts = {{0.5f, 0.25f, 0}};
  m.Map(3).faces = {{{0, 0, 0}}, {{0, 0, 0}}};
  m.specNormals.assign(6, {0, 0, 1});
  auto* mesh = static_cast<SceneNode*>(s.CreateMeshNode(m, "Mesh"));
  SceneNode* helper = s.CreateNode(std::make_unique<Counter>(), "Helper");
  static_cast<Counter*>(helper->GetObjectRef())->value = 42;
  s.Link(mesh, helper);
  s.CreateInstanceNode(mesh, "Instance");
  SceneNode* omni = s.CreateLightNode(host::kOmniLightClassId, "Omni");
  auto& atten = static_cast<LightObject*>(omni->GetObjectRef())->FarAttenEnd();
  atten.SetValue(0, 10.f, true);
  atten.SetValue(160, 50.f, true);
  s.DeleteNode(s.CreatePointHelperNode("Gone"));

  MultiMtl* mm = s.NewMultiMtl("Multi");
  mm->subs = {s.NewStdMtl("A", {1, 0.5f, 0}), nullptr};
  mesh->SetMtl(mm);
  mesh->SetWireColor(0x123456);
  mesh->SetInheritVisibility(false);
  mesh->SetSelected(true);
  mesh->SetObjectOffset(TransMatrix({0, 0, 3}));
  mesh->KeyPosition(0, {1, 2, 3});
  mesh->KeyPosition(320, {4, 0, 3});
  mesh->KeyPosition(640, {0, -2, 1});
  mesh->GetTMController()->GetPositionController()->SetKeyTCB(1, 0.5f, 0.25f, -0.5f);
  helper->KeyRotation(0, Quat{});
  helper->KeyRotation(480, Quat(AngAxis{{1, 0, 0}, 1.0f}));
  host::Control* scale = helper->GetTMController()->GetScaleController();
  scale->SetValue(0, host::ScaleValue{{1, 1, 1}, Quat{}}, true);
  scale->SetValue(480, host::ScaleValue{{2, 1, 1}, Quat{}}, true);
  ASSERT_TRUE(SetKeyTangents(*scale, 0, host::ScaleValue{{0, 0, 0}, Quat{}},
                             host::ScaleValue{{0.01f, 0, 0}, Quat{}}));
  auto& vis = mesh->EnsureVisController();
  SetInterp(vis, host::Interp::Step);
  vis.SetValue(100, 0.f, true);

  const fs::path p = TempFile("full.kvs");
  std::string err;
  ASSERT_TRUE(SaveScene(s, p.string(), err)) << err;
  auto back = LoadScene(p.string(), err, reg);
  ASSERT_NE(back, nullptr) << err;

  ASSERT_EQ(back->AllNodes().size(), 4u);  // the deleted node is not saved
  SceneNode* mesh2 = back->FindNode("Mesh");
  SceneNode* helper2 = back->FindNode("Helper");
  ASSERT_TRUE(mesh2 && helper2);
  EXPECT_EQ(mesh2->GetParent(), helper2);
  EXPECT_EQ(back->FindNode("Instance")->GetObjectRef(), mesh2->GetObjectRef());
  EXPECT_EQ(static_cast<Counter*>(helper2->GetObjectRef())->value, 42);
  EXPECT_EQ(mesh2->GetWireColor(), 0x123456u);
  EXPECT_FALSE(mesh2->GetInheritVisibility());
  EXPECT_TRUE(mesh2->Selected());
  for (TimeValue t : {0, 100, 250, 400, 700}) {
    EXPECT_TRUE(mesh2->GetObjectTM(t).Equals(mesh->GetObjectTM(t), 1e-6f)) << t;
    EXPECT_EQ(mesh2->GetVisibility(t), mesh->GetVisibility(t)) << t;
    EXPECT_EQ(back->FindNode("Omni")->GetObjectRef()->GetFarAttenEnd(t),
              omni->GetObjectRef()->GetFarAttenEnd(t));
  }
  EXPECT_EQ(mesh2->GetTMController()->GetPositionController()->GetInterp(), host::Interp::Bezier);
  Mesh m2;
  ASSERT_TRUE(mesh2->EvalTriMesh(0, false, m2));
  EXPECT_EQ(m2.verts, m.verts);
  EXPECT_EQ(m2.faces[1].getMatID(), 7);
  EXPECT_EQ(m2.faces[1].smGroup, 5u);
  EXPECT_TRUE(m2.faceSel[1] && !m2.faceSel[0]);
  ASSERT_TRUE(m2.mapSupport(3) && !m2.mapSupport(1));
  EXPECT_EQ(m2.Map(3).verts[0], (Point3{0.5f, 0.25f, 0}));
  EXPECT_EQ(m2.specNormals.size(), 6u);
  ASSERT_EQ(mesh2->GetMtl()->NumSubMtls(), 2);
  EXPECT_EQ(mesh2->GetMtl()->GetSubMtl(0)->GetName(), "A");
  EXPECT_EQ(mesh2->GetMtl()->GetSubMtl(1), nullptr);
  EXPECT_EQ(back->UndoHistory().NumUndoSteps(), 0);

  // Without the class registered the load fails and says why.
  EXPECT_EQ(LoadScene(p.string(), err, ClassRegistry()), nullptr);
  EXPECT_NE(err.find("unknown object class"), std::string::npos) << err;
  fs::remove(p);
}

TEST(SceneFile, DamagedFilesGiveAClearError) {
  Scene s;
  auto* n = static_cast<SceneNode*>(s.CreateMeshNode(Mesh(), "N"));
  n->KeyPosition(0, {1, 2, 3});
  n->EnsureVisController();
  n->SetMtl(s.NewStdMtl("M", {1, 1, 1}));
  const fs::path p = TempFile("good.kvs"), q = TempFile("bad.kvs");
  std::string err;
  ASSERT_TRUE(SaveScene(s, p.string(), err));
  const std::vector<uint8_t> good = ReadAll(p);

  EXPECT_EQ(LoadScene(TempFile("missing.kvs").string(), err), nullptr);
  EXPECT_NE(err.find("cannot open"), std::string::npos);
  // Every truncation fails (each a fresh allocation, so the sanitizer sees any over-read).
  for (size_t len = 0; len < good.size(); ++len) {
    WriteAll(q, std::vector<uint8_t>(good.begin(), good.begin() + static_cast<long>(len)));
    EXPECT_EQ(LoadScene(q.string(), err), nullptr) << "length " << len;
    EXPECT_FALSE(err.empty());
  }
  auto bad = good;
  bad[0] = 'X';
  WriteAll(q, bad);
  EXPECT_EQ(LoadScene(q.string(), err), nullptr);
  EXPECT_NE(err.find("not a scene file"), std::string::npos);
  bad = good;
  bad[8] = 2;
  WriteAll(q, bad);
  EXPECT_EQ(LoadScene(q.string(), err), nullptr);
  EXPECT_NE(err.find("version 2"), std::string::npos);
  bad = good;
  const uint32_t huge = 0xFFFFFFF0u;
  std::memcpy(bad.data() + 14, &huge, 4);  // the time chunk's length
  WriteAll(q, bad);
  EXPECT_EQ(LoadScene(q.string(), err), nullptr);
  EXPECT_NE(err.find("longer than"), std::string::npos) << err;
  // A parent chain that loops back is refused, not silently cut.
  {
    Scene two;
    auto* a = static_cast<SceneNode*>(two.CreatePointHelperNode("A"));
    auto* b = static_cast<SceneNode*>(two.CreatePointHelperNode("B"));
    two.Link(b, a);
    const fs::path t = TempFile("loop.kvs");
    ASSERT_TRUE(SaveScene(two, t.string(), err));
    std::vector<uint8_t> bytes = ReadAll(t);
    const uint8_t nameA[5] = {1, 0, 0, 0, 'A'};
    const auto at = std::search(bytes.begin(), bytes.end(), nameA, nameA + 5);
    ASSERT_NE(at, bytes.end());
    const int32_t parentIsB = 1;
    std::memcpy(&*(at + 5), &parentIsB, 4);
    WriteAll(t, bytes);
    EXPECT_EQ(LoadScene(t.string(), err), nullptr);
    EXPECT_NE(err.find("loop"), std::string::npos) << err;
    fs::remove(t);
  }
  // Mesh chunks out of order (a map channel and normals before the faces) would lose their
  // data when the faces arrive: refused.
  {
    Mesh tri;
    tri.setNumVerts(3);
    tri.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    tri.setNumFaces(1);
    tri.faces[0].setVerts(0, 1, 2);
    tri.setMapSupport(1);
    tri.Map(1).verts = {{0, 0, 0}};
    tri.specNormals.assign(3, Point3{0, 0, 1});
    ChunkWriter w;
    SaveMesh(w, tri);
    auto chunks = w.Bytes();
    {
      ChunkReader r(chunks.data(), chunks.size());
      Mesh back;
      ASSERT_EQ(LoadMesh(r, back), host::IOResult::Ok);
      EXPECT_EQ(back.Map(1).faces.size(), 1u);
    }
    // Move the faces chunk (the second) to the end.
    auto chunkLen = [&](size_t at) {
      uint32_t len;
      std::memcpy(&len, chunks.data() + at + 2, 4);
      return 6 + static_cast<size_t>(len);
    };
    const size_t facesAt = chunkLen(0), facesLen = chunkLen(facesAt);
    std::vector<uint8_t> moved(chunks.begin(), chunks.begin() + static_cast<long>(facesAt));
    moved.insert(moved.end(), chunks.begin() + static_cast<long>(facesAt + facesLen), chunks.end());
    moved.insert(moved.end(), chunks.begin() + static_cast<long>(facesAt),
                 chunks.begin() + static_cast<long>(facesAt + facesLen));
    ChunkReader r(moved.data(), moved.size());
    Mesh back;
    EXPECT_EQ(LoadMesh(r, back), host::IOResult::Error);
  }
  // Flipping any single byte never crashes; most give an error.
  for (size_t i = 12; i < good.size(); ++i) {
    bad = good;
    bad[i] ^= 0xA5;
    WriteAll(q, bad);
    (void)LoadScene(q.string(), err);
  }
  fs::remove(p);
  fs::remove(q);
}

}  // namespace
}  // namespace kv::standalone

#include "cache/writer.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>

#include "cache/reader.h"
#include "fixtures.h"
#include "host/standalone/scene.h"

using namespace KelvaneTools;
using kvtest::Bytes;
using kvtest::TempFile;

namespace {

kv::Mesh Triangle(float x, uint16_t matId) {
  kv::Mesh m;
  m.verts = {{x, 0, 0}, {x + 1, 0, 0}, {x, 1, 0}};
  m.faces.resize(1);
  m.faces[0].setVerts(0, 1, 2);
  m.faces[0].smGroup = 3;
  m.faces[0].flags = kv::kEdgeA | kv::kEdgeC;
  m.faces[0].setMatID(matId);
  m.faceSel.SetSize(1);
  return m;
}

void AddChannel(kv::Mesh& m, int ch, std::vector<kv::Point3> verts) {
  m.setMapSupport(ch, true);
  m.Map(ch).verts = std::move(verts);
  m.Map(ch).faces.assign(m.faces.size(), kv::TVFace{{0, 1, 2}});
}

// Elements with fixed meshes; element i at time t sits at (t, i, 0), hidden where `hidden`
// says so.
struct TestSource : ElementSource {
  std::vector<std::string> names;
  std::vector<kv::Mesh> meshes;
  std::vector<kv::host::Mtl*> mtls;
  std::function<bool(int, kv::TimeValue)> hidden = [](int, kv::TimeValue) { return false; };
  bool throwOnSample = false;
  bool throwOnMaterial = false;
  int sampleCalls = 0;

  int Count() const override { return int(meshes.size()); }
  std::string Name(int i) const override { return names[size_t(i)]; }
  bool CaptureMesh(int i, kv::TimeValue, bool, kv::Mesh& out) override {
    out = meshes[size_t(i)];
    return out.numFaces() > 0;
  }
  kv::host::Mtl* Material(int i) const override {
    if (throwOnMaterial) throw std::runtime_error("material lookup failed");
    return size_t(i) < mtls.size() ? mtls[size_t(i)] : nullptr;
  }
  void Sample(kv::TimeValue t, std::span<const int> el, kv::Matrix3* tm, float* vis) override {
    ++sampleCalls;
    if (throwOnSample) throw std::runtime_error("node evaluation failed");
    for (size_t k = 0; k < el.size(); ++k) {
      tm[k] = kv::TransMatrix({float(t), float(el[k]), 0});
      vis[k] = hidden(el[k], t) ? 0.0f : 1.0f;
    }
  }
  int FrameRate() const override { return 25; }
};

TEST(CacheWriter, WritesTheExactLayout) {
  TestSource src;
  src.names = {"Tri"};
  src.meshes = {Triangle(0, 1)};
  src.meshes[0].faceSel.Set(0);
  src.meshes[0].specNormals.assign(3, {0, 0, 1});
  AddChannel(src.meshes[0], 1, {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
  src.hidden = [](int, kv::TimeValue t) { return t == 60; };
  // Version 1 has short faces; only version 2 records carry the normals byte, while
  // version 3 faces still carry the normals.
  for (uint8_t version : {1, 2, 3}) {
    SCOPED_TRACE(int(version));
    TempFile file("layout");
    // A step that does not divide the range: samples at 0, 30, 60, 90.
    kvCacheWriter w(file.path, kv::TransMatrix({0, 0, 1}), 0, 100, 30, version, src);
    ASSERT_TRUE(w.AddElement(0, 0));
    ASSERT_TRUE(w.Write());

    Bytes e;
    kvtest::HeaderFields h;
    h.version = version;
    h.end = 100;
    h.step = 30;
    h.fps = 25;
    h.samples = 4;
    h.hasVis = 1;
    kvtest::PutHeader(e, h);
    e.zeros(256 - e.size());
    e.i32(3).str("Tri").f32(0).f32(0).f32(0).f32(1).f32(1).f32(0);
    e.i32(3).i32(1).i32(1).i32(1).i32(3);
    if (version == 2) e.u8(1);
    e.f32(0).f32(0).f32(0).f32(1).f32(0).f32(0).f32(0).f32(1).f32(0);
    e.u16(1).u32(3).u8(5).u8(1).u32(0).u32(1).u32(2);
    if (version == 1)
      e.zeros(12);
    else
      for (int c = 0; c < 3; ++c) e.f32(0).f32(0).f32(1);
    e.f32(0).f32(0).f32(0).f32(1).f32(0).f32(0).f32(0).f32(1).f32(0).u32(0).u32(1).u32(2);
    e.PatchI32(kvtest::kTableOffsetField, int32_t(e.size()));
    for (int t = 0; t <= 90; t += 30) kvtest::PutSample(e, 1, float(t), 0, 1, t != 60);

    const std::vector<uint8_t> got = file.Read();
    ASSERT_EQ(got.size(), e.b.size());
    for (size_t i = 0; i < got.size(); ++i)
      ASSERT_EQ(got[i], e.b[i]) << "first difference at " << i;
  }
}

TEST(CacheWriter, ReaderGetsBackWhatWasWritten) {
  TestSource src;
  // Names go through Windows-1252: one byte per character, '?' for what it lacks.
  src.names = {"Kiste", "Würfel", "\xF0\x9F\x98\x80\xF0\x9F\x98\x81"};
  src.meshes = {Triangle(0, 0), Triangle(5, 2), Triangle(9, 1)};
  AddChannel(src.meshes[0], 1, {{0.5f, 0.5f, 0}, {1, 0, 0}, {0, 1, 0}});
  AddChannel(src.meshes[1], 3, {{0.25f, 0, 0}, {0.5f, 0, 0}, {0.75f, 0, 0}});
  src.meshes[1].specNormals.assign(3, {0, 0, 1});
  src.meshes[2].verts.push_back({100, 100, 100});  // isolated: dropped on capture
  src.hidden = [](int i, kv::TimeValue) { return i == 2; };
  TempFile file("identity");
  kvCacheWriter w(file.path, kv::Matrix3(), 0, 480, 160, 2, src);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(w.AddElement(i, 0));
  const ElementLifetime lives[] = {{0, 480}, {160, 320}, {}};
  ASSERT_TRUE(w.Write(lives));
  EXPECT_EQ(w.ErrorCode(), kErrNone);

  kvCacheReader r(file.path);
  ASSERT_TRUE(r.Open()) << r.ErrorMessageText();
  ASSERT_EQ(r.NumElements(), 3);
  EXPECT_EQ(r.NumSamples(), 4);
  EXPECT_EQ(r.FrameRate(), 25);
  EXPECT_EQ(r.Element(1).name, "Würfel");
  EXPECT_EQ(r.Element(2).name, "??");
  // The records as stored: the length, then the code page bytes. Each record is its name plus
  // 4 + 24 + 12 + 2 x 8 (channels 1 and 3) + 1 bytes.
  const std::vector<uint8_t> bytes = file.Read();
  const auto at = [&](size_t offset, const std::vector<uint8_t>& want) {
    return bytes.size() >= offset + want.size() &&
           std::equal(want.begin(), want.end(), bytes.begin() + long(offset));
  };
  EXPECT_TRUE(at(256, {5, 0, 0, 0, 'K', 'i', 's', 't', 'e'}));
  EXPECT_TRUE(at(256 + 62, {6, 0, 0, 0, 'W', 0xFC, 'r', 'f', 'e', 'l'}));
  EXPECT_TRUE(at(256 + 62 + 63, {2, 0, 0, 0, '?', '?'}));
  EXPECT_EQ(r.Element(2).numVerts, 3);
  EXPECT_TRUE(r.Element(1).hasNormals);
  EXPECT_FALSE(r.Element(0).hasNormals);
  EXPECT_EQ(std::vector<uint16_t>(r.Element(1).matIds.begin(), r.Element(1).matIds.end()),
            std::vector<uint16_t>{2});
  // Every element carries the union of channels; the missing ones are zeros on the faces.
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(r.Element(i).HasChannel(1) && r.Element(i).HasChannel(3));
    EXPECT_FALSE(r.Element(i).HasChannel(0));
  }
  const kv::Mesh& m1 = r.ElementMesh(1);
  EXPECT_EQ(m1.Map(1).verts, std::vector<kv::Point3>(3));
  EXPECT_EQ(m1.Map(1).faces[0].t[2], 2u);
  EXPECT_EQ(m1.Map(3).verts[2], (kv::Point3{0.75f, 0, 0}));
  EXPECT_EQ(m1.specNormals[2], (kv::Point3{0, 0, 1}));
  EXPECT_EQ(r.ElementMesh(0).Map(1).verts[0], (kv::Point3{0.5f, 0.5f, 0}));
  EXPECT_EQ(r.ElementMesh(2).verts, (std::vector<kv::Point3>{{9, 0, 0}, {10, 0, 0}, {9, 1, 0}}));

  ASSERT_TRUE(r.LoadAllSamples());
  EXPECT_EQ(r.SampleTransform(1, 2).GetTrans(), (kv::Point3{320, 1, 0}));
  EXPECT_FALSE(r.SampleVisible(1, 0));  // before its lifetime
  EXPECT_TRUE(r.SampleVisible(1, 1));
  EXPECT_TRUE(r.SampleVisible(1, 2));  // its last tick is included
  EXPECT_FALSE(r.SampleVisible(1, 3));
  EXPECT_FALSE(r.SampleVisible(2, 1));  // hidden node
  EXPECT_TRUE(r.HasVisibility());
}

TEST(CacheWriter, CombinesMaterialsAndSavesTheLibrary) {
  kv::standalone::Scene host;
  kv::host::Mtl* steel = host.NewStdMtl("Steel", {0.5f, 0.5f, 0.5f});
  kv::host::Mtl* glass = host.NewStdMtl("Glass", {0, 0, 1});
  TempFile file("materials");
  TempFile lib("materials", ".mat");
  {  // one element without material: nothing combined, ids unchanged
    TestSource src;
    src.names = {"a"};
    src.meshes = {Triangle(0, 6)};
    kvCacheWriter w(file.path, kv::Matrix3(), 0, 0, 160, 2, src, &host);
    ASSERT_TRUE(w.AddElement(0, 0));
    ASSERT_TRUE(w.Write());
    EXPECT_EQ(w.CombinedMaterial(), nullptr);
    EXPECT_FALSE(w.SaveMaterialLibrary());
    kvCacheReader r(file.path);
    ASSERT_TRUE(r.Open());
    EXPECT_EQ(r.Element(0).matIds[0], 6);
    EXPECT_EQ(r.NumSamples(), 1);  // start = end: one sample
  }
  TestSource src;
  src.names = {"a", "b", "c"};
  src.meshes = {Triangle(0, 0), Triangle(1, 0), Triangle(2, 0)};
  src.mtls = {steel, steel, glass};
  kvCacheWriter w(file.path, kv::Matrix3(), 0, 160, 1000, 2, src, &host);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(w.AddElement(i, 0));
  ASSERT_TRUE(w.Write());
  ASSERT_NE(w.CombinedMaterial(), nullptr);
  // The shared material is not combined again: two sub-materials, not three.
  ASSERT_EQ(w.CombinedMaterial()->NumSubMtls(), 2);
  EXPECT_EQ(w.CombinedMaterial()->GetSubMtl(1), glass);
  EXPECT_EQ(w.MatIdOffset(1), 0);
  EXPECT_EQ(w.MatIdOffset(2), 1);
  EXPECT_EQ(w.CombinedMaterial()->GetName(), "kvtest_" + std::to_string(getpid()) + "_materials");
  ASSERT_TRUE(w.SaveMaterialLibrary());

  kvCacheReader r(file.path, &host);
  ASSERT_TRUE(r.Open());
  EXPECT_EQ(r.NumSamples(), 1);  // a step larger than the range
  EXPECT_EQ(r.Element(2).matIds[0], 1);
  ASSERT_EQ(r.MaterialLibrary()->Count(), 1);
  EXPECT_EQ(r.MaterialLibrary()->At(0)->GetName(), w.CombinedMaterial()->GetName());

  // A file name that is all extension has no base name to give.
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("kvtest_" + std::to_string(getpid()) + "_dot");
  std::filesystem::create_directories(dir);
  {
    kvCacheWriter d((dir / ".kvc").string(), kv::Matrix3(), 0, 0, 160, 2, src, &host);
    ASSERT_TRUE(d.AddElement(2, 0));
    ASSERT_TRUE(d.Write());
    ASSERT_NE(d.CombinedMaterial(), nullptr);
    EXPECT_EQ(d.CombinedMaterial()->GetName(), "KV Cache");
  }
  std::filesystem::remove_all(dir);
}

TEST(CacheWriter, FailuresLeaveCodes) {
  TestSource src;
  src.names = {"a", "empty"};
  src.meshes = {Triangle(0, 0), kv::Mesh()};
  TempFile file("failures");
  {
    kvCacheWriter w(file.path, kv::Matrix3(), 0, 160, 160, 2, src);
    EXPECT_FALSE(w.AddElement(1, 0));  // no mesh: skipped
    EXPECT_FALSE(w.AddElement(7, 0));
    EXPECT_EQ(w.NumElements(), 0);
    EXPECT_FALSE(w.Write());
    EXPECT_EQ(w.ErrorCode(), kErrNone);
    EXPECT_TRUE(file.Read().empty());  // not created
  }
  {
    kvCacheWriter w("/nonexistent/dir/x.kvc", kv::Matrix3(), 0, 160, 160, 2, src);
    ASSERT_TRUE(w.AddElement(0, 0));
    EXPECT_FALSE(w.Write());
    EXPECT_EQ(w.ErrorCode(), kErrFileNotFound);
  }
  {
    src.throwOnSample = true;
    kvCacheWriter w(file.path, kv::Matrix3(), 0, 160, 160, 2, src);
    ASSERT_TRUE(w.AddElement(0, 0));
    EXPECT_FALSE(w.Write());
    EXPECT_EQ(w.ErrorCode(), kErrException);
    EXPECT_EQ(w.ErrorMessageText(), "Unhandled exception.");
    EXPECT_FALSE(w.IsOpen());
    src.throwOnSample = false;
  }
  {
    kv::standalone::Scene host;
    src.throwOnMaterial = true;
    kvCacheWriter w(file.path, kv::Matrix3(), 0, 160, 160, 2, src, &host);
    ASSERT_TRUE(w.AddElement(0, 0));
    EXPECT_FALSE(w.Write());
    EXPECT_EQ(w.ErrorCode(), kErrException);
  }
}

TEST(CacheWriter, BuffersSamplesAndHonoursCancel) {
  TestSource src;
  src.names = {"a", "b"};
  src.meshes = {Triangle(0, 0), Triangle(1, 0)};
  struct Log {
    std::vector<std::pair<uint32_t, uint32_t>> calls;
    size_t cancelAt = SIZE_MAX;
  } log;
  auto cb = [](void* u, uint32_t d, uint32_t t) {
    auto* l = static_cast<Log*>(u);
    l->calls.emplace_back(d, t);
    return l->calls.size() < l->cancelAt;
  };
  TempFile file("buffered");
  // 2 elements x 30,000 samples = 60,000 records: one full buffer and a remainder.
  kvCacheWriter w(file.path, kv::Matrix3(), 0, 29999, 1, 2, src);
  w.SetProgressCallback(cb, &log);
  ASSERT_TRUE(w.AddElement(0, 0));
  ASSERT_TRUE(w.AddElement(1, 0));
  ASSERT_TRUE(w.Write());
  // Two geometry calls (element index, count), no map channels, then one call per flush.
  ASSERT_EQ(log.calls.size(), 4u);
  EXPECT_EQ(log.calls[0], (std::pair<uint32_t, uint32_t>{0, 2}));
  EXPECT_EQ(log.calls[1], (std::pair<uint32_t, uint32_t>{1, 2}));
  EXPECT_EQ(log.calls[3], log.calls[1]);  // not advanced while sampling
  EXPECT_EQ(src.sampleCalls, 30000);
  EXPECT_EQ(file.Read().size(), 256u + 2 * (4 + 1 + 24 + 12 + 1) + 2 * (36 + 56) + 60000u * 49);

  for (size_t at : {1u, 3u}) {  // cancel in the geometry phase, then while sampling
    log.calls.clear();
    log.cancelAt = at;
    kvCacheWriter c(file.path, kv::Matrix3(), 0, 29999, 1, 2, src);
    c.SetProgressCallback(cb, &log);
    ASSERT_TRUE(c.AddElement(0, 0));
    ASSERT_TRUE(c.AddElement(1, 0));
    EXPECT_FALSE(c.Write());
    EXPECT_EQ(c.ErrorCode(), kErrCancelled);
    EXPECT_EQ(c.ErrorMessageText(), "Operation cancelled.");
    EXPECT_EQ(log.calls.size(), at);
    // Only a new writer clears the code: a later successful write leaves it.
    log.cancelAt = SIZE_MAX;
    EXPECT_TRUE(c.Write());
    EXPECT_EQ(c.ErrorCode(), kErrCancelled);
  }
}

// With three elements the first flush (53,498 records) falls inside a sample's records: every
// record must still land in its place, with its element's transform and visibility.
TEST(CacheWriter, SampleRecordsSplitByAFlushKeepTheirPlaces) {
  TestSource src;
  src.names = {"a", "b", "c"};
  src.meshes = {Triangle(0, 0), Triangle(1, 0), Triangle(2, 0)};
  src.hidden = [](int e, kv::TimeValue t) { return e == 2 && t % 7 == 0; };
  TempFile file("split");
  constexpr int kSamples = 20000;
  kvCacheWriter w(file.path, kv::Matrix3(), 0, kSamples - 1, 1, 2, src);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(w.AddElement(i, 0));
  const std::vector<ElementLifetime> lifetimes{{}, {100, 19000}};
  ASSERT_TRUE(w.Write(lifetimes));
  const std::vector<uint8_t> bytes = file.Read();
  // Header, three records of 42 bytes (one-letter names), three geometry blocks of 92.
  const size_t table = 256 + 3 * 42 + 3 * 92;
  ASSERT_EQ(bytes.size(), table + size_t(kSamples) * 3 * 49);
  size_t wrong = 0;
  for (int t = 0; t < kSamples; ++t) {
    for (int e = 0; e < 3; ++e) {
      const uint8_t* rec = bytes.data() + table + (size_t(t) * 3 + size_t(e)) * 49;
      float m[12];
      std::memcpy(m, rec, sizeof m);
      const bool visible = e == 1 ? t >= 100 && t <= 19000 : !(e == 2 && t % 7 == 0);
      if (m[0] != 1 || m[4] != 1 || m[8] != 1 || m[9] != float(t) || m[10] != float(e) ||
          m[11] != 0 || rec[48] != (visible ? 1 : 0))
        ++wrong;
    }
  }
  EXPECT_EQ(wrong, 0u);
  kvCacheReader r(file.path);
  ASSERT_TRUE(r.Open());
  EXPECT_EQ(r.Header().sampleTableOffset, int32_t(table));
  EXPECT_TRUE(r.HasVisibility());
}

}  // namespace

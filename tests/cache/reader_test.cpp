#include "cache/reader.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "fixtures.h"
#include "host/standalone/scene.h"

using namespace KelvaneTools;
using kvtest::Bytes;
using kvtest::TempFile;

namespace {

void ExpectTwoElementIndex(const kvCacheReader& r, bool normals) {
  ASSERT_TRUE(r.HasIndex());
  ASSERT_EQ(r.NumElements(), 2);
  EXPECT_EQ(r.NumSamples(), 2);
  EXPECT_EQ(r.Start(), 0);
  EXPECT_EQ(r.End(), 160);
  EXPECT_EQ(r.Step(), 160);
  EXPECT_EQ(r.FrameRate(), 30);
  EXPECT_TRUE(r.HasVisibility());

  const CacheElement& a = r.Element(0);
  const CacheElement& b = r.Element(1);
  EXPECT_EQ(a.name, "Cube");
  EXPECT_EQ(b.name, "W\xC3\xBCrfel");  // from the code page to UTF-8, whole
  EXPECT_EQ(b.bounds.pmin, (kv::Point3{5, 5, 5}));
  EXPECT_EQ(b.bounds.pmax, (kv::Point3{6, 6, 5}));
  EXPECT_EQ(a.hasNormals, normals);
  EXPECT_FALSE(b.hasNormals);
  EXPECT_EQ(r.AnyNormals(), normals);
  EXPECT_EQ(std::vector<uint16_t>(a.matIds.begin(), a.matIds.end()), std::vector<uint16_t>{4});
  EXPECT_EQ(std::vector<uint16_t>(b.matIds.begin(), b.matIds.end()), std::vector<uint16_t>{2});
  EXPECT_EQ(a.lowChannel, 1);
  EXPECT_EQ(a.highChannel, 3);
  EXPECT_EQ(b.lowChannel, 3);
  EXPECT_EQ(r.LowChannel(), 1);
  EXPECT_EQ(r.HighChannel(), 3);
  EXPECT_EQ(r.ChannelTotals(), (std::map<int32_t, int64_t>{{1, 3}, {3, 4}}));
  EXPECT_EQ(r.TotalVerts(), 6);
  EXPECT_EQ(r.TotalFaces(), 2);

  // Combined mesh: second element's indices offset, flags decoded, four channel slots.
  const kv::Mesh& m = r.CombinedMesh();
  ASSERT_EQ(m.numVerts(), 6);
  ASSERT_EQ(m.numFaces(), 2);
  EXPECT_EQ(m.verts[4], (kv::Point3{6, 5, 5}));
  EXPECT_EQ(m.faces[1].v[0], 5u);
  EXPECT_EQ(m.faces[1].v[2], 3u);
  EXPECT_EQ(m.faces[0].getMatID(), 4);
  EXPECT_EQ(m.faces[0].smGroup, 5u);
  EXPECT_EQ(m.faces[0].getEdgeVisBits(), 7u);
  EXPECT_FALSE(m.faces[0].Hidden());  // bit 3 of the edge byte is not a flag
  EXPECT_EQ(m.faces[1].getEdgeVisBits(), 3u);
  EXPECT_TRUE(m.faceSel[0]);
  EXPECT_FALSE(m.faceSel[1]);
  ASSERT_EQ(m.getNumMaps(), 4);
  EXPECT_FALSE(m.mapSupport(0));
  EXPECT_TRUE(m.mapSupport(1));
  EXPECT_FALSE(m.mapSupport(2));
  EXPECT_TRUE(m.mapSupport(3));
  // Exactly the carriers' map vertices; element 1 lacks channel 1 and uses its first one.
  EXPECT_EQ(m.Map(1).verts.size(), 3u);
  EXPECT_EQ(m.Map(3).verts.size(), 4u);
  EXPECT_EQ(m.Map(1).faces[1].t[1], 0u);
  EXPECT_EQ(m.Map(1).verts[2], (kv::Point3{0.5f, 0.6f, 0}));
  EXPECT_EQ(m.Map(3).faces[1].t[0], 3u);  // element 1's corner 0 -> its map vertex 2, +1
  EXPECT_EQ(m.Map(3).verts[m.Map(3).faces[1].t[0]], (kv::Point3{0.9f, 0, 0}));
  if (normals) {
    ASSERT_EQ(m.specNormals.size(), 6u);
    EXPECT_EQ(m.specNormals[1], (kv::Point3{0, 0, 1}));
  } else {
    EXPECT_TRUE(m.specNormals.empty());
  }

  // An element's own mesh is rebased to its own vertices and map vertices.
  const kv::Mesh& e1 = r.ElementMesh(1);
  ASSERT_EQ(e1.numVerts(), 3);
  EXPECT_EQ(e1.faces[0].v[0], 2u);
  EXPECT_EQ(e1.getNumMaps(), 4);
  EXPECT_FALSE(e1.mapSupport(1));
  EXPECT_EQ(e1.Map(3).verts.size(), 3u);
  EXPECT_EQ(e1.Map(3).faces[0].t[0], 2u);
  EXPECT_FALSE(e1.hasSpecNormals());
  EXPECT_EQ(r.ElementMesh(0).hasSpecNormals(), normals);
  EXPECT_EQ(r.ElementBoxMesh(1).numFaces(), 12);
  EXPECT_EQ(r.CombinedBoxMesh().numVerts(), 16);
  EXPECT_EQ(r.CombinedBoxMesh().verts[8 + 7], (kv::Point3{6, 6, 5}));
}

TEST(CacheReaderOpen, ReadsEveryVersionFromHandBuiltBytes) {
  for (uint8_t version : {1, 2, 3}) {
    SCOPED_TRACE(int(version));
    TempFile file("versions");
    file.Write(kvtest::TwoElementCache(version).b);
    kvCacheReader r(file.path);
    ASSERT_TRUE(r.Open()) << r.ErrorMessageText();
    EXPECT_EQ(r.Version(), version);
    ExpectTwoElementIndex(r, version >= 2);
  }
  // Element 0 lists channel 3 before channel 1: its map blocks still follow channel order.
  Bytes f = kvtest::TwoElementCache(2);
  const size_t list0 = 256 + 4 + 4 + 24 + 12;
  f.PatchI32(list0, 3);
  f.PatchI32(list0 + 4, 1);
  f.PatchI32(list0 + 8, 1);
  f.PatchI32(list0 + 12, 3);
  TempFile file("order");
  file.Write(f.b);
  kvCacheReader r(file.path);
  ASSERT_TRUE(r.Open()) << r.ErrorMessageText();
  ExpectTwoElementIndex(r, true);
}

TEST(CacheReaderOpen, RejectsEveryBrokenHeaderRule) {
  struct Case {
    const char* what;
    void (*edit)(Bytes&);
  };
  const Case cases[] = {
      {"magic", [](Bytes& f) { f.b[0] = 'k'; }},
      {"version 0", [](Bytes& f) { f.b[7] = 0; }},
      {"version 4", [](Bytes& f) { f.b[7] = 4; }},
      {"start after end", [](Bytes& f) { f.PatchI32(9, 161); }},
      {"step 0", [](Bytes& f) { f.PatchI32(17, 0); }},
      {"frame rate 0", [](Bytes& f) { f.PatchI32(21, 0); }},
      {"negative elements", [](Bytes& f) { f.PatchI32(25, -1); }},
      {"negative samples", [](Bytes& f) { f.PatchI32(29, -1); }},
      {"zero elements, zero stride", [](Bytes& f) { f.PatchI32(25, 0), f.PatchI32(33, 0); }},
      {"data offset", [](Bytes& f) { f.PatchI32(37, 257); }},
      {"table offset", [](Bytes& f) { f.PatchI32(41, 256); }},
      {"stride below one block", [](Bytes& f) { f.PatchI32(33, 97); }},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes f = kvtest::TwoElementCache(2);
    c.edit(f);
    TempFile file("header");
    file.Write(f.b);
    kvCacheReader r(file.path);
    EXPECT_FALSE(r.Open());
    EXPECT_EQ(r.ErrorCode(), kErrInvalidFile);
    EXPECT_EQ(r.ErrorMessageText(), "Invalid cache file.");
    EXPECT_FALSE(r.HasIndex());
    EXPECT_FALSE(r.IsOpen());
    EXPECT_EQ(r.Start(), INT32_MIN);
  }
}

TEST(CacheReaderOpen, EveryTruncationFailsCleanly) {
  const Bytes whole = kvtest::TwoElementCache(2);
  TempFile file("trunc");
  for (size_t n = 0; n < whole.size(); ++n) {
    file.Write(whole.b, n);
    kvCacheReader r(file.path);
    ASSERT_FALSE(r.Open()) << n;
    EXPECT_TRUE(r.ErrorCode() == kErrReadPastEof || r.ErrorCode() == kErrFile) << n;
    EXPECT_FALSE(r.HasIndex());
    EXPECT_EQ(r.NumElements(), 0);
  }
  file.Write(whole.b);
  kvCacheReader r(file.path);
  EXPECT_TRUE(r.Open());
  // Reopening a reader that failed picks the file up once it is whole.
  file.Write(whole.b, 100);
  EXPECT_FALSE(r.Open());
  EXPECT_EQ(r.ErrorMessageText(), "Read past EOF.");
  file.Write(whole.b);
  EXPECT_TRUE(r.Open());
  EXPECT_EQ(r.ErrorCode(), kErrNone);
}

TEST(CacheReaderOpen, HostileCountsFailWithoutLargeAllocations) {
  struct Case {
    const char* what;
    size_t at;
    int32_t value;
    uint32_t code;
  };
  // Offsets into the version 2 two-element file.
  const size_t rec0 = 256, counts0 = rec0 + 4 + 4 + 24;
  const size_t geo = 256 + (4 + 4 + 24 + 12 + 16 + 1) + (4 + 6 + 24 + 12 + 8 + 1);
  const Case cases[] = {
      {"huge element count", 25, 1000000, kErrReadPastEof},
      {"huge name", rec0, 0x7FFFFFFF, kErrReadPastEof},
      {"negative name", rec0, -5, kErrInvalidFile},
      {"huge vertex count", counts0, 0x7FFFFFFF, kErrReadPastEof},
      {"huge face count", counts0 + 4, 0x10000000, kErrReadPastEof},
      {"negative face count", counts0 + 4, -1, kErrInvalidFile},
      {"too many channels", counts0 + 8, 101, kErrInvalidFile},
      {"channel out of range", counts0 + 12, 100, kErrInvalidFile},
      {"channel listed twice", counts0 + 20, 1, kErrInvalidFile},
      {"huge map count", counts0 + 16, 0x7FFFFFFF, kErrReadPastEof},
      {"vertex index out of range", geo + 36 + 8, 3, kErrInvalidFile},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Bytes f = kvtest::TwoElementCache(2);
    f.PatchI32(c.at, c.value);
    if (c.at == 25) f.PatchI32(33, 49000000), f.PatchI32(29, 0);  // no table to check
    TempFile file("hostile");
    file.Write(f.b);
    kvCacheReader r(file.path);
    EXPECT_FALSE(r.Open());
    EXPECT_EQ(r.ErrorCode(), c.code);
    EXPECT_FALSE(r.HasIndex());
  }
  // A map index beyond the element's map vertices.
  Bytes f = kvtest::TwoElementCache(2);
  const int32_t table = int32_t(f.b[41] | f.b[42] << 8 | f.b[43] << 16);
  f.PatchI32(size_t(table) - 4, 3);
  TempFile file("mapindex");
  file.Write(f.b);
  kvCacheReader r(file.path);
  EXPECT_FALSE(r.Open());
  EXPECT_EQ(r.ErrorCode(), kErrInvalidFile);
}

TEST(CacheReaderOpen, MissingFileAndMaterialLibrary) {
  kvCacheReader missing("/nonexistent/dir/shot.kvc");
  EXPECT_FALSE(missing.Open());
  EXPECT_EQ(missing.ErrorCode(), kErrFileNotFound);
  EXPECT_EQ(missing.ErrorMessageText(), "File not found.");
  EXPECT_EQ(missing.StatusText(), "File not found.");

  kv::standalone::Scene host;
  TempFile file("library");
  TempFile lib("library", ".mat");
  file.Write(kvtest::TwoElementCache(2).b);
  {
    kvCacheReader r(file.path, &host);
    ASSERT_TRUE(r.Open());
    ASSERT_NE(r.MaterialLibrary(), nullptr);
    EXPECT_EQ(r.MaterialLibrary()->Count(), 0);  // no library beside it: empty, not an error
  }
  {
    auto saved = host.NewMtlLib();
    saved->Add(host.NewStdMtl("Steel", {0.5f, 0.5f, 0.5f}));
    saved->Add(host.NewStdMtl("Glass", {0, 0, 1}));
    ASSERT_TRUE(host.SaveMaterialLibrary(lib.path, *saved));
    kvCacheReader r(file.path, &host);
    ASSERT_TRUE(r.Open());
    ASSERT_EQ(r.MaterialLibrary()->Count(), 2);
    EXPECT_EQ(r.MaterialLibrary()->At(1)->GetName(), "Glass");
  }
}

TEST(CacheReaderSamples, LoadsBlocksOnDemandAndHonoursKeepOpen) {
  TempFile file("samples");
  file.Write(kvtest::TwoElementCache(2).b);
  kvCacheReader r(file.path);
  r.SetLoadType(LoadType::PerSample);
  ASSERT_TRUE(r.Open());
  EXPECT_FALSE(r.IsOpen());
  EXPECT_EQ(r.StatusText(), "F:" + SizeText(2 * 98 + 6 * 12) + ", M:" + SizeText(6 * 12));

  FrameSettings s;
  FrameScratch scratch;
  std::vector<ElementFrameState> st(2);
  st[0].time = 160;  // sample 1
  st[1].time = 0;    // sample 0
  ASSERT_TRUE(r.LoadSamplesForElements(st, s, scratch));
  EXPECT_FALSE(r.IsOpen());  // per-sample: closed after the batch
  EXPECT_TRUE(r.AllSamplesLoaded());
  EXPECT_EQ(r.SampleTransform(0, 1).GetTrans(), (kv::Point3{2, 0, 0}));
  EXPECT_EQ(r.SampleTransform(1, 0).GetTrans(), (kv::Point3{10, 0, 0}));
  EXPECT_FALSE(r.SampleVisible(1, 0));
  EXPECT_TRUE(r.SampleVisible(1, 1));
  EXPECT_EQ(r.StatusText(), "F:268 B, M:268 B");

  // "Stream" keeps the file open between blocks and closes it once every block is in.
  kvCacheReader stream(file.path);
  ASSERT_TRUE(stream.Open());
  ASSERT_TRUE(stream.LoadSample(0, false));
  EXPECT_TRUE(stream.IsOpen());
  ASSERT_TRUE(stream.LoadSample(1, false));
  EXPECT_FALSE(stream.IsOpen());

  // A block cut short since the open: code 3, index dropped, file closed.
  kvCacheReader cut(file.path);
  cut.SetKeepOpen(false);
  ASSERT_TRUE(cut.Open());
  std::filesystem::resize_file(file.path, std::filesystem::file_size(file.path) - 10);
  EXPECT_FALSE(cut.LoadSample(1, false));
  EXPECT_EQ(cut.ErrorCode(), kErrReadPastEof);
  EXPECT_FALSE(cut.HasIndex());
  EXPECT_FALSE(cut.IsOpen());
  file.Write(kvtest::TwoElementCache(2).b);

  // A block that is not loaded yet, with the file gone since: code 2, index dropped.
  kvCacheReader gone(file.path);
  gone.SetKeepOpen(false);
  ASSERT_TRUE(gone.Open());
  std::remove(file.path.c_str());
  EXPECT_FALSE(gone.LoadSample(0, false));
  EXPECT_EQ(gone.ErrorCode(), kErrNotOpen);
  EXPECT_FALSE(gone.HasIndex());
  EXPECT_EQ(gone.StatusText(), "Unknown file error.");
}

TEST(CacheReaderSamples, PreLoadReportsProgressAndCanBeCancelled) {
  TempFile file("preload");
  file.Write(kvtest::GridCache(3, 5).b);
  struct Log {
    std::vector<std::pair<uint32_t, uint32_t>> calls;
    size_t cancelAt = 99;
  } log;
  auto cb = [](void* user, uint32_t done, uint32_t total) {
    auto* l = static_cast<Log*>(user);
    l->calls.emplace_back(done, total);
    return l->calls.size() < l->cancelAt;
  };
  kvCacheReader r(file.path);
  ASSERT_TRUE(r.Open());
  r.SetProgressCallback(cb, &log);
  ASSERT_TRUE(r.LoadAllSamples());
  ASSERT_EQ(log.calls.size(), 5u);
  EXPECT_EQ(log.calls[0], (std::pair<uint32_t, uint32_t>{147, 735}));
  EXPECT_EQ(log.calls[4], (std::pair<uint32_t, uint32_t>{735, 735}));
  EXPECT_TRUE(r.AllSamplesLoaded());
  EXPECT_EQ(r.SampleTransform(2, 4).GetTrans(), (kv::Point3{4, 2, 0}));

  log.calls.clear();
  log.cancelAt = 2;
  ASSERT_TRUE(r.Open());
  EXPECT_FALSE(r.LoadAllSamples());
  EXPECT_EQ(r.ErrorCode(), kErrCancelled);
  EXPECT_EQ(r.ErrorMessageText(), "Operation cancelled.");
  EXPECT_FALSE(r.InError());
  EXPECT_EQ(r.NumSamplesLoaded(), 2);
  // The next load starts from a clean code.
  ASSERT_TRUE(r.LoadSample(4, true));
  EXPECT_EQ(r.ErrorCode(), kErrNone);
}

}  // namespace

namespace {

// A version 2 file larger than the reader's one-megabyte window: 20,000 small elements whose
// records alone cross it, then one large element whose vertex block is read past the window
// and whose faces span several batches, carrying channel 1 with a large map block.
constexpr int kSmall = 20000;
constexpr int32_t kBigVerts = 60000;
constexpr int32_t kBigFaces = 50000;

struct LargeFile {
  Bytes f;
  size_t bigVertsAt = 0, bigFacesAt = 0, mapAt = 0;
};

LargeFile BuildLargeFile() {
  LargeFile out;
  Bytes& f = out.f;
  kvtest::HeaderFields h;
  h.nodes = kSmall + 1;
  h.samples = 1;
  h.stride = h.nodes * 49;
  kvtest::PutHeader(f, h);
  f.zeros(256 - f.size());
  for (int e = 0; e < kSmall; ++e) {
    // Long ASCII names (no short-string storage), one with a code-page byte and a NUL.
    const std::string name = e == 7 ? std::string("Tr\xFCmmer\0rest", 11)
                                    : "Fragment_" + std::to_string(100000 + e) + "_wall";
    f.i32(int32_t(name.size())).str(name);
    f.f32(0).f32(0).f32(0).f32(1).f32(1).f32(0);
    f.i32(3).i32(1).i32(0).u8(0);
  }
  f.i32(3).str("Big").f32(0).f32(0).f32(0).f32(1).f32(1).f32(1);
  f.i32(kBigVerts).i32(kBigFaces).i32(1).i32(1).i32(kBigVerts).u8(1);
  for (int e = 0; e < kSmall; ++e) {
    f.f32(float(e)).f32(0).f32(0).f32(float(e)).f32(1).f32(0).f32(float(e)).f32(0).f32(1);
    f.u16(uint16_t(e % 7)).u32(1).u8(7).u8(e % 2).u32(0).u32(1).u32(2);
    f.zeros(36);  // no normals byte set: flat normals are derived
  }
  out.bigVertsAt = f.size();
  for (int32_t v = 0; v < kBigVerts; ++v) f.f32(float(v)).f32(-float(v)).f32(0.5f);
  out.bigFacesAt = f.size();
  for (int32_t k = 0; k < kBigFaces; ++k) {
    const uint32_t a = uint32_t(k) % uint32_t(kBigVerts - 2);
    f.u16(uint16_t(k % 5)).u32(uint32_t(k)).u8(1).u8(k % 3 == 0).u32(a).u32(a + 1).u32(a + 2);
    for (int c = 0; c < 3; ++c) f.f32(0).f32(float(k)).f32(1);
  }
  out.mapAt = f.size();
  for (int32_t v = 0; v < kBigVerts; ++v) f.f32(float(v) / kBigVerts).f32(0.25f).f32(0);
  for (int32_t k = 0; k < kBigFaces; ++k) {
    const uint32_t a = uint32_t(kBigVerts - 1 - k % (kBigVerts - 2));
    f.u32(a).u32(a - 1).u32(0);
  }
  f.PatchI32(kvtest::kTableOffsetField, int32_t(f.size()));
  for (int e = 0; e <= kSmall; ++e) kvtest::PutSample(f, 1, float(e), 0, 0, true);
  return out;
}

void ExpectLargeIndex(const kvCacheReader& r) {
  ASSERT_TRUE(r.HasIndex());
  ASSERT_EQ(r.NumElements(), kSmall + 1);
  EXPECT_EQ(r.TotalVerts(), int64_t(kSmall) * 3 + kBigVerts);
  EXPECT_EQ(r.TotalFaces(), int64_t(kSmall) + kBigFaces);
  EXPECT_EQ(r.Element(0).name, "Fragment_100000_wall");
  EXPECT_EQ(r.Element(kSmall - 1).name, "Fragment_119999_wall");
  EXPECT_EQ(r.Element(7).name, "Tr\xC3\xBCmmer");  // cut at the NUL, then UTF-8
  const kv::Mesh& m = r.CombinedMesh();
  // The last small element, straddling nothing in particular, and its flat normal.
  const int last = kSmall - 1;
  EXPECT_EQ(m.verts[size_t(last) * 3 + 1], (kv::Point3{float(last), 1, 0}));
  EXPECT_EQ(m.faces[size_t(last)].v[2], uint32_t(last) * 3 + 2);
  EXPECT_EQ(m.faces[size_t(last)].getMatID(), last % 7);
  EXPECT_EQ(m.faceSel[last], last % 2 == 1);
  EXPECT_EQ(m.specNormals[size_t(last) * 3], (kv::Point3{1, 0, 0}));  // (b - a) x (c - a)
  // The large element: every vertex, and faces in the first and a later batch.
  const CacheElement& big = r.Element(kSmall);
  EXPECT_EQ(big.vertOffset, kSmall * 3);
  EXPECT_TRUE(big.hasNormals);
  bool vertsMatch = true;
  for (int32_t v = 0; v < kBigVerts; ++v)
    vertsMatch &= m.verts[size_t(big.vertOffset + v)] == kv::Point3{float(v), -float(v), 0.5f};
  EXPECT_TRUE(vertsMatch);
  for (int32_t k : {0, 18723, 18724, 40000, kBigFaces - 1}) {
    SCOPED_TRACE(k);
    const kv::Face& face = m.faces[size_t(big.faceOffset + k)];
    const uint32_t a = uint32_t(k) % uint32_t(kBigVerts - 2) + uint32_t(big.vertOffset);
    EXPECT_EQ(face.v[0], a);
    EXPECT_EQ(face.v[2], a + 2);
    EXPECT_EQ(face.smGroup, uint32_t(k));
    EXPECT_EQ(face.getMatID(), k % 5);
    EXPECT_EQ(big.matIds[size_t(k)], k % 5);
    EXPECT_EQ(m.faceSel[big.faceOffset + k], k % 3 == 0);
    EXPECT_EQ(m.specNormals[size_t(big.faceOffset + k) * 3 + 1], (kv::Point3{0, float(k), 1}));
    const kv::TVFace& tf = m.maps[1].faces[size_t(big.faceOffset + k)];
    EXPECT_EQ(tf.t[0], uint32_t(kBigVerts - 1 - k % (kBigVerts - 2)));
  }
  ASSERT_EQ(big.channels.size(), 1u);
  EXPECT_EQ(big.channels[0], (std::pair<int32_t, int32_t>{1, kBigVerts}));
  EXPECT_EQ(m.maps[1].verts.size(), size_t(kBigVerts));
  EXPECT_EQ(m.maps[1].verts[kBigVerts - 1].x, float(kBigVerts - 1) / kBigVerts);
  // Small elements lack the channel: their map faces point at its first vertex.
  EXPECT_EQ(m.maps[1].faces[5].t[1], 0u);
}

}  // namespace

TEST(CacheReaderOpen, LargeFileStreamsThroughTheReadWindow) {
  const LargeFile large = BuildLargeFile();
  TempFile file("large");
  file.Write(large.f.b);
  {
    kvCacheReader r(file.path);
    ASSERT_TRUE(r.Open()) << r.ErrorMessageText();
    ExpectLargeIndex(r);
  }
  // A sample table offset inside the element records: the reader goes on past it to the
  // end of the file and builds the same index.
  {
    Bytes f = large.f;
    f.PatchI32(kvtest::kTableOffsetField, 300);
    TempFile inside("inside");
    inside.Write(f.b);
    kvCacheReader r(inside.path);
    ASSERT_TRUE(r.Open()) << r.ErrorMessageText();
    ExpectLargeIndex(r);
  }
  // Cut inside the records at the window's end, inside the large vertex block (read past the
  // window), inside a later face batch and inside the large map block: each fails as a read
  // past the end and leaves no index; reopening the whole file then succeeds.
  kvCacheReader r(file.path);
  const size_t cuts[] = {(size_t{1} << 20) + 256 + 3, large.bigVertsAt + 300000,
                         large.bigFacesAt + 56 * 30000 + 5, large.mapAt + 400000,
                         large.f.size() - 1};
  for (size_t cut : cuts) {
    SCOPED_TRACE(cut);
    file.Write(large.f.b, cut);
    EXPECT_FALSE(r.Open());
    EXPECT_EQ(r.ErrorCode(), kErrReadPastEof);
    EXPECT_FALSE(r.HasIndex());
    EXPECT_EQ(r.NumElements(), 0);
  }
  // A vertex index out of range in a later face batch is invalid, not a crash.
  Bytes bad = large.f;
  bad.PatchI32(large.bigFacesAt + 56 * 30000 + 12, kBigVerts);
  file.Write(bad.b);
  EXPECT_FALSE(r.Open());
  EXPECT_EQ(r.ErrorCode(), kErrInvalidFile);
  file.Write(large.f.b);
  ASSERT_TRUE(r.Open()) << r.ErrorMessageText();
  ExpectLargeIndex(r);
}

// The cache object on the standalone host: playback of a small cache, failure to an empty
// mesh, invalidation by parameter, selection undo, triggers, persistence and cloning.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include "cache/reader.h"
#include "cache/registry.h"
#include "groups/group_ops.h"
#include "host/standalone/scene.h"
#include "host/standalone/scene_file.h"
#include "object/cache_obj.h"
#include "object/object_io.h"
#include "object/time_mapping.h"

namespace kv {
namespace {

namespace P = param;

// ---- a hand-built .kvc: one triangle per element, moved by a translation per sample

void Put32(std::string& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b.push_back(static_cast<char>(v >> (8 * i)));
}
void PutF(std::string& b, float f) {
  uint32_t u;
  std::memcpy(&u, &f, 4);
  Put32(b, u);
}

// offsets[s][e] is the translation of element e at sample s; samples 160 ticks apart at 30 fps.
std::string TinyCache(const std::vector<std::vector<Point3>>& offsets) {
  const int n = static_cast<int>(offsets[0].size());
  const int samples = static_cast<int>(offsets.size());
  std::string body;
  for (int e = 0; e < n; ++e) {
    const std::string name = "E" + std::to_string(e);
    Put32(body, static_cast<uint32_t>(name.size()));
    body += name;
    for (float f : {0.f, 0.f, 0.f, 1.f, 1.f, 0.f}) PutF(body, f);
    Put32(body, 3), Put32(body, 1), Put32(body, 0);
    body.push_back(0);  // no explicit normals
  }
  for (int e = 0; e < n; ++e) {
    for (float f : {0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f, 0.f}) PutF(body, f);
    body += std::string(2, '\0');  // material id 0
    Put32(body, 1);                // smoothing group
    body.push_back(7), body.push_back(0);
    Put32(body, 0), Put32(body, 1), Put32(body, 2);
    body += std::string(36, '\0');
  }
  const uint32_t table = 256 + static_cast<uint32_t>(body.size());
  for (const auto& row : offsets) {
    for (const Point3& p : row) {
      for (float f : {1.f, 0.f, 0.f, 0.f, 1.f, 0.f, 0.f, 0.f, 1.f, p.x, p.y, p.z}) PutF(body, f);
      body.push_back(1);
    }
  }
  std::string h = "KVCACHE";
  h.push_back(2), h.push_back(0);
  Put32(h, 0), Put32(h, static_cast<uint32_t>((samples - 1) * 160)), Put32(h, 160), Put32(h, 30);
  Put32(h, static_cast<uint32_t>(n)), Put32(h, static_cast<uint32_t>(samples));
  Put32(h, static_cast<uint32_t>(n * 49)), Put32(h, 256), Put32(h, table);
  h.push_back(0);
  h.resize(256, '\0');
  return h + body;
}

// ---- a chunked in-memory stream: u16 id, u32 payload length, payload

class MemSave : public host::ISave {
 public:
  std::string bytes;
  void BeginChunk(uint16_t id) override {
    bytes.push_back(static_cast<char>(id)), bytes.push_back(static_cast<char>(id >> 8));
    open_.push_back(bytes.size());
    bytes += std::string(4, '\0');
  }
  void EndChunk() override {
    const size_t at = open_.back();
    open_.pop_back();
    const uint32_t len = static_cast<uint32_t>(bytes.size() - at - 4);
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(len >> (8 * i));
  }
  bool Write(const void* d, size_t n) override {
    bytes.append(static_cast<const char*>(d), n);
    return true;
  }
  // The payload of the top-level chunk `id`.
  std::string Chunk(uint16_t id) const {
    size_t p = 0;
    while (p + 6 <= bytes.size()) {
      const uint16_t cid = static_cast<uint8_t>(bytes[p]) | static_cast<uint8_t>(bytes[p + 1]) << 8;
      uint32_t len = 0;
      std::memcpy(&len, bytes.data() + p + 2, 4);
      if (cid == id) return bytes.substr(p + 6, len);
      p += 6 + len;
    }
    return "<missing>";
  }

 private:
  std::vector<size_t> open_;
};

class MemLoad : public host::ILoad {
 public:
  explicit MemLoad(std::string b) : b_(std::move(b)) { ends_.push_back(b_.size()); }
  host::IOResult OpenChunk() override {
    if (pos_ == ends_.back()) return host::IOResult::End;
    if (pos_ + 6 > ends_.back()) return host::IOResult::Error;
    id_.push_back(static_cast<uint16_t>(static_cast<uint8_t>(b_[pos_]) |
                                        static_cast<uint8_t>(b_[pos_ + 1]) << 8));
    uint32_t len = 0;
    std::memcpy(&len, b_.data() + pos_ + 2, 4);
    pos_ += 6;
    if (pos_ + len > ends_.back()) return host::IOResult::Error;
    ends_.push_back(pos_ + len);
    return host::IOResult::Ok;
  }
  uint16_t CurChunkID() const override { return id_.back(); }
  host::IOResult CloseChunk() override {
    pos_ = ends_.back();
    ends_.pop_back();
    id_.pop_back();
    return host::IOResult::Ok;
  }
  host::IOResult Read(void* d, size_t n) override {
    if (pos_ + n > ends_.back()) return host::IOResult::Error;
    std::memcpy(d, b_.data() + pos_, n);
    pos_ += n;
    return host::IOResult::Ok;
  }

 private:
  std::string b_;
  size_t pos_ = 0;
  std::vector<size_t> ends_;
  std::vector<uint16_t> id_;
};

class CacheObjTest : public ::testing::Test {
 protected:
  standalone::Scene scene;
  KelvaneTools::kvCacheRegistry registry{&scene};
  // Named by process and test: tests run as parallel processes, where addresses repeat.
  std::string dir = (std::filesystem::temp_directory_path() /
                     ("kv_obj_" + std::to_string(::getpid()) + "_" +
                      ::testing::UnitTest::GetInstance()->current_test_info()->name()))
                        .string();

  void SetUp() override { std::filesystem::create_directories(dir); }
  void TearDown() override { std::filesystem::remove_all(dir); }

  std::string Write(const std::string& name, const std::string& bytes) {
    const std::string path = dir + "/" + name;
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  // Element e at sample s sits at (10 s + 100 e, 0, 0); five samples, three elements.
  std::string Standard() {
    std::vector<std::vector<Point3>> off(5, std::vector<Point3>(3));
    for (int s = 0; s < 5; ++s) {
      for (int e = 0; e < 3; ++e) off[s][e] = {10.0f * s + 100.0f * e, 0, 0};
    }
    return Write("standard.kvc", TinyCache(off));
  }
  std::unique_ptr<kvCache_obj> Make(const std::string& file = {}) {
    auto o = std::make_unique<kvCache_obj>(scene, registry, false);
    o->Params().SetInt(P::kPlayStart, 0, 0);
    if (!file.empty()) o->Params().SetString(P::kFileName, file);
    return o;
  }
  // x of the first vertex of element e in the mesh (three vertices per element).
  static float X(const kvCache_obj& o, int e) { return o.GetMesh().verts[3 * e].x; }
};

TEST_F(CacheObjTest, PlaysElementsAtTheirSampledPositions) {
  auto o = Make(Standard());
  o->BuildMesh(2 * 160);
  ASSERT_EQ(o->GetMesh().numVerts(), 9);
  EXPECT_FLOAT_EQ(X(*o, 0), 20.0f);
  EXPECT_FLOAT_EQ(X(*o, 2), 220.0f);
  EXPECT_FLOAT_EQ(o->GetMesh().verts[1].x, 21.0f);  // the base vertex (1, 0, 0) moved along
  EXPECT_EQ(o->LastBuildTime(), 320);
  EXPECT_TRUE(o->MeshValidity().InInterval(320));

  o->BuildMesh(400);  // halfway between samples 2 and 3
  EXPECT_FLOAT_EQ(X(*o, 1), 125.0f);
  o->Params().SetInt(P::kVpInterpolate, 0, 0);
  o->BuildMesh(400);
  EXPECT_FLOAT_EQ(X(*o, 1), 120.0f);

  // Start at frame 1, reverse: frame 1 shows the last sample, frame 2 the one before.
  o->Params().SetInt(P::kPlayStart, 0, 1);
  o->Params().SetInt(P::kPlayReverse, 0, 1);
  o->BuildMesh(160);
  EXPECT_FLOAT_EQ(X(*o, 0), 40.0f);
  o->BuildMesh(320);
  EXPECT_FLOAT_EQ(X(*o, 0), 30.0f);

  // The unit scale is read at time 0 even when animated.
  o->Params().SetInt(P::kPlayReverse, 0, 0);
  scene.SetAnimateMode(true);
  o->Params().SetFloat(P::kScaleUnits, 0, 2.0f);
  o->Params().SetFloat(P::kScaleUnits, 4800, 5.0f);
  scene.SetAnimateMode(false);
  o->BuildMesh(3 * 160);
  EXPECT_FLOAT_EQ(X(*o, 0), 2 * 20.0f);

  // Hide before the start: at frame 0, one frame early, nothing shows; at frame 1 all.
  o->Params().SetInt(P::kPlayInORT, 0, 0);
  o->BuildMesh(0);
  EXPECT_EQ(o->GetMesh().numFaces(), 0);
  o->BuildMesh(160);
  EXPECT_EQ(o->GetMesh().numFaces(), 3);
}

// The speed counts as animated once it has a controller: with its keys all deleted it still
// integrates, and playFPS still does not apply.
TEST_F(CacheObjTest, SpeedWithAControllerIntegratesEvenWithoutKeys) {
  auto o = Make(Standard());
  ParamBlock& pb = o->Params();
  EXPECT_FALSE(pb.IsControlled(P::kPlaySpeed));
  pb.SetInt(P::kPlayFPS, 0, 15);  // half the scene rate: a constant speed runs twice as fast
  o->BuildMesh(160);
  EXPECT_FLOAT_EQ(X(*o, 0), 20.0f);  // sample 2

  scene.SetAnimateMode(true);
  pb.SetFloat(P::kPlaySpeed, 0, 1.0f);
  pb.SetFloat(P::kPlaySpeed, 4800, 1.0f);
  scene.SetAnimateMode(false);
  o->BuildMesh(160);
  EXPECT_FLOAT_EQ(X(*o, 0), 10.0f);  // integrated, without the frame-rate ratio

  host::Control* c = pb.GetController(P::kPlaySpeed);
  ASSERT_NE(c, nullptr);
  while (c->NumKeys() > 0) c->DeleteKey(0);
  o->Invalidate();
  o->BuildMesh(160);
  EXPECT_FLOAT_EQ(pb.GetFloat(P::kPlaySpeed, 160), 1.0f);
  EXPECT_TRUE(pb.IsControlled(P::kPlaySpeed));
  EXPECT_FLOAT_EQ(X(*o, 0), 10.0f);
}

TEST_F(CacheObjTest, MissingOrEmptyFileGivesAnEmptyMeshQuietly) {
  auto o = Make(dir + "/absent.kvc");
  o->BuildMesh(160);
  EXPECT_EQ(o->GetMesh().numVerts(), 0);
  EXPECT_EQ(o->GetMesh().numFaces(), 0);
  EXPECT_EQ(o->LastBuildTime(), -1);
  EXPECT_FALSE(o->MeshValid());
  EXPECT_TRUE(scene.GetResponder().log.empty());

  // A truncated cache fails the same way; once the file is good, asking for the reader
  // reopens it and it plays.
  const std::string good = TinyCache({{{1, 0, 0}}, {{2, 0, 0}}});
  const std::string path = Write("late.kvc", good.substr(0, 300));
  auto p = Make(path);
  p->BuildMesh(0);
  EXPECT_EQ(p->GetMesh().numVerts(), 0);
  Write("late.kvc", good);
  ASSERT_NE(p->Reader(), nullptr);
  p->BuildMesh(0);
  ASSERT_EQ(p->GetMesh().numVerts(), 3);
  EXPECT_FLOAT_EQ(X(*p, 0), 1.0f);

  // No file name: no registry entry at all.
  registry.Release(&p->Playback());
  registry.Release(&o->Playback());
  auto q = Make();
  q->BuildMesh(0);
  EXPECT_EQ(registry.EntryCount(), 0);
  EXPECT_EQ(q->LastBuildTime(), -1);
}

TEST_F(CacheObjTest, EachParameterInvalidatesWhatItAffects) {
  auto o = Make(Standard());
  ParamBlock& pb = o->Params();
  const auto build = [&] {
    o->BuildMesh(320);
    ASSERT_TRUE(o->MeshValidity().InInterval(320));
    ASSERT_TRUE(o->Playback().validity.InInterval(320));
  };
  build();
  pb.SetFloat(P::kPlayFrame, 0, 3.0f);  // graph off: irrelevant
  EXPECT_TRUE(o->MeshValidity().InInterval(320));
  pb.SetInt(P::kPlayUseGraph, 0, 1);
  EXPECT_FALSE(o->Playback().validity.InInterval(320));
  build();
  pb.SetFloat(P::kPlayFrame, 0, 1.0f);  // graph on: the frame drives playback
  EXPECT_FALSE(o->MeshValidity().InInterval(320));
  build();
  pb.SetInt(P::kPlayStart, 0, 4);  // graph on: start no longer matters
  EXPECT_TRUE(o->MeshValidity().InInterval(320));
  pb.SetInt(P::kPlayUseGraph, 0, 0);
  build();
  pb.SetInt(P::kPlayStart, 0, 0);
  EXPECT_FALSE(o->Playback().validity.InInterval(320));
  build();

  // Mesh only: the element times stay valid, the mesh and last build time go.
  pb.SetInt(P::kVpBoxMode, 0, 1);
  EXPECT_TRUE(o->Playback().validity.InInterval(320));
  EXPECT_FALSE(o->MeshValidity().InInterval(320));
  EXPECT_EQ(o->LastBuildTime(), -1);
  EXPECT_TRUE(o->Playback().settings.boxMode);
  pb.SetInt(P::kVpBoxMode, 0, 0);
  build();

  // Triggers follow trigger settings only while interactive.
  o->Playback().triggerRecompute = false;
  pb.SetInt(P::kTriggerSteps, 0, 2);
  EXPECT_TRUE(o->Playback().triggerRecompute);
  o->Playback().triggerRecompute = false;
  pb.SetFloat(P::kPlaySpeed, 0, 2.0f);  // trigger mode off: playback edits do not rescan
  EXPECT_FALSE(o->Playback().triggerRecompute);
  pb.SetInt(P::kTriggerInteractive, 0, 0);
  o->Playback().triggerRecompute = false;
  pb.SetInt(P::kPlayOutORT, 0, 2);
  EXPECT_FALSE(o->Playback().triggerRecompute);

  // A new file: the selection goes, the old entry is released, everything recomputes.
  o->SelectSubComponent(std::vector<uint32_t>{1}, true, true);
  pb.SetString(P::kFileName, dir + "/other.kvc");
  EXPECT_TRUE(o->Selection().empty());
  EXPECT_EQ(registry.EntryCount(), 0);
  EXPECT_TRUE(o->Playback().triggerRecompute);
}

// Range pairs: an end set past the other pushes it along. Undo and redo put back exactly the
// values of each step, with no push running while they do, for every pair and direction.
TEST_F(CacheObjTest, RangePairsPushAndUndoRedoExactly) {
  auto o = Make();
  ParamBlock& pb = o->Params();
  struct Case {
    int start, end;  // the pair
    int from, to;    // its values before the step
    int moved, v;    // the end set, and to what
  };
  const Case cases[] = {
      {P::kRecStart, P::kRecEnd, 10, 20, P::kRecEnd, 5},
      {P::kRecStart, P::kRecEnd, 10, 20, P::kRecStart, 25},
      {P::kExplodeStart, P::kExplodeEnd, 0, 10, P::kExplodeStart, 30},
      {P::kExplodeStart, P::kExplodeEnd, 20, 40, P::kExplodeEnd, 15},
  };
  const auto pair = [&](const Case& c) { return std::pair{pb.GetInt(c.start), pb.GetInt(c.end)}; };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.moved);
    pb.SetInt(c.start, 0, c.from);  // no hold open: no undo step
    pb.SetInt(c.end, 0, c.to);
    ASSERT_EQ(pair(c), std::pair(c.from, c.to));
    {
      host::ScopedHold h(scene.GetHold());
      pb.SetInt(c.moved, 0, c.v);
      h.Accept("Parameter Change");
    }
    EXPECT_EQ(pair(c), std::pair(c.v, c.v));
    ASSERT_TRUE(scene.Undo());
    EXPECT_EQ(pair(c), std::pair(c.from, c.to));
    ASSERT_TRUE(scene.Redo());
    EXPECT_EQ(pair(c), std::pair(c.v, c.v));
    ASSERT_TRUE(scene.Undo());
    EXPECT_EQ(pair(c), std::pair(c.from, c.to));
  }

  // A drag in one hold that pushes, then brings the pushed end part of the way home.
  pb.SetInt(P::kRecStart, 0, 10);
  pb.SetInt(P::kRecEnd, 0, 20);
  o->SetRangeDrag(P::kRecStart, 20);
  {
    host::ScopedHold h(scene.GetHold());
    pb.SetInt(P::kRecStart, 0, 30);
    pb.SetInt(P::kRecStart, 0, 25);
    h.Accept("Parameter Change");
  }
  o->ClearRangeDrag();
  EXPECT_EQ(pb.GetInt(P::kRecStart), 25);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 25);
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(pb.GetInt(P::kRecStart), 10);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 20);
  ASSERT_TRUE(scene.Redo());
  EXPECT_EQ(pb.GetInt(P::kRecStart), 25);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 25);
}

// The host undoes records of its own (a controller's keys, another plug-in's state) that may
// set a range end while undo or redo runs: the push rule stays out of those too.
TEST_F(CacheObjTest, RangePushWaitsWhileTheHostUndoes) {
  auto o = Make();
  ParamBlock& pb = o->Params();
  class SetsOnRestore final : public host::RestoreObj {
   public:
    SetsOnRestore(ParamBlock& pb, int undo, int redo) : pb_(pb), undo_(undo), redo_(redo) {}
    void Restore(bool) override { pb_.SetInt(P::kRecStart, 0, undo_); }
    void Redo() override { pb_.SetInt(P::kRecStart, 0, redo_); }
    int Size() const override { return 1; }

   private:
    ParamBlock& pb_;
    int undo_, redo_;
  };
  pb.SetInt(P::kRecStart, 0, 10);
  pb.SetInt(P::kRecEnd, 0, 20);
  host::Hold& hold = scene.GetHold();
  hold.Begin();
  hold.Put(std::make_unique<SetsOnRestore>(pb, 30, 40));
  hold.Accept("Foreign");
  EXPECT_FALSE(hold.RestoringOrRedoing());
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(pb.GetInt(P::kRecStart), 30);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 20);
  ASSERT_TRUE(scene.Redo());
  EXPECT_EQ(pb.GetInt(P::kRecStart), 40);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 20);
  EXPECT_FALSE(hold.RestoringOrRedoing());
  // Outside undo and redo the rule is back.
  pb.SetInt(P::kRecStart, 0, 50);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 50);
}

// A pushed end goes back only while the spinner of the end that pushed it is dragged back; a
// typed or scripted value leaves it where it was pushed.
TEST_F(CacheObjTest, APushedEndComesHomeOnlyWithTheSpinnerDrag) {
  auto o = Make();
  ParamBlock& pb = o->Params();
  pb.SetInt(P::kRecStart, 0, 10);
  pb.SetInt(P::kRecEnd, 0, 20);

  // Without a drag: pushed, and it stays pushed.
  pb.SetInt(P::kRecEnd, 0, 5);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 5);
  pb.SetInt(P::kRecEnd, 0, 30);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 5);

  // The end spinner dragged below the start and back: the start follows it home, no further.
  pb.SetInt(P::kRecStart, 0, 10);
  o->SetRangeDrag(P::kRecEnd, 10);
  pb.SetInt(P::kRecEnd, 0, 4);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 4);
  pb.SetInt(P::kRecEnd, 0, 7);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 7);
  pb.SetInt(P::kRecEnd, 0, 40);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 10);
  // Writing the other end during the drag does not count as the drag.
  pb.SetInt(P::kRecEnd, 0, 3);
  pb.SetInt(P::kRecStart, 0, 2);
  EXPECT_EQ(pb.GetInt(P::kRecEnd), 3);

  // Any other command ends the drag: what is typed next brings nothing back.
  o->ClearRangeDrag();
  EXPECT_EQ(o->RangeDragId(), -1);
  pb.SetInt(P::kRecEnd, 0, 1);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 1);
  pb.SetInt(P::kRecEnd, 0, 40);
  EXPECT_EQ(pb.GetInt(P::kRecStart), 1);

  // The explode pair the same way, from the start's side.
  pb.SetInt(P::kExplodeStart, 0, 0);
  pb.SetInt(P::kExplodeEnd, 0, 40);
  o->SetRangeDrag(P::kExplodeStart, 40);
  pb.SetInt(P::kExplodeStart, 0, 50);
  EXPECT_EQ(pb.GetInt(P::kExplodeEnd), 50);
  pb.SetInt(P::kExplodeStart, 0, 45);
  EXPECT_EQ(pb.GetInt(P::kExplodeEnd), 45);
  pb.SetInt(P::kExplodeStart, 0, 0);
  EXPECT_EQ(pb.GetInt(P::kExplodeEnd), 40);
  // A drag mark on a parameter outside the pairs is no drag at all.
  o->SetRangeDrag(P::kPlayStart, 3);
  EXPECT_EQ(o->RangeDragId(), -1);
}

// Every parameter id against the change rules: which ids rescan triggers (and under which
// settings), which rebuild playback and mesh, which only the mesh, which refresh the rollouts.
// Each id is written with its own value, so the settings the rules test stay as they are.
TEST_F(CacheObjTest, ChangeRulesByParameterId) {
  host::Node* omni = scene.CreateLightNode(host::kOmniLightClassId, "Omni");
  auto o = Make(Standard());
  ParamBlock& pb = o->Params();
  int refreshes = 0;
  o->onRefresh = [&](uint32_t what) { refreshes += (what & kvCache_obj::kRefreshParams) != 0; };
  const auto in = [](int id, std::initializer_list<int> ids) {
    return std::find(ids.begin(), ids.end(), id) != ids.end();
  };
  struct Setting {
    bool graph;
    int mode;
    bool interactive;
  };
  for (const Setting st : {Setting{false, 1, true}, Setting{true, 2, true},
                           Setting{false, 2, false}, Setting{false, 0, true}}) {
    pb.SetInt(P::kPlayUseGraph, 0, st.graph);
    pb.SetInt(P::kTriggerMode, 0, st.mode);
    pb.SetInt(P::kTriggerInteractive, 0, st.interactive);
    pb.SetNode(P::kTriggerOmni, omni);
    for (int id = 0; id < P::kNumParams; ++id) {
      if (id == P::kNodes || id == P::kFileName) continue;
      o->BuildMesh(320);
      ASSERT_TRUE(o->MeshValidity().InInterval(320));
      o->Playback().triggerRecompute = false;
      refreshes = 0;
      if (id == P::kElementFrames) {
        pb.SetCount(id, pb.Count(id) + 1);
      } else if (id == P::kTriggerOmni) {
        pb.SetNode(id, omni);
      } else if (id == P::kExplodeToNode) {
        pb.SetNode(id, pb.GetNode(id));
      } else {
        pb.SetFloat(id, 0, pb.GetFloat(id));
      }
      const bool trigger =
          st.interactive && (in(id, {13, 14, 34, 36, 44, 51}) || (id == 35 && st.mode == 2) ||
                             (in(id, {1, 4, 5, 6, 7, 10}) && !st.graph && st.mode >= 1));
      const bool full = (in(id, {1, 4, 5, 6, 7, 10, 21}) && !st.graph) || id == 11 ||
                        (id == 12 && st.graph) || id == 33;
      const bool meshOnly = in(id, {16, 17, 18, 31});
      const std::string where = "id " + std::to_string(id) + " graph " + std::to_string(st.graph) +
                                " mode " + std::to_string(st.mode) + " interactive " +
                                std::to_string(st.interactive);
      EXPECT_EQ(o->Playback().triggerRecompute, trigger) << where;
      EXPECT_EQ(!o->Playback().validity.InInterval(320), trigger || full) << where;
      EXPECT_EQ(!o->MeshValidity().InInterval(320), trigger || full || meshOnly) << where;
      EXPECT_EQ(refreshes > 0, in(id, {11, 21, 34, 40, 45, 51})) << where;
    }
  }
}

TEST_F(CacheObjTest, SwitchesForRenderDisplayAndNetworkServer) {
  auto o = Make(Standard());
  o->Params().SetInt(P::kVpDisplayCache, 0, 0);
  o->BuildMesh(0);
  EXPECT_EQ(o->GetMesh().numFaces(), 0);
  o->RenderBegin();
  o->BuildMesh(0);
  EXPECT_EQ(o->GetMesh().numFaces(), 3);
  o->RenderEnd();
  o->BuildMesh(160);
  EXPECT_EQ(o->GetMesh().numFaces(), 0);

  // A network server honours loadTypeSlave, not the local Pre-Load.
  o->Params().SetInt(P::kVpDisplayCache, 0, 1);
  o->Params().SetInt(P::kLoadTypeLocal, 0, 2);
  scene.SetNetServer(true);
  o->BuildMesh(320);
  ASSERT_NE(o->Reader(), nullptr);
  EXPECT_FALSE(o->Reader()->AllSamplesLoaded());
  EXPECT_FALSE(o->Reader()->KeepOpen());
  scene.SetNetServer(false);
  o->BuildMesh(480);
  EXPECT_TRUE(o->Reader()->AllSamplesLoaded());
}

TEST_F(CacheObjTest, GizmoTriggersStartElementsWhereTheGizmoReaches) {
  // Element 0 rests 39.9 from the gizmo centre, element 1 exactly 40.0 away.
  std::vector<std::vector<Point3>> off(5, {{39.9f, 0, 0}, {0, 40.0f, 0}});
  for (int s = 0; s < 5; ++s) off[s][0].z = off[s][1].z = 10.0f * s;
  auto o = Make(Write("trig.kvc", TinyCache(off)));
  scene.SetAnimRange({0, 1600});
  o->Params().SetInt(P::kTriggerMode, 0, 1);
  o->BuildMesh(2 * 160);
  EXPECT_TRUE(o->TriggersActive());
  EXPECT_FLOAT_EQ(o->GetMesh().verts[0].z, 20.0f);  // playing since frame 0
  EXPECT_FLOAT_EQ(o->GetMesh().verts[3].z, 0.0f);   // waiting at its first sample

  // Scaling the gizmo by 2 reaches element 1 too (the change rescans at once).
  o->SetGizmo(0, ScaleMatrix({2, 2, 2}));
  EXPECT_TRUE(o->Playback().triggerRecompute);
  o->BuildMesh(2 * 160);
  EXPECT_FLOAT_EQ(o->GetMesh().verts[3].z, 20.0f);
}

TEST_F(CacheObjTest, AdoptedGizmoIsTheOneUsedSavedAndReactedTo) {
  std::vector<std::vector<Point3>> off(5, {{39.9f, 0, 0}, {0, 40.0f, 0}});
  for (int s = 0; s < 5; ++s) off[s][0].z = off[s][1].z = 10.0f * s;
  auto o = Make(Write("adopt.kvc", TinyCache(off)));
  scene.SetAnimRange({0, 1600});
  o->Params().SetInt(P::kTriggerMode, 0, 1);
  o->BuildMesh(2 * 160);
  EXPECT_FALSE(o->Playback().triggerRecompute);
  EXPECT_FLOAT_EQ(o->GetMesh().verts[3].z, 0.0f);

  // A host controller already scaled by 2 takes over: the triggers rescan at once and reach
  // element 1, and the object saves that controller's keys, not the one it made itself.
  std::unique_ptr<host::Control> host = scene.NewControl(host::ControlKind::Matrix);
  ASSERT_NE(host, nullptr);
  host->SetValue(0, ScaleMatrix({2, 2, 2}), false);
  host::Control* adopted = host.get();
  o->AdoptGizmo(std::move(host));
  EXPECT_EQ(o->Gizmo(), adopted);
  EXPECT_TRUE(o->Playback().triggerRecompute);
  o->BuildMesh(2 * 160);
  EXPECT_FLOAT_EQ(o->GetMesh().verts[3].z, 20.0f);

  auto same = Make();
  same->SetGizmo(0, ScaleMatrix({2, 2, 2}));
  MemSave a, b;
  ASSERT_TRUE(o->Save(a));
  ASSERT_TRUE(same->Save(b));
  EXPECT_EQ(a.Chunk(kvCache_obj::kChunkGizmo), b.Chunk(kvCache_obj::kChunkGizmo));

  // Letting go is quiet; the next use makes a fresh identity gizmo.
  o->AdoptGizmo(nullptr);
  EXPECT_FALSE(o->Playback().triggerRecompute);
  host::Control* fresh = o->Gizmo();
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(fresh->GetMatrix(0).GetTrans(), (Point3{0, 0, 0}));
  EXPECT_FLOAT_EQ(fresh->GetMatrix(0).GetRow(0).x, 1.0f);
}

// A tagging group's material id stays on its faces from frame to frame, and follows every
// change of the tag or of the group's elements, and their undo, on a mesh that keeps its
// topology throughout.
TEST_F(CacheObjTest, TaggedFacesFollowTagAndGroupChangesAndUndo) {
  auto o = Make(Standard());
  ASSERT_TRUE(AddGroup(*o, "Tag", false, false));
  ASSERT_TRUE(SetGroupElements(*o, "Tag", std::vector<int32_t>{0, 2}));
  ASSERT_TRUE(SetGroupMode(*o, "Tag", kModeSetMatId));
  ASSERT_TRUE(SetGroupMatIndex(*o, "Tag", 4));
  TimeValue t = 0;
  // One face per element, in element order; none hidden.
  const auto ids = [&] {
    o->BuildMesh(t);
    t += 160;
    std::vector<int> got;
    for (const Face& f : o->GetMesh().faces) got.push_back(f.Hidden() ? -1 : f.getMatID());
    return got;
  };
  EXPECT_EQ(ids(), (std::vector<int>{4, 0, 4}));
  EXPECT_EQ(ids(), (std::vector<int>{4, 0, 4}));  // the next frame keeps the tag

  ASSERT_TRUE(SetGroupMatIndex(*o, "Tag", 6));
  EXPECT_EQ(ids(), (std::vector<int>{6, 0, 6}));
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(ids(), (std::vector<int>{4, 0, 4}));
  ASSERT_TRUE(scene.Redo());
  EXPECT_EQ(ids(), (std::vector<int>{6, 0, 6}));

  ASSERT_TRUE(SetGroupElements(*o, "Tag", std::vector<int32_t>{1}));
  EXPECT_EQ(ids(), (std::vector<int>{0, 6, 0}));  // untagged faces get their own id back
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(ids(), (std::vector<int>{6, 0, 6}));

  // A group switched off, or removed, leaves every face as stored; undo tags them again.
  ASSERT_TRUE(SetGroupEnabled(*o, "Tag", false));
  EXPECT_EQ(ids(), (std::vector<int>{0, 0, 0}));
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(ids(), (std::vector<int>{6, 0, 6}));
  ASSERT_TRUE(DeleteGroup(*o, "Tag"));
  EXPECT_EQ(ids(), (std::vector<int>{0, 0, 0}));
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(ids(), (std::vector<int>{6, 0, 6}));
  EXPECT_EQ(o->GetMesh().numFaces(), 3);
}

TEST_F(CacheObjTest, SelectionUndoRedoAndHeldMark) {
  auto o = Make(Standard());
  o->BuildMesh(0);
  o->SelectSubComponent(std::vector<uint32_t>{0, 2}, true, false);  // only the first hit
  EXPECT_EQ(o->Selection(), (std::set<uint32_t>{0}));
  o->SelectSubComponent(std::vector<uint32_t>{0, 2}, true, true);

  host::ScopedHold hold(scene.GetHold());
  o->InvertSelection();
  EXPECT_TRUE(o->SelectionHeld());
  hold.Accept("Invert");
  EXPECT_FALSE(o->SelectionHeld());
  EXPECT_EQ(o->Selection(), (std::set<uint32_t>{1}));
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(o->Selection(), (std::set<uint32_t>{0, 2}));
  ASSERT_TRUE(scene.Redo());
  EXPECT_EQ(o->Selection(), (std::set<uint32_t>{1}));

  o->SelectAll();
  EXPECT_EQ(o->Selection().size(), 3u);
  o->ClearSelection();
  EXPECT_TRUE(o->Selection().empty());

  // Without a cache, select-all adds nothing and invert leaves nothing; indices past any cache
  // are kept until then. Outside a hold nothing is marked held.
  auto bare = Make();
  bare->SelectSubComponent(std::vector<uint32_t>{4, 70}, true, true);
  bare->SelectAll();
  EXPECT_EQ(bare->Selection(), (std::set<uint32_t>{4, 70}));
  EXPECT_FALSE(bare->SelectionHeld());
  bare->InvertSelection();
  EXPECT_TRUE(bare->Selection().empty());
}

TEST_F(CacheObjTest, SavedChunksMatchHandBuiltBytesAndRoundTrip) {
  auto o = Make(Standard());
  o->BuildMesh(0);
  o->SelectSubComponent(std::vector<uint32_t>{0, 2, 40}, true, true);  // 40 is past the cache
  ASSERT_TRUE(o->Groups().addNamed("Rocks"));
  const std::vector<int32_t> els = {1, 2, 7};
  ASSERT_TRUE(o->Groups().setElements("Rocks", els, false));
  o->Groups().at(0).mode = 3;
  o->Groups().at(0).delay = 1.5f;
  o->SetGizmo(0, TransMatrix({1, 2, 3}));

  MemSave save;
  ASSERT_TRUE(o->Save(save));
  // Saving trims the object's own groups, not only what it writes.
  EXPECT_EQ(o->Groups().at(0).elements(), (std::vector<int32_t>{1, 2}));
  std::string sel;
  Put32(sel, 3), Put32(sel, 0b101);
  EXPECT_EQ(save.Chunk(kvCache_obj::kChunkSelection), sel);
  std::string groups;
  Put32(groups, 1);                    // count
  Put32(groups, 5), Put32(groups, 5);  // version, name length
  groups += "Rocks";
  Put32(groups, 2), Put32(groups, 1), Put32(groups, 2);  // element 7 trimmed away
  Put32(groups, 3), groups.push_back(1);                 // mode, enabled
  PutF(groups, 1.5f), Put32(groups, 0);                  // delay, matIndex
  groups.push_back(1);                                   // trigger
  PutF(groups, 0.0f), PutF(groups, 0.0f);                // distance, age
  EXPECT_EQ(save.Chunk(kvCache_obj::kChunkGroups), groups);

  kvCache_obj loaded(scene, registry, true);
  MemLoad load(save.bytes);
  ASSERT_EQ(loaded.Load(load), host::IOResult::Ok);
  EXPECT_EQ(loaded.Selection(), (std::set<uint32_t>{0, 2}));
  ASSERT_EQ(loaded.Groups().count(), 1);
  const ElementGroup& g = loaded.Groups().at(0);
  EXPECT_EQ(g.name(), "Rocks");
  EXPECT_EQ(g.elements(), (std::vector<int32_t>{1, 2}));
  EXPECT_EQ(g.mode, 3u);
  EXPECT_FLOAT_EQ(g.delay, 1.5f);
  EXPECT_EQ(loaded.Params().GetString(P::kFileName), o->Params().GetString(P::kFileName));
  EXPECT_EQ(loaded.Gizmo()->GetMatrix(0).GetTrans(), (Point3{1, 2, 3}));
  EXPECT_TRUE(loaded.Playback().triggerRecompute);

  EXPECT_TRUE(loaded.CreatedForLoad());
  EXPECT_FALSE(o->CreatedForLoad());

  // A clone is built as for loading: it copies selection, groups (with the selected one), the
  // second status text and the gizmo, and rescans its triggers on its first build.
  loaded.SetStatusText2("Recorded 3 nodes");
  loaded.Groups().setSelected(0);
  auto clone = loaded.Clone();
  auto* c = static_cast<kvCache_obj*>(clone.get());
  EXPECT_EQ(c->Selection(), loaded.Selection());
  EXPECT_EQ(c->Groups(), loaded.Groups());
  EXPECT_EQ(c->Groups().getSelected(), 0);
  EXPECT_EQ(c->StatusText2(), "Recorded 3 nodes");
  EXPECT_EQ(c->Gizmo()->GetMatrix(0).GetTrans(), (Point3{1, 2, 3}));
  EXPECT_TRUE(c->Playback().triggerRecompute);
  EXPECT_TRUE(c->CreatedForLoad());
  EXPECT_EQ(c->LastBuildTime(), -1);
  c->BuildMesh(160);
  EXPECT_FALSE(c->CreatedForLoad());
  EXPECT_FLOAT_EQ(X(*c, 0), 10.0f);  // element 1 is delayed by its group

  // Without an open cache the selection chunk is the empty array; the groups are kept whole.
  auto bare = Make();
  bare->SelectSubComponent(std::vector<uint32_t>{4}, true, true);
  MemSave s2;
  ASSERT_TRUE(bare->Save(s2));
  EXPECT_EQ(s2.Chunk(kvCache_obj::kChunkSelection), std::string(4, '\0'));

  // A group record older than the stored version is refused with a message; the groups stay
  // empty and everything else still loads.
  const size_t selAt = save.bytes.size() - (6 + groups.size()) - sel.size();
  const size_t groupsAt = save.bytes.size() - (6 + groups.size());
  {
    std::string old = save.bytes;
    old[groupsAt + 6 + 4] = 4;  // the first record's version
    kvCache_obj o4(scene, registry, true);
    MemLoad l4(old);
    const size_t shown = scene.GetResponder().log.size();
    ASSERT_EQ(o4.Load(l4), host::IOResult::Ok);
    EXPECT_EQ(o4.Groups().count(), 0);
    EXPECT_EQ(o4.Selection(), (std::set<uint32_t>{0, 2}));
    EXPECT_EQ(o4.Gizmo()->GetMatrix(0).GetTrans(), (Point3{1, 2, 3}));
    ASSERT_EQ(scene.GetResponder().log.size(), shown + 1);
    EXPECT_EQ(scene.GetResponder().log.back().title, "Kelvane Cache - Loading Groups");
  }

  // A group chunk that promises more records than it holds is damage, not an old record: the
  // load fails, and no message about incompatible groups is shown.
  {
    std::string more = save.bytes;
    more[groupsAt + 6] = 2;  // the record count
    kvCache_obj o5(scene, registry, true);
    MemLoad l5(more);
    const size_t shown = scene.GetResponder().log.size();
    EXPECT_EQ(o5.Load(l5), host::IOResult::Error);
    EXPECT_EQ(o5.Groups().count(), 0);
    EXPECT_EQ(scene.GetResponder().log.size(), shown);
  }

  // A cut inside the selection or group chunk is an error, never a crash.
  for (size_t n = selAt; n < save.bytes.size(); ++n) {
    if (n == groupsAt) continue;  // a whole chunk missing is a shorter object, not a cut
    kvCache_obj t(scene, registry, true);
    MemLoad cut(save.bytes.substr(0, n));
    EXPECT_EQ(t.Load(cut), host::IOResult::Error) << n;
  }
}

TEST_F(CacheObjTest, TravelsWithTheSceneFileThroughTheClassRegistry) {
  KelvaneTools::kvCacheRegistry shared;
  standalone::ClassRegistry classes;
  classes.Register(host::kKvCacheClassId, [&](standalone::Scene& sc) {
    return std::make_unique<kvCache_obj>(sc, shared, true);
  });
  // The scene owns the object, so it goes before the registry the object leaves on its way.
  standalone::Scene source;
  auto o = std::make_unique<kvCache_obj>(source, shared, false);
  o->Params().SetString(P::kFileName, Standard());
  o->SelectSubComponent(std::vector<uint32_t>{2}, true, true);
  o->Groups().addNamed("Kept");
  kvCache_obj* raw = o.get();
  source.CreateNode(std::move(o), "Cache");
  raw->BuildMesh(0);
  const std::string file = dir + "/scene.kvs";
  std::string err;
  ASSERT_TRUE(standalone::SaveScene(source, file, err)) << err;
  auto loaded = standalone::LoadScene(file, err, classes);
  ASSERT_TRUE(loaded) << err;
  host::Node* n = loaded->GetNodeByName("Cache");
  ASSERT_NE(n, nullptr);
  auto* back = dynamic_cast<kvCache_obj*>(n->GetObjectRef());
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->Selection(), (std::set<uint32_t>{2}));
  EXPECT_EQ(back->Groups().count(), 1);
  back->BuildMesh(4 * 160);
  ASSERT_EQ(back->GetMesh().numVerts(), 9);
  EXPECT_FLOAT_EQ(X(*back, 2), 240.0f);
}

TEST_F(CacheObjTest, FreshCacheGivesItsMaterialOnlyToThisObjectsBareNodes) {
  // The scene owns the objects, so it goes before the registry they leave on their way; the
  // registry needs the scene for material libraries, hence made once the scene exists.
  std::optional<KelvaneTools::kvCacheRegistry> withMaterials;
  standalone::Scene sc;
  withMaterials.emplace(&sc);
  const std::string file = Standard();
  auto lib = sc.NewMtlLib();
  lib->Add(sc.NewStdMtl("Cached", {1, 0, 0}));
  ASSERT_TRUE(sc.SaveMaterialLibrary(KelvaneTools::MaterialLibraryPath(file), *lib));

  auto a = std::make_unique<kvCache_obj>(sc, *withMaterials, false);
  auto b = std::make_unique<kvCache_obj>(sc, *withMaterials, false);
  a->Params().SetString(P::kFileName, file);
  b->Params().SetString(P::kFileName, file);
  kvCache_obj* ra = a.get();
  host::Node* bare = sc.CreateNode(std::move(a), "Bare");
  host::Node* dressed = sc.CreateInstanceNode(bare, "Dressed");
  host::Mtl* own = sc.NewStdMtl("Own", {0, 1, 0});
  dressed->SetMtl(own);
  host::Node* gone = sc.CreateInstanceNode(bare, "Gone");
  sc.DeleteNode(gone);
  host::Node* other = sc.CreateNode(std::move(b), "Other");

  ra->BuildMesh(0);
  ASSERT_NE(bare->GetMtl(), nullptr);
  EXPECT_EQ(bare->GetMtl()->GetName(), "Cached");
  EXPECT_EQ(dressed->GetMtl(), own);    // a material of its own is kept
  EXPECT_EQ(gone->GetMtl(), nullptr);   // deleted nodes are left alone
  EXPECT_EQ(other->GetMtl(), nullptr);  // so are the nodes of other objects

  // Only a fresh open hands the material out: a node bared afterwards stays bare.
  bare->SetMtl(nullptr);
  ra->BuildMesh(160);
  EXPECT_EQ(bare->GetMtl(), nullptr);
}

TEST(ObjectIo, BitArrayAndControllerBytes) {
  BitArray bits(40);
  bits.Set(0), bits.Set(33), bits.Set(39);
  MemSave s;
  ASSERT_TRUE(SaveBitArray(s, bits));
  std::string want;
  Put32(want, 40), Put32(want, 1), Put32(want, (1u << 1) | (1u << 7));
  EXPECT_EQ(s.bytes, want);
  BitArray back;
  MemLoad l(s.bytes);
  ASSERT_EQ(LoadBitArray(l, back), host::IOResult::Ok);
  EXPECT_TRUE(back == bits);
  // A count far beyond the data fails on the short read.
  std::string huge;
  Put32(huge, 0x7FFFFFFF), Put32(huge, 1);
  MemLoad hl(huge);
  EXPECT_EQ(LoadBitArray(hl, back), host::IOResult::Error);
}

}  // namespace
}  // namespace kv

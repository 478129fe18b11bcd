#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "cache/reader.h"
#include "host/standalone/scene.h"
#include "record/recorder.h"
#include "support/bytes.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using standalone::Scene;
using standalone::SceneNode;

std::string Slurp(const fs::path& p) {
  return kvtest::ReadFile(p.string());
}

Mesh Triangle() {
  Mesh m;
  m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  m.setNumFaces(1);
  m.faces[0].setVerts(0, 1, 2);
  m.faces[0].setEdgeVisBits(kEdgeAll);
  m.faces[0].smGroup = 1;
  return m;
}

using kvtest::Bytes;

class RecorderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_record_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
  }
  void TearDown() override { fs::remove_all(dir_); }

  // A triangle node keyed at the given positions, one per frame from frame 0.
  SceneNode* Tri(const std::string& name, const std::vector<Point3>& perFrame) {
    auto* n = static_cast<SceneNode*>(scene_.CreateMeshNode(Triangle(), name));
    for (size_t f = 0; f < perFrame.size(); ++f)
      n->KeyPosition(static_cast<TimeValue>(f) * 160, perFrame[f]);
    return n;
  }

  RecordSettings Settings(std::vector<host::Node*> nodes, const std::string& file, int start,
                          int end) {
    RecordSettings s;
    s.nodes = std::move(nodes);
    s.fileName = (dir_ / file).string();
    s.recStart = start;
    s.recEnd = end;
    s.clearNodeList = false;
    return s;
  }

  RecordResult Run(SettingsRecordTarget& t, bool quiet = false) {
    Recorder rec(scene_, nullptr);
    RecordOptions o;
    o.quiet = quiet;
    return rec.Record(t, o);
  }

  bool OnlyTargetIn(const fs::path& dir, const std::string& keep) {
    for (const auto& e : fs::directory_iterator(dir))
      if (e.path().filename() != keep && e.path().extension() != ".mat") return false;
    return true;
  }

  Scene scene_;
  fs::path dir_;
};

TEST_F(RecorderTest, WritesTheExactFileForOneAnimatedTriangle) {
  SceneNode* n = Tri("Tri", {{1, 2, 3}, {4, 5, 6}});
  SettingsRecordTarget target(Settings({n}, "tri.kvc", 0, 1));
  const RecordResult r = Run(target);
  ASSERT_TRUE(r.ok()) << r.message;
  EXPECT_EQ(r.elements, 1);
  EXPECT_EQ(r.samples, 2);

  Bytes b;
  b.raw("KVCACHE")
      .u8(2)
      .u8(0)
      .i32(0)
      .i32(160)
      .i32(160)
      .i32(30)
      .i32(1)
      .i32(2)
      .i32(49)
      .u32(256)
      .i32(392)
      .u8(0);
  b.zeros(256 - 46);
  b.i32(3).raw("Tri").f(0).f(0).f(0).f(1).f(1).f(0).i32(3).i32(1).i32(0).u8(0);
  b.f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(0);
  b.u16(0).u32(1).u8(7).u8(0).u32(0).u32(1).u32(2).zeros(36);
  ASSERT_EQ(b.s.size(), 392u);
  for (const Point3& p : {Point3{1, 2, 3}, Point3{4, 5, 6}})
    b.f(1).f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(p.x).f(p.y).f(p.z).u8(1);

  const std::string got = Slurp(dir_ / "tri.kvc");
  ASSERT_EQ(got.size(), b.s.size());
  for (size_t i = 0; i < got.size(); ++i)
    ASSERT_EQ(got[i], b.s[i]) << "first difference at byte " << i;
  EXPECT_TRUE(target.Recorded());
  EXPECT_EQ(fs::path(target.Settings().fileName), dir_ / "tri.kvc");
  EXPECT_TRUE(OnlyTargetIn(dir_, "tri.kvc"));
}

TEST_F(RecorderTest, SamplesFollowTheRangeHierarchyVisibilityAndOwnNode) {
  scene_.SetAnimRange(Interval(0, 10 * 160));
  std::vector<Point3> path;
  for (int f = 0; f <= 10; ++f) path.push_back({static_cast<float>(f), 0, 0});
  SceneNode* parent = Tri("Parent", path);
  SceneNode* child = Tri("Child", {{0, 0, 1}});
  scene_.Link(child, parent);
  SceneNode* hidden = Tri("Hidden", {{0, 5, 0}});
  host::Control& vis = hidden->EnsureVisController();
  vis.SetValue(0, 1.0f, true);
  vis.SetValue(3 * 160, 1.0f, true);
  vis.SetValue(6 * 160, 0.0f, true);
  // The cache object's own node sits at (0, 0, -2): samples are relative to it.
  SceneNode* own = Tri("Own", {{0, 0, -2}});

  RecordSettings s = Settings({parent, child, hidden}, "h.kvc", 0, 10);
  s.recStep = 3.0f;
  s.ownNode = own;
  SettingsRecordTarget target(s);
  ASSERT_TRUE(Run(target).ok());

  KelvaneTools::kvCacheReader reader((dir_ / "h.kvc").string());
  ASSERT_TRUE(reader.Open()) << reader.ErrorMessageText();
  EXPECT_EQ(reader.Header().start, 0);
  EXPECT_EQ(reader.Header().end, 9 * 160);  // snapped to the last sample
  EXPECT_EQ(reader.Header().step, 480);
  ASSERT_EQ(reader.NumSamples(), 4);
  EXPECT_TRUE(reader.HasVisibility());
  ASSERT_EQ(reader.NumElements(), 3);
  EXPECT_EQ(reader.Element(1).name, "Child");
  ASSERT_TRUE(reader.LoadAllSamples());
  for (int smp = 0; smp < 4; ++smp) {
    const float x = static_cast<float>(3 * smp);
    EXPECT_EQ(reader.SampleTransform(0, smp).GetTrans(), (Point3{x, 0, 2})) << smp;
    EXPECT_EQ(reader.SampleTransform(1, smp).GetTrans(), (Point3{x, 0, 3})) << smp;
    EXPECT_EQ(reader.SampleTransform(2, smp).GetTrans(), (Point3{0, 5, 2})) << smp;
    EXPECT_TRUE(reader.SampleVisible(0, smp));
  }
  // Visibility 1 up to frame 3, falling to 0 at frame 6: hidden at 6 and 9.
  EXPECT_TRUE(reader.SampleVisible(2, 0));
  EXPECT_TRUE(reader.SampleVisible(2, 1));
  EXPECT_FALSE(reader.SampleVisible(2, 2));
  EXPECT_FALSE(reader.SampleVisible(2, 3));
}

TEST_F(RecorderTest, NothingToCacheWarnsUnlessQuietAndWritesNothing) {
  SceneNode* helper = static_cast<SceneNode*>(scene_.CreatePointHelperNode("Point"));
  auto* empty = static_cast<SceneNode*>(scene_.CreateMeshNode(Mesh(), "Empty"));
  for (const std::vector<host::Node*>& list :
       {std::vector<host::Node*>{}, std::vector<host::Node*>{helper, nullptr},
        std::vector<host::Node*>{empty}}) {
    scene_.GetResponder().log.clear();
    SettingsRecordTarget target(Settings(list, "none.kvc", 0, 5));
    const RecordResult r = Run(target);
    EXPECT_EQ(r.status, RecordStatus::NothingToCache);
    EXPECT_EQ(r.message, "Nothing to cache!");
    ASSERT_EQ(scene_.GetResponder().log.size(), 1u);
    EXPECT_EQ(scene_.GetResponder().log[0].text, "Nothing to cache!");
    EXPECT_EQ(scene_.GetResponder().log[0].title, "Error!");
    EXPECT_EQ(scene_.GetResponder().log[0].kind, host::MsgBoxKind::Warning);
    EXPECT_FALSE(target.Recorded());
    EXPECT_TRUE(fs::is_empty(dir_));
  }
  scene_.GetResponder().log.clear();
  SettingsRecordTarget quiet(Settings({helper}, "none.kvc", 0, 5));
  EXPECT_EQ(Run(quiet, true).status, RecordStatus::NothingToCache);
  EXPECT_TRUE(scene_.GetResponder().log.empty());
}

class PreviousCache : public RecorderTest {
 protected:
  void SetUp() override {
    RecorderTest::SetUp();
    a_ = Tri("A", {{0, 0, 0}, {1, 0, 0}});
    SettingsRecordTarget first(Settings({a_}, "c.kvc", 0, 1));
    ASSERT_TRUE(Run(first).ok());
    before_ = Slurp(dir_ / "c.kvc");
    // A bigger scene for the second recording.
    for (int i = 0; i < 50; ++i) more_.push_back(Tri("B" + std::to_string(i), {{0, 0, 0}}));
    scene_.GetResponder().log.clear();
  }
  SceneNode* a_ = nullptr;
  std::vector<host::Node*> more_;
  std::string before_;
};

TEST_F(PreviousCache, CancelLeavesItIntactWithoutAMessage) {
  scene_.GetResponder().PressEscAfter(1);
  SettingsRecordTarget target(Settings(more_, "c.kvc", 0, 100));
  const RecordResult r = Run(target);
  EXPECT_EQ(r.status, RecordStatus::Cancelled);
  EXPECT_EQ(r.errorCode, 7);
  EXPECT_TRUE(scene_.GetResponder().log.empty());
  EXPECT_FALSE(target.Recorded());
  EXPECT_EQ(Slurp(dir_ / "c.kvc"), before_);
  EXPECT_TRUE(OnlyTargetIn(dir_, "c.kvc"));
}

TEST_F(PreviousCache, FullDiskLeavesItIntactAndSaysWhy) {
  // A file size limit makes every write past it fail as on a full disk.
  std::signal(SIGXFSZ, SIG_IGN);
  rlimit old{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &old), 0);
  rlimit lim = old;
  lim.rlim_cur = 20000;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &lim), 0);
  SettingsRecordTarget target(Settings(more_, "c.kvc", 0, 100));
  const RecordResult r = Run(target);
  setrlimit(RLIMIT_FSIZE, &old);

  EXPECT_EQ(r.status, RecordStatus::Failed);
  EXPECT_EQ(r.message, "Unknown file error.");
  ASSERT_EQ(scene_.GetResponder().log.size(), 1u);
  EXPECT_EQ(scene_.GetResponder().log[0].title, "Write Error!");
  EXPECT_EQ(scene_.GetResponder().log[0].text, "Unknown file error.");
  EXPECT_EQ(scene_.GetResponder().log[0].kind, host::MsgBoxKind::Error);
  EXPECT_EQ(Slurp(dir_ / "c.kvc"), before_);
  EXPECT_TRUE(OnlyTargetIn(dir_, "c.kvc"));
}

TEST_F(PreviousCache, UncreatableAndUnrenamableTargetsFailCleanly) {
  // A folder that does not exist: the writer cannot create its file.
  SettingsRecordTarget missing(Settings(more_, "no/such/dir/x.kvc", 0, 2));
  RecordResult r = Run(missing);
  EXPECT_EQ(r.status, RecordStatus::Failed);
  EXPECT_EQ(r.errorCode, 1);
  EXPECT_EQ(r.message, "File not found.");

  // A folder in the target's place: everything is written, then the rename fails.
  fs::create_directories(dir_ / "taken.kvc" / "inside");
  SettingsRecordTarget taken(Settings(more_, "taken.kvc", 0, 2));
  r = Run(taken, true);
  EXPECT_EQ(r.status, RecordStatus::Failed);
  EXPECT_EQ(r.message, "Unknown file error.");
  EXPECT_TRUE(fs::is_directory(dir_ / "taken.kvc" / "inside"));
  EXPECT_FALSE(taken.Recorded());
  EXPECT_EQ(Slurp(dir_ / "c.kvc"), before_);
  for (const auto& e : fs::directory_iterator(dir_))
    EXPECT_TRUE(e.path().filename() == "c.kvc" || e.path().filename() == "c.mat" ||
                e.path().filename() == "taken.kvc")
        << e.path();
}

TEST_F(RecorderTest, RigidLibraryExpandsNodesAndItsTemporariesAreDeletedForGood) {
  scene_.SetPluginsFolder(KV_TEST_PLUGINS_DIR);
  SceneNode* group = Tri("Group", {{0, 0, 0}});
  SceneNode* c1 = Tri("Piece1", {{1, 0, 0}});
  SceneNode* c2 = Tri("Piece2", {{2, 0, 0}});
  scene_.Link(c1, group);
  scene_.Link(c2, group);
  SceneNode* single = Tri("Single", {{3, 0, 0}});

  SettingsRecordTarget target(Settings({group, single}, "rigid.kvc", 2, 7));
  ASSERT_TRUE(Run(target).ok());
  void* lib = scene_.LoadPluginLibrary("KVRigid");
  ASSERT_NE(lib, nullptr);
  EXPECT_EQ(*static_cast<int*>(scene_.FindExport(lib, "kvrigid_calls")), 2);
  EXPECT_EQ(*static_cast<TimeValue*>(scene_.FindExport(lib, "kvrigid_last_start")), 320);
  EXPECT_EQ(*static_cast<TimeValue*>(scene_.FindExport(lib, "kvrigid_last_end")), 1120);

  KelvaneTools::kvCacheReader reader((dir_ / "rigid.kvc").string());
  ASSERT_TRUE(reader.Open());
  ASSERT_EQ(reader.NumElements(), 3);
  EXPECT_EQ(reader.Element(0).name, "Piece1");
  EXPECT_EQ(reader.Element(1).name, "Piece2");
  EXPECT_EQ(reader.Element(2).name, "Single");

  EXPECT_TRUE(group->IsDeleted());
  EXPECT_FALSE(c1->IsDeleted());
  // The recording leaves nothing on the undo stack that would bring a temporary back.
  EXPECT_EQ(scene_.UndoHistory().NumUndoSteps(), 0);
  EXPECT_FALSE(scene_.GetHold().IsSuspended());

  // Nothing recordable: the temporaries still go, and undo is on again afterwards.
  SceneNode* empty = static_cast<SceneNode*>(scene_.CreateMeshNode(Mesh(), "Empty"));
  SceneNode* shell = Tri("Shell", {{0, 0, 0}});
  scene_.Link(empty, shell);
  SettingsRecordTarget none(Settings({shell}, "none.kvc", 0, 1));
  EXPECT_EQ(Run(none, true).status, RecordStatus::NothingToCache);
  EXPECT_TRUE(shell->IsDeleted());
  EXPECT_EQ(scene_.UndoHistory().NumUndoSteps(), 0);
  EXPECT_FALSE(scene_.GetHold().IsSuspended());
}

TEST_F(RecorderTest, LifetimesAtOtherFrameRatesCoverTheWholeRecordedRange) {
  scene_.SetFrameRate(25);  // 192 ticks per frame
  SceneNode* n = Tri("N", {{0, 0, 0}});
  RecordSettings s = Settings({n}, "rate.kvc", 0, 4);
  SettingsRecordTarget target(s);
  ASSERT_TRUE(Run(target).ok());
  KelvaneTools::kvCacheReader reader((dir_ / "rate.kvc").string());
  ASSERT_TRUE(reader.Open());
  EXPECT_EQ(reader.Header().frameRate, 25);
  EXPECT_EQ(reader.Header().step, 192);
  ASSERT_EQ(reader.NumSamples(), 5);
  ASSERT_TRUE(reader.LoadAllSamples());
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(reader.SampleVisible(0, i)) << i;
  EXPECT_FALSE(reader.HasVisibility());
}

TEST_F(RecorderTest, WithoutAFileNameTheSaveDialogDecides) {
  SceneNode* n = Tri("N", {{0, 0, 0}});
  RecordSettings s = Settings({n}, "unused.kvc", 0, 2);
  s.fileName.clear();
  auto& who = scene_.GetResponder();

  // Cancelled: nothing is written and nothing is said.
  SettingsRecordTarget cancelled(s);
  EXPECT_EQ(Run(cancelled).status, RecordStatus::NoFile);
  ASSERT_EQ(who.log.size(), 1u);
  EXPECT_EQ(who.log[0].what, standalone::Responder::Shown::What::SaveDialog);
  EXPECT_EQ(who.log[0].text, "KVCache_");
  EXPECT_TRUE(fs::is_empty(dir_));

  // With the object's node the dialog proposes its name, and the chosen path is recorded.
  who.log.clear();
  s.ownNode = Tri("Shot", {{0, 0, 0}});
  who.fileAnswers.push_back((dir_ / "chosen.kvc").string());
  SettingsRecordTarget chosen(s);
  const RecordResult r = Run(chosen);
  ASSERT_TRUE(r.ok()) << r.message;
  EXPECT_EQ(who.log.at(0).text, "Shot");
  EXPECT_TRUE(fs::is_regular_file(dir_ / "chosen.kvc"));
  EXPECT_EQ(chosen.Settings().fileName, (dir_ / "chosen.kvc").string());
}

TEST_F(RecorderTest, EscapeDuringTheSceneAnalysisCancelsBeforeAnythingIsWritten) {
  RecordSettings s = Settings({Tri("A", {{0, 0, 0}}), Tri("B", {{1, 0, 0}})}, "d.kvc", 0, 2);
  s.writeDeform = true;
  scene_.GetResponder().PressEscAfter(2);
  SettingsRecordTarget target(s);
  const RecordResult r = Run(target);
  EXPECT_EQ(r.status, RecordStatus::Cancelled);
  EXPECT_TRUE(scene_.GetResponder().log.empty());
  EXPECT_TRUE(fs::is_empty(dir_));
  EXPECT_EQ(target.Status(), "");

  // Without Escape the analysis reports its progress, once per sample, and the recording goes
  // on.
  std::vector<std::string> statuses;
  RecordOptions o;
  o.progress = [&](const std::string& st, int) { return statuses.push_back(st), true; };
  SettingsRecordTarget again(s);
  ASSERT_TRUE(Recorder(scene_, nullptr).Record(again, o).ok());
  EXPECT_EQ(statuses.front(), "Analyzing scene (33 %) ...");
  EXPECT_EQ(statuses[2], "Analyzing scene (100 %) ...");
  EXPECT_EQ(statuses.back().rfind("Writing Cache (", 0), 0u) << statuses.back();
}

}  // namespace
}  // namespace kv

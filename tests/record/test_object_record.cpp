#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "cache/reader.h"
#include "cache/registry.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "record/object_target.h"
#include "record/recorder.h"

namespace kv {
namespace {

namespace fs = std::filesystem;
using standalone::Scene;
using standalone::SceneNode;
namespace P = param;

Mesh Triangle() {
  Mesh m;
  m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  m.setNumFaces(1);
  m.faces[0].setVerts(0, 1, 2);
  return m;
}

class ObjectRecord : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_objrec_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    scene_ = std::make_unique<Scene>();
    scene_->SetAnimRange(Interval(0, 10 * 160));
    registry_ = std::make_unique<KelvaneTools::kvCacheRegistry>(scene_.get());
  }
  void TearDown() override {
    scene_.reset();  // its cache objects leave the registry first
    registry_.reset();
    fs::remove_all(dir_);
  }

  SceneNode* Tri(const std::string& name, const Point3& at) {
    auto* n = static_cast<SceneNode*>(scene_->CreateMeshNode(Triangle(), name));
    n->KeyPosition(0, at);
    n->KeyPosition(10 * 160, at + Point3{10, 0, 0});
    return n;
  }

  // A cache object carried by a node of the scene.
  kvCache_obj* NewCacheObject(const std::string& name) {
    auto obj = std::make_unique<kvCache_obj>(*scene_, *registry_, false);
    kvCache_obj* raw = obj.get();
    scene_->CreateObjectNode(std::move(obj), name);
    return raw;
  }

  std::string P(const std::string& file) const { return (dir_ / file).string(); }

  std::unique_ptr<Scene> scene_;
  std::unique_ptr<KelvaneTools::kvCacheRegistry> registry_;
  fs::path dir_;
};

TEST_F(ObjectRecord, SuccessSetsParametersAndEmptiesTheListAsOneUndoStep) {
  kvCache_obj* obj = NewCacheObject("KV Cache");
  ParamBlock& pb = obj->Params();
  pb.Append(P::kNodes, Tri("A", {0, 0, 0}));
  pb.Append(P::kNodes, Tri("B", {0, 5, 0}));
  pb.SetInt(P::kRecStart, 0, 2);
  pb.SetInt(P::kRecEnd, 0, 8);
  pb.SetString(P::kFileName, P("obj.kvc"));

  Recorder recorder(*scene_, nullptr);
  RegistryRefresher refresher(*registry_);
  Recorder withRegistry(*scene_, &refresher);
  const RecordResult r = RecordCacheObject(withRegistry, *obj, RecordOptions{true, "", {}});
  ASSERT_TRUE(r.ok()) << r.message;
  EXPECT_EQ(r.elements, 2);
  EXPECT_EQ(pb.GetInt(P::kPlayStart), 2);
  EXPECT_EQ(pb.GetInt(P::kExplodeStart), 2);
  EXPECT_EQ(pb.GetInt(P::kExplodeEnd), 8);
  EXPECT_EQ(fs::path(pb.GetString(P::kFileName)), dir_ / "obj.kvc");
  EXPECT_EQ(pb.Count(P::kNodes), 0);
  EXPECT_EQ(scene_->UndoHistory().UndoLabel(), "Empty node list");
  ASSERT_TRUE(scene_->Undo());
  EXPECT_EQ(pb.Count(P::kNodes), 2);

  // The object now plays what it recorded: at frame 2 (its playStart) the first sample.
  Mesh m;
  obj->GetTriMesh(2 * 160, false, m);
  ASSERT_EQ(m.numVerts(), 6);
  EXPECT_LT((m.verts[0] - Point3{2, 0, 0}).Length(), 1e-5f);
  EXPECT_LT((m.verts[3] - Point3{2, 5, 0}).Length(), 1e-5f);

  // With "Empty node list" off the list stays. While it writes, the status field's bar
  // shows the percentage written; it is gone afterwards.
  pb.SetInt(P::kRecClearNodeList, 0, 0);
  pb.SetString(P::kFileName, P("again.kvc"));
  std::vector<std::pair<int, int>> bar;
  RecordOptions watched{true, "", {}};
  watched.progress = [&](const std::string&, int) {
    bar.emplace_back(obj->ProgressValue(), obj->ProgressTotal());
    return true;
  };
  ASSERT_TRUE(RecordCacheObject(recorder, *obj, watched).ok());
  EXPECT_EQ(pb.Count(P::kNodes), 2);
  ASSERT_FALSE(bar.empty());
  for (const auto& [value, total] : bar) {
    EXPECT_EQ(total, 100);
    EXPECT_GE(value, 0);
  }
  EXPECT_GT(bar.back().first, 0);
  EXPECT_EQ(obj->ProgressValue(), -1);
  EXPECT_EQ(obj->ProgressTotal(), -1);
}

TEST_F(ObjectRecord, RecordingOverAPlayedFileRefreshesEveryObjectPlayingIt) {
  kvCache_obj* first = NewCacheObject("First");
  first->Params().Append(P::kNodes, Tri("A", {0, 0, 0}));
  first->Params().SetInt(P::kRecEnd, 0, 10);
  first->Params().SetInt(P::kRecClearNodeList, 0, 0);
  first->Params().SetString(P::kFileName, P("shared.kvc"));
  RegistryRefresher refresher(*registry_);
  Recorder recorder(*scene_, &refresher);
  ASSERT_TRUE(RecordCacheObject(recorder, *first, RecordOptions{true, "", {}}).ok());

  // Another object plays the same file and has built its mesh.
  kvCache_obj* other = NewCacheObject("Other");
  other->Params().SetString(P::kFileName, first->Params().GetString(P::kFileName));
  Mesh m;
  other->GetTriMesh(0, false, m);
  ASSERT_EQ(m.numVerts(), 3);

  // Recording two nodes into that file: the other object sees them at the same time.
  first->Params().Append(P::kNodes, Tri("B", {0, 5, 0}));
  ASSERT_TRUE(RecordCacheObject(recorder, *first, RecordOptions{true, "", {}}).ok());
  other->GetTriMesh(0, false, m);
  EXPECT_EQ(m.numVerts(), 6);
  first->GetTriMesh(0, false, m);
  EXPECT_EQ(m.numVerts(), 6);
}

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// On a system that refuses to replace a file a handle holds open, as Windows does, recording
// over a cache that an object streams still succeeds: its reader lets go for the replace and
// reads the new file afterwards. When the replace fails all the same, the previous cache, its
// material library and the reader stay as they were.
TEST_F(ObjectRecord, ReplacingAnOpenCacheReleasesItsReadersAndKeepsAllOnFailure) {
  scene_->SetOpenFileLocking(true);
  kvCache_obj* first = NewCacheObject("First");
  ParamBlock& pb = first->Params();
  SceneNode* a = Tri("A", {0, 0, 0});
  a->SetMtl(scene_->NewStdMtl("Red", {1, 0, 0}));
  pb.Append(P::kNodes, a);
  pb.SetInt(P::kRecEnd, 0, 10);
  pb.SetInt(P::kRecClearNodeList, 0, 0);
  pb.SetString(P::kFileName, P("shared.kvc"));
  RegistryRefresher refresher(*registry_);
  Recorder recorder(*scene_, &refresher);
  ASSERT_TRUE(RecordCacheObject(recorder, *first, RecordOptions{true, "", {}}).ok());
  const std::string path = pb.GetString(P::kFileName);
  const std::string lib = MaterialLibraryPath(path);

  // Another object streams the file: the shared reader keeps its handle open.
  kvCache_obj* other = NewCacheObject("Other");
  other->Params().SetInt(P::kLoadTypeLocal, 0, static_cast<int>(KelvaneTools::LoadType::Stream));
  other->Params().SetString(P::kFileName, path);
  Mesh m;
  other->GetTriMesh(0, false, m);
  ASSERT_EQ(m.numVerts(), 3);
  KelvaneTools::kvCacheReader* reader = registry_->Reader(path);
  ASSERT_NE(reader, nullptr);
  ASSERT_TRUE(reader->IsOpen());

  SceneNode* b = Tri("B", {0, 5, 0});
  b->SetMtl(scene_->NewStdMtl("Blue", {0, 0, 1}));
  pb.Append(P::kNodes, b);
  const RecordResult r = RecordCacheObject(recorder, *first, RecordOptions{true, "", {}});
  ASSERT_TRUE(r.ok()) << r.message;
  EXPECT_EQ(scene_->RenamesRefused(), 0);
  other->GetTriMesh(160, false, m);
  EXPECT_EQ(m.numVerts(), 6);
  ASSERT_TRUE(reader->IsOpen());
  const std::string cacheBefore = ReadAll(path);
  const std::string libBefore = ReadAll(lib);
  ASSERT_NE(libBefore.find("Blue"), std::string::npos);

  // A handle outside the registry (another program, say) makes the replace fail.
  pb.Append(P::kNodes, Tri("C", {0, 9, 0}));
  {
    std::ifstream held(path, std::ios::binary);
    const RecordResult f = RecordCacheObject(recorder, *first, RecordOptions{true, "", {}});
    EXPECT_EQ(f.status, RecordStatus::Failed);
    EXPECT_EQ(f.errorCode, 4);
    EXPECT_EQ(f.message, "Unknown file error.");
  }
  EXPECT_EQ(scene_->RenamesRefused(), 1);
  EXPECT_EQ(ReadAll(path), cacheBefore);
  EXPECT_EQ(ReadAll(lib), libBefore);
  std::vector<std::string> files;
  for (const auto& e : fs::directory_iterator(dir_)) files.push_back(e.path().filename());
  std::sort(files.begin(), files.end());
  EXPECT_EQ(files, (std::vector<std::string>{"shared.kvc", "shared.mat"}));
  EXPECT_EQ(registry_->Reader(path), reader);
  EXPECT_TRUE(reader->IsOpen());
  EXPECT_EQ(reader->NumElements(), 2);
  other->GetTriMesh(320, false, m);
  EXPECT_EQ(m.numVerts(), 6);
}

TEST_F(ObjectRecord, SamplesAreRelativeToTheObjectsNodeAndTheListIsValidated) {
  kvCache_obj* obj = NewCacheObject("KV Cache");
  auto* own = static_cast<SceneNode*>(scene_->NodesReferencing(obj).front());
  own->KeyPosition(0, {0, 0, -2});
  ParamBlock& pb = obj->Params();
  SceneNode* a = Tri("A", {1, 0, 0});
  pb.Append(P::kNodes, a);
  pb.Append(P::kNodes, own);  // the object's own node depends on it and is left out
  pb.Append(P::kNodes, scene_->CreatePointHelperNode("Point"));
  pb.SetInt(P::kRecEnd, 0, 1);
  pb.SetString(P::kFileName, P("rel.kvc"));
  Recorder recorder(*scene_, nullptr);
  const RecordResult r = RecordCacheObject(recorder, *obj, RecordOptions{true, "", {}});
  ASSERT_TRUE(r.ok()) << r.message;
  EXPECT_EQ(r.elements, 1);

  KelvaneTools::kvCacheReader reader(P("rel.kvc"));
  ASSERT_TRUE(reader.Open());
  ASSERT_TRUE(reader.LoadAllSamples());
  EXPECT_EQ(reader.SampleTransform(0, 0).GetTrans(), (Point3{1, 0, 2}));
}

}  // namespace
}  // namespace kv

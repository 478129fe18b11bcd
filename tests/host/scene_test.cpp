// Nodes, hierarchy, visibility, materials, feedback and files of the standalone scene.
#include "host/standalone/scene.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "host/standalone/controls.h"

namespace kv::standalone {
namespace {

namespace fs = std::filesystem;

fs::path TempDir(const std::string& name) {
  fs::path p = fs::temp_directory_path() / ("kv_host_" + name + "_" + std::to_string(getpid()));
  fs::remove_all(p);
  fs::create_directories(p);
  return p;
}

TEST(Scene, HierarchyTransformsAndInheritedVisibility) {
  Scene s;
  SceneNode* parent = s.CreateNode(std::make_unique<PointHelperObject>(), "Parent");
  SceneNode* child = s.CreateNode(std::make_unique<TriObject>(), "Child", parent);
  parent->KeyPosition(0, {10, 0, 0});
  parent->KeyRotation(0, Quat(AngAxis{{0, 0, 1}, 1.5707964f}));
  child->KeyPosition(0, {1, 0, 0});
  child->SetObjectOffset(TransMatrix({0, 0, 2}));
  // Child at parent-local x = 1, rotated 90 degrees about Z: world (10, 1, 0).
  EXPECT_TRUE(child->GetNodeTM(0).GetTrans().x - 10 < 1e-5f);
  EXPECT_NEAR(child->GetNodeTM(0).GetTrans().y, 1.f, 1e-5f);
  EXPECT_NEAR(child->GetObjectTM(0).GetTrans().z, 2.f, 1e-5f);
  // SetNodeTM takes a world transform and stores it relative to the parent.
  child->SetNodeTM(0, TransMatrix({3, 4, 5}), true);
  EXPECT_TRUE(child->GetNodeTM(0).Equals(TransMatrix({3, 4, 5}), 1e-4f));

  auto& pv = parent->EnsureVisController();
  pv.SetValue(0, 1.f, true);
  pv.SetValue(100, 0.f, true);
  SetInterp(pv, host::Interp::Step);
  child->EnsureVisController().SetValue(0, 0.5f, false);
  EXPECT_FLOAT_EQ(child->GetVisibility(50), 0.5f);
  EXPECT_FLOAT_EQ(child->GetVisibility(100), 0.f);  // the parent's hidden key reaches it
  child->SetInheritVisibility(false);
  EXPECT_FLOAT_EQ(child->GetVisibility(100), 0.5f);

  EXPECT_TRUE(s.DependsOn(child, parent->GetObjectRef()));
  EXPECT_FALSE(s.DependsOn(parent, child->GetObjectRef()));

  // Deleting the parent hands the child to the root; the node stays addressable.
  s.DeleteNode(parent);
  EXPECT_TRUE(parent->IsDeleted());
  EXPECT_EQ(child->GetParent(), nullptr);
  EXPECT_EQ(s.GetRootNodes(), (std::vector<host::Node*>{child}));
  s.Link(child, child);  // refused: no loops
  EXPECT_EQ(child->GetParent(), nullptr);
}

TEST(Scene, NamesInstancesAndSelection) {
  Scene s;
  host::Node* a = s.CreateMeshNode(Mesh(), "Brick");
  EXPECT_EQ(s.MakeUniqueName("Brick"), "Brick001");
  s.CreateMeshNode(Mesh(), "Brick001");
  EXPECT_EQ(s.MakeUniqueName("Brick001"), "Brick002");
  EXPECT_EQ(s.MakeUniqueName("Ball"), "Ball");
  // A name freed by a rename or a delete is found again; undoing the delete takes it back.
  host::Node* b2 = s.CreateMeshNode(Mesh(), s.MakeUniqueName("Brick"));
  EXPECT_EQ(b2->GetName(), "Brick002");
  EXPECT_EQ(s.MakeUniqueName("Brick"), "Brick003");
  b2->SetName("Wall");
  EXPECT_EQ(s.GetNodeByName("Wall"), b2);
  EXPECT_EQ(s.GetNodeByName("Brick002"), nullptr);
  EXPECT_EQ(s.MakeUniqueName("Brick"), "Brick002");
  s.GetHold().Begin();
  s.DeleteNode(a);
  s.GetHold().Accept("Delete");
  EXPECT_EQ(s.GetNodeByName("Brick"), nullptr);
  EXPECT_EQ(s.MakeUniqueName("Brick"), "Brick");
  s.Undo();
  EXPECT_EQ(s.GetNodeByName("Brick"), a);
  EXPECT_EQ(s.MakeUniqueName("Brick"), "Brick002");
  // Two live nodes of one name: the one created first is found, even when it took the name
  // last.
  host::Node* c = s.CreateMeshNode(Mesh(), "Cube");
  b2->SetName("Cube");
  EXPECT_EQ(s.GetNodeByName("Cube"), b2);
  b2->SetName("Wall");
  EXPECT_EQ(s.GetNodeByName("Cube"), c);
  host::Node* inst = s.CreateInstanceNode(a, "Inst");
  EXPECT_EQ(inst->GetObjectRef(), a->GetObjectRef());
  EXPECT_EQ(s.NodesReferencing(a->GetObjectRef()).size(), 2u);
  a->SetSelected(true);
  inst->SetSelected(true);
  EXPECT_EQ(s.GetSelectedNodes().size(), 2u);
  s.ClearSelection();
  EXPECT_TRUE(s.GetSelectedNodes().empty());
  EXPECT_EQ(s.GetTicksPerFrame(), 160);
  s.SetFrameRate(25);
  EXPECT_EQ(s.GetTicksPerFrame(), 192);
}

TEST(Scene, MaterialsFitCombineAndLibraryFiles) {
  Scene s;
  StdMtl* red = s.NewStdMtl("Red", {1, 0, 0});
  StdMtl* blue = s.NewStdMtl("Blue", {0, 0, 1});
  MultiMtl* multi = s.NewMultiMtl("Pair");
  multi->subs = {red, blue, nullptr};

  Mesh m;
  m.setNumFaces(3);
  for (int i = 0; i < 3; ++i) m.faces[i].setMatID(static_cast<MtlID>(i * 2 + 1));  // 1, 3, 5
  s.FitMeshIDsToMaterial(m, multi);
  EXPECT_EQ(m.faces[1].getMatID(), 0);
  EXPECT_EQ(m.faces[2].getMatID(), 2);
  s.FitMeshIDsToMaterial(m, red);
  EXPECT_EQ(m.faces[2].getMatID(), 0);

  int offset = -1;
  host::Mtl* c = s.CombineMaterials(multi, blue, offset);
  EXPECT_EQ(offset, 3);
  ASSERT_EQ(c->NumSubMtls(), 4);
  EXPECT_EQ(c->GetSubMtl(3), blue);
  c = s.CombineMaterials(red, blue, offset);
  EXPECT_EQ(offset, 1);

  const fs::path dir = TempDir("mtl");
  MtlList lib;
  lib.Add(multi);
  lib.Add(red);
  ASSERT_TRUE(s.SaveMaterialLibrary((dir / "shot.mat").string(), lib));
  Scene t;
  MtlList back;
  ASSERT_TRUE(t.LoadMaterialLibrary((dir / "shot.mat").string(), back));
  ASSERT_EQ(back.Count(), 2);
  ASSERT_EQ(back.At(0)->NumSubMtls(), 3);
  EXPECT_EQ(back.At(0)->GetSubMtl(1)->GetName(), "Blue");
  EXPECT_EQ(back.At(0)->GetSubMtl(2), nullptr);
  EXPECT_EQ(static_cast<StdMtl*>(back.At(1))->diffuse, (Point3{1, 0, 0}));

  // Missing, truncated or foreign files give false and add nothing.
  EXPECT_FALSE(t.LoadMaterialLibrary((dir / "none.mat").string(), back));
  std::ofstream((dir / "bad.mat").string())
      << R"({"format": "kv-mtllib", "materials": [{"type": "stand)";
  EXPECT_FALSE(t.LoadMaterialLibrary((dir / "bad.mat").string(), back));
  std::ofstream((dir / "odd.mat").string())
      << R"({"format": "kv-mtllib", "materials": [{"type": "standard"}, 3]})";
  EXPECT_FALSE(t.LoadMaterialLibrary((dir / "odd.mat").string(), back));
  EXPECT_EQ(back.Count(), 2);
  fs::remove_all(dir);
}

TEST(Scene, ResponderAnswersAndLogs) {
  Scene s;
  Responder& r = s.GetResponder();
  EXPECT_EQ(s.MessageBox("Nothing to cache!", "Error!", host::MsgBoxKind::Warning),
            host::MsgBoxResult::Ok);
  EXPECT_EQ(s.MessageBox("Replace?", "Save Cache", host::MsgBoxKind::Question),
            host::MsgBoxResult::No);
  r.msgBoxAnswers.push_back(host::MsgBoxResult::Yes);
  EXPECT_EQ(s.MessageBox("Replace?", "Save Cache", host::MsgBoxKind::Question),
            host::MsgBoxResult::Yes);
  ASSERT_EQ(r.log.size(), 3u);
  EXPECT_EQ(r.log[0].text, "Nothing to cache!");

  std::string path = "unchanged";
  EXPECT_FALSE(s.SaveFileDialog("Specify Cache File", "KVCache_", "*.kvc", path));
  EXPECT_EQ(path, "unchanged");
  r.fileAnswers = {std::string("/tmp/a.kvc"), std::nullopt};
  EXPECT_TRUE(s.SaveFileDialog("Specify Cache File", "KVCache_", "*.kvc", path));
  EXPECT_EQ(path, "/tmp/a.kvc");
  EXPECT_FALSE(s.OpenFileDialog("Open", "*.kvc", path));

  r.PressEscAfter(3);
  EXPECT_FALSE(s.GetEscPressed());
  EXPECT_FALSE(s.GetEscPressed());
  EXPECT_TRUE(s.GetEscPressed());
  EXPECT_FALSE(s.GetEscPressed());  // once per press

  s.ListenerPrint("a\n");
  s.ListenerPrint("b\n");
  EXPECT_EQ(s.ListenerText(), "a\nb\n");
  s.ProgressStart("Writing");
  s.ProgressUpdate(50, "Saving ...");
  s.ProgressEnd();
  ASSERT_EQ(s.Progress().size(), 3u);
  EXPECT_EQ(s.Progress()[1].percent, 50);
  s.NotifyDependents(nullptr, host::kPartGeom);
  s.NotifyDependents(nullptr, host::kPartTopo);
  s.RedrawViews(0);
  EXPECT_EQ(s.NotifyCount(), 2);
  EXPECT_EQ(s.NotifiedParts(), host::kPartGeom | host::kPartTopo);
  EXPECT_EQ(s.RedrawCount(), 1);
}

TEST(Scene, AssetPathsAndPluginLibraries) {
  Scene s;
  const fs::path dir = TempDir("assets");
  std::ofstream((dir / "shot.kvc").string()) << "x";
  EXPECT_EQ(s.ResolveAssetPath(""), "");
  EXPECT_EQ(s.ResolveAssetPath("shot.kvc"), "");  // not found anywhere yet
  s.SetAssetFolder(dir.string());
  EXPECT_EQ(fs::path(s.ResolveAssetPath("shot.kvc")), dir / "shot.kvc");
  EXPECT_EQ(s.ResolveAssetPath("/abs/new.kvc"), "/abs/new.kvc");  // absolute: as it is

  EXPECT_EQ(s.LoadPluginLibrary("KVRigid"), nullptr);  // no plugins folder
  s.SetPluginsFolder(dir.string());
  EXPECT_EQ(s.LoadPluginLibrary("KVRigid"), nullptr);  // absent
  EXPECT_EQ(s.FindExport(nullptr, "Get_KG_RIGID_Exploded"), nullptr);
  std::ofstream((dir / "Broken.so").string()) << "not a library";
  EXPECT_EQ(s.LoadPluginLibrary("Broken"), nullptr);

  // A real library built beside the tests, found by name and called through its export.
  s.SetPluginsFolder(KV_TEST_PLUGINS_DIR);
  void* lib = s.LoadPluginLibrary("KVRigid");
  ASSERT_NE(lib, nullptr);
  EXPECT_EQ(s.FindExport(lib, "NoSuchExport"), nullptr);
  using Fn = int (*)(int);
  auto fn = reinterpret_cast<Fn>(s.FindExport(lib, "Get_KG_RIGID_Exploded"));
  ASSERT_NE(fn, nullptr);
  EXPECT_EQ(fn(20), 41);
  fs::remove_all(dir);
}

}  // namespace
}  // namespace kv::standalone

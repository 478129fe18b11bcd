#include <algorithm>

#include "cache/reader.h"
#include "fixture.h"
#include "groups/element_group.h"
#include "res/strings.h"

namespace kv::script::testing {
namespace {

TEST_F(ScriptTest, TheHandMadeCacheOpens) {
  MakeObject();
  const KelvaneTools::kvCacheReader* r = obj_->Reader();
  ASSERT_TRUE(r && r->HasIndex()) << (r ? r->ErrorMessageText() : "no reader");
  EXPECT_EQ(Ok("cacheNumNodes"), "2");
  EXPECT_EQ(Ok("cacheNumSamples"), "3");
  EXPECT_EQ(Ok("cacheEnd"), "2f");
  EXPECT_EQ(Ok("cacheStepSize"), "160");
  EXPECT_EQ(Ok("cacheFrameRate"), "30");
  EXPECT_EQ(Ok("cacheHasVisibility"), "true");
  EXPECT_EQ(Ok("getElementNames"), "#(#(0, \"Box\"), #(1, \"Ball\"))");
  EXPECT_EQ(Ok("getElementNames", {"pattern:\"b?X\""}), "#(#(0, \"Box\"))");
}

TEST_F(ScriptTest, PropertiesReadZeroWithoutACache) {
  MakeObject(false);
  for (const char* p : {"cacheStart", "cacheEnd"}) EXPECT_EQ(Ok(p), "0f") << p;
  for (const char* p : {"cacheStepSize", "cacheFrameRate", "cacheNumNodes", "cacheNumSamples"})
    EXPECT_EQ(Ok(p), "0") << p;
  for (const char* p : {"cacheHasVisibility", "cacheHasSpecifiedNormals"})
    EXPECT_EQ(Ok(p), "false") << p;
  EXPECT_EQ(Ok("version"), "1.02");
  EXPECT_EQ(Ok("fileVersion"), "3");
  // A file that is not a cache counts as none.
  kvtest::WriteFile(Path("junk.kvc"), "not a cache at all, just text");
  obj_->Params().SetString(param::kFileName, Path("junk.kvc"));
  obj_->BuildMesh(0);
  EXPECT_EQ(Ok("cacheNumNodes"), "0");
  EXPECT_EQ(Ok("getElementSelection"), "#{}");
  EXPECT_EQ(Ok("getElementNames"), "#()");
  EXPECT_EQ(Ok("addGroup", {"groupName:\"A\""}), "true");
  EXPECT_EQ(Ok("addGroupElements", {"\"A\"", "#(1)"}), "false");
  EXPECT_EQ(Ok("setElementSelection", {"#(1)"}), "#{}");
}

TEST_F(ScriptTest, AddGroupWithoutANameStaysEmptyWhateverIsSelected) {
  MakeObject();
  EXPECT_EQ(Ok("setElementSelection", {"#{1..2}"}), "#{1..2}");
  EXPECT_EQ(Ok("addGroup"), "true");
  EXPECT_EQ(Ok("getSelectedGroup"), "\"Group001\"");
  EXPECT_EQ(Ok("getGroupElements", {"\"Group001\""}), "#{}");

  EXPECT_EQ(Ok("addGroup", {"groupName:\"A\"", "addSelected:true"}), "true");
  EXPECT_EQ(Ok("getGroupElements", {"\"A\""}), "#{1..2}");
  EXPECT_EQ(Ok("addGroup", {"groupName:\"B\""}), "true");
  EXPECT_EQ(Ok("getGroupElements", {"\"B\""}), "#{}");
  // A taken name is a false result, not an error.
  EXPECT_EQ(Ok("addGroup", {"groupName:\"A\""}), "false");
  EXPECT_EQ(obj_->Groups().count(), 3);
}

TEST_F(ScriptTest, GroupModeNamesIgnoreCaseAndRefuseAnythingElse) {
  MakeObject();
  Ok("addGroup", {"groupName:\"A\""});
  EXPECT_EQ(Ok("setGroupMode", {"\"A\"", "#HOLDIN"}), "true");
  EXPECT_EQ(Ok("getGroupMode", {"\"A\""}), "#holdin");
  EXPECT_EQ(Ok("setGroupMode", {"\"A\"", "#SetMatId"}), "true");
  EXPECT_EQ(Ok("getGroupMode", {"\"A\""}), "#setmatid");
  const std::string invalid =
      "Invalid mode, expected one of : #delete, #holdin, #holdout, #delay, #setframe, #setmatid";
  EXPECT_EQ(Raised("setGroupMode", {"\"A\"", "#hold"}), invalid);
  // The mode name is tested before the group name.
  EXPECT_EQ(Raised("setGroupMode", {"\"Nope\"", "#hold"}), invalid);
  EXPECT_EQ(Raised("setGroupMode", {"\"Nope\"", "#delete"}), "No group with that name exists");
  EXPECT_EQ(obj_->Groups().at(0).mode, static_cast<uint32_t>(GroupMode::SetMatID));

  obj_->Groups().at(0).mode = 6;  // a stored value no mode has
  EXPECT_EQ(Raised("getGroupMode", {"\"A\""}), "Group mode invalid");
}

TEST_F(ScriptTest, MaterialIdsOutsideOneTo99AreRefusedWithTheValue) {
  MakeObject();
  Ok("addGroup", {"groupName:\"A\""});
  const std::string prefix = "Material ID out of range (1-99) < 1 or > 99: ";
  EXPECT_EQ(Raised("setGroupMatID", {"\"A\"", "0"}), prefix + "0");
  EXPECT_EQ(Raised("setGroupMatID", {"\"A\"", "100"}), prefix + "100");
  EXPECT_EQ(Raised("setGroupMatID", {"\"A\"", "150"}), prefix + "150");
  EXPECT_EQ(Ok("getGroupMatID", {"\"A\""}), "1");  // unchanged by the refusals
  EXPECT_EQ(Ok("setGroupMatID", {"\"A\"", "99"}), "true");
  EXPECT_EQ(Ok("getGroupMatID", {"\"A\""}), "99");
  EXPECT_EQ(obj_->Groups().at(0).matIndex, 98);
  EXPECT_EQ(Ok("setGroupMatID", {"\"A\"", "1"}), "true");
  EXPECT_EQ(Ok("getGroupMatID", {"\"A\""}), "1");
  // The name is tested before the range.
  EXPECT_EQ(Raised("setGroupMatID", {"\"Nope\"", "150"}), "No group with that name exists");
}

TEST_F(ScriptTest, IndicesAreOneBasedAndCutToTheElementCount) {
  MakeObject();
  Ok("addGroup", {"groupName:\"A\""});
  // 0 is no element; 2 is element 1; 3 and 99 lie beyond the two elements.
  EXPECT_EQ(Ok("addGroupElements", {"\"A\"", "#(0, 2)"}), "true");
  EXPECT_EQ(obj_->Groups().at(0).elements(), std::vector<int32_t>{1});
  EXPECT_EQ(Ok("getGroupElements", {"\"A\""}), "#{2}");
  EXPECT_EQ(Ok("setGroupElements", {"\"A\"", "#{1, 3..99}"}), "true");
  EXPECT_EQ(obj_->Groups().at(0).elements(), std::vector<int32_t>{0});
  EXPECT_EQ(Ok("setGroupElements", {"\"A\"", "#(-4, 1, 2, 7)"}), "true");
  EXPECT_EQ(obj_->Groups().at(0).elements(), (std::vector<int32_t>{0, 1}));
  EXPECT_EQ(Ok("removeGroupElements", {"\"A\"", "2"}), "true");
  EXPECT_EQ(Ok("removeGroupElements", {"\"A\"", "2"}), "false");
  EXPECT_EQ(obj_->Groups().at(0).elements(), std::vector<int32_t>{0});
  EXPECT_EQ(Raised("addGroupElements", {"\"A\"", "\"one\""}),
            "Unable to convert: \"one\" to type: BitArray");

  EXPECT_EQ(Ok("setElementSelection", {"#(2, 5)"}), "#{2}");
  EXPECT_EQ(obj_->ElementSelection(), std::vector<int32_t>{1});
  EXPECT_EQ(Ok("getElementSelection"), "#{2}");
}

// Every function that names a group raises the same text for a missing one, before it
// changes anything; the four that return false instead raise nothing.
TEST_F(ScriptTest, AMissingGroupRaisesBeforeAnythingChanges) {
  MakeObject();
  Ok("addGroup", {"groupName:\"A\""});
  Ok("addGroupElements", {"\"A\"", "#(1)"});
  const ElementGroupList before = obj_->Groups();
  const int undoSteps = scene_->UndoHistory().NumUndoSteps();

  const std::vector<std::pair<std::string, std::vector<std::string>>> raising = {
      {"setSelectedGroup", {"\"X\""}},
      {"getGroupMode", {"\"X\""}},
      {"setGroupMode", {"\"X\"", "#delay"}},
      {"getGroupElements", {"\"X\""}},
      {"setGroupElements", {"\"X\"", "#(1)"}},
      {"addGroupElements", {"\"X\"", "#(1)"}},
      {"removeGroupElements", {"\"X\"", "#(1)"}},
      {"getGroupEnabled", {"\"X\""}},
      {"setGroupEnabled", {"\"X\"", "false"}},
      {"getGroupDelay", {"\"X\""}},
      {"setGroupDelay", {"\"X\"", "2.5"}},
      {"getGroupDeleteByAge", {"\"X\""}},
      {"setGroupDeleteByAge", {"\"X\"", "true"}},
      {"getGroupDeleteAge", {"\"X\""}},
      {"setGroupDeleteAge", {"\"X\"", "3"}},
      {"getGroupDeleteByDistance", {"\"X\""}},
      {"setGroupDeleteByDistance", {"\"X\"", "true"}},
      {"getGroupDeleteDistance", {"\"X\""}},
      {"setGroupDeleteDistance", {"\"X\"", "4.0"}},
      {"getGroupMatID", {"\"X\""}},
      {"setGroupMatID", {"\"X\"", "5"}},
  };
  for (const auto& [name, args] : raising) {
    EXPECT_EQ(Raised(name, args), "No group with that name exists") << name;
  }
  for (const auto& [name, args] : std::vector<std::pair<std::string, std::vector<std::string>>>{
           {"deleteGroup", {"\"X\""}},
           {"renameGroup", {"\"X\"", "\"Y\""}},
           {"makeGroupElementsUnique", {"\"X\""}}}) {
    EXPECT_EQ(Ok(name, args), "false") << name;
  }
  EXPECT_EQ(obj_->Groups(), before);
  EXPECT_EQ(scene_->UndoHistory().NumUndoSteps(), undoSteps);

  // The unpublished ids still answer through the dispatcher, by number only.
  Value out;
  std::string error;
  EXPECT_EQ(fns_->Dispatch(kGetGroupTrigger, 0, out, {Value::String("X")}, error), kDispatchFailed);
  EXPECT_EQ(error, "No group with that name exists");
  EXPECT_EQ(fns_->Dispatch(kGetGroupTrigger, 0, out, {Value::String("A")}, error), kDispatchOk);
  EXPECT_EQ(out, Value::Bool(true));
  EXPECT_EQ(Call("getGroupTrigger", {"\"A\""}).status, CallStatus::UnknownFunction);
}

TEST_F(ScriptTest, DispatchRefusesUnknownIdsAndMissingArguments) {
  MakeObject();
  Value out;
  std::string error;
  EXPECT_EQ(fns_->Dispatch(46, 0, out, {}, error), kNoSuchFunction);
  EXPECT_EQ(fns_->Dispatch(-1, 0, out, {}, error), kNoSuchFunction);
  EXPECT_EQ(fns_->Dispatch(kRenameGroup, 0, out, {Value::String("A")}, error), kDispatchFailed);
  EXPECT_EQ(error, kArgumentOutOfBounds);
  // Through a call, too few positional values reach the dispatcher's own error.
  EXPECT_EQ(Raised("renameGroup", {"\"A\""}), kArgumentOutOfBounds);
  // Values of the wrong type never reach it.
  const Result r = Call("setGroupDelay", {"\"A\"", "\"soon\""});
  EXPECT_EQ(r.status, CallStatus::BadArguments);
  EXPECT_EQ(r.text, "Unable to convert: \"soon\" to type: Float");
  EXPECT_EQ(Call("addGroup", {"color:1"}).status, CallStatus::BadArguments);
  EXPECT_EQ(Call("deleteGroup", {"\"A\"", "\"B\""}).status, CallStatus::BadArguments);
  EXPECT_EQ(Call("noSuchThing").status, CallStatus::UnknownFunction);
}

// Each editing function is one undo step that gives back exactly the groups it found.
TEST_F(ScriptTest, UndoAfterEachEditGivesBackThePreviousGroups) {
  MakeObject();
  Ok("addGroup", {"groupName:\"A\""});
  Ok("addGroup", {"groupName:\"B\""});
  Ok("addGroupElements", {"\"A\"", "#(1, 2)"});
  Ok("addGroupElements", {"\"B\"", "#(2)"});
  const std::vector<std::pair<std::string, std::vector<std::string>>> edits = {
      {"addGroup", {"groupName:\"C\""}},
      {"deleteGroup", {"\"B\""}},
      {"renameGroup", {"\"A\"", "\"Z\""}},
      {"setSelectedGroup", {"\"A\""}},
      {"setGroupMode", {"\"A\"", "#delay"}},
      {"setGroupElements", {"\"B\"", "#(1)"}},
      {"addGroupElements", {"\"B\"", "#(1)"}},
      {"removeGroupElements", {"\"A\"", "#(1)"}},
      {"makeGroupElementsUnique", {"\"B\""}},
      {"setGroupEnabled", {"\"A\"", "false"}},
      {"setGroupDelay", {"\"A\"", "2.5"}},
      {"setGroupDeleteByAge", {"\"A\"", "true"}},
      {"setGroupDeleteAge", {"\"A\"", "3"}},
      {"setGroupDeleteByDistance", {"\"A\"", "true"}},
      {"setGroupDeleteDistance", {"\"A\"", "4.5"}},
      {"setGroupMatID", {"\"A\"", "7"}},
      {"deleteAllGroups", {}},
  };
  for (const auto& [name, args] : edits) {
    const ElementGroupList before = obj_->Groups();
    Ok(name, args);
    ASSERT_NE(obj_->Groups(), before) << name << " changed nothing";
    ASSERT_TRUE(scene_->Undo()) << name;
    EXPECT_EQ(obj_->Groups(), before) << name;
  }
  // The selection is one undo step of its own.
  Ok("setElementSelection", {"#(1)"});
  Ok("setElementSelection", {"#(2)"});
  ASSERT_TRUE(scene_->Undo());
  EXPECT_EQ(obj_->ElementSelection(), std::vector<int32_t>{0});
}

TEST_F(ScriptTest, RecordAddsTheExtensionUnlessItIsThereInAnyCase) {
  MakeObject(false);
  Mesh m;
  m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  m.setNumFaces(1);
  m.faces[0].setVerts(0, 1, 2);
  host::Node* tri = scene_->CreateMeshNode(m, "Tri");
  scene_->SetAnimRange(Interval(0, 2 * 160));
  obj_->Params().SetInt(param::kRecStart, 0, 0);
  obj_->Params().SetInt(param::kRecEnd, 0, 2);
  obj_->Params().SetInt(param::kRecClearNodeList, 0, 0);
  obj_->Params().Append(param::kNodes, tri);

  const std::string bare = Path("shot");
  EXPECT_EQ(Ok("record", {"fileName:\"" + bare + "\""}), "true");
  EXPECT_TRUE(fs::exists(bare + ".kvc"));
  EXPECT_FALSE(fs::exists(bare));
  EXPECT_EQ(obj_->Params().GetString(param::kFileName), bare + ".kvc");

  const std::string upper = Path("take.KVC");
  EXPECT_EQ(Ok("record", {"fileName:\"" + upper + "\""}), "true");
  EXPECT_TRUE(fs::exists(upper));
  EXPECT_FALSE(fs::exists(upper + ".kvc"));
  obj_->BuildMesh(0);
  EXPECT_EQ(Ok("cacheNumNodes"), "1");
}

TEST_F(ScriptTest, ReduceKeysNamesTheValueItCannotUse) {
  MakeObject();
  host::Node* n = scene_->CreatePointHelperNode("Helper");
  const std::string prefix = res::GetString(res::IDS_ERR_CONTROLLER_PARAM);
  EXPECT_EQ(Raised("reduceKeys", {"12", "(interval 0f 2f)", "1f"}), prefix + "12");
  EXPECT_EQ(Raised("reduceKeys", {"#($Helper, \"x\")", "(interval 0f 2f)", "1f"}),
            prefix + "\"x\"");
  // Nodes give their position, rotation and scale controllers.
  const std::vector<host::Control*> got =
      CollectControllers(Value::List({Value::NodeRef(n)}), *scene_);
  host::Control* tm = n->GetTMController();
  EXPECT_EQ(got,
            (std::vector<host::Control*>{tm->GetPositionController(), tm->GetRotationController(),
                                         tm->GetScaleController()}));
}

// Explode and key reduction answer from the same table once the explode subsystem is set.
TEST_F(ScriptTest, ExplodeGoesThroughTheInstalledOperations) {
  MakeObject();
  EXPECT_EQ(Raised("explode", {"(interval 0f 2f)", "1f"}),
            "explode is not available in this build");

  struct Fake : ExplodeOps {
    ExplodeRequest seen;
    host::Node* made = nullptr;
    void Explode(kvCache_obj&, const ExplodeRequest& r, std::vector<host::Node*>& out) override {
      seen = r;
      out = {made};
    }
    bool ReduceKeys(kvCache_obj&, const std::vector<host::Control*>&, Interval, TimeValue,
                    float) override {
      return true;
    }
  } fake;
  fake.made = scene_->CreatePointHelperNode("Made");
  SetExplodeOps(&fake);
  const std::string got = Ok("explode", {"(interval 0f 2f)", "1f", "reduceThresh:0.5"});
  SetExplodeOps(nullptr);
  EXPECT_EQ(got, "#($Made)");
  EXPECT_EQ(fake.seen.interval.Start(), 0);
  EXPECT_EQ(fake.seen.interval.End(), 320);
  EXPECT_EQ(fake.seen.step, 160);
  EXPECT_TRUE(fake.seen.reduceKeys);  // the keyword default
  EXPECT_FALSE(fake.seen.selectedOnly);
  EXPECT_FLOAT_EQ(fake.seen.reduceThresh, 0.5f);
  EXPECT_EQ(fake.seen.cacheNode, nullptr);
}

}  // namespace
}  // namespace kv::script::testing

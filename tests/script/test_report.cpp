#include "fixture.h"
#include "script/report.h"

namespace kv::script::testing {
namespace {

std::string Report(KelvaneTools::kvCacheRegistry& registry, const host::Interface& ip) {
  std::string out;
  PrintCacheReport(registry, ip, [&out](const std::string& line) { out += line; });
  return out;
}

TEST_F(ScriptTest, ReportIsEmptyWithoutOpenCaches) {
  MakeObject(false);
  EXPECT_EQ(Report(*registry_, *scene_), "");
  EXPECT_EQ(Ok("debugPrint"), "OK");
  EXPECT_EQ(scene_->ListenerText(), "");
}

TEST_F(ScriptTest, ReportListsEveryCacheWithItsUsers) {
  // 1,048,577 bytes: one byte past a megabyte reads 1.00 MB.
  kvtest::WriteFile(Path("b.kvc"), TwoElementCache(1048577));
  kvtest::WriteFile(Path("a.kvc"), TwoElementCache());
  MakeObject();  // node "Cache", playing two.kvc
  // An object in no node, and two nodes sharing one object.
  kvCache_obj loose(*scene_, *registry_, false);
  loose.Params().SetString(param::kFileName, Path("b.kvc"));
  loose.BuildMesh(0);
  auto shared = std::make_unique<kvCache_obj>(*scene_, *registry_, false);
  kvCache_obj* sharedObj = shared.get();
  host::Node* first = scene_->CreateObjectNode(std::move(shared), "First");
  scene_->CreateInstanceNode(first, "Second");
  sharedObj->Params().SetString(param::kFileName, Path("a.kvc"));
  sharedObj->BuildMesh(0);
  // A second object on two.kvc whose node is deleted.
  auto gone = std::make_unique<kvCache_obj>(*scene_, *registry_, false);
  kvCache_obj* goneObj = gone.get();
  host::Node* goneNode = scene_->CreateObjectNode(std::move(gone), "Gone");
  goneObj->Params().SetString(param::kFileName, Path("two.kvc"));
  goneObj->BuildMesh(0);
  scene_->DeleteNode(goneNode);

  auto block = [](const std::string& file, const std::string& size) {
    return "Cache File : \"" + file + "\"\n\tFile size        : " + size +
           "\n\tMesh size        : 341 B\n\tAnimation size   : 294 B\n"
           "\tNumber of Frames : 3\n\tStep Size        : 160 ticks\n"
           "\tFrameRate        : 30 FPS\n\tObjects          : 2\n\n";
  };
  const std::string expected =
      block(Path("a.kvc"), "891 B") + "\tReferenced by 1 node :\n\t\t$'First', $'Second'\n" +
      block(Path("b.kvc"), "1.00 MB") +
      "\tReferenced by 1 node :\n\t\tEmpty (possibily deleted)\n" +
      block(Path("two.kvc"), "891 B") +
      "\tReferenced by 2 nodes :\n\t\t$'Cache'\n\t\tEmpty (possibily deleted)\n";
  EXPECT_EQ(Report(*registry_, *scene_), expected);
  // debugPrint sends the same lines to the listener.
  EXPECT_EQ(Ok("debugPrint"), "OK");
  EXPECT_EQ(scene_->ListenerText(), expected);
}

}  // namespace
}  // namespace kv::script::testing

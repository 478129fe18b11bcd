// kvcache render and pick: pictures of the right size with the cache in them, contact
// sheets, element picks that print one-based indices and save into the scene, and clear
// refusals of bad arguments and files.
#include <gtest/gtest.h>

#include <filesystem>

#include "cache/registry.h"
#include "host/standalone/scene_file.h"
#include "host/standalone/soft_window.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "scene_io.h"
#include "support.h"

namespace kv::cli::testing {
namespace {

namespace fs = std::filesystem;

class RenderPick : public ::testing::Test {
 protected:
  void SetUp() override {
    dir = fs::temp_directory_path() /
          ("kv_render_" + std::to_string(::getpid()) + "_" +
           ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::create_directories(dir);
    cache = (dir / "two.kvc").string();
    WriteFile(cache, TwoElementCache());
  }
  void TearDown() override { fs::remove_all(dir); }

  // A scene file with one cache node playing the two-element cache.
  std::string WriteScene() {
    const std::string path = (dir / "scene.kvs").string();
    KelvaneTools::kvCacheRegistry registry;
    standalone::Scene scene;
    auto obj = std::make_unique<kvCache_obj>(scene, registry, false);
    obj->Params().SetString(param::kFileName, cache);
    scene.CreateNode(std::move(obj), "Cache");
    std::string error;
    EXPECT_TRUE(standalone::SaveScene(scene, path, error)) << error;
    return path;
  }

  static int Lit(const standalone::Image& img) {
    int n = 0;
    for (size_t i = 0; i < img.rgb.size(); i += 3) n += img.rgb[i] > 100 || img.rgb[i + 2] > 100;
    return n;
  }

  fs::path dir;
  std::string cache;
};

TEST_F(RenderPick, RendersAFrameAndAContactSheet) {
  const std::string png = (dir / "a.png").string();
  Outcome r =
      Call({"render", cache, "--frame", "0", "-o", png, "--size", "64x48", "--view", "top"});
  ASSERT_EQ(r.code, 0) << r.err;
  standalone::Image img;
  std::string error;
  ASSERT_TRUE(standalone::ReadPng(png, img, error)) << error;
  EXPECT_EQ(img.width, 64);
  EXPECT_EQ(img.height, 48);
  EXPECT_GT(Lit(img), 50);

  // Three frames: a 2 x 2 grid of 64 x 48 cells, the fourth empty.
  const std::string sheet = (dir / "s.png").string();
  r = Call({"render", cache, "--frames", "0:2:1", "-o", sheet, "--size", "64x48", "--wire",
            "--markers", "--icon"});
  ASSERT_EQ(r.code, 0) << r.err;
  ASSERT_TRUE(standalone::ReadPng(sheet, img, error)) << error;
  EXPECT_EQ(img.width, 128);
  EXPECT_EQ(img.height, 96);
  EXPECT_NE(r.out.find("3 frames"), std::string::npos);
}

TEST_F(RenderPick, RenderRefusesBadArgumentsAndFiles) {
  const std::string png = (dir / "a.png").string();
  EXPECT_EQ(Call({"render", cache, "--frame", "0", "-o", (dir / "a.jpg").string()}).code, 2);
  EXPECT_EQ(Call({"render", cache, "-o", png}).code, 2);
  EXPECT_EQ(Call({"render", cache, "--frames", "2:0:1", "-o", png}).code, 2);
  EXPECT_EQ(Call({"render", cache, "--frames", "0:2", "-o", png}).code, 2);
  EXPECT_EQ(Call({"render", cache, "--frames", "0:5000:1", "-o", png}).code, 2);
  EXPECT_EQ(Call({"render", cache, "--frame", "0", "-o", png, "--size", "big"}).code, 2);
  EXPECT_EQ(Call({"render", cache, "--frame", "0", "-o", png, "--view", "back"}).code, 2);
  EXPECT_EQ(Call({"render", (dir / "none.kvc").string(), "--frame", "0", "-o", png}).code, 2);

  // A broken cache names its fault; nothing is written.
  const std::string bad = (dir / "bad.kvc").string();
  WriteFile(bad, TwoElementCache().substr(0, 300));
  Outcome r = Call({"render", bad, "--frame", "0", "-o", png});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("bad.kvc"), std::string::npos);
  EXPECT_FALSE(fs::exists(png));

  r = Call({"render", cache, "--node", "Cache", "--frame", "0", "-o", png});
  EXPECT_EQ(r.code, 1);
  const std::string scene = WriteScene();
  r = Call({"render", scene, "--node", "Nobody", "--frame", "0", "-o", png});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("Nobody"), std::string::npos);
  EXPECT_EQ(Call({"render", scene, "--node", "Cache", "--frame", "0", "-o", png}).code, 0);
}

TEST_F(RenderPick, PickPrintsOneBasedIndicesAndSavesTheSelection) {
  const std::string scene = WriteScene();
  // A window over the whole picture takes both elements.
  Outcome r = Call({"pick", scene, "Cache", "--frame", "0", "--window", "0,0,199,149", "--size",
                    "200x150", "--view", "top"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "1 2\n");

  // A click in an empty corner takes nothing.
  r = Call({"pick", scene, "Cache", "--frame", "0", "--at", "1,1", "--size", "200x150", "--view",
            "top"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "\n");

  // The Ball (element 2) is the quad around the origin, the middle of a top view framed on the
  // cache; Box starts there too but is a thin triangle towards +x +y: click just below-left.
  r = Call({"pick", scene, "Cache", "--frame", "0", "--at", "90,85", "--size", "200x150", "--view",
            "top", "--save"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "2\n");

  KelvaneTools::kvCacheRegistry registry;
  std::string error;
  auto loaded = LoadSceneFile(scene, std::nullopt, registry, error);
  ASSERT_TRUE(loaded) << error;
  auto* obj = dynamic_cast<kvCache_obj*>(loaded->FindNode("Cache")->GetObjectRef());
  ASSERT_NE(obj, nullptr);
  EXPECT_EQ(obj->Selection(), (std::set<uint32_t>{1}));
}

TEST_F(RenderPick, PickRefusesBadArguments) {
  const std::string scene = WriteScene();
  EXPECT_EQ(Call({"pick", scene, "Cache", "--frame", "0"}).code, 2);
  EXPECT_EQ(Call({"pick", scene, "Cache", "--frame", "0", "--at", "1"}).code, 2);
  EXPECT_EQ(Call({"pick", scene, "Cache", "--frame", "0", "--at", "1,2,3"}).code, 2);
  EXPECT_EQ(Call({"pick", scene, "Cache", "--frame", "0", "--window", "1,2,3"}).code, 2);
  EXPECT_EQ(Call({"pick", scene, "Cache", "--frame", "0", "--at", "1,2", "--crossing"}).code, 2);
  EXPECT_EQ(Call({"pick", cache, "Cache", "--frame", "0", "--at", "1,2"}).code, 1);
  const Outcome r = Call({"pick", scene, "Nobody", "--frame", "0", "--at", "1,2"});
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.err.find("Nobody"), std::string::npos);
}

}  // namespace
}  // namespace kv::cli::testing

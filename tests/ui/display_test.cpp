// Viewport display, hit testing, bounding boxes and the sub-object levels of the cache
// object, drawn by the standalone software window and checked by pixels and hits.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <set>
#include <string>
#include <vector>

#include "cache/registry.h"
#include "host/controller.h"
#include "host/standalone/scene.h"
#include "host/standalone/soft_window.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "tiles.h"
#include "ui/cache_display.h"
#include "ui/icon_mesh.h"

namespace kv::ui {
namespace {

namespace P = param;
using host::HitRegion;
using host::IPoint2;

const Point3 kBg{0, 0, 0};
const Point3 kSelection{0, 1, 0};
const Point3 kFreeze{0, 0, 1};
constexpr uint32_t kWireBgr = 0x000000FF;  // pure red
const Point3 kWire{1, 0, 0};

int CountColor(const standalone::Image& img, const Point3& c) {
  const auto b = [](float v) { return static_cast<uint8_t>(std::lround(v * 255)); };
  int n = 0;
  for (int y = 0; y < img.height; ++y)
    for (int x = 0; x < img.width; ++x) {
      const uint8_t* p = img.At(x, y);
      n += p[0] == b(c.x) && p[1] == b(c.y) && p[2] == b(c.z);
    }
  return n;
}

bool IsBackground(const standalone::Image& img, int x, int y) {
  const uint8_t* p = img.At(x, y);
  return p[0] == 0 && p[1] == 0 && p[2] == 0;
}

class Display : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("kv_display_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(dir_);
  }
  void TearDown() override { std::filesystem::remove_all(dir_); }

  // A cache node playing tiles at `places` (no file when empty), icon off, markers off.
  void Make(const std::vector<Point3>& places) {
    auto o = std::make_unique<kvCache_obj>(scene, registry, false);
    obj = o.get();
    node = scene.CreateNode(std::move(o), "KV Cache");
    node->SetWireColor(kWireBgr);
    ParamBlock& pb = obj->Params();
    pb.SetInt(P::kVpDisplayIcon, 0, 0);
    pb.SetInt(P::kVpShowMarkers, 0, 0);
    if (!places.empty()) {
      const std::string path = (dir_ / "tiles.kvc").string();
      kvtest::WriteFile(path, kvtest::TileCache(places));
      pb.SetString(P::kFileName, path);
    }
    display = std::make_unique<CacheDisplay>(*obj);
  }

  // A 200 x 200 top view of x, y in [-5, 15], wireframe or shaded.
  standalone::SoftWindow& Window(bool wire) {
    gw = std::make_unique<standalone::SoftWindow>(200, 200);
    gw->SetCamera(
        standalone::FrameBox(Box3({-5, -5, -1}, {15, 15, 1}), standalone::ViewKind::Top, 200, 200));
    gw->SetRndMode(wire ? host::kGwWireframe | host::kGwZBuffer
                        : host::kGwIllum | host::kGwZBuffer);
    gw->SetUIColor(host::UIColor::Selection, kSelection);
    gw->SetUIColor(host::UIColor::Freeze, kFreeze);
    gw->Clear(kBg);
    return *gw;
  }

  IPoint2 Pixel(const Point3& world) const {
    float x = 0, y = 0;
    gw->ProjectWorld(world, x, y);
    return {static_cast<int>(std::floor(x)), static_cast<int>(std::floor(y))};
  }

  void Draw() { display->Display(0, *node, *gw); }
  int PickAt(const Point3& world) {
    const IPoint2 p[1] = {Pixel(world)};
    return display->HitTest(0, *node, HitRegion::Type::Point, false, 0, p, *gw);
  }

  std::filesystem::path dir_;
  KelvaneTools::kvCacheRegistry registry;  // outlives the scene's objects
  standalone::Scene scene;
  kvCache_obj* obj = nullptr;
  standalone::SceneNode* node = nullptr;
  std::unique_ptr<CacheDisplay> display;
  std::unique_ptr<standalone::SoftWindow> gw;
};

TEST(IconMesh, CountsBoundsEdgesAndNegativeSize) {
  Mesh m;
  BuildIconMesh(10.0f, m);
  ASSERT_EQ(m.numVerts(), 104);
  ASSERT_EQ(m.numFaces(), 114);
  const Box3 b = m.getBoundingBox();
  for (int a = 0; a < 3; ++a) {
    EXPECT_NEAR(b.pmin[a], -10.3f, 1e-4f);
    EXPECT_NEAR(b.pmax[a], 5.0f, 1e-4f);
  }
  // An outline: every vertex lies on a visible edge, and triangulation diagonals are hidden.
  std::vector<bool> onEdge(104, false);
  int hidden = 0;
  for (const Face& f : m.faces) {
    for (int e = 0; e < 3; ++e) {
      ASSERT_LT(f.v[e], 104u);
      if (f.getEdgeVis(e))
        onEdge[f.v[e]] = onEdge[f.v[(e + 1) % 3]] = true;
      else
        ++hidden;
    }
  }
  EXPECT_EQ(std::count(onEdge.begin(), onEdge.end(), true), 104);
  EXPECT_GT(hidden, 0);

  BuildIconMesh(-1.0f, m);
  EXPECT_EQ(m.numVerts(), 0);
  EXPECT_EQ(m.numFaces(), 0);
}

TEST_F(Display, IconIsRebuiltOnlyWhenItsSizeChanges) {
  Make({});
  obj->Params().SetFloat(P::kIconSize, 0, 4.0f);
  display->IconMesh();
  display->IconMesh();
  EXPECT_EQ(display->IconBuilds(), 1);
  obj->Params().SetFloat(P::kIconSize, 0, 6.0f);
  EXPECT_NEAR(display->IconMesh().getBoundingBox().pmax.x, 3.0f, 1e-4f);
  EXPECT_EQ(display->IconBuilds(), 2);
}

TEST_F(Display, WithoutACacheOnlyTheIconIsDrawnHitAndBoxed) {
  Make({});
  ParamBlock& pb = obj->Params();
  pb.SetInt(P::kVpDisplayIcon, 0, 1);
  pb.SetInt(P::kVpShowMarkers, 0, 1);
  pb.SetInt(P::kVpDeleteObjects, 0, 0);
  pb.SetFloat(P::kIconSize, 0, 8.0f);
  Window(false);
  Draw();
  // Drawn in the wire colour as an outline, even in a shaded viewport.
  EXPECT_GT(CountColor(gw->Picture(), kWire), 50);
  EXPECT_TRUE(display->ElementTransforms().empty());
  const Box3 local = display->GetLocalBoundBox(0, *node);
  EXPECT_NEAR(local.pmin.x, -8.24f, 1e-3f);
  EXPECT_NEAR(local.pmax.z, 4.0f, 1e-3f);

  // A pick on a visible icon line hits; one far from it does not.
  const standalone::Image& img = gw->Picture();
  IPoint2 onIcon{-1, -1};
  for (int y = 0; y < img.height && onIcon.x < 0; ++y)
    for (int x = 0; x < img.width; ++x)
      if (!IsBackground(img, x, y)) {
        onIcon = {x, y};
        break;
      }
  ASSERT_GE(onIcon.x, 0);
  const IPoint2 at[1] = {onIcon};
  EXPECT_EQ(display->HitTest(0, *node, HitRegion::Type::Point, false, 0, at, *gw), 1);
  EXPECT_EQ(PickAt({14, 14, 0}), 0);

  // The parameter block holds iconSize at 0 or more, so a negative size reaches the display
  // only as the empty icon mesh (see IconMesh above); the icon switched off acts the same.
  pb.SetInt(P::kVpDisplayIcon, 0, 0);
  Window(false);
  Draw();
  EXPECT_EQ(CountColor(gw->Picture(), kWire), 0);
  EXPECT_EQ(display->HitTest(0, *node, HitRegion::Type::Point, false, 0, at, *gw), 0);
  EXPECT_TRUE(display->GetLocalBoundBox(0, *node).IsEmpty());
  EXPECT_TRUE(display->GetWorldBoundBox(0, *node).IsEmpty());
}

TEST_F(Display, AKnownElementCoversItsPixelsInItsMaterialColour) {
  Make({{0, 0, 0}, {6, 0, 0}});
  standalone::StdMtl* mtl = scene.NewStdMtl("Blue", {0.0f, 0.0f, 1.0f});
  node->SetMtl(mtl);
  Window(false);
  Draw();
  const standalone::Image& img = gw->Picture();
  // Element 1's tile covers (8..9, 2..3): its centre is blue-lit, just outside is background.
  const IPoint2 in = Pixel({8.5f, 2.5f, 0});
  const uint8_t* p = img.At(in.x, in.y);
  EXPECT_EQ(p[0], 0);
  EXPECT_EQ(p[1], 0);
  EXPECT_GT(p[2], 100);
  const IPoint2 out = Pixel({9.6f, 2.5f, 0});
  EXPECT_TRUE(IsBackground(img, out.x, out.y));
  // Nothing between the tiles.
  const IPoint2 gap = Pixel({5.5f, 2.5f, 0});
  EXPECT_TRUE(IsBackground(img, gap.x, gap.y));
}

TEST_F(Display, WireColourFollowsSelectionFreezeAndLevel) {
  Make({{0, 0, 0}});
  Window(true);
  Draw();
  EXPECT_GT(CountColor(gw->Picture(), kWire), 20);
  EXPECT_EQ(CountColor(gw->Picture(), kSelection), 0);

  node->SetSelected(true);
  Window(true);
  Draw();
  EXPECT_GT(CountColor(gw->Picture(), kSelection), 20);
  EXPECT_EQ(CountColor(gw->Picture(), kWire), 0);

  // Frozen beats selected.
  node->SetFrozen(true);
  Window(true);
  Draw();
  EXPECT_GT(CountColor(gw->Picture(), kFreeze), 20);
  EXPECT_EQ(CountColor(gw->Picture(), kSelection), 0);

  // The vpWireframe override draws a shaded viewport as wire.
  node->SetFrozen(false);
  node->SetSelected(false);
  obj->Params().SetInt(P::kVpWireframe, 0, 1);
  Window(false);
  Draw();
  const IPoint2 inside = Pixel({2.5f, 2.7f, 0});
  EXPECT_TRUE(IsBackground(gw->Picture(), inside.x, inside.y));
  EXPECT_GT(CountColor(gw->Picture(), kWire), 20);
  // ...and leaves the window's limits as they were.
  EXPECT_EQ(gw->GetRndLimits(), host::kGwIllum | host::kGwZBuffer);
}

TEST_F(Display, DeletingObjectsHidesMarkersInDrawingAndHitTesting) {
  Make({{0, 0, 0}, {8, 8, 0}});
  ParamBlock& pb = obj->Params();
  pb.SetInt(P::kVpShowMarkers, 0, 1);
  pb.SetInt(P::kVpDeleteObjects, 0, 1);
  Window(true);
  Draw();
  // Element 0's marker at its origin, apart from its tile.
  const IPoint2 m = Pixel({0, 0, 0});
  EXPECT_TRUE(IsBackground(gw->Picture(), m.x, m.y));
  EXPECT_EQ(PickAt({0, 0, 0}), 0);

  pb.SetInt(P::kVpDeleteObjects, 0, 0);
  Window(true);
  Draw();
  EXPECT_FALSE(IsBackground(gw->Picture(), m.x, m.y));
  EXPECT_EQ(PickAt({0, 0, 0}), 1);

  pb.SetInt(P::kVpShowMarkers, 0, 0);
  Window(true);
  Draw();
  EXPECT_TRUE(IsBackground(gw->Picture(), m.x, m.y));
  EXPECT_EQ(PickAt({0, 0, 0}), 0);
}

TEST_F(Display, AWindowNeverSelectsThroughMarkers) {
  Make({{0, 0, 0}});
  ParamBlock& pb = obj->Params();
  pb.SetInt(P::kVpShowMarkers, 0, 1);
  pb.SetInt(P::kVpDeleteObjects, 0, 0);
  Window(true);
  Draw();
  // A window around the marker only, not the tile.
  const IPoint2 a = Pixel({-1, 1, 0}), b = Pixel({1, -1, 0});
  const IPoint2 box[2] = {a, b};
  EXPECT_EQ(display->HitTest(0, *node, HitRegion::Type::Box, false, 0, box, *gw), 0);
  EXPECT_EQ(display->HitTest(0, *node, HitRegion::Type::Box, true, 0, box, *gw), 1);
  // A window around the whole tile selects the object through its mesh.
  const IPoint2 all[2] = {Pixel({1.5f, 3.5f, 0}), Pixel({3.5f, 1.5f, 0})};
  EXPECT_EQ(display->HitTest(0, *node, HitRegion::Type::Box, false, 0, all, *gw), 1);
}

TEST_F(Display, ElementWindowSelectsEveryElementInside) {
  Make({{0, 0, 0}, {3, 0, 0}, {6, 0, 0}, {9, 0, 0}});
  display->ActivateSubobjSel(kLevelElements);
  Window(true);
  Draw();
  // Tiles 0..2 lie in x 2..9; tile 3 (11..12) is outside, tile 2 only touched by a crossing
  // window that stops at x = 8.5.
  host::HitLog log;
  const IPoint2 win[2] = {Pixel({1.5f, 3.5f, 0}), Pixel({9.5f, 1.5f, 0})};
  display->HitTestElements(0, *node, HitRegion::Type::Box, false, 0, win, *gw, log);
  std::set<uint32_t> hit;
  for (const host::HitRecord& r : log.Hits()) {
    EXPECT_EQ(r.node, node);
    hit.insert(r.info);
  }
  EXPECT_EQ(hit, (std::set<uint32_t>{0, 1, 2}));

  log.Clear();
  const IPoint2 part[2] = {Pixel({1.5f, 3.5f, 0}), Pixel({8.5f, 1.5f, 0})};
  display->HitTestElements(0, *node, HitRegion::Type::Box, false, 0, part, *gw, log);
  EXPECT_EQ(log.Hits().size(), 2u);
  log.Clear();
  display->HitTestElements(0, *node, HitRegion::Type::Box, true, 0, part, *gw, log);
  EXPECT_EQ(log.Hits().size(), 3u);

  // Selected-only and unselected-only flags split the hits.
  obj->SelectSubComponent(std::vector<uint32_t>{1}, true, true);
  log.Clear();
  display->HitTestElements(0, *node, HitRegion::Type::Box, false, host::kHitSelOnly, win, *gw, log);
  ASSERT_EQ(log.Hits().size(), 1u);
  EXPECT_EQ(log.Hits()[0].info, 1u);
  log.Clear();
  display->HitTestElements(0, *node, HitRegion::Type::Box, false, host::kHitUnselOnly, win, *gw,
                           log);
  EXPECT_EQ(log.Hits().size(), 2u);

  // A click on a tile hits that element alone.
  log.Clear();
  const IPoint2 at[1] = {Pixel({5.5f, 2.5f, 0})};
  display->HitTestElements(0, *node, HitRegion::Type::Point, false, 0, at, *gw, log);
  ASSERT_EQ(log.Hits().size(), 1u);
  EXPECT_EQ(log.Hits()[0].info, 1u);

  // Selected elements draw in the selection colour at this level, the rest in the wire colour.
  Window(true);
  Draw();
  const standalone::Image& img = gw->Picture();
  const IPoint2 e1 = Pixel({5.0f, 2.5f, 0}), e0 = Pixel({2.0f, 2.5f, 0});
  const uint8_t* p1 = img.At(e1.x, e1.y);
  const uint8_t* p0 = img.At(e0.x, e0.y);
  EXPECT_EQ(p1[1], 255);
  EXPECT_EQ(p0[0], 255);
}

TEST_F(Display, InvertSelectionUndoesAndRedoes) {
  Make({{0, 0, 0}, {3, 0, 0}, {6, 0, 0}});
  display->UpdateMesh(0);
  obj->SelectSubComponent(std::vector<uint32_t>{0}, true, true);
  scene.GetHold().Begin();
  obj->InvertSelection();
  scene.GetHold().Accept("Invert");
  EXPECT_EQ(obj->Selection(), (std::set<uint32_t>{1, 2}));
  ASSERT_TRUE(scene.Undo());
  EXPECT_EQ(obj->Selection(), (std::set<uint32_t>{0}));
  ASSERT_TRUE(scene.Redo());
  EXPECT_EQ(obj->Selection(), (std::set<uint32_t>{1, 2}));
}

TEST_F(Display, SubObjectAxisAtBothLevels) {
  Make({{0, 0, 0}, {3, 0, 0}, {6, 2, 0}});
  node->SetNodeTM(0, TransMatrix({100, 0, 0}), false);
  display->ActivateSubobjSel(kLevelElements);
  // No selection: the node's object transform.
  EXPECT_TRUE(display->GetSubObjectTM(0, *node).Equals(TransMatrix({100, 0, 0}), 1e-5f));
  // Mean of the selected tiles' box centres (2.5, 2.5) + place, in world space.
  obj->SelectSubComponent(std::vector<uint32_t>{0, 2}, true, true);
  const Point3 axis = display->GetSubObjectTM(0, *node).GetTrans();
  EXPECT_NEAR(axis.x, 100 + (2.5f + 8.5f) / 2, 1e-4f);
  EXPECT_NEAR(axis.y, (2.5f + 4.5f) / 2, 1e-4f);
  // Selected indices beyond the file's elements are ignored.
  obj->SelectSubComponent(std::vector<uint32_t>{40}, true, true);
  EXPECT_NEAR(display->GetSubObjectTM(0, *node).GetTrans().x, axis.x, 1e-4f);

  display->ActivateSubobjSel(kLevelGizmo);
  obj->SetGizmo(0, TransMatrix({0, 7, 0}));
  EXPECT_TRUE(display->GetSubObjectTM(0, *node).Equals(TransMatrix({100, 7, 0}), 1e-5f));
}

TEST_F(Display, WorldBoxOfARotatedNode) {
  Make({{0, 0, 0}});
  Matrix3 tm = RotateZMatrix(std::numbers::pi_v<float> / 2);
  tm.SetTrans({10, 0, 0});
  node->SetNodeTM(0, tm, false);
  // The tile (2..3, 2..3) turned a quarter about z lands at x -3..-2, y 2..3, then moves by 10.
  const Box3 w = display->GetWorldBoundBox(0, *node);
  EXPECT_NEAR(w.pmin.x, 7, 1e-4f);
  EXPECT_NEAR(w.pmax.x, 8, 1e-4f);
  EXPECT_NEAR(w.pmin.y, 2, 1e-4f);
  EXPECT_NEAR(w.pmax.y, 3, 1e-4f);
  // The local box does not move with the node.
  const Box3 l = display->GetLocalBoundBox(0, *node);
  EXPECT_NEAR(l.pmin.x, 2, 1e-4f);
  EXPECT_NEAR(l.pmax.y, 3, 1e-4f);
}

TEST_F(Display, GizmoLevelDrawsThreeCirclesInTheSelectionColour) {
  Make({{0, 0, 0}});
  const std::vector<Point3> pts = GizmoCirclePoints();
  ASSERT_EQ(pts.size(), 3u * 17u);
  EXPECT_EQ(pts[0], (Point3{40, 0, 0}));
  EXPECT_EQ(pts[17], (Point3{0, 40, 0}));
  EXPECT_EQ(pts[34], (Point3{0, 0, 40}));
  for (const Point3& p : pts) EXPECT_NEAR(p.Length(), 40.0f, 1e-3f);

  display->ActivateSubobjSel(kLevelGizmo);
  gw = std::make_unique<standalone::SoftWindow>(200, 200);
  gw->SetCamera(
      standalone::FrameBox(Box3({-45, -45, -1}, {45, 45, 1}), standalone::ViewKind::Top, 200, 200));
  gw->SetUIColor(host::UIColor::Selection, kSelection);
  gw->SetUIColor(host::UIColor::Freeze, kFreeze);
  gw->SetRndMode(host::kGwWireframe | host::kGwZBuffer);
  gw->Clear(kBg);
  Draw();
  const IPoint2 rim = Pixel({0, 40, 0});
  bool green = false;
  for (int dy = -1; dy <= 1; ++dy) green |= gw->Picture().At(rim.x, rim.y + dy)[1] == 255;
  EXPECT_TRUE(green);
  // At any sub-object level the cache itself shows in the freeze colour.
  EXPECT_GT(CountColor(gw->Picture(), kFreeze), 0);
}

TEST(SubObjects, TypesAndCommandModes) {
  EXPECT_EQ(SubObjTypeName(0), "Elements");
  EXPECT_EQ(SubObjTypeName(1), "Gizmo");
  EXPECT_EQ(kNumSubObjTypes, 2);
  const auto elements = CommandModesAt(kLevelElements);
  EXPECT_EQ(elements, std::vector<CommandMode>{CommandMode::Select});
  const auto gizmo = CommandModesAt(kLevelGizmo);
  EXPECT_EQ(std::count(gizmo.begin(), gizmo.end(), CommandMode::Select), 0);
  EXPECT_EQ(gizmo.size(), 5u);
  EXPECT_TRUE(CommandModesAt(kLevelObject).empty());
}

}  // namespace
}  // namespace kv::ui

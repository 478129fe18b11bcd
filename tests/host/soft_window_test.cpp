// The software graphics window: depth, edge visibility, picking on the drawn pixels with every
// region kind, and PNG files.
#include "host/standalone/soft_window.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <fstream>

namespace kv::standalone {
namespace {

using host::HitRegion;
using host::IPoint2;

// A 100 x 100 top view in which world x, y in [0, 100] map to pixels one to one (y down).
SoftWindow TopWindow() {
  SoftWindow gw(100, 100);
  Camera c;
  c.perspective = false;
  c.orthoHeight = 100;
  Matrix3 camToWorld;
  camToWorld.SetTrans({50, 50, 100});
  c.worldToCamera = Inverse(camToWorld);
  gw.SetCamera(c);
  gw.SetTransform(Matrix3());
  gw.Clear({0, 0, 0});
  return gw;
}

// One triangle (or a quad of two) at height z; world (x, y) is pixel (x, 100 - y).
Mesh Quad(float x0, float y0, float x1, float y1, float z, uint32_t edges = kEdgeAll) {
  Mesh m;
  m.verts = {{x0, y0, z}, {x1, y0, z}, {x1, y1, z}, {x0, y1, z}};
  m.setNumFaces(2);
  m.faces[0].setVerts(0, 1, 2);
  m.faces[1].setVerts(2, 3, 0);
  for (Face& f : m.faces) f.setEdgeVisBits(edges);
  return m;
}

bool Pick(SoftWindow& gw, const Mesh& m, const HitRegion& r) {
  gw.SetHitRegion(r);
  gw.SetRndLimits(gw.GetRndMode() | host::kGwPick);
  gw.ClearHitCode();
  const bool hit = gw.SelectMesh(m, false);
  gw.SetRndLimits(gw.GetRndMode());
  return hit;
}

HitRegion PointAt(int x, int y) {
  const IPoint2 p[1] = {{x, y}};
  return host::MakeHitRegion(HitRegion::Type::Point, false, 4, p);
}

TEST(SoftWindow, NearerFacesWinWhateverTheOrder) {
  SoftWindow gw = TopWindow();
  gw.SetRndMode(host::kGwZBuffer);  // unlit: the material colour itself
  const Mesh low = Quad(10, 10, 60, 60, 0), high = Quad(40, 40, 90, 90, 5);
  gw.SetMaterial(host::DisplayMaterial::Uniform({1, 0, 0}));
  gw.RenderMesh(high, host::kCompAll);
  gw.SetMaterial(host::DisplayMaterial::Uniform({0, 0, 1}));
  gw.RenderMesh(low, host::kCompAll);
  // Overlap (40..60): the higher, red quad, drawn first, stays on top.
  EXPECT_EQ(gw.Picture().At(50, 50)[0], 255);
  EXPECT_EQ(gw.Picture().At(50, 50)[2], 0);
  EXPECT_EQ(gw.Picture().At(20, 80)[2], 255);
  EXPECT_EQ(gw.Picture().At(95, 5)[0], 0);
}

TEST(SoftWindow, WireframeDrawsOnlyVisibleEdges) {
  SoftWindow gw = TopWindow();
  gw.SetRndMode(host::kGwWireframe | host::kGwZBuffer);
  gw.SetMaterial(host::DisplayMaterial::Uniform({1, 1, 1}));
  // Edges a->b and b->c of each triangle: the outline without the diagonal.
  gw.RenderMesh(Quad(10, 10, 90, 90, 0, kEdgeA | kEdgeB), host::kCompAll);
  const standalone::Image& img = gw.Picture();
  EXPECT_EQ(img.At(50, 90)[0], 255);  // bottom edge (y = 10)
  EXPECT_EQ(img.At(50, 50)[0], 0);    // the diagonal passes here
  gw.SetRndLimits(gw.GetRndMode() | host::kGwAllEdges);
  gw.RenderMesh(Quad(10, 10, 90, 90, 0, kEdgeA | kEdgeB), host::kCompAll);
  EXPECT_EQ(img.At(50, 50)[0], 255);
}

TEST(SoftWindow, APointPickHitsWhatIsDrawnWithinFourPixels) {
  SoftWindow gw = TopWindow();
  const Mesh m = Quad(20, 20, 40, 40, 0, kEdgeA | kEdgeB);  // pixels x 20..39, y 60..79
  gw.SetRndMode(host::kGwIllum | host::kGwZBuffer);
  EXPECT_TRUE(Pick(gw, m, PointAt(30, 70)));
  EXPECT_TRUE(Pick(gw, m, PointAt(43, 70)));
  EXPECT_FALSE(Pick(gw, m, PointAt(45, 70)));
  EXPECT_TRUE(Pick(gw, m, PointAt(30, 56)));
  EXPECT_FALSE(Pick(gw, m, PointAt(30, 54)));
  // In wireframe only the edges are there: the middle of the face is empty.
  gw.SetRndMode(host::kGwWireframe);
  EXPECT_FALSE(Pick(gw, m, PointAt(30, 70)));
  EXPECT_TRUE(Pick(gw, m, PointAt(22, 70)));
  // Hidden faces are neither drawn nor hit.
  Mesh hidden = m;
  for (Face& f : hidden.faces) f.Hide();
  gw.SetRndMode(host::kGwIllum);
  EXPECT_FALSE(Pick(gw, hidden, PointAt(30, 70)));
}

TEST(SoftWindow, NearerHitsReportSmallerDistances) {
  SoftWindow gw = TopWindow();
  EXPECT_TRUE(Pick(gw, Quad(20, 20, 40, 40, 0), PointAt(30, 70)));
  const uint32_t low = gw.GetHitDistance();
  EXPECT_TRUE(Pick(gw, Quad(20, 20, 40, 40, 10), PointAt(30, 70)));
  EXPECT_LT(gw.GetHitDistance(), low);
}

TEST(SoftWindow, WindowsNeedEverythingInsideCrossingsOnlyATouch) {
  SoftWindow gw = TopWindow();
  const Mesh m = Quad(20, 20, 40, 40, 0);
  const IPoint2 around[2] = {{15, 55}, {45, 85}};
  const IPoint2 half[2] = {{15, 55}, {30, 85}};
  EXPECT_TRUE(Pick(gw, m, host::MakeHitRegion(HitRegion::Type::Box, false, 4, around)));
  EXPECT_FALSE(Pick(gw, m, host::MakeHitRegion(HitRegion::Type::Box, false, 4, half)));
  EXPECT_TRUE(Pick(gw, m, host::MakeHitRegion(HitRegion::Type::Box, true, 4, half)));

  // Circle: centre and a rim point.
  const IPoint2 big[2] = {{30, 70}, {30, 90}};
  const IPoint2 small[2] = {{60, 70}, {60, 78}};
  EXPECT_TRUE(Pick(gw, m, host::MakeHitRegion(HitRegion::Type::Circle, false, 4, big)));
  EXPECT_FALSE(Pick(gw, m, host::MakeHitRegion(HitRegion::Type::Circle, true, 4, small)));

  // Fence: a triangle that holds the quad, and one that misses it.
  const IPoint2 holds[3] = {{0, 99}, {99, 99}, {10, 20}};
  const IPoint2 misses[3] = {{60, 0}, {99, 0}, {99, 40}};
  EXPECT_TRUE(Pick(gw, m, host::MakeHitRegion(HitRegion::Type::Fence, false, 4, holds)));
  EXPECT_FALSE(Pick(gw, m, host::MakeHitRegion(HitRegion::Type::Fence, true, 4, misses)));

  // Markers and polylines follow the same rules.
  gw.SetHitRegion(host::MakeHitRegion(HitRegion::Type::Box, false, 4, half));
  gw.SetRndLimits(host::kGwPick);
  gw.ClearHitCode();
  const Point3 line[2] = {{20, 20, 0}, {40, 20, 0}};
  gw.Polyline(line, false);
  EXPECT_FALSE(gw.CheckHitCode());
  gw.Marker({25, 20, 0}, host::MarkerType::X);
  EXPECT_TRUE(gw.CheckHitCode());
}

TEST(SoftWindow, PicturesRoundTripThroughPngAndBadFilesSayWhy) {
  const auto dir =
      std::filesystem::temp_directory_path() / ("kv_png_" + std::to_string(::getpid()));
  std::filesystem::create_directories(dir);
  SoftWindow gw = TopWindow();
  gw.SetRndMode(host::kGwZBuffer);
  gw.SetMaterial(host::DisplayMaterial::Uniform({0.2f, 0.6f, 1.0f}));
  gw.RenderMesh(Quad(20, 20, 40, 40, 0), host::kCompAll);
  std::string error;
  const std::string path = (dir / "a.png").string();
  ASSERT_TRUE(WritePng(gw.Picture(), path, error)) << error;
  Image back;
  ASSERT_TRUE(ReadPng(path, back, error)) << error;
  EXPECT_EQ(back.width, 100);
  EXPECT_EQ(back.height, 100);
  EXPECT_EQ(back.rgb, gw.Picture().rgb);

  EXPECT_FALSE(WritePng(gw.Picture(), (dir / "missing" / "a.png").string(), error));
  EXPECT_NE(error.find("cannot write"), std::string::npos);
  std::ofstream(dir / "b.png") << "not a picture";
  EXPECT_FALSE(ReadPng((dir / "b.png").string(), back, error));
  EXPECT_NE(error.find("not a PNG"), std::string::npos);
  EXPECT_EQ(back.width, 100);  // the picture read before is untouched
  std::filesystem::remove_all(dir);
}

TEST(SoftWindow, FramingKeepsTheWholeBoxInView) {
  const Box3 box({-10, 0, 5}, {30, 8, 9});
  for (ViewKind v : {ViewKind::Persp, ViewKind::Top, ViewKind::Front, ViewKind::Left}) {
    SoftWindow gw(320, 200);
    gw.SetCamera(FrameBox(box, v, 320, 200));
    float minX = 1e9f, maxX = -1e9f;
    for (int i = 0; i < 8; ++i) {
      float x = 0, y = 0;
      ASSERT_TRUE(gw.ProjectWorld(box.Corner(i), x, y));
      EXPECT_GE(x, 0);
      EXPECT_LE(x, 320);
      EXPECT_GE(y, 0);
      EXPECT_LE(y, 200);
      minX = std::min(minX, x), maxX = std::max(maxX, x);
    }
    // ...and fills a good part of it.
    EXPECT_GT(maxX - minX, 100) << static_cast<int>(v);
  }
}

}  // namespace
}  // namespace kv::standalone

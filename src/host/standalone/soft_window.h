// The standalone host's graphics window: a software rasteriser with a z-buffer that draws the
// core's display calls into an RGB picture, and in pick mode tests the very same rasterised
// pixels against the hit region, so a pick hits exactly what a picture shows under it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "geom/box3.h"
#include "host/graphics_window.h"

namespace kv::standalone {

// A camera looking down its own -Z with +Y up. Orthographic cameras show `orthoHeight` world
// units over the picture's height; perspective ones `fovY` radians.
struct Camera {
  Matrix3 worldToCamera;
  bool perspective = true;
  float fovY = 0.7854f;
  float orthoHeight = 100.0f;
  float nearClip = 0.01f;
};

enum class ViewKind { Persp, Top, Front, Left };

// A camera of that kind that shows the whole box with a margin in a w x h picture. An empty
// box frames the 100-unit cube around the origin.
Camera FrameBox(const Box3& box, ViewKind view, int width, int height);

// What the window draws into: width x height RGB pixels, rows from the top.
struct Image {
  int width = 0, height = 0;
  std::vector<uint8_t> rgb;
  const uint8_t* At(int x, int y) const {
    return rgb.data() + (static_cast<size_t>(y) * static_cast<size_t>(width) + x) * 3;
  }
};

class SoftWindow final : public host::GraphicsWindow {
 public:
  SoftWindow(int width, int height);

  // ---- set-up (standalone only)
  void SetCamera(const Camera& c) { camera_ = c; }
  const Camera& GetCamera() const { return camera_; }
  // The viewport's mode: kGwWireframe for a wireframe view, else shaded (kGwIllum, smooth
  // unless kGwFlat). Also resets the limits to it.
  void SetRndMode(uint32_t mode) { mode_ = mode, limits_ = mode; }
  void SetUIColor(host::UIColor which, const Point3& c);
  // Clears to the background colour and empties the z-buffer.
  void Clear(const Point3& background);
  const Image& Picture() const { return image_; }
  Image& Picture() { return image_; }
  // Screen position (pixels) and depth of a world point; false behind the camera.
  bool ProjectWorld(const Point3& world, float& x, float& y) const;
  // Text in pixels (a small built-in font), top-left at (x, y), unaffected by depth.
  void Text(int x, int y, const std::string& text, const Point3& rgb);

  // ---- host::GraphicsWindow
  void SetTransform(const Matrix3& tm) override;
  Matrix3 GetTransform() const override { return objToWorld_; }
  uint32_t GetRndLimits() const override { return limits_; }
  void SetRndLimits(uint32_t limits) override { limits_ = limits; }
  uint32_t GetRndMode() const override { return mode_; }
  void SetLineColor(const Point3& rgb) override { line_ = rgb; }
  void SetMaterial(const host::DisplayMaterial& m) override { materials_.assign(1, m); }
  void SetMaterials(std::span<const host::DisplayMaterial> m) override;
  void Polyline(std::span<const Point3> points, bool closed) override;
  void Marker(const Point3& p, host::MarkerType type) override;
  void RenderMesh(const Mesh& mesh, int compFlags) override;
  void SetHitRegion(const host::HitRegion& region) override;
  void ClearHitCode() override { hit_ = false, hitDistance_ = UINT32_MAX; }
  bool CheckHitCode() const override { return hit_; }
  uint32_t GetHitDistance() const override { return hitDistance_; }
  bool SelectMesh(const Mesh& mesh, bool abortOnHit) override;
  Point3 GetUIColor(host::UIColor which) const override;

 private:
  // A projected vertex: pixel position, the depth the z-buffer holds (smaller is nearer) and
  // whether it lies in front of the near plane.
  struct ScreenPt {
    float x = 0, y = 0, z = 0;
    bool front = false;
  };
  ScreenPt ProjectCamera(const Point3& cam) const;
  void ProjectMesh(const Mesh& mesh);
  bool Picking() const { return (limits_ & host::kGwPick) != 0; }
  // Rasterises; in pick mode tests the pixels against the region (returns a hit), else draws.
  bool Triangle(const ScreenPt& a, const ScreenPt& b, const ScreenPt& c, const Point3& ca,
                const Point3& cb, const Point3& cc, bool abortOnHit);
  bool Line(Point3 camA, Point3 camB, const Point3& rgb, bool abortOnHit);
  bool LineScreen(const ScreenPt& a, const ScreenPt& b, const Point3& rgb, bool abortOnHit);
  void Plot(int x, int y, float z, const Point3& rgb, bool depthBias);
  bool InRegion(int x, int y) const;
  bool InRegionF(float x, float y) const;
  void LogHit(float z);
  // The region's pixel bounds; primitives are rasterised only there while picking.
  int rx0_ = 0, ry0_ = 0, rx1_ = -1, ry1_ = -1;

  int width_, height_;
  Image image_;
  std::vector<float> depth_;
  Camera camera_;
  Matrix3 objToWorld_, objToCamera_;
  uint32_t mode_ = host::kGwIllum | host::kGwZBuffer;
  uint32_t limits_ = host::kGwIllum | host::kGwZBuffer;
  Point3 line_{1, 1, 1};
  std::vector<host::DisplayMaterial> materials_{host::DisplayMaterial{}};
  Point3 selectionColor_{1.0f, 1.0f, 1.0f};
  Point3 freezeColor_{0.53f, 0.53f, 0.53f};
  host::HitRegion region_;
  bool hit_ = false;
  uint32_t hitDistance_ = UINT32_MAX;
  // Per-mesh scratch, reused so that drawing many small meshes allocates nothing once warm.
  std::vector<ScreenPt> screen_;
  std::vector<Point3> camPts_, vertNormals_;
};

// Writes the picture as an 8-bit RGB PNG. False with `error` set on failure.
bool WritePng(const Image& image, const std::string& path, std::string& error);
// Reads an 8-bit RGB or RGBA PNG (alpha dropped). False with `error` set on failure.
bool ReadPng(const std::string& path, Image& image, std::string& error);

}  // namespace kv::standalone

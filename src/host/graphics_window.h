// The viewport's graphics window as the core draws into it and hit-tests against it: a
// transform, render limits, colours and materials, polylines, markers and meshes, and in pick
// mode the same primitives tested against a hit region instead of drawn. A host maps this onto
// its own window; the standalone host rasterises it in software.
#pragma once

#include <cmath>
#include <cstdint>
#include <span>
#include <vector>

#include "geom/matrix3.h"
#include "geom/mesh.h"
#include "geom/point.h"

namespace kv::host {

class Node;

// Render limits. The bit values are the host's own, so a binding passes them through.
inline constexpr uint32_t kGwWireframe = 0x00000001;
inline constexpr uint32_t kGwIllum = 0x00000002;
inline constexpr uint32_t kGwFlat = 0x00000004;
inline constexpr uint32_t kGwSpecular = 0x00000008;
inline constexpr uint32_t kGwTexture = 0x00000010;
inline constexpr uint32_t kGwZBuffer = 0x00000020;
inline constexpr uint32_t kGwPerspCorrect = 0x00000040;
inline constexpr uint32_t kGwPolyEdges = 0x00000080;
inline constexpr uint32_t kGwBackCull = 0x00000100;
inline constexpr uint32_t kGwTwoSided = 0x00000200;
inline constexpr uint32_t kGwPick = 0x00001000;
inline constexpr uint32_t kGwBoxMode = 0x00002000;
inline constexpr uint32_t kGwAllEdges = 0x00004000;
inline constexpr uint32_t kGwEdgesOnly = 0x00200000;
inline constexpr uint32_t kGwHiddenLine = 0x00800000;

// Hit-test flags a viewport passes to an object.
inline constexpr int kHitSelOnly = 1 << 0;    // only what is selected
inline constexpr int kHitUnselOnly = 1 << 2;  // only what is not selected
inline constexpr int kHitAbortOnHit = 1 << 3;

// Mesh component flags for RenderMesh (all of them: faces and edges as the limits say).
inline constexpr int kCompAll = 0x00FF;

enum class MarkerType { Point, HollowBox, Plus, Circle, Asterisk, X, Dot, SmallHollowBox };

enum class UIColor { Selection, Freeze };

// Integer pixel position, origin at the top left of the window.
struct IPoint2 {
  int x = 0, y = 0;
  constexpr bool operator==(const IPoint2&) const = default;
};

// A display material: ambient, diffuse and specular (each 0..1 per channel).
struct DisplayMaterial {
  Point3 ambient{0.5f, 0.5f, 0.5f};
  Point3 diffuse{0.5f, 0.5f, 0.5f};
  Point3 specular{0.5f, 0.5f, 0.5f};
  static DisplayMaterial Uniform(const Point3& c) { return {c, c, c}; }
};

// Where a hit test looks. A point region is the square of `epsilon` pixels around the point.
// A window (box, circle, fence) hits what lies wholly inside it, or with `crossing` what
// touches it.
struct HitRegion {
  enum class Type { Point, Box, Circle, Fence };
  Type type = Type::Point;
  bool crossing = true;
  int epsilon = 4;
  IPoint2 pt;                  // point; circle centre
  IPoint2 box0, box1;          // box corners, any order
  int radius = 0;              // circle
  std::vector<IPoint2> fence;  // closed polygon
};

// The region the host's hit test call describes. `points`: one point for Point, the two
// corners for Box, centre and a point on the rim for Circle, the polygon for Fence.
inline HitRegion MakeHitRegion(HitRegion::Type type, bool crossing, int epsilon,
                               std::span<const IPoint2> points) {
  HitRegion r;
  r.type = type;
  r.crossing = crossing;
  r.epsilon = epsilon;
  const IPoint2 a = points.empty() ? IPoint2{} : points[0];
  const IPoint2 b = points.size() > 1 ? points[1] : a;
  switch (type) {
    case HitRegion::Type::Point:
      r.pt = a;
      break;
    case HitRegion::Type::Box:
      r.box0 = a, r.box1 = b;
      break;
    case HitRegion::Type::Circle: {
      r.pt = a;
      const double dx = b.x - a.x, dy = b.y - a.y;
      r.radius = static_cast<int>(std::sqrt(dx * dx + dy * dy));
      break;
    }
    case HitRegion::Type::Fence:
      r.fence.assign(points.begin(), points.end());
      break;
  }
  return r;
}

// One logged hit: the node, how far the hit lies (smaller is nearer) and what was hit (an
// element index at the Elements level).
struct HitRecord {
  Node* node = nullptr;
  uint32_t distance = 0;
  uint32_t info = 0;
};

// The hits a sub-object hit test logs, in the order they were found.
class HitLog {
 public:
  void LogHit(Node* node, uint32_t distance, uint32_t info) {
    hits_.push_back({node, distance, info});
  }
  const std::vector<HitRecord>& Hits() const { return hits_; }
  void Clear() { hits_.clear(); }
  bool Empty() const { return hits_.empty(); }

 private:
  std::vector<HitRecord> hits_;
};

class GraphicsWindow {
 public:
  virtual ~GraphicsWindow() = default;

  // Object space to world: every primitive that follows is placed by it.
  virtual void SetTransform(const Matrix3& tm) = 0;
  virtual Matrix3 GetTransform() const = 0;

  // What the window may do: the viewport's mode masked by the object's limits. The window's
  // own mode (wireframe or shaded) is what it draws without limits.
  virtual uint32_t GetRndLimits() const = 0;
  virtual void SetRndLimits(uint32_t limits) = 0;
  // The window's display mode (kGwWireframe set for a wireframe viewport).
  virtual uint32_t GetRndMode() const = 0;

  // Colour of lines and markers; material of meshes.
  virtual void SetLineColor(const Point3& rgb) = 0;
  virtual void SetMaterial(const DisplayMaterial& m) = 0;
  // One material per material id (a face takes id modulo the count), as a multi-material
  // shows in a shaded viewport. Lines still take the line colour.
  virtual void SetMaterials(std::span<const DisplayMaterial> m) {
    if (!m.empty()) SetMaterial(m[0]);
  }

  // A polyline through `points` (closed back to the first when asked) in object space.
  virtual void Polyline(std::span<const Point3> points, bool closed) = 0;
  virtual void Marker(const Point3& p, MarkerType type) = 0;
  // Draws the mesh under the limits: shaded faces, visible edges in wireframe (every edge with
  // kGwAllEdges), hidden faces never. In pick mode it tests instead of drawing.
  virtual void RenderMesh(const Mesh& mesh, int compFlags) = 0;

  // Pick mode (kGwPick in the limits): primitives are tested against the hit region and set
  // the hit code with the nearest distance instead of drawing.
  virtual void SetHitRegion(const HitRegion& region) = 0;
  virtual void ClearHitCode() = 0;
  virtual bool CheckHitCode() const = 0;
  virtual uint32_t GetHitDistance() const = 0;
  // Tests a mesh against the hit region under the current limits; true on a hit. With
  // `abortOnHit` the test may stop at the first hit.
  virtual bool SelectMesh(const Mesh& mesh, bool abortOnHit) = 0;

  // The host's interface colours.
  virtual Point3 GetUIColor(UIColor which) const {
    return which == UIColor::Selection ? Point3{1.0f, 1.0f, 1.0f} : Point3{0.53f, 0.53f, 0.53f};
  }
};

}  // namespace kv::host

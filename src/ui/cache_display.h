// Viewport display, hit testing, bounding boxes and the sub-object levels of the cache
// object, written against the host's graphics window so that every host runs the same
// drawing code. One CacheDisplay serves one cache object; it keeps what only the display
// needs: the icon mesh and its size, the element transforms of the frame last shown and the
// current sub-object level.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "geom/bitarray.h"
#include "geom/box3.h"
#include "geom/matrix3.h"
#include "geom/mesh.h"
#include "geom/time.h"
#include "host/graphics_window.h"

namespace kv {
class kvCache_obj;
namespace host {
class Node;
}
}  // namespace kv

namespace kv::ui {

// Sub-object levels: 0 the object itself, 1 its elements, 2 its gizmo.
inline constexpr int kLevelObject = 0;
inline constexpr int kLevelElements = 1;
inline constexpr int kLevelGizmo = 2;

// The two sub-object types, "Elements" (type 0, level 1) and "Gizmo" (type 1, level 2).
inline constexpr int kNumSubObjTypes = 2;
std::string_view SubObjTypeName(int type);

// The command modes a level offers: the Elements level selects only; the Gizmo level moves,
// rotates and scales only.
enum class CommandMode { Select, Move, Rotate, NUScale, UScale, Squash };
std::vector<CommandMode> CommandModesAt(int level);

inline constexpr float kGizmoRadius = 40.0f;
inline constexpr int kGizmoSegments = 16;
inline constexpr int kHitPixels = 4;

// The gizmo's three circles (XY, YZ, ZX), each as kGizmoSegments segments, segment i from
// point i to point i + 1 of circle c at out[c * (kGizmoSegments + 1) + i].
std::vector<Point3> GizmoCirclePoints(float radius = kGizmoRadius);

class CacheDisplay {
 public:
  explicit CacheDisplay(kvCache_obj& obj) : obj_(obj) {}

  // Draws the object for `node` at t. Returns 0, as the host expects.
  int Display(TimeValue t, host::Node& node, host::GraphicsWindow& gw);
  // Object-level hit test (mesh, icon, markers); 1 on a hit. `points` as in MakeHitRegion.
  int HitTest(TimeValue t, host::Node& node, host::HitRegion::Type type, bool crossing, int flags,
              std::span<const host::IPoint2> points, host::GraphicsWindow& gw);
  // Elements-level hit test: logs one hit per element hit (the element index as info) and
  // returns 0; hits reach the caller through `log`.
  int HitTestElements(TimeValue t, host::Node& node, host::HitRegion::Type type, bool crossing,
                      int flags, std::span<const host::IPoint2> points, host::GraphicsWindow& gw,
                      host::HitLog& log);
  // Dispatches on the current level, as the host's single hit-test call does.
  int HitTestAtLevel(TimeValue t, host::Node& node, host::HitRegion::Type type, bool crossing,
                     int flags, std::span<const host::IPoint2> points, host::GraphicsWindow& gw,
                     host::HitLog& log);

  Box3 GetLocalBoundBox(TimeValue t, host::Node& node);
  Box3 GetWorldBoundBox(TimeValue t, host::Node& node);

  // ---- sub-object levels
  void ActivateSubobjSel(int level) { level_ = level; }
  int SubObjectLevel() const { return level_; }
  // The type of sub-object type index i, or of the current level for -1 (-1 at level 0).
  int GetSubObjType(int i) const;
  // The axis the host places its transform gizmo at (one axis, id 0).
  Matrix3 GetSubObjectTM(TimeValue t, host::Node& node);

  // ---- what the display keeps
  // The icon for the current iconSize, rebuilt only when the size changed.
  const Mesh& IconMesh();
  int IconBuilds() const { return iconBuilds_; }
  // Where the icon is drawn: the node's transform without its object offset.
  static Matrix3 IconTM(TimeValue t, const host::Node& node);
  // The element transforms of the frame last evaluated (scaled by the unit scale), and which
  // elements that frame shows.
  const std::vector<Matrix3>& ElementTransforms() const { return elementTms_; }
  const BitArray& ElementsShown() const { return shown_; }
  // Evaluates the object at t and refreshes the element transforms.
  void UpdateMesh(TimeValue t);

 private:
  host::DisplayMaterial WireMaterial(const host::Node& node, host::GraphicsWindow& gw) const;
  void DrawGizmo(TimeValue t, host::Node& node, host::GraphicsWindow& gw);
  void DrawElements(TimeValue t, host::Node& node, host::GraphicsWindow& gw);
  bool MarkersShown() const;
  // The mesh element e is drawn and hit with (its box in box mode), or null when the frame
  // does not show it.
  const Mesh* ElementMesh(int e) const;

  kvCache_obj& obj_;
  int level_ = kLevelObject;
  Mesh icon_;
  float iconSize_ = 0.0f;
  bool iconBuilt_ = false;
  int iconBuilds_ = 0;
  std::vector<Matrix3> elementTms_;
  BitArray shown_;
  bool boxMode_ = false;
};

}  // namespace kv::ui

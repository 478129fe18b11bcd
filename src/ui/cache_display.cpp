#include "ui/cache_display.h"

#include <cmath>
#include <numbers>

#include "cache/reader.h"
#include "host/controller.h"
#include "host/scene.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "ui/icon_mesh.h"

namespace kv::ui {
namespace P = param;
using host::GraphicsWindow;
using host::HitRegion;

namespace {

Point3 ColorFromBgr(uint32_t bgr) {
  return {static_cast<float>(bgr & 0xFF) / 255.0f, static_cast<float>((bgr >> 8) & 0xFF) / 255.0f,
          static_cast<float>((bgr >> 16) & 0xFF) / 255.0f};
}

Box3 TransformBox(const Box3& b, const Matrix3& tm) {
  Box3 out;
  if (b.IsEmpty()) return out;
  for (int i = 0; i < 8; ++i) out += b.Corner(i) * tm;
  return out;
}

// Pick limits: a wireframe override picks edges; otherwise whatever the viewport shows,
// without lighting.
uint32_t PickLimits(uint32_t limits, bool wireOverride) {
  if (!(limits & host::kGwWireframe) && wireOverride) {
    return (limits & (host::kGwHiddenLine | host::kGwZBuffer)) | host::kGwEdgesOnly |
           host::kGwPick | host::kGwWireframe;
  }
  return (limits & ~host::kGwIllum) | host::kGwPick;
}

// Puts the remembered limits back however the routine leaves.
class LimitsGuard {
 public:
  explicit LimitsGuard(GraphicsWindow& gw) : gw_(gw), saved_(gw.GetRndLimits()) {}
  ~LimitsGuard() { gw_.SetRndLimits(saved_); }
  LimitsGuard(const LimitsGuard&) = delete;
  LimitsGuard& operator=(const LimitsGuard&) = delete;
  uint32_t Saved() const { return saved_; }

 private:
  GraphicsWindow& gw_;
  uint32_t saved_;
};

}  // namespace

std::string_view SubObjTypeName(int type) {
  switch (type) {
    case 0:
      return "Elements";
    case 1:
      return "Gizmo";
    default:
      return {};
  }
}

std::vector<CommandMode> CommandModesAt(int level) {
  if (level == kLevelElements) return {CommandMode::Select};
  if (level == kLevelGizmo) {
    return {CommandMode::Move, CommandMode::Rotate, CommandMode::NUScale, CommandMode::UScale,
            CommandMode::Squash};
  }
  return {};
}

std::vector<Point3> GizmoCirclePoints(float r) {
  std::vector<Point3> out;
  out.reserve(3 * (kGizmoSegments + 1));
  const float step = 2.0f * std::numbers::pi_v<float> / kGizmoSegments;
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i <= kGizmoSegments; ++i) {
      const float a = step * static_cast<float>(i);
      const float ca = r * std::cos(a), sa = r * std::sin(a);
      if (c == 0) out.push_back({ca, sa, 0.0f});
      if (c == 1) out.push_back({0.0f, ca, sa});
      if (c == 2) out.push_back({sa, 0.0f, ca});
    }
  }
  return out;
}

// ---------------------------------------------------------------------------------------------
// what the display keeps

const Mesh& CacheDisplay::IconMesh() {
  const float size = obj_.Params().GetFloat(P::kIconSize);
  if (!iconBuilt_ || size != iconSize_) {
    BuildIconMesh(size, icon_);
    iconSize_ = size;
    iconBuilt_ = true;
    ++iconBuilds_;
  }
  return icon_;
}

Matrix3 CacheDisplay::IconTM(TimeValue t, const host::Node& node) {
  return Inverse(node.GetObjOffsetTM()) * node.GetObjectTM(t);
}

void CacheDisplay::UpdateMesh(TimeValue t) {
  obj_.BuildMesh(t);
  const KelvaneTools::kvCacheReader* reader = obj_.Reader();
  const PlaybackState& st = obj_.Playback();
  const int n = reader && reader->HasIndex() && !reader->InError() ? reader->NumElements() : 0;
  if (n == 0 || st.frame.size() != static_cast<size_t>(n) || !st.validity.InInterval(t)) {
    elementTms_.clear();
    shown_.SetSize(0);
    return;
  }
  const KelvaneTools::FrameSettings& s = st.settings;
  boxMode_ = s.boxMode;
  elementTms_.resize(static_cast<size_t>(n));
  shown_.SetSize(n, false);
  for (int e = 0; e < n; ++e) {
    const KelvaneTools::ElementFrameState& r = st.frame[static_cast<size_t>(e)];
    Matrix3 m = reader->ElementTransform(e, r);
    if (s.unitScale != 1.0f) m = m * s.unitScale;
    elementTms_[static_cast<size_t>(e)] = m;
    const bool invisible = !reader->SampleVisible(e, r.sampleA);
    shown_.Set(e, !(r.removed || !r.shown || (s.deleteInvisible && invisible)));
  }
}

const Mesh* CacheDisplay::ElementMesh(int e) const {
  const KelvaneTools::kvCacheReader* reader = obj_.Reader();
  if (!reader || e >= shown_.GetSize() || !shown_[e]) return nullptr;
  return boxMode_ ? &reader->ElementBoxMesh(e) : &reader->ElementMesh(e);
}

bool CacheDisplay::MarkersShown() const {
  const ParamBlock& pb = obj_.Params();
  return pb.GetBool(P::kVpShowMarkers) && !pb.GetBool(P::kVpDeleteObjects);
}

host::DisplayMaterial CacheDisplay::WireMaterial(const host::Node& node, GraphicsWindow& gw) const {
  Point3 c;
  if (node.IsFrozen() || level_ != kLevelObject) {
    c = gw.GetUIColor(host::UIColor::Freeze);
  } else if (node.Selected()) {
    c = gw.GetUIColor(host::UIColor::Selection);
  } else {
    c = ColorFromBgr(node.GetWireColor());
  }
  return host::DisplayMaterial::Uniform(c);
}

// ---------------------------------------------------------------------------------------------
// drawing

int CacheDisplay::Display(TimeValue t, host::Node& node, GraphicsWindow& gw) {
  const ParamBlock& pb = obj_.Params();
  LimitsGuard guard(gw);
  const uint32_t limits = guard.Saved();
  const bool wireOverride = !(limits & host::kGwWireframe) && pb.GetBool(P::kVpWireframe);
  const uint32_t wireLimits =
      (limits & (host::kGwHiddenLine | host::kGwZBuffer)) | host::kGwEdgesOnly | host::kGwWireframe;
  const bool markers = MarkersShown();
  const bool showCache = pb.GetBool(P::kVpDisplayCache);
  const bool showIcon = pb.GetBool(P::kVpDisplayIcon);
  const Matrix3 objTm = node.GetObjectTM(t);

  gw.SetTransform(objTm);
  if (wireOverride) gw.SetRndLimits(wireLimits);
  // In wireframe the wire colour; shaded, the node's own material (a multi-material's
  // sub-materials by material id), or the wire colour when it has none.
  std::vector<host::DisplayMaterial> mtls;
  if ((limits & host::kGwWireframe) || wireOverride) {
    mtls.push_back(WireMaterial(node, gw));
    gw.SetLineColor(mtls[0].diffuse);
  } else if (const host::Mtl* m = node.GetMtl()) {
    for (int i = 0; i < m->NumSubMtls(); ++i) {
      const host::Mtl* sub = m->GetSubMtl(i);
      mtls.push_back(
          host::DisplayMaterial::Uniform(sub ? sub->GetDisplayColor() : m->GetDisplayColor()));
    }
    if (mtls.empty()) mtls.push_back(host::DisplayMaterial::Uniform(m->GetDisplayColor()));
  } else {
    mtls.push_back(host::DisplayMaterial::Uniform(ColorFromBgr(node.GetWireColor())));
  }

  if (showCache) {
    UpdateMesh(t);
    if (obj_.MeshValid()) {
      gw.SetMaterials(mtls);
      gw.RenderMesh(obj_.GetMesh(), host::kCompAll);
    }
  }

  if (level_ == kLevelGizmo) DrawGizmo(t, node, gw);

  if (level_ == kLevelObject && (showIcon || (showCache && markers))) {
    const host::DisplayMaterial wire = WireMaterial(node, gw);
    gw.SetLineColor(wire.diffuse);
    gw.SetMaterial(wire);
    gw.SetRndLimits(host::kGwEdgesOnly | host::kGwWireframe);
    if (!elementTms_.empty() && showCache && markers) {
      gw.SetTransform(objTm);
      for (size_t e = 0; e < elementTms_.size(); ++e) {
        if (shown_[static_cast<int>(e)]) gw.Marker(elementTms_[e].GetTrans(), host::MarkerType::X);
      }
    }
    if (showIcon) {
      const Mesh& icon = IconMesh();
      gw.SetTransform(IconTM(t, node));
      gw.RenderMesh(icon, host::kCompAll);
    }
  }

  if (level_ == kLevelElements) DrawElements(t, node, gw);
  return 0;
}

void CacheDisplay::DrawGizmo(TimeValue t, host::Node& node, GraphicsWindow& gw) {
  const uint32_t limits = gw.GetRndLimits();
  gw.SetRndLimits((limits & (host::kGwHiddenLine | host::kGwZBuffer)) | host::kGwEdgesOnly |
                  host::kGwWireframe);
  host::Control* g = obj_.Gizmo();
  const Matrix3 gizmo = g ? g->GetMatrix(t) : Matrix3();
  gw.SetTransform(gizmo * node.GetObjectTM(t));
  gw.SetLineColor(gw.GetUIColor(host::UIColor::Selection));
  const std::vector<Point3> pts = GizmoCirclePoints();
  for (int c = 0; c < 3; ++c) {
    for (int i = 0; i < kGizmoSegments; ++i) {
      const size_t k = static_cast<size_t>(c * (kGizmoSegments + 1) + i);
      const Point3 seg[2] = {pts[k], pts[k + 1]};
      gw.Polyline(seg, false);
    }
  }
}

void CacheDisplay::DrawElements(TimeValue t, host::Node& node, GraphicsWindow& gw) {
  const KelvaneTools::kvCacheReader* reader = obj_.Reader();
  if (!reader || reader->NumElements() == 0) return;
  if (elementTms_.size() != static_cast<size_t>(reader->NumElements())) UpdateMesh(t);
  const Matrix3 objTm = node.GetObjectTM(t);
  const std::set<uint32_t>& sel = obj_.Selection();
  const auto pass = [&](bool selected, const Point3& colour) {
    gw.SetLineColor(colour);
    gw.SetMaterial(host::DisplayMaterial::Uniform(colour));
    for (size_t e = 0; e < elementTms_.size(); ++e) {
      if (sel.contains(static_cast<uint32_t>(e)) != selected) continue;
      const Mesh* m = ElementMesh(static_cast<int>(e));
      if (!m) continue;
      gw.SetTransform(elementTms_[e] * objTm);
      gw.RenderMesh(*m, host::kCompAll);
    }
  };
  pass(true, gw.GetUIColor(host::UIColor::Selection));
  pass(false, ColorFromBgr(node.GetWireColor()));
}

// ---------------------------------------------------------------------------------------------
// hit testing

int CacheDisplay::HitTest(TimeValue t, host::Node& node, HitRegion::Type type, bool crossing,
                          int flags, std::span<const host::IPoint2> points, GraphicsWindow& gw) {
  const ParamBlock& pb = obj_.Params();
  gw.SetHitRegion(host::MakeHitRegion(type, crossing, kHitPixels, points));
  LimitsGuard guard(gw);
  gw.SetRndLimits(PickLimits(guard.Saved(), pb.GetBool(P::kVpWireframe)));
  const Matrix3 objTm = node.GetObjectTM(t);
  gw.SetTransform(objTm);
  gw.ClearHitCode();
  const bool abort = (flags & host::kHitAbortOnHit) != 0;

  if (pb.GetBool(P::kVpDisplayCache)) {
    UpdateMesh(t);
    if (obj_.MeshValid() && gw.SelectMesh(obj_.GetMesh(), abort)) return 1;
  }

  gw.SetRndLimits(host::kGwEdgesOnly | host::kGwPick | host::kGwWireframe);
  if (pb.GetBool(P::kVpDisplayIcon)) {
    const Mesh& icon = IconMesh();
    gw.SetTransform(IconTM(t, node));
    if (gw.SelectMesh(icon, abort)) return 1;
  }

  // Markers take no part in window selection.
  if (type != HitRegion::Type::Point && !crossing) return 0;

  if (!elementTms_.empty() && pb.GetBool(P::kVpShowMarkers) && !pb.GetBool(P::kVpDeleteObjects)) {
    gw.SetTransform(objTm);
    for (size_t e = 0; e < elementTms_.size(); ++e) {
      if (shown_[static_cast<int>(e)]) gw.Marker(elementTms_[e].GetTrans(), host::MarkerType::X);
    }
    return gw.CheckHitCode() ? 1 : 0;
  }
  return 0;
}

int CacheDisplay::HitTestElements(TimeValue t, host::Node& node, HitRegion::Type type,
                                  bool crossing, int flags, std::span<const host::IPoint2> points,
                                  GraphicsWindow& gw, host::HitLog& log) {
  gw.SetHitRegion(host::MakeHitRegion(type, crossing, kHitPixels, points));
  LimitsGuard guard(gw);
  gw.SetRndLimits(PickLimits(guard.Saved(), obj_.Params().GetBool(P::kVpWireframe)));
  const Matrix3 objTm = node.GetObjectTM(t);
  gw.SetTransform(objTm);

  const KelvaneTools::kvCacheReader* reader = obj_.Reader();
  if (!reader || reader->NumElements() == 0) return 0;
  UpdateMesh(t);
  const std::set<uint32_t>& sel = obj_.Selection();
  const bool abort = (flags & host::kHitAbortOnHit) != 0;
  gw.ClearHitCode();
  for (size_t e = 0; e < elementTms_.size(); ++e) {
    const bool selected = sel.contains(static_cast<uint32_t>(e));
    if ((flags & host::kHitSelOnly) && !selected) continue;
    if ((flags & host::kHitUnselOnly) && selected) continue;
    const Mesh* m = ElementMesh(static_cast<int>(e));
    if (!m) continue;
    gw.SetTransform(elementTms_[e] * objTm);
    if (gw.SelectMesh(*m, abort)) {
      log.LogHit(&node, gw.GetHitDistance(), static_cast<uint32_t>(e));
      gw.ClearHitCode();
    }
  }
  return 0;
}

int CacheDisplay::HitTestAtLevel(TimeValue t, host::Node& node, HitRegion::Type type, bool crossing,
                                 int flags, std::span<const host::IPoint2> points,
                                 GraphicsWindow& gw, host::HitLog& log) {
  if (level_ == kLevelElements) {
    return HitTestElements(t, node, type, crossing, flags, points, gw, log);
  }
  return HitTest(t, node, type, crossing, flags, points, gw);
}

// ---------------------------------------------------------------------------------------------
// bounding boxes and axes

Box3 CacheDisplay::GetLocalBoundBox(TimeValue t, host::Node& node) {
  const ParamBlock& pb = obj_.Params();
  UpdateMesh(t);
  Box3 box;
  if (pb.GetBool(P::kVpDisplayIcon)) {
    box = TransformBox(IconMesh().getBoundingBox(), Inverse(node.GetObjOffsetTM()));
  }
  const Mesh& mesh = obj_.GetMesh();
  if (obj_.MeshValid() && mesh.numVerts() > 0 && pb.GetBool(P::kVpDisplayCache)) {
    box += mesh.getBoundingBox();
  }
  return box;
}

Box3 CacheDisplay::GetWorldBoundBox(TimeValue t, host::Node& node) {
  const Box3 local = GetLocalBoundBox(t, node);
  if (local.IsEmpty()) return local;
  return TransformBox(local, node.GetObjectTM(t));
}

int CacheDisplay::GetSubObjType(int i) const {
  if (i == -1) return level_ == kLevelObject ? -1 : level_ - 1;
  return i >= 0 && i < kNumSubObjTypes ? i : -1;
}

Matrix3 CacheDisplay::GetSubObjectTM(TimeValue t, host::Node& node) {
  Matrix3 tm = node.GetObjectTM(t);
  if (level_ == kLevelGizmo) {
    host::Control* g = obj_.Gizmo();
    return (g ? g->GetMatrix(t) : Matrix3()) * tm;
  }
  if (level_ != kLevelElements) return tm;
  UpdateMesh(t);
  Point3 sum;
  int count = 0;
  for (uint32_t e : obj_.Selection()) {
    const Mesh* m = ElementMesh(static_cast<int>(e));
    if (!m || m->numVerts() == 0) continue;
    Box3 b;
    const Matrix3& etm = elementTms_[e];
    for (const Point3& p : m->verts) b += p * etm;
    sum += b.Center() * tm;
    ++count;
  }
  if (count > 0) tm.SetTrans(sum / static_cast<float>(count));
  return tm;
}

}  // namespace kv::ui

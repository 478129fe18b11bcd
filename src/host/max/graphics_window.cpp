#include "host/max/graphics_window.h"

#include "host/max/mesh_convert.h"

namespace kv::max {

namespace {

::Material ToMax(const host::DisplayMaterial& d) {
  ::Material m;
  m.Ka = max::ToMax(d.ambient);
  m.Kd = max::ToMax(d.diffuse);
  m.Ks = max::ToMax(d.specular);
  return m;
}

MarkerType ToMax(host::MarkerType t) {
  switch (t) {
    case host::MarkerType::Point:
      return POINT_MRKR;
    case host::MarkerType::HollowBox:
      return HOLLOW_BOX_MRKR;
    case host::MarkerType::Plus:
      return PLUS_SIGN_MRKR;
    case host::MarkerType::Circle:
      return CIRCLE_MRKR;
    case host::MarkerType::Asterisk:
      return ASTERISK_MRKR;
    case host::MarkerType::X:
      return X_MRKR;
    case host::MarkerType::Dot:
      return DOT_MRKR;
    case host::MarkerType::SmallHollowBox:
      return SM_HOLLOW_BOX_MRKR;
  }
  return POINT_MRKR;
}

}  // namespace

void MaxGraphicsWindow::SetMaterial(const host::DisplayMaterial& m) {
  materials_.assign(1, ToMax(m));
  gw_->setMaterial(materials_[0]);
}

void MaxGraphicsWindow::SetMaterials(std::span<const host::DisplayMaterial> m) {
  if (m.empty()) return;
  materials_.clear();
  for (const host::DisplayMaterial& d : m) materials_.push_back(ToMax(d));
  gw_->setMaterial(materials_[0]);
}

void MaxGraphicsWindow::Polyline(std::span<const kv::Point3> points, bool closed) {
  points_.clear();
  for (const kv::Point3& p : points) points_.push_back(max::ToMax(p));
  // The window reads one point past the last of a closed line.
  if (closed && !points_.empty()) points_.push_back(points_.front());
  if (points.empty()) return;
  gw_->polyline(static_cast<int>(points.size()), points_.data(), nullptr, closed ? TRUE : FALSE,
                nullptr);
}

void MaxGraphicsWindow::Marker(const kv::Point3& p, host::MarkerType type) {
  ::Point3 q = max::ToMax(p);
  gw_->marker(&q, ToMax(type));
}

::Mesh& MaxGraphicsWindow::Converted(const kv::Mesh& mesh) {
  max::ToMax(mesh, converted_);
  return converted_;
}

void MaxGraphicsWindow::RenderMesh(const kv::Mesh& mesh, int compFlags) {
  if (materials_.empty()) materials_.emplace_back();
  Converted(mesh).render(gw_, materials_.data(), nullptr, compFlags,
                         static_cast<int>(materials_.size()));
}

void MaxGraphicsWindow::SetHitRegion(const host::HitRegion& r) {
  region_ = ::HitRegion{};
  region_.crossing = r.crossing ? TRUE : FALSE;
  region_.epsilon = r.epsilon;
  switch (r.type) {
    case host::HitRegion::Type::Point:
      region_.type = POINT_RGN;
      region_.pt = POINT{r.pt.x, r.pt.y};
      break;
    case host::HitRegion::Type::Box:
      region_.type = RECT_RGN;
      region_.rect = RECT{std::min(r.box0.x, r.box1.x), std::min(r.box0.y, r.box1.y),
                          std::max(r.box0.x, r.box1.x), std::max(r.box0.y, r.box1.y)};
      break;
    case host::HitRegion::Type::Circle:
      region_.type = CIRCLE_RGN;
      region_.circle = CIRCLE{r.pt.x, r.pt.y, r.radius};
      break;
    case host::HitRegion::Type::Fence:
      region_.type = FENCE_RGN;
      fence_.clear();
      for (const host::IPoint2& p : r.fence) fence_.push_back(POINT{p.x, p.y});
      // The fence ends with a point of x = -1.
      fence_.push_back(POINT{-1, -1});
      region_.pts = fence_.data();
      break;
  }
  gw_->setHitRegion(&region_);
}

bool MaxGraphicsWindow::SelectMesh(const kv::Mesh& mesh, bool abortOnHit) {
  if (materials_.empty()) materials_.emplace_back();
  return Converted(mesh).select(gw_, materials_.data(), &region_, abortOnHit ? TRUE : FALSE,
                                static_cast<int>(materials_.size())) != FALSE;
}

}  // namespace kv::max

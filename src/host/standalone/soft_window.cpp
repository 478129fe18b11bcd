#include "host/standalone/soft_window.h"

#include <spng.h>
#include <stb/stb_easy_font.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

namespace kv::standalone {
namespace {

constexpr float kMargin = 1.08f;  // framing leaves a little room around the box

Point3 Clamp01(const Point3& c) {
  return {std::clamp(c.x, 0.0f, 1.0f), std::clamp(c.y, 0.0f, 1.0f), std::clamp(c.z, 0.0f, 1.0f)};
}

uint8_t ToByte(float v) {
  return static_cast<uint8_t>(std::lround(std::clamp(v, 0.0f, 1.0f) * 255.0f));
}

// Camera-to-world for a view: right, up and back (towards the viewer) axes.
Matrix3 ViewAxes(ViewKind view) {
  Point3 right, up, back;
  switch (view) {
    case ViewKind::Top:
      right = {1, 0, 0}, up = {0, 1, 0}, back = {0, 0, 1};
      break;
    case ViewKind::Front:
      right = {1, 0, 0}, up = {0, 0, 1}, back = {0, -1, 0};
      break;
    case ViewKind::Left:
      right = {0, -1, 0}, up = {0, 0, 1}, back = {-1, 0, 0};
      break;
    case ViewKind::Persp:
      back = Point3{0.62f, -0.78f, 0.55f}.Normalized();
      right = CrossProd(Point3{0, 0, 1}, back).Normalized();
      up = CrossProd(back, right);
      break;
  }
  return Matrix3(right, up, back, {});
}

float EdgeFn(float ax, float ay, float bx, float by, float px, float py) {
  return (bx - ax) * (py - ay) - (by - ay) * (px - ax);
}

}  // namespace

Camera FrameBox(const Box3& boxIn, ViewKind view, int width, int height) {
  const Box3 box = boxIn.IsEmpty() ? Box3({-50, -50, -50}, {50, 50, 50}) : boxIn;
  const Matrix3 axes = ViewAxes(view);
  const Point3 centre = box.Center();
  const float aspect = static_cast<float>(width) / static_cast<float>(std::max(height, 1));
  float radius = std::max(box.Width().Length() * 0.5f, 1e-3f);
  Camera c;
  c.perspective = view == ViewKind::Persp;
  float distance;
  if (c.perspective) {
    // Far enough back that every corner lies inside both half-angles of the view.
    const float ty = std::tan(c.fovY / 2), tx = ty * aspect;
    distance = 0;
    for (int i = 0; i < 8; ++i) {
      const Point3 d = box.Corner(i) - centre;
      const float z = DotProd(d, axes.GetRow(2));
      distance = std::max({distance, z + std::fabs(DotProd(d, axes.GetRow(0))) * kMargin / tx,
                           z + std::fabs(DotProd(d, axes.GetRow(1))) * kMargin / ty});
    }
    distance = std::max(distance, radius * 1.01f);
  } else {
    // Extents of the box across the picture, in the view's own axes.
    float ex = 0, ey = 0;
    for (int i = 0; i < 8; ++i) {
      const Point3 d = box.Corner(i) - centre;
      ex = std::max(ex, std::fabs(DotProd(d, axes.GetRow(0))));
      ey = std::max(ey, std::fabs(DotProd(d, axes.GetRow(1))));
    }
    c.orthoHeight = std::max({2 * ey, 2 * ex / aspect, 1e-3f}) * kMargin;
    distance = radius * 2.0f + 1.0f;
  }
  Matrix3 camToWorld = axes;
  camToWorld.SetTrans(centre + axes.GetRow(2) * distance);
  c.worldToCamera = Inverse(camToWorld);
  c.nearClip = std::max(distance * 1e-4f, 1e-4f);
  return c;
}

SoftWindow::SoftWindow(int width, int height)
    : width_(std::max(width, 1)), height_(std::max(height, 1)) {
  image_.width = width_;
  image_.height = height_;
  image_.rgb.assign(static_cast<size_t>(width_) * height_ * 3, 0);
  depth_.assign(static_cast<size_t>(width_) * height_, INFINITY);
  SetTransform(Matrix3());
}

void SoftWindow::SetUIColor(host::UIColor which, const Point3& c) {
  (which == host::UIColor::Selection ? selectionColor_ : freezeColor_) = c;
}

Point3 SoftWindow::GetUIColor(host::UIColor which) const {
  return which == host::UIColor::Selection ? selectionColor_ : freezeColor_;
}

void SoftWindow::SetMaterials(std::span<const host::DisplayMaterial> m) {
  if (m.empty()) return;
  materials_.assign(m.begin(), m.end());
}

void SoftWindow::Clear(const Point3& bg) {
  for (size_t i = 0; i < image_.rgb.size(); i += 3) {
    image_.rgb[i] = ToByte(bg.x), image_.rgb[i + 1] = ToByte(bg.y),
    image_.rgb[i + 2] = ToByte(bg.z);
  }
  std::fill(depth_.begin(), depth_.end(), INFINITY);
}

void SoftWindow::SetTransform(const Matrix3& tm) {
  objToWorld_ = tm;
  objToCamera_ = tm * camera_.worldToCamera;
}

SoftWindow::ScreenPt SoftWindow::ProjectCamera(const Point3& p) const {
  ScreenPt s;
  const float d = -p.z;
  s.front = d > camera_.nearClip;
  const float hw = 0.5f * static_cast<float>(width_), hh = 0.5f * static_cast<float>(height_);
  if (camera_.perspective) {
    const float f = hh / std::tan(camera_.fovY / 2);
    const float dd = s.front ? d : camera_.nearClip;
    s.x = hw + p.x / dd * f;
    s.y = hh - p.y / dd * f;
    s.z = -1.0f / dd;  // affine in screen space, so it interpolates exactly
  } else {
    const float k = static_cast<float>(height_) / camera_.orthoHeight;
    s.x = hw + p.x * k;
    s.y = hh - p.y * k;
    s.z = d;
  }
  return s;
}

bool SoftWindow::ProjectWorld(const Point3& world, float& x, float& y) const {
  const ScreenPt s = ProjectCamera(world * camera_.worldToCamera);
  x = s.x, y = s.y;
  return s.front;
}

// ---------------------------------------------------------------------------------------------
// hit regions

void SoftWindow::SetHitRegion(const host::HitRegion& r) {
  region_ = r;
  switch (r.type) {
    case host::HitRegion::Type::Point:
      rx0_ = r.pt.x - r.epsilon, rx1_ = r.pt.x + r.epsilon;
      ry0_ = r.pt.y - r.epsilon, ry1_ = r.pt.y + r.epsilon;
      break;
    case host::HitRegion::Type::Box:
      rx0_ = std::min(r.box0.x, r.box1.x), rx1_ = std::max(r.box0.x, r.box1.x);
      ry0_ = std::min(r.box0.y, r.box1.y), ry1_ = std::max(r.box0.y, r.box1.y);
      break;
    case host::HitRegion::Type::Circle:
      rx0_ = r.pt.x - r.radius, rx1_ = r.pt.x + r.radius;
      ry0_ = r.pt.y - r.radius, ry1_ = r.pt.y + r.radius;
      break;
    case host::HitRegion::Type::Fence:
      rx0_ = ry0_ = INT32_MAX, rx1_ = ry1_ = INT32_MIN;
      for (const host::IPoint2& p : r.fence) {
        rx0_ = std::min(rx0_, p.x), rx1_ = std::max(rx1_, p.x);
        ry0_ = std::min(ry0_, p.y), ry1_ = std::max(ry1_, p.y);
      }
      break;
  }
}

bool SoftWindow::InRegion(int x, int y) const {
  if (x < rx0_ || x > rx1_ || y < ry0_ || y > ry1_) return false;
  switch (region_.type) {
    case host::HitRegion::Type::Point:
    case host::HitRegion::Type::Box:
      return true;
    case host::HitRegion::Type::Circle: {
      const int64_t dx = x - region_.pt.x, dy = y - region_.pt.y;
      return dx * dx + dy * dy <= int64_t{region_.radius} * region_.radius;
    }
    case host::HitRegion::Type::Fence: {
      bool in = false;
      const auto& f = region_.fence;
      const float px = static_cast<float>(x) + 0.5f, py = static_cast<float>(y) + 0.5f;
      for (size_t i = 0, j = f.size() - 1; i < f.size(); j = i++) {
        const float xi = static_cast<float>(f[i].x), yi = static_cast<float>(f[i].y);
        const float xj = static_cast<float>(f[j].x), yj = static_cast<float>(f[j].y);
        if ((yi > py) != (yj > py) && px < (xj - xi) * (py - yi) / (yj - yi) + xi) in = !in;
      }
      return in;
    }
  }
  return false;
}

bool SoftWindow::InRegionF(float x, float y) const {
  if (!(std::fabs(x) < 1e9f && std::fabs(y) < 1e9f)) return false;
  return InRegion(static_cast<int>(std::floor(x)), static_cast<int>(std::floor(y)));
}

void SoftWindow::LogHit(float z) {
  const float d = camera_.perspective ? -1.0f / z : z;
  const double scaled = std::clamp(static_cast<double>(d) * 1000.0, 0.0, 4.0e9);
  hit_ = true;
  hitDistance_ = std::min(hitDistance_, static_cast<uint32_t>(scaled));
}

// ---------------------------------------------------------------------------------------------
// rasterising

void SoftWindow::Plot(int x, int y, float z, const Point3& rgb, bool lineDepth) {
  if (x < 0 || y < 0 || x >= width_ || y >= height_) return;
  float& d = depth_[static_cast<size_t>(y) * width_ + x];
  if (lineDepth) {
    // Lines lie on the surfaces they outline: let them win ties against those surfaces.
    if ((limits_ & host::kGwZBuffer) && z > d + 2e-3f * std::fabs(d) + 1e-5f) return;
  } else {
    if (z >= d) return;
    d = z;
  }
  uint8_t* p = image_.rgb.data() + (static_cast<size_t>(y) * width_ + x) * 3;
  p[0] = ToByte(rgb.x), p[1] = ToByte(rgb.y), p[2] = ToByte(rgb.z);
}

bool SoftWindow::Triangle(const ScreenPt& a, const ScreenPt& b, const ScreenPt& c, const Point3& ca,
                          const Point3& cb, const Point3& cc, bool abortOnHit) {
  if (!a.front || !b.front || !c.front) return false;
  const float area = EdgeFn(a.x, a.y, b.x, b.y, c.x, c.y);
  const bool pick = Picking();
  if (pick) {
    // A triangle smaller than a pixel covers no pixel centre: its corners still count.
    for (const ScreenPt* p : {&a, &b, &c}) {
      if (InRegionF(p->x, p->y)) {
        LogHit(p->z);
        if (abortOnHit) return true;
      }
    }
  }
  if (std::fabs(area) < 1e-12f) return hit_;
  int x0 = static_cast<int>(std::floor(std::min({a.x, b.x, c.x})));
  int x1 = static_cast<int>(std::ceil(std::max({a.x, b.x, c.x})));
  int y0 = static_cast<int>(std::floor(std::min({a.y, b.y, c.y})));
  int y1 = static_cast<int>(std::ceil(std::max({a.y, b.y, c.y})));
  if (pick) {
    x0 = std::max(x0, rx0_), x1 = std::min(x1, rx1_), y0 = std::max(y0, ry0_),
    y1 = std::min(y1, ry1_);
  } else {
    x0 = std::max(x0, 0), x1 = std::min(x1, width_ - 1), y0 = std::max(y0, 0);
    y1 = std::min(y1, height_ - 1);
  }
  const float inv = 1.0f / area;
  for (int y = y0; y <= y1; ++y) {
    const float py = static_cast<float>(y) + 0.5f;
    for (int x = x0; x <= x1; ++x) {
      const float px = static_cast<float>(x) + 0.5f;
      const float w0 = EdgeFn(b.x, b.y, c.x, c.y, px, py) * inv;
      const float w1 = EdgeFn(c.x, c.y, a.x, a.y, px, py) * inv;
      const float w2 = 1.0f - w0 - w1;
      if (w0 < 0 || w1 < 0 || w2 < 0) continue;
      const float z = w0 * a.z + w1 * b.z + w2 * c.z;
      if (pick) {
        if (!InRegion(x, y)) continue;
        LogHit(z);
        if (abortOnHit) return true;
        continue;
      }
      Plot(x, y, z, ca * w0 + cb * w1 + cc * w2, false);
    }
  }
  return pick && hit_;
}

bool SoftWindow::LineScreen(const ScreenPt& a, const ScreenPt& b, const Point3& rgb,
                            bool abortOnHit) {
  // Clip the segment to the pixels that matter (Liang-Barsky), so a long line off screen
  // costs nothing.
  const bool pick = Picking();
  const float lx = pick ? static_cast<float>(rx0_) : 0.0f;
  const float hx = pick ? static_cast<float>(rx1_ + 1) : static_cast<float>(width_);
  const float ly = pick ? static_cast<float>(ry0_) : 0.0f;
  const float hy = pick ? static_cast<float>(ry1_ + 1) : static_cast<float>(height_);
  float t0 = 0, t1 = 1;
  const float dx = b.x - a.x, dy = b.y - a.y;
  const float p[4] = {-dx, dx, -dy, dy};
  const float q[4] = {a.x - (lx - 1), (hx + 1) - a.x, a.y - (ly - 1), (hy + 1) - a.y};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0) {
      if (q[i] < 0) return false;
      continue;
    }
    const float r = q[i] / p[i];
    if (p[i] < 0)
      t0 = std::max(t0, r);
    else
      t1 = std::min(t1, r);
  }
  if (t0 > t1) return false;
  const float sx = a.x + dx * t0, sy = a.y + dy * t0, sz = a.z + (b.z - a.z) * t0;
  const float ex = a.x + dx * t1, ey = a.y + dy * t1, ez = a.z + (b.z - a.z) * t1;
  const int steps =
      std::max(1, static_cast<int>(std::ceil(std::max(std::fabs(ex - sx), std::fabs(ey - sy)))));
  for (int i = 0; i <= steps; ++i) {
    const float t = static_cast<float>(i) / static_cast<float>(steps);
    const int x = static_cast<int>(std::floor(sx + (ex - sx) * t));
    const int y = static_cast<int>(std::floor(sy + (ey - sy) * t));
    const float z = sz + (ez - sz) * t;
    if (pick) {
      if (!InRegion(x, y)) continue;
      LogHit(z);
      if (abortOnHit) return true;
    } else {
      Plot(x, y, z, rgb, true);
    }
  }
  return pick && hit_;
}

bool SoftWindow::Line(Point3 a, Point3 b, const Point3& rgb, bool abortOnHit) {
  // Clip against the near plane in camera space.
  const float n = camera_.nearClip * 1.001f;
  const float da = -a.z, db = -b.z;
  if (da < n && db < n) return false;
  if (da < n) a = a + (b - a) * ((n - da) / (db - da));
  if (db < n) b = b + (a - b) * ((n - db) / (da - db));
  return LineScreen(ProjectCamera(a), ProjectCamera(b), rgb, abortOnHit);
}

// ---------------------------------------------------------------------------------------------
// primitives

void SoftWindow::Polyline(std::span<const Point3> points, bool closed) {
  if (points.empty()) return;
  const bool window = region_.type != host::HitRegion::Type::Point && !region_.crossing;
  if (Picking() && window) {
    float nearest = INFINITY;
    for (const Point3& p : points) {
      const ScreenPt s = ProjectCamera(p * objToCamera_);
      if (!s.front || !InRegionF(s.x, s.y)) return;
      nearest = std::min(nearest, s.z);
    }
    LogHit(nearest);
    return;
  }
  const size_t n = points.size();
  const size_t segs = closed ? n : n - 1;
  for (size_t i = 0; i < segs; ++i) {
    Line(points[i] * objToCamera_, points[(i + 1) % n] * objToCamera_, line_, false);
  }
}

void SoftWindow::Marker(const Point3& p, host::MarkerType type) {
  const ScreenPt s = ProjectCamera(p * objToCamera_);
  if (!s.front) return;
  const bool window = region_.type != host::HitRegion::Type::Point && !region_.crossing;
  if (Picking() && window) {
    if (InRegionF(s.x, s.y)) LogHit(s.z);
    return;
  }
  constexpr float r = 3.0f;
  const auto seg = [&](float x0, float y0, float x1, float y1) {
    LineScreen({s.x + x0, s.y + y0, s.z, true}, {s.x + x1, s.y + y1, s.z, true}, line_, false);
  };
  switch (type) {
    case host::MarkerType::Plus:
      seg(-r, 0, r, 0), seg(0, -r, 0, r);
      break;
    case host::MarkerType::HollowBox:
    case host::MarkerType::SmallHollowBox: {
      const float k = type == host::MarkerType::SmallHollowBox ? 2.0f : r;
      seg(-k, -k, k, -k), seg(k, -k, k, k), seg(k, k, -k, k), seg(-k, k, -k, -k);
      break;
    }
    case host::MarkerType::Point:
    case host::MarkerType::Dot:
      seg(0, 0, 0, 0);
      break;
    default:  // X, asterisk and circle all draw as an X here
      seg(-r, -r, r, r), seg(-r, r, r, -r);
      break;
  }
}

void SoftWindow::ProjectMesh(const Mesh& mesh) {
  const size_t nv = mesh.verts.size();
  camPts_.resize(nv);
  screen_.resize(nv);
  for (size_t i = 0; i < nv; ++i) {
    camPts_[i] = mesh.verts[i] * objToCamera_;
    screen_[i] = ProjectCamera(camPts_[i]);
  }
}

bool SoftWindow::SelectMesh(const Mesh& mesh, bool abortOnHit) {
  if (mesh.faces.empty()) return false;
  const uint32_t saved = limits_;
  limits_ |= host::kGwPick;
  ProjectMesh(mesh);
  const auto nv = static_cast<uint32_t>(mesh.verts.size());
  const bool window = region_.type != host::HitRegion::Type::Point && !region_.crossing;
  bool hit = false;
  if (window) {
    // Wholly inside: every corner of every shown face.
    float nearest = INFINITY;
    bool any = false, all = true;
    for (const Face& f : mesh.faces) {
      if (f.Hidden()) continue;
      for (uint32_t v : f.v) {
        if (v >= nv) continue;
        const ScreenPt& s = screen_[v];
        if (!s.front || !InRegionF(s.x, s.y)) all = false;
        nearest = std::min(nearest, s.z);
        any = true;
      }
      if (!all) break;
    }
    if (any && all) {
      LogHit(nearest);
      hit = true;
    }
  } else if (limits_ & host::kGwWireframe) {
    const bool allEdges = (limits_ & host::kGwAllEdges) != 0;
    for (const Face& f : mesh.faces) {
      if (f.Hidden()) continue;
      for (int e = 0; e < 3 && !(hit && abortOnHit); ++e) {
        if (!allEdges && !f.getEdgeVis(e)) continue;
        const uint32_t a = f.v[e], b = f.v[(e + 1) % 3];
        if (a >= nv || b >= nv) continue;
        hit = Line(camPts_[a], camPts_[b], line_, abortOnHit) || hit;
      }
      if (hit && abortOnHit) break;
    }
  } else {
    const Point3 none;
    for (const Face& f : mesh.faces) {
      if (f.Hidden() || f.v[0] >= nv || f.v[1] >= nv || f.v[2] >= nv) continue;
      hit = Triangle(screen_[f.v[0]], screen_[f.v[1]], screen_[f.v[2]], none, none, none,
                     abortOnHit) ||
            hit;
      if (hit && abortOnHit) break;
    }
  }
  limits_ = saved;
  return hit || hit_;
}

void SoftWindow::RenderMesh(const Mesh& mesh, int compFlags) {
  (void)compFlags;
  if (Picking()) {
    SelectMesh(mesh, false);
    return;
  }
  ProjectMesh(mesh);
  const auto nv = static_cast<uint32_t>(mesh.verts.size());
  if (limits_ & host::kGwWireframe) {
    const bool allEdges = (limits_ & host::kGwAllEdges) != 0;
    for (const Face& f : mesh.faces) {
      if (f.Hidden()) continue;
      for (int e = 0; e < 3; ++e) {
        if (!allEdges && !f.getEdgeVis(e)) continue;
        const uint32_t a = f.v[e], b = f.v[(e + 1) % 3];
        if (a < nv && b < nv) Line(camPts_[a], camPts_[b], materials_[0].diffuse, false);
      }
    }
    return;
  }

  const bool lit = (limits_ & host::kGwIllum) != 0;
  const bool flat = (limits_ & host::kGwFlat) != 0;
  const bool explicitNormals =
      mesh.hasSpecNormals() && mesh.specNormals.size() == mesh.faces.size() * 3;
  // Vertex normals from the faces around each vertex that share a smoothing group, as the
  // smoothing groups ask; a face of group 0 keeps its own normal.
  if (lit && !flat && !explicitNormals) {
    vertNormals_.assign(nv, Point3{});
    for (const Face& f : mesh.faces) {
      if (f.smGroup == 0 || f.v[0] >= nv || f.v[1] >= nv || f.v[2] >= nv) continue;
      const Point3 n =
          CrossProd(camPts_[f.v[1]] - camPts_[f.v[0]], camPts_[f.v[2]] - camPts_[f.v[0]]);
      for (uint32_t v : f.v) vertNormals_[v] += n;
    }
  }
  const Matrix3& m = objToCamera_;
  const auto shade = [&](const host::DisplayMaterial& mat, const Point3& normal, const Point3& at) {
    if (!lit) return mat.diffuse;
    // A headlight: light comes from the eye; both sides of a face are lit alike.
    const Point3 toEye = camera_.perspective ? (-at).Normalized() : Point3{0, 0, 1};
    const float k = std::fabs(DotProd(normal.Normalized(), toEye));
    return Clamp01(mat.ambient * 0.2f + mat.diffuse * (0.15f + 0.7f * k) +
                   mat.specular * (0.25f * std::pow(k, 24.0f)));
  };
  for (size_t fi = 0; fi < mesh.faces.size(); ++fi) {
    const Face& f = mesh.faces[fi];
    if (f.Hidden() || f.v[0] >= nv || f.v[1] >= nv || f.v[2] >= nv) continue;
    const Point3& p0 = camPts_[f.v[0]];
    const Point3& p1 = camPts_[f.v[1]];
    const Point3& p2 = camPts_[f.v[2]];
    const Point3 fn = CrossProd(p1 - p0, p2 - p0);
    const host::DisplayMaterial& mat = materials_[f.getMatID() % materials_.size()];
    Point3 c[3];
    for (int k = 0; k < 3; ++k) {
      Point3 n = fn;
      if (!flat && explicitNormals) {
        n = m.VectorTransform(mesh.specNormals[fi * 3 + static_cast<size_t>(k)]);
      } else if (!flat && f.smGroup != 0 && lit) {
        n = vertNormals_[f.v[k]];
      }
      c[k] = shade(mat, n, camPts_[f.v[k]]);
    }
    Triangle(screen_[f.v[0]], screen_[f.v[1]], screen_[f.v[2]], c[0], c[1], c[2], false);
  }
}

void SoftWindow::Text(int x, int y, const std::string& text, const Point3& rgb) {
  // The font draws 7-pixel glyphs as quads; at twice that size labels stay readable.
  constexpr int kScale = 2;
  std::vector<char> buf(text.size() * 270 + 64);
  std::vector<char> str(text.begin(), text.end());
  str.push_back('\0');
  const int quads =
      stb_easy_font_print(0, 0, str.data(), nullptr, buf.data(), static_cast<int>(buf.size()));
  for (int q = 0; q < quads; ++q) {
    const float* v = reinterpret_cast<const float*>(buf.data() + static_cast<size_t>(q) * 64);
    // Four vertices of 16 bytes: x, y, z, colour; the quads are axis-aligned.
    const int qx0 = x + static_cast<int>(v[0]) * kScale, qy0 = y + static_cast<int>(v[1]) * kScale;
    const int qx1 = x + static_cast<int>(v[8]) * kScale, qy1 = y + static_cast<int>(v[9]) * kScale;
    for (int py = std::max(qy0, 0); py < std::min(qy1, height_); ++py) {
      for (int px = std::max(qx0, 0); px < std::min(qx1, width_); ++px) {
        uint8_t* p = image_.rgb.data() + (static_cast<size_t>(py) * width_ + px) * 3;
        p[0] = ToByte(rgb.x), p[1] = ToByte(rgb.y), p[2] = ToByte(rgb.z);
      }
    }
  }
}

// ---------------------------------------------------------------------------------------------
// PNG files

bool WritePng(const Image& image, const std::string& path, std::string& error) {
  std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> ctx(spng_ctx_new(SPNG_CTX_ENCODER),
                                                          &spng_ctx_free);
  if (!ctx) {
    error = "out of memory";
    return false;
  }
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) {
    error = "cannot write " + path;
    return false;
  }
  spng_ihdr ihdr{};
  ihdr.width = static_cast<uint32_t>(image.width);
  ihdr.height = static_cast<uint32_t>(image.height);
  ihdr.bit_depth = 8;
  ihdr.color_type = SPNG_COLOR_TYPE_TRUECOLOR;
  int rc = spng_set_png_file(ctx.get(), f);
  if (!rc) rc = spng_set_ihdr(ctx.get(), &ihdr);
  if (!rc) {
    rc = spng_encode_image(ctx.get(), image.rgb.data(), image.rgb.size(), SPNG_FMT_PNG,
                           SPNG_ENCODE_FINALIZE);
  }
  const bool closed = std::fclose(f) == 0;
  if (rc || !closed) {
    error = "cannot write " + path + (rc ? std::string(": ") + spng_strerror(rc) : "");
    std::remove(path.c_str());
    return false;
  }
  return true;
}

bool ReadPng(const std::string& path, Image& image, std::string& error) {
  std::unique_ptr<spng_ctx, decltype(&spng_ctx_free)> ctx(spng_ctx_new(0), &spng_ctx_free);
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) {
    error = "cannot open " + path;
    return false;
  }
  size_t size = 0;
  int rc = spng_set_png_file(ctx.get(), f);
  if (!rc) rc = spng_decoded_image_size(ctx.get(), SPNG_FMT_RGB8, &size);
  std::vector<uint8_t> rgb;
  spng_ihdr ihdr{};
  if (!rc) rc = spng_get_ihdr(ctx.get(), &ihdr);
  if (!rc) {
    rgb.resize(size);
    rc = spng_decode_image(ctx.get(), rgb.data(), size, SPNG_FMT_RGB8, 0);
  }
  std::fclose(f);
  if (rc) {
    error = path + ": not a PNG picture (" + spng_strerror(rc) + ")";
    return false;
  }
  image.width = static_cast<int>(ihdr.width);
  image.height = static_cast<int>(ihdr.height);
  image.rgb = std::move(rgb);
  return true;
}

}  // namespace kv::standalone

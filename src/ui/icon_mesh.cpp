#include "ui/icon_mesh.h"

#include <array>
#include <cmath>
#include <numbers>

#include "geom/box3.h"

namespace kv::ui {
namespace {

constexpr int kRingVerts = 12;
constexpr int kRings = 3;
constexpr int kLidVerts = 12;
constexpr int kShards = 14;

constexpr float kPi = std::numbers::pi_v<float>;

// Drum (design units, z up): axis through (cx, cy), from z0 to z1.
constexpr float kCx = -0.45f, kCy = -0.45f, kRadius = 0.5f, kZ0 = -1.0f, kZ1 = -0.25f;

// Shards, as (x, y, z, size): bursting out of the open top towards the far corner.
constexpr std::array<std::array<float, 4>, kShards> kShardPlaces{{
    {-0.55f, -0.40f, -0.02f, 0.10f},
    {-0.25f, -0.60f, 0.02f, 0.09f},
    {-0.30f, -0.20f, 0.08f, 0.11f},
    {-0.05f, -0.35f, 0.15f, 0.10f},
    {-0.45f, -0.05f, 0.18f, 0.09f},
    {0.12f, -0.10f, 0.22f, 0.12f},
    {-0.15f, 0.10f, 0.27f, 0.10f},
    {0.30f, -0.35f, 0.28f, 0.08f},
    {-0.40f, 0.28f, 0.30f, 0.08f},
    {0.20f, 0.22f, 0.36f, 0.11f},
    {0.42f, 0.02f, 0.40f, 0.09f},
    {0.00f, 0.40f, 0.42f, 0.09f},
    {0.40f, 0.40f, 0.46f, 0.08f},
    {-0.65f, -0.70f, 0.05f, 0.08f},
}};

// Adds a face whose visible edges are given as (a->b, b->c, c->a).
void AddFace(Mesh& m, int& f, uint32_t a, uint32_t b, uint32_t c, bool ab, bool bc, bool ca) {
  Face& face = m.faces[static_cast<size_t>(f++)];
  face.setVerts(a, b, c);
  face.smGroup = 1;
  face.setEdgeVisBits((ab ? kEdgeA : 0u) | (bc ? kEdgeB : 0u) | (ca ? kEdgeC : 0u));
}

}  // namespace

void BuildIconMesh(float size, Mesh& out) {
  out.FreeAll();
  out.InvalidateTopologyCache();
  if (size < 0.0f) return;
  out.setNumVerts(kIconVerts);
  out.setNumFaces(kIconFaces);
  int v = 0, f = 0;

  // Drum wall: rings and four upright lines; the quads' diagonals stay hidden.
  for (int r = 0; r < kRings; ++r) {
    const float z = kZ0 + (kZ1 - kZ0) * static_cast<float>(r) / (kRings - 1);
    for (int j = 0; j < kRingVerts; ++j) {
      const float a = 2.0f * kPi * static_cast<float>(j) / kRingVerts;
      out.verts[static_cast<size_t>(v++)] = {kCx + kRadius * std::cos(a),
                                             kCy + kRadius * std::sin(a), z};
    }
  }
  for (int r = 0; r + 1 < kRings; ++r) {
    for (int j = 0; j < kRingVerts; ++j) {
      const int j1 = (j + 1) % kRingVerts;
      const auto lo = static_cast<uint32_t>(r * kRingVerts);
      const auto hi = static_cast<uint32_t>((r + 1) * kRingVerts);
      AddFace(out, f, lo + j, lo + j1, hi + j1, true, j1 % 3 == 0, false);
      AddFace(out, f, lo + j, hi + j1, hi + j, false, true, j % 3 == 0);
    }
  }

  // Lid: a disc hinged on the drum's rim, swung open.
  const int lid = v;
  const float open = kPi * 0.38f;
  for (int j = 0; j < kLidVerts; ++j) {
    const float a = kPi + 2.0f * kPi * static_cast<float>(j) / kLidVerts;
    // Disc in its own plane, hinge line along y through the rim point at angle pi.
    const float u = kRadius * (std::cos(a) + 1.0f);  // distance from the hinge
    const float w = kRadius * std::sin(a);
    out.verts[static_cast<size_t>(v++)] = {kCx - kRadius + u * std::cos(open), kCy + w,
                                           kZ1 + u * std::sin(open)};
  }
  for (int i = 1; i + 1 < kLidVerts; ++i) {
    AddFace(out, f, static_cast<uint32_t>(lid), static_cast<uint32_t>(lid + i),
            static_cast<uint32_t>(lid + i + 1), i == 1, true, i + 1 == kLidVerts - 1);
  }

  // Shards: tetrahedra, each turned and stretched a little differently.
  for (int k = 0; k < kShards; ++k) {
    const auto& s = kShardPlaces[static_cast<size_t>(k)];
    const float turn = 0.7f * static_cast<float>(k);
    const float ct = std::cos(turn), st = std::sin(turn);
    const float stretch = 1.0f + 0.35f * static_cast<float>(k % 3);
    const std::array<Point3, 4> unit{{{1, 1, 1}, {1, -1, -1}, {-1, 1, -1}, {-1, -1, 1}}};
    const auto base = static_cast<uint32_t>(v);
    for (const Point3& p : unit) {
      const Point3 q{p.x * ct - p.y * st, p.x * st + p.y * ct, p.z * stretch};
      out.verts[static_cast<size_t>(v++)] = Point3{s[0], s[1], s[2]} + q * (s[3] * 0.6f);
    }
    AddFace(out, f, base, base + 1, base + 2, true, true, true);
    AddFace(out, f, base, base + 3, base + 1, true, true, true);
    AddFace(out, f, base, base + 2, base + 3, true, true, true);
    AddFace(out, f, base + 1, base + 3, base + 2, true, true, true);
  }

  // Fit the design exactly into the icon's box, axis by axis.
  Box3 b;
  for (const Point3& p : out.verts) b += p;
  const Point3 w = b.Width();
  const float span = (kIconMax - kIconMin) * size;
  for (Point3& p : out.verts) {
    for (int a = 0; a < 3; ++a) p[a] = kIconMin * size + (p[a] - b.pmin[a]) / w[a] * span;
  }
  out.MarkCachesValid();
}

}  // namespace kv::ui

#include "demo_scene.h"

#include <cmath>
#include <numbers>

#include "host/standalone/controls.h"

namespace kv::cli {

Mesh MakeBoxMesh(const Point3& size) {
  const Point3 h = size * 0.5f;
  Mesh m;
  m.setNumVerts(8);
  for (int i = 0; i < 8; ++i)
    m.verts[i] = {(i & 1) ? h.x : -h.x, (i & 2) ? h.y : -h.y, (i & 4) ? h.z : -h.z};
  // Two triangles per side, counter-clockwise seen from outside.
  static constexpr uint32_t kQuads[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4},
                                            {1, 3, 7, 5}, {3, 2, 6, 7}, {2, 0, 4, 6}};
  m.setNumFaces(12);
  for (int s = 0; s < 6; ++s) {
    const uint32_t* q = kQuads[s];
    Face& a = m.faces[2 * s];
    Face& b = m.faces[2 * s + 1];
    a.setVerts(q[0], q[1], q[2]);
    b.setVerts(q[2], q[3], q[0]);
    a.setEdgeVisBits(kEdgeA | kEdgeB);  // the diagonal q2-q0 stays invisible
    b.setEdgeVisBits(kEdgeA | kEdgeB);
    a.smGroup = b.smGroup = 1u << s;
    a.setMatID(static_cast<MtlID>(s / 2));
    b.setMatID(static_cast<MtlID>(s / 2));
  }
  return m;
}

Mesh MakeSphereMesh(float radius, int segments, int rings) {
  Mesh m;
  const float pi = std::numbers::pi_v<float>;
  m.verts.push_back({0, 0, radius});
  for (int r = 1; r < rings; ++r) {
    const float phi = pi * static_cast<float>(r) / static_cast<float>(rings);
    for (int s = 0; s < segments; ++s) {
      const float th = 2 * pi * static_cast<float>(s) / static_cast<float>(segments);
      m.verts.push_back({radius * std::sin(phi) * std::cos(th),
                         radius * std::sin(phi) * std::sin(th), radius * std::cos(phi)});
    }
  }
  m.verts.push_back({0, 0, -radius});
  const uint32_t bottom = static_cast<uint32_t>(m.verts.size() - 1);
  auto ring = [&](int r, int s) {
    return static_cast<uint32_t>(1 + (r - 1) * segments + (s % segments));
  };
  std::vector<Face> faces;
  auto tri = [&](uint32_t a, uint32_t b, uint32_t c) {
    Face f;
    f.setVerts(a, b, c);
    f.setEdgeVisBits(kEdgeAll);
    f.smGroup = 1;
    faces.push_back(f);
  };
  for (int s = 0; s < segments; ++s) {
    tri(0, ring(1, s), ring(1, s + 1));
    for (int r = 1; r + 1 < rings; ++r) {
      tri(ring(r, s), ring(r + 1, s), ring(r + 1, s + 1));
      tri(ring(r, s), ring(r + 1, s + 1), ring(r, s + 1));
    }
    tri(bottom, ring(rings - 1, s + 1), ring(rings - 1, s));
  }
  m.setNumFaces(static_cast<int>(faces.size()));
  m.faces = std::move(faces);
  return m;
}

std::vector<standalone::SceneNode*> BuildDemoScene(standalone::Scene& scene,
                                                   const DemoSimResult& sim) {
  scene.SetFrameRate(sim.fps);
  const int tpf = scene.GetTicksPerFrame();
  scene.SetAnimRange(Interval(0, sim.frames * tpf));
  host::Mtl* brickMtl = scene.NewStdMtl("Brick", {0.62f, 0.25f, 0.16f});
  host::Mtl* ballMtl = scene.NewStdMtl("Ball", {0.3f, 0.3f, 0.35f});

  std::vector<standalone::SceneNode*> nodes;
  nodes.reserve(sim.bodies.size());
  const Mesh brick = sim.bodies.empty() ? Mesh() : MakeBoxMesh(sim.bodies.front().size);
  for (const SimBody& b : sim.bodies) {
    const Mesh mesh = b.sphere ? MakeSphereMesh(b.radius, 24, 12)
                               : (b.size == sim.bodies.front().size ? brick : MakeBoxMesh(b.size));
    auto* n = static_cast<standalone::SceneNode*>(scene.CreateMeshNode(mesh, b.name));
    n->SetMtl(b.sphere ? ballMtl : brickMtl);
    host::Control* tm = n->GetTMController();
    // Keys sit on every frame; linear keys make sub-frame times blend like the
    // cache does.
    if (host::Control* p = tm->GetPositionController())
      standalone::SetInterp(*p, host::Interp::Linear);
    if (host::Control* r = tm->GetRotationController())
      standalone::SetInterp(*r, host::Interp::Linear);
    for (size_t f = 0; f < b.poses.size(); ++f) {
      const TimeValue t = static_cast<TimeValue>(f) * tpf;
      n->KeyPosition(t, b.poses[f].pos);
      n->KeyRotation(t, b.poses[f].rot);
    }
    nodes.push_back(n);
  }
  return nodes;
}

}  // namespace kv::cli

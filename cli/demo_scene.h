// Turns the simulated bodies into scene nodes: a box mesh per brick and a
// sphere for the ball, each keyed at every simulated frame, so the recorder
// sees ordinary animated nodes.
#pragma once

#include <vector>

#include "demo_sim.h"
#include "geom/mesh.h"
#include "host/standalone/scene.h"

namespace kv::cli {

// A box centred on the origin with the given full extents: 8 vertices, 12
// faces, one smoothing group and material id per side pair, the diagonal edges
// invisible.
Mesh MakeBoxMesh(const Point3& size);
// A latitude-longitude sphere centred on the origin.
Mesh MakeSphereMesh(float radius, int segments, int rings);

// Sets the scene's frame rate and animation range to the simulation's and
// creates one node per body, in body order, with linear position and rotation
// keys at every frame.
std::vector<standalone::SceneNode*> BuildDemoScene(standalone::Scene& scene,
                                                   const DemoSimResult& sim);

}  // namespace kv::cli

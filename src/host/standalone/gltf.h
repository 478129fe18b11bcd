// glTF 2.0 import and export of whole animated scenes.
//
// The scene is Z-up and glTF is Y-up: import maps glTF (x, y, z) to (x, -z, y) by one
// rotation folded into the root nodes' transforms, export maps back. One scene unit is one
// metre; animation seconds become ticks (4800 a second).
//
// Import: meshes (positions, sparse values applied, normals as explicit normals, TEXCOORD_0 as map
// channel 1 with v flipped, COLOR_0 as map channel 0), base colours as standard materials, a mesh
// of several primitives as one mesh with a material id per primitive and a multi-material, the node
// hierarchy (nodes without a mesh become point helpers), translation, rotation and scale
// animations (STEP -> Step, LINEAR -> Linear, CUBICSPLINE -> Bezier with the file's
// tangents), and node visibility from KHR_node_visibility, static or animated through
// KHR_animation_pointer (a Step track of 0 and 1). Meshes with morph targets (weights static
// or animated) or a skin (JOINTS_0 and WEIGHTS_0, joints and inverse bind matrices) become a
// deforming object per node that evaluates them at every time. The animation range becomes
// the whole frames that cover every key.
//
// Export: every node with its name and hierarchy, geometry as one primitive per material id
// (corners unwelded), materials as base colours, and position, rotation and scale tracks:
// Step and Linear keys as they are; Bezier and TCB positions and scale factors as CUBICSPLINE
// keys with the tangents the track interpolates with (the same curve); Bezier and TCB
// rotations sampled (LINEAR, that is slerp) at a fixed step. Scale stretch axes have no place
// in glTF and are left out. A node whose own visibility is 0 at a chosen time is written
// invisible (KHR_node_visibility).
#pragma once

#include <string>

#include "host/standalone/scene.h"

namespace kv::standalone {

// Adds the file's default scene (.gltf or .glb) to `scene`. On failure returns false with a
// message in `error`; the scene is then left as it was (no node, object or material added).
bool ImportGltf(Scene& scene, const std::string& path, std::string& error);

struct GltfExportOptions {
  // Step in ticks at which rotations are sampled; 0: one frame.
  TimeValue sampleStep = 0;
  // Time at which node visibility is read.
  TimeValue visibilityTime = 0;
};

// Writes the scene's nodes as .glb when the path ends in ".glb", else as .gltf with its
// buffer embedded. False with a message when the file cannot be written.
bool ExportGltf(Scene& scene, const std::string& path, std::string& error,
                const GltfExportOptions& options = {});

}  // namespace kv::standalone

// Writes one triangle mesh to a file for viewing elsewhere: Wavefront .obj, binary .ply or
// binary glTF .glb, chosen by the path's extension. Vertices are written in the mesh's own
// order; hidden faces are left out, as a renderer leaves them out.
#pragma once

#include <string>

#include "geom/mesh.h"

namespace kv::cli {

// True when `path` ends in .obj, .ply or .glb (any letter case).
bool IsMeshOutputPath(const std::string& path);

// .obj and .ply keep the scene's Z-up coordinates; .glb turns them into glTF's Y-up world,
// (x, y, z) -> (x, z, -y), so the file opens upright in any glTF viewer.
// False with `error` set when the file cannot be written.
bool WriteMeshFile(const Mesh& mesh, const std::string& path, std::string& error);

}  // namespace kv::cli

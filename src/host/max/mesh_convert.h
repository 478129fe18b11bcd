// Meshes between the core and the SDK: vertices, faces with smoothing groups, material ids and
// edge visibility, every supported map channel and, towards the SDK, the explicit normals.
#pragma once

#include "geom/mesh.h"
#include "host/max/sdk.h"

namespace kv::max {

void ToMax(const kv::Mesh& from, ::Mesh& to);
void ToKv(::Mesh& from, kv::Mesh& to);

}  // namespace kv::max

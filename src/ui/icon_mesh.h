// The cache object's icon: a storage drum with its lid thrown open and shards flying out of
// it, drawn as an outline in wireframe.
#pragma once

#include "geom/mesh.h"

namespace kv::ui {

inline constexpr int kIconVerts = 104;
inline constexpr int kIconFaces = 114;
// The icon spans [kIconMin, kIconMax] x size on every axis.
inline constexpr float kIconMin = -1.03f;
inline constexpr float kIconMax = 0.5f;

// Builds the icon for `size` into `out`: 104 vertices and 114 faces whose visible edges
// trace the outline (triangulation diagonals hidden). A negative size gives the empty mesh.
void BuildIconMesh(float size, Mesh& out);

}  // namespace kv::ui

// A mesh's explicit normals copied into a normal set of the shape of the SDK's MeshNormalSpec,
// written over its members only so that the tests run it on a set of the same shape.
#pragma once

#include <cstddef>

#include "geom/mesh.h"

namespace kv::max {

// One normal per face corner, in the mesh's corner order: face f's corners use normals 3f,
// 3f+1 and 3f+2, each explicit so that the host never recomputes it from smoothing groups.
// Counts are set once, so the copy allocates nothing per face or normal. False, touching
// nothing, when the mesh carries no normals or not three for each of its faces.
template <class Spec, class ToPoint>
bool CopyExplicitNormals(const kv::Mesh& from, Spec& spec, ToPoint toPoint) {
  const int faces = from.numFaces();
  if (!from.hasSpecNormals() || from.specNormals.size() != static_cast<size_t>(faces) * 3) {
    return false;
  }
  if (!spec.SetNumFaces(faces) || !spec.SetNumNormals(faces * 3)) return false;
  for (int n = 0; n < faces * 3; ++n) {
    spec.Normal(n) = toPoint(from.specNormals[static_cast<size_t>(n)]);
    spec.SetNormalExplicit(n, true);
  }
  for (int f = 0; f < faces; ++f) {
    auto& face = spec.Face(f);
    face.SpecifyAll();
    for (int k = 0; k < 3; ++k) face.SetNormalID(k, f * 3 + k);
  }
  // Lets the set fill in whatever it derives from the normals given.
  spec.CheckNormals();
  return true;
}

}  // namespace kv::max

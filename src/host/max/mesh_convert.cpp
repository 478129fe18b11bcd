#include "host/max/mesh_convert.h"

#include <algorithm>

#include "host/max/mesh_normals.h"

namespace kv::max {

void ToMax(const kv::Mesh& from, ::Mesh& to) {
  to.setNumVerts(from.numVerts());
  to.setNumFaces(from.numFaces());
  for (int i = 0; i < from.numVerts(); ++i) to.setVert(i, ToMax(from.verts[i]));
  for (int i = 0; i < from.numFaces(); ++i) {
    const kv::Face& f = from.faces[i];
    ::Face& g = to.faces[i];
    g.setVerts(f.v[0], f.v[1], f.v[2]);
    g.setSmGroup(f.smGroup);
    g.setMatID(f.getMatID());
    g.setEdgeVisFlags(f.getEdgeVis(0), f.getEdgeVis(1), f.getEdgeVis(2));
  }
  to.setNumMaps(from.getNumMaps());
  for (int ch = 0; ch < from.getNumMaps(); ++ch) {
    if (!from.mapSupport(ch)) continue;
    const kv::MapChannel& mc = from.Map(ch);
    to.setMapSupport(ch, TRUE);
    to.setNumMapVerts(ch, static_cast<int>(mc.verts.size()));
    for (size_t v = 0; v < mc.verts.size(); ++v) {
      to.setMapVert(ch, static_cast<int>(v), ToMax(mc.verts[v]));
    }
    ::TVFace* tf = to.mapFaces(ch);
    for (size_t f = 0; f < mc.faces.size(); ++f) {
      tf[f].setTVerts(mc.faces[f].t[0], mc.faces[f].t[1], mc.faces[f].t[2]);
    }
  }
  // Explicit normals ride along when the mesh has them; a mesh without drops any earlier set.
  bool normals = false;
  if (from.hasSpecNormals()) {
    to.SpecifyNormals();
    if (MeshNormalSpec* spec = to.GetSpecifiedNormals()) {
      normals = CopyExplicitNormals(from, *spec, [](const kv::Point3& p) { return ToMax(p); });
    }
  }
  if (!normals) to.ClearSpecifiedNormals();
  to.InvalidateTopologyCache();
}

void ToKv(::Mesh& from, kv::Mesh& to) {
  to.FreeAll();
  to.setNumVerts(from.getNumVerts());
  to.setNumFaces(from.getNumFaces());
  for (int i = 0; i < from.getNumVerts(); ++i) to.verts[i] = ToKv(from.getVert(i));
  for (int i = 0; i < from.getNumFaces(); ++i) {
    ::Face& g = from.faces[i];
    kv::Face& f = to.faces[i];
    f.setVerts(g.v[0], g.v[1], g.v[2]);
    f.smGroup = g.smGroup;
    f.setMatID(g.getMatID());
    f.setEdgeVisBits((g.getEdgeVis(0) ? kEdgeA : 0u) | (g.getEdgeVis(1) ? kEdgeB : 0u) |
                     (g.getEdgeVis(2) ? kEdgeC : 0u));
  }
  const int maps = std::min(from.getNumMaps(), kMaxMapChannels);
  to.setNumMaps(maps);
  for (int ch = 0; ch < maps; ++ch) {
    if (!from.mapSupport(ch)) continue;
    to.setMapSupport(ch, true);
    kv::MapChannel& mc = to.Map(ch);
    const int nv = from.getNumMapVerts(ch);
    const ::UVVert* mv = from.mapVerts(ch);
    mc.verts.resize(static_cast<size_t>(nv));
    for (int v = 0; v < nv; ++v) mc.verts[v] = ToKv(mv[v]);
    const ::TVFace* tf = from.mapFaces(ch);
    for (int f = 0; f < from.getNumFaces(); ++f) {
      mc.faces[f].t[0] = tf[f].t[0], mc.faces[f].t[1] = tf[f].t[1], mc.faces[f].t[2] = tf[f].t[2];
    }
  }
}

}  // namespace kv::max

// The triangle mesh: vertices, faces with smoothing groups, material ids and edge
// visibility, face selection, map channels 0..99 and explicit per-corner normals.
#pragma once

#include <cstdint>
#include <vector>

#include "geom/bitarray.h"
#include "geom/box3.h"
#include "geom/point.h"

namespace kv {

using MtlID = uint16_t;

inline constexpr int kMaxMapChannels = 100;  // channels 0 (vertex colour) to 99

// Face flag bits (the low 16 bits; the material id lives in the high 16).
inline constexpr uint32_t kEdgeA = 1u << 0;  // corner 0 -> 1
inline constexpr uint32_t kEdgeB = 1u << 1;  // corner 1 -> 2
inline constexpr uint32_t kEdgeC = 1u << 2;  // corner 2 -> 0
inline constexpr uint32_t kEdgeAll = kEdgeA | kEdgeB | kEdgeC;
inline constexpr uint32_t kFaceHidden = 1u << 5;

struct Face {
  uint32_t v[3] = {0, 0, 0};
  uint32_t smGroup = 0;
  uint32_t flags = 0;

  MtlID getMatID() const { return static_cast<MtlID>(flags >> 16); }
  void setMatID(MtlID id) { flags = (flags & 0xFFFFu) | (uint32_t{id} << 16); }
  uint32_t getEdgeVisBits() const { return flags & kEdgeAll; }
  void setEdgeVisBits(uint32_t bits) { flags = (flags & ~kEdgeAll) | (bits & kEdgeAll); }
  bool getEdgeVis(int edge) const { return (flags >> edge) & 1u; }
  bool Hidden() const { return flags & kFaceHidden; }
  void Hide() { flags |= kFaceHidden; }
  void Show() { flags &= ~kFaceHidden; }
  void setVerts(uint32_t a, uint32_t b, uint32_t c) { v[0] = a, v[1] = b, v[2] = c; }
};

// Map face: three indices into a channel's map vertices.
struct TVFace {
  uint32_t t[3] = {0, 0, 0};
};

struct MapChannel {
  bool support = false;
  std::vector<Point3> verts;  // (u, v, w), or (r, g, b) for channel 0
  std::vector<TVFace> faces;  // one per geometry face while supported
};

class Mesh {
 public:
  std::vector<Point3> verts;
  std::vector<Face> faces;
  BitArray faceSel;  // sized to the face count
  // Channel slots 0..numMaps-1; a slot is used only while its support flag is on.
  std::vector<MapChannel> maps;
  // Explicit normals, three per face (corner order), or empty when the mesh has none.
  std::vector<Point3> specNormals;

  int numVerts() const { return static_cast<int>(verts.size()); }
  int numFaces() const { return static_cast<int>(faces.size()); }
  void setNumVerts(int n);
  // Resizes faces, the face selection, every supported map channel's faces and the explicit
  // normals together.
  void setNumFaces(int n);

  int getNumMaps() const { return static_cast<int>(maps.size()); }
  // Grows or shrinks the channel slots (at most kMaxMapChannels).
  void setNumMaps(int n, bool keep = true);
  bool mapSupport(int ch) const { return ch >= 0 && ch < getNumMaps() && maps[ch].support; }
  // Switching support on makes the slot exist and gives it numFaces map faces (zeros);
  // switching it off frees the channel's data.
  void setMapSupport(int ch, bool on = true);
  MapChannel& Map(int ch) { return maps[ch]; }
  const MapChannel& Map(int ch) const { return maps[ch]; }

  bool hasSpecNormals() const { return !specNormals.empty(); }
  void clearSpecNormals() { specNormals.clear(); }

  Box3 getBoundingBox() const;

  // Deletes the faces whose bits are set, then every vertex that no remaining face uses,
  // keeping the face selection, every map channel and the explicit normals aligned.
  void DeleteFaceSet(const BitArray& del);
  // Deletes vertices no face uses (renumbering the faces).
  void DeleteIsoVerts();
  // Deletes, per supported channel, the map vertices that no map face uses.
  void DeleteIsoMapVerts();

  // Frees everything: no vertices, faces, channels or normals.
  void FreeAll();

  // Cache validity (derived data such as normals and edge lists in a host). Cleared by the
  // invalidate calls; the owner sets them again when it rebuilds.
  void InvalidateGeomCache() { geomValid_ = false; }
  void InvalidateTopologyCache() { topoValid_ = false, geomValid_ = false; }
  void MarkCachesValid() { geomValid_ = topoValid_ = true; }
  bool GeomCacheValid() const { return geomValid_; }
  bool TopologyCacheValid() const { return topoValid_; }

  // Appends another mesh: its vertices, faces (indices offset), selection, channels and
  // normals. Channels the other supports and this does not are added (zero-filled for
  // existing faces) and vice versa, so every channel stays aligned with the faces.
  void Append(const Mesh& other);

 private:
  bool geomValid_ = false;
  bool topoValid_ = false;
};

}  // namespace kv

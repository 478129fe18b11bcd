#include "geom/mesh.h"

#include <algorithm>

namespace kv {

namespace {

constexpr uint32_t kUnused = UINT32_MAX;

// Keeps the items of v whose index i satisfies keep(i), in order; groups of `stride` items
// count as one (three normals per face).
template <class T, class Keep>
void Compact(std::vector<T>& v, size_t stride, Keep keep) {
  size_t out = 0;
  const size_t groups = v.size() / stride;
  for (size_t g = 0; g < groups; ++g) {
    if (!keep(g)) continue;
    if (out != g)
      std::copy(v.begin() + static_cast<std::ptrdiff_t>(g * stride),
                v.begin() + static_cast<std::ptrdiff_t>((g + 1) * stride),
                v.begin() + static_cast<std::ptrdiff_t>(out * stride));
    ++out;
  }
  v.resize(out * stride);
}

// Drops the points no index refers to and renumbers the indices. Indices out of range are
// left alone (they refer to nothing that could be kept).
template <class Faces, class Index>
void DeleteUnreferenced(std::vector<Point3>& points, Faces& faces, Index index) {
  std::vector<uint32_t> remap(points.size(), kUnused);
  for (auto& f : faces)
    for (int c = 0; c < 3; ++c)
      if (index(f, c) < remap.size()) remap[index(f, c)] = 0;
  uint32_t next = 0;
  for (size_t i = 0; i < points.size(); ++i) {
    if (remap[i] == kUnused) continue;
    remap[i] = next;
    points[next++] = points[i];
  }
  if (next == points.size()) return;
  points.resize(next);
  for (auto& f : faces)
    for (int c = 0; c < 3; ++c)
      if (index(f, c) < remap.size()) index(f, c) = remap[index(f, c)];
}

Point3 FaceNormal(const std::vector<Point3>& verts, const Face& f) {
  for (uint32_t v : f.v)
    if (v >= verts.size()) return {};
  return CrossProd(verts[f.v[1]] - verts[f.v[0]], verts[f.v[2]] - verts[f.v[0]]).Normalized();
}

}  // namespace

void Mesh::setNumVerts(int n) {
  verts.resize(static_cast<size_t>(std::max(n, 0)));
  InvalidateGeomCache();
}

void Mesh::setNumFaces(int n) {
  const size_t count = static_cast<size_t>(std::max(n, 0));
  faces.resize(count);
  faceSel.SetSize(static_cast<int>(count));
  for (MapChannel& m : maps)
    if (m.support) m.faces.resize(count);
  if (hasSpecNormals()) specNormals.resize(count * 3);
  InvalidateTopologyCache();
}

void Mesh::setNumMaps(int n, bool keep) {
  n = std::clamp(n, 0, kMaxMapChannels);
  if (!keep) maps.clear();
  maps.resize(static_cast<size_t>(n));
}

void Mesh::setMapSupport(int ch, bool on) {
  if (ch < 0 || ch >= kMaxMapChannels) return;
  if (on) {
    if (ch >= getNumMaps()) setNumMaps(ch + 1);
    MapChannel& m = maps[ch];
    if (m.support) return;
    m.support = true;
    m.faces.assign(faces.size(), TVFace{});
  } else if (ch < getNumMaps()) {
    maps[ch] = MapChannel{};  // releases the memory, unlike clear()
  }
}

Box3 Mesh::getBoundingBox() const {
  Box3 b;
  for (const Point3& p : verts) b += p;
  return b;
}

void Mesh::DeleteFaceSet(const BitArray& del) {
  const size_t n = faces.size();
  const size_t delSize = static_cast<size_t>(del.GetSize());
  auto keep = [&del, delSize](size_t i) { return i >= delSize || !del[static_cast<int>(i)]; };
  // The selection shifts with its faces: rebuild it from the kept bits.
  BitArray sel(static_cast<int>(n));
  int out = 0;
  for (size_t i = 0; i < n; ++i) {
    if (!keep(i)) continue;
    if (static_cast<int>(i) < faceSel.GetSize() && faceSel[static_cast<int>(i)]) sel.Set(out);
    ++out;
  }
  sel.SetSize(out);
  faceSel = std::move(sel);
  Compact(faces, 1, keep);
  for (MapChannel& m : maps)
    if (m.support && m.faces.size() == n) Compact(m.faces, 1, keep);
  if (specNormals.size() == n * 3) Compact(specNormals, 3, keep);
  DeleteIsoVerts();
  InvalidateTopologyCache();
}

void Mesh::DeleteIsoVerts() {
  const size_t before = verts.size();
  DeleteUnreferenced(verts, faces, [](Face& f, int c) -> uint32_t& { return f.v[c]; });
  if (verts.size() != before) InvalidateTopologyCache();
}

void Mesh::DeleteIsoMapVerts() {
  for (MapChannel& m : maps)
    if (m.support)
      DeleteUnreferenced(m.verts, m.faces, [](TVFace& f, int c) -> uint32_t& { return f.t[c]; });
}

void Mesh::FreeAll() {
  verts = {};
  faces = {};
  faceSel = BitArray();
  maps = {};
  specNormals = {};
  InvalidateTopologyCache();
}

void Mesh::Append(const Mesh& other) {
  const size_t vOff = verts.size();
  const size_t fOff = faces.size();
  const size_t fOther = other.faces.size();

  verts.insert(verts.end(), other.verts.begin(), other.verts.end());
  faces.reserve(fOff + fOther);
  for (Face f : other.faces) {
    for (uint32_t& v : f.v) v += static_cast<uint32_t>(vOff);
    faces.push_back(f);
  }
  faceSel.SetSize(static_cast<int>(fOff + fOther));
  other.faceSel.ForEachSet([this, fOff, fOther](int i) {
    if (static_cast<size_t>(i) < fOther) faceSel.Set(static_cast<int>(fOff) + i);
  });

  // Faces that come without data in a channel get map faces on a zero map vertex, so every
  // supported channel keeps one valid map face per face.
  auto zeroIndex = [](MapChannel& m) {
    m.verts.push_back({});
    return static_cast<uint32_t>(m.verts.size() - 1);
  };
  const int numMaps = std::max(getNumMaps(), other.getNumMaps());
  if (numMaps > getNumMaps()) setNumMaps(numMaps);
  for (int ch = 0; ch < numMaps; ++ch) {
    const bool mine = mapSupport(ch);
    const bool theirs = other.mapSupport(ch);
    if (!mine && !theirs) continue;
    MapChannel& m = maps[ch];
    if (!mine) {
      m = MapChannel{};
      m.support = true;
      if (fOff > 0) {
        const uint32_t z = zeroIndex(m);
        m.faces.assign(fOff, TVFace{{z, z, z}});
      }
    }
    m.faces.resize(fOff);  // a channel that had drifted out of step is realigned
    if (theirs) {
      const MapChannel& o = other.Map(ch);
      const uint32_t tOff = static_cast<uint32_t>(m.verts.size());
      m.verts.insert(m.verts.end(), o.verts.begin(), o.verts.end());
      for (size_t i = 0; i < fOther; ++i) {
        TVFace tf = i < o.faces.size() ? o.faces[i] : TVFace{};
        for (uint32_t& t : tf.t) t += tOff;
        m.faces.push_back(tf);
      }
    } else if (fOther > 0) {
      const uint32_t z = zeroIndex(m);
      m.faces.resize(fOff + fOther, TVFace{{z, z, z}});
    }
  }

  // Explicit normals on either side: the side without them contributes its face normals.
  if (hasSpecNormals() || other.hasSpecNormals()) {
    if (specNormals.size() != fOff * 3) {
      specNormals.resize(fOff * 3);
      for (size_t i = 0; i < fOff; ++i)
        std::fill_n(specNormals.begin() + static_cast<std::ptrdiff_t>(i * 3), 3,
                    FaceNormal(verts, faces[i]));
    }
    if (other.specNormals.size() == fOther * 3) {
      specNormals.insert(specNormals.end(), other.specNormals.begin(), other.specNormals.end());
    } else {
      for (size_t i = 0; i < fOther; ++i)
        specNormals.insert(specNormals.end(), 3, FaceNormal(verts, faces[fOff + i]));
    }
  }
  InvalidateTopologyCache();
}

}  // namespace kv

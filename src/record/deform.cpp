#include "record/deform.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <unordered_map>
#include <utility>

#include "record/rigid_fit.h"

namespace kv {

const Matrix3& DeformPiece::At(int s) const {
  static const Matrix3 kIdentity;
  if (tms.empty()) return kIdentity;
  const int i = std::clamp(s - first, 0, static_cast<int>(tms.size()) - 1);
  return tms[static_cast<size_t>(i)];
}

bool DeformPiece::Shown(int s) const {
  const int i = s - first;
  return i >= 0 && i < static_cast<int>(shown.size()) && shown[static_cast<size_t>(i)] != 0;
}

int DeformPiece::FirstShown() const {
  for (size_t i = 0; i < shown.size(); ++i)
    if (shown[i]) return first + static_cast<int>(i);
  return -1;
}

int DeformPiece::LastShown() const {
  for (size_t i = shown.size(); i-- > 0;)
    if (shown[i]) return first + static_cast<int>(i);
  return -1;
}

namespace {

constexpr uint32_t kNone = 0xFFFFFFFFu;

// The parts of a mesh connected by shared vertices, each with its vertices in ascending index
// order (so a piece keeps the mesh's vertex order) and its faces. Vertices no face uses belong
// to no part.
struct Components {
  std::vector<uint32_t> vertStart, verts, faceStart, faces;
  std::vector<uint32_t> parent, id;  // scratch

  size_t Count() const { return vertStart.empty() ? 0 : vertStart.size() - 1; }
  std::span<const uint32_t> Verts(size_t c) const {
    return {verts.data() + vertStart[c], vertStart[c + 1] - vertStart[c]};
  }
  std::span<const uint32_t> Faces(size_t c) const {
    return {faces.data() + faceStart[c], faceStart[c + 1] - faceStart[c]};
  }

  uint32_t Find(uint32_t v) {
    while (parent[v] != v) v = parent[v] = parent[parent[v]];
    return v;
  }

  void Split(const Mesh& m) {
    const size_t nv = m.verts.size();
    parent.resize(nv);
    std::iota(parent.begin(), parent.end(), 0u);
    for (const Face& f : m.faces) {
      uint32_t a = Find(f.v[0]);
      for (int k = 1; k < 3; ++k) {
        const uint32_t b = Find(f.v[k]);
        if (a != b) parent[std::max(a, b)] = std::min(a, b), a = std::min(a, b);
      }
    }
    // Parts numbered in the order of their first face.
    id.assign(nv, kNone);
    uint32_t count = 0;
    for (const Face& f : m.faces) {
      uint32_t& c = id[Find(f.v[0])];
      if (c == kNone) c = count++;
    }
    vertStart.assign(count + 1, 0);
    faceStart.assign(count + 1, 0);
    for (uint32_t v = 0; v < nv; ++v) {
      const uint32_t c = id[Find(v)];
      if (c != kNone) ++vertStart[c + 1];
    }
    for (const Face& f : m.faces) ++faceStart[id[Find(f.v[0])] + 1];
    for (uint32_t c = 0; c < count; ++c) {
      vertStart[c + 1] += vertStart[c];
      faceStart[c + 1] += faceStart[c];
    }
    verts.resize(vertStart[count]);
    faces.resize(faceStart[count]);
    std::vector<uint32_t> fill(vertStart.begin(), vertStart.end() - 1);
    for (uint32_t v = 0; v < nv; ++v) {
      const uint32_t c = id[Find(v)];
      if (c != kNone) verts[fill[c]++] = v;
    }
    fill.assign(faceStart.begin(), faceStart.end() - 1);
    for (uint32_t f = 0; f < m.faces.size(); ++f) faces[fill[id[Find(m.faces[f].v[0])]]++] = f;
  }
};

// Only meshes whose face corners all name vertices that exist can be split.
bool FacesValid(const Mesh& m) {
  const size_t nv = m.verts.size();
  for (const Face& f : m.faces)
    if (f.v[0] >= nv || f.v[1] >= nv || f.v[2] >= nv) return false;
  return true;
}

Point3 Centroid(const Mesh& m, std::span<const uint32_t> verts) {
  double c[3] = {0, 0, 0};
  for (uint32_t v : verts) c[0] += m.verts[v].x, c[1] += m.verts[v].y, c[2] += m.verts[v].z;
  const double n = verts.empty() ? 1.0 : static_cast<double>(verts.size());
  return {static_cast<float>(c[0] / n), static_cast<float>(c[1] / n), static_cast<float>(c[2] / n)};
}

// The piece of `m` made of `verts` and `faces` as a mesh of its own, moved by -origin: its
// faces, selection, map channels and explicit normals. `remap` is scratch of m's vertex count,
// all kNone, and is left so.
Mesh ExtractPiece(const Mesh& m, std::span<const uint32_t> verts, std::span<const uint32_t> faces,
                  const Point3& origin, std::vector<uint32_t>& remap) {
  Mesh p;
  p.verts.resize(verts.size());
  for (size_t i = 0; i < verts.size(); ++i) {
    remap[verts[i]] = static_cast<uint32_t>(i);
    p.verts[i] = m.verts[verts[i]] - origin;
  }
  p.setNumFaces(static_cast<int>(faces.size()));
  for (size_t i = 0; i < faces.size(); ++i) {
    Face f = m.faces[faces[i]];
    for (uint32_t& v : f.v) v = remap[v];
    p.faces[i] = f;
    if (faces[i] < static_cast<uint32_t>(m.faceSel.GetSize()) && m.faceSel[int(faces[i])])
      p.faceSel.Set(static_cast<int>(i));
  }
  for (uint32_t v : verts) remap[v] = kNone;
  for (int ch = 0; ch < m.getNumMaps(); ++ch) {
    if (!m.mapSupport(ch)) continue;
    const MapChannel& src = m.Map(ch);
    p.setMapSupport(ch, true);
    MapChannel& dst = p.Map(ch);
    std::unordered_map<uint32_t, uint32_t> used;
    for (size_t i = 0; i < faces.size(); ++i) {
      if (faces[i] >= src.faces.size()) continue;
      const TVFace& tf = src.faces[faces[i]];
      for (int k = 0; k < 3; ++k) {
        const uint32_t t = tf.t[k];
        auto [it, added] = used.emplace(t, static_cast<uint32_t>(dst.verts.size()));
        if (added) dst.verts.push_back(t < src.verts.size() ? src.verts[t] : Point3{});
        dst.faces[i].t[k] = it->second;
      }
    }
  }
  if (m.hasSpecNormals() && m.specNormals.size() >= m.faces.size() * 3) {
    p.specNormals.resize(faces.size() * 3);
    for (size_t i = 0; i < faces.size(); ++i)
      for (int k = 0; k < 3; ++k) p.specNormals[i * 3 + k] = m.specNormals[faces[i] * 3 + k];
  }
  return p;
}

struct Track {
  Mesh mesh;                    // rest shape, centred
  Point3 origin;                // its centroid at the first sample, in object space
  std::vector<uint32_t> verts;  // its vertices in the latest mesh, in rest order
  int first = 0;
  std::vector<Matrix3> tms;
  std::vector<float> err;
  std::vector<std::pair<int, std::vector<Point3>>> exact;  // non-rigid samples, rest frame
  float radius = 0;
  uint64_t shape = 0;  // hash of the counts and local faces, for matching by position
  bool live = true;
  int Last() const { return first + static_cast<int>(tms.size()) - 1; }
};

uint64_t ShapeHash(const Mesh& m) {
  uint64_t h = 1469598103934665603ull ^ (uint64_t{m.verts.size()} << 32) ^ m.faces.size();
  for (const Face& f : m.faces)
    for (uint32_t v : f.v) h = (h ^ v) * 1099511628211ull;
  return h;
}

// Whether part c of `m`, renumbered in its vertex order, has exactly the track's faces.
bool SameLocalFaces(const Track& t, const Mesh& m, const Components& comps, size_t c,
                    std::vector<uint32_t>& remap) {
  const auto verts = comps.Verts(c);
  const auto faces = comps.Faces(c);
  if (verts.size() != t.mesh.verts.size() || faces.size() != t.mesh.faces.size()) return false;
  for (size_t i = 0; i < verts.size(); ++i) remap[verts[i]] = static_cast<uint32_t>(i);
  bool same = true;
  for (size_t i = 0; i < faces.size() && same; ++i)
    for (int k = 0; k < 3; ++k)
      if (remap[m.faces[faces[i]].v[k]] != t.mesh.faces[i].v[k]) same = false;
  for (uint32_t v : verts) remap[v] = kNone;
  return same;
}

}  // namespace

struct DeformTracker::Impl {
  std::string name;
  DeformOptions opt;
  int samples = 0;
  std::vector<Track> tracks;
  Components comps;
  std::vector<uint32_t> remap;
  // Pairs of tracks that started at the same sample with vertices within the tolerance.
  std::vector<std::pair<uint32_t, uint32_t>> touching;
  // The previous sample's topology, for the fast path.
  size_t prevVerts = 0;
  std::vector<Face> prevFaces;
  bool started = false;

  void Fit(Track& t, const Mesh& m) {
    const RigidFit f = FitRigid(t.mesh.verts, m.verts.data(), t.verts);
    t.tms.push_back(f.tm);
    t.err.push_back(f.maxError);
    if (f.maxError > opt.tolerance) {
      // Kept in the rest frame, so the element moved by the fit lands exactly on it.
      const Matrix3 inv = Inverse(f.tm);
      std::vector<Point3> shape(t.verts.size());
      for (size_t i = 0; i < shape.size(); ++i) shape[i] = m.verts[t.verts[i]] * inv;
      t.exact.emplace_back(samples, std::move(shape));
    }
  }

  void StartTracks(const Mesh& m, std::span<const size_t> parts) {
    const size_t firstNew = tracks.size();
    if (remap.size() < m.verts.size()) remap.resize(m.verts.size(), kNone);
    for (size_t c : parts) {
      Track t;
      const auto verts = comps.Verts(c);
      t.origin = Centroid(m, verts);
      t.mesh = ExtractPiece(m, verts, comps.Faces(c), t.origin, remap);
      t.verts.assign(verts.begin(), verts.end());
      t.first = samples;
      t.tms.push_back(TransMatrix(t.origin));
      t.err.push_back(0.0f);
      for (const Point3& p : t.mesh.verts) t.radius = std::max(t.radius, p.LengthSquared());
      t.radius = std::sqrt(t.radius);
      t.shape = ShapeHash(t.mesh);
      tracks.push_back(std::move(t));
    }
    FindTouching(m, firstNew);
  }

  // Pairs of new tracks with vertices within the tolerance of each other, by a grid of cells
  // one tolerance wide: only the 27 cells around a vertex can hold its neighbours.
  void FindTouching(const Mesh& m, size_t firstNew) {
    if (tracks.size() - firstNew < 2) return;
    const float cell = std::max(opt.tolerance, 1e-6f);
    struct Entry {
      uint64_t key;
      uint32_t track, vert;
    };
    auto keyOf = [&](int64_t x, int64_t y, int64_t z) {
      return (uint64_t(x) & 0x1FFFFF) | ((uint64_t(y) & 0x1FFFFF) << 21) |
             ((uint64_t(z) & 0x1FFFFF) << 42);
    };
    auto cellOf = [&](float v) { return static_cast<int64_t>(std::floor(v / cell)); };
    std::vector<Entry> grid;
    for (size_t t = firstNew; t < tracks.size(); ++t)
      for (uint32_t v : tracks[t].verts) {
        const Point3& p = m.verts[v];
        grid.push_back({keyOf(cellOf(p.x), cellOf(p.y), cellOf(p.z)), uint32_t(t), v});
      }
    std::sort(grid.begin(), grid.end(),
              [](const Entry& a, const Entry& b) { return a.key < b.key; });
    std::unordered_map<uint64_t, uint32_t> start;
    start.reserve(grid.size());
    for (uint32_t i = 0; i < grid.size(); ++i) start.emplace(grid[i].key, i);
    const float tol2 = opt.tolerance * opt.tolerance;
    std::vector<std::pair<uint32_t, uint32_t>> pairs;
    for (const Entry& e : grid) {
      const Point3& p = m.verts[e.vert];
      const int64_t cx = cellOf(p.x), cy = cellOf(p.y), cz = cellOf(p.z);
      for (int dx = -1; dx <= 1; ++dx)
        for (int dy = -1; dy <= 1; ++dy)
          for (int dz = -1; dz <= 1; ++dz) {
            const auto it = start.find(keyOf(cx + dx, cy + dy, cz + dz));
            if (it == start.end()) continue;
            for (uint32_t i = it->second; i < grid.size() && grid[i].key == grid[it->second].key;
                 ++i) {
              const Entry& o = grid[i];
              if (o.track <= e.track) continue;
              if ((m.verts[o.vert] - p).LengthSquared() <= tol2)
                pairs.emplace_back(e.track, o.track);
            }
          }
    }
    std::sort(pairs.begin(), pairs.end());
    pairs.erase(std::unique(pairs.begin(), pairs.end()), pairs.end());
    touching.insert(touching.end(), pairs.begin(), pairs.end());
  }

  bool Add(const Mesh& m, std::string& error) {
    if (!FacesValid(m)) {
      error = "The mesh of " + name + " has faces that name missing vertices at sample " +
              std::to_string(samples) + ".";
      return false;
    }
    const bool sameTopology =
        started && m.verts.size() == prevVerts && m.faces.size() == prevFaces.size() &&
        std::equal(m.faces.begin(), m.faces.end(), prevFaces.begin(),
                   [](const Face& a, const Face& b) {
                     return a.v[0] == b.v[0] && a.v[1] == b.v[1] && a.v[2] == b.v[2];
                   });
    if (!started) {
      comps.Split(m);
      std::vector<size_t> all(comps.Count());
      std::iota(all.begin(), all.end(), size_t{0});
      StartTracks(m, all);
      started = true;
    } else if (sameTopology) {
      for (Track& t : tracks)
        if (t.live) Fit(t, m);
    } else if (!opt.topology) {
      error = "The mesh of " + name + " changes from " + std::to_string(prevVerts) +
              " vertices and " + std::to_string(prevFaces.size()) + " faces to " +
              std::to_string(m.verts.size()) + " vertices and " + std::to_string(m.faces.size()) +
              " faces at sample " + std::to_string(samples) +
              "; record its topology to follow pieces that appear, vanish or change.";
      return false;
    } else {
      Rematch(m);
    }
    prevVerts = m.verts.size();
    if (!sameTopology) prevFaces.assign(m.faces.begin(), m.faces.end());
    ++samples;
    return true;
  }

  // The topology changed: continue each live track with the part that has its vertices
  // (same indices, same faces), else with the nearest part of the same shape; parts left over
  // start new tracks, tracks left over end.
  void Rematch(const Mesh& m) {
    comps.Split(m);
    if (remap.size() < m.verts.size()) remap.resize(m.verts.size(), kNone);
    const size_t n = comps.Count();
    std::vector<int64_t> partOf(tracks.size(), -1);
    std::vector<uint8_t> taken(n, 0);
    std::unordered_map<uint32_t, uint32_t> byFirstVert;
    for (uint32_t i = 0; i < tracks.size(); ++i)
      if (tracks[i].live && !tracks[i].verts.empty()) byFirstVert.emplace(tracks[i].verts[0], i);
    for (size_t c = 0; c < n; ++c) {
      const auto verts = comps.Verts(c);
      const auto it = byFirstVert.find(verts[0]);
      if (it == byFirstVert.end()) continue;
      Track& t = tracks[it->second];
      if (!std::equal(verts.begin(), verts.end(), t.verts.begin(), t.verts.end())) continue;
      if (!SameLocalFaces(t, m, comps, c, remap)) continue;
      partOf[it->second] = int64_t(c);
      taken[c] = 1;
    }
    // By position: nearest first, among parts and tracks of the same shape.
    std::unordered_map<uint64_t, std::vector<uint32_t>> openByShape;
    for (uint32_t i = 0; i < tracks.size(); ++i)
      if (tracks[i].live && partOf[i] < 0) openByShape[tracks[i].shape].push_back(i);
    struct Candidate {
      float dist;
      uint32_t track;
      size_t part;
    };
    std::vector<Candidate> cands;
    for (size_t c = 0; c < n && !openByShape.empty(); ++c) {
      if (taken[c]) continue;
      const Point3 centre = Centroid(m, comps.Verts(c));
      Mesh probe;  // only counts and local faces matter for the shape hash
      const auto verts = comps.Verts(c);
      const auto faces = comps.Faces(c);
      for (size_t i = 0; i < verts.size(); ++i) remap[verts[i]] = static_cast<uint32_t>(i);
      probe.verts.resize(verts.size());
      probe.faces.resize(faces.size());
      for (size_t i = 0; i < faces.size(); ++i)
        for (int k = 0; k < 3; ++k) probe.faces[i].v[k] = remap[m.faces[faces[i]].v[k]];
      for (uint32_t v : verts) remap[v] = kNone;
      const auto it = openByShape.find(ShapeHash(probe));
      if (it == openByShape.end()) continue;
      for (uint32_t ti : it->second) {
        const Track& t = tracks[ti];
        if (!SameLocalFaces(t, m, comps, c, remap)) continue;
        // Where the track would be now, moving on as it moved over the last step.
        Point3 predicted = t.tms.back().GetTrans();
        if (t.tms.size() > 1) predicted += predicted - t.tms[t.tms.size() - 2].GetTrans();
        const float d = (centre - predicted).Length();
        if (d <= 4 * t.radius + opt.tolerance) cands.push_back({d, ti, c});
      }
    }
    std::sort(cands.begin(), cands.end(),
              [](const Candidate& a, const Candidate& b) { return a.dist < b.dist; });
    for (const Candidate& k : cands) {
      if (taken[k.part] || partOf[k.track] >= 0) continue;
      partOf[k.track] = int64_t(k.part);
      taken[k.part] = 1;
    }
    for (uint32_t i = 0; i < tracks.size(); ++i) {
      Track& t = tracks[i];
      if (!t.live) continue;
      if (partOf[i] < 0) {
        t.live = false;
        continue;
      }
      const auto verts = comps.Verts(size_t(partOf[i]));
      t.verts.assign(verts.begin(), verts.end());
      Fit(t, m);
    }
    std::vector<size_t> fresh;
    for (size_t c = 0; c < n; ++c)
      if (!taken[c]) fresh.push_back(c);
    StartTracks(m, fresh);
  }

  // The largest distance between where tracks a and b put b's rest bounding box at sample s:
  // the difference of two affine maps is largest at a corner of the box.
  float Disagreement(const Track& a, const Track& b, int s) const {
    const Box3 box = b.mesh.getBoundingBox();
    const Matrix3& ta = a.tms[size_t(s - a.first)];
    const Matrix3& tb = b.tms[size_t(s - b.first)];
    const Point3 shift = b.origin - a.origin;  // b's rest frame in a's
    float worst = 0;
    for (int k = 0; k < 8; ++k) {
      const Point3 p{(k & 1) ? box.pmax.x : box.pmin.x, (k & 2) ? box.pmax.y : box.pmin.y,
                     (k & 4) ? box.pmax.z : box.pmin.z};
      worst = std::max(worst, ((p + shift) * ta - p * tb).Length());
    }
    return worst;
  }

  // Joins touching tracks that lived over the same samples and moved as one throughout.
  void Merge() {
    std::vector<uint32_t> root(tracks.size());
    std::iota(root.begin(), root.end(), 0u);
    auto find = [&](uint32_t v) {
      while (root[v] != v) v = root[v] = root[root[v]];
      return v;
    };
    for (auto [a, b] : touching) {
      const Track& ta = tracks[a];
      const Track& tb = tracks[b];
      if (ta.first != tb.first || ta.Last() != tb.Last()) continue;
      const uint32_t ra = find(a), rb = find(b);
      if (ra != rb) root[std::max(ra, rb)] = std::min(ra, rb);
    }
    std::vector<std::vector<uint32_t>> groups(tracks.size());
    for (uint32_t i = 0; i < tracks.size(); ++i) groups[find(i)].push_back(i);
    for (auto& g : groups) {
      if (g.size() < 2) continue;
      // The largest part leads; the others join it if they stay within the tolerance of it.
      const uint32_t lead = *std::max_element(g.begin(), g.end(), [&](uint32_t a, uint32_t b) {
        return tracks[a].mesh.verts.size() < tracks[b].mesh.verts.size();
      });
      Track& L = tracks[lead];
      if (!L.exact.empty()) continue;
      for (uint32_t m : g) {
        if (m == lead) continue;
        Track& M = tracks[m];
        if (!M.exact.empty()) continue;
        bool together = true;
        for (int s = M.first; s <= M.Last() && together; ++s)
          together = M.err[size_t(s - M.first)] + Disagreement(L, M, s) <= opt.tolerance;
        if (!together) continue;
        const Point3 shift = M.origin - L.origin;
        for (Point3& p : M.mesh.verts) p += shift;
        L.mesh.Append(M.mesh);
        for (size_t s = 0; s < L.err.size(); ++s)
          L.err[s] = std::max(L.err[s], M.err[s] + Disagreement(L, M, L.first + int(s)));
        M.mesh = Mesh();
        M.tms.clear();  // marks it merged
      }
    }
  }
};

DeformTracker::DeformTracker(std::string name, const DeformOptions& opt)
    : impl_(std::make_unique<Impl>()) {
  impl_->name = std::move(name);
  impl_->opt = opt;
  if (!(impl_->opt.tolerance >= 0)) impl_->opt.tolerance = 0;  // NaN too
}

DeformTracker::~DeformTracker() = default;

bool DeformTracker::Add(const Mesh& mesh, std::string& error) {
  return impl_->Add(mesh, error);
}

int DeformTracker::Samples() const {
  return impl_->samples;
}

DeformReport DeformTracker::Finish(host::Node* node, std::vector<DeformPiece>& out) {
  Impl& d = *impl_;
  d.Merge();
  DeformReport r;
  r.name = d.name;
  std::vector<DeformPiece> extra;
  char suffix[48];
  for (Track& t : d.tracks) {
    if (t.tms.empty()) continue;  // merged into another
    ++r.pieces;
    for (size_t s = 0; s < t.err.size(); ++s)
      if (t.err[s] > r.maxError) r.maxError = t.err[s], r.worstSample = t.first + int(s);
    DeformPiece p;
    p.node = node;
    std::snprintf(suffix, sizeof suffix, "_%04d", r.pieces);
    p.name = d.name + suffix;
    p.first = t.first;
    p.shown.resize(t.tms.size());
    for (size_t s = 0; s < t.err.size(); ++s) p.shown[s] = t.err[s] <= d.opt.tolerance;
    for (auto& [sample, shape] : t.exact) {
      DeformPiece e;
      e.node = node;
      std::snprintf(suffix, sizeof suffix, "_%04d_s%d", r.pieces, sample);
      e.name = d.name + suffix;
      e.mesh = t.mesh;
      e.mesh.verts = std::move(shape);
      e.first = sample;
      // Shown at its own sample only, carried towards the next by the fit.
      const size_t i = size_t(sample - t.first);
      e.tms.assign(t.tms.begin() + long(i), t.tms.begin() + long(std::min(i + 2, t.tms.size())));
      e.shown.assign(e.tms.size(), 0);
      e.shown[0] = 1;
      extra.push_back(std::move(e));
      ++r.exactSamples;
    }
    p.mesh = std::move(t.mesh);
    p.tms = std::move(t.tms);
    out.push_back(std::move(p));
  }
  for (DeformPiece& e : extra) out.push_back(std::move(e));
  r.exceeds = r.maxError > d.opt.tolerance;
  d.tracks.clear();
  return r;
}

DeformStatus AnalyzeDeformations(std::span<host::Node* const> nodes, const RecordRange& range,
                                 const DeformOptions& opt, const std::function<bool(int)>& progress,
                                 DeformScene& out, std::string& error) {
  out = DeformScene{};
  out.range = range;
  std::vector<std::unique_ptr<DeformTracker>> trackers;
  trackers.reserve(nodes.size());
  for (host::Node* n : nodes)
    trackers.push_back(std::make_unique<DeformTracker>(n->GetName(), opt));
  const int samples = range.NumSamples();
  Mesh mesh;
  int shown = -1;
  for (int s = 0; s < samples; ++s) {
    const TimeValue t = static_cast<TimeValue>(int64_t{range.start} + int64_t{s} * range.step);
    for (size_t i = 0; i < nodes.size(); ++i) {
      mesh.FreeAll();
      if (!nodes[i]->EvalTriMesh(t, true, mesh)) mesh.FreeAll();  // nothing exists now
      if (!trackers[i]->Add(mesh, error)) return DeformStatus::Failed;
    }
    const int pct = static_cast<int>(int64_t{100} * (s + 1) / samples);
    if (pct != shown) {
      shown = pct;
      if (progress && !progress(pct)) return DeformStatus::Cancelled;
    }
  }
  for (size_t i = 0; i < nodes.size(); ++i)
    out.reports.push_back(trackers[i]->Finish(nodes[i], out.pieces));
  return DeformStatus::Ok;
}

std::vector<std::string> DeformReportLines(const DeformScene& scene, float tolerance,
                                           std::vector<std::string>* warnings) {
  std::vector<std::string> lines;
  char buf[512];
  for (const DeformReport& r : scene.reports) {
    std::snprintf(buf, sizeof buf, "%s: %d piece%s, largest distance from a rigid fit %g",
                  r.name.c_str(), r.pieces, r.pieces == 1 ? "" : "s", double(r.maxError));
    lines.emplace_back(buf);
    if (r.exceeds && warnings) {
      std::snprintf(buf, sizeof buf,
                    "%s does not move rigidly: a vertex is %g from its piece's rigid fit at "
                    "sample %d (tolerance %g); %d sample%s kept exact by extra elements",
                    r.name.c_str(), double(r.maxError), r.worstSample, double(tolerance),
                    r.exactSamples, r.exactSamples == 1 ? "" : "s");
      warnings->emplace_back(buf);
    }
  }
  return lines;
}

}  // namespace kv

#include "host/standalone/objects.h"

#include <cstring>

#include "host/standalone/controls.h"

namespace kv::standalone {
namespace {

using host::IOResult;

constexpr uint16_t kMeshVertsChunk = 0x0010;
constexpr uint16_t kMeshFacesChunk = 0x0011;
constexpr uint16_t kMeshSelChunk = 0x0012;
constexpr uint16_t kMeshMapChunk = 0x0013;
constexpr uint16_t kMeshNormalsChunk = 0x0014;
constexpr uint16_t kFarAttenChunk = 0x0020;

template <class T>
void Put(host::ISave& s, const T& v) {
  s.Write(&v, sizeof(T));
}
template <class T>
bool Get(host::ILoad& l, T& v) {
  return l.Read(&v, sizeof(T)) == IOResult::Ok;
}
void PutP3(host::ISave& s, const Point3& p) {
  Put(s, p.x), Put(s, p.y), Put(s, p.z);
}
bool GetP3(host::ILoad& l, Point3& p) {
  return Get(l, p.x) && Get(l, p.y) && Get(l, p.z);
}

// Reads n points, growing the array as it goes so that a corrupt count cannot allocate more
// than the chunk holds.
bool GetPoints(host::ILoad& l, uint32_t n, std::vector<Point3>& out) {
  out.clear();
  for (uint32_t i = 0; i < n; ++i) {
    Point3 p;
    if (!GetP3(l, p)) return false;
    out.push_back(p);
  }
  return true;
}

}  // namespace

bool TriObject::GetTriMesh(TimeValue, bool, Mesh& out) {
  out = mesh;
  return mesh.numVerts() > 0 && mesh.numFaces() > 0;
}

bool TriObject::Save(host::ISave& s) const {
  SaveMesh(s, mesh);
  return true;
}

IOResult TriObject::Load(host::ILoad& l) {
  return LoadMesh(l, mesh);
}

void SaveMesh(host::ISave& s, const Mesh& m) {
  s.BeginChunk(kMeshVertsChunk);
  Put(s, static_cast<uint32_t>(m.verts.size()));
  for (const Point3& p : m.verts) PutP3(s, p);
  s.EndChunk();
  s.BeginChunk(kMeshFacesChunk);
  Put(s, static_cast<uint32_t>(m.faces.size()));
  for (const Face& f : m.faces) {
    Put(s, f.v[0]), Put(s, f.v[1]), Put(s, f.v[2]), Put(s, f.smGroup), Put(s, f.flags);
  }
  s.EndChunk();
  if (m.faceSel.AnyBitSet()) {
    s.BeginChunk(kMeshSelChunk);
    m.faceSel.ForEachSet([&](int i) { Put(s, static_cast<uint32_t>(i)); });
    s.EndChunk();
  }
  for (int ch = 0; ch < m.getNumMaps(); ++ch) {
    if (!m.mapSupport(ch)) continue;
    const MapChannel& mc = m.Map(ch);
    s.BeginChunk(kMeshMapChunk);
    Put(s, static_cast<uint32_t>(ch));
    Put(s, static_cast<uint32_t>(mc.verts.size()));
    for (const Point3& p : mc.verts) PutP3(s, p);
    for (const TVFace& f : mc.faces) Put(s, f.t[0]), Put(s, f.t[1]), Put(s, f.t[2]);
    s.EndChunk();
  }
  if (m.hasSpecNormals()) {
    s.BeginChunk(kMeshNormalsChunk);
    for (const Point3& n : m.specNormals) PutP3(s, n);
    s.EndChunk();
  }
}

IOResult LoadMesh(host::ILoad& l, Mesh& m) {
  m.FreeAll();
  IOResult r;
  // Selection, channels and normals hold one entry per face: they must follow the faces,
  // or resizing the faces afterwards would silently blank them.
  bool haveFaces = false;
  while ((r = l.OpenChunk()) == IOResult::Ok) {
    bool ok = true;
    uint32_t n = 0;
    const uint16_t id = l.CurChunkID();
    if ((id == kMeshSelChunk || id == kMeshMapChunk || id == kMeshNormalsChunk) && !haveFaces)
      return IOResult::Error;
    if (id == kMeshFacesChunk) {
      if (haveFaces) return IOResult::Error;
      haveFaces = true;
    }
    switch (id) {
      case kMeshVertsChunk:
        ok = Get(l, n) && GetPoints(l, n, m.verts);
        break;
      case kMeshFacesChunk: {
        ok = Get(l, n);
        std::vector<Face> faces;
        for (uint32_t i = 0; ok && i < n; ++i) {
          Face f;
          ok = Get(l, f.v[0]) && Get(l, f.v[1]) && Get(l, f.v[2]) && Get(l, f.smGroup) &&
               Get(l, f.flags);
          if (ok) faces.push_back(f);
        }
        if (ok) {
          m.setNumFaces(static_cast<int>(faces.size()));
          m.faces = std::move(faces);
        }
        break;
      }
      case kMeshSelChunk: {
        uint32_t i;
        while (ok && Get(l, i)) {
          if (i >= m.faces.size())
            ok = false;
          else
            m.faceSel.Set(static_cast<int>(i));
        }
        break;
      }
      case kMeshMapChunk: {
        uint32_t ch = 0;
        ok = Get(l, ch) && Get(l, n) && ch < static_cast<uint32_t>(kMaxMapChannels);
        if (!ok) break;
        m.setMapSupport(static_cast<int>(ch), true);
        MapChannel& mc = m.Map(static_cast<int>(ch));
        ok = GetPoints(l, n, mc.verts);
        for (TVFace& f : mc.faces) {
          if (!ok) break;
          ok = Get(l, f.t[0]) && Get(l, f.t[1]) && Get(l, f.t[2]) && f.t[0] < n && f.t[1] < n &&
               f.t[2] < n;
        }
        break;
      }
      case kMeshNormalsChunk:
        ok = GetPoints(l, static_cast<uint32_t>(m.faces.size() * 3), m.specNormals);
        break;
      default:
        break;  // unknown chunks of later versions are skipped
    }
    if (!ok || l.CloseChunk() != IOResult::Ok) return IOResult::Error;
  }
  if (r == IOResult::Error) return r;
  // Faces must index existing vertices.
  for (const Face& f : m.faces)
    for (uint32_t v : f.v)
      if (v >= m.verts.size()) return IOResult::Error;
  return IOResult::Ok;
}

bool IsLightClass(host::ClassId id) {
  return id == host::kOmniLightClassId || id == host::kSpotLightClassId ||
         id == host::kDirLightClassId;
}

LightObject::LightObject(host::ClassId classId, UndoStack* undo)
    : classId_(classId), undo_(undo), farAttenEnd_(MakeControl(host::ControlKind::Float, undo)) {
  farAttenEnd_->SetValue(0, 200.0f, false);
}

std::unique_ptr<host::Object> LightObject::Clone() const {
  auto c = std::make_unique<LightObject>(classId_, undo_);
  c->farAttenEnd_ = farAttenEnd_->Clone();
  return c;
}

bool LightObject::Save(host::ISave& s) const {
  s.BeginChunk(kFarAttenChunk);
  SaveControl(*farAttenEnd_, s);
  s.EndChunk();
  return true;
}

IOResult LightObject::Load(host::ILoad& l) {
  IOResult r;
  while ((r = l.OpenChunk()) == IOResult::Ok) {
    if (l.CurChunkID() == kFarAttenChunk) {
      if (l.OpenChunk() != IOResult::Ok) return IOResult::Error;
      auto c = LoadControl(l, undo_);
      if (!c || c->Kind() != host::ControlKind::Float || l.CloseChunk() != IOResult::Ok)
        return IOResult::Error;
      farAttenEnd_ = std::move(c);
    }
    if (l.CloseChunk() != IOResult::Ok) return IOResult::Error;
  }
  return r == IOResult::End ? IOResult::Ok : r;
}

}  // namespace kv::standalone

#include "host/standalone/scene_file.h"

#include <cstdio>
#include <cstring>
#include <fstream>

#include "host/standalone/controls.h"

namespace kv::standalone {
namespace {

using host::IOResult;

constexpr char kMagic[8] = {'K', 'V', 'S', 'C', 'E', 'N', 'E', '\0'};
constexpr uint32_t kVersion = 1;
constexpr uint16_t kTimeChunk = 0x0001, kMaterialsChunk = 0x0002, kObjectsChunk = 0x0003,
                   kNodesChunk = 0x0004;
constexpr uint16_t kMaterialChunk = 0x0021, kObjectChunk = 0x0031, kObjectDataChunk = 0x0032;
constexpr uint16_t kNodeChunk = 0x0041, kNodeFieldsChunk = 0x0042, kNodeTMChunk = 0x0043,
                   kNodeVisChunk = 0x0044;
constexpr uint8_t kHidden = 1, kSelected = 2, kInheritVis = 4;

template <class T>
void Put(host::ISave& s, const T& v) {
  s.Write(&v, sizeof(T));
}
void PutString(host::ISave& s, const std::string& str) {
  Put(s, static_cast<uint32_t>(str.size()));
  s.Write(str.data(), str.size());
}
template <class T>
bool Get(ChunkReader& r, T& v) {
  return r.Read(&v, sizeof(T)) == IOResult::Ok;
}
bool GetString(ChunkReader& r, std::string& out) {
  uint32_t n = 0;
  if (!Get(r, n) || n > r.Left()) return false;
  out.resize(n);
  return r.Read(out.data(), n) == IOResult::Ok;
}

template <class T>
int IndexOf(const std::vector<T*>& v, const T* p) {
  for (size_t i = 0; i < v.size(); ++i)
    if (v[i] == p) return static_cast<int>(i);
  return -1;
}

}  // namespace

std::unique_ptr<host::Object> ClassRegistry::Create(host::ClassId id, Scene& scene) const {
  const auto it = factories_.find(Key(id));
  return it == factories_.end() ? nullptr : it->second(scene);
}

ClassRegistry& ClassRegistry::Global() {
  static ClassRegistry registry;
  return registry;
}

void ChunkWriter::BeginChunk(uint16_t id) {
  Write(&id, 2);
  open_.push_back(bytes_.size());
  const uint32_t placeholder = 0;
  Write(&placeholder, 4);
}

void ChunkWriter::EndChunk() {
  if (open_.empty()) return;
  const size_t at = open_.back();
  open_.pop_back();
  const uint32_t len = static_cast<uint32_t>(bytes_.size() - at - 4);
  std::memcpy(bytes_.data() + at, &len, 4);
}

bool ChunkWriter::Write(const void* data, size_t bytes) {
  const auto* p = static_cast<const uint8_t*>(data);
  bytes_.insert(bytes_.end(), p, p + bytes);
  return true;
}

IOResult ChunkReader::OpenChunk() {
  const size_t end = End();
  if (pos_ == end) return IOResult::End;
  if (end - pos_ < 6) return IOResult::Error;
  uint16_t id;
  uint32_t len;
  std::memcpy(&id, data_ + pos_, 2);
  std::memcpy(&len, data_ + pos_ + 2, 4);
  if (len > end - pos_ - 6) return IOResult::Error;
  pos_ += 6;
  ends_.push_back(pos_ + len);
  ids_.push_back(id);
  return IOResult::Ok;
}

IOResult ChunkReader::CloseChunk() {
  if (ends_.empty()) return IOResult::Error;
  pos_ = ends_.back();
  ends_.pop_back();
  ids_.pop_back();
  return IOResult::Ok;
}

IOResult ChunkReader::Read(void* data, size_t bytes) {
  if (bytes > End() - pos_) return IOResult::Error;
  if (bytes) std::memcpy(data, data_ + pos_, bytes);
  pos_ += bytes;
  return IOResult::Ok;
}

// ---------------------------------------------------------------- save

bool SaveScene(const Scene& scene, const std::string& path, std::string& error) {
  ChunkWriter w;
  w.Write(kMagic, 8);
  Put(w, kVersion);

  w.BeginChunk(kTimeChunk);
  Put(w, int32_t{scene.GetFrameRate()});
  Put(w, scene.GetAnimRange().Start());
  Put(w, scene.GetAnimRange().End());
  Put(w, scene.GetTime());
  w.EndChunk();

  std::vector<host::Mtl*> mtls;
  for (const auto& m : scene.Materials()) mtls.push_back(m.get());
  w.BeginChunk(kMaterialsChunk);
  for (host::Mtl* m : mtls) {
    w.BeginChunk(kMaterialChunk);
    const auto* sm = dynamic_cast<const StdMtl*>(m);
    Put(w, uint8_t{sm ? uint8_t{0} : uint8_t{1}});
    PutString(w, m->GetName());
    if (sm) {
      Put(w, sm->diffuse.x), Put(w, sm->diffuse.y), Put(w, sm->diffuse.z);
    } else {
      Put(w, static_cast<uint32_t>(m->NumSubMtls()));
      for (int i = 0; i < m->NumSubMtls(); ++i) Put(w, int32_t{IndexOf(mtls, m->GetSubMtl(i))});
    }
    w.EndChunk();
  }
  w.EndChunk();

  const std::vector<SceneNode*> nodes = scene.AllNodes();
  std::vector<host::Object*> objs;
  for (SceneNode* n : nodes)
    if (n->GetObjectRef() && IndexOf(objs, n->GetObjectRef()) < 0)
      objs.push_back(n->GetObjectRef());
  w.BeginChunk(kObjectsChunk);
  for (host::Object* o : objs) {
    w.BeginChunk(kObjectChunk);
    Put(w, o->GetClassId().a);
    Put(w, o->GetClassId().b);
    w.BeginChunk(kObjectDataChunk);
    const bool ok = o->Save(w);
    w.EndChunk();
    w.EndChunk();
    if (!ok) {
      error = "an object of class (" + std::to_string(o->GetClassId().a) + ", " +
              std::to_string(o->GetClassId().b) + ") could not save itself";
      return false;
    }
  }
  w.EndChunk();

  w.BeginChunk(kNodesChunk);
  for (SceneNode* n : nodes) {
    w.BeginChunk(kNodeChunk);
    w.BeginChunk(kNodeFieldsChunk);
    PutString(w, n->GetName());
    Put(w, int32_t{IndexOf(nodes, n->Parent())});
    Put(w, int32_t{IndexOf(objs, n->GetObjectRef())});
    Put(w, int32_t{IndexOf(mtls, n->GetMtl())});
    Put(w, n->GetWireColor());
    const uint8_t flags = (n->IsHidden() ? kHidden : 0) | (n->Selected() ? kSelected : 0) |
                          (n->GetInheritVisibility() ? kInheritVis : 0);
    Put(w, flags);
    float off[12];
    n->GetObjectOffset().ToFloats(off);
    w.Write(off, sizeof off);
    w.EndChunk();
    w.BeginChunk(kNodeTMChunk);
    SaveControl(*n->GetTMController(), w);
    w.EndChunk();
    if (n->GetVisController()) {
      w.BeginChunk(kNodeVisChunk);
      SaveControl(*n->GetVisController(), w);
      w.EndChunk();
    }
    w.EndChunk();
  }
  w.EndChunk();

  // Written beside the target and renamed over it, so that a failed write (a full disk)
  // leaves the previous file as it was.
  const std::string tmp = path + ".saving~";
  {
    std::ofstream f(tmp, std::ios::binary | std::ios::trunc);
    f.write(reinterpret_cast<const char*>(w.Bytes().data()),
            static_cast<std::streamsize>(w.Bytes().size()));
    f.close();
    if (!f) {
      std::remove(tmp.c_str());
      error = "cannot write \"" + path + "\"";
      return false;
    }
  }
  if (std::rename(tmp.c_str(), path.c_str()) != 0) {
    std::remove(tmp.c_str());
    error = "cannot write \"" + path + "\"";
    return false;
  }
  return true;
}

// ---------------------------------------------------------------- load

namespace {

struct Loader {
  Scene& s;
  ChunkReader& r;
  const ClassRegistry& reg;
  std::string& error;
  std::vector<host::Mtl*> mtls;
  std::vector<std::vector<int32_t>> multiSubs;  // resolved once all materials exist
  std::vector<host::Object*> objs;

  bool Fail(const std::string& what) {
    error = what;
    return false;
  }

  // Calls f for each chunk at this level; f returns false on bad data.
  template <class F>
  bool EachChunk(F&& f) {
    IOResult res;
    while ((res = r.OpenChunk()) == IOResult::Ok) {
      if (!f(r.CurChunkID())) return false;
      if (r.CloseChunk() != IOResult::Ok) return Fail("corrupt chunk structure");
    }
    return res == IOResult::End || Fail("a chunk is longer than the data around it");
  }

  bool Time() {
    int32_t fps, a, b, t;
    if (!Get(r, fps) || !Get(r, a) || !Get(r, b) || !Get(r, t))
      return Fail("truncated time settings");
    if (fps <= 0 || fps > kTicksPerSecond) return Fail("bad frame rate");
    s.SetFrameRate(fps);
    s.SetAnimRange(Interval(a, b));
    s.SetTime(t);
    return true;
  }

  bool Material() {
    uint8_t kind;
    std::string name;
    if (!Get(r, kind) || !GetString(r, name) || kind > 1) return Fail("bad material");
    if (kind == 0) {
      Point3 d;
      if (!Get(r, d.x) || !Get(r, d.y) || !Get(r, d.z)) return Fail("truncated material");
      mtls.push_back(s.NewStdMtl(name, d));
      multiSubs.emplace_back();
      return true;
    }
    uint32_t n;
    if (!Get(r, n) || n > r.Left() / 4) return Fail("bad multi-material");
    std::vector<int32_t> subs(n);
    for (int32_t& i : subs)
      if (!Get(r, i)) return Fail("truncated multi-material");
    mtls.push_back(s.NewMultiMtl(name));
    multiSubs.push_back(std::move(subs));
    return true;
  }

  bool Object() {
    host::ClassId id;
    if (!Get(r, id.a) || !Get(r, id.b)) return Fail("truncated object");
    std::unique_ptr<host::Object> o;
    if (id == host::kTriObjectClassId)
      o = std::make_unique<TriObject>();
    else if (id == host::kPointHelperClassId)
      o = std::make_unique<PointHelperObject>();
    else if (IsLightClass(id))
      o = std::make_unique<LightObject>(id, &s.UndoHistory());
    else
      o = reg.Create(id, s);
    if (!o)
      return Fail("unknown object class (" + std::to_string(id.a) + ", " + std::to_string(id.b) +
                  ")");
    if (r.OpenChunk() != IOResult::Ok || r.CurChunkID() != kObjectDataChunk)
      return Fail("object without its data");
    if (o->Load(r) != IOResult::Ok) return Fail("an object's data is corrupt");
    if (r.CloseChunk() != IOResult::Ok) return Fail("corrupt chunk structure");
    objs.push_back(s.AddObject(std::move(o)));
    return true;
  }

  bool Nodes() {
    struct Pending {
      SceneNode* node;
      int32_t parent;
    };
    std::vector<Pending> made;
    const bool ok = EachChunk([&](uint16_t id) {
      if (id != kNodeChunk) return true;
      SceneNode* n = nullptr;
      int32_t parent = -1;
      return EachChunk([&](uint16_t sub) {
        if (sub == kNodeFieldsChunk) {
          std::string name;
          int32_t obj, mtl;
          uint32_t wire;
          uint8_t flags;
          float off[12];
          if (!GetString(r, name) || !Get(r, parent) || !Get(r, obj) || !Get(r, mtl) ||
              !Get(r, wire) || !Get(r, flags) || r.Read(off, sizeof off) != IOResult::Ok)
            return Fail("truncated node");
          if (obj < -1 || obj >= static_cast<int32_t>(objs.size()) || mtl < -1 ||
              mtl >= static_cast<int32_t>(mtls.size()))
            return Fail("node \"" + name + "\" refers to a missing object or material");
          n = s.CreateNode(nullptr, name);
          if (obj >= 0) n->SetObjectRef(objs[static_cast<size_t>(obj)]);
          if (mtl >= 0) n->SetMtl(mtls[static_cast<size_t>(mtl)]);
          n->SetWireColor(wire);
          n->Hide(flags & kHidden);
          n->SetSelected(flags & kSelected);
          n->SetInheritVisibility(flags & kInheritVis);
          n->SetObjectOffset(Matrix3::FromFloats(off));
          made.push_back({n, parent});
          return true;
        }
        if (sub == kNodeTMChunk || sub == kNodeVisChunk) {
          if (!n) return Fail("node controller before the node");
          if (r.OpenChunk() != IOResult::Ok) return Fail("truncated controller");
          auto c = LoadControl(r, &s.UndoHistory());
          if (!c || r.CloseChunk() != IOResult::Ok) return Fail("corrupt controller");
          const bool fits = sub == kNodeTMChunk ? n->SetTMController(std::move(c))
                                                : n->SetVisController(std::move(c));
          return fits || Fail("controller of the wrong kind");
        }
        return true;  // chunks of later versions
      });
    });
    if (!ok) return false;
    for (const Pending& p : made) {
      if (p.parent < -1 || p.parent >= static_cast<int32_t>(made.size()))
        return Fail("node parent out of range");
      if (p.parent < 0) continue;
      SceneNode* parent = made[static_cast<size_t>(p.parent)].node;
      s.Link(p.node, parent);
      if (p.node->Parent() != parent) return Fail("the node hierarchy has a loop");
    }
    return true;
  }

  bool Run() {
    uint32_t seen = 0;  // every section must be there: a cut file can end between chunks
    const bool ok = EachChunk([&](uint16_t id) {
      if (id >= kTimeChunk && id <= kNodesChunk) seen |= 1u << id;
      switch (id) {
        case kTimeChunk:
          return Time();
        case kMaterialsChunk:
          return EachChunk([&](uint16_t m) { return m != kMaterialChunk || Material(); });
        case kObjectsChunk:
          return EachChunk([&](uint16_t o) { return o != kObjectChunk || Object(); });
        case kNodesChunk:
          return Nodes();
        default:
          return true;
      }
    });
    if (!ok) return false;
    if (seen != 0x1E) return Fail("the file ends before all its sections");
    for (size_t i = 0; i < mtls.size(); ++i) {
      auto* mm = dynamic_cast<MultiMtl*>(mtls[i]);
      if (!mm) continue;
      for (int32_t sub : multiSubs[i]) {
        if (sub < -1 || sub >= static_cast<int32_t>(mtls.size()) || sub == static_cast<int32_t>(i))
          return Fail("multi-material slot out of range");
        mm->subs.push_back(sub < 0 ? nullptr : mtls[static_cast<size_t>(sub)]);
      }
    }
    return true;
  }
};

}  // namespace

std::unique_ptr<Scene> LoadScene(const std::string& path, std::string& error,
                                 const ClassRegistry& registry) {
  error.clear();
  std::ifstream f(path, std::ios::binary);
  if (!f) {
    error = "cannot open \"" + path + "\"";
    return nullptr;
  }
  // One read of the whole file; every later step works on the bounded reader.
  const std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(f)),
                                   std::istreambuf_iterator<char>());
  if (bytes.size() < 12 || std::memcmp(bytes.data(), kMagic, 8) != 0) {
    error = "\"" + path + "\" is not a scene file";
    return nullptr;
  }
  uint32_t version;
  std::memcpy(&version, bytes.data() + 8, 4);
  if (version != kVersion) {
    error = "unsupported scene file version " + std::to_string(version);
    return nullptr;
  }
  ChunkReader r(bytes.data() + 12, bytes.size() - 12);
  auto scene = std::make_unique<Scene>();
  Loader l{*scene, r, registry, error, {}, {}, {}};
  if (!l.Run()) {
    error = "\"" + path + "\": " + error;
    return nullptr;
  }
  return scene;
}

}  // namespace kv::standalone

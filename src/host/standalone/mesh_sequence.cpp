#include "host/standalone/mesh_sequence.h"

#include <tiny_obj_loader.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>

#include "host/standalone/scene.h"

namespace kv::standalone {

namespace fs = std::filesystem;

namespace {

std::string Lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

bool ReadObj(const std::string& path, Mesh& out, std::string& error) {
  tinyobj::ObjReaderConfig cfg;
  cfg.triangulate = true;
  cfg.vertex_color = false;
  tinyobj::ObjReader reader;
  if (!reader.ParseFromFile(path, cfg)) {
    std::string why = reader.Error();
    while (!why.empty() && std::isspace(static_cast<unsigned char>(why.back()))) why.pop_back();
    error = path + ": " + (why.empty() ? "cannot be read" : why);
    return false;
  }
  const tinyobj::attrib_t& a = reader.GetAttrib();
  const size_t nv = a.vertices.size() / 3;
  out.FreeAll();
  out.verts.resize(nv);
  for (size_t i = 0; i < nv; ++i)
    out.verts[i] = {a.vertices[3 * i], a.vertices[3 * i + 1], a.vertices[3 * i + 2]};
  size_t nf = 0;
  for (const tinyobj::shape_t& s : reader.GetShapes()) nf += s.mesh.num_face_vertices.size();
  out.setNumFaces(static_cast<int>(nf));
  const size_t nt = a.texcoords.size() / 2;
  const bool uv = nt > 0;
  if (uv) {
    out.setMapSupport(1, true);
    out.Map(1).verts.resize(nt);
    for (size_t i = 0; i < nt; ++i)
      out.Map(1).verts[i] = {a.texcoords[2 * i], a.texcoords[2 * i + 1], 0};
  }
  size_t f = 0;
  for (const tinyobj::shape_t& s : reader.GetShapes()) {
    size_t at = 0;
    for (size_t k = 0; k < s.mesh.num_face_vertices.size(); ++k, ++f) {
      if (s.mesh.num_face_vertices[k] != 3 || at + 3 > s.mesh.indices.size()) {
        error = path + ": a face that is not a triangle after triangulation";
        return false;
      }
      Face& face = out.faces[f];
      for (int c = 0; c < 3; ++c) {
        const tinyobj::index_t& ix = s.mesh.indices[at + size_t(c)];
        if (ix.vertex_index < 0 || size_t(ix.vertex_index) >= nv) {
          error = path + ": a face names vertex " + std::to_string(ix.vertex_index + 1) + " of " +
                  std::to_string(nv);
          return false;
        }
        face.v[c] = uint32_t(ix.vertex_index);
        if (uv) {
          const bool ok = ix.texcoord_index >= 0 && size_t(ix.texcoord_index) < nt;
          out.Map(1).faces[f].t[c] = ok ? uint32_t(ix.texcoord_index) : 0;
        }
      }
      at += 3;
      face.setEdgeVisBits(kEdgeAll);
      if (k < s.mesh.smoothing_group_ids.size()) face.smGroup = s.mesh.smoothing_group_ids[k];
      if (k < s.mesh.material_ids.size() && s.mesh.material_ids[k] > 0)
        face.setMatID(static_cast<MtlID>(s.mesh.material_ids[k]));
    }
  }
  return true;
}

// .ply: a header of elements and their properties, then the data in ASCII or binary.
class PlyReader {
 public:
  PlyReader(const std::string& path, std::string& error) : path_(path), error_(error) {}

  bool Read(Mesh& out) {
    std::ifstream in(path_, std::ios::binary);
    if (!in) return Fail("cannot be opened");
    std::string line;
    if (!std::getline(in, line) || Trim(line) != "ply") return Fail("is not a .ply file");
    std::string format;
    while (std::getline(in, line)) {
      std::istringstream ls(Trim(line));
      std::string word;
      ls >> word;
      if (word == "format") {
        ls >> format;
      } else if (word == "element") {
        Element e;
        long long n = -1;
        ls >> e.name >> n;
        if (n < 0) return Fail("has an element without a count");
        e.count = static_cast<uint64_t>(n);
        elements_.push_back(e);
      } else if (word == "property") {
        if (elements_.empty()) return Fail("has a property outside an element");
        Property p;
        std::string type;
        ls >> type;
        if (type == "list") {
          p.list = true;
          ls >> p.countType >> p.type >> p.name;
        } else {
          p.type = type;
          ls >> p.name;
        }
        if (Size(p.type) == 0 || (p.list && Size(p.countType) == 0))
          return Fail("has a property of unknown type");
        elements_.back().props.push_back(p);
      } else if (word == "end_header") {
        break;
      }
    }
    if (format == "ascii")
      ascii_ = true;
    else if (format == "binary_little_endian")
      swap_ = false;
    else if (format == "binary_big_endian")
      swap_ = true;
    else
      return Fail("has an unknown format '" + format + "'");
    in_ = &in;
    out.FreeAll();
    std::vector<uint32_t> poly;
    for (const Element& e : elements_) {
      const bool verts = e.name == "vertex", faces = e.name == "face";
      int xyz[3] = {-1, -1, -1}, idx = -1;
      for (size_t i = 0; i < e.props.size(); ++i) {
        const std::string& n = e.props[i].name;
        if (n == "x") xyz[0] = int(i);
        if (n == "y") xyz[1] = int(i);
        if (n == "z") xyz[2] = int(i);
        if (e.props[i].list && (n == "vertex_indices" || n == "vertex_index")) idx = int(i);
      }
      if (verts && (xyz[0] < 0 || xyz[1] < 0 || xyz[2] < 0))
        return Fail("has vertices without x, y and z");
      // Counts come from the file: grow with the data rather than trusting them up front.
      for (uint64_t r = 0; r < e.count; ++r) {
        Point3 p;
        for (size_t i = 0; i < e.props.size(); ++i) {
          const Property& pr = e.props[i];
          if (pr.list) {
            double cnt = 0;
            if (!Value(pr.countType, cnt) || cnt < 0 || cnt > 1e6)
              return Fail("is truncated or corrupt");
            poly.clear();
            for (int k = 0; k < int(cnt); ++k) {
              double v = 0;
              if (!Value(pr.type, v)) return Fail("is truncated");
              poly.push_back(v < 0 ? 0xFFFFFFFFu : static_cast<uint32_t>(v));
            }
            if (faces && int(i) == idx) {
              for (size_t k = 2; k < poly.size(); ++k) {
                Face f;
                f.setVerts(poly[0], poly[k - 1], poly[k]);
                f.setEdgeVisBits(kEdgeAll);
                out.faces.push_back(f);
              }
            }
          } else {
            double v = 0;
            if (!Value(pr.type, v)) return Fail("is truncated");
            if (verts)
              for (int c = 0; c < 3; ++c)
                if (int(i) == xyz[c]) p[c] = static_cast<float>(v);
          }
        }
        if (verts) out.verts.push_back(p);
      }
    }
    for (const Face& f : out.faces)
      for (uint32_t v : f.v)
        if (v >= out.verts.size())
          return Fail("has a face that names vertex " + std::to_string(v) + " of " +
                      std::to_string(out.verts.size()));
    out.faceSel.SetSize(out.numFaces());
    return true;
  }

 private:
  struct Property {
    std::string name, type, countType;
    bool list = false;
  };
  struct Element {
    std::string name;
    uint64_t count = 0;
    std::vector<Property> props;
  };

  static std::string Trim(std::string s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.pop_back();
    return s;
  }
  static size_t Size(const std::string& t) {
    if (t == "char" || t == "uchar" || t == "int8" || t == "uint8") return 1;
    if (t == "short" || t == "ushort" || t == "int16" || t == "uint16") return 2;
    if (t == "int" || t == "uint" || t == "float" || t == "int32" || t == "uint32" ||
        t == "float32")
      return 4;
    if (t == "double" || t == "float64") return 8;
    return 0;
  }
  bool Value(const std::string& t, double& v) {
    if (ascii_) return static_cast<bool>(*in_ >> v);
    const size_t n = Size(t);
    unsigned char b[8];
    if (!in_->read(reinterpret_cast<char*>(b), std::streamsize(n))) return false;
    if (swap_) std::reverse(b, b + n);
    auto as = [&](auto x) {
      std::memcpy(&x, b, sizeof x);
      return static_cast<double>(x);
    };
    if (t == "char" || t == "int8")
      v = as(int8_t{});
    else if (t == "uchar" || t == "uint8")
      v = as(uint8_t{});
    else if (t == "short" || t == "int16")
      v = as(int16_t{});
    else if (t == "ushort" || t == "uint16")
      v = as(uint16_t{});
    else if (t == "int" || t == "int32")
      v = as(int32_t{});
    else if (t == "uint" || t == "uint32")
      v = as(uint32_t{});
    else if (t == "float" || t == "float32")
      v = as(float{});
    else
      v = as(double{});
    return true;
  }
  bool Fail(const std::string& why) {
    error_ = path_ + " " + why;
    return false;
  }

  std::string path_;
  std::string& error_;
  std::vector<Element> elements_;
  bool ascii_ = false, swap_ = false;
  std::istream* in_ = nullptr;
};

// The name split around its frame number: prefix, digits, suffix. A run of '#' counts as the
// number in a pattern; in a file name the last run of digits before the extension does.
bool SplitFrameName(const std::string& file, std::string& prefix, std::string& suffix) {
  const size_t dot = file.find_last_of('.');
  const size_t stemEnd = dot == std::string::npos ? file.size() : dot;
  size_t end = file.find_last_of('#');
  bool hashes = end != std::string::npos;
  if (!hashes) {
    end = stemEnd;
    while (end > 0 && !std::isdigit(static_cast<unsigned char>(file[end - 1]))) --end;
    if (end == 0) return false;
    --end;
  }
  size_t begin = end;
  while (begin > 0 && (hashes ? file[begin - 1] == '#'
                              : std::isdigit(static_cast<unsigned char>(file[begin - 1]))))
    --begin;
  prefix = file.substr(0, begin);
  suffix = file.substr(end + 1);
  return true;
}

}  // namespace

bool ReadMeshFile(const std::string& path, Mesh& out, std::string& error) {
  const std::string ext = Lower(fs::path(path).extension().string());
  if (ext == ".obj") return ReadObj(path, out, error);
  if (ext == ".ply") return PlyReader(path, error).Read(out);
  error = path + ": only .obj and .ply meshes can be read";
  return false;
}

bool IsSequencePattern(const std::string& arg) {
  const std::string file = fs::path(arg).filename().string();
  if (file.find('#') != std::string::npos) return true;
  const std::string ext = Lower(fs::path(arg).extension().string());
  std::string prefix, suffix;
  std::error_code ec;
  return (ext == ".obj" || ext == ".ply") && fs::is_regular_file(arg, ec) &&
         SplitFrameName(file, prefix, suffix);
}

bool FindSequence(const std::string& arg, SequenceFiles& out, std::string& error) {
  out = SequenceFiles{};
  out.pattern = arg;
  const fs::path given(arg);
  const fs::path dir = given.has_parent_path() ? given.parent_path() : fs::path(".");
  std::string prefix, suffix;
  if (!SplitFrameName(given.filename().string(), prefix, suffix)) {
    error = arg + " names no frame number (use a name such as wall.####.obj)";
    return false;
  }
  const size_t dot = suffix.find_last_of('.');
  const std::string ext = dot == std::string::npos ? std::string() : Lower(suffix.substr(dot));
  if (ext != ".obj" && ext != ".ply") {
    error = arg + ": a sequence is made of .obj or .ply files";
    return false;
  }
  std::error_code ec;
  std::map<int, std::string> byFrame;
  for (const auto& e : fs::directory_iterator(dir, ec)) {
    const std::string name = e.path().filename().string();
    if (name.size() <= prefix.size() + suffix.size() ||
        name.compare(0, prefix.size(), prefix) != 0 ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0)
      continue;
    const std::string digits =
        name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (digits.size() > 9 || !std::all_of(digits.begin(), digits.end(),
                                          [](unsigned char c) { return std::isdigit(c) != 0; }))
      continue;
    const int frame = std::stoi(digits);
    const auto [it, added] = byFrame.emplace(frame, e.path().string());
    if (!added) {
      error = "Frame " + std::to_string(frame) + " of " + arg + " is there twice: " + it->second +
              " and " + e.path().string();
      return false;
    }
  }
  if (ec) {
    error = "The folder " + dir.string() + " cannot be read: " + ec.message();
    return false;
  }
  if (byFrame.empty()) {
    error = "No file of the sequence " + arg + " was found";
    return false;
  }
  out.frames.assign(byFrame.begin(), byFrame.end());
  int step = 0;
  for (size_t i = 1; i < out.frames.size(); ++i) {
    const int gap = out.frames[i].first - out.frames[i - 1].first;
    step = step == 0 ? gap : std::min(step, gap);
  }
  out.step = std::max(step, 1);
  for (size_t i = 1; i < out.frames.size(); ++i) {
    if (out.frames[i].first - out.frames[i - 1].first == out.step) continue;
    const int missing = out.frames[i - 1].first + out.step;
    // Named as its neighbour is, with the same zero padding.
    const std::string before = fs::path(out.frames[i - 1].second).filename().string();
    const size_t width = before.size() - prefix.size() - suffix.size();
    std::string digits = std::to_string(missing);
    if (digits.size() < width) digits.insert(0, width - digits.size(), '0');
    error = "Frame " + std::to_string(missing) + " of the sequence " + arg +
            " is missing: " + (dir / (prefix + digits + suffix)).string() +
            " does not exist (frames " + std::to_string(out.frames.front().first) + " to " +
            std::to_string(out.frames.back().first) + ")";
    return false;
  }
  out.name = prefix;
  while (!out.name.empty() &&
         (out.name.back() == '.' || out.name.back() == '_' || out.name.back() == '-'))
    out.name.pop_back();
  if (out.name.empty()) out.name = "Sequence";
  return true;
}

MeshSequenceObject::MeshSequenceObject(SequenceFiles files, int ticksPerFrame)
    : files_(std::move(files)), tpf_(ticksPerFrame > 0 ? ticksPerFrame : 160) {}

bool MeshSequenceObject::GetTriMesh(TimeValue t, bool, Mesh& out) {
  if (files_.frames.empty()) return false;
  // The last frame at or before t; the first one before the sequence starts.
  const int64_t frame = t >= 0 ? t / tpf_ : -((-int64_t{t} + tpf_ - 1) / tpf_);
  const auto it = std::upper_bound(files_.frames.begin(), files_.frames.end(), frame,
                                   [](int64_t f, const auto& e) { return f < e.first; });
  const int index = it == files_.frames.begin() ? 0 : int(it - files_.frames.begin()) - 1;
  if (index != loaded_) {
    loaded_ = -1;
    ++reads_;
    if (!ReadMeshFile(files_.frames[size_t(index)].second, mesh_, error_)) {
      mesh_.FreeAll();
      return false;
    }
    error_.clear();
    loaded_ = index;
  }
  out = mesh_;
  return out.numVerts() > 0 && out.numFaces() > 0;
}

std::unique_ptr<host::Object> MeshSequenceObject::Clone() const {
  return std::make_unique<MeshSequenceObject>(files_, tpf_);
}

bool MeshSequenceObject::Save(host::ISave& s) const {
  // The file list, so a saved scene finds the same frames.
  auto str = [&](const std::string& v) {
    const uint32_t n = static_cast<uint32_t>(v.size());
    return s.Write(&n, 4) && s.Write(v.data(), n);
  };
  const int32_t head[3] = {tpf_, files_.step, static_cast<int32_t>(files_.frames.size())};
  bool ok = s.Write(head, sizeof head) && str(files_.pattern) && str(files_.name);
  for (const auto& [frame, path] : files_.frames) ok = ok && s.Write(&frame, 4) && str(path);
  return ok;
}

host::IOResult MeshSequenceObject::Load(host::ILoad& l) {
  auto str = [&](std::string& v) {
    uint32_t n = 0;
    if (l.Read(&n, 4) != host::IOResult::Ok || n > (1u << 20)) return false;
    v.resize(n);
    return n == 0 || l.Read(v.data(), n) == host::IOResult::Ok;
  };
  int32_t head[3] = {};
  if (l.Read(head, sizeof head) != host::IOResult::Ok || head[2] < 0 || head[2] > (1 << 24))
    return host::IOResult::Error;
  SequenceFiles f;
  if (!str(f.pattern) || !str(f.name)) return host::IOResult::Error;
  f.step = head[1];
  for (int32_t i = 0; i < head[2]; ++i) {
    std::pair<int, std::string> e;
    if (l.Read(&e.first, 4) != host::IOResult::Ok || !str(e.second)) return host::IOResult::Error;
    f.frames.push_back(std::move(e));
  }
  *this = MeshSequenceObject(std::move(f), head[0]);
  return host::IOResult::Ok;
}

std::unique_ptr<Scene> LoadMeshSequenceScene(const std::string& arg, int fps, std::string& error) {
  SequenceFiles files;
  if (!FindSequence(arg, files, error)) return nullptr;
  auto scene = std::make_unique<Scene>();
  scene->SetFrameRate(fps);
  const int tpf = scene->GetTicksPerFrame();
  scene->SetAnimRange(Interval(files.frames.front().first * tpf, files.frames.back().first * tpf));
  const std::string name = files.name;
  scene->CreateObjectNode(std::make_unique<MeshSequenceObject>(std::move(files), tpf), name);
  return scene;
}

}  // namespace kv::standalone

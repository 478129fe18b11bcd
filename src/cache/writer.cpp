#include "cache/writer.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <exception>
#include <limits>

#include "host/interface.h"

namespace KelvaneTools {

namespace {

// Byte appender for the buffered writes; little-endian, packed. `Reserve` before a run of
// puts keeps the per-field cost to one memcpy.
struct Out {
  ByteBuffer& b;
  size_t n = 0;
  void Reserve(size_t more) {
    if (b.size() < n + more) b.resize(std::max(n + more, b.size() * 2));
  }
  template <class T>
  void put(T v) {
    std::memcpy(b.data() + n, &v, sizeof v);
    n += sizeof v;
  }
  void raw(const void* p, size_t len) {
    if (len) std::memcpy(b.data() + n, p, len);
    n += len;
  }
};

// The file name without folder and extension, either separator counting ("shot" for
// "D:/work/shot.kvc"); empty for a name that is all extension (".kvc").
std::string BaseName(const std::string& path) {
  const size_t slash = path.find_last_of("/\\");
  std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
  if (const size_t dot = name.rfind('.'); dot != std::string::npos) name.resize(dot);
  return name;
}

// Below the sample batch's 2.6 MB, so that one buffer serves every phase.
constexpr size_t kFlushBytes = 2u << 20;

bool IsAscii(std::string_view s) {
  for (const char c : s)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

// Clears n bytes (a multiple of 4) in fixed-size stores: the face records' zero tails are too
// short for a call to pay.
template <size_t n>
inline void ZeroBytes(uint8_t* p) {
  static_assert(n % 4 == 0);
  const uint64_t z = 0;
  for (size_t k = 0; k + 8 <= n; k += 8) std::memcpy(p + k, &z, 8);
  if constexpr (n % 8 != 0) std::memcpy(p + n - 4, &z, 4);
}

// Each element's arrays are separate heap blocks: asking for the next ones early hides the
// memory latency that otherwise dominates a pass over many small meshes.
constexpr size_t kPrefetchAhead = 8;
inline void Prefetch(const void* p, size_t bytes = 1) {
#if defined(__GNUC__) || defined(__clang__)
  const char* c = static_cast<const char*>(p);
  for (size_t off = 0; off < std::min<size_t>(bytes, 2048); off += 64) __builtin_prefetch(c + off);
#else
  (void)p, (void)bytes;
#endif
}

// Records [i, end) of one sample: transform and visibility byte. True when one is invisible.
template <bool kLifetimes>
bool FillSampleRecords(uint8_t* rec, const std::vector<kv::Matrix3>& tms,
                       const std::vector<float>& vis, std::span<const ElementLifetime> lifetimes,
                       kv::TimeValue t, size_t i, size_t end) {
  static_assert(sizeof(kv::Matrix3) == 48, "a transform is stored as its 12 floats");
  bool invisible = false;
  for (size_t k = i; k < end; ++k, rec += kSampleRecordSize) {
    std::memcpy(rec, &tms[k], 48);
    bool visible = vis[k] > 0;
    if constexpr (kLifetimes) {
      const ElementLifetime life = k < lifetimes.size() ? lifetimes[k] : ElementLifetime{};
      visible = visible && t >= life.first && t <= life.last;
    }
    rec[48] = visible ? 1 : 0;
    invisible |= !visible;
  }
  return invisible;
}

}  // namespace

// ---------------------------------------------------------------------------- node source

std::string NodeElementSource::Name(int i) const {
  return nodes_[size_t(i)]->GetName();
}

bool NodeElementSource::CaptureMesh(int i, kv::TimeValue t, bool render, kv::Mesh& out) {
  return nodes_[size_t(i)]->EvalTriMesh(t, render, out);
}

kv::host::Mtl* NodeElementSource::Material(int i) const {
  return nodes_[size_t(i)]->GetMtl();
}

void NodeElementSource::Sample(kv::TimeValue t, std::span<const int> elements,
                               kv::Matrix3* objectTM, float* visibility) {
  for (size_t k = 0; k < elements.size(); ++k) {
    const kv::host::Node* n = nodes_[size_t(elements[k])];
    objectTM[k] = n->GetObjectTM(t);
    visibility[k] = n->GetVisibility(t);
  }
}

// ---------------------------------------------------------------------------- writer

kvCacheWriter::kvCacheWriter(std::string fileName, const kv::Matrix3& reference,
                             kv::TimeValue start, kv::TimeValue end, kv::TimeValue step,
                             int version, ElementSource& source, kv::host::Interface* host)
    : kvCacheBase(std::move(fileName), true, version, start, end, step),
      reference_(reference),
      source_(source),
      host_(host) {}

kvCacheWriter::~kvCacheWriter() = default;

bool kvCacheWriter::AddElement(int sourceIndex, kv::TimeValue t, bool renderMesh) {
  if (sourceIndex < 0 || sourceIndex >= source_.Count()) return false;
  Entry e;
  e.source = sourceIndex;
  try {
    if (!source_.CaptureMesh(sourceIndex, t, renderMesh, e.mesh)) return false;
  } catch (...) {
    return false;
  }
  if (e.mesh.numVerts() < 1 || e.mesh.numFaces() < 1) return false;
  e.mesh.DeleteIsoMapVerts();
  e.mesh.DeleteIsoVerts();
  e.mesh.InvalidateTopologyCache();
  // Six independent chains the compiler holds in registers.
  constexpr float kMax = std::numeric_limits<float>::max();
  float x0 = kMax, y0 = kMax, z0 = kMax, x1 = -kMax, y1 = -kMax, z1 = -kMax;
  for (const kv::Point3& p : e.mesh.verts) {
    x0 = std::min(x0, p.x), y0 = std::min(y0, p.y), z0 = std::min(z0, p.z);
    x1 = std::max(x1, p.x), y1 = std::max(y1, p.y), z1 = std::max(z1, p.z);
  }
  const float bounds[6] = {x0, y0, z0, x1, y1, z1};
  std::memcpy(e.bounds, bounds, sizeof bounds);
  for (int ch = 0; ch < e.mesh.getNumMaps(); ++ch)
    if (e.mesh.mapSupport(ch)) e.channelBits[ch >> 6] |= uint64_t{1} << (ch & 63);
  elements_.push_back(std::move(e));
  return true;
}

bool kvCacheWriter::BuildCombinedMaterial() {
  combined_ = nullptr;
  if (!host_) return true;
  try {
    for (Entry& e : elements_) {
      kv::host::Mtl* m = source_.Material(e.source);
      if (!m) continue;
      host_->FitMeshIDsToMaterial(e.mesh, m);
      if (!combined_) {
        combined_ = m;
      } else if (m != combined_) {
        int offset = 0;
        combined_ = host_->CombineMaterials(combined_, m, offset);
        e.matIdOffset = uint16_t(offset);
      }
    }
    if (combined_) {
      const std::string base = BaseName(fileName_);
      combined_->SetName(base.empty() ? "KV Cache" : base);
    }
  } catch (...) {
    error_ = kErrException;
    return false;
  }
  return true;
}

bool kvCacheWriter::Flush(ByteBuffer& buf, size_t& used) {
  const bool ok = WriteBytes(buf.data(), used);
  used = 0;
  return ok;
}

bool kvCacheWriter::Write(std::span<const ElementLifetime> lifetimes) {
  if (elements_.empty()) return false;
  if (!OpenFile()) return false;
  struct Closer {
    kvCacheWriter& w;
    ~Closer() { w.Close(); }
  } closer{*this};

  const int version = version_;
  const uint8_t zeros[kDataOffset] = {};
  if (!WriteBytes(zeros, sizeof zeros)) return false;
  if (!BuildCombinedMaterial()) return false;

  // Union of channels; every element then carries every channel of it.
  uint64_t unionBits[2] = {0, 0};
  for (const Entry& e : elements_)
    unionBits[0] |= e.channelBits[0], unionBits[1] |= e.channelBits[1];
  channels_.clear();
  for (int ch = 0; ch <= kMaxChannel; ++ch)
    if (unionBits[ch >> 6] >> (ch & 63) & 1) channels_.push_back(ch);
  for (Entry& e : elements_) {
    if (e.channelBits[0] == unionBits[0] && e.channelBits[1] == unionBits[1]) continue;
    kv::Mesh& m = e.mesh;
    for (int ch : channels_) {
      if (m.mapSupport(ch)) continue;
      if (m.getNumMaps() <= ch) m.setNumMaps(ch + 1);
      kv::MapChannel& map = m.Map(ch);
      map.support = true;
      map.verts.assign(size_t(m.numVerts()), kv::Point3{});
      map.faces.resize(size_t(m.numFaces()));
      for (size_t f = 0; f < m.faces.size(); ++f)
        map.faces[f] = {{m.faces[f].v[0], m.faces[f].v[1], m.faces[f].v[2]}};
    }
  }

  const int64_t numSamples64 = (int64_t(end_) - start_ + step_) / std::max(step_, 1);
  if (step_ < 1 || numSamples64 > INT32_MAX ||
      int64_t(elements_.size()) * int64_t(kSampleRecordSize) > INT32_MAX) {
    error_ = kErrFile;
    return false;
  }
  const int32_t numSamples = int32_t(numSamples64);

  // Element records, with the predicted size of the blocks that follow.
  // One buffer for every phase: large enough for a full batch of sample records.
  ByteBuffer buf(std::max(kFlushBytes + 4096, kSampleBufferRecords * kSampleRecordSize));
  Out out{buf};
  const size_t faceSize = FaceRecordSize(version);
  uint64_t predicted = 0;
  const size_t n = elements_.size();
  mapRefs_.assign(channels_.size() * n, MapRef{});
  for (size_t i = 0; i < n; ++i) {
    const Entry& e = elements_[i];
    const kv::Mesh& m = e.mesh;
    if (i + kPrefetchAhead < elements_.size())
      Prefetch(elements_[i + kPrefetchAhead].mesh.maps.data());
    std::string name;
    try {
      name = source_.Name(e.source);
    } catch (...) {
      error_ = kErrException;
      return false;
    }
    // Names are stored in the host's 8-bit code page: one byte per character, so the stored
    // length is both the character count and the byte count.
    // Plain ASCII reads the same in every code page.
    if (!IsAscii(name)) name = host_ ? host_->ToCodePage(name) : kv::host::Utf8ToCp1252(name);
    out.Reserve(4 + name.size() + 24 + 12 + 8 * channels_.size() + 1);
    out.put(int32_t(name.size()));
    out.raw(name.data(), name.size());
    out.raw(e.bounds, sizeof e.bounds);
    out.put(int32_t(m.numVerts()));
    out.put(int32_t(m.numFaces()));
    out.put(int32_t(channels_.size()));
    // Every element carries every channel now (one without its own has one zero map vertex
    // per vertex).
    for (size_t c = 0; c < channels_.size(); ++c) {
      const int ch = channels_[c];
      const kv::MapChannel& map = m.Map(ch);
      const size_t mapVerts = map.verts.size();
      mapRefs_[c * n + i] = {map.verts.data(), map.faces.data(), uint32_t(mapVerts),
                             uint32_t(map.faces.size())};
      out.put(int32_t(ch));
      out.put(int32_t(mapVerts));
      predicted += mapVerts * kPointSize + size_t(m.numFaces()) * kMapFaceSize;
    }
    // Only version 2 records carry the normals byte; version 3 faces still carry normals.
    if (version == 2) out.put(uint8_t(m.hasSpecNormals() && m.numFaces() > 0));
    predicted += size_t(m.numVerts()) * kPointSize + size_t(m.numFaces()) * faceSize;
    if (out.n >= kFlushBytes && !Flush(buf, out.n)) return false;
  }
  progressShift_ = 0;
  while ((predicted >> progressShift_) > UINT32_MAX) ++progressShift_;

  uint64_t written = 0;
  if (!Flush(buf, out.n) || !WriteElements(version, buf, written, predicted)) return false;

  // The sample table starts here; its offsets are 32-bit.
  const off_t pos = ftello(file_);
  const uint64_t tableBytes = uint64_t(numSamples) * elements_.size() * kSampleRecordSize;
  if (pos < 0 || uint64_t(pos) + tableBytes > uint64_t(INT32_MAX)) {
    error_ = kErrFile;
    return false;
  }
  CacheHeader h;
  h.version = uint8_t(version);
  h.start = start_;
  h.end = end_;
  h.step = step_;
  try {
    h.frameRate = source_.FrameRate();
  } catch (...) {
    error_ = kErrException;
    return false;
  }
  h.numNodes = int32_t(elements_.size());
  h.numSamples = numSamples;
  h.sampleStride = int32_t(elements_.size() * kSampleRecordSize);
  h.sampleTableOffset = int32_t(pos);
  if (!WriteSamples(numSamples, lifetimes, buf, h.hasVisibility)) return false;

  uint8_t header[kHeaderSize];
  SerializeHeader(h, header);
  if (!Seek(0, SEEK_SET) || !WriteBytes(header, sizeof header)) return false;
  if (std::fflush(file_) != 0) {
    error_ = kErrFile;
    return false;
  }
  channels_.clear();
  mapRefs_ = {};
  return true;
}

bool kvCacheWriter::WriteElements(int version, ByteBuffer& buf, uint64_t& written,
                                  uint64_t predicted) {
  Out out{buf};
  const uint32_t count = uint32_t(elements_.size());
  // Geometry blocks.
  for (size_t i = 0; i < elements_.size(); ++i) {
    const Entry& e = elements_[i];
    const kv::Mesh& m = e.mesh;
    if (i + kPrefetchAhead < elements_.size()) {
      const kv::Mesh& next = elements_[i + kPrefetchAhead].mesh;
      Prefetch(next.verts.data(), next.verts.size() * sizeof(kv::Point3));
      Prefetch(next.faces.data(), next.faces.size() * sizeof(kv::Face));
    }
    const size_t numFaces = m.faces.size();
    out.Reserve(m.verts.size() * kPointSize + numFaces * kFaceSizeV2);
    out.raw(m.verts.data(), m.verts.size() * kPointSize);
    // Read once into locals: the byte stores below could alias anything, and would otherwise
    // make every face reload them.
    const kv::Face* faces = m.faces.data();
    const kv::Point3* normals =
        m.specNormals.size() == numFaces * 3 ? m.specNormals.data() : nullptr;
    const size_t selected = std::min(numFaces, size_t(std::max(m.faceSel.GetSize(), 0)));
    const uint16_t matIdOffset = e.matIdOffset;
    // Face records assembled straight in the buffer: the fixed 20 bytes, then the normals
    // (or the zeros standing for them).
    const size_t faceSize = FaceRecordSize(version);
    uint8_t* rec = buf.data() + out.n;
    for (size_t f = 0; f < numFaces; ++f, rec += faceSize) {
      const kv::Face& face = faces[f];
      StoreLE(rec, uint16_t(face.getMatID() + matIdOffset));
      StoreLE(rec + 2, face.smGroup);
      rec[6] = uint8_t(face.getEdgeVisBits());
      rec[7] = uint8_t(f < selected && m.faceSel[int(f)] ? 1 : 0);
      std::memcpy(rec + 8, face.v, 12);
      // Fixed sizes, so that each copy is a few moves instead of a call.
      if (faceSize == kFaceSizeV1)
        ZeroBytes<kFaceSizeV1 - kFaceFixedPart>(rec + kFaceFixedPart);
      else if (normals)
        std::memcpy(rec + kFaceFixedPart, normals + f * 3, kFaceSizeV2 - kFaceFixedPart);
      else
        ZeroBytes<kFaceSizeV2 - kFaceFixedPart>(rec + kFaceFixedPart);
    }
    out.n += numFaces * faceSize;
    written += m.verts.size() * kPointSize + numFaces * faceSize;
    if (out.n >= kFlushBytes && !Flush(buf, out.n)) return false;
    if (!ReportProgress(uint32_t(i), count)) return false;
  }
  // Map blocks, channel by channel, from the sources gathered with the records.
  const size_t n = elements_.size();
  for (size_t c = 0; c < channels_.size(); ++c) {
    const MapRef* refs = mapRefs_.data() + c * n;
    for (size_t i = 0; i < n; ++i) {
      if (i + kPrefetchAhead < n) {
        const MapRef& next = refs[i + kPrefetchAhead];
        Prefetch(next.verts, next.numVerts * sizeof(kv::Point3));
        Prefetch(next.faces, next.numFaces * sizeof(kv::TVFace));
      }
      const MapRef& map = refs[i];
      const size_t vertBytes = map.numVerts * kPointSize, faceBytes = map.numFaces * kMapFaceSize;
      out.Reserve(vertBytes + faceBytes);
      out.raw(map.verts, vertBytes);
      out.raw(map.faces, faceBytes);
      written += vertBytes + faceBytes;
      if (out.n >= kFlushBytes && !Flush(buf, out.n)) return false;
      if (!ReportProgress(uint32_t(written >> progressShift_),
                          uint32_t(predicted >> progressShift_)))
        return false;
    }
  }
  return Flush(buf, out.n);
}

bool kvCacheWriter::WriteSamples(int32_t numSamples, std::span<const ElementLifetime> lifetimes,
                                 ByteBuffer& buf, uint8_t& hasVisibility) {
  const size_t n = elements_.size();
  std::vector<int> indices(n);
  for (size_t i = 0; i < n; ++i) indices[i] = elements_[i].source;
  std::vector<kv::Matrix3> tms(n);
  std::vector<float> vis(n);
  if (buf.size() < kSampleBufferRecords * kSampleRecordSize)
    buf.resize(kSampleBufferRecords * kSampleRecordSize);
  size_t used = 0, records = 0;
  // The callback's values are not advanced in this phase: it only polls for a cancel.
  auto flush = [&] {
    if (!Flush(buf, used)) return false;
    records = 0;
    return ReportProgress(lastDone_, lastTotal_);
  };
  hasVisibility = 0;
  // The usual reference (a cache object at the origin) leaves the transforms as they are.
  const bool identityReference = reference_ == kv::Matrix3();
  for (int32_t s = 0; s < numSamples; ++s) {
    const kv::TimeValue t = kv::TimeValue(start_ + int64_t(s) * step_);
    try {
      source_.Sample(t, indices, tms.data(), vis.data());
    } catch (...) {
      error_ = kErrException;
      return false;
    }
    if (!identityReference) {
      for (kv::Matrix3& a : tms) {
        const kv::Matrix3 m = a;
        for (int row = 0; row < 4; ++row)
          a.SetRow(row, row < 3 ? reference_.VectorTransform(m.GetRow(row))
                                : reference_.PointTransform(m.GetRow(row)));
      }
    }
    // Runs of records up to the next flush, so that the record loop itself tests nothing else.
    for (size_t i = 0; i < n;) {
      const size_t end = std::min(n, i + (kSampleBufferRecords - records));
      uint8_t* rec = buf.data() + used;
      const bool invisible = lifetimes.empty()
                                 ? FillSampleRecords<false>(rec, tms, vis, {}, t, i, end)
                                 : FillSampleRecords<true>(rec, tms, vis, lifetimes, t, i, end);
      if (invisible) hasVisibility = 1;
      used += (end - i) * kSampleRecordSize;
      records += end - i;
      i = end;
      if (records == kSampleBufferRecords && !flush()) return false;
    }
  }
  if (records > 0 && !flush()) return false;
  if (used != 0) {  // records that never reached the file
    error_ = kErrException;
    return false;
  }
  return true;
}

bool kvCacheWriter::SaveMaterialLibrary() const {
  if (!host_ || !combined_) return false;
  std::unique_ptr<kv::host::MtlLib> lib = host_->NewMtlLib();
  if (!lib) return false;
  lib->Add(combined_);
  return host_->SaveMaterialLibrary(MaterialLibraryPath(fileName_), *lib);
}

}  // namespace KelvaneTools

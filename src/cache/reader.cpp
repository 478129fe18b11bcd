#include "cache/reader.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <climits>
#include <cstring>

#include "geom/transform_points.h"
#include "host/interface.h"
#include "res/strings.h"

namespace KelvaneTools {

static_assert(sizeof(kv::Point3) == 12, "vertex arrays are copied as packed float triples");
static_assert(sizeof(kv::TVFace) == 12, "map faces are copied as packed u32 triples");

namespace {

std::atomic<uint64_t> gGeneration{0};

// A bounded cursor over file bytes read in large blocks. The planned region is fetched with
// one read; should parsing need more (a file whose sample table offset lies inside its
// element data), the rest of the file is fetched with one more read. Every count is checked
// against Left(), the bytes the file still holds, before anything is allocated for it.
class BlockCursor {
 public:
  BlockCursor(kvCacheBase& base, uint64_t pos, uint64_t fileSize)
      : base_(base), fileSize_(fileSize), bufStart_(pos) {}

  bool Fetch(uint64_t bytes) {
    const uint64_t have = bufStart_ + buf_.size();
    bytes = std::min(bytes, fileSize_ - have);
    const size_t old = buf_.size();
    buf_.resize(old + bytes);
    return base_.ReadBytes(buf_.data() + old, bytes);
  }
  uint64_t Left() const { return fileSize_ - (bufStart_ + pos_); }

  bool Need(size_t n) {
    if (buf_.size() - pos_ >= n) return true;
    if (n > Left()) {
      base_.SetError(kErrReadPastEof);
      return false;
    }
    return Fetch(fileSize_ - (bufStart_ + buf_.size()));
  }
  const uint8_t* Take(size_t n) {  // after Need(n)
    const uint8_t* p = buf_.data() + pos_;
    pos_ += n;
    return p;
  }
  template <class T>
  bool Read(T& v) {
    if (!Need(sizeof v)) return false;
    v = LoadLE<T>(Take(sizeof v));
    return true;
  }
  bool ReadRaw(void* dst, size_t n) {
    if (!Need(n)) return false;
    if (n) std::memcpy(dst, Take(n), n);
    return true;
  }

 private:
  kvCacheBase& base_;
  uint64_t fileSize_;
  uint64_t bufStart_;
  std::vector<uint8_t> buf_;
  size_t pos_ = 0;
};

// Corners follow Box3::Corner; two triangles per side, outward winding, the diagonal's edge
// hidden, one smoothing group per side.
constexpr uint32_t kBoxFaces[12][3] = {{0, 2, 3}, {3, 1, 0}, {4, 5, 7}, {7, 6, 4},
                                       {0, 1, 5}, {5, 4, 0}, {1, 3, 7}, {7, 5, 1},
                                       {3, 2, 6}, {6, 7, 3}, {2, 0, 4}, {4, 6, 2}};

void WriteBox(const kv::Box3& b, uint16_t matId, kv::Point3* verts, kv::Face* faces,
              uint32_t base) {
  for (int c = 0; c < 8; ++c) verts[c] = b.Corner(c);
  for (int f = 0; f < 12; ++f) {
    kv::Face& face = faces[f];
    face.setVerts(base + kBoxFaces[f][0], base + kBoxFaces[f][1], base + kBoxFaces[f][2]);
    face.smGroup = 2u << (f / 2);
    face.flags = kv::kEdgeA | kv::kEdgeB;
    face.setMatID(matId);
  }
}

}  // namespace

bool CacheElement::HasChannel(int ch) const {
  for (const auto& c : channels)
    if (c.first == ch) return true;
  return false;
}

kvCacheReader::kvCacheReader(std::string fileName, kv::host::Interface* host)
    : kvCacheBase(std::move(fileName), false), host_(host) {}

kvCacheReader::~kvCacheReader() = default;

void kvCacheReader::Release() {
  indexed_ = false;
  generation_ = 0;
  header_ = CacheHeader{};
  fileSize_ = 0;
  elements_.clear();
  elements_.shrink_to_fit();
  totalVerts_ = totalFaces_ = 0;
  channelTotals_.clear();
  lowChannel_ = highChannel_ = kNoChannel;
  anyNormals_ = false;
  mapOffset_.clear();
  combined_.FreeAll();
  combinedBox_.FreeAll();
  elementMeshes_.clear();
  elementBoxes_.clear();
  blocks_.clear();
  blocks_.shrink_to_fit();
  loadedCount_ = 0;
  vertStart_.clear();
  faceStart_.clear();
  step_ = version_ = 0;
  start_ = end_ = INT32_MIN;
}

bool kvCacheReader::Open() {
  Release();
  Close();
  error_ = kErrNone;
  if (!OpenFile()) return false;

  auto fail = [this] {
    Release();
    Close();
    return false;
  };

  // The size bounds every count in the file; a stream that cannot tell it is unusable.
  if (!Seek(0, SEEK_END)) return fail();
  const off_t size = ftello(file_);
  if (size < 0 || !Seek(0, SEEK_SET)) {
    error_ = kErrFile;
    return fail();
  }
  const uint64_t fileSize = static_cast<uint64_t>(size);

  uint8_t raw[kHeaderSize];
  if (!ReadBytes(raw, sizeof raw)) return fail();
  if (!ParseHeader(raw, header_)) {
    error_ = kErrInvalidFile;
    return fail();
  }
  version_ = header_.version;
  start_ = header_.start;
  end_ = header_.end;
  step_ = header_.step;

  if (!ReadIndex(fileSize)) return fail();

  LoadMaterialLibrary();
  fileSize_ = fileSize;
  indexed_ = true;
  generation_ = ++gGeneration;
  if (!keepOpen_) Close();
  return true;
}

bool kvCacheReader::ReadIndex(uint64_t fileSize) {
  error_ = kErrNone;
  const CacheHeader& h = header_;
  // A block must hold one record per element, and the whole table must lie in the file and
  // within the format's 32-bit offsets.
  const uint64_t blockBytes = uint64_t(h.numNodes) * kSampleRecordSize;
  if (uint64_t(h.sampleStride) < blockBytes) {
    error_ = kErrInvalidFile;
    return false;
  }
  if (h.numSamples > 0) {
    const uint64_t tableEnd = uint64_t(h.sampleTableOffset) +
                              uint64_t(h.numSamples - 1) * uint64_t(h.sampleStride) + blockBytes;
    if (tableEnd > fileSize) {
      error_ = kErrReadPastEof;
      return false;
    }
    if (tableEnd > (uint64_t{1} << 31)) {
      error_ = kErrFile;
      return false;
    }
  }
  if (!Seek(kDataOffset, SEEK_SET)) return false;
  if (fileSize < kDataOffset) {
    error_ = kErrReadPastEof;
    return false;
  }
  BlockCursor in(*this, kDataOffset, fileSize);
  const uint64_t regionEnd = std::min<uint64_t>(uint64_t(h.sampleTableOffset), fileSize);
  if (regionEnd > kDataOffset && !in.Fetch(regionEnd - kDataOffset)) return false;

  const int version = h.version;
  const bool normalsByte = HasNormalsByte(version);
  const size_t faceSize = FaceRecordSize(version);
  const size_t minRecord = kElementRecordFixed + (normalsByte ? 1 : 0);
  if (uint64_t(h.numNodes) > in.Left() / minRecord) {
    error_ = kErrReadPastEof;
    return false;
  }
  elements_.resize(size_t(h.numNodes));
  auto invalid = [this] {
    error_ = kErrInvalidFile;
    return false;
  };

  // 1. Element records. Predicted sizes of the blocks that follow are summed so that the
  // totals can be checked against the file before any mesh is allocated.
  uint64_t blockBytesTotal = 0;
  for (CacheElement& el : elements_) {
    int32_t nameLength = 0;
    if (!in.Read(nameLength)) return false;
    if (nameLength < 0) return invalid();
    if (uint64_t(nameLength) > in.Left()) {
      error_ = kErrReadPastEof;
      return false;
    }
    el.name.resize(size_t(nameLength));
    if (!in.ReadRaw(el.name.data(), el.name.size())) return false;
    if (const size_t z = el.name.find('\0'); z != std::string::npos) el.name.resize(z);
    // Stored in the host's 8-bit code page, kept as UTF-8.
    el.name = host_ ? host_->FromCodePage(el.name) : kv::host::Cp1252ToUtf8(el.name);
    float box[6];
    if (!in.ReadRaw(box, sizeof box)) return false;
    el.bounds = kv::Box3({box[0], box[1], box[2]}, {box[3], box[4], box[5]});
    int32_t numChannels = 0;
    if (!in.Read(el.numVerts) || !in.Read(el.numFaces) || !in.Read(numChannels)) return false;
    if (el.numVerts < 0 || el.numFaces < 0 || numChannels < 0 || numChannels > kMaxChannel + 1)
      return invalid();
    el.channels.resize(size_t(numChannels));
    uint64_t elementBytes = uint64_t(el.numVerts) * kPointSize + uint64_t(el.numFaces) * faceSize;
    for (auto& [ch, count] : el.channels) {
      if (!in.Read(ch) || !in.Read(count)) return false;
      if (ch < 0 || ch > kMaxChannel || count < 0) return invalid();
      elementBytes += uint64_t(count) * kPointSize + uint64_t(el.numFaces) * kMapFaceSize;
    }
    // The map blocks follow in channel order whatever the list's order; a channel listed
    // twice would leave its blocks ambiguous.
    std::sort(el.channels.begin(), el.channels.end());
    for (size_t c = 1; c < el.channels.size(); ++c)
      if (el.channels[c].first == el.channels[c - 1].first) return invalid();
    if (!el.channels.empty()) {
      el.lowChannel = el.channels.front().first;
      el.highChannel = el.channels.back().first;
    }
    if (normalsByte) {
      uint8_t n = 0;
      if (!in.Read(n)) return false;
      el.hasNormals = n != 0;
    }
    blockBytesTotal += elementBytes;
    if (blockBytesTotal > in.Left()) {
      error_ = kErrReadPastEof;
      return false;
    }
  }

  // Totals (bounded by the file size checked above, so they fit the mesh's int counts).
  for (size_t e = 0; e < elements_.size(); ++e) {
    CacheElement& el = elements_[e];
    el.vertOffset = int32_t(totalVerts_);
    el.faceOffset = int32_t(totalFaces_);
    totalVerts_ += el.numVerts;
    totalFaces_ += el.numFaces;
    anyNormals_ |= el.hasNormals;
    for (const auto& [ch, count] : el.channels) {
      channelTotals_[ch] += count;
      if (lowChannel_ == kNoChannel || ch < lowChannel_) lowChannel_ = ch;
      if (highChannel_ == kNoChannel || ch > highChannel_) highChannel_ = ch;
    }
  }
  if (totalVerts_ > INT32_MAX / 8 || totalFaces_ > INT32_MAX / 12) return invalid();

  // 2. Geometry blocks, straight into the combined mesh.
  combined_.verts.resize(size_t(totalVerts_));
  combined_.faces.resize(size_t(totalFaces_));
  combined_.faceSel.SetSize(int(totalFaces_), false);
  if (anyNormals_) combined_.specNormals.resize(size_t(totalFaces_) * 3);
  for (CacheElement& el : elements_) {
    if (!in.ReadRaw(combined_.verts.data() + el.vertOffset, size_t(el.numVerts) * kPointSize))
      return false;
    el.matIds.resize(size_t(el.numFaces));
    if (!in.Need(size_t(el.numFaces) * faceSize)) return false;
    for (int32_t f = 0; f < el.numFaces; ++f) {
      const uint8_t* p = in.Take(faceSize);
      kv::Face& face = combined_.faces[size_t(el.faceOffset + f)];
      const uint16_t matId = LoadLE<uint16_t>(p);
      el.matIds[size_t(f)] = matId;
      face.smGroup = LoadLE<uint32_t>(p + 2);
      face.flags = p[6] & kv::kEdgeAll;
      face.setMatID(matId);
      if (p[7]) combined_.faceSel.Set(el.faceOffset + f);
      for (int k = 0; k < 3; ++k) {
        const uint32_t v = LoadLE<uint32_t>(p + 8 + 4 * k);
        if (v >= uint32_t(el.numVerts)) return invalid();
        face.v[k] = v + uint32_t(el.vertOffset);
      }
      if (anyNormals_) {
        kv::Point3* n = &combined_.specNormals[size_t(el.faceOffset + f) * 3];
        if (el.hasNormals) {
          std::memcpy(n, p + kFaceFixedPart, 3 * kPointSize);
        } else {  // flat normals for elements that carry none
          const kv::Point3& a = combined_.verts[face.v[0]];
          const kv::Point3 fn =
              kv::CrossProd(combined_.verts[face.v[1]] - a, combined_.verts[face.v[2]] - a)
                  .Normalized();
          n[0] = n[1] = n[2] = fn;
        }
      }
    }
  }

  // 3. Map channel blocks, per channel ascending, per element carrying it.
  if (highChannel_ != kNoChannel) {
    combined_.maps.resize(size_t(highChannel_) + 1);
    mapOffset_.resize(size_t(highChannel_) + 1);
  }
  for (const auto& [ch, total] : channelTotals_) {
    kv::MapChannel& map = combined_.maps[size_t(ch)];
    std::vector<int32_t>& offsets = mapOffset_[size_t(ch)];
    offsets.assign(elements_.size(), -1);
    map.support = true;
    // The channel holds exactly its carriers' map vertices; the faces of elements without
    // it use its first one.
    map.verts.resize(size_t(total));
    map.faces.resize(size_t(totalFaces_));
    bool uncarriedFaces = false;
    int32_t next = 0;
    for (size_t e = 0; e < elements_.size(); ++e) {
      const CacheElement& el = elements_[e];
      int32_t count = -1;
      for (const auto& c : el.channels)
        if (c.first == ch) count = c.second;
      kv::TVFace* faces = map.faces.data() + el.faceOffset;
      if (count < 0) {
        std::fill_n(faces, el.numFaces, kv::TVFace{});
        uncarriedFaces |= el.numFaces > 0;
        continue;
      }
      offsets[e] = next;
      if (!in.ReadRaw(map.verts.data() + next, size_t(count) * kPointSize)) return false;
      if (!in.ReadRaw(faces, size_t(el.numFaces) * kMapFaceSize)) return false;
      for (int32_t f = 0; f < el.numFaces; ++f) {
        for (uint32_t& t : faces[f].t) {
          if (t >= uint32_t(count)) return invalid();
          t += uint32_t(next);
        }
      }
      next += count;
    }
    // Carriers without map vertices leave nothing to point at: one zero vertex keeps the
    // other elements' faces valid.
    if (total == 0 && uncarriedFaces) map.verts.resize(1);
  }

  BuildCombinedBoxes();
  elementMeshes_.resize(elements_.size());
  elementBoxes_.resize(elements_.size());
  blocks_.resize(size_t(h.numSamples));
  loadedCount_ = 0;
  return true;
}

void kvCacheReader::BuildCombinedBoxes() {
  const size_t n = elements_.size();
  combinedBox_.verts.resize(n * 8);
  combinedBox_.faces.resize(n * 12);
  combinedBox_.faceSel.SetSize(int(n * 12), false);
  for (size_t e = 0; e < n; ++e) {
    const CacheElement& el = elements_[e];
    WriteBox(el.bounds, el.matIds.empty() ? 0 : el.matIds[0], &combinedBox_.verts[e * 8],
             &combinedBox_.faces[e * 12], uint32_t(e * 8));
  }
}

void kvCacheReader::LoadMaterialLibrary() {
  mtlLib_.reset();
  if (!host_) return;
  mtlLib_ = host_->NewMtlLib();
  const std::string path = MaterialLibraryPath(fileName_);
  if (!mtlLib_ || path.empty()) return;
  if (std::FILE* f = std::fopen(path.c_str(), "rb")) {
    std::fclose(f);
    host_->LoadMaterialLibrary(path, *mtlLib_);  // a library that fails to load stays empty
  }
}

const kv::Mesh& kvCacheReader::ElementMesh(int i) const {
  std::unique_ptr<kv::Mesh>& slot = elementMeshes_[size_t(i)];
  if (slot) return *slot;
  slot = std::make_unique<kv::Mesh>();
  kv::Mesh& m = *slot;
  const CacheElement& el = elements_[size_t(i)];
  m.verts.assign(combined_.verts.begin() + el.vertOffset,
                 combined_.verts.begin() + el.vertOffset + el.numVerts);
  m.faces.assign(combined_.faces.begin() + el.faceOffset,
                 combined_.faces.begin() + el.faceOffset + el.numFaces);
  m.faceSel.SetSize(el.numFaces, false);
  for (int32_t f = 0; f < el.numFaces; ++f) {
    for (uint32_t& v : m.faces[size_t(f)].v) v -= uint32_t(el.vertOffset);
    if (combined_.faceSel[el.faceOffset + f]) m.faceSel.Set(f);
  }
  if (el.hasNormals)
    m.specNormals.assign(combined_.specNormals.begin() + el.faceOffset * 3,
                         combined_.specNormals.begin() + (el.faceOffset + el.numFaces) * 3);
  if (el.highChannel != kNoChannel) m.maps.resize(size_t(el.highChannel) + 1);
  for (const auto& [ch, count] : el.channels) {
    const kv::MapChannel& src = combined_.maps[size_t(ch)];
    kv::MapChannel& dst = m.maps[size_t(ch)];
    const int32_t off = mapOffset_[size_t(ch)][size_t(i)];
    dst.support = true;
    dst.verts.assign(src.verts.begin() + off, src.verts.begin() + off + count);
    dst.faces.assign(src.faces.begin() + el.faceOffset,
                     src.faces.begin() + el.faceOffset + el.numFaces);
    for (kv::TVFace& tf : dst.faces)
      for (uint32_t& t : tf.t) t -= uint32_t(off);
  }
  m.InvalidateTopologyCache();
  return m;
}

const kv::Mesh& kvCacheReader::ElementBoxMesh(int i) const {
  std::unique_ptr<kv::Mesh>& slot = elementBoxes_[size_t(i)];
  if (slot) return *slot;
  slot = std::make_unique<kv::Mesh>();
  slot->verts.resize(8);
  slot->faces.resize(12);
  slot->faceSel.SetSize(12, false);
  const CacheElement& el = elements_[size_t(i)];
  WriteBox(el.bounds, el.matIds.empty() ? 0 : el.matIds[0], slot->verts.data(), slot->faces.data(),
           0);
  return *slot;
}

// ---------------------------------------------------------------------------- samples

bool kvCacheReader::MapTimeToSamples(const FrameSettings& s, ElementFrameState& r) const {
  return KelvaneTools::MapTimeToSamples(header_.step, indexed_ ? header_.numSamples : 0, s, r);
}

bool kvCacheReader::IsSampleLoaded(int32_t s) const {
  return s >= 0 && size_t(s) < blocks_.size() && blocks_[size_t(s)] != nullptr;
}
int32_t kvCacheReader::NumSamplesLoaded() const {
  return loadedCount_;
}
bool kvCacheReader::AllSamplesLoaded() const {
  return indexed_ && loadedCount_ == header_.numSamples;
}

bool kvCacheReader::LoadSample(int32_t s, bool keepFileOpen) {
  if (IsSampleLoaded(s)) return true;
  error_ = kErrNone;
  if (!indexed_ || s < 0 || s >= header_.numSamples) {
    error_ = kErrNotOpen;
    return false;
  }
  if (!OpenFile()) {
    Release();
    error_ = kErrNotOpen;  // the file went away since it was indexed
    return false;
  }
  const size_t n = size_t(header_.numNodes);
  blockBytes_.resize(n * kSampleRecordSize);
  const int64_t offset = int64_t(header_.sampleTableOffset) + int64_t(s) * header_.sampleStride;
  if (!Seek(offset, SEEK_SET) || !ReadBytes(blockBytes_.data(), blockBytes_.size())) {
    Release();
    Close();
    return false;
  }
  auto block = std::make_unique<SampleBlock>();
  block->tm.resize(n);
  block->visible.resize(n);
  const uint8_t* p = blockBytes_.data();
  for (size_t i = 0; i < n; ++i, p += kSampleRecordSize) {
    float m[12];
    std::memcpy(m, p, sizeof m);
    block->tm[i] = kv::Matrix3({m[0], m[1], m[2]}, {m[3], m[4], m[5]}, {m[6], m[7], m[8]},
                               {m[9], m[10], m[11]});
    block->visible[i] = p[48] != 0;
  }
  blocks_[size_t(s)] = std::move(block);
  ++loadedCount_;
  if (!keepFileOpen && (!keepOpen_ || AllSamplesLoaded())) Close();
  return true;
}

bool kvCacheReader::LoadAllSamples() {
  error_ = kErrNone;
  if (!indexed_) {
    error_ = kErrNotOpen;
    return false;
  }
  const uint64_t stride = uint64_t(header_.sampleStride);
  const uint64_t total = stride * uint64_t(header_.numSamples);
  // The callback takes 32-bit counts: scale down large totals so that they fit.
  int shift = 0;
  while ((total >> shift) > UINT32_MAX) ++shift;
  for (int32_t s = 0; s < header_.numSamples; ++s) {
    if (!LoadSample(s, true)) return false;
    if (!ReportProgress(uint32_t((stride * uint64_t(s + 1)) >> shift), uint32_t(total >> shift)))
      return false;
  }
  if (!keepOpen_) Close();
  return true;
}

bool kvCacheReader::LoadSamplesForElements(std::span<ElementFrameState> states,
                                           const FrameSettings& s, FrameScratch& scratch,
                                           int element) {
  error_ = kErrNone;
  if (!indexed_ || states.size() < elements_.size()) {
    error_ = kErrNotOpen;
    return false;
  }
  const int32_t n = header_.numSamples;
  if (scratch.pending.GetSize() != n) scratch.pending.SetSize(n, false);
  scratch.toLoad.clear();
  auto want = [&](int32_t sample) {
    if (!IsSampleLoaded(sample) && !scratch.pending[sample]) {
      scratch.pending.Set(sample);
      scratch.toLoad.push_back(sample);
    }
  };
  const int first = element < 0 ? 0 : element;
  const int last = element < 0 ? NumElements() - 1 : element;
  // Elements mostly share their cache time: one that has the time of the element mapped
  // before it takes that mapping as it is (the mapping depends on the time alone).
  const ElementFrameState* prev = nullptr;
  for (int e = first; e <= last && e < NumElements(); ++e) {
    ElementFrameState& r = states[size_t(e)];
    if (prev && std::bit_cast<uint32_t>(prev->time) == std::bit_cast<uint32_t>(r.time)) {
      r.sampleA = prev->sampleA;
      r.fraction = prev->fraction;
      r.sampleB = prev->sampleB;
      r.interpolate = prev->interpolate;
      r.shown = prev->shown;
      r.beforeRange = prev->beforeRange;
      r.afterRange = prev->afterRange;
      continue;  // its samples are already wanted
    }
    MapTimeToSamples(s, r);
    prev = &r;
    if (n == 0) continue;
    want(r.sampleA);
    if (r.interpolate) want(r.sampleB);
  }
  bool ok = true;
  for (const int32_t sample : scratch.toLoad) {
    scratch.pending.Clear(sample);
    if (ok && !LoadSample(sample, true)) ok = false;
  }
  scratch.toLoad.clear();
  // "Per-Sample" closes after each batch; any mode closes once nothing is left to read.
  if (ok && (!keepOpen_ || AllSamplesLoaded())) Close();
  return ok;
}

const kvCacheReader::SampleBlock* kvCacheReader::Block(int32_t s) const {
  return IsSampleLoaded(s) ? blocks_[size_t(s)].get() : nullptr;
}

const kv::AffineParts* kvCacheReader::Parts(int32_t s) const {
  SampleBlock* b = const_cast<SampleBlock*>(Block(s));
  if (!b) return nullptr;
  // Decomposed once per block: a blend then costs two slerps and a rebuild per element.
  if (b->parts.empty()) {
    b->parts.resize(b->tm.size());
    for (size_t i = 0; i < b->tm.size(); ++i) b->parts[i] = kv::DecompAffine(b->tm[i]);
  }
  return b->parts.data();
}

kv::Matrix3 kvCacheReader::SampleTransform(int e, int32_t s) const {
  const SampleBlock* b = Block(s);
  return b ? b->tm[size_t(e)] : kv::Matrix3();
}

bool kvCacheReader::SampleVisible(int e, int32_t s) const {
  const SampleBlock* b = Block(s);
  return b && b->visible[size_t(e)];
}

kv::Matrix3 kvCacheReader::ElementTransform(int e, const ElementFrameState& r) const {
  if (r.interpolate) {
    const kv::AffineParts* a = Parts(r.sampleA);
    const kv::AffineParts* b = Parts(r.sampleB);
    if (a && b) return kv::BlendAffineParts(a[e], b[e], r.fraction);
  }
  return SampleTransform(e, r.sampleA);
}

// ---------------------------------------------------------------------------- frames

void kvCacheReader::RebuildTopology(kv::Mesh& out, const FrameSettings& s,
                                    FrameScratch& scratch) const {
  const kv::Mesh& src = s.boxMode ? combinedBox_ : combined_;
  const size_t n = elements_.size();
  scratch.outVert.resize(n);
  scratch.outFace.resize(n);
  int32_t v = 0, f = 0;
  for (size_t e = 0; e < n; ++e) {
    scratch.outVert[e] = v;
    scratch.outFace[e] = f;
    if (scratch.removed[int(e)]) continue;
    v += s.boxMode ? 8 : elements_[e].numVerts;
    f += s.boxMode ? 12 : elements_[e].numFaces;
  }
  out.verts.resize(size_t(v));
  out.faces.resize(size_t(f));
  out.faceSel.SetSize(f, false);
  out.maps.resize(src.maps.size());
  for (size_t ch = 0; ch < src.maps.size(); ++ch) {
    out.maps[ch].support = src.maps[ch].support;
    if (src.maps[ch].support) {
      out.maps[ch].verts = src.maps[ch].verts;
      out.maps[ch].faces.resize(size_t(f));
    } else {
      out.maps[ch].verts.clear();
      out.maps[ch].faces.clear();
    }
  }
  if (src.hasSpecNormals())
    out.specNormals.resize(size_t(f) * 3);
  else
    out.specNormals.clear();

  for (size_t e = 0; e < n; ++e) {
    if (scratch.removed[int(e)]) continue;
    const int32_t sv = s.boxMode ? int32_t(e * 8) : elements_[e].vertOffset;
    const int32_t sf = s.boxMode ? int32_t(e * 12) : elements_[e].faceOffset;
    const int32_t nf = s.boxMode ? 12 : elements_[e].numFaces;
    const uint32_t shift = uint32_t(sv - scratch.outVert[e]);
    const int32_t of = scratch.outFace[e];
    for (int32_t j = 0; j < nf; ++j) {
      kv::Face face = src.faces[size_t(sf + j)];
      for (uint32_t& x : face.v) x -= shift;
      out.faces[size_t(of + j)] = face;
      if (src.faceSel[sf + j]) out.faceSel.Set(of + j);
    }
    for (size_t ch = 0; ch < src.maps.size(); ++ch)
      if (src.maps[ch].support)
        std::copy_n(src.maps[ch].faces.begin() + sf, nf, out.maps[ch].faces.begin() + of);
    if (src.hasSpecNormals())
      std::copy_n(src.specNormals.begin() + sf * 3, nf * 3, out.specNormals.begin() + of * 3);
  }
  scratch.boxMode = s.boxMode;
  scratch.readerGeneration = generation_;
  scratch.touched.SetSize(int(n), false);
}

bool kvCacheReader::ReadFrame(kv::Mesh& out, std::span<ElementFrameState> states,
                              const FrameSettings& s, FrameScratch& scratch, bool newlyOpened) {
  if (!LoadSamplesForElements(states, s, scratch)) return false;
  const int n = NumElements();

  // Which elements leave the mesh. While the host plays the animation they are hidden in
  // place instead, so that the topology survives from frame to frame.
  if (candidate_.GetSize() != n) candidate_.SetSize(n, false);
  candidate_.ClearAll();
  if (vertStart_.size() != size_t(n) + 1) {
    vertStart_.resize(size_t(n) + 1);
    faceStart_.resize(size_t(n) + 1);
    for (int e = 0; e < n; ++e) {
      vertStart_[size_t(e)] = elements_[size_t(e)].vertOffset;
      faceStart_[size_t(e)] = elements_[size_t(e)].faceOffset;
    }
    vertStart_[size_t(n)] = int32_t(totalVerts_);
    faceStart_[size_t(n)] = int32_t(totalFaces_);
  }
  const int32_t* vs = vertStart_.data();
  const int32_t* fs = faceStart_.data();
  // Elements mostly share their samples: the last block looked up is kept at hand.
  int32_t lastA = -1, lastB = -1, lastPartsA = -1;
  const SampleBlock* blockA = nullptr;
  const kv::AffineParts *partsA = nullptr, *partsB = nullptr;
  kv::SlerpWeights weights(0);  // for the fraction of the last element blended
  auto sampleBlock = [&](int32_t sample) {
    if (sample != lastA) lastA = sample, blockA = Block(sample);
    return blockA;
  };
  // Counted down from the total over the elements that leave, which are few.
  int64_t keptFaces = s.boxMode ? int64_t(n) * 12 : totalFaces_;
  for (int e = 0; e < n; ++e) {
    const ElementFrameState& r = states[size_t(e)];
    const SampleBlock* b = sampleBlock(r.sampleA);
    const bool invisible = !b || !b->visible[size_t(e)];
    const bool gone = r.removed || !r.shown || (s.deleteInvisible && invisible);
    if (gone && s.playbackIdle) {
      candidate_.Set(e);
      keptFaces -= s.boxMode ? 12 : fs[e + 1] - fs[e];
    }
  }
  if (keptFaces == 0) {
    out.FreeAll();
    out.InvalidateTopologyCache();
    scratch.Reset();
    return true;
  }

  const kv::Mesh& src = s.boxMode ? combinedBox_ : combined_;
  const bool keep = !newlyOpened && scratch.readerGeneration == generation_ &&
                    scratch.boxMode == s.boxMode && scratch.removed.GetSize() == n &&
                    scratch.removed == candidate_ && out.numFaces() == keptFaces &&
                    scratch.outFace.size() == size_t(n);
  if (!keep) {
    scratch.removed = candidate_;
    RebuildTopology(out, s, scratch);
  } else {
    // Undo last frame's hiding and re-labelling before applying this frame's.
    scratch.touched.ForEachSet([&](int e) {
      const int32_t sf = s.boxMode ? e * 12 : elements_[size_t(e)].faceOffset;
      const int32_t nf = s.boxMode ? 12 : elements_[size_t(e)].numFaces;
      const int32_t of = scratch.outFace[size_t(e)];
      for (int32_t j = 0; j < nf; ++j)
        out.faces[size_t(of + j)].flags = src.faces[size_t(sf + j)].flags;
    });
    scratch.touched.ClearAll();
  }

  const bool normals = out.hasSpecNormals();
  for (int e = 0; e < n; ++e) {
    if (scratch.removed[e]) continue;
    const ElementFrameState& r = states[size_t(e)];
    const SampleBlock* block = sampleBlock(r.sampleA);
    kv::Matrix3 m = block ? block->tm[size_t(e)] : kv::Matrix3();
    if (r.interpolate) {
      if (r.sampleA != lastPartsA) lastPartsA = r.sampleA, partsA = Parts(r.sampleA);
      if (r.sampleB != lastB) lastB = r.sampleB, partsB = Parts(r.sampleB);
      if (std::bit_cast<uint32_t>(r.fraction) != std::bit_cast<uint32_t>(weights.f))
        weights = kv::SlerpWeights(r.fraction);
      if (partsA && partsB) m = kv::BlendAffineParts(partsA[e], partsB[e], weights);
    }
    if (s.unitScale != 1.0f) m = m * s.unitScale;
    const int32_t sv = s.boxMode ? e * 8 : vs[e];
    const int32_t nv = s.boxMode ? 8 : vs[e + 1] - vs[e];
    const int32_t sf = s.boxMode ? e * 12 : fs[e];
    const int32_t nf = s.boxMode ? 12 : fs[e + 1] - fs[e];
    kv::TransformPoints(m, src.verts.data() + sv, out.verts.data() + scratch.outVert[size_t(e)],
                        size_t(nv));
    const int32_t of = scratch.outFace[size_t(e)];
    if (normals) {
      const kv::Point3* ns = src.specNormals.data() + size_t(sf) * 3;
      kv::Point3* no = out.specNormals.data() + size_t(of) * 3;
      for (int32_t j = 0; j < nf * 3; ++j) no[j] = m.VectorTransform(ns[j]).Normalized();
    }

    const bool invisible = !block || !block->visible[size_t(e)];
    const bool gone = r.removed || !r.shown || (s.deleteInvisible && invisible);
    const bool kept = !s.deleteInvisible && invisible;
    const bool hide = (gone && !s.playbackIdle) || (kept && s.hideInvisible);
    const bool relabel = kept && s.applyHiddenMatId && s.hiddenMatId >= 0;
    if (!hide && !relabel && r.matIdOverride < 0) continue;
    kv::Face* faces = out.faces.data() + of;
    if (r.matIdOverride >= 0)
      for (int32_t j = 0; j < nf; ++j) faces[j].setMatID(kv::MtlID(r.matIdOverride));
    if (relabel)
      for (int32_t j = 0; j < nf; ++j) faces[j].setMatID(kv::MtlID(s.hiddenMatId));
    if (hide)
      for (int32_t j = 0; j < nf; ++j) faces[j].Hide();
    scratch.touched.Set(e);
  }
  if (keep)
    out.InvalidateGeomCache();
  else
    out.InvalidateTopologyCache();
  return true;
}

// ---------------------------------------------------------------------------- status

uint64_t kvCacheReader::FileDataSize() const {
  return uint64_t(header_.sampleStride) * uint64_t(header_.numSamples) +
         uint64_t(totalVerts_) * kPointSize;
}

uint64_t kvCacheReader::LoadedDataSize() const {
  return uint64_t(header_.sampleStride) * uint64_t(loadedCount_) +
         uint64_t(totalVerts_) * kPointSize;
}

std::string kvCacheReader::StatusText() const {
  if (InError()) return std::string(ErrorMessageText());
  if (!indexed_ || header_.numSamples == 0) return kv::res::GetString(kv::res::IDS_FILE_NOT_FOUND);
  return "F:" + SizeText(FileDataSize()) + ", M:" + SizeText(LoadedDataSize());
}

}  // namespace KelvaneTools

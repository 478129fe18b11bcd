#include "cache/reader.h"

#include <algorithm>
#include <atomic>
#include <climits>
#include <cstring>

#include "host/interface.h"
#include "res/strings.h"

namespace KelvaneTools {

static_assert(sizeof(kv::Point3) == 12, "vertex arrays are copied as packed float triples");
static_assert(sizeof(kv::TVFace) == 12, "map faces are copied as packed u32 triples");

namespace {

std::atomic<uint64_t> gGeneration{0};

// A bounded cursor that streams file bytes through one window of a megabyte, so that the
// bytes being parsed stay in cache and the only large memory an open touches is the index it
// builds. Reads stop at the planned end (the sample table) unless parsing needs more (a file
// whose sample table offset lies inside its element data); then they go on to the end of the
// file. Every count is checked against Left(), the bytes the file still holds, before
// anything is allocated for it.
class StreamCursor {
 public:
  static constexpr size_t kWindow = size_t{1} << 20;

  StreamCursor(kvCacheBase& base, uint64_t pos, uint64_t planEnd, uint64_t fileSize)
      : base_(base), fileSize_(fileSize), limit_(std::min(planEnd, fileSize)), filePos_(pos) {
    buf_.resize(kWindow);
  }

  uint64_t Left() const { return fileSize_ - (filePos_ - (end_ - pos_)); }

  bool Need(size_t n) {
    if (end_ - pos_ >= n) return true;
    if (n > Left()) {
      base_.SetError(kErrReadPastEof);
      return false;
    }
    const size_t have = end_ - pos_;
    if (n > buf_.size()) buf_.resize(n);  // bounded by the file, checked above
    std::memmove(buf_.data(), buf_.data() + pos_, have);
    pos_ = 0;
    end_ = have;
    if (filePos_ + (n - have) > limit_) limit_ = fileSize_;
    const size_t want = size_t(std::min<uint64_t>(buf_.size() - end_, limit_ - filePos_));
    if (!base_.ReadBytes(buf_.data() + end_, want)) return false;
    end_ += want;
    filePos_ += want;
    return true;
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
  // Large blocks bypass the window and go straight from the file into `dst`.
  bool ReadRaw(void* dst, size_t n) {
    uint8_t* d = static_cast<uint8_t*>(dst);
    const size_t buffered = std::min(n, end_ - pos_);
    if (buffered) std::memcpy(d, Take(buffered), buffered);
    d += buffered;
    n -= buffered;
    if (n == 0) return true;
    if (n >= kWindow / 2) {
      if (n > Left()) {
        base_.SetError(kErrReadPastEof);
        return false;
      }
      if (!base_.ReadBytes(d, n)) return false;
      filePos_ += n;
      limit_ = std::max(limit_, filePos_);
      return true;
    }
    if (!Need(n)) return false;
    std::memcpy(d, Take(n), n);
    return true;
  }

 private:
  kvCacheBase& base_;
  uint64_t fileSize_;
  uint64_t limit_;    // reads stop here until more is needed
  uint64_t filePos_;  // the file offset just past the window's bytes
  std::vector<uint8_t> buf_;
  size_t pos_ = 0, end_ = 0;
};

// Reserves a large array without touching it, so that the large-page hint lands first.
template <class T>
void ReserveLarge(std::vector<T>& v, size_t n) {
  v.reserve(n);
  AdviseLargePages(v.data(), v.capacity() * sizeof(T));
}

// Grows `v` by n elements and returns the first new one. The values are written at once, so
// the zero fill lands in cache lines about to be overwritten anyway.
template <class T>
T* Grow(std::vector<T>& v, size_t n) {
  const size_t old = v.size();
  v.resize(old + n);
  return v.data() + old;
}

bool IsAscii(std::string_view s) {
  for (const char c : s)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

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
  channelArena_ = {};
  totalVerts_ = totalFaces_ = 0;
  channelTotals_.clear();
  lowChannel_ = highChannel_ = kNoChannel;
  anyNormals_ = false;
  mapOffset_.clear();
  combined_.FreeAll();
  combinedBox_.FreeAll();
  boxesBuilt_ = false;
  elementMeshes_.clear();
  elementBoxes_.clear();
  blocks_.clear();
  blocks_.shrink_to_fit();
  loadedCount_ = 0;
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
  StreamCursor in(*this, kDataOffset, uint64_t(h.sampleTableOffset), fileSize);

  const int version = h.version;
  const bool normalsByte = HasNormalsByte(version);
  const size_t faceSize = FaceRecordSize(version);
  const size_t minRecord = kElementRecordFixed + (normalsByte ? 1 : 0);
  if (uint64_t(h.numNodes) > in.Left() / minRecord) {
    error_ = kErrReadPastEof;
    return false;
  }
  ReserveLarge(elements_, size_t(h.numNodes));
  elements_.resize(size_t(h.numNodes));
  // Each element's first entry in the channel array; its views are set once the array stops
  // growing.
  std::vector<uint32_t> channelFirst(size_t(h.numNodes) + 1, 0);
  auto invalid = [this] {
    error_ = kErrInvalidFile;
    return false;
  };

  // 1. Element records. Predicted sizes of the blocks that follow are summed so that the
  // totals can be checked against the file before any mesh is allocated.
  uint64_t blockBytesTotal = 0;
  int64_t channelSums[kMaxChannel + 1] = {};
  bool channelSeen[kMaxChannel + 1] = {};
  for (size_t e = 0; e < elements_.size(); ++e) {
    CacheElement& el = elements_[e];
    int32_t nameLength = 0;
    if (!in.Read(nameLength)) return false;
    if (nameLength < 0) return invalid();
    if (!in.Need(size_t(nameLength))) return false;
    const char* rawName = reinterpret_cast<const char*>(in.Take(size_t(nameLength)));
    const void* nul = std::memchr(rawName, 0, size_t(nameLength));
    const std::string_view name(
        rawName, nul ? size_t(static_cast<const char*>(nul) - rawName) : size_t(nameLength));
    // Stored in the host's 8-bit code page, kept as UTF-8; plain ASCII reads the same in
    // both.
    if (IsAscii(name))
      el.name.assign(name);
    else
      el.name = host_ ? host_->FromCodePage(name) : kv::host::Cp1252ToUtf8(name);

    if (!in.Need(kElementRecordFixed - 4)) return false;
    const uint8_t* p = in.Take(kElementRecordFixed - 4);
    float box[6];
    std::memcpy(box, p, sizeof box);
    el.bounds = kv::Box3({box[0], box[1], box[2]}, {box[3], box[4], box[5]});
    el.numVerts = LoadLE<int32_t>(p + 24);
    el.numFaces = LoadLE<int32_t>(p + 28);
    const int32_t numChannels = LoadLE<int32_t>(p + 32);
    if (el.numVerts < 0 || el.numFaces < 0 || numChannels < 0 || numChannels > kMaxChannel + 1)
      return invalid();
    uint64_t elementBytes = uint64_t(el.numVerts) * kPointSize + uint64_t(el.numFaces) * faceSize;
    if (numChannels > 0) {
      if (!in.Need(size_t(numChannels) * kChannelEntrySize)) return false;
      const uint8_t* c = in.Take(size_t(numChannels) * kChannelEntrySize);
      const size_t first = channelArena_.size();
      for (int32_t k = 0; k < numChannels; ++k, c += kChannelEntrySize) {
        const int32_t ch = LoadLE<int32_t>(c), count = LoadLE<int32_t>(c + 4);
        if (ch < 0 || ch > kMaxChannel || count < 0) return invalid();
        channelArena_.emplace_back(ch, count);
        elementBytes += uint64_t(count) * kPointSize + uint64_t(el.numFaces) * kMapFaceSize;
      }
      // The map blocks follow in channel order whatever the list's order; a channel listed
      // twice would leave its blocks ambiguous.
      const auto list = channelArena_.begin() + std::ptrdiff_t(first);
      std::sort(list, channelArena_.end());
      for (auto it = list + 1; it < channelArena_.end(); ++it)
        if (it->first == (it - 1)->first) return invalid();
      el.lowChannel = list->first;
      el.highChannel = channelArena_.back().first;
      for (auto it = list; it < channelArena_.end(); ++it) {
        channelSums[it->first] += it->second;
        channelSeen[it->first] = true;
      }
    }
    channelFirst[e + 1] = uint32_t(channelArena_.size());
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
    el.channels = {channelArena_.data() + channelFirst[e], channelFirst[e + 1] - channelFirst[e]};
  }
  for (int ch = 0; ch <= kMaxChannel; ++ch) {
    if (!channelSeen[ch]) continue;
    channelTotals_.emplace(ch, channelSums[ch]);
    if (lowChannel_ == kNoChannel) lowChannel_ = ch;
    highChannel_ = ch;
  }
  if (totalVerts_ > INT32_MAX / 8 || totalFaces_ > INT32_MAX / 12) return invalid();

  // 2. Geometry blocks, straight into the combined mesh, element by element.
  ReserveLarge(combined_.verts, size_t(totalVerts_));
  ReserveLarge(combined_.faces, size_t(totalFaces_));
  combined_.faceSel.SetSize(int(totalFaces_), false);
  if (anyNormals_) ReserveLarge(combined_.specNormals, size_t(totalFaces_) * 3);
  // Faces are parsed in batches that fit the window.
  const size_t faceBatch = StreamCursor::kWindow / faceSize;
  for (CacheElement& el : elements_) {
    kv::Point3* verts = Grow(combined_.verts, size_t(el.numVerts));
    if (!in.ReadRaw(verts, size_t(el.numVerts) * kPointSize)) return false;
    kv::Face* faces = Grow(combined_.faces, size_t(el.numFaces));
    kv::Point3* normals =
        anyNormals_ ? Grow(combined_.specNormals, size_t(el.numFaces) * 3) : nullptr;
    const uint32_t base = uint32_t(el.vertOffset);
    for (int32_t f0 = 0; f0 < el.numFaces;) {
      const int32_t f1 = int32_t(std::min<int64_t>(el.numFaces, int64_t(f0) + int64_t(faceBatch)));
      if (!in.Need(size_t(f1 - f0) * faceSize)) return false;
      const uint8_t* p = in.Take(size_t(f1 - f0) * faceSize);
      for (int32_t f = f0; f < f1; ++f, p += faceSize) {
        kv::Face& face = faces[f];
        const uint16_t matId = LoadLE<uint16_t>(p);
        face.smGroup = LoadLE<uint32_t>(p + 2);
        face.flags = (p[6] & kv::kEdgeAll) | uint32_t{matId} << 16;
        if (p[7]) combined_.faceSel.Set(el.faceOffset + f);
        uint32_t v[3];
        std::memcpy(v, p + 8, sizeof v);
        const uint32_t nv = uint32_t(el.numVerts);
        if (v[0] >= nv || v[1] >= nv || v[2] >= nv) return invalid();
        face.setVerts(v[0] + base, v[1] + base, v[2] + base);
        if (!normals) continue;
        kv::Point3* n = normals + size_t(f) * 3;
        if (el.hasNormals) {
          std::memcpy(n, p + kFaceFixedPart, 3 * kPointSize);
        } else {  // flat normals for elements that carry none
          const kv::Point3& a = verts[v[0]];
          const kv::Point3 fn = kv::CrossProd(verts[v[1]] - a, verts[v[2]] - a).Normalized();
          n[0] = n[1] = n[2] = fn;
        }
      }
      f0 = f1;
    }
  }
  for (CacheElement& el : elements_)
    el.matIds = FaceMatIds(
        std::span<const kv::Face>(combined_.faces.data() + el.faceOffset, size_t(el.numFaces)));

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
    ReserveLarge(map.verts, size_t(total));
    ReserveLarge(map.faces, size_t(totalFaces_));
    bool uncarriedFaces = false;
    int32_t next = 0;
    for (size_t e = 0; e < elements_.size(); ++e) {
      const CacheElement& el = elements_[e];
      int32_t count = -1;
      for (const auto& c : el.channels)
        if (c.first == ch) count = c.second;
      kv::TVFace* faces = Grow(map.faces, size_t(el.numFaces));
      if (count < 0) {
        uncarriedFaces |= el.numFaces > 0;
        continue;
      }
      offsets[e] = next;
      if (!in.ReadRaw(Grow(map.verts, size_t(count)), size_t(count) * kPointSize)) return false;
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

  elementMeshes_.resize(elements_.size());
  elementBoxes_.resize(elements_.size());
  blocks_.resize(size_t(h.numSamples));
  loadedCount_ = 0;
  return true;
}

const kv::Mesh& kvCacheReader::CombinedBoxMesh() const {
  if (boxesBuilt_) return combinedBox_;
  boxesBuilt_ = true;
  const size_t n = elements_.size();
  ReserveLarge(combinedBox_.verts, n * 8);
  ReserveLarge(combinedBox_.faces, n * 12);
  combinedBox_.faceSel.SetSize(int(n * 12), false);
  for (size_t e = 0; e < n; ++e) {
    const CacheElement& el = elements_[e];
    WriteBox(el.bounds, el.matIds.empty() ? 0 : el.matIds[0], Grow(combinedBox_.verts, 8),
             Grow(combinedBox_.faces, 12), uint32_t(e * 8));
  }
  return combinedBox_;
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

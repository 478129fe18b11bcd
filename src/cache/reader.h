// Reads a .kvc cache: opens and indexes it in one sequential pass, loads sample blocks on
// demand, maps element times to samples and assembles frames into an output mesh.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "cache/base.h"
#include "cache/format.h"
#include "cache/frame.h"
#include "geom/affine.h"
#include "geom/box3.h"
#include "geom/matrix3.h"
#include "geom/mesh.h"

namespace kv::host {
class Interface;
class MtlLib;
}  // namespace kv::host

namespace KelvaneTools {

// Every face's material id, in face order, read from the faces themselves (a view over them,
// valid while they are).
class FaceMatIds {
 public:
  class iterator {
   public:
    using iterator_category = std::forward_iterator_tag;
    using value_type = uint16_t;
    using difference_type = std::ptrdiff_t;
    using pointer = void;
    using reference = uint16_t;
    iterator() = default;
    explicit iterator(const kv::Face* f) : f_(f) {}
    uint16_t operator*() const { return f_->getMatID(); }
    iterator& operator++() {
      ++f_;
      return *this;
    }
    iterator operator++(int) {
      iterator old = *this;
      ++f_;
      return old;
    }
    bool operator==(const iterator&) const = default;

   private:
    const kv::Face* f_ = nullptr;
  };

  FaceMatIds() = default;
  explicit FaceMatIds(std::span<const kv::Face> faces) : faces_(faces) {}
  size_t size() const { return faces_.size(); }
  bool empty() const { return faces_.empty(); }
  uint16_t operator[](size_t i) const { return faces_[i].getMatID(); }
  iterator begin() const { return iterator(faces_.data()); }
  iterator end() const { return iterator(faces_.data() + faces_.size()); }

 private:
  std::span<const kv::Face> faces_;
};

// One element of an open cache.
struct CacheElement {
  std::string name;  // UTF-8
  kv::Box3 bounds;   // object space
  int32_t numVerts = 0;
  int32_t numFaces = 0;
  // (channel, map-vertex count), ascending; views into the reader's index, valid while it is.
  std::span<const std::pair<int32_t, int32_t>> channels;
  int32_t lowChannel = kNoChannel;
  int32_t highChannel = kNoChannel;
  bool hasNormals = false;
  // Every face's material id, in face order: read from the combined mesh's faces, which hold
  // it anyway (a copy would add a twentieth to the index an open builds).
  FaceMatIds matIds;
  int32_t vertOffset = 0;  // first vertex in the combined mesh
  int32_t faceOffset = 0;  // first face in the combined mesh

  bool HasChannel(int ch) const;
};

class kvCacheReader : public kvCacheBase {
 public:
  // `host` provides the material library beside the cache; null means no library.
  explicit kvCacheReader(std::string fileName, kv::host::Interface* host = nullptr);
  ~kvCacheReader() override;

  // (Re)loads header, index and meshes. False leaves an error code and no index.
  bool Open();
  // Drops header, index, meshes and samples; the range becomes "no time".
  void Release();

  // Keep the file open between sample reads ("Stream", "Pre-Load") or close it after each
  // batch ("Per-Sample").
  bool KeepOpen() const { return keepOpen_; }
  void SetKeepOpen(bool on) { keepOpen_ = on; }
  void SetLoadType(LoadType t) { keepOpen_ = t != LoadType::PerSample; }

  bool HasIndex() const { return indexed_; }
  // Changes with every successful Open; 0 without an index. Lets a caller's mesh tell whether
  // it was built from the current load.
  uint64_t Generation() const { return generation_; }

  // ---- header and index (valid while HasIndex())
  const CacheHeader& Header() const { return header_; }
  // The file's size in bytes when it was opened, and the parts the header delimits: the
  // element records (mesh data) and the sample table (animation data).
  uint64_t FileSize() const { return fileSize_; }
  uint64_t MeshDataSize() const {
    return static_cast<uint64_t>(header_.sampleTableOffset) - header_.dataOffset;
  }
  uint64_t AnimationDataSize() const {
    return static_cast<uint64_t>(header_.sampleStride) * static_cast<uint64_t>(header_.numSamples);
  }
  int NumElements() const { return static_cast<int>(elements_.size()); }
  int32_t NumSamples() const { return header_.numSamples; }
  int32_t FrameRate() const { return header_.frameRate; }
  bool HasVisibility() const { return header_.hasVisibility != 0; }
  const CacheElement& Element(int i) const { return elements_[i]; }
  int64_t TotalVerts() const { return totalVerts_; }
  int64_t TotalFaces() const { return totalFaces_; }
  // Channel number -> sum of its map-vertex counts over the elements carrying it.
  const std::map<int32_t, int64_t>& ChannelTotals() const { return channelTotals_; }
  int32_t LowChannel() const { return lowChannel_; }
  int32_t HighChannel() const { return highChannel_; }
  bool AnyNormals() const { return anyNormals_; }

  // All elements concatenated in element order, and their bounds boxes (8 vertices and 12
  // faces each). The boxes are built on first use: most caches never play as boxes, and
  // building them would cost every open a tenth of its memory traffic.
  const kv::Mesh& CombinedMesh() const { return combined_; }
  const kv::Mesh& CombinedBoxMesh() const;
  // One element's own mesh and box, built on first use and kept for the life of the index.
  const kv::Mesh& ElementMesh(int i) const;
  const kv::Mesh& ElementBoxMesh(int i) const;
  // The library loaded from the ".mat" file beside the cache (empty when there is none);
  // null without a host.
  kv::host::MtlLib* MaterialLibrary() const { return mtlLib_.get(); }

  // ---- samples
  // Fills one record from r.time. Returns whether two samples are blended.
  bool MapTimeToSamples(const FrameSettings& s, ElementFrameState& r) const;
  // Maps every record (or only `element`) and loads the sample blocks they need that are not
  // loaded yet. `states` holds one record per element.
  bool LoadSamplesForElements(std::span<ElementFrameState> states, const FrameSettings& s,
                              FrameScratch& scratch, int element = -1);
  bool LoadSample(int32_t s, bool keepFileOpen);
  // Every block with progress (bytes done, bytes total); a cancel gives code 7.
  bool LoadAllSamples();
  bool IsSampleLoaded(int32_t s) const;
  // Memory for sample blocks that "Stream" and "Per-Sample" keep once played; beyond it the
  // blocks used longest ago are dropped (at least two blocks stay).
  void SetStreamBudget(uint64_t bytes) { streamBudget_ = bytes; }
  int32_t NumSamplesLoaded() const;
  bool AllSamplesLoaded() const;

  // Stored transform and visibility of element e at a loaded sample (identity and false when
  // the sample is not loaded).
  kv::Matrix3 SampleTransform(int e, int32_t s) const;
  bool SampleVisible(int e, int32_t s) const;
  // The element's transform for a mapped record: sample A, or the blend of A and B.
  kv::Matrix3 ElementTransform(int e, const ElementFrameState& r) const;
  static kv::Matrix3 BlendTransforms(const kv::Matrix3& a, const kv::Matrix3& b, float f) {
    return kv::BlendTransforms(a, b, f);
  }

  // ---- frames
  // Samples every element at its record's time and writes the frame into `out`: element
  // meshes (or boxes) carried by their transforms times the unit scale, removed elements left
  // out, hidden ones hidden in place, material id overrides applied. The topology of `out` is
  // kept from the previous frame when it can be; once warm a frame allocates nothing.
  // `newlyOpened` forces a rebuild of the topology.
  bool ReadFrame(kv::Mesh& out, std::span<ElementFrameState> states, const FrameSettings& s,
                 FrameScratch& scratch, bool newlyOpened = false);

  // "F:<file size>, M:<memory size>", the error message, or "File not found." with no
  // samples.
  std::string StatusText() const;
  // Bytes of sample data and vertex buffers: of the whole cache, and of what is loaded.
  uint64_t FileDataSize() const;
  uint64_t LoadedDataSize() const;

 private:
  struct SampleBlock {
    std::vector<kv::Matrix3> tm;
    std::vector<uint8_t> visible;
    bool allVisible = true;              // no 0 in `visible`
    std::vector<kv::AffineParts> parts;  // decomposed on first blend
    uint64_t lastUse = 0;                // the frame that last wanted it
  };

  bool ReadIndex(uint64_t fileSize);
  void LoadMaterialLibrary();
  const SampleBlock* Block(int32_t s) const;
  const kv::AffineParts* Parts(int32_t s) const;
  // Drops the blocks used longest ago that this frame does not want, until what stays and
  // what the frame still has to load fit the stream budget (or two blocks, or the frame's).
  void EvictBlocks(const uint8_t* wanted);
  void RebuildTopology(kv::Mesh& out, const FrameSettings& s, FrameScratch& scratch) const;
  // fn(begin, end) over [0, n) through the host's parallel-for (serially without a host).
  template <class F>
  void ForRanges(size_t n, size_t grain, F&& fn) const;

  // Least work per range handed to another thread: below it a thread costs more than it
  // saves, so small frames stay on the caller's thread.
  static constexpr size_t kMapGrain = 8192;            // elements mapped to samples
  static constexpr size_t kDecompGrain = 1024;         // transforms decomposed
  static constexpr uint64_t kFrameGrainVerts = 32768;  // vertices moved
  static constexpr uint64_t kStreamBudget = uint64_t{16} << 20;

  kv::host::Interface* host_;
  bool keepOpen_ = true;
  bool indexed_ = false;
  uint64_t generation_ = 0;
  CacheHeader header_;
  uint64_t fileSize_ = 0;
  std::vector<CacheElement> elements_;
  // What the elements' views point at: one array each for the whole file instead of a small
  // allocation per element.
  std::vector<std::pair<int32_t, int32_t>> channelArena_;
  int64_t totalVerts_ = 0, totalFaces_ = 0;
  std::map<int32_t, int64_t> channelTotals_;
  int32_t lowChannel_ = kNoChannel, highChannel_ = kNoChannel;
  bool anyNormals_ = false;
  // mapOffset_[ch][e]: element e's first map vertex in the combined channel ch (-1 absent).
  std::vector<std::vector<int32_t>> mapOffset_;
  kv::Mesh combined_;
  mutable kv::Mesh combinedBox_;
  mutable bool boxesBuilt_ = false;
  mutable std::vector<std::unique_ptr<kv::Mesh>> elementMeshes_;
  mutable std::vector<std::unique_ptr<kv::Mesh>> elementBoxes_;
  std::unique_ptr<kv::host::MtlLib> mtlLib_;
  std::vector<std::unique_ptr<SampleBlock>> blocks_;
  int32_t loadedCount_ = 0;
  std::vector<uint8_t> blockBytes_;  // one sample block as read
  uint64_t useClock_ = 0;            // counts the frames that loaded samples
  uint64_t streamBudget_ = kStreamBudget;
  kv::BitArray candidate_;  // elements to leave out of the frame being read
  // First face of each element in the combined mesh, with the total appended: a compact copy
  // of the element records' offsets for the per-element frame loop.
  std::vector<int32_t> faceStart_;
};

}  // namespace KelvaneTools

// Writes a .kvc cache: element records, geometry and map blocks, then the sample table,
// sampled from an ElementSource while writing, and finally the header.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "cache/base.h"
#include "cache/format.h"
#include "geom/matrix3.h"
#include "geom/mesh.h"
#include "geom/time.h"

namespace kv::host {
class Interface;
class Mtl;
class Node;
}  // namespace kv::host

namespace KelvaneTools {

// The recorded elements as the writer sees them. The host layer supplies them (see
// NodeElementSource); the writer never touches scene nodes itself. Methods may throw: the
// writer turns an escaping exception into code 5.
class ElementSource {
 public:
  virtual ~ElementSource() = default;
  virtual int Count() const = 0;
  virtual std::string Name(int i) const = 0;  // UTF-8
  // Element i's triangle mesh at t in object space (the render mesh when `render`). False
  // when it has none or it is empty.
  virtual bool CaptureMesh(int i, kv::TimeValue t, bool render, kv::Mesh& out) = 0;
  virtual kv::host::Mtl* Material(int i) const = 0;  // null for none
  // Object transforms and visibility values at t of the listed elements, one call per time
  // step so that a host can evaluate its scene once per step.
  virtual void Sample(kv::TimeValue t, std::span<const int> elements, kv::Matrix3* objectTM,
                      float* visibility) = 0;
  virtual int FrameRate() const = 0;
};

// Scene nodes as an ElementSource: names, render meshes, materials, object transforms and
// visibility through the host interfaces.
class NodeElementSource : public ElementSource {
 public:
  NodeElementSource(std::vector<kv::host::Node*> nodes, int frameRate)
      : nodes_(std::move(nodes)), frameRate_(frameRate) {}
  int Count() const override { return static_cast<int>(nodes_.size()); }
  std::string Name(int i) const override;
  bool CaptureMesh(int i, kv::TimeValue t, bool render, kv::Mesh& out) override;
  kv::host::Mtl* Material(int i) const override;
  void Sample(kv::TimeValue t, std::span<const int> elements, kv::Matrix3* objectTM,
              float* visibility) override;
  int FrameRate() const override { return frameRate_; }

 private:
  std::vector<kv::host::Node*> nodes_;
  int frameRate_;
};

// The span of time [first, last] (ticks, both included) in which an element exists; its
// samples outside it are written invisible.
struct ElementLifetime {
  kv::TimeValue first = kv::kTimeNegInfinity;
  kv::TimeValue last = kv::kTimePosInfinity;
};

// Leaves the elements it adds uninitialised: the writer's buffers are always filled before
// they are written, so zero-filling megabytes first would be wasted work.
template <class T>
struct NoInitAllocator : std::allocator<T> {
  template <class U>
  struct rebind {
    using other = NoInitAllocator<U>;
  };
  NoInitAllocator() = default;
  template <class U>
  NoInitAllocator(const NoInitAllocator<U>&) noexcept {}
  template <class U>
  void construct(U* p) noexcept {
    ::new (static_cast<void*>(p)) U;
  }
  template <class U, class... A>
  void construct(U* p, A&&... a) {
    ::new (static_cast<void*>(p)) U(std::forward<A>(a)...);
  }
};
using ByteBuffer = std::vector<uint8_t, NoInitAllocator<uint8_t>>;

class kvCacheWriter : public kvCacheBase {
 public:
  // Every sampled object transform is multiplied by `reference` before it is stored.
  // `host` combines and fits materials (null: materials are ignored).
  kvCacheWriter(std::string fileName, const kv::Matrix3& reference, kv::TimeValue start,
                kv::TimeValue end, kv::TimeValue step, int version, ElementSource& source,
                kv::host::Interface* host = nullptr);
  ~kvCacheWriter() override;

  // Captures source element `sourceIndex`'s mesh at t (isolated vertices and map vertices
  // removed) and appends an element. False, and nothing appended, when it has no mesh.
  bool AddElement(int sourceIndex, kv::TimeValue t, bool renderMesh = true);
  int NumElements() const { return static_cast<int>(elements_.size()); }

  // Writes the whole file. `lifetimes` holds one entry per added element (missing entries:
  // alive throughout). False with no element (no code, no file) or on failure (code set;
  // a partial file stays behind).
  bool Write(std::span<const ElementLifetime> lifetimes = {});

  // After Write: the material built for the whole file (owned by the host), or null.
  kv::host::Mtl* CombinedMaterial() const { return combined_; }
  uint16_t MatIdOffset(int i) const { return elements_[size_t(i)].matIdOffset; }
  // Saves the combined material as the library beside the cache ("shot.kvc" -> "shot.mat").
  bool SaveMaterialLibrary() const;

 private:
  struct Entry {
    int source = 0;
    kv::Mesh mesh;
    uint16_t matIdOffset = 0;
    // Taken while the captured mesh is still in cache, so that writing the records later
    // never walks the meshes: the bounds (min xyz, max xyz) and the supported channels.
    float bounds[6] = {};
    uint64_t channelBits[2] = {0, 0};
  };
  // One element's map block in one channel, gathered while the records are written so that
  // the map pass reads its sources without walking each mesh's channel list again.
  struct MapRef {
    const kv::Point3* verts = nullptr;
    const kv::TVFace* faces = nullptr;
    uint32_t numVerts = 0, numFaces = 0;
  };
  bool BuildCombinedMaterial();
  bool Flush(ByteBuffer& buf, size_t& used);
  bool WriteElements(int version, ByteBuffer& buf, uint64_t& written, uint64_t predicted);
  bool WriteSamples(int32_t numSamples, std::span<const ElementLifetime> lifetimes, ByteBuffer& buf,
                    uint8_t& hasVisibility);

  kv::Matrix3 reference_;
  ElementSource& source_;
  kv::host::Interface* host_;
  std::vector<Entry> elements_;
  std::vector<int> channels_;    // union of every element's map channels, ascending
  std::vector<MapRef> mapRefs_;  // channel by channel, element by element
  kv::host::Mtl* combined_ = nullptr;
  uint32_t progressShift_ = 0;  // scales 64-bit byte counts into the callback's 32 bits
};

}  // namespace KelvaneTools

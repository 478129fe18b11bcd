// The reader's per-frame work: mapping element times to samples, loading the sample blocks
// they need, and assembling the output mesh.
#include <algorithm>
#include <atomic>
#include <bit>
#include <cstddef>
#include <cstring>
#include <type_traits>

#include "cache/reader.h"
#include "geom/affine.h"
#include "geom/transform_points.h"
#include "host/interface.h"

namespace KelvaneTools {

namespace {

// What a frame puts on an element's faces over the stored flags, as one word: a material id
// (high half) when kLookMat is set, and hiding. 0 leaves the faces as stored.
constexpr uint32_t kLookMat = 1, kLookHide = 2;
uint32_t FaceLook(int32_t mat, bool hide) {
  const uint32_t m = mat >= 0 ? kLookMat | uint32_t{kv::MtlID(mat)} << 16 : 0;
  return m | (hide ? kLookHide : 0);
}

// An element's sampling results: the fields of its record from sampleA to the end, moved as
// one block.
struct Mapping {
  char bytes[sizeof(ElementFrameState) - offsetof(ElementFrameState, sampleA)];
};
static_assert(offsetof(ElementFrameState, afterRange) + 1 == sizeof(ElementFrameState) &&
                  offsetof(ElementFrameState, sampleA) + sizeof(Mapping) ==
                      sizeof(ElementFrameState),
              "the sampling results close the record");
inline Mapping GetMapping(const ElementFrameState& r) {
  Mapping m;
  std::memcpy(&m, reinterpret_cast<const char*>(&r) + offsetof(ElementFrameState, sampleA),
              sizeof m);
  return m;
}
inline void SetMapping(ElementFrameState& r, const Mapping& m) {
  std::memcpy(reinterpret_cast<char*>(&r) + offsetof(ElementFrameState, sampleA), &m, sizeof m);
}

// The matrix of the elements that have no vertices this frame, and of those whose sample is
// missing.
constexpr kv::Matrix3 kIdentity;

// Fills scratch.runs for the topology in `scratch` and the output mesh `out` built from `src`.
void RebuildRuns(const kv::Mesh& src, std::span<const CacheElement> elements, bool box,
                 kv::Mesh& out, FrameScratch& scratch) {
  const size_t n = elements.size();
  scratch.runs.resize(n);
  for (size_t e = 0; e < n; ++e) {
    if (scratch.removed[int(e)]) {
      scratch.runs[e] = {&kIdentity, nullptr, nullptr, 0};
      continue;
    }
    const size_t first = box ? e * 8 : size_t(elements[e].vertOffset);
    scratch.runs[e] = {&kIdentity, src.verts.data() + first, out.verts.data() + scratch.outVert[e],
                       box ? 8 : size_t(elements[e].numVerts)};
  }
  scratch.runsFrom = src.verts.data();
  scratch.runsTo = out.verts.data();
}

}  // namespace

template <class F>
void kvCacheReader::ForRanges(size_t n, size_t grain, F&& fn) const {
  if (host_)
    host_->ParallelFor(n, grain, fn);
  else if (n > 0)
    fn(size_t{0}, n);
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
    block->allVisible &= p[48] != 0;
  }
  block->lastUse = useClock_;
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
  scratch.wanted.assign(size_t(std::max(n, 0)), 0);
  const size_t first = element < 0 ? 0 : size_t(element);
  const size_t count = element < 0 ? elements_.size() : (element < NumElements() ? 1 : 0);
  uint8_t* wanted = scratch.wanted.data();
  std::atomic<bool> anyGone{false};
  ForRanges(count, kMapGrain, [&](size_t begin, size_t end) {
    // Elements mostly share a few cache times (one per group rule, say): the mappings of the
    // last few distinct times are kept, and an element with one of them takes it as it is
    // (the mapping depends on the time alone).
    constexpr int kRecent = 4;
    const ElementFrameState* recent[kRecent] = {};
    uint32_t recentTime[kRecent] = {};
    int next = 0;
    int64_t lastA = -1;
    int32_t lastB = -1;
    // Most often an element has the time of the one before it: that test comes first, and
    // its mapping is kept at hand rather than read back from the record just written.
    ElementFrameState* const st = states.data();
    uint32_t lastTime = 0;
    bool haveLast = false;
    Mapping last{};
    bool removed = false, hidden = false;
    const size_t stop = first + end;
    for (size_t e = first + begin; e < stop; ++e) {
      ElementFrameState& r = st[e];
      const uint32_t time = std::bit_cast<uint32_t>(r.time);
      removed |= r.removed;
      if (haveLast && time == lastTime) {
        SetMapping(r, last);
        continue;  // its samples are already wanted, and it is shown as that one is
      }
      const ElementFrameState* prev = nullptr;
      for (int k = 0; k < kRecent; ++k)
        if (recent[k] && recentTime[k] == time) {
          prev = recent[k];
          break;
        }
      haveLast = true;
      lastTime = time;
      if (prev) {
        last = GetMapping(*prev);
        SetMapping(r, last);
        continue;
      }
      MapTimeToSamples(s, r);
      hidden |= !r.shown;
      last = GetMapping(r);
      recent[next] = &r;
      recentTime[next] = time;
      next = (next + 1) % kRecent;
      if (n == 0) continue;
      // Ranges on other threads mark the same samples: the marks are atomic, and made only
      // when the sample differs from the last one marked here.
      const uint8_t flag = r.interpolate ? FrameScratch::kWantSample | FrameScratch::kWantParts
                                         : FrameScratch::kWantSample;
      const int64_t markA = r.interpolate ? r.sampleA + (int64_t{1} << 32) : r.sampleA;
      if (markA != lastA) {
        lastA = markA;
        std::atomic_ref<uint8_t>(wanted[r.sampleA]).fetch_or(flag, std::memory_order_relaxed);
      }
      if (r.interpolate && r.sampleB != lastB) {
        lastB = r.sampleB;
        std::atomic_ref<uint8_t>(wanted[r.sampleB]).fetch_or(flag, std::memory_order_relaxed);
      }
    }
    if (removed || hidden) anyGone.store(true, std::memory_order_relaxed);
  });
  scratch.anyGone = anyGone.load();
  // "Pre-Load" holds every block. The others keep what they played while it fits a budget,
  // so that scrubbing back over it reads nothing, but a cache of a hundred thousand elements
  // must not end up holding every sample it ever showed.
  if (s.loadType != LoadType::PreLoad) EvictBlocks(wanted);
  bool ok = true;
  for (int32_t sample = 0; sample < n && ok; ++sample)
    if (wanted[sample] && !LoadSample(sample, true)) ok = false;
  // "Per-Sample" closes after each batch; any mode closes once nothing is left to read.
  if (ok && (!keepOpen_ || AllSamplesLoaded())) Close();
  return ok;
}

void kvCacheReader::EvictBlocks(const uint8_t* wanted) {
  ++useClock_;
  const int32_t n = header_.numSamples;
  int32_t toLoad = 0, wantedCount = 0;
  for (int32_t s = 0; s < n; ++s) {
    if (!wanted[s]) continue;
    ++wantedCount;
    if (blocks_[size_t(s)])
      blocks_[size_t(s)]->lastUse = useClock_;
    else
      ++toLoad;
  }
  const uint64_t blockMemory =
      uint64_t(header_.numNodes) * (sizeof(kv::Matrix3) + 1 + sizeof(kv::AffineParts));
  const int64_t keep = std::max<int64_t>(
      {2, wantedCount, int64_t(streamBudget_ / std::max<uint64_t>(blockMemory, 1))});
  while (loadedCount_ + toLoad > keep) {
    int32_t oldest = -1;
    for (int32_t s = 0; s < n; ++s) {
      const SampleBlock* b = blocks_[size_t(s)].get();
      if (b && !wanted[s] && (oldest < 0 || b->lastUse < blocks_[size_t(oldest)]->lastUse))
        oldest = s;
    }
    if (oldest < 0) break;
    blocks_[size_t(oldest)].reset();
    --loadedCount_;
  }
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
    ForRanges(b->tm.size(), kDecompGrain, [b](size_t begin, size_t end) {
      for (size_t i = begin; i < end; ++i) b->parts[i] = kv::DecompAffine(b->tm[i]);
    });
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
  const kv::Mesh& src = s.boxMode ? CombinedBoxMesh() : combined_;
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
  scratch.faceLook.assign(n, 0);
  scratch.looked.SetSize(int(n), false);
}

bool kvCacheReader::ReadFrame(kv::Mesh& out, std::span<ElementFrameState> states,
                              const FrameSettings& s, FrameScratch& scratch, bool newlyOpened) {
  if (!LoadSamplesForElements(states, s, scratch)) return false;
  const int n = NumElements();
  // Blocks are decomposed before the element loop, which then only reads them.
  for (size_t sample = 0; sample < scratch.wanted.size(); ++sample)
    if (scratch.wanted[sample] & FrameScratch::kWantParts) Parts(int32_t(sample));

  if (faceStart_.size() != size_t(n) + 1) {
    faceStart_.resize(size_t(n) + 1);
    for (int e = 0; e < n; ++e) faceStart_[size_t(e)] = elements_[size_t(e)].faceOffset;
    faceStart_[size_t(n)] = int32_t(totalFaces_);
  }
  const int32_t* fs = faceStart_.data();

  // The element loops run over words of 64 elements, so that each range owns the words of
  // the bit sets it writes; a range holds enough vertices to be worth a thread.
  const size_t words = (size_t(n) + 63) / 64;
  const uint64_t vertsPerWord =
      s.boxMode ? 8 * 64 : uint64_t(totalVerts_) * 64 / uint64_t(std::max(n, 1));
  const size_t grain =
      size_t(std::max<uint64_t>(1, kFrameGrainVerts / std::max<uint64_t>(vertsPerWord, 1)));

  // Which elements leave the mesh. While the host plays the animation they are hidden in
  // place instead, so that the topology survives from frame to frame.
  if (candidate_.GetSize() != n) candidate_.SetSize(n, false);
  std::atomic<int64_t> goneFaces{0};
  // Nothing leaves when no element is removed or hidden and every block played shows all.
  bool anyInvisible = false;
  for (size_t sample = 0; sample < scratch.wanted.size() && !anyInvisible; ++sample)
    if (scratch.wanted[sample]) {
      const SampleBlock* block = Block(int32_t(sample));
      anyInvisible = !block || !block->allVisible;
    }
  const bool mayLeave = scratch.anyGone || (s.deleteInvisible && anyInvisible);
  if (s.playbackIdle && mayLeave) {
    ForRanges(words, grain, [&](size_t w0, size_t w1) {
      int32_t lastA = -1;
      const uint8_t* visible = nullptr;
      int64_t gone = 0;
      for (size_t w = w0; w < w1; ++w) {
        uint64_t bits = 0;
        const int end = std::min(n, int(w * 64 + 64));
        for (int e = int(w * 64); e < end; ++e) {
          const ElementFrameState& r = states[size_t(e)];
          if (r.sampleA != lastA) {
            lastA = r.sampleA;
            const SampleBlock* block = Block(r.sampleA);
            visible = block ? block->visible.data() : nullptr;
          }
          const bool invisible = visible ? !visible[e] : true;
          const bool leaves = r.removed | !r.shown | (s.deleteInvisible & invisible);
          bits |= uint64_t(leaves) << (e & 63);
          if (leaves) gone += s.boxMode ? 12 : fs[e + 1] - fs[e];
        }
        candidate_.SetWord(w, bits);
      }
      goneFaces.fetch_add(gone, std::memory_order_relaxed);
    });
  } else {
    for (size_t w = 0; w < words; ++w) candidate_.SetWord(w, 0);
  }
  const int64_t keptFaces = (s.boxMode ? int64_t(n) * 12 : totalFaces_) - goneFaces.load();
  if (keptFaces == 0) {
    out.FreeAll();
    out.InvalidateTopologyCache();
    scratch.Reset();
    return true;
  }

  const kv::Mesh& src = s.boxMode ? CombinedBoxMesh() : combined_;
  const bool keep = !newlyOpened && scratch.readerGeneration == generation_ &&
                    scratch.boxMode == s.boxMode && scratch.removed.GetSize() == n &&
                    scratch.removed == candidate_ && out.numFaces() == keptFaces &&
                    scratch.outFace.size() == size_t(n);
  if (!keep) {
    scratch.removed = candidate_;
    RebuildTopology(out, s, scratch);
  }
  if (!keep || scratch.runs.size() != size_t(n) || scratch.runsFrom != src.verts.data() ||
      scratch.runsTo != out.verts.data())
    RebuildRuns(src, elements_, s.boxMode, out, scratch);

  const bool normals = out.hasSpecNormals();
  // What an element's visibility and state can do to its faces; most frames do nothing.
  const bool relabelKept = s.applyHiddenMatId && s.hiddenMatId >= 0;
  const bool invisibleTouches = !s.deleteInvisible && (s.hideInvisible || relabelKept);
  const bool scaled = s.unitScale != 1.0f;
  const bool idle = s.playbackIdle, deleteInvisible = s.deleteInvisible;
  // Leaving elements are hidden while the host plays, and invisible ones may be marked.
  const bool visibilityMatters = (!idle && mayLeave) || (invisibleTouches && anyInvisible);
  kv::PointRun* const runs = scratch.runs.data();
  const ElementFrameState* const st = states.data();
  const uint32_t* const carried = scratch.faceLook.data();  // what each element's faces carry
  // The body is compiled once per mode so that the box test leaves the per-element work.
  const auto assemble = [&](size_t w0, size_t w1, auto box) {
    // Elements mostly share their samples: the last blocks looked up are kept at hand.
    int32_t lastA = -1, lastPartsA = -1, lastB = -1;
    const SampleBlock* blockA = nullptr;
    const kv::Matrix3* tmA = nullptr;
    const uint8_t* visibleA = nullptr;
    const kv::AffineParts *partsA = nullptr, *partsB = nullptr;
    kv::SlerpWeights weights(0);  // for the fraction of the last element blended
    // A word's elements get their matrices first and are carried in one call, which keeps
    // the vector set-up and the choice of path out of the per-element work.
    kv::Matrix3 made[64];  // for the elements that do not play a stored matrix as it is
    int ids[64];
    // Blends wait for a batch (of one fraction), which the vector unit does eight at a time.
    const kv::AffineParts* blendA[64];
    const kv::AffineParts* blendB[64];
    kv::Matrix3* blendOut[64];
    size_t blends = 0;
    const auto flushBlends = [&] {
      kv::BlendAffinePartsMany(blendA, blendB, blends, weights, blendOut);
      blends = 0;
    };
    for (size_t w = w0; w < w1; ++w) {
      size_t count = 0;
      const int begin = int(w * 64);
      const int width = std::min(n - begin, 64);
      // Only the elements that stay are visited, lowest first, as the bits of the word; the
      // others have no vertices to carry.
      uint64_t live = ~scratch.removed.Word(w);
      if (width < 64) live &= (uint64_t{1} << width) - 1;
      uint64_t looked = scratch.looked.Word(w);
      // With visibility out of play an element's faces carry its material tag alone, and an
      // element whose faces carry it already (most often none) and that plays the samples,
      // fraction and blocks of the one before takes the short way (most of them).
      const bool plainWord = !visibilityMatters;
      const auto steady = [&](const ElementFrameState& r, int e) {
        return r.matIdOverride < 0 ? !((looked >> (e & 63)) & 1)
                                   : carried[e] == FaceLook(r.matIdOverride, false);
      };
      if (plainWord && tmA && live == (width < 64 ? (uint64_t{1} << width) - 1 : ~uint64_t{0})) {
        // All of the word stays: walk it in order until an element needs more.
        const ElementFrameState* r = st + begin;
        kv::PointRun* run = runs + begin;
        int j = 0;
        if (!r->interpolate) {
          const kv::Matrix3* m = tmA + begin;
          for (; j < width; ++j, ++r, ++run, ++m) {
            if (r->sampleA != lastA || r->interpolate || !steady(*r, begin + j)) break;
            run->m = m;
            ids[count++] = begin + j;
          }
        } else if (r->sampleA == lastPartsA && partsA && partsB) {
          const kv::AffineParts* pa = partsA + begin;
          const kv::AffineParts* pb = partsB + begin;
          const uint32_t fraction = std::bit_cast<uint32_t>(weights.f);
          for (; j < width; ++j, ++r, ++run, ++pa, ++pb) {
            if (r->sampleA != lastPartsA || r->sampleB != lastB || !r->interpolate ||
                std::bit_cast<uint32_t>(r->fraction) != fraction || !steady(*r, begin + j))
              break;
            blendA[blends] = pa;
            blendB[blends] = pb;
            blendOut[blends++] = &made[count];
            run->m = &made[count];
            ids[count++] = begin + j;
          }
        }
        if (j == 64)
          live = 0;
        else
          live &= ~uint64_t{0} << j;
      }
      for (; live != 0; live &= live - 1) {
        const int e = begin + std::countr_zero(live);
        const ElementFrameState& r = st[e];
        if (plainWord && r.sampleA == lastA && tmA && steady(r, e)) {
          if (!r.interpolate) {
            runs[e].m = &tmA[e];
            ids[count++] = e;
            continue;
          }
          if (r.sampleA == lastPartsA && r.sampleB == lastB && partsA && partsB &&
              std::bit_cast<uint32_t>(r.fraction) == std::bit_cast<uint32_t>(weights.f)) {
            blendA[blends] = &partsA[e];
            blendB[blends] = &partsB[e];
            blendOut[blends++] = &made[count];
            runs[e].m = &made[count];
            ids[count++] = e;
            continue;
          }
        }
        if (r.sampleA != lastA) {
          lastA = r.sampleA;
          blockA = Block(r.sampleA);
          tmA = blockA ? blockA->tm.data() : nullptr;
          visibleA = blockA ? blockA->visible.data() : nullptr;
        }
        ids[count] = e;
        const kv::Matrix3* m = tmA ? &tmA[e] : &kIdentity;
        if (r.interpolate) {
          if (r.sampleA != lastPartsA) lastPartsA = r.sampleA, partsA = Parts(r.sampleA);
          if (r.sampleB != lastB) lastB = r.sampleB, partsB = Parts(r.sampleB);
          if (partsA && partsB) {
            if (std::bit_cast<uint32_t>(r.fraction) != std::bit_cast<uint32_t>(weights.f)) {
              flushBlends();
              weights = kv::SlerpWeights(r.fraction);
            }
            blendA[blends] = &partsA[e];
            blendB[blends] = &partsB[e];
            blendOut[blends++] = &made[count];
            m = &made[count];
          }
        }
        runs[e].m = m;
        ++count;

        // While idle, the elements that leave were skipped above; otherwise they are hidden.
        // Most frames touch no face, and most settings make visibility irrelevant here.
        const uint64_t bit = uint64_t{1} << (e & 63);
        if (r.matIdOverride < 0 && !visibilityMatters && !(looked & bit)) continue;
        const bool invisible = !visibleA || !visibleA[e];
        const bool gone = r.removed || !r.shown || (deleteInvisible && invisible);
        uint32_t look = 0;
        if ((gone && !idle) || (invisible && invisibleTouches) || r.matIdOverride >= 0) {
          const bool kept = !deleteInvisible && invisible;
          const bool hide = (gone && !idle) || (kept && s.hideInvisible);
          const int32_t mat = kept && relabelKept ? s.hiddenMatId : r.matIdOverride;
          look = FaceLook(mat, hide);
        }
        uint32_t& had = scratch.faceLook[size_t(e)];
        if (look == had) continue;
        looked = look ? looked | bit : looked & ~bit;
        // The faces go back to what is stored before this frame's look goes on.
        const int32_t sf = box ? e * 12 : fs[e];
        const int32_t nf = box ? 12 : fs[e + 1] - fs[e];
        const kv::Face* stored = src.faces.data() + sf;
        kv::Face* faces = out.faces.data() + scratch.outFace[size_t(e)];
        for (int32_t j = 0; j < nf; ++j) faces[j].flags = stored[j].flags;
        if (look & kLookMat)
          for (int32_t j = 0; j < nf; ++j) faces[j].setMatID(kv::MtlID(look >> 16));
        if (look & kLookHide)
          for (int32_t j = 0; j < nf; ++j) faces[j].Hide();
        had = look;
      }
      scratch.looked.SetWord(w, looked);
      flushBlends();
      if (scaled) {
        for (size_t k = 0; k < count; ++k) {
          kv::PointRun& run = runs[ids[k]];
          made[k] = *run.m * s.unitScale;
          run.m = &made[k];
        }
      }
      kv::TransformPointRuns(runs + begin, size_t(width));
      if (normals) {
        for (size_t k = 0; k < count; ++k) {
          const int e = ids[k];
          const int32_t sf = box ? e * 12 : fs[e];
          const int32_t nf = box ? 12 : fs[e + 1] - fs[e];
          const kv::Point3* ns = src.specNormals.data() + size_t(sf) * 3;
          kv::Point3* no = out.specNormals.data() + size_t(scratch.outFace[size_t(e)]) * 3;
          const kv::Matrix3& m = *runs[e].m;
          for (int32_t j = 0; j < nf * 3; ++j) no[j] = m.VectorTransform(ns[j]).Normalized();
        }
      }
    }
  };
  ForRanges(words, grain, [&](size_t w0, size_t w1) {
    if (s.boxMode)
      assemble(w0, w1, std::true_type{});
    else
      assemble(w0, w1, std::false_type{});
  });
  if (keep)
    out.InvalidateGeomCache();
  else
    out.InvalidateTopologyCache();
  return true;
}

}  // namespace KelvaneTools

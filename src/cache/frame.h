// Plain data exchanged between the cache object and the reader for one frame: per-element
// playback records, the evaluation settings, and the mapping of a cache time to samples.
#pragma once

#include <cstdint>
#include <vector>

#include "geom/bitarray.h"
#include "geom/transform_points.h"

namespace KelvaneTools {

// Out-of-range rules, the values of playInORT / playOutORT.
enum OrtType : int { kOrtHide = 0, kOrtHold = 1, kOrtLoop = 2, kOrtPingPong = 3 };

enum class LoadType : int { Stream = 0, PerSample = 1, PreLoad = 2 };

// One element's state for a frame. The caller fills the inputs; MapTimeToSamples fills the
// sampling results.
struct ElementFrameState {
  // Inputs.
  float time = 0;          // cache time in ticks, relative to the cache start
  bool removed = false;    // removed by a group rule or a distance test
  int matIdOverride = -1;  // zero-based material id for every face of the element; -1 none

  // Sampling results.
  int32_t sampleA = 0;
  float fraction = 0;   // weight of sampleB, 0 <= fraction < 1
  int32_t sampleB = 0;  // meaningful only when interpolate is set
  bool interpolate = false;
  bool shown = true;  // cleared when a "Hide" rule hides the element
  bool beforeRange = false;
  bool afterRange = false;
};

struct FrameSettings {
  int inOrt = kOrtHold;   // rule before the first sample (already swapped for reverse)
  int outOrt = kOrtHold;  // rule after the last sample
  bool reverse = false;
  bool interpolate = true;
  bool boxMode = false;           // every element as its bounding box
  bool deleteInvisible = true;    // remove elements whose stored visibility is 0
  bool hideInvisible = false;     // otherwise hide their faces in place
  int hiddenMatId = -1;           // material id for kept invisible elements...
  bool applyHiddenMatId = false;  // ...applied when this is set
  // False while the host plays the animation interactively: elements that would be removed
  // are hidden in place instead, so the topology (and the copy it costs) is kept.
  bool playbackIdle = true;
  float unitScale = 1.0f;
  LoadType loadType = LoadType::Stream;
};

// Maps r.time to samples of a cache with `numSamples` samples `step` ticks apart under the
// settings' rules (in/out type, reverse, interpolation) and fills the results of `r`.
// Returns r.interpolate. Sample indices are always within [0, numSamples - 1]; with one
// sample, "Loop" and "Ping-Pong" hold it; with none, the element is not shown.
bool MapTimeToSamples(int32_t step, int32_t numSamples, const FrameSettings& s,
                      ElementFrameState& r);

// Per-output-mesh memory of the frame read: what the mesh in the caller's hands was built
// from, so that the next frame can keep its topology. Owned by the caller next to its mesh;
// reused across frames so that a warm frame allocates nothing.
struct FrameScratch {
  uint64_t readerGeneration = 0;  // which open of which reader built the topology; 0 none
  bool boxMode = false;
  kv::BitArray removed;  // elements left out of the mesh
  // Per element, what its faces carry over the stored ones (FaceLook): 0 for nothing. A face
  // is written only when this changes, so a steady tag costs nothing per frame.
  std::vector<uint32_t> faceLook;
  kv::BitArray looked;           // the elements whose faceLook is not 0
  std::vector<int32_t> outVert;  // first vertex of each element in the output mesh
  std::vector<int32_t> outFace;  // first face of each element in the output mesh
  // Per element, where its vertices come from and go to (no vertices when it is left out);
  // only the matrix changes from frame to frame. Valid for the two vertex arrays named.
  std::vector<kv::PointRun> runs;
  const kv::Point3* runsFrom = nullptr;
  const kv::Point3* runsTo = nullptr;
  // Per sample, what this frame wants of it: kWantSample, and kWantParts when an element
  // blends it. Filled by the sampling pass, read by the frame assembly.
  static constexpr uint8_t kWantSample = 1, kWantParts = 2;
  std::vector<uint8_t> wanted;
  // Whether the sampling pass saw an element removed or not shown: without one, and with
  // every block visible, no element leaves the frame.
  bool anyGone = true;
  void Reset() { readerGeneration = 0; }
};

}  // namespace KelvaneTools

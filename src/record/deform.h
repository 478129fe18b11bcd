// Deforming meshes as rigid elements. A mesh that moves in pieces (a fractured object baked to
// points, a skinned debris rig, a mesh sequence) is split into pieces, and every piece gets a
// rest mesh and, per sample, the rigid transform that best carries that rest mesh onto where
// its vertices are. A cache of rigid elements then plays the mesh back at a fraction of its
// size.
//
// Pieces are the parts connected by shared vertices, joined further where their vertices
// coincide within the tolerance at the piece's first sample and the parts move as one
// throughout (a mesh split at its seams stays one piece; two bricks that merely touch at rest
// and then fly apart stay two).
//
// A piece that is not rigid at some sample (its vertices farther than the tolerance from the
// best fit) gets, for that sample, an extra element holding its exact shape, shown over that
// sample only: playback is then exact at every sample and follows the best fit in between.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "geom/matrix3.h"
#include "geom/mesh.h"
#include "host/scene.h"
#include "record/recorder.h"

namespace kv {

struct DeformOptions {
  // Pieces may appear, vanish and change between samples (a mesh that fractures). Off, the
  // mesh must keep its vertex and face counts over the whole range.
  bool topology = false;
  // Scene units: vertices this close join pieces, and a piece farther than this from its
  // rigid fit is reported and kept exact at its samples.
  float tolerance = 0.001f;
};

// One rigid element made from a deforming mesh.
struct DeformPiece {
  host::Node* node = nullptr;  // the mesh it comes from (its object transform still applies)
  std::string name;
  Mesh mesh;                   // rest shape, centred on its first sample's centroid
  int first = 0;               // the sample of tms[0]
  std::vector<Matrix3> tms;    // rest -> the node's object space, samples first, first + 1, ...
  std::vector<uint8_t> shown;  // per entry of tms: 1 where this element is the one shown

  int Last() const { return first + static_cast<int>(tms.size()) - 1; }
  // The transform at sample s, held at the ends.
  const Matrix3& At(int s) const;
  bool Shown(int s) const;
  int FirstShown() const;  // -1 when never shown
  int LastShown() const;
};

// What the analysis found in one mesh.
struct DeformReport {
  std::string name;
  int pieces = 0;         // rigid pieces
  int exactSamples = 0;   // extra elements holding a non-rigid piece's exact shape
  float maxError = 0.0f;  // the largest distance of any vertex from its piece's rigid fit
  int worstSample = -1;   // where it was found
  bool exceeds = false;   // maxError is above the tolerance
};

// Follows one mesh over the samples of a recording. Feed it the mesh at samples 0, 1, 2...
// in order, then take the pieces. Memory: the rest meshes and one transform per piece and
// sample, never more than one sample's mesh.
class DeformTracker {
 public:
  DeformTracker(std::string name, const DeformOptions& opt);
  ~DeformTracker();
  DeformTracker(const DeformTracker&) = delete;
  DeformTracker& operator=(const DeformTracker&) = delete;

  // The mesh at the next sample (an empty mesh: nothing exists then). False with `error`
  // set when the mesh changes its vertex or face count while topology is off.
  bool Add(const Mesh& mesh, std::string& error);
  int Samples() const;

  // Ends the tracking: appends the elements (in the order the pieces first appeared, the
  // exact-shape elements after them) and returns the report.
  DeformReport Finish(host::Node* node, std::vector<DeformPiece>& out);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

// Everything the recorder needs from the analysis of its nodes.
struct DeformScene {
  std::vector<DeformPiece> pieces;
  std::vector<DeformReport> reports;  // one per analysed node, in node order
  RecordRange range;
};

enum class DeformStatus { Ok, Cancelled, Failed };

// Samples every node's mesh over the range (one sample of every node at a time, so a mesh
// read from files is read once per sample) and tracks it. `progress` gets a percentage and
// answers false to cancel.
DeformStatus AnalyzeDeformations(std::span<host::Node* const> nodes, const RecordRange& range,
                                 const DeformOptions& opt, const std::function<bool(int)>& progress,
                                 DeformScene& out, std::string& error);

// The report lines of the analysis: one per node, and a warning for each node whose pieces
// do not move rigidly within the tolerance.
std::vector<std::string> DeformReportLines(const DeformScene& scene, float tolerance,
                                           std::vector<std::string>* warnings);

}  // namespace kv

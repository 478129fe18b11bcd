// Recording: samples the nodes of a cache object's node list over a frame range into a new
// .kvc file, then points every object that plays that file at the new content.
//
// Recording never destroys data: the file is written beside its target under a temporary name
// and put in the target's place (host::Interface::RenameOver) only when the whole write
// succeeded, so a failed or cancelled recording leaves the cache that was there before
// untouched. Readers of the target let go of their handles for the replace and take the new
// file afterwards. The material library beside the cache is replaced the same way, and only
// once the new cache is in place.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "geom/matrix3.h"
#include "geom/time.h"
#include "host/interface.h"
#include "host/scene.h"

namespace kv {

// The sampled range in ticks; `end` is the time of the last sample.
struct RecordRange {
  TimeValue start = 0;
  TimeValue end = 0;
  TimeValue step = 1;
  int NumSamples() const { return static_cast<int>((int64_t{end} - start) / step + 1); }
};

// A frame as ticks, clamped to the range of TimeValue.
TimeValue FrameTicks(int frame, int ticksPerFrame);

// recStart and recEnd in frames and recStep in frames to ticks. The step is truncated to whole
// ticks (at least one) and the end is snapped down to the last sample, so frames 0..10 by 3
// give samples at 0, 3, 6 and 9. An end before the start gives one sample at the start; a span
// too long for the file's 32-bit sample count is cut short.
RecordRange ComputeRecordRange(int recStart, int recEnd, float recStep, int ticksPerFrame);

// A frame of the recorded range as a lifetime bound in ticks, counted at 160 ticks per frame
// at 30 frames per second whatever the scene's own rate (frame x 160 / (rate / 30)).
TimeValue LifetimeTicks(int frame, int frameRate);

// The material library path beside a cache file: the last three characters replaced by "mat".
std::string MaterialLibraryPath(const std::string& cachePath);

// Element lifetime [first, last] in ticks: samples outside it are written invisible.
struct Lifetime {
  TimeValue first = kTimeNegInfinity;
  TimeValue last = kTimePosInfinity;
};

// What the recorder reads from and writes to the cache object it records for. The cache
// object implements it over its parameter block; tests implement it directly.
class RecordTarget {
 public:
  virtual ~RecordTarget() = default;

  // `nodes` (entries may be null), `fileName` as stored, and the recording parameters.
  virtual std::vector<host::Node*> Nodes() const = 0;
  virtual std::string FileName() const = 0;
  virtual int RecStart() const = 0;
  virtual int RecEnd() const = 0;
  virtual float RecStep() const = 0;
  virtual bool SaveMaterial() const = 0;
  virtual bool ClearNodeList() const = 0;
  virtual bool WriteDeform() const = 0;
  virtual bool WriteTopology() const = 0;

  // The node carrying the object, or null.
  virtual host::Node* OwnNode() const = 0;
  // The node list's acceptance rule.
  virtual bool AcceptsNode(host::Node* node) const = 0;

  // Called on success: playStart = explodeStart = recStart, explodeEnd = recEnd, fileName =
  // `path`; the object then notifies its dependents.
  virtual void OnRecorded(const std::string& path) = 0;
  // Empties `nodes`, putting an undo record when the host holds.
  virtual void EmptyNodeList() = 0;
  // The object's status field and its progress bar at `percent` (an empty text and a negative
  // percent clear them).
  virtual void SetStatus(const std::string& text, int percent = -1) { (void)text, (void)percent; }
};

// The recording parameters as plain values, for callers without a cache object (the
// command-line tool records straight to a file).
struct RecordSettings {
  std::vector<host::Node*> nodes;
  std::string fileName;
  int recStart = 0, recEnd = 0;
  float recStep = 1.0f;
  bool saveMaterial = true;
  bool clearNodeList = true;
  bool writeDeform = false;
  bool writeTopology = false;
  host::Node* ownNode = nullptr;
};

// A RecordTarget over RecordSettings. Accepts every node that evaluates to a mesh at the
// host's current time; OnRecorded stores the file name and marks the target recorded.
class SettingsRecordTarget : public RecordTarget {
 public:
  explicit SettingsRecordTarget(RecordSettings s) : s_(std::move(s)) {}

  std::vector<host::Node*> Nodes() const override { return s_.nodes; }
  std::string FileName() const override { return s_.fileName; }
  int RecStart() const override { return s_.recStart; }
  int RecEnd() const override { return s_.recEnd; }
  float RecStep() const override { return s_.recStep; }
  bool SaveMaterial() const override { return s_.saveMaterial; }
  bool ClearNodeList() const override { return s_.clearNodeList; }
  bool WriteDeform() const override { return s_.writeDeform; }
  bool WriteTopology() const override { return s_.writeTopology; }
  host::Node* OwnNode() const override { return s_.ownNode; }
  bool AcceptsNode(host::Node* node) const override;
  void OnRecorded(const std::string& path) override;
  void EmptyNodeList() override { s_.nodes.clear(); }
  void SetStatus(const std::string& text, int percent = -1) override {
    (void)percent;
    status_ = text;
  }

  const RecordSettings& Settings() const { return s_; }
  bool Recorded() const { return recorded_; }
  const std::string& Status() const { return status_; }

 private:
  RecordSettings s_;
  bool recorded_ = false;
  std::string status_;
};

// The refresh of step "every object that plays this file": the cache registry implements it.
class RecordRefresher {
 public:
  virtual ~RecordRefresher() = default;
  // The file at `path` has new content: every reader of it reopens and every object that plays
  // it invalidates its evaluation and notifies its dependents; `target` acquires it again.
  virtual void FileRewritten(const std::string& path, RecordTarget& target) = 0;
  // Before the file at `path` is replaced: every reader of it lets go of its file handle, as
  // a system that locks open files requires. True when a handle was let go.
  virtual bool ReleaseFile(const std::string& path) {
    (void)path;
    return false;
  }
  // The replace failed after ReleaseFile answered true: the readers take their handles back
  // and stay as they were.
  virtual void KeepFile(const std::string& path) { (void)path; }
};

enum class RecordStatus {
  Recorded,        // the cache was written and the object plays it
  NothingToCache,  // no node survived gathering, or no mesh could be captured
  Failed,          // the writer failed: `errorCode` and `message` say why
  Cancelled,       // the user cancelled (Escape); nothing changed
  NoFile,          // no output path and the save dialog was cancelled
};

struct RecordResult {
  RecordStatus status = RecordStatus::Failed;
  int errorCode = 0;    // the writer's code when Failed or Cancelled
  std::string message;  // what the user was (or, when quiet, would have been) shown
  std::string path;     // the output file
  int elements = 0;     // elements written
  int skipped = 0;      // nodes whose mesh could not be captured
  int samples = 0;
  // With Record Deformations: one line per analysed node (pieces, largest distance from a
  // rigid fit), and a warning for each node that does not move rigidly within the tolerance.
  // Warnings never fail the recording.
  std::vector<std::string> deformReport;
  std::vector<std::string> warnings;
  bool ok() const { return status == RecordStatus::Recorded; }
};

// Signature of the sibling rigid-body library's export: it expands `source` into the element
// nodes to record and the temporary nodes to delete afterwards, over [start, end] ticks.
using RigidExplodedFn = void (*)(host::Node* source, std::vector<host::Node*>* elements,
                                 std::vector<host::Node*>* temporaries, TimeValue start,
                                 TimeValue end);

inline constexpr const char* kRigidLibraryName = "KVRigid";
inline constexpr const char* kRigidExportName = "Get_KG_RIGID_Exploded";

struct RecordOptions {
  // No message boxes (script calls and the command-line tool); the result carries the text.
  bool quiet = false;
  // Overrides the object's fileName when not empty.
  std::string fileName;
  // Extra progress sink (status text, percent); answering false cancels like Escape.
  std::function<bool(const std::string& status, int percent)> progress;
  // Record Deformations: vertices this close (scene units) join pieces, and a piece farther
  // than this from its rigid fit is warned about and kept exact at its samples.
  float deformTolerance = 0.001f;
};

class Recorder {
 public:
  // `refresher` may be null (nothing else plays files: only the target is updated).
  Recorder(host::Interface& ip, RecordRefresher* refresher) : ip_(ip), refresher_(refresher) {}

  RecordResult Record(RecordTarget& target, const RecordOptions& opt = {});

 private:
  RigidExplodedFn RigidHook();

  host::Interface& ip_;
  RecordRefresher* refresher_;
  // The sibling library is looked up once; its handle is the host's to keep.
  bool rigidLookedUp_ = false;
  RigidExplodedFn rigid_ = nullptr;
};

}  // namespace kv

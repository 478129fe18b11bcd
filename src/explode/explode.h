// Explode to objects: turns the elements a cache object plays into separate scene nodes, one
// per element, with TCB position, rotation and scale keys that reproduce each element's
// motion over a frame range, and optionally thins those keys (key_reduce.h).
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "explode/key_reduce.h"
#include "geom/time.h"
#include "host/interface.h"

namespace kv {
class kvCache_obj;
}

namespace kv::explode {

// Values of `explodeTo`: what each created node carries.
enum ExplodeTarget : int {
  kToMesh = 0,    // a copy of the element's mesh
  kToBox = 1,     // the element's bounding-box mesh
  kToPoint = 2,   // a point helper
  kToCustom = 3,  // an instance of the object of the node in `explodeToNode`
};

// One run's inputs. The target kind and the picked node always come from the parameters.
struct ExplodeInputs {
  Interval interval{0, 0};  // ticks
  TimeValue step = 160;     // ticks between keys; below 1 counts as 1
  bool selectedOnly = false;
  bool reduce = false;
  TimeValue reduceStep = 160;  // ticks
  float reduceThreshold = kDefaultReduceThreshold;
  host::Node* cacheNode = nullptr;  // null: the first node that carries the object
  bool fromScript = false;          // a script run leaves the scene selection alone
};

// The inputs as the rollout gives them: the explode range and step in frames, the reduce step
// read as whole frames (1.5 gives 1), and with reduce off a reduce step of one frame and the
// default threshold.
ExplodeInputs InputsFromRollout(const kvCache_obj& obj, const host::Interface& ip);

// The inputs as a script gives them (times in ticks).
ExplodeInputs InputsFromScript(const Interval& interval, TimeValue stepSize, bool selectedOnly,
                               bool reduceKeys, TimeValue reduceStepSize, float reduceThresh,
                               host::Node* cacheNode);

// The key times: start + k * step while not after the end (the end only when it lies on that
// grid); always at least the start. A step below 1 counts as 1.
std::vector<TimeValue> ExplodeSampleTimes(const Interval& interval, TimeValue step);

enum class ExplodeStatus {
  Exploded,          // nodes were created (the result may still be empty of reduce)
  NoFile,            // the object has no file name
  ReaderError,       // the file does not open: `message` says why
  NothingToExplode,  // no element passed the choice
  Cancelled,         // Escape (or the progress sink) stopped it: nothing remains
};

struct ExplodeOptions {
  // Extra progress sink (status text, percent), asked next to the host's Escape key;
  // answering false cancels.
  std::function<bool(const std::string& status, int percent)> progress;
};

struct ExplodeResult {
  ExplodeStatus status = ExplodeStatus::NothingToExplode;
  std::string message;
  std::vector<host::Node*> nodes;  // the created nodes, in element order
  std::vector<int> elements;       // the element each node was made from
  int skipped = 0;                 // elements whose custom object does not convert to a mesh
  int samples = 0;                 // keys per controller before reduction
  bool reduced = false;            // reduction ran to its end
  ReduceResult reduction;
  bool ok() const { return status == ExplodeStatus::Exploded; }
};

// Runs explode on the object as one undo step, "Explode To Objects", followed when asked by
// key reduction as a second step, "Reduce Keys". Reads the object's file through a private
// reader; evaluates the object's playback with it (the object is invalidated afterwards).
ExplodeResult Explode(host::Interface& ip, kvCache_obj& obj, const ExplodeInputs& in,
                      const ExplodeOptions& opt = {});

}  // namespace kv::explode

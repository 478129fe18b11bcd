// The kvcache commands. Each takes its parsed arguments, writes results to `out` and
// messages and progress to `err`, and returns the process exit code.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "playback_options.h"

namespace kv::cli {

// Exit codes shared by every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitError = 1;        // the work failed; the message says why
inline constexpr int kExitUsage = 2;        // the command line was wrong
inline constexpr int kExitCancelled = 130;  // Ctrl-C, as shells report SIGINT

struct CommonArgs {
  bool quiet = false;  // no progress bar
};

struct RecordArgs {
  std::string scene;              // .gltf, .glb or a standalone scene file
  std::string output;             // .kvc
  std::optional<int> start, end;  // frames; default: the scene's animation range
  double step = 1.0;              // frames between samples
  std::string nodes = "*";        // glob over node names
  std::optional<int> fps;         // scene frame rate for glTF and sequences (default 30)
  bool deform = false;            // Record Deformations
  bool topology = false;          // Record Topology
  double tolerance = 0.001;       // scene units
};

struct InfoArgs {
  std::string file;
  bool elements = false;
};

struct PlayArgs : PlaybackArgs {
  std::string file;
  std::optional<double> frame;     // scene frame, rounded to the nearest tick
  std::optional<long long> ticks;  // scene time
  std::string output;              // .obj, .ply or .glb
};

struct ExplodeArgs : PlaybackArgs {
  std::string file;
  std::string output;           // .glb, .gltf or a scene file (.kvs)
  std::optional<int> from, to;  // explodeStart / explodeEnd, frames; default: the cache's span
  double step = 1.0;            // explodeStep, frames
  int target = 0;               // explodeTo: 0 mesh, 1 box, 2 point
  std::optional<std::string> selected;  // only elements whose name matches this glob
  bool reduce = false;
  int reduceStep = 1;  // whole frames
  float threshold = 0.02f;
};

struct DemoArgs {
  std::string dir = "demo-out";
  int columns = 40, rows = 50, frames = 60;
};

int RunRecord(const RecordArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunInfo(const InfoArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunPlay(const PlayArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunExplode(const ExplodeArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunDemo(const DemoArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);

}  // namespace kv::cli

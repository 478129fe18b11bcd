// The kvcache commands. Each takes its parsed arguments, writes results to `out` and
// messages and progress to `err`, and returns the process exit code.
#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <vector>

#include "playback_options.h"

namespace kv::cli {

// Exit codes shared by every command.
inline constexpr int kExitOk = 0;
inline constexpr int kExitError = 1;        // the work failed; the message says why
inline constexpr int kExitUsage = 2;        // the command line was wrong
inline constexpr int kExitCancelled = 130;  // Ctrl-C, as shells report SIGINT

struct CommonArgs {
  bool quiet = false;  // no progress bar
  int threads = 0;     // threads playback may use; 0 for every core
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
  std::string file;                // a cache file, or a scene file with `node`
  std::string node;                // the scene node whose cache object plays, with its own
                                   // parameters
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

// How a picture is taken: its size, the view, and what the object shows.
struct ViewArgs {
  int width = 800, height = 600;
  std::string view = "persp";  // persp, top, front, left
  bool wire = false;           // a wireframe viewport
  bool markers = false;        // element markers (vpShowMarkers on, vpDeleteObjects off)
  bool icon = false;           // the object's icon
  bool boxes = false;          // elements as boxes (vpBoxMode)
};
struct RenderArgs {
  std::string input;                // .kvc, or a scene file with a cache object
  std::optional<std::string> node;  // the cache node of a scene (default: the first)
  std::optional<double> frame;
  std::string frames;  // "A:B:STEP": a contact sheet
  std::string output;  // .png
  ViewArgs view;
  PlaybackArgs play;  // playback options, for a .kvc input
};
struct PickArgs {
  std::string scene;
  std::string node;
  double frame = 0;
  std::string at;      // "X,Y"
  std::string window;  // "X0,Y0,X1,Y1"
  bool crossing = false;
  bool save = false;
  ViewArgs view;
};
struct SceneNewArgs {
  std::string output;               // the scene file to write
  std::string cache;                // cache file the object plays (optional)
  std::string name = "KVCache001";  // the node carrying the object
};

struct CallArgs {
  std::string scene;
  std::string node;
  std::string function;           // a function or property of KV_Cache_Fns
  std::vector<std::string> args;  // literals, keywords as name:literal
  bool save = false;              // write the scene back when the call succeeded
};

struct ParamArgs {
  std::string scene, node;
  std::string param;            // a parameter's script name
  std::string value;            // set: the value as a literal
  std::optional<double> frame;  // get: read there; set: key there (animatable only)
  bool save = false;
};

struct LightArgs {
  std::string scene, name;
  std::string at;                 // X,Y,Z
  float far = 200.0f;             // far attenuation end
  std::vector<std::string> keys;  // FRAME:X,Y,Z:RADIUS
  bool spot = false;
};

struct GizmoArgs {
  std::string scene, node;
  std::string matrix;  // 12 numbers, row by row
  std::string move;    // X,Y,Z
  float scale = 1.0f;
  std::optional<double> frame;  // key there
};

struct ListArgs {
  std::string scene;
};

struct DemoArgs {
  std::string dir = "demo-out";
  int columns = 40, rows = 50, frames = 60;
};

struct PanelArgs {
  std::string file;                      // a .kvc to load, or a scene file; empty: no cache
  std::string node = "KV Cache";         // the cache object's node in a scene file
  std::vector<std::string> actions;      // "press C", "shift press C", "type C V", ...
  std::vector<std::string> fileAnswers;  // paths for the open and save dialogs, in order
  std::vector<std::string> picks;        // node names clicked in pick modes ("-": empty space)
  std::vector<std::string> byName;       // comma lists chosen in select-by-name dialogs
  std::vector<std::string> elements;     // filters for element list dialogs (all matches, OK)
  std::vector<std::string> groupNames;   // answers to the group name dialog
  bool all = false;                      // show closed rollouts too
  std::string save;                      // write the scene here afterwards
};

int RunRecord(const RecordArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunInfo(const InfoArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunPlay(const PlayArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunExplode(const ExplodeArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunRender(const RenderArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunPick(const PickArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunSceneNew(const SceneNewArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunCall(const CallArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
// `info` on a scene file: the cache information report for the caches its objects play.
int RunSceneInfo(const InfoArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunGet(const ParamArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunSet(const ParamArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunAddLight(const LightArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunGizmo(const GizmoArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunList(const ListArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunPanel(const PanelArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);
int RunDemo(const DemoArgs& a, const CommonArgs& c, std::ostream& out, std::ostream& err);

}  // namespace kv::cli

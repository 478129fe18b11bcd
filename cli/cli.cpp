#include "cli.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdio>
#include <map>
#include <ostream>

#include "commands.h"
#include "host/standalone/mesh_sequence.h"
#include "playback_options.h"
#include "scene_io.h"
#include "script/cache_fns.h"

namespace kv::cli {
namespace {

// NaN and infinity parse as numbers, and a NaN passes every range check: refuse them.
const CLI::Validator kFinite(
    [](std::string& text) -> std::string {
      double v = 0;
      if (CLI::detail::lexical_cast(text, v) && !std::isfinite(v))
        return "must be a finite number, not " + text;
      return {};
    },
    "FINITE");

// Puts kFinite on every floating-point option of every command, so none can be forgotten.
void RefuseNonFinite(CLI::App& app) {
  for (CLI::Option* o : app.get_options())
    if (o->get_type_name().rfind("FLOAT", 0) == 0) o->check(kFinite);
  for (CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; })) RefuseNonFinite(*sub);
}

// "WxH" into the view's size.
void AddViewOptions(CLI::App& cmd, ViewArgs& v) {
  cmd.add_option_function<std::string>(
         "--size",
         [&v](const std::string& text) {
           int w = 0, h = 0;
           char tail = 0;
           if (std::sscanf(text.c_str(), "%dx%d%c", &w, &h, &tail) != 2 || w < 16 || h < 16 ||
               w > 16384 || h > 16384)
             throw CLI::ValidationError("--size", "must be WxH, 16 to 16384 pixels each: " + text);
           v.width = w, v.height = h;
         },
         "Picture size WxH (default 800x600)")
      ->type_name("WxH");
  cmd.add_option("--view", v.view, "persp, top, front or left (default persp)")
      ->check(CLI::IsMember({"persp", "top", "front", "left"}));
  cmd.add_flag("--wire", v.wire, "A wireframe viewport");
  cmd.add_flag("--markers", v.markers, "Element markers (keeps invisible elements)");
  cmd.add_flag("--icon", v.icon, "The object's icon");
  cmd.add_flag("--boxes", v.boxes, "Elements as their bounding boxes");
}

}  // namespace

int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  script::InstallExplodeOps();
  CLI::App app{
      "kvcache: records the animation of many rigid objects into one .kvc cache file "
      "and plays it back.",
      "kvcache"};
  app.require_subcommand(1);
  // --quiet may follow the command too (kvcache demo --quiet).
  app.fallthrough();
  CommonArgs common;
  app.add_flag("-q,--quiet", common.quiet, "No progress bar");
  app.add_option("--threads", common.threads, "Threads playback may use (default 0: every core)")
      ->check(CLI::Range(0, 1024));

  RecordArgs rec;
  CLI::App* record = app.add_subcommand(
      "record",
      "Record every mesh node of a scene (.gltf, .glb, a scene file, or a mesh sequence such "
      "as wall.####.obj) into a cache");
  // A sequence pattern names no file of its own: only other scenes must exist as named.
  record->add_option("scene", rec.scene, "Scene or mesh sequence to record")
      ->required()
      ->check(CLI::Validator(
          [](const std::string& v) {
            return standalone::IsSequencePattern(v) ? std::string() : CLI::ExistingFile(v);
          },
          "FILE|PATTERN"));
  record->add_option("-o,--output", rec.output, "Cache file to write (.kvc)")->required();
  record->add_option("--start", rec.start, "First frame (default: the scene's range start)");
  record->add_option("--end", rec.end, "Last frame (default: the scene's range end)");
  record->add_option("--step", rec.step, "Frames between samples")
      ->check(CLI::Range(0.001, 999999.0));
  record->add_option("--nodes", rec.nodes, "Only nodes whose name matches this glob (* and ?)");
  record->add_option("--fps", rec.fps, "Frame rate of a glTF scene or a sequence (default 30)")
      ->check(CLI::Range(1, 4800));
  record->add_flag("--deform", rec.deform,
                   "Split deforming meshes into rigid pieces, one element each");
  record->add_flag("--topology", rec.topology,
                   "With --deform: pieces may appear, vanish or change between samples");
  record
      ->add_option("--tolerance", rec.tolerance,
                   "With --deform: distance that joins pieces and that a piece may stray "
                   "from its rigid fit before a warning (default 0.001)")
      ->check(CLI::Range(0.0, 1e9));

  InfoArgs inf;
  CLI::App* info = app.add_subcommand("info", "Print what a cache file holds");
  info->add_option("file", inf.file,
                   "Cache file (.kvc), or a scene file: the report on the caches its objects play")
      ->required();
  info->add_flag("--elements", inf.elements,
                 "One line per element: index, name, vertices, faces (tab-separated)");

  PlayArgs pl;
  CLI::App* play =
      app.add_subcommand("play", "Evaluate the cache object at one scene time and write its mesh");
  play->add_option("file", pl.file, "Cache file (.kvc), or a scene file with --node")->required();
  play->add_option("--node", pl.node,
                   "Play the cache object of this scene node with its own parameters (the "
                   "playback options apply to a cache file only)");
  auto* frameOpt = play->add_option("--frame", pl.frame, "Scene frame (decimal)");
  auto* timeOpt = play->add_option("--time", pl.ticks, "Scene time in ticks (4800 a second)");
  frameOpt->excludes(timeOpt);
  play->add_option("-o,--output", pl.output, "Mesh to write (.obj, .ply or .glb)")->required();
  AddPlaybackOptions(*play, pl);

  ExplodeArgs ex;
  CLI::App* explode = app.add_subcommand(
      "explode",
      "Turn the cache's elements into keyframed nodes and write them (.glb, .gltf, .kvs)");
  explode->add_option("file", ex.file, "Cache file (.kvc)")->required();
  explode->add_option("-o,--output", ex.output, "File to write (.glb, .gltf or a .kvs scene)")
      ->required();
  explode->add_option("--start", ex.from, "First key frame (default: where playback starts)");
  explode->add_option("--end", ex.to, "Last frame (default: where the cache ends)");
  explode->add_option("--step", ex.step, "Frames between keys")->check(CLI::Range(0.001, 999999.0));
  explode->add_option("--to", ex.target, "Node per element: mesh, box, point")
      ->transform(CLI::CheckedTransformer(
          std::map<std::string, int>{{"mesh", 0}, {"box", 1}, {"point", 2}}, CLI::ignore_case));
  explode->add_option("--selected", ex.selected,
                      "Only the elements whose name matches this glob (* and ?)");
  explode->add_flag("--reduce", ex.reduce, "Remove the keys the motion does not need");
  explode->add_option("--reduce-step", ex.reduceStep, "Whole frames between compared samples")
      ->check(CLI::Range(1, 999999));
  explode
      ->add_option("--threshold", ex.threshold,
                   "Largest change reduction allows (scene units; radians for rotations)")
      ->check(CLI::Range(0.0, 1e9));
  AddPlaybackOptions(*explode, ex, "--play-start");
  RenderArgs rn;
  CLI::App* render = app.add_subcommand(
      "render", "Draw the cache object as the viewport shows it into a PNG picture");
  render->add_option("input", rn.input, "Cache file (.kvc) or scene file with a cache object")
      ->required()
      ->check(CLI::ExistingFile);
  render->add_option("--node", rn.node, "The cache node of a scene file (default: the first)");
  auto* rFrame = render->add_option("--frame", rn.frame, "Scene frame (decimal)");
  auto* rFrames =
      render->add_option("--frames", rn.frames, "A:B:STEP: a contact sheet of these frames");
  rFrame->excludes(rFrames);
  render->add_option("-o,--output", rn.output, "Picture to write (.png)")->required();
  AddViewOptions(*render, rn.view);
  AddPlaybackOptions(*render, rn.play);

  PickArgs pk;
  CLI::App* pick = app.add_subcommand(
      "pick", "Select the elements of a cache node at a pixel or in a window of its picture");
  pick->add_option("scene", pk.scene, "Scene file")->required()->check(CLI::ExistingFile);
  pick->add_option("node", pk.node, "The cache node")->required();
  pick->add_option("--frame", pk.frame, "Scene frame (decimal)")->required();
  auto* at = pick->add_option("--at", pk.at, "X,Y: the element under this pixel");
  auto* win = pick->add_option("--window", pk.window, "X0,Y0,X1,Y1: the elements inside");
  at->excludes(win);
  pick->add_flag("--crossing", pk.crossing, "With --window: also elements the window touches");
  pick->add_flag("--save", pk.save, "Save the selection into the scene file");
  AddViewOptions(*pick, pk.view);

  CLI::App* scene = app.add_subcommand("scene", "Make scene files with cache objects");
  scene->require_subcommand(1);
  SceneNewArgs sn;
  CLI::App* sceneNew =
      scene->add_subcommand("new", "Write a scene with one node carrying a cache object");
  sceneNew->add_option("output", sn.output, "Scene file to write")->required();
  sceneNew->add_option("--cache", sn.cache, "Cache file the object plays (.kvc)")
      ->check(CLI::ExistingFile);
  sceneNew->add_option("--name", sn.name, "Name of the node (default KVCache001)");

  LightArgs la;
  CLI::App* addLight = scene->add_subcommand(
      "add-light", "Add an omni light (or a spot light) with far attenuation, keyed if asked");
  addLight->add_option("scene", la.scene, "Scene file")->required()->check(CLI::ExistingFile);
  addLight->add_option("name", la.name, "Name of the light's node")->required();
  addLight->add_option("--at", la.at, "Position X,Y,Z")->required();
  addLight->add_option("--far", la.far, "Far attenuation end")
      ->required()
      ->check(CLI::Range(0.0, 1e30));
  addLight->add_option("--key", la.keys, "A key FRAME:X,Y,Z:RADIUS (repeatable)");
  addLight->add_flag("--spot", la.spot, "A spot light instead of an omni");

  GizmoArgs gz;
  CLI::App* gizmo =
      scene->add_subcommand("gizmo", "Set, or key at --frame, a cache object's gizmo");
  gizmo->add_option("scene", gz.scene, "Scene file")->required()->check(CLI::ExistingFile);
  gizmo->add_option("node", gz.node, "Node carrying the cache object")->required();
  auto* matrixOpt = gizmo->add_option("--matrix", gz.matrix, "12 numbers, row by row");
  auto* moveOpt = gizmo->add_option("--move", gz.move, "Translation X,Y,Z");
  auto* scaleOpt =
      gizmo->add_option("--scale", gz.scale, "Uniform scale")->check(CLI::Range(1e-7, 1e30));
  matrixOpt->excludes(moveOpt)->excludes(scaleOpt);
  gizmo->add_option("--frame", gz.frame, "Make a key at this frame");

  ListArgs ls;
  CLI::App* list = scene->add_subcommand(
      "list", "List the nodes, and each cache object's parameters and groups");
  list->add_option("scene", ls.scene, "Scene file")->required()->check(CLI::ExistingFile);

  ParamArgs ga;
  CLI::App* get = app.add_subcommand("get", "Read a cache object's parameter by its script name");
  get->add_option("scene", ga.scene, "Scene file")->required()->check(CLI::ExistingFile);
  get->add_option("node", ga.node, "Node carrying the cache object")->required();
  get->add_option("param", ga.param, "Script name (playStart, triggerOmni, ...)")->required();
  get->add_option("--frame", ga.frame, "Read at this frame (default: the scene's time)");

  ParamArgs sa;
  CLI::App* set = app.add_subcommand("set", "Set a cache object's parameter by its script name");
  set->add_option("scene", sa.scene, "Scene file")->required()->check(CLI::ExistingFile);
  set->add_option("node", sa.node, "Node carrying the cache object")->required();
  set->add_option("param", sa.param, "Script name (playStart, triggerOmni, ...)")->required();
  set->add_option("value", sa.value, "Value as a literal: 10, 1.5, true, \"file\", $Node, #($A)")
      ->required();
  set->add_option("--frame", sa.frame, "Set a key at this frame (animatable parameters)");
  set->add_flag("--save", sa.save, "Write the scene back when the value was accepted");

  CallArgs ca;
  CLI::App* call = app.add_subcommand(
      "call", "Call a KV_Cache_Fns function, or read a property, of a scene node's cache object");
  call->add_option("scene", ca.scene, "Scene file")->required()->check(CLI::ExistingFile);
  call->add_option("node", ca.node, "Node carrying the cache object")->required();
  call->add_option("function", ca.function, "Function or property name")->required();
  call->add_option("args", ca.args,
                   "Arguments as literals (\"text\", 12, 1.5, true, #name, #(1, 2), #{1..5}, "
                   "(interval 0f 100f), 10f, $Node); keywords as name:value");
  call->add_flag("--save", ca.save, "Write the scene back when the call succeeded");

  DemoArgs dm;
  CLI::App* demo = app.add_subcommand(
      "demo", "Simulate a brick wall struck by a ball, record it, play it back into DIR");
  demo->add_option("dir", dm.dir, "Output folder (default demo-out)");
  demo->add_option("--columns", dm.columns, "Bricks per row")->check(CLI::Range(1, 1000));
  demo->add_option("--rows", dm.rows, "Rows of bricks")->check(CLI::Range(1, 1000));
  demo->add_option("--frames", dm.frames, "Frames to simulate")->check(CLI::Range(1, 10000));

  PanelArgs pa;
  CLI::App* panel = app.add_subcommand(
      "panel", "Drive the cache object's rollouts: press, type, choose; print what they show");
  panel->add_option("file", pa.file, "Cache file (.kvc) to load, or a scene file");
  panel->add_option("--node", pa.node, "The cache object's node in a scene file");
  panel->add_option("-d,--do", pa.actions,
                    "An action, in order: 'press C', 'shift press C', 'type C VALUE', "
                    "'choose C ITEM', 'select C ROWS' (C: a control id or caption)");
  panel->add_option("--file-answer", pa.fileAnswers, "Path chosen in the next file dialog");
  panel->add_option("--pick", pa.picks, "Node clicked in a pick mode ('-': empty space)");
  panel->add_option("--by-name", pa.byName, "Nodes chosen by name, comma-separated");
  panel->add_option("--elements", pa.elements, "Element filter chosen in the element dialog");
  panel->add_option("--group-name", pa.groupNames, "Answer to the group name dialog");
  panel->add_flag("--all", pa.all, "Show the closed rollouts too");
  panel->add_option("--save", pa.save, "Write the scene file here afterwards");

  RefuseNonFinite(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e, out, err);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e, out, err);
  } catch (const CLI::ParseError& e) {
    const std::string first = argc > 1 ? argv[1] : "";
    bool known = false;
    for (const CLI::App* sub : app.get_subcommands([](CLI::App*) { return true; }))
      known = known || sub->parsed();
    if (!first.empty() && first[0] != '-' && !known)
      err << "kvcache: unknown command '" << first
          << "' (use record, info, play, explode, render, pick, panel, scene, call, get, set or "
             "demo)\n";
    else
      err << "kvcache: " << e.what() << '\n';
    err << "Run with --help for more information.\n";
    return kExitUsage;
  }
  if (record->parsed() && rec.output.empty()) {
    err << "kvcache record: --output must name the cache file to write\n"
        << "Run with --help for more information.\n";
    return kExitUsage;
  }
  if (record->parsed() && rec.topology && !rec.deform) {
    err << "kvcache record: --topology needs --deform\n"
        << "Run with --help for more information.\n";
    return kExitUsage;
  }
  if (play->parsed() && !pl.frame && !pl.ticks) {
    err << "kvcache play: one of --frame or --time is required\n"
        << "Run with --help for more information.\n";
    return kExitUsage;
  }

  if (render->parsed() && !rn.frame && rn.frames.empty()) {
    err << "kvcache render: one of --frame or --frames is required\n"
        << "Run with --help for more information.\n";
    return kExitUsage;
  }
  if (pick->parsed() && pk.at.empty() && pk.window.empty()) {
    err << "kvcache pick: one of --at or --window is required\n"
        << "Run with --help for more information.\n";
    return kExitUsage;
  }

  try {
    if (render->parsed()) return RunRender(rn, common, out, err);
    if (pick->parsed()) return RunPick(pk, common, out, err);
    if (record->parsed()) return RunRecord(rec, common, out, err);
    if (info->parsed()) {
      return IsSceneFile(inf.file) ? RunSceneInfo(inf, common, out, err)
                                   : RunInfo(inf, common, out, err);
    }
    if (sceneNew->parsed()) return RunSceneNew(sn, common, out, err);
    if (call->parsed()) return RunCall(ca, common, out, err);
    if (addLight->parsed()) return RunAddLight(la, common, out, err);
    if (gizmo->parsed()) return RunGizmo(gz, common, out, err);
    if (list->parsed()) return RunList(ls, common, out, err);
    if (get->parsed()) return RunGet(ga, common, out, err);
    if (set->parsed()) return RunSet(sa, common, out, err);
    if (play->parsed()) return RunPlay(pl, common, out, err);
    if (explode->parsed()) return RunExplode(ex, common, out, err);
    if (demo->parsed()) return RunDemo(dm, common, out, err);
    if (panel->parsed()) return RunPanel(pa, common, out, err);
  } catch (const std::exception& e) {
    // Allocation failures and the like: report rather than abort.
    err << "kvcache: " << e.what() << '\n';
    return kExitError;
  }
  return kExitUsage;
}

}  // namespace kv::cli

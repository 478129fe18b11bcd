#include "cli.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <map>
#include <ostream>

#include "commands.h"
#include "host/standalone/mesh_sequence.h"
#include "playback_options.h"

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

}  // namespace

int Run(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  CLI::App app{
      "kvcache: records the animation of many rigid objects into one .kvc cache file "
      "and plays it back.",
      "kvcache"};
  app.require_subcommand(1);
  // --quiet may follow the command too (kvcache demo --quiet).
  app.fallthrough();
  CommonArgs common;
  app.add_flag("-q,--quiet", common.quiet, "No progress bar");

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
  info->add_option("file", inf.file, "Cache file (.kvc)")->required();
  info->add_flag("--elements", inf.elements,
                 "One line per element: index, name, vertices, faces (tab-separated)");

  PlayArgs pl;
  CLI::App* play =
      app.add_subcommand("play", "Evaluate the cache object at one scene time and write its mesh");
  play->add_option("file", pl.file, "Cache file (.kvc)")->required();
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

  DemoArgs dm;
  CLI::App* demo = app.add_subcommand(
      "demo", "Simulate a brick wall struck by a ball, record it, play it back into DIR");
  demo->add_option("dir", dm.dir, "Output folder (default demo-out)");
  demo->add_option("--columns", dm.columns, "Bricks per row")->check(CLI::Range(1, 1000));
  demo->add_option("--rows", dm.rows, "Rows of bricks")->check(CLI::Range(1, 1000));
  demo->add_option("--frames", dm.frames, "Frames to simulate")->check(CLI::Range(1, 10000));

  RefuseNonFinite(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::CallForHelp& e) {
    return app.exit(e, out, err);
  } catch (const CLI::CallForAllHelp& e) {
    return app.exit(e, out, err);
  } catch (const CLI::ParseError& e) {
    const std::string first = argc > 1 ? argv[1] : "";
    if (!first.empty() && first[0] != '-' && !record->parsed() && !info->parsed() &&
        !play->parsed() && !explode->parsed() && !demo->parsed())
      err << "kvcache: unknown command '" << first
          << "' (use record, info, play, explode or demo)\n";
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

  try {
    if (record->parsed()) return RunRecord(rec, common, out, err);
    if (info->parsed()) return RunInfo(inf, common, out, err);
    if (play->parsed()) return RunPlay(pl, common, out, err);
    if (explode->parsed()) return RunExplode(ex, common, out, err);
    if (demo->parsed()) return RunDemo(dm, common, out, err);
  } catch (const std::exception& e) {
    // Allocation failures and the like: report rather than abort.
    err << "kvcache: " << e.what() << '\n';
    return kExitError;
  }
  return kExitUsage;
}

}  // namespace kv::cli

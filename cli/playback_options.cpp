#include "playback_options.h"

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "object/param_block.h"
#include "object/params.h"
#include "object/units.h"

namespace kv::cli {
namespace {

// Names accepted by the choice options, mapped to the parameter values they stand for.
const std::map<std::string, int> kOrtNames{{"hide", 0}, {"hold", 1}, {"loop", 2}, {"pingpong", 3}};
const std::map<std::string, int> kLoadNames{{"stream", 0}, {"per-sample", 1}, {"pre-load", 2}};
const std::map<std::string, int> kStepNames{
    {"frame", 0}, {"half", 1}, {"quarter", 2}, {"eighth", 3}};
// The unit drop-down spells millimeters "Milimeters": both spellings are accepted, as are the
// -metres forms.
const std::map<std::string, int> kUnitNames{
    {"inches", 0},     {"feet", 1},        {"miles", 2},       {"millimeters", 3},
    {"milimeters", 3}, {"millimetres", 3}, {"centimeters", 4}, {"centimetres", 4},
    {"meters", 5},     {"metres", 5},      {"kilometers", 6},  {"kilometres", 6}};

}  // namespace

void AddPlaybackOptions(CLI::App& cmd, PlaybackArgs& a, const char* startOption) {
  cmd.add_option("--scene-fps", a.sceneFps, "Scene frame rate (default: the cache's)")
      ->check(CLI::Range(1, 4800));
  cmd.add_option(startOption, a.start, "Scene frame at which playback starts");
  cmd.add_option("--speed", a.speed, "Playback speed factor");
  cmd.add_option("--fps", a.fps, "Frame rate in which cache frames are counted")
      ->check(CLI::Range(1, 999999));
  cmd.add_option("--steps", a.steps, "Sub-frame quantisation: frame, half, quarter, eighth")
      ->transform(CLI::CheckedTransformer(kStepNames, CLI::ignore_case));
  cmd.add_flag("--reverse", a.reverse, "Play backwards");
  cmd.add_option("--graph-frame", a.graphFrame, "Show this cache frame whatever the time");
  cmd.add_option("--before", a.before, "Before the first frame: hide, hold, loop, pingpong")
      ->transform(CLI::CheckedTransformer(kOrtNames, CLI::ignore_case));
  cmd.add_option("--after", a.after, "After the last frame: hide, hold, loop, pingpong")
      ->transform(CLI::CheckedTransformer(kOrtNames, CLI::ignore_case));
  cmd.add_flag("--no-interpolate", a.noInterpolate, "Snap to samples");
  cmd.add_flag("--box", a.box, "Elements as bounding boxes");
  cmd.add_flag("--dont-delete", a.dontDelete, "Keep invisible elements");
  cmd.add_option("--scale", a.scale, "Uniform scale")->check(CLI::Range(1e-7, 999999.0));
  cmd.add_option("--scale-from", a.scaleFrom,
                 "Unit converted from; the scale becomes --scale x (to / from)")
      ->transform(CLI::CheckedTransformer(kUnitNames, CLI::ignore_case));
  cmd.add_option("--scale-to", a.scaleTo, "Unit converted to")
      ->transform(CLI::CheckedTransformer(kUnitNames, CLI::ignore_case));
  cmd.add_option("--load", a.load, "Loading: stream, per-sample, pre-load")
      ->transform(CLI::CheckedTransformer(kLoadNames, CLI::ignore_case));
}

void ApplyPlaybackOptions(const PlaybackArgs& a, ParamBlock& pb) {
  namespace P = param;
  pb.SetInt(P::kPlayStart, 0, a.start);
  pb.SetFloat(P::kPlaySpeed, 0, a.speed);
  if (a.fps) pb.SetInt(P::kPlayFPS, 0, *a.fps);
  pb.SetInt(P::kPlaySpeedSteps, 0, a.steps);
  pb.SetInt(P::kPlayReverse, 0, a.reverse ? 1 : 0);
  pb.SetInt(P::kPlayUseGraph, 0, a.graphFrame ? 1 : 0);
  if (a.graphFrame) pb.SetFloat(P::kPlayFrame, 0, static_cast<float>(*a.graphFrame));
  pb.SetInt(P::kPlayInORT, 0, a.before);
  pb.SetInt(P::kPlayOutORT, 0, a.after);
  pb.SetInt(P::kRendInterpolate, 0, a.noInterpolate ? 0 : 1);
  pb.SetInt(P::kRendBoxMode, 0, a.box ? 1 : 0);
  pb.SetInt(P::kRendDontDelete, 0, a.dontDelete ? 1 : 0);
  // As the unit drop-downs do: the conversion sets the scale, --scale multiplies it.
  pb.SetFloat(P::kScaleUnits, 0, a.scale * UnitScale(a.scaleFrom, a.scaleTo));
  pb.SetInt(P::kScaleUnitsFrom, 0, a.scaleFrom);
  pb.SetInt(P::kScaleUnitsTo, 0, a.scaleTo);
  pb.SetInt(P::kLoadTypeLocal, 0, a.load);
}

}  // namespace kv::cli

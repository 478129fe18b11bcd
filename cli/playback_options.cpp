#include "playback_options.h"

#include <CLI/CLI.hpp>
#include <map>
#include <string>

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

void AddPlaybackOptions(CLI::App& cmd, PlayArgs& a) {
  cmd.add_option("--scene-fps", a.sceneFps, "Scene frame rate (default: the cache's)")
      ->check(CLI::Range(1, 4800));
  cmd.add_option("--start", a.start, "Scene frame at which playback starts");
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

}  // namespace kv::cli

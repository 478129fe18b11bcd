// The playback and render options every command that evaluates a cache object takes (play,
// explode and the commands that show a cache), declared and applied in one place so that
// they read the same everywhere.
#pragma once

#include <optional>

namespace CLI {
class App;
}

namespace kv {
class ParamBlock;
}

namespace kv::cli {

struct PlaybackArgs {
  std::optional<int> sceneFps;       // default: the cache's own frame rate
  int start = 0;                     // playStart
  float speed = 1.0f;                // playSpeed
  std::optional<int> fps;            // playFPS (default: the scene rate)
  int steps = 0;                     // playSpeedSteps: 0 frame, 1 half, 2 quarter, 3 eighth
  bool reverse = false;              // playReverse
  std::optional<double> graphFrame;  // playUseGraph + playFrame
  int before = 1, after = 1;         // playInORT / playOutORT
  bool noInterpolate = false;
  bool box = false;
  bool dontDelete = false;
  float scale = 1.0f;
  int scaleFrom = 0, scaleTo = 0;  // unit indices
  int load = 0;                    // loadTypeLocal
};

// Declares --scene-fps, --start, --speed, --fps, --steps, --reverse, --graph-frame, --before,
// --after, --no-interpolate, --box, --dont-delete, --scale, --scale-from, --scale-to and
// --load on `cmd`, parsed into `a`. A command whose own --start means something else names
// the playback start differently (`startOption`).
void AddPlaybackOptions(CLI::App& cmd, PlaybackArgs& a, const char* startOption = "--start");

// Sets the cache object's playback and render parameters from `a` (not its file name).
void ApplyPlaybackOptions(const PlaybackArgs& a, ParamBlock& pb);

}  // namespace kv::cli

// The playback and render options of `play`, shared by every command that plays a cache.
#pragma once

#include "commands.h"

namespace CLI {
class App;
}

namespace kv::cli {

// Adds --scene-fps, --start, --speed, --fps, --steps, --reverse, --graph-frame, --before,
// --after, --no-interpolate, --box, --dont-delete, --scale, --scale-from, --scale-to and
// --load to `cmd`, filling `a`.
void AddPlaybackOptions(CLI::App& cmd, PlayArgs& a);

}  // namespace kv::cli

// A cache object in a scene, ready to be drawn and picked: a .kvc file played by a new
// object, or a cache node of a scene file. Pictures and picks taken with the same view
// arguments and frames see the same camera, so pixel positions mean the same thing.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <string>

#include "cache/registry.h"
#include "commands.h"
#include "geom/box3.h"
#include "host/standalone/scene.h"
#include "host/standalone/soft_window.h"
#include "object/cache_obj.h"
#include "playback_options.h"
#include "ui/cache_display.h"

namespace kv::cli {

class Viewer {
 public:
  Viewer() = default;
  ~Viewer();
  Viewer(const Viewer&) = delete;
  Viewer& operator=(const Viewer&) = delete;

  // A .kvc file (configured by `play`) or a scene file, whose node `node` (default: the first
  // cache node) is shown. False with `error` set when the input cannot be read or holds no
  // such node.
  bool Open(const std::string& input, const std::optional<std::string>& node,
            const PlaybackArgs& play, std::string& error);
  // What the object shows: markers, icon, boxes (switched on when asked, left alone else).
  void Apply(const ViewArgs& v);

  standalone::Scene& Scene() { return *scene_; }
  standalone::SceneNode& Node() { return *node_; }
  kvCache_obj& Object() { return *obj_; }
  ui::CacheDisplay& Display() { return *display_; }
  bool IsSceneFile() const { return sceneFile_; }

  TimeValue FrameTime(double frame) const;
  // The world box of the cache over the times (the icon's when the cache shows nothing).
  Box3 Bounds(std::span<const TimeValue> times);
  // A camera for the view arguments that frames `bounds`.
  static bool ParseView(const std::string& name, standalone::ViewKind& kind);
  // Sets up the window's camera and mode for the view arguments.
  static void SetUpWindow(standalone::SoftWindow& gw, const ViewArgs& v, const Box3& bounds);
  // Clears the window and draws the object at t.
  void Draw(TimeValue t, standalone::SoftWindow& gw);

 private:
  // Declared before the scene: the objects leave the registry when the scene deletes them.
  std::unique_ptr<KelvaneTools::kvCacheRegistry> registry_;
  std::unique_ptr<standalone::Scene> scene_;
  standalone::SceneNode* node_ = nullptr;
  kvCache_obj* obj_ = nullptr;
  std::unique_ptr<ui::CacheDisplay> display_;
  bool sceneFile_ = false;
};

}  // namespace kv::cli

// The demo's rigid-body scene: a brick wall standing on the ground, struck by a heavy ball.
// Z is up, lengths are metres. The simulation runs at a fixed step with no threads, so the
// same options always give the same poses.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "geom/point.h"
#include "geom/quat.h"

namespace kv::cli {

struct DemoSimOptions {
  int columns = 40;                     // bricks per row
  int rows = 50;                        // courses of bricks
  Point3 brickSize{0.5f, 0.25f, 0.2f};  // full extents (x along the wall, z up)
  float ballRadius = 1.5f;
  float ballMass = 400.0f;  // bricks weigh 1 kg each
  float ballSpeed = 30.0f;  // m/s, towards the wall (+y)
  int frames = 60;          // frames simulated after frame 0
  int fps = 30;
  int substeps = 4;  // fixed physics steps per frame
};

struct BodyPose {
  Point3 pos;
  Quat rot;
};

struct SimBody {
  std::string name;
  bool sphere = false;
  Point3 size;  // full box extents; for the sphere, the diameter on every axis
  float radius = 0;
  std::vector<BodyPose> poses;  // frames 0..frames, frame 0 being the rest pose
};

struct DemoSimResult {
  std::vector<SimBody> bodies;  // the bricks row by row, then the ball
  int frames = 0;
  int fps = 30;
};

// Progress: (frames done, frames total) -> false to stop. A stopped simulation returns the
// poses it has so far and `completed` false.
using SimProgress = std::function<bool(int done, int total)>;

DemoSimResult RunDemoSimulation(const DemoSimOptions& opt, const SimProgress& progress,
                                bool& completed);

}  // namespace kv::cli

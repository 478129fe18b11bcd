#include "demo_sim.h"

#include <btBulletDynamicsCommon.h>

#include <cstdio>
#include <memory>

namespace kv::cli {
namespace {

BodyPose PoseOf(const btRigidBody& b) {
  btTransform tr;
  b.getMotionState()->getWorldTransform(tr);
  const btVector3& o = tr.getOrigin();
  const btQuaternion q = tr.getRotation();
  return {{static_cast<float>(o.x()), static_cast<float>(o.y()), static_cast<float>(o.z())},
          Quat(static_cast<float>(q.x()), static_cast<float>(q.y()), static_cast<float>(q.z()),
               static_cast<float>(q.w()))};
}

// Owns everything Bullet needs; Bullet itself keeps plain pointers.
struct World {
  btDefaultCollisionConfiguration config;
  btCollisionDispatcher dispatcher{&config};
  btDbvtBroadphase broadphase;
  btSequentialImpulseConstraintSolver solver;
  btDiscreteDynamicsWorld world{&dispatcher, &broadphase, &solver, &config};
  std::vector<std::unique_ptr<btCollisionShape>> shapes;
  std::vector<std::unique_ptr<btDefaultMotionState>> motions;
  std::vector<std::unique_ptr<btRigidBody>> bodies;

  World() { world.setGravity(btVector3(0, 0, -9.81f)); }
  ~World() {
    for (auto& b : bodies) world.removeRigidBody(b.get());
  }
  World(const World&) = delete;
  World& operator=(const World&) = delete;

  btRigidBody* Add(btCollisionShape* shape, float mass, const btVector3& at) {
    shapes.emplace_back(shape);
    btVector3 inertia(0, 0, 0);
    if (mass > 0) shape->calculateLocalInertia(mass, inertia);
    btTransform tr;
    tr.setIdentity();
    tr.setOrigin(at);
    motions.push_back(std::make_unique<btDefaultMotionState>(tr));
    btRigidBody::btRigidBodyConstructionInfo info(mass, motions.back().get(), shape, inertia);
    info.m_friction = 0.7f;
    info.m_restitution = 0.05f;
    bodies.push_back(std::make_unique<btRigidBody>(info));
    world.addRigidBody(bodies.back().get());
    return bodies.back().get();
  }
};

}  // namespace

DemoSimResult RunDemoSimulation(const DemoSimOptions& opt, const SimProgress& progress,
                                bool& completed) {
  DemoSimResult out;
  out.frames = opt.frames;
  out.fps = opt.fps;
  completed = false;

  World w;
  w.Add(new btStaticPlaneShape(btVector3(0, 0, 1), 0), 0, btVector3(0, 0, 0));

  const Point3 s = opt.brickSize;
  const float wallWidth = static_cast<float>(opt.columns) * s.x;
  std::vector<btRigidBody*> rigid;
  for (int r = 0; r < opt.rows; ++r) {
    // Running bond: every other course is shifted by half a brick, as a mason lays it.
    const float shift = (r % 2) ? 0.5f * s.x : 0.0f;
    for (int c = 0; c < opt.columns; ++c) {
      const btVector3 at(-0.5f * wallWidth + (static_cast<float>(c) + 0.5f) * s.x + shift, 0,
                         (static_cast<float>(r) + 0.5f) * s.z);
      btRigidBody* b =
          w.Add(new btBoxShape(btVector3(0.5f * s.x, 0.5f * s.y, 0.5f * s.z)), 1.0f, at);
      // A standing wall would creep under solver jitter before the ball arrives; asleep it
      // stays put until the first contact wakes its island.
      b->setActivationState(ISLAND_SLEEPING);
      rigid.push_back(b);
      char name[32];
      std::snprintf(name, sizeof name, "Brick_%02d_%02d", r, c);
      SimBody body;
      body.name = name;
      body.size = s;
      out.bodies.push_back(std::move(body));
    }
  }
  const float ballZ = std::min(0.35f * static_cast<float>(opt.rows) * s.z + opt.ballRadius,
                               static_cast<float>(opt.rows) * s.z);
  btRigidBody* ball = w.Add(new btSphereShape(opt.ballRadius), opt.ballMass,
                            btVector3(0, -2.0f * opt.ballRadius - 1.0f, ballZ));
  ball->setLinearVelocity(btVector3(0, opt.ballSpeed, 0));
  rigid.push_back(ball);
  {
    SimBody body;
    body.name = "Ball";
    body.sphere = true;
    body.radius = opt.ballRadius;
    body.size = {2 * opt.ballRadius, 2 * opt.ballRadius, 2 * opt.ballRadius};
    out.bodies.push_back(std::move(body));
  }

  for (size_t i = 0; i < rigid.size(); ++i) {
    out.bodies[i].poses.reserve(static_cast<size_t>(opt.frames) + 1);
    out.bodies[i].poses.push_back(PoseOf(*rigid[i]));
  }
  const btScalar dt = btScalar(1) / static_cast<btScalar>(opt.fps * std::max(1, opt.substeps));
  for (int f = 1; f <= opt.frames; ++f) {
    for (int k = 0; k < std::max(1, opt.substeps); ++k) w.world.stepSimulation(dt, 1, dt);
    for (size_t i = 0; i < rigid.size(); ++i) out.bodies[i].poses.push_back(PoseOf(*rigid[i]));
    if (progress && !progress(f, opt.frames)) {
      out.frames = f;
      return out;
    }
  }
  completed = true;
  return out;
}

}  // namespace kv::cli

// glTF meshes that deform: morph targets blended by (animated) weights, and skins that move
// each vertex by a weighted blend of joint transforms. Evaluated at any time from the joints'
// own animation, so a skinned debris rig or a morph animation plays like any other object.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "geom/matrix3.h"
#include "geom/mesh.h"
#include "host/controller.h"
#include "host/scene.h"

namespace kv::standalone {

inline constexpr host::ClassId kDeformingMeshClassId{0x3E5A0C18, 0x1B7D4F63};

struct MorphTargets {
  std::vector<std::vector<Point3>> deltas;  // per target, one position offset per vertex
  std::vector<float> weights;               // the mesh's or node's own, used without animation
  // Animated weights: key times and, per key, one weight per target (cubic splines keep only
  // their values, blended linearly).
  std::vector<TimeValue> times;
  std::vector<float> values;
  bool step = false;
  bool Empty() const { return deltas.empty(); }
  // The weights at t (as many as targets).
  void WeightsAt(TimeValue t, std::vector<float>& out) const;
};

struct SkinBinding {
  std::vector<const host::Node*> joints;
  std::vector<Matrix3> inverseBind;            // per joint: bind space -> joint space
  std::vector<std::array<uint32_t, 4>> joint;  // per vertex: four joint indices
  std::vector<std::array<float, 4>> weight;    // per vertex: their weights
  bool Empty() const { return joints.empty(); }
};

// The object of a node whose glTF mesh has morph targets or a skin. Its mesh at t: the base
// mesh plus the weighted targets, then skinned into the world by the joints at t and brought
// back into the node's object space (the node's own transform is applied to the result as to
// any object, so the mesh lands where the joints put it).
class DeformingMeshObject final : public host::Object {
 public:
  DeformingMeshObject(Mesh base, MorphTargets morph, SkinBinding skin);
  host::ClassId GetClassId() const override { return kDeformingMeshClassId; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Geometry; }
  bool CanConvertToTriObject() const override { return true; }
  bool GetTriMesh(TimeValue t, bool render, Mesh& out) override;
  std::unique_ptr<Object> Clone() const override;
  // Saved as its rest mesh: the deformation lives in the joints and weights of the glTF file.
  bool Save(host::ISave& s) const override;
  host::IOResult Load(host::ILoad& l) override;

  // The node that carries the object: its object transform at t takes skinned (world)
  // positions back to object space. Set once the node exists.
  void SetOwner(const host::Node* node) { owner_ = node; }
  SkinBinding& Skin() { return skin_; }
  const Mesh& Base() const { return base_; }

 private:
  Mesh base_;
  MorphTargets morph_;
  SkinBinding skin_;
  const host::Node* owner_ = nullptr;
  std::vector<float> scratchWeights_;
  std::vector<Matrix3> scratchJoints_;
};

}  // namespace kv::standalone

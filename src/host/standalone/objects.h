// The object classes the standalone host knows natively: the editable mesh (tri object), the
// point helper and the lights.
#pragma once

#include <memory>

#include "geom/mesh.h"
#include "host/controller.h"
#include "host/scene.h"

namespace kv::standalone {

class UndoStack;

class TriObject final : public host::Object {
 public:
  TriObject() = default;
  explicit TriObject(Mesh m) : mesh(std::move(m)) {}
  host::ClassId GetClassId() const override { return host::kTriObjectClassId; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Geometry; }
  bool GetTriMesh(TimeValue t, bool render, Mesh& out) override;
  std::unique_ptr<Object> Clone() const override { return std::make_unique<TriObject>(mesh); }
  bool Save(host::ISave& s) const override;
  host::IOResult Load(host::ILoad& l) override;

  Mesh mesh;
};

class PointHelperObject final : public host::Object {
 public:
  host::ClassId GetClassId() const override { return host::kPointHelperClassId; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Helper; }
  bool GetTriMesh(TimeValue, bool, Mesh&) override { return false; }
  std::unique_ptr<Object> Clone() const override { return std::make_unique<PointHelperObject>(); }
  bool Save(host::ISave&) const override { return true; }
  host::IOResult Load(host::ILoad&) override { return host::IOResult::Ok; }
};

// An omni, spot or directional light: only its animatable far attenuation end matters here.
class LightObject final : public host::Object {
 public:
  // `classId` is one of the three light class ids; `undo` may be null.
  LightObject(host::ClassId classId, UndoStack* undo);
  host::ClassId GetClassId() const override { return classId_; }
  host::SuperClass GetSuperClass() const override { return host::SuperClass::Light; }
  bool GetTriMesh(TimeValue, bool, Mesh&) override { return false; }
  float GetFarAttenEnd(TimeValue t) const override { return farAttenEnd_->GetFloat(t); }
  std::unique_ptr<Object> Clone() const override;
  bool Save(host::ISave& s) const override;
  host::IOResult Load(host::ILoad& l) override;

  // The far attenuation end track (a float controller; 200 units when not animated).
  host::Control& FarAttenEnd() { return *farAttenEnd_; }

 private:
  host::ClassId classId_;
  UndoStack* undo_;
  std::unique_ptr<host::Control> farAttenEnd_;
};

bool IsLightClass(host::ClassId id);

// A mesh in the scene-file form: counts, vertices, faces, selection, map channels and
// explicit normals, each in its own chunk.
void SaveMesh(host::ISave& s, const Mesh& m);
host::IOResult LoadMesh(host::ILoad& l, Mesh& m);

}  // namespace kv::standalone

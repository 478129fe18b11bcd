// The objects other plug-ins put in the scene and the animation controllers, SDK side, as the
// core's host::Object and host::Control.
#pragma once

#include <memory>

#include "host/controller.h"
#include "host/max/sdk.h"
#include "host/scene.h"

namespace kv::max {

// What a node carries, evaluated through the node so that modifiers apply. The core reads it
// (meshes to record, light ranges for triggers) and never saves, loads or clones it.
class MaxObjectRef final : public host::Object {
 public:
  explicit MaxObjectRef(INode* node) : node_(node) {}
  host::ClassId GetClassId() const override;
  host::SuperClass GetSuperClass() const override;
  bool CanConvertToTriObject() const override;
  bool GetTriMesh(TimeValue t, bool render, kv::Mesh& out) override;
  float GetFarAttenEnd(TimeValue t) const override;
  std::unique_ptr<host::Object> Clone() const override { return nullptr; }
  bool Save(host::ISave&) const override { return false; }
  host::IOResult Load(host::ILoad&) override { return host::IOResult::Error; }

 private:
  ::Object* Evaluated(TimeValue t) const;
  INode* node_;
};

// A controller. The wrapper does not own the SDK controller: the scene's references keep it.
class MaxControl final : public host::Control {
 public:
  explicit MaxControl(::Control* c);
  ::Control* Sdk() const { return c_; }

  host::ControlKind Kind() const override { return kind_; }
  host::ControlValue GetValue(TimeValue t) const override;
  void SetValue(TimeValue t, const host::ControlValue& v, bool makeKey) override;
  int NumKeys() const override { return c_->NumKeys(); }
  TimeValue GetKeyTime(int i) const override { return c_->GetKeyTime(i); }
  int GetKeyIndex(TimeValue t) const override { return c_->GetKeyIndex(t); }
  void DeleteKey(int i) override { c_->DeleteKeyByIndex(i); }
  std::unique_ptr<host::Control> Clone() const override;
  bool CopyFrom(const host::Control& other) override;
  std::unique_ptr<host::TrackClip> CopyTrack(const kv::Interval& range) const override;
  bool PasteTrack(const host::TrackClip& clip, const kv::Interval& range) override;
  host::Interp GetInterp() const override;
  bool GetKeyTCB(int i, float& tension, float& continuity, float& bias) const override;
  bool SetKeyTCB(int i, float tension, float continuity, float bias) override;

  host::Control* GetPositionController() override { return Sub(pos_, c_->GetPositionController()); }
  host::Control* GetRotationController() override { return Sub(rot_, c_->GetRotationController()); }
  host::Control* GetScaleController() override { return Sub(scl_, c_->GetScaleController()); }
  bool SetPositionController(std::unique_ptr<host::Control> c) override;
  bool SetRotationController(std::unique_ptr<host::Control> c) override;
  bool SetScaleController(std::unique_ptr<host::Control> c) override;

  // The SDK controller behind a core controller made by this binding, or null.
  static ::Control* SdkOf(const host::Control* c);

 private:
  host::Control* Sub(std::unique_ptr<MaxControl>& slot, ::Control* c);
  ::Control* c_;
  host::ControlKind kind_;
  std::unique_ptr<MaxControl> pos_, rot_, scl_;
};

// A new controller of the host's default class for `kind`, or null.
std::unique_ptr<host::Control> NewMaxControl(host::ControlKind kind);
// A new keyframe controller of `kind` interpolating by `interp`; the default class when the
// SDK has no such keyframe class.
std::unique_ptr<host::Control> NewMaxKeyControl(host::ControlKind kind, host::Interp interp);

}  // namespace kv::max

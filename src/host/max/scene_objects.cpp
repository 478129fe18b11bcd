#include "host/max/scene_objects.h"

#include "host/max/controller_classes.h"
#include "host/max/mesh_convert.h"

namespace kv::max {

namespace {

const Class_ID kTriObjectId(TRIOBJ_CLASS_ID, 0);

// The class table is written once, without the SDK; here it must agree with the SDK's own ids.
constexpr uint32_t ClassOf(host::ControlKind k, host::Interp i) {
  return FindKeyControlClass(k, i)->classIdA;
}
using host::ControlKind;
using host::Interp;
static_assert(ClassOf(ControlKind::Float, Interp::Linear) == LININTERP_FLOAT_CLASS_ID);
static_assert(ClassOf(ControlKind::Float, Interp::Bezier) == HYBRIDINTERP_FLOAT_CLASS_ID);
static_assert(ClassOf(ControlKind::Float, Interp::TCB) == TCBINTERP_FLOAT_CLASS_ID);
static_assert(ClassOf(ControlKind::Position, Interp::Linear) == LININTERP_POSITION_CLASS_ID);
static_assert(ClassOf(ControlKind::Position, Interp::Bezier) == HYBRIDINTERP_POSITION_CLASS_ID);
static_assert(ClassOf(ControlKind::Position, Interp::TCB) == TCBINTERP_POSITION_CLASS_ID);
static_assert(ClassOf(ControlKind::Rotation, Interp::Linear) == LININTERP_ROTATION_CLASS_ID);
static_assert(ClassOf(ControlKind::Rotation, Interp::Bezier) == HYBRIDINTERP_ROTATION_CLASS_ID);
static_assert(ClassOf(ControlKind::Rotation, Interp::TCB) == TCBINTERP_ROTATION_CLASS_ID);
static_assert(ClassOf(ControlKind::Point3, Interp::Bezier) == HYBRIDINTERP_POINT3_CLASS_ID);
static_assert(ClassOf(ControlKind::Point3, Interp::TCB) == TCBINTERP_POINT3_CLASS_ID);
static_assert(ClassOf(ControlKind::Scale, Interp::Linear) == LININTERP_SCALE_CLASS_ID);
static_assert(ClassOf(ControlKind::Scale, Interp::Bezier) == HYBRIDINTERP_SCALE_CLASS_ID);
static_assert(ClassOf(ControlKind::Scale, Interp::TCB) == TCBINTERP_SCALE_CLASS_ID);
static_assert(kSuperFloat == CTRL_FLOAT_CLASS_ID && kSuperPoint3 == CTRL_POINT3_CLASS_ID &&
              kSuperPosition == CTRL_POSITION_CLASS_ID &&
              kSuperRotation == CTRL_ROTATION_CLASS_ID && kSuperScale == CTRL_SCALE_CLASS_ID);

// A copied stretch of an SDK track; the clip belongs to whoever copied it.
class MaxTrackClip final : public host::TrackClip {
 public:
  explicit MaxTrackClip(::TrackClipObject* clip) : clip_(clip) {}
  ~MaxTrackClip() override { clip_->DeleteThis(); }
  MaxTrackClip(const MaxTrackClip&) = delete;
  MaxTrackClip& operator=(const MaxTrackClip&) = delete;
  ::TrackClipObject* Sdk() const { return clip_; }

 private:
  ::TrackClipObject* clip_;
};

// Both ends of the core's closed intervals belong to the copied stretch.
constexpr DWORD kBothEnds = TIME_INCLEFT | TIME_INCRIGHT;

// Reads key i of a TCB controller into the key type of its kind, lets `edit` see or change
// the shared TCB part, and writes it back when asked. False without such a key.
template <class Edit>
bool WithTCBKey(::Control* c, host::ControlKind kind, int i, bool write, Edit edit) {
  IKeyControl* keys = GetKeyControlInterface(c);
  if (!keys || i < 0 || i >= keys->GetNumKeys()) return false;
  auto apply = [&](auto key) {
    keys->GetKey(i, &key);
    edit(static_cast<ITCBKey&>(key));
    if (write) keys->SetKey(i, &key);
    return true;
  };
  switch (kind) {
    case host::ControlKind::Float:
      return apply(ITCBFloatKey{});
    case host::ControlKind::Point3:
    case host::ControlKind::Position:
      return apply(ITCBPoint3Key{});
    case host::ControlKind::Rotation:
      return apply(ITCBRotKey{});
    case host::ControlKind::Scale:
      return apply(ITCBScaleKey{});
    default:
      return false;
  }
}

host::ControlKind KindOf(::Control* c) {
  switch (c->SuperClassID()) {
    case CTRL_POINT3_CLASS_ID:
      return host::ControlKind::Point3;
    case CTRL_POSITION_CLASS_ID:
      return host::ControlKind::Position;
    case CTRL_ROTATION_CLASS_ID:
      return host::ControlKind::Rotation;
    case CTRL_SCALE_CLASS_ID:
      return host::ControlKind::Scale;
    case CTRL_MATRIX3_CLASS_ID:
      return c->ClassID() == Class_ID(PRS_CONTROL_CLASS_ID, 0) ? host::ControlKind::PRS
                                                               : host::ControlKind::Matrix;
    default:
      return host::ControlKind::Float;
  }
}

// Sets a value with animate mode forced on (a key) or off (the constant or the key at t), as
// the core asks, whatever the user's animate button says.
template <class T>
void SetWithMode(::Control* c, TimeValue t, T value, bool makeKey) {
  SuspendAnimate();
  if (makeKey) {
    AnimateOn();
  } else {
    AnimateOff();
  }
  c->SetValue(t, &value);
  ResumeAnimate();
}

}  // namespace

// ---- MaxObjectRef

::Object* MaxObjectRef::Evaluated(TimeValue t) const {
  return node_ ? node_->EvalWorldState(t).obj : nullptr;
}

host::ClassId MaxObjectRef::GetClassId() const {
  ::Object* o = Evaluated(GetCOREInterface()->GetTime());
  if (!o) return {};
  const Class_ID id = o->ClassID();
  return {static_cast<uint32_t>(id.PartA()), static_cast<uint32_t>(id.PartB())};
}

host::SuperClass MaxObjectRef::GetSuperClass() const {
  ::Object* o = Evaluated(GetCOREInterface()->GetTime());
  switch (o ? o->SuperClassID() : 0) {
    case GEOMOBJECT_CLASS_ID:
      return host::SuperClass::Geometry;
    case SHAPE_CLASS_ID:
      return host::SuperClass::Shape;
    case LIGHT_CLASS_ID:
      return host::SuperClass::Light;
    case HELPER_CLASS_ID:
      return host::SuperClass::Helper;
    case CAMERA_CLASS_ID:
      return host::SuperClass::Camera;
    default:
      return host::SuperClass::Other;
  }
}

bool MaxObjectRef::CanConvertToTriObject() const {
  ::Object* o = Evaluated(GetCOREInterface()->GetTime());
  return o && o->CanConvertToType(kTriObjectId);
}

bool MaxObjectRef::GetTriMesh(TimeValue t, bool render, kv::Mesh& out) {
  (void)render;  // the viewport mesh; render meshes need a view (not bound yet)
  ::Object* o = Evaluated(t);
  if (!o || !o->CanConvertToType(kTriObjectId)) return false;
  auto* tri = static_cast<TriObject*>(o->ConvertToType(t, kTriObjectId));
  if (!tri) return false;
  ToKv(tri->GetMesh(), out);
  // A conversion made a new object that nothing references.
  if (tri != o) tri->DeleteThis();
  return out.numFaces() > 0;
}

float MaxObjectRef::GetFarAttenEnd(TimeValue t) const {
  ::Object* o = Evaluated(t);
  if (!o || o->SuperClassID() != LIGHT_CLASS_ID) return 0.0f;
  ::Interval valid(TIME_NegInfinity, TIME_PosInfinity);
  return static_cast<LightObject*>(o)->GetAtten(t, ATTEN_END, valid);
}

// ---- MaxControl

MaxControl::MaxControl(::Control* c) : c_(c), kind_(KindOf(c)) {}

host::ControlValue MaxControl::GetValue(TimeValue t) const {
  ::Interval valid(TIME_NegInfinity, TIME_PosInfinity);
  switch (kind_) {
    case host::ControlKind::Point3:
    case host::ControlKind::Position: {
      ::Point3 p;
      c_->GetValue(t, &p, valid);
      return ToKv(p);
    }
    case host::ControlKind::Rotation: {
      ::Quat q;
      c_->GetValue(t, &q, valid);
      return kv::Quat{q.x, q.y, q.z, q.w};
    }
    case host::ControlKind::Scale: {
      ::ScaleValue s;
      c_->GetValue(t, &s, valid);
      return host::ScaleValue{ToKv(s.s), kv::Quat{s.q.x, s.q.y, s.q.z, s.q.w}};
    }
    case host::ControlKind::Matrix:
    case host::ControlKind::PRS: {
      // Transform controllers apply themselves to the matrix they are given.
      ::Matrix3 tm;
      tm.IdentityMatrix();
      c_->GetValue(t, &tm, valid, CTRL_RELATIVE);
      return ToKv(tm);
    }
    default: {
      float f = 0.0f;
      c_->GetValue(t, &f, valid);
      return f;
    }
  }
}

void MaxControl::SetValue(TimeValue t, const host::ControlValue& v, bool makeKey) {
  if (const float* f = std::get_if<float>(&v)) {
    SetWithMode(c_, t, *f, makeKey);
  } else if (const kv::Point3* p = std::get_if<kv::Point3>(&v)) {
    SetWithMode(c_, t, ToMax(*p), makeKey);
  } else if (const kv::Quat* q = std::get_if<kv::Quat>(&v)) {
    ::Quat mq;
    mq.x = q->x, mq.y = q->y, mq.z = q->z, mq.w = q->w;
    SetWithMode(c_, t, mq, makeKey);
  } else if (const host::ScaleValue* s = std::get_if<host::ScaleValue>(&v)) {
    ::ScaleValue ms;
    ms.s = ToMax(s->s);
    ms.q.x = s->q.x, ms.q.y = s->q.y, ms.q.z = s->q.z, ms.q.w = s->q.w;
    SetWithMode(c_, t, ms, makeKey);
  } else if (const kv::Matrix3* m = std::get_if<kv::Matrix3>(&v)) {
    // Transform controllers take a matrix as a packet that sets it outright.
    ::Matrix3 parent;
    parent.IdentityMatrix();
    SetWithMode(c_, t, SetXFormPacket(ToMax(*m), parent), makeKey);
  }
}

std::unique_ptr<host::Control> MaxControl::Clone() const {
  auto* copy = static_cast<::Control*>(CloneRefHierarchy(c_));
  return copy ? std::make_unique<MaxControl>(copy) : nullptr;
}

bool MaxControl::CopyFrom(const host::Control& other) {
  ::Control* from = SdkOf(&other);
  if (!from || other.Kind() != kind_) return false;
  c_->Copy(from);
  return true;
}

std::unique_ptr<host::TrackClip> MaxControl::CopyTrack(const kv::Interval& range) const {
  const ::Interval iv = ToMax(range);
  if (!c_->CanCopyTrack(iv, kBothEnds)) return nullptr;
  ::TrackClipObject* clip = c_->CopyTrack(iv, kBothEnds);
  return clip ? std::make_unique<MaxTrackClip>(clip) : nullptr;
}

bool MaxControl::PasteTrack(const host::TrackClip& clip, const kv::Interval& range) {
  const auto* m = dynamic_cast<const MaxTrackClip*>(&clip);
  if (!m) return false;
  const ::Interval iv = ToMax(range);
  if (!c_->CanPasteTrack(m->Sdk(), iv, kBothEnds)) return false;
  c_->PasteTrack(m->Sdk(), iv, kBothEnds);
  return true;
}

host::Interp MaxControl::GetInterp() const {
  const Class_ID id = c_->ClassID();
  return InterpOfClass(static_cast<uint32_t>(id.PartA()), static_cast<uint32_t>(id.PartB()));
}

bool MaxControl::GetKeyTCB(int i, float& tension, float& continuity, float& bias) const {
  if (GetInterp() != host::Interp::TCB) return false;
  return WithTCBKey(c_, kind_, i, false, [&](ITCBKey& k) {
    tension = k.tens;
    continuity = k.cont;
    bias = k.bias;
  });
}

bool MaxControl::SetKeyTCB(int i, float tension, float continuity, float bias) {
  if (GetInterp() != host::Interp::TCB) return false;
  return WithTCBKey(c_, kind_, i, true, [&](ITCBKey& k) {
    k.tens = tension;
    k.cont = continuity;
    k.bias = bias;
  });
}

host::Control* MaxControl::Sub(std::unique_ptr<MaxControl>& slot, ::Control* c) {
  if (!c) return nullptr;
  if (!slot || slot->c_ != c) slot = std::make_unique<MaxControl>(c);
  return slot.get();
}

bool MaxControl::SetPositionController(std::unique_ptr<host::Control> c) {
  ::Control* s = SdkOf(c.get());
  return s && c_->SetPositionController(s);
}

bool MaxControl::SetRotationController(std::unique_ptr<host::Control> c) {
  ::Control* s = SdkOf(c.get());
  return s && c_->SetRotationController(s);
}

bool MaxControl::SetScaleController(std::unique_ptr<host::Control> c) {
  ::Control* s = SdkOf(c.get());
  return s && c_->SetScaleController(s);
}

::Control* MaxControl::SdkOf(const host::Control* c) {
  const auto* m = dynamic_cast<const MaxControl*>(c);
  return m ? m->c_ : nullptr;
}

std::unique_ptr<host::Control> NewMaxControl(host::ControlKind kind) {
  ::Control* c = nullptr;
  switch (kind) {
    case host::ControlKind::Float:
      c = NewDefaultFloatController();
      break;
    case host::ControlKind::Point3:
      c = NewDefaultPoint3Controller();
      break;
    case host::ControlKind::Position:
      c = NewDefaultPositionController();
      break;
    case host::ControlKind::Rotation:
      c = NewDefaultRotationController();
      break;
    case host::ControlKind::Scale:
      c = NewDefaultScaleController();
      break;
    case host::ControlKind::Matrix:
    case host::ControlKind::PRS:
      c = NewDefaultMatrix3Controller();
      break;
    default:
      break;  // two- and four-component tracks are not used by the core
  }
  return c ? std::make_unique<MaxControl>(c) : nullptr;
}

std::unique_ptr<host::Control> NewMaxKeyControl(host::ControlKind kind, host::Interp interp) {
  const KeyControlClass* cls = FindKeyControlClass(kind, interp);
  if (!cls) return NewMaxControl(kind);
  auto* c = static_cast<::Control*>(
      GetCOREInterface()->CreateInstance(cls->superClassId, Class_ID(cls->classIdA, 0)));
  return c ? std::make_unique<MaxControl>(c) : NewMaxControl(kind);
}

}  // namespace kv::max

#include "host/max/cache_object.h"

#include <map>
#include <new>

#include "cache/registry.h"
#include "host/max/graphics_window.h"
#include "host/max/max_host.h"
#include "host/max/mesh_convert.h"
#include "host/max/rollouts.h"
#include "host/max/save_load.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "ui/cache_display.h"
#include "ui/gizmo_transform.h"

namespace kv::max {

namespace {

// Core object -> its binding object, for the host calls that name a core object.
std::map<const host::Object*, MaxCacheObject*>& Owners() {
  static std::map<const host::Object*, MaxCacheObject*> owners;
  return owners;
}

// One creation callback for every creation drag; it points at the object being created.
class CreateCallBack final : public CreateMouseCallBack {
 public:
  void SetObject(MaxCacheObject* obj) { logic_.SetTarget(obj); }
  int proc(ViewExp* vpt, int msg, int point, int flags, IPoint2 m, ::Matrix3& mat) override {
    (void)flags;
    kv::Point3 snapped;
    if ((msg == MOUSE_POINT || msg == MOUSE_MOVE) && (point == 0 || point == 1)) {
      snapped = ToKv(vpt->SnapPoint(m, m, nullptr));
    }
    kv::Matrix3 tm = ToKv(mat);
    const int result = logic_.Proc(msg, point, snapped, tm);
    mat.SetTrans(ToMax(tm.GetTrans()));
    return result;
  }

 private:
  registration::CreationCallback logic_;
};

}  // namespace

MaxCacheObject* MaxCacheObject::Make(bool loading) {
  std::unique_ptr<kvCache_obj> core =
      registration::CreateObject(TheHost(), SharedRegistry(), loading);
  if (!core) return nullptr;
  return new (std::nothrow) MaxCacheObject(std::move(core), loading);
}

MaxCacheObject::MaxCacheObject(std::unique_ptr<kvCache_obj> core, bool loading)
    : core_(std::move(core)), display_(std::make_unique<ui::CacheDisplay>(*core_)) {
  Owners()[core_.get()] = this;
  if (!loading) ReferenceGizmo();
}

MaxCacheObject::~MaxCacheObject() {
  panel_.reset();
  Owners().erase(core_.get());
}

MaxCacheObject* MaxCacheObject::Owning(const host::Object* core) {
  const auto it = Owners().find(core);
  return it == Owners().end() ? nullptr : it->second;
}

void MaxCacheObject::BuildMesh(TimeValue t) {
  core_->BuildMesh(t);
  ToMax(core_->GetMesh(), mesh);
  ivalid = ToMax(core_->MeshValidity());
}

BOOL MaxCacheObject::OKtoDisplay(TimeValue) {
  return TRUE;
}

CreateMouseCallBack* MaxCacheObject::GetCreateMouseCallBack() {
  static CreateCallBack callback;
  callback.SetObject(this);
  return &callback;
}

Class_ID MaxCacheObject::ClassID() {
  return Class_ID(registration::kClassId.a, registration::kClassId.b);
}

void MaxCacheObject::GetClassName(MSTR& s, bool localized) const {
  static const std::wstring plain = Widen(registration::kNonLocalizedClassName);
  const MCHAR* name = localized ? GetString(registration::kClassNameId) : nullptr;
  s = name ? name : plain.c_str();
}

ReferenceTarget* MaxCacheObject::Clone(RemapDir& remap) {
  std::unique_ptr<host::Object> copy = core_->Clone();
  auto* core = dynamic_cast<kvCache_obj*>(copy.get());
  if (!core) return nullptr;
  copy.release();
  // The clone references the copy of the gizmo controller its core made.
  auto* clone = new (std::nothrow) MaxCacheObject(std::unique_ptr<kvCache_obj>(core), false);
  if (!clone) return nullptr;
  BaseClone(this, clone, remap);
  return clone;
}

// The command modes the sub-object levels offer (ui::CommandModesAt): select at the elements
// level; move, rotate and the scales at the gizmo level.
struct MaxCacheObject::Modes {
  Modes(BaseObject* o, IObjParam* ip)
      : move(o, ip), rotate(o, ip), nuscale(o, ip), uscale(o, ip), squash(o, ip), select(o, ip) {}
  MoveModBoxCMode move;
  RotateModBoxCMode rotate;
  NUScaleModBoxCMode nuscale;
  UScaleModBoxCMode uscale;
  SquashModBoxCMode squash;
  SelectModBoxCMode select;
};

void MaxCacheObject::BeginEditParams(IObjParam* ip, ULONG flags, Animatable* prev) {
  SimpleObject2::BeginEditParams(ip, flags, prev);
  modes_ = std::make_unique<Modes>(this, ip);
  panel_ = std::make_unique<MaxPanel>(ip, *core_);
}

void MaxCacheObject::EndEditParams(IObjParam* ip, ULONG flags, Animatable* next) {
  panel_.reset();
  if (modes_) {
    CommandMode* all[] = {&modes_->move,   &modes_->rotate, &modes_->nuscale,
                          &modes_->uscale, &modes_->squash, &modes_->select};
    for (CommandMode* m : all) ip->DeleteMode(m);
    modes_.reset();
  }
  SimpleObject2::EndEditParams(ip, flags, next);
}

namespace {

// The points of a hit test as the viewport hands them: one for a point, two for a box or a
// circle (centre and rim), a fence up to the point whose x is -1.
std::vector<host::IPoint2> HitPoints(int type, const ::IPoint2* p, host::HitRegion::Type& kind) {
  std::vector<host::IPoint2> pts;
  switch (type) {
    case HITTYPE_BOX:
      kind = host::HitRegion::Type::Box;
      pts = {{p[0].x, p[0].y}, {p[1].x, p[1].y}};
      break;
    case HITTYPE_CIRCLE:
      kind = host::HitRegion::Type::Circle;
      pts = {{p[0].x, p[0].y}, {p[1].x, p[1].y}};
      break;
    case HITTYPE_FENCE:
      kind = host::HitRegion::Type::Fence;
      for (int i = 0; p[i].x >= 0; ++i) pts.push_back({p[i].x, p[i].y});
      break;
    default:
      kind = host::HitRegion::Type::Point;
      pts = {{p[0].x, p[0].y}};
      break;
  }
  return pts;
}

::Box3 ToMax(const kv::Box3& b) {
  return b.IsEmpty() ? ::Box3() : ::Box3(max::ToMax(b.pmin), max::ToMax(b.pmax));
}

}  // namespace

int MaxCacheObject::Display(TimeValue t, ::INode* inode, ViewExp* vpt, int flags) {
  (void)flags;
  MaxNode* node = TheHost().Wrap(inode);
  if (!node || !vpt) return 0;
  MaxGraphicsWindow gw(vpt->getGW());
  return display_->Display(t, *node, gw);
}

int MaxCacheObject::HitTest(TimeValue t, ::INode* inode, int type, int crossing, int flags,
                            ::IPoint2* p, ViewExp* vpt) {
  MaxNode* node = TheHost().Wrap(inode);
  if (!node || !vpt || !p) return 0;
  host::HitRegion::Type kind;
  const std::vector<host::IPoint2> pts = HitPoints(type, p, kind);
  MaxGraphicsWindow gw(vpt->getGW());
  return display_->HitTest(t, *node, kind, crossing != 0, flags, pts, gw);
}

int MaxCacheObject::HitTest(TimeValue t, ::INode* inode, int type, int crossing, int flags,
                            ::IPoint2* p, ViewExp* vpt, ModContext* mc) {
  MaxNode* node = TheHost().Wrap(inode);
  if (!node || !vpt || !p) return 0;
  host::HitRegion::Type kind;
  const std::vector<host::IPoint2> pts = HitPoints(type, p, kind);
  MaxGraphicsWindow gw(vpt->getGW());
  host::HitLog log;
  const int res = display_->HitTestAtLevel(t, *node, kind, crossing != 0, flags, pts, gw, log);
  // Sub-object hits reach 3ds Max through the viewport's log, one per element.
  for (const host::HitRecord& h : log.Hits()) vpt->LogHit(inode, mc, h.distance, h.info);
  return log.Empty() ? res : 1;
}

void MaxCacheObject::SelectSubComponent(::HitRecord* hitRec, BOOL selected, BOOL all, BOOL invert) {
  std::vector<uint32_t> hits;
  for (::HitRecord* r = hitRec; r; r = all ? r->Next() : nullptr) {
    hits.push_back(static_cast<uint32_t>(r->hitInfo));
  }
  if (!invert) {
    core_->SelectSubComponent(hits, selected != FALSE, true);
    return;
  }
  // Inverting flips each element hit on its own.
  for (uint32_t e : hits) {
    const bool on = core_->Selection().count(e) == 0;
    core_->SelectSubComponent(std::span<const uint32_t>(&e, 1), on, true);
  }
}

void MaxCacheObject::ClearSelection(int selLevel) {
  if (selLevel == ui::kLevelElements) core_->ClearSelection();
}

void MaxCacheObject::ActivateSubobjSel(int level, XFormModes& modes) {
  display_->ActivateSubobjSel(level);
  if (modes_) {
    CommandMode* m[6] = {};  // move, rotate, nuscale, uscale, squash, select
    for (ui::CommandMode c : ui::CommandModesAt(level)) {
      switch (c) {
        case ui::CommandMode::Move:
          m[0] = &modes_->move;
          break;
        case ui::CommandMode::Rotate:
          m[1] = &modes_->rotate;
          break;
        case ui::CommandMode::NUScale:
          m[2] = &modes_->nuscale;
          break;
        case ui::CommandMode::UScale:
          m[3] = &modes_->uscale;
          break;
        case ui::CommandMode::Squash:
          m[4] = &modes_->squash;
          break;
        case ui::CommandMode::Select:
          m[5] = &modes_->select;
          break;
      }
    }
    modes = XFormModes(m[0], m[1], m[2], m[3], m[4], m[5]);
  }
  // Only the drawing changes (elements and gizmo are drawn by level), not the mesh.
  NotifyDependents(::Interval(TIME_NegInfinity, TIME_PosInfinity), PART_SELECT | PART_DISPLAY,
                   REFMSG_CHANGE);
}

int MaxCacheObject::NumSubObjTypes() {
  return ui::kNumSubObjTypes;
}

ISubObjType* MaxCacheObject::GetSubObjType(int i) {
  static const std::wstring elementsName = Widen(ui::SubObjTypeName(0));
  static const std::wstring gizmoName = Widen(ui::SubObjTypeName(1));
  static GenSubObjType elements(elementsName.c_str(), L"SubObjectIcons", 1);
  static GenSubObjType gizmo(gizmoName.c_str(), L"SubObjectIcons", 2);
  switch (display_->GetSubObjType(i)) {
    case 0:
      return &elements;
    case 1:
      return &gizmo;
    default:
      return nullptr;
  }
}

void MaxCacheObject::GetSubObjectCenters(SubObjAxisCallback* cb, TimeValue t, ::INode* inode,
                                         ModContext*) {
  MaxNode* node = TheHost().Wrap(inode);
  if (!cb || !node) return;
  cb->Center(max::ToMax(display_->GetSubObjectTM(t, *node).GetTrans()), 0);
}

void MaxCacheObject::GetSubObjectTMs(SubObjAxisCallback* cb, TimeValue t, ::INode* inode,
                                     ModContext*) {
  MaxNode* node = TheHost().Wrap(inode);
  if (!cb || !node) return;
  cb->TM(max::ToMax(display_->GetSubObjectTM(t, *node)), 0);
}

namespace {

kv::Quat QuatToKv(const ::Quat& q) {
  return kv::Quat{q.x, q.y, q.z, q.w};
}

}  // namespace

void MaxCacheObject::Move(TimeValue t, ::Matrix3& partm, ::Matrix3& tmAxis, ::Point3& val, BOOL) {
  host::Control* g = display_->SubObjectLevel() == ui::kLevelGizmo ? core_->Gizmo() : nullptr;
  if (!g) return;
  core_->SetGizmo(t, ui::MoveGizmo(g->GetMatrix(t), ToKv(partm), ToKv(tmAxis), ToKv(val)));
}

void MaxCacheObject::Rotate(TimeValue t, ::Matrix3& partm, ::Matrix3& tmAxis, ::Quat& val,
                            BOOL localOrigin) {
  host::Control* g = display_->SubObjectLevel() == ui::kLevelGizmo ? core_->Gizmo() : nullptr;
  if (!g) return;
  core_->SetGizmo(t, ui::RotateGizmo(g->GetMatrix(t), ToKv(partm), ToKv(tmAxis), QuatToKv(val),
                                     localOrigin != FALSE));
}

void MaxCacheObject::Scale(TimeValue t, ::Matrix3& partm, ::Matrix3& tmAxis, ::Point3& val,
                           BOOL localOrigin) {
  host::Control* g = display_->SubObjectLevel() == ui::kLevelGizmo ? core_->Gizmo() : nullptr;
  if (!g) return;
  core_->SetGizmo(t, ui::ScaleGizmo(g->GetMatrix(t), ToKv(partm), ToKv(tmAxis), ToKv(val),
                                    localOrigin != FALSE));
}

void MaxCacheObject::GetWorldBoundBox(TimeValue t, ::INode* inode, ViewExp*, ::Box3& box) {
  MaxNode* node = TheHost().Wrap(inode);
  box = node ? ToMax(display_->GetWorldBoundBox(t, *node)) : ::Box3();
}

void MaxCacheObject::GetLocalBoundBox(TimeValue t, ::INode* inode, ViewExp*, ::Box3& box) {
  MaxNode* node = TheHost().Wrap(inode);
  box = node ? ToMax(display_->GetLocalBoundBox(t, *node)) : ::Box3();
}

::IOResult MaxCacheObject::Save(::ISave* isave) {
  SaveAdapter out(*isave);
  return core_->Save(out) ? IO_OK : IO_ERROR;
}

namespace {

// References are in place only once the whole scene has loaded: then a scene saved before the
// gizmo was a reference has none, and the core's controller (with the keys its chunk brought)
// becomes reference 1.
class GizmoPostLoad final : public PostLoadCallback {
 public:
  explicit GizmoPostLoad(MaxCacheObject* obj) : obj_(obj) {}
  void proc(::ILoad*) override {
    obj_->ReferenceGizmo();
    delete this;
  }

 private:
  MaxCacheObject* obj_;
};

}  // namespace

::IOResult MaxCacheObject::Load(::ILoad* iload) {
  LoadAdapter in(*iload);
  switch (core_->Load(in)) {
    case host::IOResult::Ok:
    case host::IOResult::End:
      if (auto* cb = new (std::nothrow) GizmoPostLoad(this)) iload->RegisterPostLoadCallback(cb);
      return IO_OK;
    case host::IOResult::Error:
      break;
  }
  return IO_ERROR;
}

void MaxCacheObject::SetIconSize(float size) {
  registration::ObjectCreationTarget(*core_).SetIconSize(size);
}

// ---------------------------------------------------------------------------------------------
// references

void MaxCacheObject::ReferenceGizmo() {
  if (gizmoRef_) return;
  if (::Control* c = MaxControl::SdkOf(core_->Gizmo())) ReplaceReference(kvCache_obj::kRefGizmo, c);
}

RefTargetHandle MaxCacheObject::GetReference(int i) {
  if (i == kvCache_obj::kRefGizmo) return gizmoRef_;
  return i == kvCache_obj::kRefParams ? pblock2 : nullptr;
}

void MaxCacheObject::SetReference(int i, RefTargetHandle rtarg) {
  if (i != kvCache_obj::kRefGizmo) {
    // Reference 0 is the base's parameter block, set as the base sets it.
    if (i == kvCache_obj::kRefParams) pblock2 = static_cast<IParamBlock2*>(rtarg);
    return;
  }
  ::Control* previous = gizmoRef_;
  gizmoRef_ = static_cast<::Control*>(rtarg);
  ::Control* held = MaxControl::SdkOf(core_->HeldGizmo());
  if (held == gizmoRef_) return;  // the core's own controller, now referenced
  // Loading, cloning or undoing a replacement: the core takes over what 3ds Max set.
  core_->AdoptGizmo(gizmoRef_ ? std::make_unique<MaxControl>(gizmoRef_) : nullptr);
  // A controller the core made that never became a reference (one made before the loaded one
  // arrived) has no other owner; one that was referenced is 3ds Max's to delete.
  if (held && held != previous) held->MaybeAutoDelete();
}

::RefResult MaxCacheObject::NotifyRefChanged(const ::Interval& changeInt, RefTargetHandle hTarget,
                                             PartID& partID, ::RefMessage message, BOOL propagate) {
  if (!hTarget || hTarget != gizmoRef_) {
    return SimpleObject2::NotifyRefChanged(changeInt, hTarget, partID, message, propagate);
  }
  // Keys edited in track view, or the gizmo moved: the core reacts as to its own change.
  const kv::RefResult r =
      core_->NotifyRefChanged(kvCache_obj::kRefGizmo, static_cast<kv::RefMessage>(message));
  return r == kv::RefResult::Stop ? REF_STOP : REF_SUCCEED;
}

Animatable* MaxCacheObject::SubAnim(int i) {
  if (i == kvCache_obj::kRefGizmo) return gizmoRef_;
  return i == kvCache_obj::kRefParams ? SimpleObject2::SubAnim(i) : nullptr;
}

MSTR MaxCacheObject::SubAnimName(int i, bool localized) {
  if (i != kvCache_obj::kRefGizmo) return SimpleObject2::SubAnimName(i, localized);
  static const std::wstring gizmo = Widen(ui::SubObjTypeName(1));
  return MSTR(gizmo.c_str());
}

int MaxCacheObject::SubNumToRefNum(int subNum) {
  return subNum == kvCache_obj::kRefGizmo ? kvCache_obj::kRefGizmo
                                          : SimpleObject2::SubNumToRefNum(subNum);
}

}  // namespace kv::max

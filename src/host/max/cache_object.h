// The cache object as 3ds Max sees it: a procedural geometric object whose every answer comes
// from the core kvCache_obj it owns.
#pragma once

#include <ifnpub.h>

#include <memory>

#include "host/max/sdk.h"
#include "object/registration.h"

namespace kv {
class kvCache_obj;
namespace ui {
class CacheDisplay;
}
}  // namespace kv

namespace kv::max {

class MaxPanel;

class MaxCacheObject final : public SimpleObject2, public registration::CreationTarget {
 public:
  // A new object, or null when memory cannot be had; `loading` as the descriptor got it.
  static MaxCacheObject* Make(bool loading);
  ~MaxCacheObject() override;

  kvCache_obj& Core() { return *core_; }

  // ---- SimpleObject2
  void BuildMesh(TimeValue t) override;
  BOOL OKtoDisplay(TimeValue t) override;
  CreateMouseCallBack* GetCreateMouseCallBack() override;
  Class_ID ClassID() override;
  SClass_ID SuperClassID() override { return GEOMOBJECT_CLASS_ID; }
  void GetClassName(MSTR& s, bool localized = true) const override;
  ReferenceTarget* Clone(RemapDir& remap) override;
  void BeginEditParams(IObjParam* ip, ULONG flags, Animatable* prev = nullptr) override;
  void EndEditParams(IObjParam* ip, ULONG flags, Animatable* next = nullptr) override;
  int Display(TimeValue t, ::INode* inode, ViewExp* vpt, int flags) override;
  int HitTest(TimeValue t, ::INode* inode, int type, int crossing, int flags, ::IPoint2* p,
              ViewExp* vpt) override;
  void GetWorldBoundBox(TimeValue t, ::INode* inode, ViewExp* vp, ::Box3& box) override;
  void GetLocalBoundBox(TimeValue t, ::INode* inode, ViewExp* vp, ::Box3& box) override;
  // Sub-object levels: the core's elements and gizmo.
  int HitTest(TimeValue t, ::INode* inode, int type, int crossing, int flags, ::IPoint2* p,
              ViewExp* vpt, ModContext* mc) override;
  void SelectSubComponent(::HitRecord* hitRec, BOOL selected, BOOL all,
                          BOOL invert = FALSE) override;
  void ClearSelection(int selLevel) override;
  void ActivateSubobjSel(int level, XFormModes& modes) override;
  int NumSubObjTypes() override;
  ISubObjType* GetSubObjType(int i) override;
  void GetSubObjectCenters(SubObjAxisCallback* cb, TimeValue t, ::INode* node,
                           ModContext* mc) override;
  void GetSubObjectTMs(SubObjAxisCallback* cb, TimeValue t, ::INode* node, ModContext* mc) override;
  // The gizmo level's transforms, in the axis system 3ds Max gives.
  void Move(TimeValue t, ::Matrix3& partm, ::Matrix3& tmAxis, ::Point3& val,
            BOOL localOrigin = FALSE) override;
  void Rotate(TimeValue t, ::Matrix3& partm, ::Matrix3& tmAxis, ::Quat& val,
              BOOL localOrigin = FALSE) override;
  void Scale(TimeValue t, ::Matrix3& partm, ::Matrix3& tmAxis, ::Point3& val,
             BOOL localOrigin = FALSE) override;
  ::IOResult Save(::ISave* isave) override;
  ::IOResult Load(::ILoad* iload) override;
  void DeleteThis() override { delete this; }
  // The KV_Cache_Fns mixin for its id (function_publishing.cpp), else the base's answer.
  using SimpleObject2::GetInterface;
  BaseInterface* GetInterface(Interface_ID id) override;
  // The core changed: the next evaluation must rebuild the mesh.
  void InvalidateMesh() { ivalid.SetEmpty(); }

  // ---- the creation drag
  void SetSnapSuspended(bool on) override { suspendSnap = on ? TRUE : FALSE; }
  void SetIconSize(float size) override;

  // The binding object that owns `core`, or null.
  static MaxCacheObject* Owning(const host::Object* core);

 private:
  explicit MaxCacheObject(std::unique_ptr<kvCache_obj> core);
  std::unique_ptr<kvCache_obj> core_;
  std::unique_ptr<MaxPanel> panel_;  // between BeginEditParams and EndEditParams
  std::unique_ptr<ui::CacheDisplay> display_;
  std::unique_ptr<FPMixinInterface> fns_;  // made on the first request for it
  // The sub-object command modes, between BeginEditParams and EndEditParams.
  struct Modes;
  std::unique_ptr<Modes> modes_;
};

}  // namespace kv::max

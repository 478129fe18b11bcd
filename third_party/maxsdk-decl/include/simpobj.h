// Declarations-only stand-in: the procedural object base (simpobj.h) as far as the KV Cache
// binding uses it. See ../README.md.
#pragma once

#include "iparamb2.h"
#include "max.h"

class SimpleObject2 : public GeomObject {
 public:
  IParamBlock2* pblock2;
  Mesh mesh;
  Interval ivalid;
  BOOL suspendSnap;

  SimpleObject2();
  ~SimpleObject2() override;
  virtual void BuildMesh(TimeValue t) = 0;
  virtual BOOL OKtoDisplay(TimeValue t);
  virtual void InvalidateUI();
  void BeginEditParams(IObjParam* ip, ULONG flags, Animatable* prev = nullptr) override;
  void EndEditParams(IObjParam* ip, ULONG flags, Animatable* next = nullptr) override;
  // Reference 0 and the one sub-anim: the parameter block.
  int NumRefs() override;
  RefTargetHandle GetReference(int i) override;
  int NumSubs() override;
  Animatable* SubAnim(int i) override;
  MSTR SubAnimName(int i, bool localized = true) override;
  int SubNumToRefNum(int subNum) override;

 protected:
  void SetReference(int i, RefTargetHandle rtarg) override;
  RefResult NotifyRefChanged(const Interval& changeInt, RefTargetHandle hTarget, PartID& partID,
                             RefMessage message, BOOL propagate) override;
};

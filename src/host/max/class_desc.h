// The class descriptor the host asks the library for: one static instance for the library's
// life. Its answers are the host-neutral ones of object/registration.h.
#pragma once

#include "host/max/sdk.h"

namespace kv::max {

class kvCache_objClassDesc final : public ClassDesc2 {
 public:
  int IsPublic() override { return 1; }
  void* Create(BOOL loading = FALSE) override;
  int BeginCreate(::Interface*) override { return 0; }
  int EndCreate(::Interface*) override { return 0; }
  BOOL OkToCreate(::Interface*) override { return TRUE; }
  const MCHAR* ClassName() override;
  const MCHAR* NonLocalizedClassName() override;
  const MCHAR* InternalName() override;
  SClass_ID SuperClassID() override;
  Class_ID ClassID() override;
  const MCHAR* Category() override;
  DWORD InitialRollupPageState() override;
  HINSTANCE HInstance() override { return ModuleHandle(); }
};

kvCache_objClassDesc& TheClassDesc();

}  // namespace kv::max

// The KV_Cache_Fns interface as 3ds Max's function publishing sees it: one static descriptor,
// built from the script table when the class descriptor is first asked for, and a mixin on
// every cache object whose dispatcher converts the SDK's values to script values, calls the
// core's dispatcher and converts the result back.
#pragma once

#include <ifnpub.h>

#include "host/max/sdk.h"

namespace kv {
class kvCache_obj;
}

namespace kv::max {

// The interface's id, as scripts and GetInterface ask for it.
Interface_ID CacheFnsId();

// The descriptor: made once, on the first call, from fp::DescribeInterface() and registered
// with `cd`. Later calls return the same descriptor whatever they pass.
FPInterfaceDesc& CacheFnsDesc(ClassDesc& cd);

// The mixin of one cache object.
class MaxCacheFns final : public FPMixinInterface {
 public:
  explicit MaxCacheFns(kvCache_obj& core) : core_(core) {}
  FPInterfaceDesc* GetDesc() override;

 protected:
  // An unknown id answers FPS_NO_SUCH_FUNCTION; a runtime error of the core is raised as the
  // scripting language's runtime error with the core's text.
  FPStatus _dispatch_fn(FunctionID fid, TimeValue t, FPValue& result, FPParams* p) override;

 private:
  kvCache_obj& core_;
};

}  // namespace kv::max

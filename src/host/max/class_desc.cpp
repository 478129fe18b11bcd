#include "host/max/class_desc.h"

#include "host/max/cache_object.h"
#include "host/max/function_publishing.h"
#include "host/max/param_desc.h"
#include "object/registration.h"

namespace kv::max {

namespace R = registration;

void* kvCache_objClassDesc::Create(BOOL loading) {
  return MaxCacheObject::Make(loading != FALSE);
}

const MCHAR* kvCache_objClassDesc::ClassName() {
  return GetString(R::kClassNameId);
}

const MCHAR* kvCache_objClassDesc::NonLocalizedClassName() {
  static const std::wstring name = Widen(R::kNonLocalizedClassName);
  return name.c_str();
}

const MCHAR* kvCache_objClassDesc::InternalName() {
  return GetString(R::kInternalNameId);
}

SClass_ID kvCache_objClassDesc::SuperClassID() {
  return GEOMOBJECT_CLASS_ID;
}

Class_ID kvCache_objClassDesc::ClassID() {
  return Class_ID(R::kClassId.a, R::kClassId.b);
}

const MCHAR* kvCache_objClassDesc::Category() {
  return GetString(R::kCategoryId);
}

DWORD kvCache_objClassDesc::InitialRollupPageState() {
  return R::kInitialRollupPageState;
}

kvCache_objClassDesc& TheClassDesc() {
  static kvCache_objClassDesc desc;
  // The parameter block descriptor refers back to the descriptor, so it is made after it.
  static const bool described = (DescribeParams(desc), CacheFnsDesc(desc), true);
  (void)described;
  return desc;
}

}  // namespace kv::max

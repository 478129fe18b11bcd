#include "object/registration.h"

#include <cmath>
#include <new>

#include "object/cache_obj.h"
#include "object/params.h"

namespace kv::registration {

std::unique_ptr<kvCache_obj> CreateObject(host::Interface& ip,
                                          KelvaneTools::kvCacheRegistry& registry, bool loading) {
  // The host asks for objects through a C interface: an exception must not reach it. A failure
  // inside the constructor frees the memory again before it gets here.
  try {
    return std::make_unique<kvCache_obj>(ip, registry, loading);
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
}

int CreationCallback::Proc(int msg, int point, const Point3& snapped, Matrix3& mat) {
  if (msg == kMouseAbort) return kCreateAbort;
  if (msg != kMousePoint && msg != kMouseMove) return kCreateContinue;
  if (!target_) return kCreateContinue;
  switch (point) {
    case 0:
      target_->SetSnapSuspended(true);
      p0_ = snapped;
      mat.SetTrans(p0_);  // the node sits where the user pressed
      break;
    case 1: {
      p1_ = snapped;
      // The drag is a radius; the parameter holds the full size.
      iconSize_ = 2.0f * std::fabs((p1_ - p0_).Length());
      target_->SetIconSize(iconSize_);
      if (msg == kMousePoint) {
        target_->SetSnapSuspended(false);
        return kCreateStop;
      }
      break;
    }
    default:
      break;
  }
  return kCreateContinue;
}

void ObjectCreationTarget::SetIconSize(float size) {
  obj_.Params().SetFloat(param::kIconSize, 0, size);
}

}  // namespace kv::registration

#include "object/validators.h"

#include "object/param_block.h"

namespace kv {

bool IsLiveIndependentNode(host::Interface& ip, const host::Node* node, const host::Object* cache) {
  if (!node || node->IsDeleted()) return false;
  // Storing a node that depends on the cache object would make a reference loop.
  return !(cache && ip.DependsOn(node, cache));
}

bool kvCacheNodesValidator::Validate(const host::Node* node, TimeValue t) const {
  (void)t;  // the node's object is asked as it stands; the host evaluates it at the current time
  if (!IsLiveIndependentNode(ip_, node, cache_)) return false;
  if (pb_) {
    const int n = pb_->Count(param::kNodes);
    for (int i = 0; i < n; ++i)
      if (pb_->GetNode(param::kNodes, i) == node) return false;
  }
  const host::Object* obj = node->GetObjectRef();
  return obj && (obj->IsTriObject() || obj->CanConvertToTriObject());
}

bool kvCacheHelperValidator::Validate(const host::Node* node, TimeValue t) const {
  (void)t;
  const host::Object* obj = node ? node->GetObjectRef() : nullptr;
  return obj && obj->GetClassId() == host::kOmniLightClassId;
}

bool kvCacheExplodeNodeValidator::Validate(const host::Node* node, TimeValue t) const {
  (void)t;
  return IsLiveIndependentNode(ip_, node, cache_);
}

}  // namespace kv

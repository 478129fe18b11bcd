// Acceptance rules for the cache object's node parameters, used by the pickers and by scripts
// before a node is stored in `nodes`, `triggerOmni` or `explodeToNode`. The cache object owns
// one of each.
#pragma once

#include "geom/time.h"
#include "host/interface.h"

namespace kv {

class ParamBlock;

// The host's parameter validator: answers whether a node may be stored.
class NodeValidator {
 public:
  virtual ~NodeValidator() = default;
  virtual bool Validate(const host::Node* node, TimeValue t) const = 0;
};

// `nodes`: a live node that does not depend on the cache object, is not listed yet and whose
// object is or converts to a triangle mesh.
class kvCacheNodesValidator : public NodeValidator {
 public:
  // `cache` is the cache object; `pb` its block (for the duplicate test).
  kvCacheNodesValidator(host::Interface& ip, const host::Object* cache, const ParamBlock* pb)
      : ip_(ip), cache_(cache), pb_(pb) {}
  bool Validate(const host::Node* node, TimeValue t) const override;

 private:
  host::Interface& ip_;
  const host::Object* cache_;
  const ParamBlock* pb_;
};

// `triggerOmni`: a node whose object is the host's standard omni light.
class kvCacheHelperValidator : public NodeValidator {
 public:
  bool Validate(const host::Node* node, TimeValue t) const override;
};

// `explodeToNode`: a live node that does not depend on the cache object.
class kvCacheExplodeNodeValidator : public NodeValidator {
 public:
  kvCacheExplodeNodeValidator(host::Interface& ip, const host::Object* cache)
      : ip_(ip), cache_(cache) {}
  bool Validate(const host::Node* node, TimeValue t) const override;

 private:
  host::Interface& ip_;
  const host::Object* cache_;
};

// The tests every node parameter shares: not null, no reference loop with `cache`, not marked
// deleted, not dependent on `cache`. (The host answers loop and dependency with one query.)
bool IsLiveIndependentNode(host::Interface& ip, const host::Node* node, const host::Object* cache);

}  // namespace kv

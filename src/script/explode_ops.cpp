#include "explode/explode.h"
#include "explode/key_reduce.h"
#include "object/cache_obj.h"
#include "script/cache_fns.h"

namespace kv::script {
namespace {

// Explode and key reduction for the script functions, on the explode subsystem.
class ExplodeAdapter final : public ExplodeOps {
 public:
  void Explode(kvCache_obj& obj, const ExplodeRequest& r,
               std::vector<host::Node*>& created) override {
    explode::ExplodeResult res =
        explode::Explode(obj.Host(), obj,
                         explode::InputsFromScript(r.interval, r.step, r.selectedOnly, r.reduceKeys,
                                                   r.reduceStep, r.reduceThresh, r.cacheNode));
    created.clear();
    if (res.status == explode::ExplodeStatus::Exploded) created = std::move(res.nodes);
  }

  bool ReduceKeys(kvCache_obj& obj, const std::vector<host::Control*>& controllers,
                  Interval interval, TimeValue step, float thresh) override {
    return explode::ReduceKeys(obj.Host(), controllers, interval, step, thresh).completed;
  }
};

}  // namespace

void InstallExplodeOps() {
  static ExplodeAdapter adapter;
  SetExplodeOps(&adapter);
}

}  // namespace kv::script

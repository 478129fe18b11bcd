// A stand-in for the sibling rigid-body library: it expands a node into its children and asks
// for the node itself to be deleted afterwards, and remembers the range it was given.
#include <vector>

#include "geom/time.h"
#include "host/scene.h"

extern "C" {

__attribute__((visibility("default"))) kv::TimeValue kvrigid_last_start = 0;
__attribute__((visibility("default"))) kv::TimeValue kvrigid_last_end = 0;
__attribute__((visibility("default"))) int kvrigid_calls = 0;

__attribute__((visibility("default"))) void Get_KG_RIGID_Exploded(
    kv::host::Node* source, std::vector<kv::host::Node*>* elements,
    std::vector<kv::host::Node*>* temporaries, kv::TimeValue start, kv::TimeValue end) {
  ++kvrigid_calls;
  kvrigid_last_start = start;
  kvrigid_last_end = end;
  if (source->NumChildren() == 0) {
    elements->push_back(source);
    return;
  }
  for (int i = 0; i < source->NumChildren(); ++i) elements->push_back(source->GetChild(i));
  temporaries->push_back(source);
}
}

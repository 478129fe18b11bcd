// Recording for a cache object: its parameters as the recorder's target, and the shared
// registry as the way every object playing the written file learns of its new content.
#pragma once

#include "cache/registry.h"
#include "object/cache_obj.h"
#include "object/validators.h"
#include "record/recorder.h"

namespace kv {

// The object's parameter block as a RecordTarget: reads `nodes`, `fileName` and the rec...
// parameters at time 0; on success sets `playStart`, `explodeStart`, `explodeEnd` and
// `fileName`; empties `nodes` (undoably, when the host holds).
class CacheObjectTarget : public RecordTarget {
 public:
  CacheObjectTarget(host::Interface& ip, kvCache_obj& obj);

  std::vector<host::Node*> Nodes() const override;
  std::string FileName() const override;
  int RecStart() const override;
  int RecEnd() const override;
  float RecStep() const override;
  bool SaveMaterial() const override;
  bool ClearNodeList() const override;
  bool WriteDeform() const override;
  bool WriteTopology() const override;
  host::Node* OwnNode() const override;
  bool AcceptsNode(host::Node* node) const override;
  void OnRecorded(const std::string& path) override;
  void EmptyNodeList() override;
  void SetStatus(const std::string& text, int percent = -1) override;

  kvCache_obj& Object() { return obj_; }

 private:
  host::Interface& ip_;
  kvCache_obj& obj_;
  // The list's own rule without its duplicate test: the nodes come from the list itself.
  kvCacheNodesValidator validator_;
};

// Reopens the registry's reader of a rewritten file and invalidates every object playing it.
class RegistryRefresher : public RecordRefresher {
 public:
  explicit RegistryRefresher(KelvaneTools::kvCacheRegistry& registry) : registry_(registry) {}
  // When `target` is a CacheObjectTarget its object acquires the file too.
  void FileRewritten(const std::string& path, RecordTarget& target) override;
  bool ReleaseFile(const std::string& path) override { return registry_.CloseFile(path); }
  void KeepFile(const std::string& path) override { registry_.ReopenFile(path); }

 private:
  KelvaneTools::kvCacheRegistry& registry_;
};

// Records `obj`'s node list through `recorder` (whose refresher should be a RegistryRefresher
// over the object's registry). `fileName` overrides the object's when not empty.
RecordResult RecordCacheObject(Recorder& recorder, kvCache_obj& obj, const RecordOptions& opt);

}  // namespace kv

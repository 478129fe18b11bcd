// The cache writer as the recorder uses it: scene nodes in, one .kvc file out.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "geom/matrix3.h"
#include "host/interface.h"
#include "host/scene.h"
#include "record/recorder.h"

namespace kv {

struct DeformPiece;

class NodeCacheWriter {
 public:
  NodeCacheWriter(host::Interface& ip, const std::string& path, const Matrix3& reference,
                  const RecordRange& range);
  ~NodeCacheWriter();
  NodeCacheWriter(const NodeCacheWriter&) = delete;
  NodeCacheWriter& operator=(const NodeCacheWriter&) = delete;

  // Captures the node's render mesh at `t`; false (nothing added) when it has none.
  bool Add(host::Node* node, TimeValue t);
  // A rigid piece of a deforming node: its rest mesh, moved per sample by its transform
  // and then by the node's. The writer takes the piece's mesh; the piece must outlive it.
  bool Add(DeformPiece& piece);
  int Count() const;

  // Writes the file; `lifetimes` is indexed like the added elements. `progress` gets a
  // percentage and answers false to cancel.
  bool Write(const std::vector<Lifetime>& lifetimes, const std::function<bool(int)>& progress);

  int ErrorCode() const;
  std::string ErrorMessage() const;
  // The material built for the file (the host keeps it), or null.
  host::Mtl* CombinedMaterial() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace kv

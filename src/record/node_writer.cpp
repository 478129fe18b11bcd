#include "record/node_writer.h"

#include "cache/writer.h"

namespace kv {

using KelvaneTools::ElementLifetime;
using KelvaneTools::kvCacheWriter;

namespace {

// Scene nodes as the writer's elements. The list grows while the recorder adds
// nodes; the writer refers to them by index.
class NodeListSource final : public KelvaneTools::ElementSource {
 public:
  explicit NodeListSource(host::Interface& ip) : ip_(ip) {}

  int Count() const override { return static_cast<int>(nodes_.size()); }
  std::string Name(int i) const override { return nodes_[static_cast<size_t>(i)]->GetName(); }
  bool CaptureMesh(int i, TimeValue t, bool render, Mesh& out) override {
    return nodes_[static_cast<size_t>(i)]->EvalTriMesh(t, render, out);
  }
  host::Mtl* Material(int i) const override { return nodes_[static_cast<size_t>(i)]->GetMtl(); }
  void Sample(TimeValue t, std::span<const int> elements, Matrix3* objectTM,
              float* visibility) override {
    for (size_t k = 0; k < elements.size(); ++k) {
      const host::Node* n = nodes_[static_cast<size_t>(elements[k])];
      objectTM[k] = n->GetObjectTM(t);
      visibility[k] = n->GetVisibility(t);
    }
  }
  int FrameRate() const override { return ip_.GetFrameRate(); }

  std::vector<host::Node*>& Nodes() { return nodes_; }

 private:
  host::Interface& ip_;
  std::vector<host::Node*> nodes_;
};

}  // namespace

struct NodeCacheWriter::Impl {
  Impl(host::Interface& ip, const std::string& path, const Matrix3& reference,
       const RecordRange& range)
      : source(ip),
        writer(path, reference, range.start, range.end, range.step, KelvaneTools::kWriterVersion,
               source, &ip) {}

  NodeListSource source;
  kvCacheWriter writer;
  const std::function<bool(int)>* progress = nullptr;

  static bool OnProgress(void* self, uint32_t done, uint32_t total) {
    const auto* s = static_cast<Impl*>(self);
    if (!s->progress || !*s->progress) return true;
    const int pct = total ? static_cast<int>(uint64_t{done} * 100 / total) : 0;
    return (*s->progress)(pct);
  }
};

NodeCacheWriter::NodeCacheWriter(host::Interface& ip, const std::string& path,
                                 const Matrix3& reference, const RecordRange& range)
    : impl_(std::make_unique<Impl>(ip, path, reference, range)) {}

NodeCacheWriter::~NodeCacheWriter() = default;

bool NodeCacheWriter::Add(host::Node* node, TimeValue t) {
  if (!node) return false;
  std::vector<host::Node*>& nodes = impl_->source.Nodes();
  nodes.push_back(node);
  if (impl_->writer.AddElement(static_cast<int>(nodes.size()) - 1, t, true)) return true;
  nodes.pop_back();  // the writer kept nothing that refers to it
  return false;
}

int NodeCacheWriter::Count() const {
  return impl_->writer.NumElements();
}

bool NodeCacheWriter::Write(const std::vector<Lifetime>& lifetimes,
                            const std::function<bool(int)>& progress) {
  std::vector<ElementLifetime> life(lifetimes.size());
  for (size_t i = 0; i < life.size(); ++i) life[i] = {lifetimes[i].first, lifetimes[i].last};
  impl_->progress = &progress;
  impl_->writer.SetProgressCallback(&Impl::OnProgress, impl_.get());
  const bool ok = impl_->writer.Write(life);
  impl_->progress = nullptr;
  return ok;
}

int NodeCacheWriter::ErrorCode() const {
  return static_cast<int>(impl_->writer.ErrorCode());
}

std::string NodeCacheWriter::ErrorMessage() const {
  return std::string(impl_->writer.ErrorMessageText());
}

host::Mtl* NodeCacheWriter::CombinedMaterial() const {
  return impl_->writer.CombinedMaterial();
}

}  // namespace kv

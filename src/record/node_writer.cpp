#include "record/node_writer.h"

#include "cache/writer.h"
#include "record/deform.h"

namespace kv {

using KelvaneTools::ElementLifetime;
using KelvaneTools::kvCacheWriter;

namespace {

// Scene nodes, or rigid pieces of deforming nodes, as the writer's elements. The list grows
// while the recorder adds them; the writer refers to them by index.
class NodeListSource final : public KelvaneTools::ElementSource {
 public:
  NodeListSource(host::Interface& ip, const RecordRange& range) : ip_(ip), range_(range) {}

  int Count() const override { return static_cast<int>(nodes_.size()); }
  std::string Name(int i) const override {
    const DeformPiece* p = pieces_[static_cast<size_t>(i)];
    return p ? p->name : nodes_[static_cast<size_t>(i)]->GetName();
  }
  bool CaptureMesh(int i, TimeValue t, bool render, Mesh& out) override {
    if (DeformPiece* p = pieces_[static_cast<size_t>(i)]) {
      // Captured once: the writer keeps the mesh, the piece needs only its transforms.
      out = std::move(p->mesh);
      return out.numVerts() > 0 && out.numFaces() > 0;
    }
    return nodes_[static_cast<size_t>(i)]->EvalTriMesh(t, render, out);
  }
  host::Mtl* Material(int i) const override { return nodes_[static_cast<size_t>(i)]->GetMtl(); }
  void Sample(TimeValue t, std::span<const int> elements, Matrix3* objectTM,
              float* visibility) override {
    const int s = static_cast<int>((int64_t{t} - range_.start) / range_.step);
    // Pieces of one node follow each other: its transform is taken once per step.
    const host::Node* last = nullptr;
    Matrix3 tm;
    float vis = 0;
    for (size_t k = 0; k < elements.size(); ++k) {
      const size_t e = static_cast<size_t>(elements[k]);
      const host::Node* n = nodes_[e];
      if (n != last) tm = n->GetObjectTM(t), vis = n->GetVisibility(t), last = n;
      if (const DeformPiece* p = pieces_[e]) {
        objectTM[k] = p->At(s) * tm;
        visibility[k] = p->Shown(s) ? vis : 0.0f;
      } else {
        objectTM[k] = tm;
        visibility[k] = vis;
      }
    }
  }
  int FrameRate() const override { return ip_.GetFrameRate(); }

  void Push(host::Node* n, DeformPiece* p) { nodes_.push_back(n), pieces_.push_back(p); }
  void Pop() { nodes_.pop_back(), pieces_.pop_back(); }
  int Size() const { return static_cast<int>(nodes_.size()); }

 private:
  host::Interface& ip_;
  RecordRange range_;
  std::vector<host::Node*> nodes_;
  std::vector<DeformPiece*> pieces_;  // null for a node recorded as it is
};

}  // namespace

struct NodeCacheWriter::Impl {
  Impl(host::Interface& ip, const std::string& path, const Matrix3& reference,
       const RecordRange& range)
      : source(ip, range),
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
  impl_->source.Push(node, nullptr);
  if (impl_->writer.AddElement(impl_->source.Size() - 1, t, true)) return true;
  impl_->source.Pop();  // the writer kept nothing that refers to it
  return false;
}

bool NodeCacheWriter::Add(DeformPiece& piece) {
  if (!piece.node) return false;
  impl_->source.Push(piece.node, &piece);
  if (impl_->writer.AddElement(impl_->source.Size() - 1, 0, true)) return true;
  impl_->source.Pop();
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

#include "host/standalone/gltf_deform.h"

#include <algorithm>

#include "host/standalone/objects.h"

namespace kv::standalone {

void MorphTargets::WeightsAt(TimeValue t, std::vector<float>& out) const {
  const size_t n = deltas.size();
  out.assign(n, 0.0f);
  for (size_t i = 0; i < n && i < weights.size(); ++i) out[i] = weights[i];
  if (times.empty() || values.size() < times.size() * n) return;
  const size_t per = values.size() / times.size();  // n, or 3n for cubic splines
  const size_t at = per == 3 * n ? n : 0;           // the value part of a spline key
  auto key = [&](size_t k, size_t i) { return values[k * per + at + i]; };
  const auto it = std::upper_bound(times.begin(), times.end(), t);
  if (it == times.begin() || it == times.end()) {
    const size_t k = it == times.begin() ? 0 : times.size() - 1;
    for (size_t i = 0; i < n; ++i) out[i] = key(k, i);
    return;
  }
  const size_t k1 = size_t(it - times.begin()), k0 = k1 - 1;
  const float f = step ? 0.0f : float(t - times[k0]) / float(times[k1] - times[k0]);
  for (size_t i = 0; i < n; ++i) out[i] = key(k0, i) + (key(k1, i) - key(k0, i)) * f;
}

DeformingMeshObject::DeformingMeshObject(Mesh base, MorphTargets morph, SkinBinding skin)
    : base_(std::move(base)), morph_(std::move(morph)), skin_(std::move(skin)) {}

bool DeformingMeshObject::GetTriMesh(TimeValue t, bool, Mesh& out) {
  out = base_;
  const size_t nv = out.verts.size();
  if (!morph_.Empty()) {
    morph_.WeightsAt(t, scratchWeights_);
    for (size_t k = 0; k < morph_.deltas.size(); ++k) {
      const float w = scratchWeights_[k];
      const std::vector<Point3>& d = morph_.deltas[k];
      if (w == 0.0f || d.size() != nv) continue;
      for (size_t v = 0; v < nv; ++v) out.verts[v] += d[v] * w;
    }
  }
  if (!skin_.Empty() && skin_.joint.size() == nv && skin_.weight.size() == nv) {
    // Each joint's bind-to-world matrix once, then back into the owner's object space.
    const Matrix3 toObject = owner_ ? Inverse(owner_->GetObjectTM(t)) : Matrix3();
    scratchJoints_.resize(skin_.joints.size());
    for (size_t j = 0; j < skin_.joints.size(); ++j) {
      const Matrix3 world = skin_.joints[j] ? skin_.joints[j]->GetNodeTM(t) : Matrix3();
      const Matrix3 ibm = j < skin_.inverseBind.size() ? skin_.inverseBind[j] : Matrix3();
      scratchJoints_[j] = ibm * world * toObject;
    }
    for (size_t v = 0; v < nv; ++v) {
      const Point3 p = out.verts[v];
      Point3 q;
      float total = 0;
      for (int k = 0; k < 4; ++k) {
        const float w = skin_.weight[v][size_t(k)];
        const uint32_t j = skin_.joint[v][size_t(k)];
        if (w == 0.0f || j >= scratchJoints_.size()) continue;
        q += (p * scratchJoints_[j]) * w;
        total += w;
      }
      // Weights that do not sum to one are normalised; a vertex bound to nothing stays.
      if (total > 0) out.verts[v] = q / total;
    }
  }
  out.InvalidateGeomCache();
  return out.numVerts() > 0 && out.numFaces() > 0;
}

std::unique_ptr<host::Object> DeformingMeshObject::Clone() const {
  auto c = std::make_unique<DeformingMeshObject>(base_, morph_, skin_);
  c->owner_ = owner_;
  return c;
}

bool DeformingMeshObject::Save(host::ISave& s) const {
  SaveMesh(s, base_);
  return true;
}

host::IOResult DeformingMeshObject::Load(host::ILoad& l) {
  return LoadMesh(l, base_);
}

}  // namespace kv::standalone

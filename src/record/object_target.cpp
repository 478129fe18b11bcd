#include "record/object_target.h"

#include "cache/reader.h"
#include "object/params.h"

namespace kv {

namespace P = param;

CacheObjectTarget::CacheObjectTarget(host::Interface& ip, kvCache_obj& obj)
    : ip_(ip), obj_(obj), validator_(ip, &obj, nullptr) {}

std::vector<host::Node*> CacheObjectTarget::Nodes() const {
  const ParamBlock& pb = obj_.Params();
  std::vector<host::Node*> out;
  const int n = pb.Count(P::kNodes);
  out.reserve(static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) out.push_back(pb.GetNode(P::kNodes, i));
  return out;
}

std::string CacheObjectTarget::FileName() const {
  return obj_.Params().GetString(P::kFileName);
}
int CacheObjectTarget::RecStart() const {
  return obj_.Params().GetInt(P::kRecStart);
}
int CacheObjectTarget::RecEnd() const {
  return obj_.Params().GetInt(P::kRecEnd);
}
float CacheObjectTarget::RecStep() const {
  return obj_.Params().GetFloat(P::kRecStep);
}
bool CacheObjectTarget::SaveMaterial() const {
  return obj_.Params().GetBool(P::kRecSaveMaterial);
}
bool CacheObjectTarget::ClearNodeList() const {
  return obj_.Params().GetBool(P::kRecClearNodeList);
}
bool CacheObjectTarget::WriteDeform() const {
  return obj_.Params().GetBool(P::kRecWriteDeform);
}
bool CacheObjectTarget::WriteTopology() const {
  return obj_.Params().GetBool(P::kRecWriteTopology);
}

host::Node* CacheObjectTarget::OwnNode() const {
  const std::vector<host::Node*> nodes = ip_.NodesReferencing(&obj_);
  return nodes.empty() ? nullptr : nodes.front();
}

bool CacheObjectTarget::AcceptsNode(host::Node* node) const {
  return validator_.Validate(node, ip_.GetTime());
}

void CacheObjectTarget::OnRecorded(const std::string& path) {
  ParamBlock& pb = obj_.Params();
  const int start = RecStart();
  const int end = RecEnd();
  pb.SetInt(P::kPlayStart, 0, start);
  pb.SetInt(P::kExplodeStart, 0, start);
  pb.SetInt(P::kExplodeEnd, 0, end);
  pb.SetString(P::kFileName, path);
  obj_.InvalidateAndNotify();
}

void CacheObjectTarget::EmptyNodeList() {
  obj_.Params().SetCount(P::kNodes, 0);
}

void CacheObjectTarget::SetStatus(const std::string& text, int percent) {
  obj_.SetStatusText2(text);
  obj_.SetProgress(percent, percent < 0 ? -1 : 100);
}

void RegistryRefresher::FileRewritten(const std::string& path, RecordTarget& target) {
  // Readers keep their file open: the old content stays readable through it until it opens
  // the new file.
  if (KelvaneTools::kvCacheReader* reader = registry_.Reader(path)) reader->Open();
  for (void* user : registry_.Users(path)) {
    auto* state = static_cast<PlaybackState*>(user);
    if (state && state->owner) state->owner->InvalidateAndNotify();
  }
  // An existing entry's reader was reopened above; a new entry opens its reader itself.
  if (auto* t = dynamic_cast<CacheObjectTarget*>(&target))
    registry_.Acquire(&t->Object().Playback(), path);
}

RecordResult RecordCacheObject(Recorder& recorder, kvCache_obj& obj, const RecordOptions& opt) {
  CacheObjectTarget target(obj.Host(), obj);
  return recorder.Record(target, opt);
}

}  // namespace kv

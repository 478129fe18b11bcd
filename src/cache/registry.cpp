#include "cache/registry.h"

#include <algorithm>

namespace KelvaneTools {

kvCacheReader* kvCacheRegistry::Ready(Entry& e) {
  if (e.reader->InError()) e.reader->Open();
  return e.reader.get();
}

kvCacheRegistry::Acquired kvCacheRegistry::Acquire(void* user, const std::string& fileName) {
  Acquired out;
  if (auto it = entries_.find(fileName); it != entries_.end()) {
    auto& users = it->second.users;
    if (std::find(users.begin(), users.end(), user) == users.end()) {
      users.push_back(user);
      out.added = true;
    }
    out.reader = it->second.reader.get();
    return out;
  }
  Release(user);
  Entry& e = entries_[fileName];
  e.users.push_back(user);
  e.reader = std::make_unique<kvCacheReader>(fileName, host_);
  e.reader->Open();
  out.reader = e.reader.get();
  out.created = true;
  return out;
}

kvCacheReader* kvCacheRegistry::Find(void* user) {
  for (auto& [name, e] : entries_)
    if (std::find(e.users.begin(), e.users.end(), user) != e.users.end()) return Ready(e);
  return nullptr;
}

kvCacheReader* kvCacheRegistry::Reader(const std::string& fileName) {
  auto it = entries_.find(fileName);
  return it == entries_.end() ? nullptr : Ready(it->second);
}

const std::string* kvCacheRegistry::FileOf(void* user) const {
  for (const auto& [name, e] : entries_)
    if (std::find(e.users.begin(), e.users.end(), user) != e.users.end()) return &name;
  return nullptr;
}

std::vector<void*> kvCacheRegistry::Users(const std::string& fileName) const {
  auto it = entries_.find(fileName);
  return it == entries_.end() ? std::vector<void*>{} : it->second.users;
}

int kvCacheRegistry::UserCount(const std::string& fileName) const {
  auto it = entries_.find(fileName);
  return it == entries_.end() ? 0 : static_cast<int>(it->second.users.size());
}

void* kvCacheRegistry::User(const std::string& fileName, int i) const {
  auto it = entries_.find(fileName);
  if (it == entries_.end() || i < 0 || i >= static_cast<int>(it->second.users.size()))
    return nullptr;
  return it->second.users[static_cast<size_t>(i)];
}

std::vector<std::string> kvCacheRegistry::FileNames() const {
  std::vector<std::string> names;
  names.reserve(entries_.size());
  for (const auto& [name, e] : entries_) names.push_back(name);
  return names;
}

bool kvCacheRegistry::CloseFile(const std::string& fileName) {
  auto it = entries_.find(fileName);
  if (it == entries_.end() || !it->second.reader->IsOpen()) return false;
  it->second.reader->Close();
  return true;
}

void kvCacheRegistry::ReopenFile(const std::string& fileName) {
  auto it = entries_.find(fileName);
  if (it != entries_.end()) it->second.reader->OpenFile();
}

void kvCacheRegistry::Release(void* user) {
  for (auto it = entries_.begin(); it != entries_.end();) {
    auto& users = it->second.users;
    users.erase(std::remove(users.begin(), users.end(), user), users.end());
    it = users.empty() ? entries_.erase(it) : std::next(it);
  }
}

}  // namespace KelvaneTools

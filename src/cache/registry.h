// The shared cache registry: one reader per distinct file name, shared by every cache object
// that plays that file. Users are opaque handles (a cache object's playback state); the
// registry never dereferences them. Main thread only.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "cache/reader.h"

namespace KelvaneTools {

class kvCacheRegistry {
 public:
  // `host` is handed to every reader for its material library (may be null).
  explicit kvCacheRegistry(kv::host::Interface* host = nullptr) : host_(host) {}

  struct Acquired {
    kvCacheReader* reader = nullptr;
    bool added = false;    // the user joined an existing entry
    bool created = false;  // a new entry was made and its reader opened just now
  };
  // The reader for `fileName`. An existing entry gains the user (without leaving other
  // entries). Otherwise the user leaves every entry it is in and a new entry is created with
  // a reader opened at once (check its error state). File names compare exactly: names
  // differing in letter case are different files.
  Acquired Acquire(void* user, const std::string& fileName);
  // The reader of the entry whose users hold `user`, reopened first when it is in error.
  kvCacheReader* Find(void* user);
  // The reader of `fileName`'s entry, reopened first when in error; null without an entry.
  kvCacheReader* Reader(const std::string& fileName);
  // The file name of the entry that holds `user`, or null.
  const std::string* FileOf(void* user) const;
  std::vector<void*> Users(const std::string& fileName) const;
  int UserCount(const std::string& fileName) const;
  void* User(const std::string& fileName, int i) const;
  // Closes the file handle of `fileName`'s reader, keeping its index and loaded samples, so
  // that the file can be replaced on a system that refuses to replace an open file. True when
  // a handle was open. The reader opens the file again by itself on its next read.
  bool CloseFile(const std::string& fileName);
  // Opens the handle again after CloseFile answered true (the file was not replaced).
  void ReopenFile(const std::string& fileName);
  // Removes the user from every entry; entries left without users are destroyed.
  void Release(void* user);
  int EntryCount() const { return static_cast<int>(entries_.size()); }
  // Every entry's file name, ascending (the registry's key order).
  std::vector<std::string> FileNames() const;

 private:
  struct Entry {
    std::vector<void*> users;
    std::unique_ptr<kvCacheReader> reader;
  };
  static kvCacheReader* Ready(Entry& e);

  kv::host::Interface* host_;
  std::map<std::string, Entry> entries_;
};

}  // namespace KelvaneTools

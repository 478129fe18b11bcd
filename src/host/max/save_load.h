// The scene file's chunk streams, SDK side, as the core's ::ISave and ::ILoad.
#pragma once

#include "host/max/sdk.h"
#include "host/scene.h"

namespace kv::max {

class SaveAdapter final : public host::ISave {
 public:
  explicit SaveAdapter(::ISave& s) : s_(s) {}
  void BeginChunk(uint16_t id) override { s_.BeginChunk(id); }
  void EndChunk() override { s_.EndChunk(); }
  bool Write(const void* data, size_t bytes) override {
    ULONG written = 0;
    return s_.Write(data, static_cast<ULONG>(bytes), &written) == IO_OK && written == bytes;
  }

 private:
  ::ISave& s_;
};

class LoadAdapter final : public host::ILoad {
 public:
  explicit LoadAdapter(::ILoad& l) : l_(l) {}
  host::IOResult OpenChunk() override { return Map(l_.OpenChunk()); }
  uint16_t CurChunkID() const override { return l_.CurChunkID(); }
  host::IOResult CloseChunk() override { return Map(l_.CloseChunk()); }
  host::IOResult Read(void* data, size_t bytes) override {
    ULONG read = 0;
    if (l_.Read(data, static_cast<ULONG>(bytes), &read) != IO_OK || read != bytes) {
      return host::IOResult::Error;
    }
    return host::IOResult::Ok;
  }

 private:
  static host::IOResult Map(::IOResult r) {
    return r == IO_OK ? host::IOResult::Ok
                      : (r == IO_END ? host::IOResult::End : host::IOResult::Error);
  }
  ::ILoad& l_;
};

}  // namespace kv::max

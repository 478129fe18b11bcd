// The standalone scene file: a whole scene (time settings, materials, objects, nodes with
// their hierarchy, transform controllers and visibility tracks) in chunks of id and length,
// as the host's scene files frame them, so that each object's own Save/Load round trips.
//
// Layout, little-endian: "KVSCENE\0", u32 version (1), then top-level chunks, each
// u16 id, u32 payload length, payload (which may hold further chunks):
//   0x0001 time: i32 frame rate, i32 range start, i32 range end, i32 current time
//   0x0002 materials: one 0x0021 per material: u8 kind (0 standard, 1 multi), string name,
//          then 3 floats diffuse, or u32 count and i32 material indices (-1: empty slot)
//   0x0003 objects: one 0x0031 per object: u32 class id a, u32 class id b, then chunk
//          0x0032 holding the object's own Save data
//   0x0004 nodes: one 0x0041 per node: 0x0042 fields (string name, i32 parent, i32 object,
//          i32 material, u32 wire colour, u8 flags (1 hidden, 2 selected, 4 inherits
//          visibility), 12 floats object offset), 0x0043 transform controller,
//          0x0044 visibility track when there is one
// A string is u32 length and that many UTF-8 bytes. Indices count from 0; -1 is none.
// Deleted nodes are not saved.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/standalone/scene.h"

namespace kv::standalone {

// Factories for object classes the scene does not know natively (the cache object): the
// object library registers itself here from the tool and the tests.
class ClassRegistry {
 public:
  using Factory = std::function<std::unique_ptr<host::Object>(Scene&)>;
  void Register(host::ClassId id, Factory f) { factories_[Key(id)] = std::move(f); }
  // A new object of the class made for loading, or null when the class is unknown.
  std::unique_ptr<host::Object> Create(host::ClassId id, Scene& scene) const;
  static ClassRegistry& Global();

 private:
  static uint64_t Key(host::ClassId id) { return (uint64_t{id.a} << 32) | id.b; }
  std::map<uint64_t, Factory> factories_;
};

// Chunk streams over memory. The writer patches each chunk's length when it ends.
class ChunkWriter final : public host::ISave {
 public:
  void BeginChunk(uint16_t id) override;
  void EndChunk() override;
  bool Write(const void* data, size_t bytes) override;
  const std::vector<uint8_t>& Bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
  std::vector<size_t> open_;  // where each open chunk's length field is
};

// Reads chunks within [data, data + size); every length is checked against the bytes left
// in the enclosing chunk before it is trusted.
class ChunkReader final : public host::ILoad {
 public:
  ChunkReader(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  host::IOResult OpenChunk() override;
  uint16_t CurChunkID() const override { return ids_.empty() ? 0 : ids_.back(); }
  host::IOResult CloseChunk() override;
  host::IOResult Read(void* data, size_t bytes) override;
  size_t Left() const { return End() - pos_; }

 private:
  size_t End() const { return ends_.empty() ? size_ : ends_.back(); }
  const uint8_t* data_;
  size_t size_, pos_ = 0;
  std::vector<size_t> ends_;
  std::vector<uint16_t> ids_;
};

bool SaveScene(const Scene& scene, const std::string& path, std::string& error);
// A new scene read from the file, or null with a message in `error` (nothing else changes).
std::unique_ptr<Scene> LoadScene(const std::string& path, std::string& error,
                                 const ClassRegistry& registry = ClassRegistry::Global());

}  // namespace kv::standalone

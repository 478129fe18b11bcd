// The cache object's parameter block: the value of every parameter of params.h, read and
// written by id at a time, with undo, clamping, animation through host controllers, a change
// callback and persistence.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "geom/time.h"
#include "host/interface.h"
#include "object/params.h"

namespace kv {

// Computes the names of list entries (the names of `elementFrames` entries come from the
// element groups). The block's other accessor operations do nothing, so only this one exists.
class ParamAccessor {
 public:
  virtual ~ParamAccessor() = default;
  // The same text is returned whether a localised or a non-localised name is asked for.
  virtual std::string GetEntryName(int id, int index) const = 0;
};

// Values by parameter id.
//
// Reading: numeric getters convert between int, bool and float parameters (an int read of a
// float rounds to nearest); animatable parameters are evaluated at t, the others ignore t.
// Reading a wrong id or type gives 0, "" or null.
//
// Writing: numeric values are clamped to the parameter's limits; a plain bool is stored as 0
// or 1. On an animatable parameter a write in animate mode makes a key at t; outside animate
// mode it changes the constant value (with keys present the controller decides, see
// host::Control::SetValue). While the host's hold is open every write puts an undo record.
// After a write the change callback is told the id (also after undo and redo of one). Setters
// return false for an unknown id, a type that cannot take the value, or an index out of range.
//
// Lifetime: undo records point at the block; the block must outlive the host's undo stack
// entries it made, as a host reference target does.
class ParamBlock {
 public:
  using ChangeCallback = std::function<void(int id)>;

  // Builds every parameter with its default; animatable values get a controller from
  // ip.NewControl (a plain value when the host gives none).
  explicit ParamBlock(host::Interface& ip);
  ~ParamBlock();
  ParamBlock(const ParamBlock&) = delete;
  ParamBlock& operator=(const ParamBlock&) = delete;

  // A deep copy: controllers are cloned, node references shared. No callback, no accessor.
  std::unique_ptr<ParamBlock> Clone() const;

  host::Interface& Host() const { return ip_; }

  // ---- reading
  int GetInt(int id, TimeValue t = 0) const;
  float GetFloat(int id, TimeValue t = 0) const;
  bool GetBool(int id, TimeValue t = 0) const { return GetInt(id, t) != 0; }
  const std::string& GetString(int id) const;
  host::Node* GetNode(int id) const { return GetNode(id, 0); }
  // Lists (and scalars, as lists of one).
  int Count(int id) const;
  host::Node* GetNode(int id, int index) const;
  float GetListFloat(int id, int index, TimeValue t) const;
  // The controller behind an animatable value, or null.
  host::Control* GetController(int id, int index = 0) const;
  // Whether the value is animated in the host's sense: a controller was assigned to it, which
  // happens when it first gets keys and lasts when every key is deleted again. A value that
  // never had keys is a plain constant.
  bool IsControlled(int id, int index = 0) const;

  // ---- writing
  bool SetInt(int id, TimeValue t, int v);
  bool SetFloat(int id, TimeValue t, float v);
  bool SetString(int id, std::string_view s);
  bool SetNode(int id, host::Node* n) { return SetListNode(id, 0, n); }
  bool SetListNode(int id, int index, host::Node* n);
  bool SetListFloat(int id, int index, TimeValue t, float v);
  // List editing: new entries are empty (null node, value 0).
  bool SetCount(int id, int n);
  bool Append(int id, host::Node* n);
  bool Delete(int id, int start, int num);

  // Parameters with the reset flag back to their defaults (lists and nodes are left alone).
  void ResetAll();
  bool Reset(int id);

  // ---- creation
  // For a new object: playStart, recStart and explodeStart become the scene's animation range
  // start, recEnd and explodeEnd its end, as whole frames (truncating). No keys, no undo, no
  // callback.
  void ApplyCreationDefaults();
  // For new and loaded objects alike: playFPS becomes the scene's frame rate, without a key.
  void ApplySceneFrameRate();

  // ---- lookup
  // Id of the first parameter whose script name is `name`, or -1.
  static int IdOfScriptName(std::string_view name);

  // ---- change reporting and entry names
  void SetChangeCallback(ChangeCallback cb) { onChange_ = std::move(cb); }
  int LastChangedId() const { return lastChanged_; }  // -1 before any change
  // True while undo or redo puts a value back. Rules that derive one value from another (a
  // range end pushed by the other) must not run then: each undo record restores its own
  // value exactly, and a value derived meanwhile would be taken as the other record's state.
  bool Restoring() const { return restoring_ || ip_.GetHold().RestoringOrRedoing(); }
  void SetAccessor(const ParamAccessor* a) { accessor_ = a; }
  // Computed name of a list entry ("" without an accessor).
  std::string GetEntryName(int id, int index) const;

  // ---- persistence
  // Layout, inside the chunk the owner opens (all numbers little-endian):
  //   chunk 0x0001: u32 format version (1), u32 number of parameter chunks that follow
  //   chunk 0x0002, one per parameter: i32 id, u8 type (params.h Type), u32 entry count,
  //     then per entry, by type:
  //       file name        u32 byte length, UTF-8 bytes
  //       node             u32 byte length, UTF-8 node name (0: none)
  //       animatable       f32 constant value, u32 key count, keys as (i32 tick, f32 value)
  //       int, bool        i32
  //       float, world     f32
  //   chunk 0x0003, only when some animatable entry has a controller but no keys (see
  //     IsControlled): u32 count, then per entry i32 id, u32 index
  // Nodes are stored by name and found again by name on first use after loading (the scene's
  // nodes may load after the object). Keys keep time and value; their interpolation is the
  // host's default for new keys. Chunks and parameters the block does not know are skipped.
  bool Save(host::ISave& s) const;
  // Values missing from the stream keep their current values. On Error (a truncated or corrupt
  // stream) nothing is changed.
  host::IOResult Load(host::ILoad& l);

  static constexpr uint16_t kChunkHeader = 0x0001;
  static constexpr uint16_t kChunkParam = 0x0002;
  static constexpr uint16_t kChunkKeylessControllers = 0x0003;
  static constexpr uint32_t kFormatVersion = 1;

 private:
  struct Entry {
    int i = 0;
    float f = 0.0f;
    mutable host::Node* node = nullptr;
    mutable std::string pendingName;  // a loaded node reference not yet found by name
    mutable bool controlled = false;  // see IsControlled
    std::unique_ptr<host::Control> ctrl;
  };
  struct Slot {
    std::vector<Entry> entries;  // scalars hold exactly one
    std::string str;
  };
  friend class Restore_Param;

  const param::ParamDef* Def(int id) const { return param::FindParamDef(id); }
  Entry* At(int id, int index);
  const Entry* At(int id, int index) const;
  Entry MakeEntry(const param::ParamDef& d) const;
  Slot CopySlot(const Slot& s) const;
  void SetDefault(const param::ParamDef& d);
  host::Node* ResolveNode(const Entry& e) const;
  // Puts an undo record for `id` when the hold is open, then the caller changes the slot.
  void BeforeChange(int id);
  void Changed(int id);
  void ChangedByRestore(int id);
  float ClampFloat(const param::ParamDef& d, float v) const;
  int ClampInt(const param::ParamDef& d, int v) const;
  void WriteNumeric(const param::ParamDef& d, Entry& e, TimeValue t, double v, bool makeKey);

  host::Interface& ip_;
  std::array<Slot, param::kNumParams> slots_;
  ChangeCallback onChange_;
  const ParamAccessor* accessor_ = nullptr;
  int lastChanged_ = -1;
  bool restoring_ = false;
};

}  // namespace kv

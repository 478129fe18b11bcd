// Scene objects, nodes and materials as the core sees them. The host owns all of them; the
// core holds plain pointers that stay valid while the host keeps the thing (a deleted node
// stays addressable and reports IsDeleted()).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "geom/matrix3.h"
#include "geom/mesh.h"
#include "geom/time.h"

namespace kv::host {

class Control;
class ISave;
class ILoad;
enum class IOResult;

struct ClassId {
  uint32_t a = 0, b = 0;
  constexpr bool operator==(const ClassId&) const = default;
};

inline constexpr ClassId kTriObjectClassId{0x0009, 0};
inline constexpr ClassId kOmniLightClassId{0x1011, 0};
inline constexpr ClassId kSpotLightClassId{0x1012, 0};
inline constexpr ClassId kDirLightClassId{0x1013, 0};
inline constexpr ClassId kPointHelperClassId{0x2013, 0};
inline constexpr ClassId kKvCacheClassId{0x74131F4A, 0x5C615BBA};

enum class SuperClass { Geometry, Shape, Light, Helper, Camera, Other };

// Anything a node can carry.
class Object {
 public:
  virtual ~Object() = default;
  virtual ClassId GetClassId() const = 0;
  virtual SuperClass GetSuperClass() const = 0;
  virtual bool IsTriObject() const { return GetClassId() == kTriObjectClassId; }
  virtual bool CanConvertToTriObject() const { return IsTriObject(); }
  // The object's triangle mesh at t in object space; the render mesh when `render` is set.
  // False when the object has no mesh (lights, helpers) or it is empty.
  virtual bool GetTriMesh(TimeValue t, bool render, Mesh& out) = 0;
  // A light's far attenuation end at t (0 for anything that is not a light).
  virtual float GetFarAttenEnd(TimeValue t) const {
    (void)t;
    return 0.0f;
  }
  // A deep copy, for the host's clone and instance-to-copy operations.
  virtual std::unique_ptr<Object> Clone() const = 0;
  // The object's own data in the scene file, inside the chunk the host opens for it.
  virtual bool Save(ISave& s) const = 0;
  virtual IOResult Load(ILoad& l) = 0;
};

class Mtl {
 public:
  virtual ~Mtl() = default;
  virtual std::string GetName() const = 0;
  virtual void SetName(const std::string& name) = 0;
  virtual int NumSubMtls() const = 0;  // 0 for a plain material
  virtual Mtl* GetSubMtl(int i) const = 0;
  bool IsMultiMtl() const { return NumSubMtls() > 0; }
  // The colour a shaded viewport shows the material in (a multi-material: its first
  // sub-material's).
  virtual Point3 GetDisplayColor() const {
    for (int i = 0; i < NumSubMtls(); ++i)
      if (const Mtl* m = GetSubMtl(i)) return m->GetDisplayColor();
    return {0.5f, 0.5f, 0.5f};
  }
};

// An ordered set of materials. Does not own them: the host keeps every material alive.
class MtlLib {
 public:
  virtual ~MtlLib() = default;
  virtual int Count() const = 0;
  virtual Mtl* At(int i) const = 0;
  virtual void Add(Mtl* m) = 0;
  virtual void Clear() = 0;
};

class Node {
 public:
  virtual ~Node() = default;
  virtual std::string GetName() const = 0;  // UTF-8
  virtual void SetName(const std::string& name) = 0;
  virtual Node* GetParent() const = 0;  // null at the scene root
  virtual int NumChildren() const = 0;
  virtual Node* GetChild(int i) const = 0;

  // Node transform (pivot to world) and object transform (object space to world: the node
  // transform with the object offset applied).
  virtual Matrix3 GetNodeTM(TimeValue t) const = 0;
  virtual Matrix3 GetObjectTM(TimeValue t) const = 0;
  // Visibility at t, multiplied down the hierarchy where the node inherits visibility.
  virtual float GetVisibility(TimeValue t) const = 0;

  virtual Object* GetObjectRef() const = 0;
  virtual Mtl* GetMtl() const = 0;
  virtual void SetMtl(Mtl* m) = 0;
  virtual uint32_t GetWireColor() const = 0;  // 0x00BBGGRR
  virtual bool IsDeleted() const = 0;         // the host's deleted mark (flag bit 14)
  virtual bool Selected() const = 0;
  virtual bool IsHidden() const = 0;
  virtual void Hide(bool on) = 0;

  // The transform controller (a PRS controller), and the visibility track (null if none).
  virtual Control* GetTMController() const = 0;
  virtual Control* GetVisController() const = 0;

  // Setters the core uses when it builds nodes. The defaults do nothing (a host that cannot);
  // the standalone host implements them all, undoably when a hold is open.
  virtual void SetSelected(bool on) { (void)on; }
  virtual void SetWireColor(uint32_t bgr) { (void)bgr; }
  virtual bool GetInheritVisibility() const { return true; }
  virtual void SetInheritVisibility(bool on) { (void)on; }
  // Gives the node a new transform controller (a PRS controller) or visibility track (a
  // float controller); false when the kind does not fit.
  virtual bool SetTMController(std::unique_ptr<Control> c) {
    (void)c;
    return false;
  }
  virtual bool SetVisController(std::unique_ptr<Control> c) {
    (void)c;
    return false;
  }
  // Copies the node's display and render properties (wire colour, inherit visibility,
  // hidden state) from another node; not its name, transform, object or material.
  virtual void CopyProperties(const Node& from) { (void)from; }
  // The object offset (object space to pivot); constant over time. By default what lies
  // between the object and the node transform.
  virtual Matrix3 GetObjOffsetTM() const { return GetObjectTM(0) * Inverse(GetNodeTM(0)); }
  // Frozen nodes draw in the freeze colour and cannot be picked by the user.
  virtual bool IsFrozen() const { return false; }

  // Evaluates the node's object at t to a triangle mesh in object space: geometry objects
  // convert, a shape only when it renders as a mesh. False for anything else or an empty mesh.
  bool EvalTriMesh(TimeValue t, bool render, Mesh& out) const {
    Object* o = GetObjectRef();
    if (!o) return false;
    const SuperClass sc = o->GetSuperClass();
    if (sc != SuperClass::Geometry && sc != SuperClass::Shape) return false;
    return o->GetTriMesh(t, render, out) && out.numVerts() > 0 && out.numFaces() > 0;
  }
};

// Chunked scene-file streams, modelled on the host's ISave/ILoad.
class ISave {
 public:
  virtual ~ISave() = default;
  virtual void BeginChunk(uint16_t id) = 0;
  virtual void EndChunk() = 0;
  virtual bool Write(const void* data, size_t bytes) = 0;
};

enum class IOResult { Ok, Error, End };  // End: no further chunk

class ILoad {
 public:
  virtual ~ILoad() = default;
  // Enters the next chunk at this level; End when there is none.
  virtual IOResult OpenChunk() = 0;
  virtual uint16_t CurChunkID() const = 0;
  virtual IOResult CloseChunk() = 0;
  // Reads exactly `bytes` from the open chunk; Error on a short read.
  virtual IOResult Read(void* data, size_t bytes) = 0;
};

}  // namespace kv::host

// The KV_Cache_Fns interface of a cache object: the mixin with one virtual operation per id,
// the one dispatcher by id, and its implementation over a cache object.
//
// Functions raise the scripting language's runtime error by throwing ScriptError; the
// dispatcher catches it and hands back the text, so no exception leaves Dispatch and a host
// raises the error its own way.
#pragma once

#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "geom/time.h"
#include "host/controller.h"
#include "host/interface.h"
#include "script/functions.h"
#include "script/value.h"

namespace kv {
class kvCache_obj;
}

namespace kv::script {

// A runtime error with its exact text.
class ScriptError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The host's text for an argument asked for beyond those supplied.
inline constexpr const char* kArgumentOutOfBounds =
    "Argument index out of bounds, passed into a MaxSDK::Array::operator[]";

// Dispatch results, as the host's function publishing counts them.
inline constexpr int kDispatchOk = 1;
inline constexpr int kDispatchFailed = 0;  // a runtime error: `error` holds its text

// What `explode` asks of the explode subsystem.
struct ExplodeRequest {
  Interval interval;
  TimeValue step = 1;
  bool selectedOnly = false;
  bool reduceKeys = true;
  TimeValue reduceStep = 0;
  float reduceThresh = 0.02f;
  host::Node* cacheNode = nullptr;  // null: the first node carrying the object
};

// Explode and key reduction, supplied by the explode subsystem at start-up (SetExplodeOps);
// the interface answers an error for both while none is set. Called from a script: no
// prompts, and the created nodes are not selected.
class ExplodeOps {
 public:
  virtual ~ExplodeOps() = default;
  // The created nodes in `created` (empty when nothing was exploded).
  virtual void Explode(kvCache_obj& obj, const ExplodeRequest& r,
                       std::vector<host::Node*>& created) = 0;
  // True when every controller was processed, false when cancelled.
  virtual bool ReduceKeys(kvCache_obj& obj, const std::vector<host::Control*>& controllers,
                          Interval interval, TimeValue step, float thresh) = 0;
};
// Not owned; null unsets.
void SetExplodeOps(ExplodeOps* ops);
ExplodeOps* GetExplodeOps();
// Sets the explode subsystem's operations; each host calls it once at start-up.
void InstallExplodeOps();

// The mixin: one virtual operation per id, in id order (30 and 31 in their places).
class kvCache_mxs {
 public:
  virtual ~kvCache_mxs() = default;

  virtual bool record(const Value& fileName) = 0;
  virtual Value getElementNames(const std::string& pattern) = 0;
  virtual Value getElementSelection() = 0;
  virtual Value setElementSelection(const Value& indices) = 0;
  virtual bool addGroup(const std::string& groupName, bool addSelected) = 0;
  virtual bool deleteGroup(const std::string& groupName) = 0;
  virtual bool renameGroup(const std::string& groupName, const std::string& newName) = 0;
  virtual Value getSelectedGroup() = 0;
  virtual bool setSelectedGroup(const std::string& groupName) = 0;
  virtual Value getGroupMode(const std::string& groupName) = 0;
  virtual bool setGroupMode(const std::string& groupName, const std::string& mode) = 0;
  virtual Value getGroupElements(const std::string& groupName) = 0;
  virtual Value setGroupElements(const std::string& groupName, const Value& indices) = 0;
  virtual Value addGroupElements(const std::string& groupName, const Value& indices) = 0;
  virtual bool removeGroupElements(const std::string& groupName, const Value& indices) = 0;
  virtual bool makeGroupElementsUnique(const std::string& groupName) = 0;
  virtual bool getGroupEnabled(const std::string& groupName) = 0;
  virtual bool setGroupEnabled(const std::string& groupName, bool enabled) = 0;
  virtual float getGroupDelay(const std::string& groupName) = 0;
  virtual bool setGroupDelay(const std::string& groupName, float delay) = 0;
  virtual bool getGroupDeleteByAge(const std::string& groupName) = 0;
  virtual bool setGroupDeleteByAge(const std::string& groupName, bool byAge) = 0;
  virtual float getGroupDeleteAge(const std::string& groupName) = 0;
  virtual bool setGroupDeleteAge(const std::string& groupName, float age) = 0;
  virtual bool getGroupDeleteByDistance(const std::string& groupName) = 0;
  virtual bool setGroupDeleteByDistance(const std::string& groupName, bool byDistance) = 0;
  virtual float getGroupDeleteDistance(const std::string& groupName) = 0;
  virtual bool setGroupDeleteDistance(const std::string& groupName, float dist) = 0;
  virtual int getGroupMatID(const std::string& groupName) = 0;
  virtual bool setGroupMatID(const std::string& groupName, int matID) = 0;
  virtual bool getGroupTrigger(const std::string& groupName) = 0;
  virtual bool setGroupTrigger(const std::string& groupName, bool on) = 0;
  virtual void deleteAllGroups() = 0;
  virtual Value explode(const ExplodeRequest& r) = 0;
  virtual bool reduceKeys(const Value& controller, Interval interval, TimeValue step,
                          float thresh) = 0;
  virtual void debugPrint() = 0;
  virtual float getVersion() = 0;
  virtual int getFileVersion() = 0;
  virtual TimeValue getCacheStart() = 0;
  virtual TimeValue getCacheEnd() = 0;
  virtual int getCacheStepSize() = 0;
  virtual int getCacheFrameRate() = 0;
  virtual int getCacheNumNodes() = 0;
  virtual int getCacheNumSamples() = 0;
  virtual bool getCacheHasVisibility() = 0;
  virtual bool getCacheHasSpecifiedNormals() = 0;

  // Calls operation `id` with `args` (already of the table's types: keyword arguments follow
  // the positional ones) and stores its result. kNoSuchFunction for an id outside 0 to 45;
  // kDispatchFailed with the runtime error's text in `error`; else kDispatchOk.
  int Dispatch(int id, TimeValue t, Value& result, const std::vector<Value>& args,
               std::string& error);
};

// The interface over one cache object. Editing functions go through the group operations,
// so each is one undo step with the rollout's label.
class CacheFns final : public kvCache_mxs {
 public:
  explicit CacheFns(kvCache_obj& obj) : obj_(obj) {}

  bool record(const Value& fileName) override;
  Value getElementNames(const std::string& pattern) override;
  Value getElementSelection() override;
  Value setElementSelection(const Value& indices) override;
  bool addGroup(const std::string& groupName, bool addSelected) override;
  bool deleteGroup(const std::string& groupName) override;
  bool renameGroup(const std::string& groupName, const std::string& newName) override;
  Value getSelectedGroup() override;
  bool setSelectedGroup(const std::string& groupName) override;
  Value getGroupMode(const std::string& groupName) override;
  bool setGroupMode(const std::string& groupName, const std::string& mode) override;
  Value getGroupElements(const std::string& groupName) override;
  Value setGroupElements(const std::string& groupName, const Value& indices) override;
  Value addGroupElements(const std::string& groupName, const Value& indices) override;
  bool removeGroupElements(const std::string& groupName, const Value& indices) override;
  bool makeGroupElementsUnique(const std::string& groupName) override;
  bool getGroupEnabled(const std::string& groupName) override;
  bool setGroupEnabled(const std::string& groupName, bool enabled) override;
  float getGroupDelay(const std::string& groupName) override;
  bool setGroupDelay(const std::string& groupName, float delay) override;
  bool getGroupDeleteByAge(const std::string& groupName) override;
  bool setGroupDeleteByAge(const std::string& groupName, bool byAge) override;
  float getGroupDeleteAge(const std::string& groupName) override;
  bool setGroupDeleteAge(const std::string& groupName, float age) override;
  bool getGroupDeleteByDistance(const std::string& groupName) override;
  bool setGroupDeleteByDistance(const std::string& groupName, bool byDistance) override;
  float getGroupDeleteDistance(const std::string& groupName) override;
  bool setGroupDeleteDistance(const std::string& groupName, float dist) override;
  int getGroupMatID(const std::string& groupName) override;
  bool setGroupMatID(const std::string& groupName, int matID) override;
  bool getGroupTrigger(const std::string& groupName) override;
  bool setGroupTrigger(const std::string& groupName, bool on) override;
  void deleteAllGroups() override;
  Value explode(const ExplodeRequest& r) override;
  bool reduceKeys(const Value& controller, Interval interval, TimeValue step,
                  float thresh) override;
  void debugPrint() override;
  float getVersion() override { return kInterfaceVersion; }
  int getFileVersion() override;
  TimeValue getCacheStart() override;
  TimeValue getCacheEnd() override;
  int getCacheStepSize() override;
  int getCacheFrameRate() override;
  int getCacheNumNodes() override;
  int getCacheNumSamples() override;
  bool getCacheHasVisibility() override;
  bool getCacheHasSpecifiedNormals() override;

 private:
  // The element count of the loaded cache; 0 without a reader, with a reader in error or with
  // a cache of no elements.
  int LoadedElements() const;
  // The group called `name`, or the "No group with that name exists" error.
  void RequireGroup(const std::string& name) const;

  kvCache_obj& obj_;
};

// A group mode as scripts name it ("delete", "holdin", ...); "" for a value no mode has.
std::string_view GroupModeName(uint32_t mode);

// The controllers a `reduceKeys` argument names: a controller as it is, a node's position,
// rotation and scale controllers, an array mixing both. Raises the controller-parameter error
// with the offending value (the element, inside an array) for anything else.
std::vector<host::Control*> CollectControllers(const Value& v, const host::Interface& ip);

}  // namespace kv::script

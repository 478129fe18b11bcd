// How the library announces the cache object to a host: the identity and answers of its class
// descriptor, the plug-in entry points, and the creation drag that sizes a new object's icon.
// Host-neutral, so that what 3ds Max is told is the same thing the tests check; the SDK glue in
// host/max only forwards to it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string_view>

#include "geom/matrix3.h"
#include "geom/point.h"
#include "host/interface.h"
#include "res/strings.h"

namespace KelvaneTools {
class kvCacheRegistry;
}

namespace kv {

class kvCache_obj;

namespace registration {

// The SDK version the library is built for. 3ds Max refuses a library whose number it does not
// accept, so this is the 3ds Max 2023 value: release in the high 16 bits, API number and SDK
// revision below.
inline constexpr uint32_t kMaxRelease = 25000;
inline constexpr uint32_t kMaxApiNum = 62;
inline constexpr uint32_t kMaxSdkRev = 0;
inline constexpr uint32_t LibVersionOf(uint32_t release, uint32_t api, uint32_t rev) {
  return (release << 16) + (api << 8) + rev;
}
inline constexpr uint32_t kLibVersion = LibVersionOf(kMaxRelease, kMaxApiNum, kMaxSdkRev);

inline constexpr host::ClassId kClassId = host::kKvCacheClassId;
inline constexpr uint32_t kGeomObjectSuperClassId = 0x10;
// Kept out of the string table: scripts and saved scenes need the same name in every language.
inline constexpr std::string_view kNonLocalizedClassName = "KV Cache";
inline constexpr uint32_t kInitialRollupPageState = 0x7FFFFFFF;  // every rollout open
inline constexpr int kNumClasses = 1;

// The string table entries the descriptor answers with.
inline constexpr int kLibDescriptionId = res::IDS_LIBDESCRIPTION;
inline constexpr int kCategoryId = res::IDS_CATEGORY;
inline constexpr int kClassNameId = res::IDS_CLASS_NAME;
inline constexpr int kInternalNameId = res::IDS_INTERNAL_NAME;

// The library's exports, C linkage, exactly these and no others.
inline constexpr std::array<std::string_view, 6> kExports = {"LibDescription", "LibNumberClasses",
                                                             "LibClassDesc",   "LibVersion",
                                                             "LibInitialize",  "LibShutdown"};

// Whether `i` names a class of the library (LibClassDesc hands out null for every other).
constexpr bool IsClassIndex(int i) {
  return i == 0;
}

// A new cache object, or null when memory cannot be had. `loading` is the host's flag: the
// object is about to be filled from a saved scene, so it keeps no creation defaults.
std::unique_ptr<kvCache_obj> CreateObject(host::Interface& ip,
                                          KelvaneTools::kvCacheRegistry& registry, bool loading);

// What the creation drag needs of the object being created.
class CreationTarget {
 public:
  virtual ~CreationTarget() = default;
  // While set, the host does not snap to the object itself as it grows under the mouse.
  virtual void SetSnapSuspended(bool on) = 0;
  // Writes `iconSize` at time 0.
  virtual void SetIconSize(float size) = 0;
};

// Mouse messages and results of a creation callback, with the host's values.
enum MouseMsg : int { kMouseAbort = 0, kMousePoint = 1, kMouseMove = 2 };
enum CreateResult : int { kCreateAbort = -1, kCreateStop = 0, kCreateContinue = 1 };

// The creation drag: the press places the object, the drag sets its icon size, the release
// ends it. One instance serves every creation; its target is set anew each time.
class CreationCallback {
 public:
  void SetTarget(CreationTarget* t) { target_ = t; }
  CreationTarget* Target() const { return target_; }

  // One mouse event. `snapped` is the viewport's snapped world point under the mouse (read
  // only for points 0 and 1); `mat` is the creation matrix, which receives the first point.
  int Proc(int msg, int point, const Point3& snapped, Matrix3& mat);

  const Point3& FirstPoint() const { return p0_; }
  float IconSize() const { return iconSize_; }

 private:
  CreationTarget* target_ = nullptr;
  Point3 p0_, p1_;
  float iconSize_ = 0.0f;
};

// A creation target over a core object: iconSize goes to its parameter block; the snap flag is
// kept here, as a host without snapping has nowhere else to keep it.
class ObjectCreationTarget final : public CreationTarget {
 public:
  explicit ObjectCreationTarget(kvCache_obj& obj) : obj_(obj) {}
  void SetSnapSuspended(bool on) override { snapSuspended_ = on; }
  void SetIconSize(float size) override;
  bool SnapSuspended() const { return snapSuspended_; }

 private:
  kvCache_obj& obj_;
  bool snapSuspended_ = false;
};

}  // namespace registration
}  // namespace kv

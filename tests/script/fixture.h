// A scene with a cache object playing a small hand-made cache, and calls through the script
// interface as a script makes them.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "cache/registry.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "script/cache_fns.h"
#include "script/call.h"
#include "script/literal.h"
#include "support/bytes.h"

namespace kv::script::testing {

namespace fs = std::filesystem;

// A version 2 face record: material id 0, all edges visible, three corners.
inline void Face(kvtest::Bytes& b, uint32_t a, uint32_t v1, uint32_t v2) {
  b.u16(0).u32(1).u8(7).u8(0).u32(a).u32(v1).u32(v2).zeros(36);
}
inline void Sample(kvtest::Bytes& b, float x, float y, float z, bool visible = true) {
  b.f(1).f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(x).f(y).f(z).u8(visible ? 1 : 0);
}

// Two elements, "Box" (a triangle) and "Ball" (a quad), over three samples at frames 0, 1
// and 2 at 30 frames per second, with visibility; `padTo` appends zeros up to that size.
inline std::string TwoElementCache(size_t padTo = 0) {
  kvtest::Bytes b;
  b.raw("KVCACHE").u8(2).u8(0).i32(0).i32(320).i32(160).i32(30).i32(2).i32(3).i32(98);
  b.u32(256).i32(597).u8(1).zeros(256 - 46);
  b.i32(3).raw("Box").f(0).f(0).f(0).f(1).f(1).f(0).i32(3).i32(1).i32(0).u8(0);
  b.i32(4).raw("Ball").f(-1).f(-1).f(0).f(1).f(1).f(0).i32(4).i32(2).i32(0).u8(0);
  b.f(0).f(0).f(0).f(1).f(0).f(0).f(0).f(1).f(0);
  Face(b, 0, 1, 2);
  b.f(-1).f(-1).f(0).f(1).f(-1).f(0).f(1).f(1).f(0).f(-1).f(1).f(0);
  Face(b, 0, 1, 2);
  Face(b, 0, 2, 3);
  for (int s = 0; s < 3; ++s) {
    Sample(b, static_cast<float>(s), 0, 0);
    Sample(b, 0, 0, 5, s < 2);
  }
  if (b.s.size() < padTo) b.zeros(padTo - b.s.size());
  return b.s;
}

class ScriptTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_script_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    scene_ = std::make_unique<standalone::Scene>();
    registry_ = std::make_unique<KelvaneTools::kvCacheRegistry>(scene_.get());
  }
  void TearDown() override {
    fns_.reset();
    scene_.reset();  // its cache objects leave the registry first
    registry_.reset();
    fs::remove_all(dir_);
  }

  std::string Path(const std::string& file) const { return (dir_ / file).string(); }

  // A cache object in node "Cache"; playing the two-element cache unless `withCache` is false.
  kvCache_obj& MakeObject(bool withCache = true) {
    auto obj = std::make_unique<kvCache_obj>(*scene_, *registry_, false);
    obj_ = obj.get();
    scene_->CreateObjectNode(std::move(obj), "Cache");
    if (withCache) {
      kvtest::WriteFile(Path("two.kvc"), TwoElementCache());
      obj_->Params().SetString(param::kFileName, Path("two.kvc"));
      obj_->BuildMesh(0);
    }
    fns_ = std::make_unique<CacheFns>(*obj_);
    return *obj_;
  }

  struct Result {
    CallStatus status;
    std::string text;  // the result's literal, or the error
  };
  // Calls `name` with arguments written as literals, as `kvcache call` does.
  Result Call(const std::string& name, const std::vector<std::string>& words = {}) {
    std::vector<CallArg> args;
    std::string error;
    if (!ParseCallArgs(words, *scene_, args, error)) {
      ADD_FAILURE() << "bad literal in the test: " << error;
      return {CallStatus::BadArguments, error};
    }
    Value result;
    const CallStatus s = CallByName(*fns_, name, args, *scene_, 0, result, error);
    return {s, s == CallStatus::Ok ? PrintLiteral(result, *scene_) : error};
  }
  std::string Ok(const std::string& name, const std::vector<std::string>& words = {}) {
    const Result r = Call(name, words);
    EXPECT_EQ(r.status, CallStatus::Ok) << name << ": " << r.text;
    return r.text;
  }
  std::string Raised(const std::string& name, const std::vector<std::string>& words = {}) {
    const Result r = Call(name, words);
    EXPECT_EQ(r.status, CallStatus::Failed) << name << " returned " << r.text;
    return r.text;
  }

  fs::path dir_;
  std::unique_ptr<standalone::Scene> scene_;
  std::unique_ptr<KelvaneTools::kvCacheRegistry> registry_;
  kvCache_obj* obj_ = nullptr;
  std::unique_ptr<CacheFns> fns_;
};

}  // namespace kv::script::testing

// A scene with one cache object open in the panel, and small caches recorded from it.
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
#include "record/recorder.h"
#include "ui/panel.h"

namespace kv::ui::testing {

namespace fs = std::filesystem;

inline Mesh Triangle() {
  Mesh m;
  m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  m.setNumFaces(1);
  m.faces[0].setVerts(0, 1, 2);
  return m;
}

class PanelTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() /
           ("kv_panel_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(dir_);
    scene_ = std::make_unique<standalone::Scene>();
    scene_->SetAnimRange(Interval(0, 10 * 160));
    registry_ = std::make_unique<KelvaneTools::kvCacheRegistry>(scene_.get());
    auto obj = std::make_unique<kvCache_obj>(*scene_, *registry_, false);
    obj_ = obj.get();
    scene_->CreateObjectNode(std::move(obj), "KV Cache");
  }
  void TearDown() override {
    panel_.reset();
    scene_.reset();
    registry_.reset();
    fs::remove_all(dir_);
  }

  Panel& Open(PanelServices s = {}) {
    panel_ = std::make_unique<Panel>(*scene_, *obj_, std::move(s));
    return *panel_;
  }

  host::Node* Tri(const std::string& name) { return scene_->CreateMeshNode(Triangle(), name); }

  // A cache of one triangle per name, frames 0 to 10.
  std::string Record(const std::string& file, const std::vector<std::string>& names) {
    RecordSettings s;
    for (const std::string& n : names) s.nodes.push_back(Tri(n));
    s.fileName = (dir_ / file).string();
    s.recStart = 0;
    s.recEnd = 10;
    SettingsRecordTarget target(s);
    Recorder rec(*scene_, nullptr);
    RecordOptions opt;
    opt.quiet = true;
    EXPECT_TRUE(rec.Record(target, opt).ok());
    for (host::Node* n : s.nodes) scene_->DeleteNode(n);
    scene_->UndoHistory().Clear();
    return s.fileName;
  }

  std::string UndoLabel() { return scene_->UndoHistory().UndoLabel(); }
  int UndoSteps() { return scene_->UndoHistory().NumUndoSteps(); }
  standalone::Responder& User() { return scene_->GetResponder(); }

  fs::path dir_;
  std::unique_ptr<standalone::Scene> scene_;
  std::unique_ptr<KelvaneTools::kvCacheRegistry> registry_;
  kvCache_obj* obj_ = nullptr;
  std::unique_ptr<Panel> panel_;
};

}  // namespace kv::ui::testing

// The viewport's graphics window, SDK side, as the core's host::GraphicsWindow: one adapter
// per Display or HitTest call, over the window the viewport hands the object.
#pragma once

#include <vector>

#include "host/graphics_window.h"
#include "host/max/sdk.h"

namespace kv::max {

class MaxGraphicsWindow final : public host::GraphicsWindow {
 public:
  explicit MaxGraphicsWindow(::GraphicsWindow* gw) : gw_(gw) {}

  void SetTransform(const kv::Matrix3& tm) override { gw_->setTransform(ToMax(tm)); }
  kv::Matrix3 GetTransform() const override { return ToKv(gw_->getTransform()); }
  // The core's limit bits are the SDK's own values.
  uint32_t GetRndLimits() const override { return gw_->getRndLimits(); }
  void SetRndLimits(uint32_t limits) override { gw_->setRndLimits(limits); }
  uint32_t GetRndMode() const override { return gw_->getRndMode(); }

  void SetLineColor(const kv::Point3& rgb) override {
    gw_->setColor(LINE_COLOR, rgb.x, rgb.y, rgb.z);
  }
  void SetMaterial(const host::DisplayMaterial& m) override;
  void SetMaterials(std::span<const host::DisplayMaterial> m) override;

  void Polyline(std::span<const kv::Point3> points, bool closed) override;
  void Marker(const kv::Point3& p, host::MarkerType type) override;
  void RenderMesh(const kv::Mesh& mesh, int compFlags) override;

  void SetHitRegion(const host::HitRegion& region) override;
  void ClearHitCode() override { gw_->clearHitCode(); }
  bool CheckHitCode() const override { return gw_->checkHitCode() != FALSE; }
  uint32_t GetHitDistance() const override { return gw_->getHitDistance(); }
  bool SelectMesh(const kv::Mesh& mesh, bool abortOnHit) override;

 private:
  ::Mesh& Converted(const kv::Mesh& mesh);

  ::GraphicsWindow* gw_;
  std::vector<::Material> materials_;
  std::vector<::Point3> points_;
  std::vector<POINT> fence_;
  ::HitRegion region_{};
  ::Mesh converted_;  // reused, so that drawing many elements reuses its memory
};

}  // namespace kv::max

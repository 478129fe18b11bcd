// Key reduction on the standalone host's controllers: the windowed search against the plain
// whole-interval one, the sampling rules, the distances and the undo step.
#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "explode/key_reduce.h"
#include "host/standalone/controls.h"
#include "host/standalone/scene.h"
#include "reduce_reference.h"

namespace kv {
namespace {

using host::Control;
using host::ControlKind;
using host::ControlValue;
using host::Interp;
using host::ScaleValue;
using standalone::MakeControl;

std::vector<TimeValue> KeyTimes(const Control& c) {
  std::vector<TimeValue> out;
  for (int i = 0; i < c.NumKeys(); ++i) out.push_back(c.GetKeyTime(i));
  return out;
}

Quat AxisAngle(Point3 axis, float angle) {
  return Quat(AngAxis{axis.Normalized(), angle});
}

// A value of the controller's type near `base`, moved along a smooth path with noise.
ControlValue RandomValue(ControlKind kind, std::mt19937& rng, float phase, float noise) {
  std::uniform_real_distribution<float> u(-1, 1);
  auto f = [&](float k) { return std::sin(phase * k) * 3 + u(rng) * noise; };
  switch (kind) {
    case ControlKind::Float:
      return f(1);
    case ControlKind::Point2:
      return Point2{f(1), f(0.7f)};
    case ControlKind::Point3:
    case ControlKind::Position:
      return Point3{f(1), f(0.7f), f(1.3f)};
    case ControlKind::Point4:
      return Point4{f(1), f(0.7f), f(1.3f), f(0.4f)};
    case ControlKind::Rotation:
      return AxisAngle({1 + u(rng) * noise, 0.5f, f(0.3f)}, phase * 0.8f + u(rng) * noise);
    default:
      return ScaleValue{{1 + f(1) * 0.1f, 1 + f(0.5f) * 0.1f, 1 + f(2) * 0.1f},
                        AxisAngle({u(rng), u(rng), 1}, u(rng))};
  }
}

// A controller that offers no sampler of its own keys (as a host without one), so that
// reduction works on the controller itself: everything else goes to the wrapped one.
class Plain final : public Control {
 public:
  explicit Plain(std::unique_ptr<Control> c) : c_(std::move(c)) {}
  ControlKind Kind() const override { return c_->Kind(); }
  ControlValue GetValue(TimeValue t) const override { return c_->GetValue(t); }
  void SetValue(TimeValue t, const ControlValue& v, bool makeKey) override {
    c_->SetValue(t, v, makeKey);
  }
  int NumKeys() const override { return c_->NumKeys(); }
  TimeValue GetKeyTime(int i) const override { return c_->GetKeyTime(i); }
  int GetKeyIndex(TimeValue t) const override { return c_->GetKeyIndex(t); }
  void DeleteKey(int i) override { c_->DeleteKey(i); }
  std::unique_ptr<Control> Clone() const override { return std::make_unique<Plain>(c_->Clone()); }
  bool CopyFrom(const Control& other) override {
    const auto* p = dynamic_cast<const Plain*>(&other);
    return p && c_->CopyFrom(*p->c_);
  }
  std::unique_ptr<host::TrackClip> CopyTrack(const Interval& range) const override {
    return c_->CopyTrack(range);
  }
  bool PasteTrack(const host::TrackClip& clip, const Interval& range) override {
    return c_->PasteTrack(clip, range);
  }
  Interp GetInterp() const override { return c_->GetInterp(); }

 private:
  std::unique_ptr<Control> c_;
};

TEST(ReduceKeys, WindowedSearchKeepsExactlyTheKeysOfTheWholeIntervalSearch) {
  std::mt19937 rng(20261123);
  std::uniform_int_distribution<int> gap(1, 400);
  std::uniform_real_distribution<float> unit(0, 1);
  standalone::UndoStack undo;
  int tracks = 0, removedSome = 0, keptSome = 0;
  const ControlKind kinds[] = {ControlKind::Float,    ControlKind::Point2, ControlKind::Point3,
                               ControlKind::Position, ControlKind::Point4, ControlKind::Rotation,
                               ControlKind::Scale};
  const Interp interps[] = {Interp::Step, Interp::Linear, Interp::Bezier, Interp::TCB};
  for (ControlKind kind : kinds) {
    for (Interp ip : interps) {
      for (int n = 0; n < 40; ++n) {
        auto a = MakeControl(kind, ip, &undo);
        const int keys = 1 + static_cast<int>(unit(rng) * 40);
        const float noise = unit(rng) < 0.3f ? 0.0f : unit(rng) * 0.2f;
        TimeValue t = -gap(rng);
        for (int k = 0; k < keys; ++k) {
          a->SetValue(t, RandomValue(kind, rng, static_cast<float>(k) * 0.2f, noise), true);
          if (ip == Interp::TCB && unit(rng) < 0.3f)
            a->SetKeyTCB(k, unit(rng) - 0.5f, unit(rng) - 0.5f, unit(rng) - 0.5f);
          t += gap(rng);
        }
        auto b = a->Clone();
        Plain plain(a->Clone());
        // Intervals that start before, inside and after the keys, steps that fall on keys
        // and between them, the end on the grid or not.
        const TimeValue start = static_cast<TimeValue>(unit(rng) * 600) - 300;
        const TimeValue end = start + static_cast<TimeValue>(unit(rng) * t);
        const TimeValue step = unit(rng) < 0.3f ? 100 : 1 + static_cast<TimeValue>(unit(rng) * 300);
        // Rotations past 3 rad compare every angle without the chord shortcut.
        const float pick = unit(rng);
        const float threshold = pick < 0.2f ? 0.0f : pick < 0.3f ? unit(rng) * 5 : unit(rng) * 0.5f;
        const Interval range(start, end);
        const int before = a->NumKeys();
        const int fast = explode::ReduceControllerKeys(undo, *a, range, step, threshold);
        const int slow = kvtest::ReduceControllerReference(undo, *b, range, step, threshold);
        const int onHost = explode::ReduceControllerKeys(undo, plain, range, step, threshold);
        const std::string what = "kind " + std::to_string(int(kind)) + " interp " +
                                 std::to_string(int(ip)) + " track " + std::to_string(n);
        ASSERT_EQ(KeyTimes(*a), KeyTimes(*b)) << what;
        ASSERT_EQ(fast, slow) << what;
        ASSERT_EQ(KeyTimes(plain), KeyTimes(*b)) << what << " without a sampler";
        ASSERT_EQ(onHost, slow) << what;
        for (TimeValue u = start - 50; u < end + 50; u += 37)
          ASSERT_EQ(a->GetValue(u), b->GetValue(u)) << what << " at " << u;
        ++tracks;
        removedSome += fast > 0;
        keptSome += a->NumKeys() > 0 && fast < before;
      }
    }
  }
  // The tracks must exercise both outcomes, or the comparison proves nothing.
  EXPECT_GT(removedSome, tracks / 4);
  EXPECT_GT(keptSome, tracks / 4);
}

TEST(ReduceKeys, SamplingRulesAndThresholds) {
  standalone::UndoStack undo;
  const float kThr = explode::kDefaultReduceThreshold;
  {
    // The end of an interval lying on the grid is never sampled: a key there goes, even one
    // far off the line.
    auto c = MakeControl(ControlKind::Position, Interp::Linear, &undo);
    c->SetValue(0, Point3{0, 0, 0}, true);
    c->SetValue(160, Point3{1, 0, 0}, true);
    c->SetValue(320, Point3{5, 0, 0}, true);
    explode::ReduceControllerKeys(undo, *c, Interval(0, 320), 160, kThr);
    EXPECT_EQ(KeyTimes(*c), (std::vector<TimeValue>{0, 160}));
    EXPECT_EQ(c->GetPoint3(320), (Point3{1, 0, 0}));
  }
  {
    // Threshold 0: keys on a straight line change nothing and go; every other key stays.
    auto c = MakeControl(ControlKind::Float, Interp::Linear, &undo);
    const float v[] = {0, 1, 2, 3, 10};
    for (int k = 0; k < 5; ++k) c->SetValue(160 * k, v[k], true);
    auto tiny = c->Clone();
    explode::ReduceControllerKeys(undo, *c, Interval(0, 800), 80, 0.0f);
    EXPECT_EQ(KeyTimes(*c), (std::vector<TimeValue>{0, 480, 640}));
    // A key 1e-4 off the line stays at threshold 0 and goes at the default.
    tiny->SetValue(320, 2.0001f, true);
    auto loose = tiny->Clone();
    explode::ReduceControllerKeys(undo, *tiny, Interval(0, 800), 80, 0.0f);
    EXPECT_NE(tiny->GetKeyIndex(320), -1);
    explode::ReduceControllerKeys(undo, *loose, Interval(0, 800), 80, kThr);
    EXPECT_EQ(loose->GetKeyIndex(320), -1);
  }
  {
    // Rotations compare by angle, whatever the axis: 0.03 rad stays at 0.02, 0.01 goes.
    for (const float dev : {0.03f, 0.01f}) {
      auto c = MakeControl(ControlKind::Rotation, Interp::TCB, &undo);
      c->SetValue(0, Quat{}, true);
      c->SetValue(160, AxisAngle({1, 2, 3}, dev), true);
      c->SetValue(320, Quat{}, true);
      explode::ReduceControllerKeys(undo, *c, Interval(0, 480), 160, kThr);
      EXPECT_EQ(c->GetKeyIndex(160) != -1, dev > kThr) << dev;
    }
    EXPECT_NEAR(std::sqrt(explode::ReduceDistance2(ControlKind::Rotation, Quat{},
                                                   -AxisAngle({0, 0, 1}, 0.5f))),
                0.5f, 1e-5f);
  }
  {
    // Scales differing only in their stretch axes lose every key.
    auto c = MakeControl(ControlKind::Scale, Interp::TCB, &undo);
    for (int k = 0; k < 3; ++k)
      c->SetValue(160 * k, ScaleValue{{1, 2, 3}, AxisAngle({0, 0, 1}, 0.7f * k)}, true);
    explode::ReduceControllerKeys(undo, *c, Interval(0, 480), 160, kThr);
    EXPECT_EQ(c->NumKeys(), 0);
    EXPECT_EQ(c->GetScale(100).s, (Point3{1, 2, 3}));
  }
  {
    // A one-instant interval compares nothing: its keys go, keys outside stay untouched.
    auto c = MakeControl(ControlKind::Float, Interp::Bezier, &undo);
    for (int k = 0; k < 4; ++k) c->SetValue(160 * k, float(k * k), true);
    explode::ReduceControllerKeys(undo, *c, Interval(160, 160), 160, kThr);
    EXPECT_EQ(KeyTimes(*c), (std::vector<TimeValue>{0, 320, 480}));
  }
  {
    // Matrix tracks are not reduced.
    auto c = MakeControl(ControlKind::Matrix, Interp::Linear, &undo);
    for (int k = 0; k < 3; ++k) c->SetValue(160 * k, Matrix3(), true);
    EXPECT_EQ(explode::ReduceControllerKeys(undo, *c, Interval(0, 480), 160, kThr), 0);
    EXPECT_EQ(c->NumKeys(), 3);
  }
}

TEST(ReduceKeys, OneUndoStepPerRunAndCancelPutsEveryControllerBack) {
  standalone::Scene scene;
  std::vector<std::unique_ptr<Control>> owned;
  std::vector<Control*> set;
  for (int n = 0; n < 250; ++n) {
    owned.push_back(scene.NewKeyControl(ControlKind::Position, Interp::Linear));
    for (int k = 0; k < 5; ++k) owned.back()->SetValue(160 * k, Point3{float(k), 0, 0}, true);
    set.push_back(owned.back().get());
  }
  set.push_back(set.front());  // listed twice, reduced once
  set.push_back(nullptr);

  // Escape at the third poll: the one after the 200th controller.
  scene.GetResponder().PressEscAfter(3);
  explode::ReduceResult r = explode::ReduceKeys(scene, set, Interval(0, 800), 160);
  EXPECT_FALSE(r.completed);
  EXPECT_EQ(r.controllers, 250);
  EXPECT_EQ(scene.UndoHistory().NumUndoSteps(), 0);
  for (const auto& c : owned) ASSERT_EQ(c->NumKeys(), 5);

  scene.GetResponder().escAnswers.clear();
  r = explode::ReduceKeys(scene, set, Interval(0, 800), 160);
  EXPECT_TRUE(r.completed);
  EXPECT_EQ(r.keysBefore, 1250);
  EXPECT_EQ(r.keysAfter, 500);  // the first and the last two: the end is never compared
  EXPECT_EQ(scene.UndoHistory().NumUndoSteps(), 1);
  EXPECT_EQ(scene.UndoHistory().UndoLabel(), "Reduce Keys");
  bool sawText = false;
  for (const auto& e : scene.Progress()) sawText |= e.text == "Reducing Keys (40 %) ...";
  EXPECT_TRUE(sawText);
  ASSERT_TRUE(scene.Undo());
  for (const auto& c : owned) EXPECT_EQ(c->NumKeys(), 5);

  // The caller's progress sink cancels too.
  explode::ReduceOptions opt;
  opt.progress = [](int done, int) { return done < 100; };
  r = explode::ReduceKeys(scene, set, Interval(0, 800), 160, 0.02f, opt);
  EXPECT_FALSE(r.completed);
  for (const auto& c : owned) EXPECT_EQ(c->NumKeys(), 5);
}

}  // namespace
}  // namespace kv

// Controller values against hand-computed curves, key operations, track clips and the
// reduction sampler.
#include "host/standalone/controls.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <numbers>
#include <random>
#include <vector>

#include "host/standalone/rotation_lanes_avx2.h"

namespace kv::standalone {
namespace {

using host::ControlKind;
using host::Interp;

std::unique_ptr<host::Control> FloatTrack(Interp ip,
                                          std::initializer_list<std::pair<int, float>> keys) {
  auto c = MakeControl(ControlKind::Float, ip, nullptr);
  for (auto [t, v] : keys) c->SetValue(t, v, true);
  return c;
}

float CatmullRom(float p0, float p1, float p2, float p3, float s) {
  return 0.5f * (2 * p1 + (p2 - p0) * s + (2 * p0 - 5 * p1 + 4 * p2 - p3) * s * s +
                 (-p0 + 3 * p1 - 3 * p2 + p3) * s * s * s);
}

TEST(Controls, FloatInterpolationMatchesHandComputedCurves) {
  const auto keys = {std::pair{0, 0.f}, {100, 10.f}, {200, 30.f}, {300, 20.f}};
  auto step = FloatTrack(Interp::Step, keys);
  EXPECT_EQ(step->GetFloat(199), 10.f);
  EXPECT_EQ(step->GetFloat(200), 30.f);
  EXPECT_EQ(step->GetFloat(-50), 0.f);   // before the first key: held
  EXPECT_EQ(step->GetFloat(900), 20.f);  // after the last key: held

  auto lin = FloatTrack(Interp::Linear, keys);
  EXPECT_FLOAT_EQ(lin->GetFloat(150), 20.f);
  EXPECT_FLOAT_EQ(lin->GetFloat(275), 22.5f);

  // Zero tension, continuity and bias on evenly spaced keys is Catmull-Rom.
  auto tcb = FloatTrack(Interp::TCB, keys);
  for (float s : {0.25f, 0.5f, 0.8f})
    EXPECT_NEAR(tcb->GetFloat(100 + static_cast<int>(s * 100)), CatmullRom(0, 10, 30, 20, s),
                1e-4f);
  // The first segment's start tangent is the one-sided difference: 0.125*10 + 5 - 0.125*15.
  EXPECT_NEAR(tcb->GetFloat(50), 4.375f, 1e-4f);
  // Bezier with smooth tangents agrees on even spacing.
  auto bez = FloatTrack(Interp::Bezier, keys);
  EXPECT_NEAR(bez->GetFloat(150), 21.25f, 1e-4f);
  EXPECT_NEAR(bez->GetFloat(50), 4.375f, 1e-4f);

  // Full tension flattens the tangents: the interior segment's midpoint is the average.
  ASSERT_TRUE(tcb->SetKeyTCB(1, 1, 0, 0));
  ASSERT_TRUE(tcb->SetKeyTCB(2, 1, 0, 0));
  EXPECT_NEAR(tcb->GetFloat(150), 20.f, 1e-4f);
  // Bias 1 at key 1 takes its whole out tangent from the incoming side (10 per segment),
  // so at s = 0.5 of segment 1-2 (key 2 still tense): 0.5*10 + 0.125*10 + 0.5*30 = 21.25.
  ASSERT_TRUE(tcb->SetKeyTCB(1, 0, 0, 1));
  EXPECT_NEAR(tcb->GetFloat(150), 21.25f, 1e-4f);
}

TEST(Controls, SplinesStayC1OnUnevenKeys) {
  // The slope on both sides of an interior key must agree even when the segments differ in
  // length; without the spacing adjustment the TCB slope jumps there.
  for (Interp ip : {Interp::TCB, Interp::Bezier}) {
    auto c = FloatTrack(ip, {{0, 0.f}, {100, 10.f}, {400, -5.f}, {450, 3.f}});
    for (int key : {100, 400}) {
      // One-sided second-order differences, so the curvature does not count.
      auto f = [&](int t) { return c->GetFloat(t); };
      const float left = (3 * f(key) - 4 * f(key - 1) + f(key - 2)) / 2;
      const float right = (-3 * f(key) + 4 * f(key + 1) - f(key + 2)) / 2;
      EXPECT_NEAR(left, right, 1e-3f) << "interp " << static_cast<int>(ip) << " key " << key;
    }
  }
}

float AngleAboutZ(const Quat& q) {
  const AngAxis aa = q.ToAngAxis();
  return aa.angle * (aa.axis.z < 0 ? -1.f : 1.f) * 180.f / std::numbers::pi_v<float>;
}

Quat RotZ(float deg) {
  return Quat(AngAxis{{0, 0, 1}, deg * std::numbers::pi_v<float> / 180.f});
}

TEST(Controls, RotationInterpolation) {
  auto tcb = MakeControl(ControlKind::Rotation, Interp::TCB, nullptr);
  tcb->SetValue(0, RotZ(0), true);
  tcb->SetValue(100, RotZ(90), true);
  // Two keys: the spline is the slerp.
  EXPECT_NEAR(AngleAboutZ(tcb->GetQuat(25)), 22.5f, 1e-3f);
  // Constant angular speed stays uniform through an interior key.
  tcb->SetValue(200, RotZ(180), true);
  EXPECT_NEAR(AngleAboutZ(tcb->GetQuat(150)), 135.f, 1e-2f);
  EXPECT_NEAR(AngleAboutZ(tcb->GetQuat(50)), 45.f, 1e-2f);
  // Keys 0, 90, 90: about one axis the spline is the scalar Kochanek-Bartels curve of the
  // angle, 0.5*45 + 0.5*(0.5*0 + 0.5*112.5) = 50.625 degrees halfway along the first segment.
  tcb->SetValue(200, RotZ(90), true);
  EXPECT_NEAR(AngleAboutZ(tcb->GetQuat(50)), 50.625f, 1e-2f);
  EXPECT_TRUE(tcb->GetQuat(100).Equals(RotZ(90), 1e-5f) ||
              tcb->GetQuat(100).Equals(-RotZ(90), 1e-5f));

  // Linear takes the shorter arc even when the stored key has the opposite sign.
  auto lin = MakeControl(ControlKind::Rotation, Interp::Linear, nullptr);
  lin->SetValue(0, RotZ(170), true);
  lin->SetValue(100, -RotZ(-170), true);
  EXPECT_NEAR(std::fabs(AngleAboutZ(lin->GetQuat(50))), 180.f, 1e-2f);

  // Slerp turns at a constant speed over a wide and a narrow arc, up to the segment's ends
  // (where one weight is small and must not lose the other's precision).
  for (const float deg : {179.f, 0.05f}) {
    auto arc = MakeControl(ControlKind::Rotation, Interp::Linear, nullptr);
    arc->SetValue(0, RotZ(0), true);
    arc->SetValue(100, RotZ(deg), true);
    for (const int t : {1, 37, 50, 99}) {
      const Quat q = arc->GetQuat(t);
      const float angle = 2 * std::atan2(q.z, q.w) * 180.f / std::numbers::pi_v<float>;
      EXPECT_NEAR(angle, deg * float(t) / 100, deg * 1e-3f) << deg << " at " << t;
    }
  }

  auto step = MakeControl(ControlKind::Rotation, Interp::Step, nullptr);
  step->SetValue(0, RotZ(10), true);
  step->SetValue(100, RotZ(80), true);
  EXPECT_NEAR(AngleAboutZ(step->GetQuat(99)), 10.f, 1e-3f);
}

TEST(Controls, PrsComposesAndSplitsTransforms) {
  auto prs = MakeControl(ControlKind::PRS, nullptr);
  EXPECT_TRUE(prs->GetMatrix(0).IsIdentity());
  Matrix3 m =
      ScaleMatrix({2, 3, 0.5f}) * RotAngleAxisMatrix({1, 1, 0}, 0.7f) * TransMatrix({5, -4, 3});
  prs->SetValue(160, m, true);
  EXPECT_TRUE(prs->GetMatrix(160).Equals(m, 1e-4f));
  EXPECT_EQ(prs->GetPositionController()->NumKeys(), 1);
  EXPECT_EQ(prs->GetRotationController()->GetKeyTime(0), 160);
  // A mirroring transform keeps its sign.
  const Matrix3 mirror = ScaleMatrix({-1, 1, 1}) * TransMatrix({1, 2, 3});
  prs->SetValue(320, mirror, true);
  EXPECT_TRUE(prs->GetMatrix(320).Equals(mirror, 1e-4f));
  // Position keys interpolate in parent space between the two.
  EXPECT_NEAR(prs->GetMatrix(240).GetTrans().x, 3.f, 0.5f);

  auto clone = prs->Clone();
  prs->GetPositionController()->DeleteKey(0);
  EXPECT_EQ(clone->GetPositionController()->NumKeys(), 2);  // the clone is deep
  EXPECT_FALSE(prs->SetRotationController(MakeControl(ControlKind::Float, nullptr)));
}

TEST(Controls, KeyOperationsAndClips) {
  auto c = FloatTrack(Interp::TCB, {{0, 1.f}, {100, 5.f}, {200, 2.f}});
  EXPECT_EQ(c->GetKeyIndex(100), 1);
  EXPECT_EQ(c->GetKeyIndex(101), -1);
  std::vector<TimeValue> times;
  c->GetKeyTimes(Interval(50, 200), times);
  EXPECT_EQ(times, (std::vector<TimeValue>{100, 200}));

  // Setting without a key leaves a keyed track alone between keys, moves a key on a key.
  c->SetValue(50, 99.f, false);
  EXPECT_EQ(c->NumKeys(), 3);
  EXPECT_FLOAT_EQ(c->GetFloat(0), 1.f);
  c->SetValue(200, 4.f, false);
  EXPECT_FLOAT_EQ(c->GetFloat(200), 4.f);

  // Cut one key and paste it back: value and TCB settings return.
  ASSERT_TRUE(c->SetKeyTCB(1, 0.5f, -0.25f, 0.75f));
  const float before = c->GetFloat(140);
  auto clip = c->CopyTrack(Interval::Instant(100));
  ASSERT_NE(clip, nullptr);
  c->DeleteKey(c->GetKeyIndex(100));
  EXPECT_NE(c->GetFloat(140), before);
  ASSERT_TRUE(c->PasteTrack(*clip, Interval::Instant(100)));
  EXPECT_FLOAT_EQ(c->GetFloat(140), before);
  float t, cont, b;
  ASSERT_TRUE(c->GetKeyTCB(1, t, cont, b));
  EXPECT_EQ(cont, -0.25f);

  // CopyFrom copies animation between controllers of one kind only.
  auto other = MakeControl(ControlKind::Float, Interp::Linear, nullptr);
  ASSERT_TRUE(other->CopyFrom(*c));
  EXPECT_EQ(other->NumKeys(), 3);
  EXPECT_FALSE(other->CopyFrom(*MakeControl(ControlKind::Point3, nullptr)));
  auto pos = MakeControl(ControlKind::Position, nullptr);
  EXPECT_TRUE(pos->CopyFrom(*MakeControl(ControlKind::Point3, nullptr)));

  // Deleting the last key keeps its value as the constant.
  auto one = FloatTrack(Interp::Bezier, {{10, 7.f}});
  one->DeleteKey(0);
  EXPECT_FALSE(one->IsAnimated());
  EXPECT_EQ(one->GetFloat(500), 7.f);
  // A value of another type is ignored.
  one->SetValue(0, Point3{1, 2, 3}, true);
  EXPECT_EQ(one->NumKeys(), 0);
}

TEST(Controls, DefaultsOfEachKind) {
  EXPECT_EQ(MakeControl(ControlKind::Scale, nullptr)->GetScale(0).s, (Point3{1, 1, 1}));
  EXPECT_TRUE(MakeControl(ControlKind::Matrix, nullptr)->GetMatrix(0).IsIdentity());
  EXPECT_EQ(MakeControl(ControlKind::Rotation, nullptr)->GetQuat(0), Quat{});
  auto p4 = MakeControl(ControlKind::Point4, Interp::Linear, nullptr);
  p4->SetValue(0, Point4{0, 0, 0, 0}, true);
  p4->SetValue(10, Point4{1, 2, 3, 4}, true);
  EXPECT_EQ(std::get<Point4>(p4->GetValue(5)), (Point4{0.5f, 1, 1.5f, 2}));
  auto m = MakeControl(ControlKind::Matrix, nullptr);
  m->SetValue(0, Matrix3(), true);
  m->SetValue(100, TransMatrix({10, 0, 0}), true);
  EXPECT_NEAR(m->GetMatrix(50).GetTrans().x, 5.f, 1e-5f);
}

// The floats a sampler gives for a controller value: every component, a scale's factors only.
std::vector<float> Components(const host::ControlValue& v) {
  if (const float* f = std::get_if<float>(&v)) return {*f};
  if (const Point2* p = std::get_if<Point2>(&v)) return {p->x, p->y};
  if (const Point3* p = std::get_if<Point3>(&v)) return {p->x, p->y, p->z};
  if (const Point4* p = std::get_if<Point4>(&v)) return {p->x, p->y, p->z, p->w};
  if (const Quat* q = std::get_if<Quat>(&v)) return {q->x, q->y, q->z, q->w};
  if (const host::ScaleValue* s = std::get_if<host::ScaleValue>(&v))
    return {s->s.x, s->s.y, s->s.z};
  return {};
}

bool SameBits(const std::vector<float>& a, const float* b) {
  return std::memcmp(a.data(), b, a.size() * sizeof(float)) == 0;
}

TEST(Controls, SamplerGivesTheControllersValuesBitForBit) {
  // Reduction decides on the sampler's values what the controller would give: any drift,
  // even in the last bit, can keep or drop a different key.
  std::mt19937 rng(5);
  std::uniform_real_distribution<float> u(-1, 1);
  std::uniform_int_distribution<int> gap(1, 90);
  const ControlKind kinds[] = {ControlKind::Float,  ControlKind::Point2,   ControlKind::Position,
                               ControlKind::Point4, ControlKind::Rotation, ControlKind::Scale};
  // Rotations sample eight at a time where the processor allows, else four: both.
  for (const bool wide : {true, false})
    for (ControlKind kind : kinds) {
#if KV_ROTATION_AVX2
      lanes::Avx2Allowed() = wide;
#else
      (void)wide;
#endif
      for (Interp ip : {Interp::Step, Interp::Linear, Interp::Bezier, Interp::TCB}) {
        for (int keys : {1, 2, 3, 9}) {
          auto c = MakeControl(kind, ip, nullptr);
          TimeValue t = 0;
          for (int k = 0; k < keys; ++k, t += gap(rng)) {
            const Point3 p{u(rng), u(rng), u(rng)};
            switch (kind) {
              case ControlKind::Float:
                c->SetValue(t, p.x, true);
                break;
              case ControlKind::Point2:
                c->SetValue(t, Point2{p.x, p.y}, true);
                break;
              case ControlKind::Point4:
                c->SetValue(t, Point4{p.x, p.y, p.z, u(rng)}, true);
                break;
              case ControlKind::Rotation:
                c->SetValue(t, Quat(AngAxis{p.Normalized(), 3 * u(rng)}), true);
                break;
              case ControlKind::Scale:
                c->SetValue(t, host::ScaleValue{p, Quat(AngAxis{{0, 0, 1}, u(rng)})}, true);
                break;
              default:
                c->SetValue(t, p, true);
                break;
            }
            if (ip == Interp::TCB) c->SetKeyTCB(k, u(rng) * 0.5f, u(rng) * 0.5f, u(rng) * 0.5f);
          }
          if (ip == Interp::Bezier && keys == 9 && kind != ControlKind::Scale)
            SetKeyTangents(*c, 4, c->GetValue(2), c->GetValue(3));  // explicit on one key
          std::vector<TimeValue> times;
          for (TimeValue s = -20; s < t + 20; s += 7) times.push_back(s);
          const auto sampler = c->MakeSampler(times);
          ASSERT_TRUE(sampler);
          const size_t w = size_t(sampler->Width());
          ASSERT_EQ(Components(c->GetValue(0)).size(), w);
          std::vector<float> got(times.size() * w);
          sampler->Sample(got.data());
          for (size_t j = 0; j < times.size(); ++j)
            ASSERT_TRUE(SameBits(Components(c->GetValue(times[j])), &got[j * w])) << times[j];

          // Without each key in turn, over the window it may change, then for good.
          for (int i = keys - 1; i >= 0; --i) {
            auto without = c->Clone();
            without->DeleteKey(i);
            const int n = c->NumKeys();
            const TimeValue from = i >= 2 ? c->GetKeyTime(i - 2) : kTimeNegInfinity;
            const TimeValue to = i + 2 < n ? c->GetKeyTime(i + 2) : kTimePosInfinity;
            size_t lo = 0, hi = 0;
            while (lo < times.size() && times[lo] < from) ++lo;
            for (hi = lo; hi < times.size() && times[hi] < to;) ++hi;
            sampler->SampleWithout(i, lo, hi, got.data());
            for (size_t j = lo; j < hi; ++j)
              ASSERT_TRUE(SameBits(Components(without->GetValue(times[j])), &got[(j - lo) * w]))
                  << "without " << i << " at " << times[j];
            if (i % 2 == 0) {
              sampler->DeleteKey(i);
              c->DeleteKey(i);
              ASSERT_EQ(sampler->NumKeys(), c->NumKeys());
            }
          }
          sampler->Sample(got.data());
          for (size_t j = 0; j < times.size(); ++j)
            ASSERT_TRUE(SameBits(Components(c->GetValue(times[j])), &got[j * w])) << times[j];
        }
      }
    }
#if KV_ROTATION_AVX2
  lanes::Avx2Allowed() = true;
#endif
  EXPECT_EQ(MakeControl(ControlKind::Matrix, nullptr)->MakeSampler({}), nullptr);
  EXPECT_EQ(MakeControl(ControlKind::PRS, nullptr)->MakeSampler({}), nullptr);
}

}  // namespace
}  // namespace kv::standalone

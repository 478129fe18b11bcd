// Registration: the descriptor's answers, object creation with the loading flag, and the
// creation drag that places a new object and sizes its icon.
#include <gtest/gtest.h>

#include "cache/registry.h"
#include "host/standalone/scene.h"
#include "object/cache_obj.h"
#include "object/params.h"
#include "object/registration.h"

namespace kv {
namespace {

namespace R = registration;

TEST(Registration, DescriptorAnswersWhatTheHostExpects) {
  // The host compares the version number bit for bit.
  EXPECT_EQ(R::kLibVersion, 0x61A83E00u);
  EXPECT_EQ(R::kClassId, (host::ClassId{0x74131F4A, 0x5C615BBA}));
  EXPECT_EQ(R::kGeomObjectSuperClassId, 0x10u);

  EXPECT_EQ(res::FindString(R::kLibDescriptionId), "Kelvane");
  EXPECT_EQ(res::FindString(R::kCategoryId), "Kelvane");
  EXPECT_EQ(res::FindString(R::kClassNameId), "KV Cache");
  EXPECT_EQ(res::FindString(R::kInternalNameId), "KV_Cache");
  EXPECT_EQ(R::kNonLocalizedClassName, "KV Cache");

  EXPECT_TRUE(R::IsClassIndex(0));
  for (int i : {-1, 1, 2, 100}) EXPECT_FALSE(R::IsClassIndex(i)) << i;
}

TEST(Registration, CreateKeepsCreationDefaultsOnlyForANewObject) {
  standalone::Scene scene;
  scene.SetAnimRange(Interval(160 * 10, 160 * 50));
  KelvaneTools::kvCacheRegistry registry{&scene};

  auto fresh = R::CreateObject(scene, registry, false);
  ASSERT_NE(fresh, nullptr);
  EXPECT_FALSE(fresh->CreatedForLoad());
  EXPECT_EQ(fresh->Params().GetInt(param::kRecStart), 10);
  EXPECT_EQ(fresh->Params().GetInt(param::kRecEnd), 50);

  auto loaded = R::CreateObject(scene, registry, true);
  ASSERT_NE(loaded, nullptr);
  EXPECT_TRUE(loaded->CreatedForLoad());
  EXPECT_NE(loaded->Params().GetInt(param::kRecStart), 10);
}

class CreationDrag : public ::testing::Test {
 protected:
  standalone::Scene scene;
  KelvaneTools::kvCacheRegistry registry{&scene};
  std::unique_ptr<kvCache_obj> obj = R::CreateObject(scene, registry, false);
  R::ObjectCreationTarget target{*obj};
  R::CreationCallback cb;
  Matrix3 mat;

  void SetUp() override { cb.SetTarget(&target); }
  float IconSize() const { return obj->Params().GetFloat(param::kIconSize); }
};

TEST_F(CreationDrag, PressPlacesTheObjectAndSuspendsSnapping) {
  EXPECT_EQ(cb.Proc(R::kMousePoint, 0, {3, 4, 5}, mat), R::kCreateContinue);
  EXPECT_TRUE(target.SnapSuspended());
  EXPECT_EQ(mat.GetTrans(), (Point3{3, 4, 5}));
}

TEST_F(CreationDrag, IconSizeIsTwiceTheDragLength) {
  cb.Proc(R::kMousePoint, 0, {1, 1, 0}, mat);
  EXPECT_EQ(cb.Proc(R::kMouseMove, 1, {1, 1, 0}, mat), R::kCreateContinue);
  EXPECT_FLOAT_EQ(IconSize(), 0.0f);

  // 7.5 and 10 make 12.5, in any direction.
  EXPECT_EQ(cb.Proc(R::kMouseMove, 1, {1 - 7.5f, 1 - 10.0f, 0}, mat), R::kCreateContinue);
  EXPECT_FLOAT_EQ(IconSize(), 25.0f);
  EXPECT_TRUE(target.SnapSuspended());  // still dragging
}

TEST_F(CreationDrag, ReleaseStopsAndResumesSnapping) {
  cb.Proc(R::kMousePoint, 0, {0, 0, 0}, mat);
  cb.Proc(R::kMouseMove, 1, {2, 0, 0}, mat);
  EXPECT_EQ(cb.Proc(R::kMousePoint, 1, {0, 3, 4}, mat), R::kCreateStop);
  EXPECT_FALSE(target.SnapSuspended());
  EXPECT_FLOAT_EQ(IconSize(), 10.0f);  // the release point counts, not the last move
  EXPECT_EQ(mat.GetTrans(), (Point3{0, 0, 0}));
}

TEST_F(CreationDrag, AbortLeavesSnappingAsItWas) {
  cb.Proc(R::kMousePoint, 0, {0, 0, 0}, mat);
  cb.Proc(R::kMouseMove, 1, {5, 0, 0}, mat);
  EXPECT_EQ(cb.Proc(R::kMouseAbort, 1, {0, 0, 0}, mat), R::kCreateAbort);
  EXPECT_TRUE(target.SnapSuspended());
  EXPECT_FLOAT_EQ(IconSize(), 10.0f);  // nothing undone or rewritten by the callback
}

TEST_F(CreationDrag, OtherPointsAndMessagesChangeNothing) {
  cb.Proc(R::kMousePoint, 0, {0, 0, 0}, mat);
  cb.Proc(R::kMouseMove, 1, {4, 0, 0}, mat);
  EXPECT_EQ(cb.Proc(R::kMousePoint, 2, {100, 0, 0}, mat), R::kCreateContinue);
  const int kDoubleClick = 3, kFreeMove = 6;
  EXPECT_EQ(cb.Proc(kDoubleClick, 0, {50, 0, 0}, mat), R::kCreateContinue);
  EXPECT_EQ(cb.Proc(kFreeMove, 1, {50, 0, 0}, mat), R::kCreateContinue);
  EXPECT_FLOAT_EQ(IconSize(), 8.0f);
  EXPECT_EQ(mat.GetTrans(), (Point3{0, 0, 0}));
}

}  // namespace
}  // namespace kv

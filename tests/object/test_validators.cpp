#include <gtest/gtest.h>

#include "groups/fake_host.h"
#include "object/param_block.h"
#include "object/validators.h"

namespace kv {
namespace {

using test::FakeNode;
using test::FakeObject;

TEST(Validators, EachRuleAcceptsOnlyItsKindOfNode) {
  test::FakeInterface ip;
  FakeObject cache(host::kKvCacheClassId, host::SuperClass::Geometry);
  FakeObject mesh(host::kTriObjectClassId, host::SuperClass::Geometry);
  FakeObject poly({0x5d21369a, 0x0c672b4d}, host::SuperClass::Geometry, true);
  FakeObject omni(host::kOmniLightClassId, host::SuperClass::Light);
  FakeObject spot(host::kSpotLightClassId, host::SuperClass::Light);
  FakeNode cacheNode("KVCache01", &cache), box("Box01", &mesh), sphere("Sphere01", &poly),
      light("Omni01", &omni), spotNode("Spot01", &spot), gone("Gone", &mesh),
      driven("Driven", &mesh);
  gone.deleted = true;
  ip.dependsOn = [&](const host::Node* n, const host::Object* o) {
    return o == &cache && (n == &cacheNode || n == &driven);
  };
  ParamBlock pb(ip);
  kvCacheNodesValidator nodes(ip, &cache, &pb);
  kvCacheHelperValidator omniRule;
  kvCacheExplodeNodeValidator explode(ip, &cache);

  EXPECT_TRUE(nodes.Validate(&box, 0));
  EXPECT_TRUE(nodes.Validate(&sphere, 0));  // converts to a mesh
  EXPECT_FALSE(nodes.Validate(nullptr, 0));
  EXPECT_FALSE(nodes.Validate(&light, 0));
  EXPECT_FALSE(nodes.Validate(&cacheNode, 0));  // carries the cache object
  EXPECT_FALSE(nodes.Validate(&driven, 0));
  EXPECT_FALSE(nodes.Validate(&gone, 0));
  pb.Append(param::kNodes, &box);
  EXPECT_FALSE(nodes.Validate(&box, 0));  // already listed
  EXPECT_TRUE(nodes.Validate(&sphere, 0));

  EXPECT_TRUE(omniRule.Validate(&light, 0));
  EXPECT_FALSE(omniRule.Validate(&spotNode, 0));
  EXPECT_FALSE(omniRule.Validate(&box, 0));
  EXPECT_FALSE(omniRule.Validate(nullptr, 0));

  EXPECT_TRUE(explode.Validate(&box, 0));
  EXPECT_TRUE(explode.Validate(&light, 0));  // no mesh test
  pb.SetNode(param::kExplodeToNode, &box);
  EXPECT_TRUE(explode.Validate(&box, 0));  // no duplicate test
  EXPECT_FALSE(explode.Validate(&cacheNode, 0));
  EXPECT_FALSE(explode.Validate(&gone, 0));
  EXPECT_FALSE(explode.Validate(nullptr, 0));
}

}  // namespace
}  // namespace kv

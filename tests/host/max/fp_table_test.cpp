// The function-publishing description of KV_Cache_Fns: what the descriptor lists is the script
// table, with the SDK's own type numbers, keyword arguments after the positional ones, and
// result values handed back in types the argument side reads as the same kind.
#include "host/max/fp_table.h"

#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>

namespace kv::max::fp {
namespace {

using script::Kind;
using script::Type;

// The ParamType2 numbers of the SDK reference, written out here rather than taken from the
// code under test.
int SdkNumber(Type t) {
  static const std::map<Type, int> numbers = {
      {Type::Void, 25},  {Type::Bool, 4},     {Type::Int, 1},    {Type::Float, 0},
      {Type::String, 8}, {Type::FileName, 9}, {Type::Time, 12},  {Type::Interval, 26},
      {Type::Node, 17},  {Type::Name, 41},    {Type::Value, 44},
  };
  return numbers.at(t);
}

TEST(FpDescription, InterfaceIdentity) {
  const InterfaceDesc d = DescribeInterface();
  EXPECT_EQ(d.idA, 0x4306492Fu);
  EXPECT_EQ(d.idB, 0x5C20F67Cu);
  EXPECT_EQ(d.name, "KV_Cache_Fns");
  EXPECT_EQ(d.flags, 0x0002);  // FP_MIXIN: the interface belongs to each object
  EXPECT_FLOAT_EQ(d.version, 1.02f);
}

TEST(FpDescription, EveryPublishedEntryOnceWithItsIdNameAndTypes) {
  const InterfaceDesc d = DescribeInterface();
  std::map<int, const FunctionDesc*> fns;
  std::map<int, const PropertyDesc*> props;
  std::set<std::string> names;
  for (const FunctionDesc& f : d.functions) {
    EXPECT_TRUE(fns.emplace(f.id, &f).second) << "function id listed twice: " << f.id;
    EXPECT_TRUE(names.insert(std::string(f.name)).second) << f.name;
  }
  for (const PropertyDesc& p : d.properties) {
    EXPECT_TRUE(props.emplace(p.getterId, &p).second) << "property id listed twice: " << p.getterId;
    EXPECT_TRUE(names.insert(std::string(p.name)).second) << p.name;
  }
  EXPECT_EQ(fns.size(), 34u);
  EXPECT_EQ(props.size(), 10u);

  for (const script::FunctionDef& def : script::Functions()) {
    SCOPED_TRACE(std::string(def.name));
    if (!def.published) {
      // 30 and 31: dispatched, never listed under any name.
      EXPECT_FALSE(fns.count(def.id) || props.count(def.id));
      EXPECT_FALSE(names.count(std::string(def.name)));
      continue;
    }
    if (def.property) {
      ASSERT_TRUE(props.count(def.id));
      const PropertyDesc& p = *props[def.id];
      EXPECT_EQ(p.name, def.name);
      EXPECT_EQ(p.type, SdkNumber(def.result));
      EXPECT_EQ(p.setterId, -1);  // read-only
      EXPECT_FALSE(fns.count(def.id));
      continue;
    }
    ASSERT_TRUE(fns.count(def.id));
    const FunctionDesc& f = *fns[def.id];
    EXPECT_EQ(f.name, def.name);
    EXPECT_EQ(f.resultType, SdkNumber(def.result));
    ASSERT_EQ(f.params.size(), def.args.size());
    int keywords = 0;
    for (size_t i = 0; i < def.args.size(); ++i) {
      EXPECT_EQ(f.params[i].name, def.args[i].name);
      EXPECT_EQ(f.params[i].type, SdkNumber(def.args[i].type));
      EXPECT_EQ(f.params[i].keyword, def.args[i].keyword);
      if (f.params[i].keyword) {
        ++keywords;
      } else {
        // Scripts give keyword arguments by name after the positional ones.
        EXPECT_EQ(keywords, 0) << "positional parameter after a keyword one";
      }
    }
    EXPECT_EQ(f.keyParams, keywords);
  }
}

TEST(FpDescription, OrderAndDefaultsAsScriptsSeeThem) {
  const InterfaceDesc d = DescribeInterface();
  // Functions in id order, then the properties block in id order.
  for (size_t i = 1; i < d.functions.size(); ++i)
    EXPECT_LT(d.functions[i - 1].id, d.functions[i].id);
  for (size_t i = 1; i < d.properties.size(); ++i)
    EXPECT_LT(d.properties[i - 1].getterId, d.properties[i].getterId);
  ASSERT_FALSE(d.properties.empty());
  EXPECT_EQ(d.properties.front().name, "version");
  EXPECT_EQ(d.properties.front().type, 0);  // float
  EXPECT_EQ(d.properties.back().name, "cacheHasSpecifiedNormals");

  const FunctionDesc* explode = nullptr;
  const FunctionDesc* names = nullptr;
  for (const FunctionDesc& f : d.functions) {
    if (f.name == "explode") explode = &f;
    if (f.name == "getElementNames") names = &f;
  }
  ASSERT_TRUE(explode && names);
  ASSERT_EQ(explode->params.size(), 7u);
  EXPECT_EQ(explode->keyParams, 5);
  EXPECT_EQ(explode->params[0].type, 26);  // interval
  EXPECT_EQ(explode->params[1].type, 12);  // time
  EXPECT_EQ(explode->params[3].def.kind, script::Default::kBool);
  EXPECT_EQ(explode->params[3].def.number, 1.0);  // reduceKeys defaults to true
  EXPECT_DOUBLE_EQ(explode->params[5].def.number, 0.02);
  EXPECT_EQ(explode->params[6].type, 17);  // node
  EXPECT_EQ(explode->params[6].def.kind, script::Default::kNone);
  ASSERT_EQ(names->params.size(), 1u);
  EXPECT_EQ(names->params[0].def.kind, script::Default::kString);
  EXPECT_EQ(names->params[0].def.text, "*");
}

TEST(FpValueRules, ArgumentCodesReadAsTheirKind) {
  EXPECT_EQ(KindOf(1), Kind::Int);
  EXPECT_EQ(KindOf(19), Kind::Int);  // an index
  EXPECT_EQ(KindOf(0), Kind::Float);
  EXPECT_EQ(KindOf(7), Kind::Float);  // a world distance
  EXPECT_EQ(KindOf(4), Kind::Bool);
  EXPECT_EQ(KindOf(46), Kind::Bool);  // a C++ bool
  EXPECT_EQ(KindOf(8), Kind::String);
  EXPECT_EQ(KindOf(9), Kind::String);            // a file name
  EXPECT_EQ(KindOf(37 | 0x2000), Kind::String);  // an owned string, by value
  EXPECT_EQ(KindOf(41), Kind::Name);
  EXPECT_EQ(KindOf(12), Kind::Time);
  EXPECT_EQ(KindOf(26 | 0x4000), Kind::Interval);  // by pointer
  EXPECT_EQ(KindOf(17), Kind::Node);
  EXPECT_EQ(KindOf(35), Kind::Controller);
  EXPECT_EQ(KindOf(31 | 0x1000), Kind::BitArray);  // by reference
  EXPECT_EQ(KindOf(43 | 0x800 | 0x2000), Kind::Array);
  EXPECT_EQ(KindOf(1 | 0x800), Kind::Array);  // any table is an array
  // What the table never receives reads as undefined, not as some number.
  EXPECT_EQ(KindOf(44), Kind::Undefined);
  EXPECT_EQ(KindOf(25), Kind::Undefined);
  EXPECT_EQ(KindOf(3), Kind::Undefined);  // a point
  EXPECT_EQ(BaseCode(37 | 0x2000), 37);
  EXPECT_EQ(BaseCode(43 | 0x800 | 0x1000), 43 | 0x800);
}

TEST(FpValueRules, ResultsReadBackAsTheKindTheyWere) {
  for (Kind k : {Kind::Bool, Kind::Int, Kind::Float, Kind::String, Kind::Time, Kind::Interval,
                 Kind::Node, Kind::Name, Kind::Controller, Kind::Array, Kind::BitArray}) {
    SCOPED_TRACE(script::KindName(k));
    EXPECT_EQ(KindOf(ResultCodeOf(k)), k);
  }
  // What a result allocates travels by value, so that the value frees it.
  for (Kind k : {Kind::String, Kind::Interval, Kind::Array, Kind::BitArray}) {
    EXPECT_NE(ResultCodeOf(k) & 0x2000, 0) << script::KindName(k);
  }
  EXPECT_EQ(ResultCodeOf(Kind::Array), 43 | 0x800 | 0x2000);  // a table of values
  EXPECT_EQ(ResultCodeOf(Kind::Undefined), 25);
  EXPECT_EQ(ResultCodeOf(Kind::Ok), 25);
}

}  // namespace
}  // namespace kv::max::fp

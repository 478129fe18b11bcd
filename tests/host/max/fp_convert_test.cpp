// The conversion between function-publishing values and script values, run on a value of the
// SDK's FPValue shape: every kind written as a result reads back as itself, nested tables
// included, and what reading meets in arguments (null pointers, either kind of boolean, tables
// of plain numbers, types the table never receives) reads as the script layer expects.
#include "host/max/fp_convert.h"

#include <gtest/gtest.h>

#include <deque>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace kv::max::fp {
namespace {

using script::Value;

struct FakeText {
  std::wstring w;
  const wchar_t* data() const { return w.c_str(); }
};
struct FakeInterval {
  int start, end;
};
struct FakeNode {};
struct FakeControl {};
struct FakeBits {
  std::vector<bool> bits;
  int GetSize() const { return static_cast<int>(bits.size()); }
  void Set(int i) { bits[static_cast<size_t>(i)] = true; }
  int operator[](int i) const { return bits[static_cast<size_t>(i)] ? 1 : 0; }
};
struct FakeValue;
struct FakeTab {
  std::vector<FakeValue*> items;
  int Count() const { return static_cast<int>(items.size()); }
  FakeValue* operator[](int i) const { return items[static_cast<size_t>(i)]; }
};
// The members of the SDK's FPValue that the conversion touches, under the same names.
struct FakeValue {
  int type = kVoid;
  union {
    int i;
    float f;
    bool b;
    int t;
    const wchar_t* s;
    FakeText* tstr;
    FakeInterval* intvl;
    FakeNode* n;
    FakeControl* ctrl;
    FakeBits* bits;
    FakeTab* fpv_tab;
    void* ptr = nullptr;
  };
};

std::wstring Wide(const std::string& s) {
  return std::wstring(s.begin(), s.end());  // the tests use ASCII only
}

// Host nodes and controllers are only ever carried as pointers here, so distinct addresses
// stand in for them.
struct Host {
  FakeNode sdkNode[2];
  FakeControl sdkControl;
  char nodeTag[2] = {};
  char controlTag = 0;
  host::Node* node(int k) { return reinterpret_cast<host::Node*>(&nodeTag[k]); }
  host::Control* control() { return reinterpret_cast<host::Control*>(&controlTag); }
};

struct In {
  Host& h;
  std::string Text(const wchar_t* s) { return std::string(s, s + std::wcslen(s)); }
  kv::Interval Range(const FakeInterval& i) { return {i.start, i.end}; }
  host::Node* Node(FakeNode* n) {
    return n == &h.sdkNode[0] ? h.node(0) : nullptr;
  }  // [1]: foreign
  host::Control* Control(FakeControl* c) { return c == &h.sdkControl ? h.control() : nullptr; }
};

struct Out {
  explicit Out(Host& host) : h(host) {}
  Host& h;
  std::deque<std::wstring> names;
  std::vector<std::unique_ptr<FakeText>> texts;
  std::vector<std::unique_ptr<FakeInterval>> ranges;
  std::vector<std::unique_ptr<FakeBits>> bitSets;
  std::vector<std::unique_ptr<FakeTab>> tabs;
  std::vector<std::unique_ptr<FakeValue>> values;
  FakeText* NewText(const std::string& s) {
    texts.push_back(std::make_unique<FakeText>(FakeText{Wide(s)}));
    return texts.back().get();
  }
  const wchar_t* NameText(const std::string& s) {
    names.push_back(Wide(s));
    return names.back().c_str();
  }
  FakeInterval* NewRange(kv::Interval iv) {
    ranges.push_back(std::make_unique<FakeInterval>(FakeInterval{iv.Start(), iv.End()}));
    return ranges.back().get();
  }
  FakeNode* SdkNode(host::Node* n) { return n == h.node(0) ? &h.sdkNode[0] : nullptr; }
  FakeControl* SdkControl(host::Control* c) { return c == h.control() ? &h.sdkControl : nullptr; }
  FakeBits* NewBits(int size) {
    bitSets.push_back(std::make_unique<FakeBits>());
    bitSets.back()->bits.assign(static_cast<size_t>(size), false);
    return bitSets.back().get();
  }
  FakeTab* NewTab() {
    tabs.push_back(std::make_unique<FakeTab>());
    return tabs.back().get();
  }
  FakeValue* NewValue() {
    values.push_back(std::make_unique<FakeValue>());
    return values.back().get();
  }
  void Append(FakeTab* tab, FakeValue* v) { tab->items.push_back(v); }
};

TEST(FpConvert, EveryResultKindReadsBackAsItself) {
  Host h;
  BitArray bits(70);
  bits.Set(0);
  bits.Set(5);
  bits.Set(64);  // past the first word
  const Value pair = Value::List({Value::Int(0), Value::String("Box001")});
  const Value all =
      Value::List({Value::Int(7), Value::Float(2.5f), Value::Bool(true), Value::Bool(false),
                   Value::String("Group001"), Value::Name("holdin"), Value::Time(4800),
                   Value::Range(Interval(-160, 9600)), Value::Bits(bits), pair, Value::List({}),
                   Value::NodeRef(h.node(0)), Value::Ctrl(h.control())});
  Out out{h};
  FakeValue v;
  Write(all, v, out);
  EXPECT_EQ(v.type, 43 | 0x800 | 0x2000);  // a table of values, owned
  ASSERT_EQ(v.fpv_tab->Count(), 13);
  EXPECT_EQ((*v.fpv_tab)[4]->type, 37 | 0x2000);  // an owned string
  EXPECT_EQ((*v.fpv_tab)[5]->type, 41);           // a name
  EXPECT_EQ((*v.fpv_tab)[8]->type, 31 | 0x2000);  // an owned bitArray
  EXPECT_EQ((*v.fpv_tab)[11]->n, &h.sdkNode[0]);

  In in{h};
  EXPECT_EQ(Read(v, in), all);
}

TEST(FpConvert, ForeignOrMissingObjectsAreUndefined) {
  Host h;
  In in{h};
  FakeValue v;
  v.type = kINode;
  v.n = nullptr;
  EXPECT_EQ(Read(v, in).kind, script::Kind::Undefined);  // a keyword node left at none
  v.n = &h.sdkNode[1];
  EXPECT_EQ(Read(v, in).kind, script::Kind::Undefined);  // a node the host does not know
  v.type = kFileName;
  v.s = nullptr;
  EXPECT_EQ(Read(v, in).kind, script::Kind::Undefined);  // record without a file name
  v.type = kInterval;
  v.intvl = nullptr;
  EXPECT_EQ(Read(v, in).kind, script::Kind::Undefined);
  v.type = kControl;
  v.ctrl = nullptr;
  EXPECT_EQ(Read(v, in).kind, script::Kind::Undefined);

  // A node that is not the binding's own is written as no node rather than a wrong one.
  Out out{h};
  FakeValue w;
  Write(Value::NodeRef(h.node(1)), w, out);
  EXPECT_EQ(w.type, kINode);
  EXPECT_EQ(w.n, nullptr);
  Write(Value::MakeOk(), w, out);
  EXPECT_EQ(w.type, kVoid);
}

TEST(FpConvert, ArgumentsAsTheScriptingEngineHandsThem) {
  Host h;
  In in{h};
  FakeValue v;
  v.type = kBool;  // a BOOL: any non-zero int is true
  v.i = 2;
  EXPECT_EQ(Read(v, in), Value::Bool(true));
  v.type = kLowerBool;  // a C++ bool
  v.i = 0;
  v.b = true;
  EXPECT_EQ(Read(v, in), Value::Bool(true));
  v.type = kString | kByRef;
  v.s = L"A";
  EXPECT_EQ(Read(v, in), Value::String("A"));
  v.type = kName;
  v.s = L"HOLDIN";
  EXPECT_EQ(Read(v, in), Value::Name("HOLDIN"));  // kept as written; the core lower-cases
  v.type = kWorld;
  v.f = 1.5f;
  EXPECT_EQ(Read(v, in), Value::Float(1.5f));

  // A table of values with a hole, and a bitArray of a script's own size.
  FakeValue one, ctl;
  one.type = kInt;
  one.i = 3;
  ctl.type = kControl;
  ctl.ctrl = &h.sdkControl;
  FakeTab tab{{&one, nullptr, &ctl}};
  v.type = kFPValue | kTab | kByVal;
  v.fpv_tab = &tab;
  EXPECT_EQ(Read(v, in), Value::List({Value::Int(3), Value::Undef(), Value::Ctrl(h.control())}));
  FakeBits fb{{false, true, false}};
  v.type = kBitArray;
  v.bits = &fb;
  BitArray expect(3);
  expect.Set(1);
  EXPECT_EQ(Read(v, in), Value::Bits(expect));

  // Tables of plain numbers are not laid out as values: an empty array, not garbage.
  v.type = kInt | kTab;
  v.ptr = &tab;
  EXPECT_EQ(Read(v, in), Value::List({}));
  // A type the table never receives (a point) is undefined, not a number.
  v.type = 3;
  EXPECT_EQ(Read(v, in).kind, script::Kind::Undefined);
}

}  // namespace
}  // namespace kv::max::fp

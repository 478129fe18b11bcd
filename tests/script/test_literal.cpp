#include "fixture.h"

namespace kv::script::testing {
namespace {

class Literal : public ScriptTest {
 protected:
  Value Parse(const std::string& text) {
    Value v;
    std::string error;
    EXPECT_TRUE(ParseLiteral(text, *scene_, v, error)) << text << ": " << error;
    return v;
  }
  std::string Refused(const std::string& text) {
    Value v;
    std::string error;
    EXPECT_FALSE(ParseLiteral(text, *scene_, v, error)) << text << " was accepted";
    EXPECT_TRUE(v.Is(Kind::Undefined));
    return error;
  }
};

TEST_F(Literal, EveryKindPrintsAndReadsBackEqual) {
  host::Node* box = scene_->CreatePointHelperNode("Box001");
  host::Node* spaced = scene_->CreatePointHelperNode("It's a box");
  host::Control* tm = box->GetTMController();
  BitArray bits(12);
  for (int i : {0, 1, 2, 3, 4, 8, 11}) bits.Set(i);
  const std::vector<Value> values = {
      Value(),
      Value::MakeOk(),
      Value::Bool(true),
      Value::Bool(false),
      Value::Int(12),
      Value::Int(-2147483647 - 1),
      Value::Float(1.5f),
      Value::Float(2.0f),
      Value::Float(0.02f),
      Value::Float(-3.0e-7f),
      Value::String("text with \"quotes\", a \\ and\na new line"),
      Value::String(""),
      Value::Name("delete"),
      Value::Name("two words"),
      Value::Time(1600),
      Value::Time(85),
      Value::Time(-160),
      Value::Range(Interval(0, 16000)),
      Value::NodeRef(box),
      Value::NodeRef(spaced),
      Value::Ctrl(tm),
      Value::Ctrl(tm->GetPositionController()),
      Value::Ctrl(tm->GetRotationController()),
      Value::Ctrl(tm->GetScaleController()),
      Value::Bits(bits),
      Value::Bits(BitArray()),
      Value::List({}),
      Value::List(
          {Value::Int(1), Value::List({Value::String("a"), Value::Name("b")}), Value::Bits(bits)}),
  };
  for (const Value& v : values) {
    const std::string text = PrintLiteral(v, *scene_);
    EXPECT_EQ(Parse(text), v) << text;
  }
  // The forms the tool documents.
  EXPECT_EQ(PrintLiteral(Value::Bits(bits), *scene_), "#{1..5, 9, 12}");
  EXPECT_EQ(PrintLiteral(Value::Time(1600), *scene_), "10f");
  EXPECT_EQ(PrintLiteral(Value::Range(Interval(0, 16000)), *scene_), "(interval 0f 100f)");
  EXPECT_EQ(PrintLiteral(Value::Float(2.0f), *scene_), "2.0");
  EXPECT_EQ(PrintLiteral(Value::NodeRef(spaced), *scene_), "$'It\\'s a box'");
  EXPECT_EQ(Parse(" #( 1 ,2,3 ) "), Value::List({Value::Int(1), Value::Int(2), Value::Int(3)}));
  EXPECT_EQ(Parse("(interval 5 10.5f)"), Value::Range(Interval(800, 1680)));
  EXPECT_EQ(Parse("TRUE"), Value::Bool(true));
}

TEST_F(Literal, MalformedTextIsRefusedWithWhereAndWhat) {
  scene_->CreatePointHelperNode("Box001");
  EXPECT_EQ(Refused("#(1, 2"), "malformed literal at character 7: expected ',' or ')'");
  EXPECT_EQ(Refused("\"open"), "malformed literal at character 6: expected a closing '\"'");
  EXPECT_EQ(Refused("#{3..1}"), "malformed literal: a bit range runs backwards: 3..1");
  EXPECT_EQ(Refused("$Nobody"), "no node named 'Nobody' in the scene");
  EXPECT_EQ(Refused("12 13"),
            "malformed literal at character 4: expected end of the literal, "
            "found '1'");
  for (const char* bad :
       {"", "#", "#()x", "#{0}", "#{1,}", "#{99999999999}", "1.5.2", "12abc", "2147483648", "1e999",
        "(interval 1f)", "(interval \"a\" 2f)", "(range 1 2)", "$Box001.pos",
        "$Box001.width.controller", "\"\\q\"", "#(((((", "yes", "1.5t"}) {
    const std::string why = Refused(bad);
    EXPECT_FALSE(why.empty()) << bad;
  }
  // Deep nesting is refused, not followed until the stack runs out.
  EXPECT_NE(Refused([] {
              std::string deep;
              for (int i = 0; i < 100000; ++i) deep += "#(";
              return deep;
            }())
                .find("nested too deeply"),
            std::string::npos);
  EXPECT_NE(Refused(std::string(2000, '(')).size(), 0u);
}

TEST_F(Literal, CallWordsSplitIntoPositionalAndKeywordArguments) {
  std::vector<CallArg> args;
  std::string error;
  ASSERT_TRUE(
      ParseCallArgs({"\"A\"", "addSelected:true", "#(1, 2)", "\"x:y\""}, *scene_, args, error))
      << error;
  ASSERT_EQ(args.size(), 4u);
  EXPECT_EQ(args[0].name, "");
  EXPECT_EQ(args[1].name, "addSelected");
  EXPECT_EQ(args[1].value, Value::Bool(true));
  EXPECT_EQ(args[3].name, "");
  EXPECT_EQ(args[3].value, Value::String("x:y"));
  EXPECT_FALSE(ParseCallArgs({"groupName:"}, *scene_, args, error));
  EXPECT_EQ(error.rfind("keyword groupName: ", 0), 0u) << error;
}

TEST_F(Literal, IndicesConvertAsTheHostDoes) {
  std::vector<int32_t> e;
  ASSERT_TRUE(IndicesToElements(Parse("#(0, 3, 3, 1, -2, 9)"), 5, e));
  EXPECT_EQ(e, (std::vector<int32_t>{0, 2}));
  ASSERT_TRUE(IndicesToElements(Parse("#{2..9}"), 4, e));
  EXPECT_EQ(e, (std::vector<int32_t>{1, 2, 3}));
  ASSERT_TRUE(IndicesToElements(Parse("4"), 4, e));
  EXPECT_EQ(e, std::vector<int32_t>{3});
  EXPECT_FALSE(IndicesToElements(Parse("\"1\""), 4, e));
  EXPECT_FALSE(IndicesToElements(Parse("1.0"), 4, e));
  BitArray bits;
  EXPECT_FALSE(ToBitArray(Parse("#(1, \"2\")"), bits));
}

}  // namespace
}  // namespace kv::script::testing

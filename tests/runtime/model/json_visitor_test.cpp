#include "qrt_core/runtime/model/json_visitor.h"

#include <cmath>
#include <limits>

#include "tests/runtime/model/all_types.h"
#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/utility/half_tables.h"

namespace marlo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// What a fresh object of one attribute holds after it was read from a text.
template <typename T>
T read_value(const std::string& text, T initial = T()) {
  One<T> object(std::move(initial));
  EXPECT_TRUE(object.FromJsonString(text.c_str()));
  return object.value;
}

template <typename T>
std::string refusal(const std::string& value) {
  return error_of([&] { read_value<T>("{\"value\":" + value + "}"); });
}

template <typename T>
std::string one_in_json(T value) {
  One<T> object(std::move(value));
  Document document;
  runtime::json::parse(document, written(object, "json").c_str());
  rapidjson::StringBuffer text;
  rapidjson::Writer<rapidjson::StringBuffer> writer(text);
  document["value"].Accept(writer);
  return text.GetString();
}

TEST(JsonAbsentKey, SetsNumbersToZeroAndBoolsToFalse) {
  AllTypes object;
  ASSERT_TRUE(object.FromJsonString(R"({"text":""})"));
  EXPECT_EQ(object.u64, 0u);
  EXPECT_EQ(object.i64, 0);
  EXPECT_EQ(object.u32, 0u);
  EXPECT_EQ(object.i32, 0);
  EXPECT_EQ(object.u16, 0);
  EXPECT_EQ(object.i16, 0);
  EXPECT_EQ(object.u8, 0);
  EXPECT_EQ(object.i8, 0);
  EXPECT_EQ(object.f64, 0.0);
  EXPECT_EQ(object.half, 0.0f);
  EXPECT_EQ(object.f32, 0.0f);
  EXPECT_FALSE(object.boolean);
}

TEST(JsonAbsentKey, LeavesVectorsOfNumbersAndVectorsOfVectorsUnchanged) {
  AllTypes object;
  object.FromJsonString(R"({"text":""})");
  EXPECT_THAT(object.u16ss, ElementsAre(ElementsAre(9)));
  EXPECT_THAT(object.u64s, ElementsAre(9));
  EXPECT_THAT(object.u32s, ElementsAre(9));
  EXPECT_THAT(object.i64s, ElementsAre(9));
  EXPECT_THAT(object.i32s, ElementsAre(9));
  EXPECT_THAT(object.i16s, ElementsAre(9));
  EXPECT_THAT(object.u16s, ElementsAre(9));
  EXPECT_THAT(object.halves, ElementsAre(9.0f));
  EXPECT_THAT(object.floats, ElementsAre(9.0f));
}

TEST(JsonAbsentKey, LeavesAVectorOfStringsEmpty) {
  AllTypes object;
  object.FromJsonString(R"({"text":""})");
  EXPECT_THAT(object.strings, IsEmpty());
}

TEST(JsonAbsentKey, OfAStringNamesTheKeyAndTheObject) {
  const std::string text = error_of([] { read_value<std::string>("{}"); });
  EXPECT_THAT(text, HasSubstr("\"value\" is missing in the document"));
  runtime::QRTModel model;
  const std::string nested = error_of([&] {
    model.FromJsonString(
        R"({"sdk_type":"","model_arr":{"serializable_type":"","squential_ids":["n"],"n":{}}})");
  });
  EXPECT_THAT(nested, HasSubstr("\"serializable_type\" is missing in model_arr.n"));
}

TEST(JsonAbsentKey, OfACharIsRefusedLikeThatOfAString) {
  Letters object;
  EXPECT_THAT(error_of([&] { object.FromJsonString("{}"); }), HasSubstr("\"letters\" is missing"));
}

TEST(JsonAbsentKey, OfANestedObjectKeepsItsDefaults) {
  runtime::TensorShape shape({1}, runtime::DataType::FLOAT32, runtime::LayoutType::C);
  shape.extra.step_size = 5;
  shape.FromJsonString(R"({"serializable_type":""})");
  EXPECT_EQ(shape.extra.step_size, 5);
}

TEST(JsonNull, CountsAsAbsent) {
  AllTypes object;
  object.FromJsonString(R"({"text":"t","u64":null,"f32":null,"boolean":null,"strings":null,
                            "u16s":null})");
  EXPECT_EQ(object.u64, 0u);
  EXPECT_EQ(object.f32, 0.0f);
  EXPECT_FALSE(object.boolean);
  EXPECT_THAT(object.strings, IsEmpty());
  EXPECT_THAT(object.u16s, ElementsAre(9));
  EXPECT_THAT(refusal<std::string>("null"), HasSubstr("\"value\" is missing"));
}

TEST(JsonWrongKind, OfAnIntegerNamesKeyObjectExpectedAndFound) {
  EXPECT_THAT(refusal<uint16_t>("\"7\""),
              HasSubstr("\"value\" in the document: expected an integer, found a string"));
  EXPECT_THAT(refusal<uint64_t>("[]"), HasSubstr("expected an integer, found an array"));
  EXPECT_THAT(refusal<int64_t>("{}"), HasSubstr("expected an integer, found an object"));
  EXPECT_THAT(refusal<int32_t>("true"), HasSubstr("expected an integer, found a boolean"));
  EXPECT_THAT(refusal<int8_t>("1.5"), HasSubstr("expected an integer, found a number"));
  EXPECT_THAT(refusal<uint8_t>("1e300"), HasSubstr("expected an integer, found a number"));
  EXPECT_THAT(refusal<uint32_t>("false"), HasSubstr("expected an integer"));
  EXPECT_THAT(refusal<int16_t>("\"\""), HasSubstr("expected an integer"));
}

TEST(JsonInteger, IsReadHoweverItIsWritten) {
  EXPECT_EQ(read_value<uint16_t>(R"({"value":3.0})"), 3);
  EXPECT_EQ(read_value<int8_t>(R"({"value":-1e2})"), -100);
  EXPECT_EQ(read_value<uint64_t>(R"({"value":1e19})"), 10000000000000000000u);
  EXPECT_EQ(read_value<int64_t>(R"({"value":-9e18})"), -9000000000000000000);
  EXPECT_EQ(read_value<int32_t>(R"({"value":-0.0})"), 0);
  EXPECT_EQ(read_value<uint8_t>(R"({"value":258.0})"), 2) << "cut to the width";
  EXPECT_EQ(read_value<uint16_t>(R"({"value":-1.0})"), 0xFFFF) << "cut to the width";
  EXPECT_THAT(read_value<std::vector<uint32_t>>(R"({"value":[1e0,2]})"), ElementsAre(1, 2));
  for (const char* number : {"0.5", "-1.5", "2e19", "-1e19"}) {
    EXPECT_THAT(refusal<int64_t>(number), HasSubstr("expected an integer")) << number;
  }
}

TEST(JsonWrongKind, OfAFractionIsRefused) {
  EXPECT_THAT(refusal<float>("\"1\""), HasSubstr("expected a number, found a string"));
  EXPECT_THAT(refusal<double>("[1]"), HasSubstr("expected a number, found an array"));
  EXPECT_THAT(refusal<half_float::half>("true"), HasSubstr("expected a number, found a boolean"));
}

TEST(JsonWrongKind, OfAStringOrCharIsRefused) {
  EXPECT_THAT(refusal<std::string>("1"), HasSubstr("expected a string, found a number"));
  EXPECT_THAT(refusal<std::string>("{}"), HasSubstr("expected a string, found an object"));
  Letters object;
  EXPECT_THAT(error_of([&] { object.FromJsonString(R"({"letters":[]})"); }),
              HasSubstr("\"letters\" in the document: expected a string, found an array"));
}

TEST(JsonWrongKind, OfAVectorOrItsElementsIsRefused) {
  EXPECT_THAT(refusal<std::vector<float>>("1"), HasSubstr("expected an array, found a number"));
  EXPECT_THAT(refusal<std::vector<uint16_t>>("{}"),
              HasSubstr("expected an array, found an object"));
  EXPECT_THAT(refusal<std::vector<int64_t>>("[1,\"2\"]"),
              HasSubstr("expected an integer, found a string"));
  EXPECT_THAT(refusal<std::vector<half_float::half>>("[[]]"),
              HasSubstr("expected a number, found an array"));
  EXPECT_THAT(refusal<std::vector<std::string>>("\"a\""),
              HasSubstr("expected an array, found a string"));
  EXPECT_THAT(refusal<std::vector<std::string>>("[\"a\",1]"),
              HasSubstr("expected a string, found a number"));
  EXPECT_THAT(refusal<std::vector<std::vector<uint16_t>>>("[1]"),
              HasSubstr("expected an array of arrays, found a number"));
  EXPECT_THAT(refusal<std::vector<std::vector<uint16_t>>>("[[\"1\"]]"),
              HasSubstr("expected an integer, found a string"));
}

TEST(JsonWrongKind, InsideNestedObjectsNamesTheirPath) {
  runtime::QRTModel model;
  const std::string text = error_of([&] {
    model.FromJsonString(
        R"({"sdk_type":"","model_arr":{"serializable_type":"","squential_ids":["n"],
      "n":{"serializable_type":"","extra_info":{"serializable_type":"","version":"one"}}}})");
  });
  EXPECT_THAT(text, HasSubstr("\"version\" in model_arr.n.extra_info: expected an integer, "
                              "found a string"));
}

TEST(JsonWrongKind, OfABoolIsFalse) {
  for (const char* const value : {"1", "\"true\"", "null", "false", "[]", "{}", "1.5"}) {
    EXPECT_FALSE(read_value<bool>(std::string("{\"value\":") + value + "}", true)) << value;
  }
  EXPECT_TRUE(read_value<bool>(R"({"value":true})", false));
}

TEST(JsonNested, NullIsSkippedAndOtherKindsAreRefused) {
  runtime::TensorShape shape;
  shape.extra.step_size = 5;
  shape.FromJsonString(R"({"serializable_type":"","extra":null})");
  EXPECT_EQ(shape.extra.step_size, 5);
  for (const char* const value : {"1", "\"text\"", "true", "false", "1.5"}) {
    const std::string text = std::string(R"({"serializable_type":"","extra":)") + value + "}";
    EXPECT_EQ(error_of([&] { shape.FromJsonString(text.c_str()); }),
              "[QRT]: Created node is a unkown value.\n");
  }
}

TEST(JsonNested, AnArrayIsReadAsAnObjectWithoutMembers) {
  runtime::LayerCfg layer;
  // A table visits nothing more when its list of ids is absent.
  layer.FromJsonString(R"({"summary":"s","input_converters":[],
    "kernel":{"kernel_type":"k","infer_param_type":""}})");
  EXPECT_THAT(layer.input_converters->kernel_ids, IsEmpty());
  EXPECT_EQ(layer.kernel->kernel_type, "k");
}

TEST(JsonInteger, IsCutToTheWidthOfItsAttribute) {
  EXPECT_EQ(read_value<uint8_t>(R"({"value":258})"), 2);
  EXPECT_EQ(read_value<int8_t>(R"({"value":200})"), -56);
  EXPECT_EQ(read_value<uint16_t>(R"({"value":65537})"), 1);
  EXPECT_EQ(read_value<int16_t>(R"({"value":32768})"), -32768);
  EXPECT_EQ(read_value<uint32_t>(R"({"value":4294967298})"), 2u);
  EXPECT_EQ(read_value<int32_t>(R"({"value":2147483648})"), std::numeric_limits<int32_t>::min());
  EXPECT_EQ(read_value<std::vector<uint16_t>>(R"({"value":[65538,-1]})"),
            (std::vector<uint16_t>{2, 65535}));
}

TEST(JsonInteger, MinusOneIntoAnUnsignedAttributeSetsAllBits) {
  EXPECT_EQ(read_value<uint8_t>(R"({"value":-1})"), 0xFF);
  EXPECT_EQ(read_value<uint16_t>(R"({"value":-1})"), 0xFFFF);
  EXPECT_EQ(read_value<uint32_t>(R"({"value":-1})"), 0xFFFFFFFF);
  EXPECT_EQ(read_value<uint64_t>(R"({"value":-1})"), 0xFFFFFFFFFFFFFFFF);
}

TEST(JsonInteger, KeepsTheExtremesOf64Bits) {
  EXPECT_EQ(read_value<uint64_t>(R"({"value":18446744073709551615})"),
            std::numeric_limits<uint64_t>::max());
  EXPECT_EQ(read_value<int64_t>(R"({"value":-9223372036854775808})"),
            std::numeric_limits<int64_t>::min());
  EXPECT_EQ(read_value<int64_t>(R"({"value":9223372036854775807})"),
            std::numeric_limits<int64_t>::max());
  EXPECT_EQ(read_value<int64_t>(R"({"value":18446744073709551615})"), -1);
  EXPECT_EQ(one_in_json(std::numeric_limits<uint64_t>::max()), "18446744073709551615");
  EXPECT_EQ(one_in_json(std::numeric_limits<int64_t>::min()), "-9223372036854775808");
}

TEST(JsonInteger, IsWrittenInIntegerFormWithTheSignOfASignedType) {
  EXPECT_EQ(one_in_json<int8_t>(-1), "-1");
  EXPECT_EQ(one_in_json<uint8_t>(255), "255");
  EXPECT_EQ(one_in_json<int16_t>(-32768), "-32768");
  EXPECT_EQ(one_in_json<uint16_t>(65535), "65535");
  EXPECT_EQ(one_in_json<int32_t>(-7), "-7");
  EXPECT_EQ(one_in_json<uint32_t>(4294967295u), "4294967295");
  EXPECT_EQ(one_in_json<bool>(true), "true");
  EXPECT_EQ(one_in_json<bool>(false), "false");
  EXPECT_EQ(one_in_json(std::vector<int64_t>{-1, 2}), "[-1,2]");
  EXPECT_EQ(one_in_json(std::vector<std::vector<uint16_t>>{{1, 2}, {}}), "[[1,2],[]]");
}

TEST(JsonFraction, AcceptsAnyIntegerForm) {
  EXPECT_EQ(read_value<float>(R"({"value":-3})"), -3.0f);
  EXPECT_EQ(read_value<double>(R"({"value":18446744073709551615})"), 18446744073709551615.0);
  EXPECT_EQ(read_value<half_float::half>(R"({"value":2})"), 2.0f);
  EXPECT_THAT(read_value<std::vector<float>>(R"({"value":[1,2.5]})"), ElementsAre(1.0f, 2.5f));
}

TEST(JsonFraction, IsTruncatedToAHalf) {
  EXPECT_EQ(read_value<half_float::half>(R"({"value":0.1})"), half_value_of(0x2E66));
  EXPECT_EQ(read_value<half_float::half>(R"({"value":1e9})"),
            std::numeric_limits<float>::infinity());
}

TEST(JsonFraction, PointOneShowsTheDigitsOfTheDoubleAndComesBackAsTheSameFloat) {
  EXPECT_EQ(one_in_json(0.1f), "0.10000000149011612");
  EXPECT_EQ(one_in_json(0.1), "0.1");
  EXPECT_EQ(read_value<float>("{\"value\":" + one_in_json(0.1f) + "}"), 0.1f);
  EXPECT_EQ(one_in_json(half_float::half(0.1f)), "0.0999755859375");
}

TEST(JsonFraction, ThatIsNotFiniteIsRefusedWithALogLineAndNoFile) {
  for (const float value :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    const TemporaryFolder folder;
    const std::string path = folder.file("one.json");
    const LogCapture log;
    One<float> object(value);
    EXPECT_FALSE(object.ToFile(path.c_str(), "json"));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_THAT(log.lines()[0], HasSubstr(path));
    EXPECT_FALSE(std::ifstream(path).is_open());
  }
}

TEST(JsonString, IsCutAtAnEmbeddedNul) {
  EXPECT_EQ(one_in_json(std::string("ab\0cd", 5)), "\"ab\"");
  EXPECT_EQ(one_in_json(std::vector<std::string>{std::string("a\0b", 3), "c"}), "[\"a\",\"c\"]");
  EXPECT_EQ(read_value<std::string>("{\"value\":\"ab\\u0000cd\"}"), "ab");
}

TEST(JsonChar, IsWrittenAsTheTextItBegins) {
  Letters object;
  std::strcpy(object.letters, "abc");
  EXPECT_THAT(written(object, "json"), HasSubstr("\"letters\": \"abc\""));
}

TEST(JsonChar, IsReadWithoutATerminator) {
  Letters object;
  object.FromJsonString(R"({"letters":"xy"})");
  EXPECT_STREQ(object.letters, "xy-----");
}

TEST(JsonChar, IsNotReadBeyondTheTextThatStandsThere) {
  Letters object;
  object.FromJsonString(R"({"letters":"1234567"})");
  EXPECT_STREQ(object.letters, "1234567");
  EXPECT_THAT(error_of([&] { object.FromJsonString(R"({"letters":"12345678"})"); }),
              HasSubstr("\"letters\" in the document: a text of 8 characters, and room for 7"));
  EXPECT_STREQ(object.letters, "1234567");
  // One char without a text has room for itself.
  EXPECT_EQ(read_value<char>(R"({"value":"x"})"), 'x');
  EXPECT_THAT(refusal<char>("\"xy\""), HasSubstr("a text of 2 characters, and room for 1"));
}

TEST(JsonVector, OfNumbersIsAppendedTo) {
  EXPECT_THAT(read_value<std::vector<uint32_t>>(R"({"value":[1,2]})", {7}), ElementsAre(7, 1, 2));
  EXPECT_THAT(read_value<std::vector<uint64_t>>(R"({"value":[1]})", {7}), ElementsAre(7, 1));
  EXPECT_THAT(read_value<std::vector<int32_t>>(R"({"value":[-1]})", {7}), ElementsAre(7, -1));
  EXPECT_THAT(read_value<std::vector<int16_t>>(R"({"value":[-1]})", {7}), ElementsAre(7, -1));
}

TEST(JsonVector, OfStringsIsClearedFirst) {
  EXPECT_THAT(read_value<std::vector<std::string>>(R"({"value":["a"]})", {"old"}),
              ElementsAre("a"));
}

TEST(JsonVector, OfVectorsIsAppendedToAndDoublesEachInnerVectorWithZerosInFront) {
  using Lists = std::vector<std::vector<uint16_t>>;
  EXPECT_EQ(read_value<Lists>(R"({"value":[[1,2],[],[3]]})", {{8}}),
            (Lists{{8}, {0, 0, 1, 2}, {}, {0, 3}}));
}

TEST(JsonObject, TakesTheFirstOfEqualKeys) {
  EXPECT_EQ(read_value<uint16_t>(R"({"value":1,"value":2})"), 1);
}

TEST(JsonObject, TakesTheFirstOfEqualKeysAlsoAmongManyMembers) {
  std::string text = "{";
  for (int i = 0; i < 100; ++i) text += "\"k" + std::to_string(i) + "\":0,";
  EXPECT_EQ(read_value<uint16_t>(text + R"("value":1,"value":2})"), 1);
  EXPECT_EQ(read_value<uint16_t>(text + R"("value\u0000":3,"value":1})"), 1)
      << "a key is compared by its length as well";
  EXPECT_EQ(read_value<uint16_t>(text + R"("valu":1})", 5), 0);
  EXPECT_EQ(read_value<uint16_t>(text + R"("value":null})", 5), 0);
}

TEST(JsonObject, ThatIsReadAgainTooOftenIsRefused) {
  std::string ids, members;
  for (int i = 0; i < 2000; ++i) ids += i == 0 ? "\"a\"" : ",\"a\"";
  for (int i = 0; i < 2000; ++i) members += i == 0 ? "1" : ",1";
  std::string codes = "22";
  for (int i = 1; i < 2000; ++i) codes += ",22";
  const std::string text = R"({"serializable_type":"","squential_ids":[)" + ids +
                           R"(],"squential_types":[)" + codes +
                           R"(],"a":{"serializable_type":"","type":22,"id":"a","input_ids":[)" +
                           R"("x","x","x","x","x","x","x","x","x","x","x","x","x","x","x"]}})";
  runtime::QRModelInfo info;
  EXPECT_THAT(error_of([&] { info.FromJsonString(text.c_str()); }),
              HasSubstr("the parts of this document are read again too often"));
}

TEST(JsonVersion, AbsentIsTheCurrentOne) {
  runtime::ActivationInfo info;
  info.FromJsonString(R"({"serializable_type":"","id":"","num_parameters":3,"weight":"w"})");
  EXPECT_EQ(info.num_parameters, 3);
  EXPECT_EQ(info.weight, "w");
}

TEST(JsonVersion, Of20015PassesAnd20016Fails) {
  EXPECT_EQ(read_value<int8_t>(R"({"serialization_protocol_version":20015,"value":1})"), 1);
  EXPECT_EQ(error_of([] { read_value<int8_t>(R"({"serialization_protocol_version":20016})"); }),
            "[QRT]: _serialization_protocol_version > __SERIALIZATION_PROTOCOL_VERSION__.\n");
}

TEST(JsonVersion, Of0And19999FollowsTheOldestRows) {
  for (const char* const version : {"0", "19999"}) {
    runtime::NetExtraInfo info;
    info.summary = "kept";
    info.FromJsonString((std::string(R"({"serialization_protocol_version":)") + version +
                         R"(,"serializable_type":"","fmlas":4294967297,"device":"d",
                             "summary":"not read"})")
                            .c_str());
    EXPECT_EQ(info.summary, "kept") << version;
    EXPECT_EQ(info.fmlas, 1u) << "32 bits wide then";
  }
}

TEST(JsonVersion, OfAWrongKindIsRefused) {
  EXPECT_THAT(error_of([] { read_value<int8_t>(R"({"serialization_protocol_version":"new"})"); }),
              HasSubstr("\"serialization_protocol_version\" in the document: expected an integer"));
}

TEST(JsonVersion, IsLookedForInTheRootOnly) {
  runtime::TensorShape shape;
  shape.FromJsonString(R"({"serializable_type":"","extra":{
      "serialization_protocol_version":99999,"serializable_type":"","step_size":3}})");
  EXPECT_EQ(shape.extra.step_size, 3);
}

TEST(JsonVersion, CanBeGivenToAGetter) {
  Document document;
  runtime::json::parse(document, R"({"serialization_protocol_version":99999})");
  EXPECT_EQ(runtime::JSONNodeGetter(document, 20003)._serialization_protocol_version, 20003u);
}

TEST(JsonSetter, WritesTheVersionFirstWhenAsked) {
  Document document(rapidjson::kObjectType);
  runtime::JSONNodeSetter setter(document, document.GetAllocator(), true);
  EXPECT_EQ(setter._serialization_protocol_version, 20015u);
  ASSERT_EQ(document.MemberCount(), 1u);
  EXPECT_STREQ(member_at(document, 0).name.GetString(), "serialization_protocol_version");
  EXPECT_EQ(member_at(document, 0).value.GetUint(), 20015u);
  Document other(rapidjson::kObjectType);
  runtime::JSONNodeSetter(other, other.GetAllocator(), false);
  EXPECT_EQ(other.MemberCount(), 0u);
}

TEST(JsonAttributes, OfEveryTypeComeBack) {
  AllTypes object;
  object.u16ss.clear();
  object.f64 = 0.1;
  object.i64s = {std::numeric_limits<int64_t>::min()};
  AllTypes other;
  other.u64s.clear(), other.u32s.clear(), other.i64s.clear(), other.i32s.clear();
  other.i16s.clear(), other.u16s.clear(), other.halves.clear(), other.floats.clear();
  other.u16ss.clear();
  other.FromJsonString(written(object, "json").c_str());
  EXPECT_EQ(written(other, "bin"), written(object, "bin"));
}

}  // namespace
}  // namespace marlo::test

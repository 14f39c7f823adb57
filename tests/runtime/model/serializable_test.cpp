#include "qrt_core/runtime/model/serializable.h"

#include "qrt_core/runtime/model/file_visitor.h"
#include "tests/runtime/model/all_types.h"
#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"

namespace marlo::test {
namespace {

using ::testing::HasSubstr;

const std::string kTimeJson =
    R"({"serializable_type":"TimeInfo","year":7,"moon":0,"day":0,"hour":0,"min":0,"sec":0})";
const std::string kTimeBinary = binary_file(counted("TimeInfo") + le(7, 4) + std::string(20, '\0'));

class FromFile : public ::testing::Test {
 protected:
  std::string made(const std::string& name, const std::string& bytes) const {
    write_file(folder_.file(name), bytes);
    return folder_.file(name);
  }

  TemporaryFolder folder_;
  runtime::TimeInfo time_;
};

TEST_F(FromFile, DispatchesBySuffix) {
  for (const char* const name : {"a.qrmod", "a.qrcfg", "a.qrmods", "a.qrcfgs"}) {
    time_.year = 0;
    EXPECT_TRUE(time_.FromFile(made(name, kTimeBinary).c_str())) << name;
    EXPECT_EQ(time_.year, 7u) << name;
  }
  time_.year = 0;
  EXPECT_TRUE(time_.FromFile(made("a.json", kTimeJson).c_str()));
  EXPECT_EQ(time_.year, 7u);
}

TEST_F(FromFile, OfATxtOrQrtmodelPathFailsWithTheNetsMessage) {
  EXPECT_EQ(error_of([&] { time_.FromFile("model.txt"); }),
            "[QRT]: Unknow nets file type, file path: model.txt.\n");
  EXPECT_EQ(error_of([&] { time_.FromFile("model.qrtmodel"); }),
            "[QRT]: Unknow nets file type, file path: model.qrtmodel.\n");
  EXPECT_THAT(error_of([&] { time_.FromFile("model.JSON"); }), HasSubstr("Unknow nets file type"));
}

TEST_F(FromFile, OfATwoLetterPathIsOutOfRange) {
  EXPECT_THROW(time_.FromFile("ab"), std::out_of_range);
  EXPECT_THROW(time_.FromFile(""), std::out_of_range);
}

TEST_F(FromFile, TestsItsSuffixesInOrderSoThatAShortPathIsOutOfRangeOnlyAtALongerSuffix) {
  EXPECT_THROW(time_.FromFile("a.txt"), std::out_of_range) << "5 characters, 6 needed next";
  EXPECT_THROW(time_.FromFile("ab.txt"), std::out_of_range) << "6 characters, 7 needed next";
  EXPECT_THAT(error_of([&] { time_.FromFile("abc.txt"); }), HasSubstr("Unknow nets file type"));
  EXPECT_THAT(error_of([&] { time_.FromFile(".json"); }), HasSubstr("Error in opening the file"));
}

TEST_F(FromFile, WithTypeJsonInCapitalsLogsAndReturnsFalse) {
  const LogCapture log;
  EXPECT_FALSE(time_.FromFile("a.json", "JSON"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0], "[QRT]: Unknow file type, file path: a.json.\n");
}

TEST_F(FromFile, WithAnyOtherTypeLogsAndReturnsFalse) {
  for (const char* const type : {"", "jso", "jsonx", "binary", "bi", "BIN"}) {
    const LogCapture log;
    EXPECT_FALSE(time_.FromFile("p", type)) << type;
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "[QRT]: Unknow file type, file path: p.\n");
  }
}

TEST_F(FromFile, OfABinaryFileThatCannotBeOpenedLogsAndReturnsFalse) {
  const std::string path = folder_.file("absent");
  const LogCapture log;
  EXPECT_FALSE(time_.FromFile(path.c_str(), "bin"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0], "[QRT]: Failed to open model file, file path: " + path + ".\n");
}

TEST_F(FromFile, OfAJsonFileThatCannotBeOpenedThrows) {
  const std::string path = folder_.file("absent.json");
  EXPECT_EQ(error_of([&] { time_.FromFile(path.c_str()); }),
            "[QRT]: Error in opening the file [" + path + "].\n");
}

TEST_F(FromFile, OfADirectoryThrows) {
  const std::string path = folder_.file("");
  EXPECT_THAT(error_of([&] { time_.FromFile(path.c_str(), "json"); }),
              HasSubstr("Error in read the whole file [" + path + "]."));
  EXPECT_THAT(error_of([&] { time_.FromFile(path.c_str(), "bin"); }),
              HasSubstr("failed to read a unsigned long value"));
}

TEST_F(FromFile, OfTextThatIsNoJsonObjectThrowsTheTagAlone) {
  for (const char* const text : {"", "{", "[]", "1", "null", "\"text\"", "{\"a\":}", "{} x"}) {
    EXPECT_EQ(error_of([&] { time_.FromFile(made("a.json", text).c_str()); }), "[QRT]: ") << text;
    EXPECT_EQ(error_of([&] { time_.FromJsonString(text); }), "[QRT]: ") << text;
  }
}

TEST_F(FromFile, OfDeeplyNestedTextThrowsAndDoesNotOverflowTheStack) {
  const std::string brackets(1 << 20, '[');
  EXPECT_EQ(error_of([&] { time_.FromJsonString(brackets.c_str()); }), "[QRT]: ");
  const std::string closed = "{\"a\":" + brackets + std::string(1 << 20, ']') + "}";
  EXPECT_THAT(error_of([&] { time_.FromJsonString(closed.c_str()); }),
              HasSubstr("\"serializable_type\" is missing"));
}

TEST_F(FromFile, KeepsWhatWasReadUpToAFault) {
  error_of([&] { time_.FromJsonString(R"({"serializable_type":"","year":3,"moon":"May"})"); });
  EXPECT_EQ(time_.year, 3u);
}

TEST_F(FromFile, StopsAtTheFirstNulByteOfAJsonFile) {
  EXPECT_TRUE(time_.FromFile(made("a.json", kTimeJson + std::string("\0garbage", 8)).c_str()));
  EXPECT_EQ(time_.year, 7u);
  EXPECT_EQ(runtime::ReadJsonFile2StrStream(made("b", std::string("ab\0c", 4)).c_str()).str(),
            "ab");
}

TEST_F(FromFile, OfAnEmptyTextGivesAnEmptyStream) {
  EXPECT_EQ(runtime::ReadJsonFile2StrStream(made("a", "").c_str()).str(), "");
}

TEST_F(FromFile, IgnoresWhatFollowsTheLastAttributeOfABinaryFile) {
  EXPECT_TRUE(time_.FromFile(made("a", kTimeBinary + "more").c_str(), "bin"));
}

TEST_F(FromFile, WarnsOfWhatFollowsTheLastAttributeOfABinaryFile) {
  const LogCapture log;
  const std::string path = made("a", kTimeBinary + "more");
  EXPECT_TRUE(time_.FromFile(path.c_str(), "bin"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_EQ(log.lines()[0],
            "[QRT] (Warnning): 4 bytes follow the object, which may be another one than was "
            "written, file path: " +
                path + ".");
}

TEST_F(FromFile, WarnsOfAnotherClassInABinaryFile) {
  runtime::ClipInfo clip;
  const std::string bytes = written(clip, "bin");
  runtime::SoftmaxInfo softmax;
  const LogCapture log;
  EXPECT_TRUE(read_bytes(softmax, bytes));
  ASSERT_EQ(log.lines().size(), 2u);
  EXPECT_EQ(
      log.lines()[0],
      "[QRT] (Warnning): what is read as a SoftmaxInfo calls itself \"ClipInfo\" in the file");
  EXPECT_THAT(log.lines()[1], HasSubstr("2 bytes follow the object"));
}

TEST_F(FromFile, SaysNothingOfTheRightClassOrOfNoName) {
  const LogCapture log;
  EXPECT_TRUE(read_bytes(time_, kTimeBinary));
  EXPECT_TRUE(read_bytes(time_, binary_file(counted("") + std::string(24, '\0'))));
  EXPECT_TRUE(log.lines().empty());
}

TEST(NullArgument, IsNamed) {
  runtime::TimeInfo time;
  const char* const none = nullptr;
  const std::string path = "[QRT]: a null pointer was given for the path\n";
  const std::string type = "[QRT]: a null pointer was given for the type\n";
  EXPECT_EQ(error_of([&] { time.FromFile(none); }), path);
  EXPECT_EQ(error_of([&] { time.FromFile(none, "bin"); }), path);
  EXPECT_EQ(error_of([&] { time.FromFile("p", none); }), type);
  EXPECT_EQ(error_of([&] { time.ToFile(none, "bin"); }), path);
  EXPECT_EQ(error_of([&] { time.ToFile("p", none); }), type);
  EXPECT_EQ(error_of([&] { runtime::ReadJsonFile2StrStream(none); }), path);
  EXPECT_EQ(error_of([&] { time.FromJsonString(none); }),
            "[QRT]: a null pointer was given for the JSON text\n");
  EXPECT_EQ(error_of([] { runtime::FILEWriter(nullptr, true); }),
            "[QRT]: cant construct FILEWriter object using a NULL ptr.\n");
}

TEST(ToFile, WithAnUnknownTypeLogsAndReturnsFalse) {
  runtime::TimeInfo time;
  for (const char* const type : {"JSON", "Bin", "", "text"}) {
    const LogCapture log;
    EXPECT_FALSE(time.ToFile("p", type));
    ASSERT_EQ(log.lines().size(), 1u);
    EXPECT_EQ(log.lines()[0], "[QRT]: Unknow file type, file path: p.\n");
  }
}

TEST(ToFile, OfJsonWritesTheVersionFirstAndIndentsBy4Blanks) {
  runtime::TimeInfo time;
  time.year = 2024;
  EXPECT_EQ(written(time, "json"), R"({
    "serialization_protocol_version": 20015,
    "serializable_type": "TimeInfo",
    "year": 2024,
    "moon": 0,
    "day": 0,
    "hour": 0,
    "min": 0,
    "sec": 0
})");
}

TEST(ToFile, OfJsonWritesTheVersionInTheRootAlone) {
  runtime::QRTModel model;
  const std::string text = written(model, "json");
  EXPECT_EQ(text.find("serialization_protocol_version"),
            text.rfind("serialization_protocol_version"));
}

TEST(ToFile, OfJsonReadBackGivesEqualValues) {
  runtime::Conv2dInfo info;
  info.id = "conv \"1\"";
  info.input_ids = {"a", "b"};
  info.kernel_x = 3;
  info.if_bias = true;
  info.weight = "AACAPw==";
  runtime::Conv2dInfo other;
  ASSERT_TRUE(other.FromJsonString(written(info, "json").c_str()));
  EXPECT_EQ(other.id, info.id);
  EXPECT_EQ(other.input_ids, info.input_ids);
  EXPECT_EQ(other.kernel_x, 3);
  EXPECT_TRUE(other.if_bias);
  EXPECT_EQ(other.weight, info.weight);
}

TEST(ToFile, ToAPathThatCannotBeOpenedIsUndetectedForJsonAndFalseForBinary) {
  runtime::TimeInfo time;
  {
    const LogCapture log;
    EXPECT_TRUE(time.ToFile("/nonexistent/folder/file", "json"));
    ASSERT_EQ(log.lines().size(), 1u) << "only the log tells";
    EXPECT_THAT(log.lines()[0], HasSubstr("Failed to open model file"));
  }
  const LogCapture log;
  EXPECT_FALSE(time.ToFile("/nonexistent/folder/file", "bin"));
  ASSERT_EQ(log.lines().size(), 1u);
  EXPECT_THAT(log.lines()[0], HasSubstr("/nonexistent/folder/file"));
}

TEST(SerializableType, IsReplacedByWhatIsRead) {
  runtime::TimeInfo time;
  time.FromJsonString(R"({"serializable_type":"Stranger"})");
  EXPECT_EQ(time.serializable_type, "Stranger");
  read_bytes(time, binary_file(counted("Another") + std::string(24, '\0')));
  EXPECT_EQ(time.serializable_type, "Another");
  EXPECT_THAT(written(time, "json"), HasSubstr("\"serializable_type\": \"TimeInfo\""))
      << "writing sets the class's own name";
  EXPECT_EQ(time.serializable_type, "TimeInfo");
}

TEST(SerializableType, HoldsTheWholeNameAfterGetClassTypeNameUntilAWalkReplacesIt) {
  runtime::Conv2dInfo info;
  EXPECT_EQ(info.GetClassTypeName(), "Conv2dInfo");
  EXPECT_EQ(info.serializable_type, "marlo::runtime::Conv2dInfo");
  written(info, "bin");
  EXPECT_EQ(info.serializable_type, "Conv2dInfo");
}

TEST(SerializableType, IsNotTouchedByClassesThatSkipTheBaseWalk) {
  runtime::QRTModel model;
  model.serializable_type = "mine";
  EXPECT_EQ(written(model, "json").find("serializable_type"),
            written(model, "json").find("\"serializable_type\": \"QRModelInfoArr\"") + 1)
      << "the first one is that of model_arr";
  EXPECT_EQ(model.serializable_type, "mine");
  runtime::KernelCfg kernel;
  EXPECT_EQ(written(kernel, "json").find("serializable_type"), std::string::npos);
}

TEST(SerializableType, IsSerializableInTheBaseClass) {
  EXPECT_EQ(runtime::Serializable().serializable_type, "Serializable");
}

TEST(TensorShapePersistence, KeepsDimsCodesAndStepSize) {
  runtime::TensorShape shape({1, 3, 4, 4}, runtime::DataType::FLOAT32, runtime::LayoutType::C4HW4,
                             runtime::LocationType::MainMemory, runtime::TensorShape::Extra(6));
  for (const bool json : {true, false}) {
    runtime::TensorShape other;
    if (json) {
      ASSERT_TRUE(other.FromJsonString(written(shape, "json").c_str()));
    } else {
      ASSERT_TRUE(read_bytes(other, written(shape, "bin")));
    }
    EXPECT_EQ(other, shape);
    EXPECT_EQ(other.dims, (std::vector<uint32_t>{1, 3, 4, 4}));
    EXPECT_EQ(static_cast<uint32_t>(other.data_type), 0u);
    EXPECT_EQ(static_cast<uint32_t>(other.layout), 2u);
    EXPECT_EQ(static_cast<uint32_t>(other.location), 0x10001u);
    EXPECT_EQ(other.extra.step_size, 6);
  }
}

TEST(TensorShapePersistence, KeepsCodesWithoutAName) {
  runtime::TensorShape shape;
  shape.FromJsonString(R"({"serializable_type":"","data_type":77,"layout":78,"location":79})");
  EXPECT_EQ(static_cast<uint32_t>(shape.data_type), 77u);
  EXPECT_EQ(static_cast<uint32_t>(shape.layout), 78u);
  EXPECT_EQ(static_cast<uint32_t>(shape.location), 79u);
}

}  // namespace
}  // namespace marlo::test

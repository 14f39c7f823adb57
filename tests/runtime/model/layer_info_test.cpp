#include "qrt_core/runtime/model/layer_catalogue.h"

#include "tests/runtime/model/classes.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/utility/half_tables.h"

namespace marlo::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

// A layer's name in the file, its type, id, sources and readers.
std::string layer_head(const std::string& name, uint16_t type) {
  return counted(name) + le(type, 2) + counted("a") + le(0, 8) + le(0, 2);
}

TEST(Conv2dInfo, DefaultsToStridesDilationsAndGroupsOf1AndAllElse0) {
  const runtime::Conv2dInfo info;
  for (const uint16_t one :
       {info.stride_x, info.stride_y, info.dilation_x, info.dilation_y, info.groups}) {
    EXPECT_EQ(one, 1);
  }
  for (const uint16_t zero : {info.in_channels, info.out_channels, info.kernel_x, info.kernel_y,
                              info.padding_l, info.padding_t, info.padding_r, info.padding_b}) {
    EXPECT_EQ(zero, 0);
  }
  EXPECT_FALSE(info.if_bias);
  EXPECT_EQ(info.weight + info.bias, "");
}

TEST(BatchNorm1dInfo, OfVersion20004HasNoCounterAndOf20005Reads4BytesMore) {
  const std::string body = layer_head("BatchNorm1dInfo", 30) + le(1, 2) + le(0, 4) + le(0, 4) +
                           le(1, 1) + le(1, 1) + std::string(4 * 8, '\0');
  runtime::BatchNorm1dInfo old;
  ASSERT_TRUE(read_bytes(old, binary_file(body, 20004)));
  EXPECT_EQ(old.num_batches_tracked, -1);
  runtime::BatchNorm1dInfo info;
  ASSERT_TRUE(read_bytes(info, binary_file(body + le(77, 4), 20005)));
  EXPECT_EQ(info.num_batches_tracked, 77);
  EXPECT_THAT(error_of([&] { read_bytes(info, binary_file(body, 20005)); }),
              HasSubstr("failed to read a int value"));
}

TEST(ActivationInfo, OfVersion20011HasOneParameterAndNoWeightAndOf20012HasBoth) {
  const std::string body = layer_head("ActivationInfo", 1) + le(4, 2) + le(0x3C00, 2) + le(0, 2);
  runtime::ActivationInfo old;
  ASSERT_TRUE(read_bytes(old, binary_file(body, 20011)));
  EXPECT_EQ(old.num_parameters, 1);
  EXPECT_EQ(old.weight, "");
  runtime::ActivationInfo info;
  ASSERT_TRUE(read_bytes(info, binary_file(body + le(3, 2) + counted("text"), 20012)));
  EXPECT_EQ(info.num_parameters, 3);
  EXPECT_EQ(info.weight, "text");
}

TEST(ClipInfo, DefaultConvertsToHalfExactly) {
  const runtime::ClipInfo info;
  EXPECT_EQ(info.minimum_value, -65504.0f);
  EXPECT_EQ(info.maximum_value, 65504.0f);
}

TEST(TensorGetItemInfo, WithCount0HasNoNestedObjects) {
  runtime::TensorGetItemInfo info;
  info.sampling_infos.resize(2);
  ASSERT_TRUE(read_bytes(info, binary_file(layer_head("TensorGetItemInfo", 22) + le(0, 2))));
  EXPECT_THAT(info.sampling_infos, IsEmpty());
  EXPECT_EQ(written(info, "bin"), binary_file(layer_head("TensorGetItemInfo", 22) + le(0, 2)));
}

TEST(TensorGetItemInfo, ClearsAndResizesItsListWhenTheCountDiffers) {
  runtime::TensorGetItemInfo info;
  info.sampling_infos.resize(3);
  info.sampling_infos[0].data = {1};
  info.FromJsonString(R"({"serializable_type":"","id":"","num_sampling_infos":2,
    "0":{"serializable_type":"","sampling_type":5,"data":[7]}})");
  ASSERT_EQ(info.sampling_infos.size(), 2u);
  EXPECT_EQ(info.sampling_infos[0].sampling_type, 5);
  EXPECT_THAT(info.sampling_infos[0].data, ElementsAre(7)) << "and not appended to the old one";
}

TEST(TensorGetItemInfo, KeepsItsListWhenTheCountIsTheSame) {
  runtime::TensorGetItemInfo info;
  info.sampling_infos.resize(1);
  info.sampling_infos[0].data = {1};
  info.FromJsonString(R"({"serializable_type":"","id":"","num_sampling_infos":1,
    "0":{"serializable_type":"","data":[7]}})");
  EXPECT_THAT(info.sampling_infos[0].data, ElementsAre(1, 7));
}

TEST(TensorGetItemInfo, WithMoreObjectsThanItsSourceHoldsIsRefused) {
  runtime::TensorGetItemInfo info;
  EXPECT_THAT(
      error_of([&] {
        info.FromJsonString(R"({"serializable_type":"","id":"","num_sampling_infos":65535})");
      }),
      HasSubstr("\"num_sampling_infos\" is 65535 in an object of 3 members"));
  EXPECT_THAT(error_of([&] {
                read_bytes(info, binary_file(layer_head("TensorGetItemInfo", 22) + le(65535, 2)));
              }),
              HasSubstr("failed to read a "));
}

TEST(GridSampleInfo, WithMode2IsAcceptedByTheWordTable) {
  EXPECT_STREQ(runtime::GridSampleWord(2), "Bicubic");
}

TEST(LayerInfo, DefaultsToNoTypeAndABlankId) {
  const runtime::LayerInfo info;
  EXPECT_EQ(info.type, 65535);
  EXPECT_EQ(info.id, " ");
  EXPECT_THAT(info.input_ids, IsEmpty());
}

TEST(LayerInfo, WhoseTypeCannotBeReadWarnsAndGoesOnWithTheId) {
  runtime::InputInfo info;
  const TemporaryFolder folder;
  write_file(folder.file("cut"), binary_file(counted("InputInfo") + "\x05"));
  const LogCapture log;
  EXPECT_THROW(info.FromFile(folder.file("cut").c_str(), "bin"), std::runtime_error);
  ASSERT_EQ(log.lines().size(), 3u);
  EXPECT_THAT(log.lines()[0], HasSubstr("failed to read a unsigned short value"));
  EXPECT_EQ(log.lines()[1], "[QRT] (Warnning): This may be a old version model file.");
  EXPECT_THAT(log.lines()[2], HasSubstr("failed to read a unsigned long value"));
}

TEST(LayerInfo, WhoseTypeIsOfAWrongKindInJsonWarnsAndGoesOn) {
  runtime::InputInfo info;
  const LogCapture log;
  EXPECT_TRUE(info.FromJsonString(R"({"serializable_type":"","type":"x","id":"a","location":3})"));
  EXPECT_EQ(info.type, 0);
  EXPECT_EQ(info.id, "a");
  EXPECT_EQ(info.location, 3);
  EXPECT_EQ(log.lines().back(), "[QRT] (Warnning): This may be a old version model file.");
}

TEST(LayerCatalogue, MakesTheClassOfEachCodeAndRefusesAllOthers) {
  const std::vector<std::pair<int, const char*>> classes = {{0, "InputInfo"},
                                                            {1, "ActivationInfo"},
                                                            {2, "Conv2dInfo"},
                                                            {3, "ConvTranspose2dInfo"},
                                                            {6, "AvgPool2dInfo"},
                                                            {7, "MaxPool2dInfo"},
                                                            {8, "InstanceNorm2dInfo"},
                                                            {9, "BatchNorm2dInfo"},
                                                            {10, "Upsample2dInfo"},
                                                            {11, "ElementWiseOperatorInfo"},
                                                            {12, "ConcatenateInfo"},
                                                            {13, "TensorReshapeInfo"},
                                                            {14, "TensorTransposeInfo"},
                                                            {15, "TensorSqueezeInfo"},
                                                            {16, "TensorUnSqueezeInfo"},
                                                            {17, "FullConnectionInfo"},
                                                            {21, "PixelShuffleInfo"},
                                                            {22, "TensorGetItemInfo"},
                                                            {26, "AdaptiveAvgPool2dInfo"},
                                                            {29, "BroadcastOperatorInfo"},
                                                            {30, "BatchNorm1dInfo"},
                                                            {31, "ClipInfo"},
                                                            {32, "SoftmaxInfo"},
                                                            {33, "RNNCellInfo"},
                                                            {34, "RNNInfo"},
                                                            {35, "LSTMCellInfo"},
                                                            {36, "LSTMInfo"},
                                                            {37, "GRUCellInfo"},
                                                            {38, "GRUInfo"},
                                                            {40, "Conv1dInfo"},
                                                            {41, "TensorExpandInfo"},
                                                            {44, "GridSampleInfo"},
                                                            {45, "TensorArithmeticInfo"},
                                                            {46, "TensorSliceInfo"},
                                                            {252, "LayerPlaceholderInfo"},
                                                            {1000, "ElementFunctionInfo"},
                                                            {1001, "BinaryFunctionInfo"},
                                                            {1002, "LayerNormInfo"},
                                                            {1003, "GroupNormInfo"},
                                                            {1004, "AxisSoftmaxInfo"},
                                                            {1005, "MatMulInfo"},
                                                            {1006, "DenseInfo"},
                                                            {1007, "AxisReductionInfo"},
                                                            {1008, "PadInfo"},
                                                            {1009, "GatherInfo"},
                                                            {1010, "EmbeddingInfo"},
                                                            {1011, "BroadcastToInfo"},
                                                            {1012, "ConstantInfo"},
                                                            {1013, "ResizeInfo"},
                                                            {1014, "StridedSliceInfo"},
                                                            {1015, "ReshapeToInfo"},
                                                            {1016, "RNNStatesInfo"},
                                                            {1017, "LSTMStatesInfo"},
                                                            {1018, "GRUStatesInfo"},
                                                            {1019, "ResizeLikeInfo"}};
  const LogCapture silent;
  size_t next = 0;
  for (int code = 0; code <= 65535; ++code) {
    if (next < classes.size() && classes[next].first == code) {
      EXPECT_EQ(runtime::MakeLayerInfo(static_cast<uint16_t>(code))->GetClassTypeName(),
                classes[next].second);
      ++next;
    } else {
      ASSERT_THROW(runtime::MakeLayerInfo(static_cast<uint16_t>(code)), std::runtime_error) << code;
    }
  }
  EXPECT_EQ(next, classes.size());
}

TEST(LayerCatalogue, NamesTheCodeThatItRefuses) {
  EXPECT_EQ(error_of([] { runtime::MakeLayerInfo(4); }), "[QRT]: Unsupported Layer Type [4].\n");
}

TEST(LayerTypeName, HasAWordForTheCodesOfItsTableAndUnknownForAllOthers) {
  const std::map<int, std::string> words = {{0, "Input"},
                                            {1, "Activation"},
                                            {2, "Conv2d"},
                                            {3, "ConvTranspose2d"},
                                            {6, "AvgPool2d"},
                                            {7, "MaxPool2d"},
                                            {8, "InstanceNorm2d"},
                                            {9, "BatchNorm2d"},
                                            {10, "Upsample2d"},
                                            {11, "ElementWiseOperator"},
                                            {12, "Concatenate"},
                                            {13, "TensorReshape"},
                                            {14, "TensorTranspose"},
                                            {15, "TensorSqueeze"},
                                            {16, "TensorUnSqueeze"},
                                            {17, "FullConnection"},
                                            {21, "PixelShuffle"},
                                            {22, "TensorGetItem"},
                                            {29, "Blob"},
                                            {36, "LSTM"},
                                            {46, "TensorSlice"},
                                            {254, "Blob"},
                                            {1000, "ElementFunction"},
                                            {1001, "BinaryFunction"},
                                            {1002, "LayerNorm"},
                                            {1003, "GroupNorm"},
                                            {1004, "AxisSoftmax"},
                                            {1005, "MatMul"},
                                            {1006, "Dense"},
                                            {1007, "AxisReduction"},
                                            {1008, "Pad"},
                                            {1009, "Gather"},
                                            {1010, "Embedding"},
                                            {1011, "BroadcastTo"},
                                            {1012, "Constant"},
                                            {1013, "Resize"},
                                            {1014, "StridedSlice"},
                                            {1015, "ReshapeTo"},
                                            {1016, "RNNStates"},
                                            {1017, "LSTMStates"},
                                            {1018, "GRUStates"},
                                            {1019, "ResizeLike"}};
  for (int code = 0; code <= 65535; ++code) {
    const auto found = words.find(code);
    ASSERT_EQ(runtime::LayerTypeName(static_cast<uint16_t>(code)),
              found == words.end() ? "UnKnown" : found->second)
        << code;
  }
}

// A function from numbers to words: all its words, then the refusal of the next number.
void expect_words(const char* (*word)(uint16_t), const std::vector<std::string>& words,
                  const std::string& failure) {
  for (size_t i = 0; i < words.size(); ++i) EXPECT_EQ(word(static_cast<uint16_t>(i)), words[i]);
  for (const size_t number : {words.size(), size_t{65535}}) {
    EXPECT_EQ(error_of([&] { word(static_cast<uint16_t>(number)); }), "[QRT]: " + failure + "\n");
  }
}

TEST(Words, OfEnumerationsAreThoseOfTheFilesAndOthersAreRefused) {
  expect_words(runtime::ElementWiseWord, {"Add", "Sub", "Mul", "Div"}, "Invalid element wise type");
  expect_words(runtime::UpsampleWord, {"Nearest", "Bilinear", "Bicubic"},
               "Invalid upsample2d type");
  expect_words(runtime::GridSampleWord, {"Nearest", "Bilinear", "Bicubic"},
               "Invalid gridsample mode");
  expect_words(runtime::GridSamplePaddingWord, {"Zeros", "Border", "Reflection"},
               "Invalid gridsample padding_mode");
  expect_words(runtime::ArithmeticWord, {"Sum", "Mean"}, "Invalid arithmetic type");
}

TEST(LayerInfos, CopyWithAllTheyHold) {
  runtime::Conv2dInfo info;
  info.id = "a";
  info.weight = "text";
  const runtime::Conv2dInfo copy = info;
  EXPECT_EQ(copy.id, "a");
  EXPECT_EQ(copy.weight, "text");
  runtime::Conv2dInfo assigned;
  assigned = info;
  EXPECT_EQ(assigned.weight, "text");
}

TEST(IsLayerOfType, ComparesAClassWithACode) {
  struct Own : runtime::Conv2dInfo {};
  EXPECT_TRUE(runtime::IsLayerOfType(runtime::Conv2dInfo(), 2));
  EXPECT_TRUE(runtime::IsLayerOfType(Own(), 2));
  EXPECT_FALSE(runtime::IsLayerOfType(runtime::Conv2dInfo(), 3));
  EXPECT_FALSE(runtime::IsLayerOfType(runtime::LayerInfo(), 2));
  EXPECT_FALSE(runtime::IsLayerOfType(runtime::Conv2dInfo(), 4)) << "a code without a class";
}

}  // namespace
}  // namespace marlo::test

#include "tools/qrt/layer_facts.h"

#include <gmock/gmock.h>

#include <array>

namespace qrt_tool {
namespace {

using marlo::runtime::Base64Encode;
using marlo::runtime::Conv1dInfo;
using marlo::runtime::Conv2dInfo;
using marlo::runtime::ConvTranspose2dInfo;
using ::testing::HasSubstr;

template <size_t count>
std::string zeros() {
  const std::array<float, count> numbers{};
  return Base64Encode(reinterpret_cast<const unsigned char*>(numbers.data()), sizeof numbers);
}

template <typename Info>
Info plane_layer() {
  Info info;
  info.in_channels = 4;
  info.out_channels = 6;
  info.groups = 2;
  info.kernel_x = 3;
  info.kernel_y = 2;
  info.stride_x = info.stride_y = 1;
  info.dilation_x = info.dilation_y = 1;
  info.weight = zeros<2 * 3 * 2 * 6>();
  info.bias = zeros<6>();
  return info;
}

TEST(LayerFacts, ConvolutionCountsOutputPixelsPerWeight) {
  const auto info = plane_layer<Conv2dInfo>();
  EXPECT_EQ(multiply_adds(info, {4, 9, 9}, {6, 8, 7}), 72u * 56u);
  // The same plane in blocks of four channels.
  EXPECT_EQ(multiply_adds(info, {1, 9, 9, 4}, {2, 8, 7, 4}), 72u * 56u);
  EXPECT_EQ(multiply_adds(info, {4, 9, 9}, {}), std::nullopt);
}

TEST(LayerFacts, TransposedConvolutionCountsInputPixelsPerWeight) {
  EXPECT_EQ(multiply_adds(plane_layer<ConvTranspose2dInfo>(), {4, 5, 5}, {6, 11, 11}), 72u * 25u);
}

TEST(LayerFacts, LineCountsPositions) {
  Conv1dInfo info;
  info.in_channels = 2;
  info.out_channels = 3;
  info.kernel_size = 5;
  EXPECT_EQ(multiply_adds(info, {2, 14}, {3, 10}), 30u * 10u);
}

TEST(LayerFacts, OtherLayersAreNotCounted) {
  EXPECT_EQ(multiply_adds(marlo::runtime::ActivationInfo(), {1, 2, 2}, {1, 2, 2}), std::nullopt);
}

TEST(LayerFacts, BiasIsCountedOnlyWhereItIsUsed) {
  auto info = plane_layer<Conv2dInfo>();
  EXPECT_EQ(weight_count(info), 72u);
  info.if_bias = true;
  EXPECT_EQ(weight_count(info), 78u);
}

TEST(LayerFacts, RecurrentListsAreCounted) {
  marlo::runtime::LSTMInfo info;
  info.weight_ih_forward = {zeros<3>(), zeros<4>()};
  info.bias_hh_reverse = {zeros<5>()};
  EXPECT_EQ(weight_count(info), 12u);
}

TEST(LayerFacts, KindFallsBackOnTheClass) {
  EXPECT_EQ(kind_of(Conv2dInfo()), "Conv2d");
  EXPECT_EQ(kind_of(marlo::runtime::SoftmaxInfo()), "Softmax");
}

TEST(LayerFacts, WindowMustLieInThePaddedInput) {
  auto info = plane_layer<Conv2dInfo>();
  info.dilation_x = 3;  // seven columns
  EXPECT_EQ(window_fault(info, {4, 2, 7}), "");
  EXPECT_THAT(window_fault(info, {4, 2, 6}),
              HasSubstr("window of 7x2 is larger than the padded input of 6x2"));
  info.padding_r = 1;
  EXPECT_EQ(window_fault(info, {4, 2, 6}), "");
}

TEST(LayerFacts, TransposedOutputMustNotVanish) {
  auto info = plane_layer<ConvTranspose2dInfo>();
  EXPECT_EQ(window_fault(info, {4, 5, 5}), "");
  EXPECT_THAT(window_fault(info, {4, 1, 1}), HasSubstr("output would be -1x0"));
}

TEST(LayerFacts, DescriptionFaultTellsWhatIsMissing) {
  auto info = plane_layer<Conv2dInfo>();
  info.weight = zeros<71>();
  EXPECT_EQ(description_fault(info), "expected 72 numbers in \"weight\", found 71");
  info = plane_layer<Conv2dInfo>();
  info.stride_y = 0;
  EXPECT_EQ(description_fault(info),
            "expected settings above zero, found window 3x2, stride 1x0, dilation 1x1, channels 4 "
            "to 6, 2 groups");
}

}  // namespace
}  // namespace qrt_tool

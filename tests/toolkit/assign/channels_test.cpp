#include "qrt_toolkit/assign/channels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/assign/assign.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/toolkit/assign/small_networks.h"

// Channels that don't fill a block get others of zeros, which nobody sees.

namespace marlo::toolkit::test {
namespace {

using marlo::test::all_kernels;
using marlo::test::ModelBuilder;
using runtime::TensorShape;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

std::shared_ptr<runtime::LayerInfo> sum() {
  return std::make_shared<runtime::ElementWiseOperatorInfo>();
}

std::shared_ptr<runtime::LayerInfo> joined() {
  auto info = std::make_shared<runtime::ConcatenateInfo>();
  info->dim = 0;
  return info;
}

runtime::Conv2dInfo depthwise(uint16_t channels) {
  runtime::Conv2dInfo info = padded_convolution(1, channels);
  info.in_channels = info.groups = channels;
  return info;
}

constexpr char kDense[] = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";
constexpr char kSum[] = "Elementwise_Fallback_Float_M1";

/// A residual block of 12 channels between 3 and 5.
ModelBuilder block_of_twelve() {
  ModelBuilder builder;
  builder.input("x")
      .conv2d("a", "x", padded_convolution(3, 12), kDense)
      .layer("r", {"a"}, rectifier(), kReLU)
      .conv2d("d", "r", depthwise(12), kDense)
      .conv2d("b", "d", padded_convolution(12, 12), kDense)
      .layer("s", {"r", "b"}, sum(), kSum);
  return builder;
}

std::optional<PaddedModel> padded(const runtime::QRTModel& model, const TensorShape& shape,
                                  bool may_cut = true) {
  Workshop workshop(all_kernels());
  const std::string& id = model.model_arr->squential_ids[0];
  const auto layers =
      walk_reference(*model.model_arr->infos.at(id), *model.config_arr->cfgs.at(id)->cpu_sse,
                     {{"x", shape}}, workshop);
  return with_whole_blocks(model, id, layers, may_cut);
}

const runtime::Conv2dInfo& convolution(const runtime::QRTModel& model, const std::string& id) {
  return dynamic_cast<const runtime::Conv2dInfo&>(*network(model).layers.at(id));
}

TEST(Channels, ABlockBetweenConvolutionsIsFilledUp) {
  const auto model =
      block_of_twelve().conv2d("y", "s", padded_convolution(12, 5), kDense).outputs({"y"}).build();
  const TensorShape shape = planes(3, 9, 7);
  const auto more = padded(*model, shape);
  ASSERT_TRUE(more.has_value());
  EXPECT_TRUE(more->cuts.empty());
  EXPECT_EQ(convolution(more->model, "a").out_channels, 16);
  EXPECT_EQ(convolution(more->model, "a").in_channels, 3);
  EXPECT_EQ(convolution(more->model, "d").groups, 16);
  EXPECT_EQ(convolution(more->model, "y").in_channels, 16);
  EXPECT_EQ(convolution(more->model, "y").out_channels, 5);
  EXPECT_EQ(convolution(*model, "a").out_channels, 12);
  expect_same(*model, more->model, shape);
}

TEST(Channels, WhoeverNeedsThemAsTheyWereGetsThemCutOff) {
  if (all_kernels().Create(kChannelCut) == nullptr) GTEST_SKIP() << "this build has no second set";
  const auto model = block_of_twelve()
                         .layer("j", {"x", "s"}, joined(), "Concatenate_MainMemory_Fallback")
                         .conv2d("y", "s", padded_convolution(12, 5), kDense)
                         .outputs({"y", "j"})
                         .build();
  const TensorShape shape = planes(3, 9, 7);
  const auto more = padded(*model, shape);
  ASSERT_TRUE(more.has_value());
  EXPECT_THAT(more->cuts, UnorderedElementsAre(Pair("s#channels", "s")));
  expect_same(*model, more->model, shape);
  EXPECT_FALSE(padded(*model, shape, false).has_value());
}

TEST(Channels, OutputsAndWholeBlocksStayAsTheyAre) {
  // What the network returns, and what a tensor that can't grow is added to, keep their channels.
  EXPECT_FALSE(padded(*block_of_twelve().outputs({"s"}).build(), planes(3, 9, 7)).has_value());
  ModelBuilder builder;
  builder.input("x")
      .conv2d("a", "x", padded_convolution(8, 16), kDense)
      .conv2d("y", "a", padded_convolution(16, 5), kDense)
      .outputs({"y"});
  EXPECT_FALSE(padded(*builder.build(), planes(8, 9, 7)).has_value());
}

TEST(Channels, FunctionsThatMakeNoFiniteNumberOfZeroKeepThem) {
  const auto with = [](runtime::ElementFunction function, const char* kernel) {
    auto info = std::make_shared<runtime::ElementFunctionInfo>();
    info->function = static_cast<uint32_t>(function);
    ModelBuilder builder;
    builder.input("x")
        .conv2d("a", "x", padded_convolution(3, 12), kDense)
        .layer("f", {"a"}, info, kernel)
        .conv2d("y", "f", padded_convolution(12, 5), kDense)
        .outputs({"y"});
    return builder.build();
  };
  if (all_kernels().Create("Log_Fallback_Float_M1") == nullptr) {
    GTEST_SKIP() << "this build has no second set";
  }
  const auto log =
      padded(*with(runtime::ElementFunction::Log, "Log_Fallback_Float_M1"), planes(3, 9, 7));
  EXPECT_FALSE(log.has_value());
  EXPECT_TRUE(
      padded(*with(runtime::ElementFunction::GELU, "GELU_Fallback_Float_M1"), planes(3, 9, 7))
          .has_value());
}

// On few pixels and channels planes may be as cheap; here blocks are.
TEST(Channels, AssignmentTakesThemWhereTheyAreCheaper) {
  const auto model = ModelBuilder()
                         .input("x")
                         .conv2d("a", "x", padded_convolution(3, 28), kDense)
                         .layer("r", {"a"}, rectifier(), kReLU)
                         .conv2d("b", "r", padded_convolution(28, 28), kDense)
                         .layer("s", {"b"}, rectifier(), kReLU)
                         .conv2d("y", "s", padded_convolution(28, 8), kDense)
                         .outputs({"y"})
                         .build();
  const TensorShape shape = planes(3, 24, 24);
  EstimatedCosts costs;
  const AssignedModel made =
      assign_kernels(*model, all_kernels(), costs, options_for(shape, KernelSet::sse));
  expect_same(*model, made.model, shape);
  if (processor_kernels() < KernelSet::fma || all_kernels().Create(kChannelCut) == nullptr) {
    GTEST_SKIP() << "this build or processor has no fast kernels over blocks of 8";
  }
  const AssignedModel fast =
      assign_kernels(*model, all_kernels(), costs, options_for(shape, processor_kernels()));
  EXPECT_THAT(configuration(fast.model, "b").kernel->kernel_type, HasSubstr("C8HW8"));
  EXPECT_EQ(convolution(fast.model, "b").out_channels, 32);
  EXPECT_EQ(fast.report.layers.size(), network(*model).squential_ids.size());
  expect_same(*model, fast.model, shape);
}

}  // namespace
}  // namespace marlo::toolkit::test

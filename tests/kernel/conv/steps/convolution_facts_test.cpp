#include "qrt_core/kernel/conv/steps/convolution_facts.h"

#include <gtest/gtest.h>

#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/test_context.h"

// What convolution kernels say about layers that they refuse, and about those that they accept and
// compute otherwise.

namespace marlo::test {
namespace {

using runtime::Conv2dInfo;
using runtime::DataType;
using runtime::IKernelFacts;
using runtime::LayoutType;
using runtime::Misfit;
using runtime::TensorShape;

// 16 to 16 channels by a 3 x 3 window with a margin of one.
std::shared_ptr<Conv2dInfo> layer(uint16_t in = 16, uint16_t out = 16, uint16_t groups = 1) {
  auto info = std::make_shared<Conv2dInfo>();
  info->in_channels = in;
  info->out_channels = out;
  info->groups = groups;
  info->kernel_x = info->kernel_y = 3;
  info->stride_x = info->stride_y = info->dilation_x = info->dilation_y = 1;
  info->padding_l = info->padding_r = info->padding_t = info->padding_b = 1;
  info->weight = weight_text(std::vector<float>(size_t{in} * out * 9 / groups, 1.0f));
  return info;
}

std::string text_of(const std::vector<Misfit>& misfits) {
  std::string text;
  for (const Misfit& m : misfits) {
    text += (text.empty() ? "" : "; ") + m.member + ": " + m.expected + " / " + m.found;
  }
  return text;
}

std::string differences(const char* kernel, const std::shared_ptr<Conv2dInfo>& info,
                        const std::vector<TensorShape>& inputs = {}) {
  const auto made = make_kernel(kernel);
  return text_of(dynamic_cast<const IKernelFacts&>(*made).differences(*info, inputs));
}

std::string refusals(const char* kernel, const runtime::LayerInfo* info,
                     const runtime::InferenceParam* param = nullptr) {
  const auto made = make_kernel(kernel);
  return text_of(dynamic_cast<const IKernelFacts&>(*made).refusals(info, param));
}

constexpr const char* kReference = "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1";

TEST(ConvolutionDifferences, AreNoneWhereTheLayerIsComputed) {
  EXPECT_EQ(differences(kReference, layer()), "");
  EXPECT_EQ(differences(kReference, layer(16, 16, 2)), "");
  EXPECT_EQ(differences(kReference, layer(16, 16, 16)), "");
}

TEST(ConvolutionDifferences, NameGroupsThatDoNotDivideTheChannels) {
  EXPECT_EQ(differences(kReference, layer(16, 15, 3)),
            "groups: a divisor of 16 and 15 channels / 3");
}

TEST(ConvolutionRefusals, NameEachMemberThatDoesNotFit) {
  const auto info = layer();
  info->stride_x = 0;
  info->in_channels = 0;
  EXPECT_EQ(refusals(kReference, info.get()),
            "stride_y, stride_x: above 0 / 1 x 0; in_channels: above 0 / 0");
}

TEST(ConvolutionRefusals, NameWeightsAndBiasesThatAreTooShort) {
  auto info = layer();
  EXPECT_EQ(refusals(kReference, info.get()), "");
  info->weight = weight_text(std::vector<float>(2303, 1.0f));
  EXPECT_EQ(refusals(kReference, info.get()), "weight: 1 x 16 x 16 x 3 x 3 numbers / 2303");
  info = layer();
  info->if_bias = true;
  info->bias = weight_text(std::vector<float>(15, 1.0f));
  EXPECT_EQ(refusals(kReference, info.get()), "bias: 1 x 16 numbers / 15");
}

TEST(ConvolutionRefusals, NameAParameterAndAnotherDescription) {
  const runtime::InferenceParamConv2DQuant param;
  EXPECT_EQ(refusals(kReference, layer().get(), &param), "inference parameter: none / one");
  EXPECT_NE(refusals(kReference, nullptr), "");
  const runtime::Conv1dInfo line;
  EXPECT_NE(refusals(kReference, &line), "");
}

TEST(ConvolutionInputRefusals, NameWhatIsNotAsTheKernelWants) {
  TestContext context;
  const auto kernel = make_kernel(kReference);
  ASSERT_TRUE(kernel->Config(layer(), nullptr, context));
  const auto why = [&](const std::vector<TensorShape>& shapes) {
    return text_of(dynamic_cast<const IKernelFacts&>(*kernel).input_refusals(shapes));
  };
  EXPECT_EQ(why({TensorShape({16, 4, 4}, DataType::FLOAT32, LayoutType::CHW)}), "");
  EXPECT_EQ(why({TensorShape({12, 4, 4}, DataType::FLOAT32, LayoutType::CHW)}),
            "input 0: 16 channels / 12 channels");
  EXPECT_EQ(why({TensorShape({16, 4, 4}, DataType::FLOAT16, LayoutType::HWC)}),
            "input 0: FLOAT32 / FLOAT16; input 0: CHW / HWC");
  EXPECT_EQ(why({}), "inputs: 1 / 0");
}

#if QRT_WITH_SSE

constexpr const char* kDense = "Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1";
constexpr const char* kDepthwise = "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1";
constexpr const char* kColumns = "Conv2D_Knxm_Snxm_Dnxm_G1_SSE_C8HW8_Float_M1";
constexpr const char* kFixedPoint = "Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1";

TEST(ConvolutionDifferences, NameGroupsThatACoreDoesNotRead) {
  for (const char* kernel : {kDense, kColumns, "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1",
                             "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1"}) {
    EXPECT_EQ(differences(kernel, layer()), "") << kernel;
    EXPECT_EQ(differences(kernel, layer(16, 16, 2)), "groups: 1 / 2") << kernel;
    EXPECT_EQ(differences(kernel, layer(16, 16, 16)), "groups: 1 / 16") << kernel;
  }
  EXPECT_EQ(differences("Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1", layer(16, 16, 2)), "");
}

TEST(ConvolutionDifferences, NameADenseLayerOnADepthwiseKernel) {
  EXPECT_EQ(differences(kDepthwise, layer(16, 16, 16)), "");
  EXPECT_EQ(differences(kDepthwise, layer()), "groups: 16, one for each channel / 1");
  EXPECT_EQ(differences(kDepthwise, layer(16, 32, 16)),
            "in_channels, out_channels: two equal numbers, one filter for each / 16, 32");
}

TEST(ConvolutionDifferences, NameChannelsThatDoNotFillABlock) {
  EXPECT_EQ(differences(kDense, layer(16, 10)), "out_channels: a multiple of 8, for C8HW8 / 10");
  EXPECT_EQ(differences(kDense, layer(12, 8)), "in_channels: a multiple of 8, for C8HW8 / 12");
}

TEST(ConvolutionRefusals, NameWhatAFixedWindowDemands) {
  auto info = layer(3, 16);
  info->groups = 0;
  info->kernel_y = 5;
  info->padding_r = 2;
  EXPECT_EQ(refusals("Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1", info.get()),
            "kernel_y, kernel_x: 3 x 3 / 5 x 3; stride_y, stride_x: 2 x 2 / 1 x 1; "
            "padding_l, padding_r, padding_t, padding_b: 1, 1, 1, 1 / 1, 2, 1, 1; "
            "groups: at least 1 / 0");
  EXPECT_EQ(refusals("Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1", layer().get()),
            "groups: 16, one for each channel / 1");
}

TEST(ConvolutionRefusals, NameAStrideThatLeavesNoOutput) {
  const auto info = layer();
  info->stride_y = 0;
  EXPECT_EQ(refusals(kColumns, info.get()), "stride_y, stride_x: above 0 / 0 x 1");
}

TEST(ConvolutionRefusals, NameStepsOfFixedPointKernels) {
  const auto info = layer(16, 12);
  info->kernel_x = info->kernel_y = 1;
  info->padding_l = info->padding_r = info->padding_t = info->padding_b = 0;
  EXPECT_EQ(refusals(kFixedPoint, info.get()),
            "inference parameter: InferenceParamConv2DQuant / none");
  runtime::InferenceParamConv2DQuant param;
  param.weight_step_size = 13;
  param.output_step_size = 8;
  EXPECT_EQ(refusals(kFixedPoint, info.get(), &param),
            "out_channels: a multiple of 8 / 12; weight_step_size: 8 to 12 / 13");
}

// What they return is all written, by the core or before it.
TEST(DepthwiseBlocks, HoldBiasOrZeroWhereThereAreNoFilters) {
  for (const char* name : {kDepthwise, "Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1"}) {
    for (const bool bias : {false, true}) {
      TestContext context;
      const auto info = layer(24, 32, 32);
      info->stride_x = info->stride_y =
          std::string(name).find("_S2x2_") != std::string::npos ? 2 : 1;
      info->weight = weight_text(std::vector<float>(32 * 9, 1.0f));
      info->if_bias = bias;
      info->bias = weight_text(std::vector<float>(32, 5.0f));
      const auto kernel = make_kernel(name);
      ASSERT_TRUE(kernel->Config(info, nullptr, context));
      const auto input =
          context.floats({6, 3, 3, 4}, LayoutType::C4HW4, std::vector<float>(216, 1.0f));
      runtime::IKernel::Tensors outputs;
      ASSERT_EQ(kernel->Forward({input}, outputs, context), 0);
      for (const float value : values_of(*outputs.at(0))) EXPECT_EQ(value, bias ? 5.0f : 0.0f);
    }
  }
}

#endif

#if QRT_WITH_AVX

TEST(ConvolutionDifferences, NameAnOddEndThatIsNotComputed) {
  const char* const kernel = "Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1";
  const auto input = [](uint32_t height, uint32_t width) {
    return TensorShape({2, height, width, 8}, DataType::FLOAT32, LayoutType::C8HW8);
  };
  EXPECT_EQ(differences(kernel, layer(16, 1), {input(4, 6)}), "");
  EXPECT_EQ(differences(kernel, layer(16, 1), {input(5, 6)}),
            "output: an even size; an odd last row or column holds the bias alone / 5 x 6");
}

#endif

}  // namespace
}  // namespace marlo::test

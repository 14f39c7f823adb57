#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/model/layers.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/model_builder.h"
#include "tests/support/test_context.h"

// What kernels say about layers that they refuse, and about those of which they compute something
// else than is described.

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernelFacts;
using runtime::LayoutType;
using runtime::TensorShape;
using Misfits = std::vector<runtime::Misfit>;
using Shapes = std::vector<TensorShape>;

const IKernelFacts& facts_of(const std::shared_ptr<runtime::IKernel>& kernel) {
  return dynamic_cast<const IKernelFacts&>(*kernel);
}

// "member: expected, found; ..."
std::string text_of(const Misfits& misfits) {
  std::string text;
  for (const runtime::Misfit& misfit : misfits) {
    text +=
        (text.empty() ? "" : "; ") + misfit.member + ": " + misfit.expected + ", " + misfit.found;
  }
  return text;
}

std::string refusals(const char* kernel, const runtime::LayerInfo& info) {
  return text_of(facts_of(make_kernel(kernel)).refusals(&info, nullptr));
}

std::string differences(const char* kernel, const runtime::LayerInfo& info,
                        const Shapes& inputs = {}) {
  return text_of(facts_of(make_kernel(kernel)).differences(info, inputs));
}

TensorShape floats(std::vector<uint32_t> dims, LayoutType layout) {
  return TensorShape(std::move(dims), DataType::FLOAT32, layout);
}

// Whatever a kernel refuses to be configured with has a reason, and nothing else has one.
TEST(Refusals, HaveAReasonExactlyWhereConfigRefuses) {
  const LogCapture log;
  const TestContext context;
  for (const std::string& key : all_kernels().Keys()) {
    for (uint16_t code = 0; code < 60; ++code) {
      std::shared_ptr<runtime::LayerInfo> info;
      try {
        info = runtime::MakeLayerInfo(code);
      } catch (const std::exception&) {
        continue;
      }
      const auto kernel = make_kernel(key);
      bool configured = false;
      try {
        if (kernel->CheckConfig(info, nullptr) == 0) continue;
        configured = kernel->Config(info, nullptr, context);
      } catch (const std::exception&) {
        continue;
      }
      EXPECT_EQ(facts_of(kernel).refusals(info.get(), nullptr).empty(), configured)
          << key << " and layers of type " << code;
    }
  }
}

// No family leaves it at "other layers than this".
TEST(Refusals, AreSpecificInEveryRow) {
  const LogCapture log;
  const TestContext context;
  for (const std::string& key : all_kernels().Keys()) {
    const auto kernel = make_kernel(key);
    const std::string none = text_of(facts_of(kernel).refusals(nullptr, nullptr));
    EXPECT_EQ(none.find("a layer that"), std::string::npos) << key << ": " << none;
    const TensorShape half({1, 1, 1}, DataType::FLOAT16, LayoutType::NC);
    for (const Shapes& inputs : {Shapes{}, Shapes{half}, Shapes{half, half, half}}) {
      const std::string text = text_of(facts_of(kernel).input_refusals(inputs));
      EXPECT_EQ(text.find("inputs that"), std::string::npos) << key << ": " << text;
      EXPECT_EQ(text.empty(), kernel->CheckInputs(kernel::hollow_tensors(inputs)) == 0) << key;
    }
  }
}

TEST(Refusals, NameMembersAndNumbers) {
  runtime::MaxPool2dInfo pool;
  pool.kernel_x = pool.kernel_y = 3;
  pool.stride_x = 1;
  pool.stride_y = 2;
  EXPECT_EQ(refusals("Pooling2D_Max_Fallback_Float_M1", pool), "");
  EXPECT_EQ(refusals("Pooling2D_Avg_Fallback_Float_M1", pool),
            ": a description of class AvgPool2dInfo, MaxPool2dInfo");
  runtime::ElementWiseOperatorInfo add;
  EXPECT_EQ(refusals("Elementwise_Fallback_Float_M1", add), "");
  add.op_type = 9;
  EXPECT_EQ(refusals("Elementwise_Fallback_Float_M1", add), "op_type: 0 to 3, 9");
  runtime::ActivationInfo slopes;
  EXPECT_EQ(refusals("PReLU_Fallback_Float_M1", slopes), "weight: 1 slope, none");
  runtime::FullConnectionInfo dense;
  dense.in_features = 3;
  dense.out_features = 2;
  dense.weight = weight_text({1, 2, 3, 4, 5});
  EXPECT_EQ(refusals("FullConnection_Fallback_C_Float_M1", dense), "weight: 6 numbers, 5");
  runtime::LSTMCellInfo cell;
  cell.in_size = 2;
  EXPECT_EQ(refusals("LSTMCell_Fallback_C_F32_M1", cell), "hidden_size: above 0, 0");
  cell.hidden_size = 1;
  EXPECT_EQ(refusals("LSTMCell_Fallback_C_F32_M1", cell),
            "weight_ih: 8 numbers, 0; weight_hh: 4 numbers, 0");
#if QRT_WITH_SSE
  EXPECT_EQ(refusals("Pooling2D_Max_K2x2_S2x2_SSE_CHW_Float_M1", pool),
            "kernel_y, kernel_x: 2 x 2, 3 x 3; stride_y, stride_x: 2 x 2, 2 x 1");
  EXPECT_EQ(refusals("Elementwise_Mul_SSE_Float_M1", runtime::ElementWiseOperatorInfo()),
            "op_type: Mul, 0, Add");
#endif
}

TEST(Refusals, NameWordsAndLists) {
  runtime::GridSampleInfo sample;
  sample.mode = 2;
  EXPECT_EQ(refusals("GridSample_Fallback_CHW_Float_M1", sample),
            "mode: Nearest or Bilinear, 2, Bicubic");
  runtime::ConcatenateInfo join;
  join.dim = 2;
  EXPECT_EQ(refusals("Concatenate_C_Fallback_CnHWn_M1", join),
            "dim: 1, the channels behind the batch, 2");
  runtime::TensorReshapeInfo reshape;
  reshape.new_shape = {1, -1, -1, 2};
  EXPECT_EQ(refusals("Reshape_Fallback_CL_To_CHW_M1", reshape),
            "new_shape: sizes above 0, at most one of them -1, [1, -1, -1, 2]");
  runtime::AdaptiveAvgPool2dInfo pool;
  pool.output_size = {3};
  EXPECT_EQ(refusals("AdaptivePooling2D_Avg_Fallback_CHW_Float_M1", pool),
            "output_size: a height and a width, 1 number");
}

TEST(InputRefusals, NameLayoutsAndChannels) {
  const LogCapture log;
  const auto text = [](const char* kernel, const Shapes& inputs) {
    return text_of(facts_of(make_kernel(kernel)).input_refusals(inputs));
  };
  const TensorShape picture = floats({3, 8, 8}, LayoutType::CHW);
  EXPECT_EQ(text("ReLU_Fallback_Float_M1", {picture}), "");
  EXPECT_EQ(text("ReLU_Fallback_Float_M1", {}),
            "inputs: one FLOAT32 tensor in main memory, nothing");
  EXPECT_EQ(text("Pooling2D_Avg_Fallback_Float_M1", {floats({1, 8, 8, 4}, LayoutType::C4HW4)}),
            "input 0: layout CHW, FLOAT32 C4HW4 [1, 8, 8, 4]");
#if QRT_WITH_SSE
  EXPECT_EQ(text("LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1", {picture}),
            "input 0: channels in multiples of 8, 3");
#endif
}

TEST(Differences, TellWhatIsComputedInstead) {
  runtime::ActivationInfo activation;
  EXPECT_EQ(differences("ReLU_Fallback_Float_M1", activation), "");
  activation.activation_type = 5;
  EXPECT_EQ(differences("ReLU_Fallback_Float_M1", activation),
            "activation_type: 2, the rectifier, 5, tanh");
  EXPECT_EQ(differences("TanH_Fallback_Float_M1", activation), "");
  activation.activation_type = 0;
  activation.num_parameters = 16;
  EXPECT_EQ(differences("PReLU_Fallback_Float_M1", activation),
            "num_parameters, weight: 1 slope, which all channels share, 16 slopes");

  runtime::TensorReshapeInfo reshape;
  reshape.new_shape = {16, 1, 1};
  EXPECT_EQ(differences("Reshape_Fallback_To_CHW_M1", reshape),
            "new_shape: 1 as the first entry, a batch, which the output leaves out, 16");
  reshape.new_shape = {1, 16, 1, 1};
  EXPECT_EQ(differences("Reshape_Fallback_To_CHW_M1", reshape, {floats({16}, LayoutType::C)}), "");

  runtime::FullConnectionInfo dense;
  dense.in_features = 2;
  dense.out_features = 1;
  dense.weight = weight_text({1, 2, 3});
  dense.bias = weight_text({1});
  EXPECT_EQ(differences("FullConnection_Fallback_C_Float_M1", dense),
            "weight: 2 numbers, 3; if_bias: true, as there is a bias, false");
}

TEST(Differences, OfPoolingAreWhatAFixedWindowDoesNotLookAt) {
  runtime::AvgPool2dInfo average;
  average.kernel_x = average.kernel_y = 3;
  average.stride_x = average.stride_y = 2;
  average.padding_l = 1;
  EXPECT_EQ(differences("Pooling2D_Avg_Fallback_Float_M1", average), "");
#if QRT_WITH_SSE
  EXPECT_EQ(differences("Pooling2D_Avg_K3x3_S2x2_SSE_CHW_Float_M1", average),
            "count_include_pad: true: the divisor is the window's area, padding or not, false");
  runtime::MaxPool2dInfo maximum;
  maximum.kernel_x = maximum.kernel_y = 3;
  maximum.stride_x = maximum.stride_y = 2;
  maximum.dilation_x = maximum.dilation_y = 1;
  EXPECT_EQ(differences("Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1", maximum), "");
  maximum.padding_t = 1;
  EXPECT_EQ(differences("Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1", maximum),
            "padding_l, padding_r, padding_t, padding_b: none: zeros are the margin, and the "
            "maximum where all numbers are below, 0, 0, 1, 0");
#endif
}

TEST(Differences, OfRecurrentLayersAreSizesAgainstWeights) {
  runtime::GRUInfo info;
  info.in_size = 1;
  info.hidden_size = 1;
  info.num_layers = 1;
  info.weight_ih_forward = {weight_text({1, 2, 3}), weight_text({1, 2, 3})};
  info.weight_hh_forward = {weight_text({1, 2, 3, 4})};
  info.weight_ih_reverse = {weight_text({1})};
  EXPECT_EQ(differences("GRU_Fallback_SC_F32_M1", info),
            "num_layers: 2, 1; bidirectional: true, as there are weights of the reverse "
            "direction, false");
  info.weight_ih_forward.pop_back();
  info.weight_ih_reverse.clear();
  EXPECT_EQ(differences("GRU_Fallback_SC_F32_M1", info), "weight_hh_forward[0]: 3 numbers, 4");
}

}  // namespace
}  // namespace marlo::test

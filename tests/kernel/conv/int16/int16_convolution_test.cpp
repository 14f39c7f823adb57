#include "qrt_core/kernel/conv/int16/int16_convolution.h"

#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;

std::vector<int16_t> numbers_of(const runtime::Tensor& tensor) {
  const auto* first = static_cast<const int16_t*>(tensor.handle.cpu);
  return {first, first + runtime::ElementCount(tensor.shape)};
}

TEST(FloatToInt16, RoundsHalvesAwayFromZeroAndSaturates) {
  TestContext context;
  const auto quantised = [&](std::vector<float> values, uint16_t step) {
    const auto tensor =
        context.floats({static_cast<uint32_t>(values.size())}, LayoutType::C, values);
    const auto result =
        kernel::functional::Function_Tensor_Float_To_Int16(tensor, step, context.device());
    EXPECT_TRUE(result->shape ==
                TensorShape({static_cast<uint32_t>(values.size())}, DataType::INT16, LayoutType::C,
                            runtime::LocationType::MainMemory, TensorShape::Extra(step)));
    return numbers_of(*result);
  };
  EXPECT_EQ(quantised({0.004f, -0.002f, -0.5f / 256, 0.5f / 256, 200.0f, -200.0f, 0.0f}, 8),
            (std::vector<int16_t>{1, -1, -1, 1, 32767, -32768, 0}));
  EXPECT_EQ(quantised({1.0f, -1.0f, kInfinity, -kInfinity, kNaN}, 12),
            (std::vector<int16_t>{4096, -4096, 32767, -32768, 0}));
  const auto nothing = context.floats({1}, LayoutType::C, {1.0f});
  EXPECT_NE(failure_of([&] {
              kernel::functional::Function_Tensor_Float_To_Int16(nothing, 8, nullptr);
            }).find("Can't create output cpu tensor"),
            std::string::npos);
}

#if QRT_WITH_SSE

constexpr char kName[] = "Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_Int16_M1";

struct Layer {
  uint32_t ins = 8;
  uint32_t outs = 8;
  uint32_t height = 2;
  uint32_t width = 3;
  int16_t weight_step = 8;
  int16_t output_step = 11;
  std::vector<float> weights;  // [out, in]
  std::vector<float> bias;
  std::vector<int16_t> input;  // [in / 8, height, width, 8]

  std::shared_ptr<runtime::Conv2dInfo> info() const {
    return std::make_shared<runtime::Conv2dInfo>(plane_convolution(
        static_cast<uint16_t>(ins), static_cast<uint16_t>(outs), 1, weights, bias));
  }
  std::shared_ptr<runtime::InferenceParamConv2DQuant> param() const {
    auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
    param->weight_step_size = weight_step;
    param->output_step_size = output_step;
    return param;
  }
};

int16_t quantise(float value, int step) {
  const double scaled = std::round(std::ldexp(double{value}, step));
  return static_cast<int16_t>(std::min(32767.0, std::max(-32768.0, scaled)));
}

// Product by product: shifted with its sign, saturated, and added modulo 2^16.
std::vector<int16_t> expected(const Layer& layer) {
  const size_t pixels = size_t{layer.height} * layer.width;
  std::vector<int16_t> output(layer.outs * pixels);
  for (size_t o = 0; o < layer.outs; ++o) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      auto sum = static_cast<uint16_t>(
          layer.bias.empty() ? 0 : quantise(layer.bias[o], layer.output_step));
      for (size_t i = 0; i < layer.ins; ++i) {
        const int32_t x = layer.input[(i / 8 * pixels + pixel) * 8 + i % 8];
        const int32_t w = quantise(layer.weights[o * layer.ins + i], layer.weight_step);
        const int32_t scaled = (x * w) >> layer.weight_step;
        sum = static_cast<uint16_t>(sum + std::min(32767, std::max(-32768, scaled)));
      }
      output[(o / 8 * pixels + pixel) * 8 + o % 8] = static_cast<int16_t>(sum);
    }
  }
  return output;
}

class Int16Convolution : public testing::Test {
 protected:
  std::shared_ptr<TensorCPU> tensor(const std::vector<uint32_t>& dims, uint16_t step,
                                    const std::vector<int16_t>& values = {},
                                    DataType type = DataType::INT16,
                                    LayoutType layout = LayoutType::C8HW8) {
    return context_.device()->CreateTensor(
        TensorShape(dims, type, layout, runtime::LocationType::MainMemory,
                    TensorShape::Extra(step)),
        values.empty() ? nullptr : values.data());
  }

  std::vector<int16_t> run(const Layer& layer) {
    EXPECT_TRUE(kernel_->Config(layer.info(), layer.param(), context_));
    const auto input = tensor({layer.ins / 8, layer.height, layer.width, 8}, 11, layer.input);
    EXPECT_EQ(kernel_->CheckInputs({input}), 0);
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel_->Forward({input}, outputs, context_), 0);
    EXPECT_TRUE(outputs.at(0)->shape ==
                TensorShape({layer.outs / 8, layer.height, layer.width, 8}, DataType::INT16,
                            LayoutType::C8HW8, runtime::LocationType::MainMemory,
                            TensorShape::Extra(static_cast<uint16_t>(layer.output_step))));
    EXPECT_EQ(kernel_->CheckOutputs(outputs), 0);
    context_.pool().check();
    return numbers_of(*outputs[0]);
  }

  static Layer random_layer(uint32_t in_blocks, uint32_t out_blocks, uint32_t height,
                            uint32_t width, int16_t step, bool bias, int range) {
    Layer layer;
    layer.ins = 8 * in_blocks;
    layer.outs = 8 * out_blocks;
    layer.height = height;
    layer.width = width;
    layer.weight_step = step;
    Random random(in_blocks + 10 * out_blocks + 100 * width);
    layer.weights = random.floats(size_t{layer.ins} * layer.outs, 2.0f);
    if (bias) layer.bias = random.floats(layer.outs, 3.0f);
    for (size_t i = 0; i < size_t{layer.ins} * height * width; ++i) {
      layer.input.push_back(static_cast<int16_t>(random.integer(-range, range)));
    }
    return layer;
  }

  TestContext context_;
  std::shared_ptr<IKernel> kernel_ = make_kernel(kName);
};

TEST_F(Int16Convolution, ComputesEveryStepAndSizeToTheBit) {
  for (int16_t step = 8; step <= 12; ++step) {
    for (uint32_t width = 1; width <= 9; ++width) {
      const Layer layer = random_layer(1 + width % 3, 1 + width % 4, 1 + width % 2, width, step,
                                       width % 3 != 0, 3000);
      EXPECT_EQ(run(layer), expected(layer)) << step << ", " << width;
    }
  }
}

TEST_F(Int16Convolution, SaturatesProductsAndWrapsSums) {
  const Layer layer = random_layer(4, 2, 3, 5, 8, true, 32767);
  EXPECT_EQ(run(layer), expected(layer));
  Layer two = random_layer(1, 1, 1, 1, 8, false, 1);
  two.weights.assign(64, 0.0f);
  two.weights[0] = two.weights[1] = 100.0f;
  two.input = {32767, 32767, 0, 0, 0, 0, 0, 0};
  EXPECT_EQ(run(two)[0], -2) << "twice 32767 wraps";
}

TEST_F(Int16Convolution, ChecksItsParameterAndDescription) {
  Layer layer = random_layer(1, 1, 1, 1, 8, true, 10);
  const auto verdict = [&] { return kernel_->CheckConfig(layer.info(), layer.param()); };
  EXPECT_EQ(verdict(), 0);
  for (const int16_t step : {int16_t{7}, int16_t{13}, int16_t{0}, int16_t{-8}}) {
    layer.weight_step = step;
    EXPECT_EQ(verdict(), -1) << step;
    layer.weight_step = 8;
    layer.output_step = step;
    EXPECT_EQ(verdict(), -1) << step;
    layer.output_step = 8;
  }
  EXPECT_EQ(kernel_->CheckConfig(layer.info(), nullptr), -1);
  EXPECT_EQ(kernel_->CheckConfig(nullptr, layer.param()), -1);
  const auto refuses = [&](auto change) {
    const auto info = layer.info();
    change(*info);
    return kernel_->CheckConfig(info, layer.param()) == -1;
  };
  EXPECT_TRUE(refuses([](auto& info) { info.kernel_x = 3; }));
  EXPECT_TRUE(refuses([](auto& info) { info.stride_y = 2; }));
  EXPECT_TRUE(refuses([](auto& info) { info.dilation_x = 2; }));
  EXPECT_TRUE(refuses([](auto& info) { info.padding_b = 1; }));
  EXPECT_TRUE(refuses([](auto& info) { info.groups = 0; }));
  EXPECT_TRUE(refuses([](auto& info) { info.in_channels = 4; }));
  EXPECT_TRUE(refuses([](auto& info) { info.out_channels = 12; }));
}

TEST_F(Int16Convolution, ChecksTensors) {
  const Layer layer = random_layer(2, 1, 1, 1, 8, true, 10);
  ASSERT_TRUE(kernel_->Config(layer.info(), layer.param(), context_));
  EXPECT_EQ(kernel_->CheckInputs({tensor({2, 3, 3, 8}, 8)}), 0);
  EXPECT_EQ(kernel_->CheckInputs({tensor({2, 3, 3, 8}, 12)}), 0);
  EXPECT_EQ(kernel_->CheckInputs({tensor({2, 3, 3, 8}, 7)}), -2);
  EXPECT_EQ(kernel_->CheckInputs({tensor({2, 3, 3, 8}, 13)}), -2);
  EXPECT_EQ(kernel_->CheckInputs({tensor({3, 3, 3, 8}, 8)}), -2);
  EXPECT_EQ(kernel_->CheckInputs({tensor({2, 3, 3, 8}, 8, {}, DataType::FLOAT32)}), -2);
  EXPECT_EQ(kernel_->CheckInputs({tensor({16, 3, 3}, 8, {}, DataType::INT16, LayoutType::CHW)}),
            -2);
  EXPECT_EQ(kernel_->CheckOutputs({tensor({1, 3, 3, 8}, 8)}), 0);
  EXPECT_EQ(kernel_->CheckOutputs({tensor({1, 3, 3, 8}, 13)}), -2);
}

TEST_F(Int16Convolution, RefusesWhatItCannotReadInAPass) {
  const Layer layer = random_layer(2, 1, 1, 1, 8, true, 10);
  IKernel::Tensors outputs;
  EXPECT_NE(failure_of([&] {
              kernel_->Forward({tensor({2, 1, 1, 8}, 8)}, outputs, context_);
            }),
            "");
  ASSERT_TRUE(kernel_->Config(layer.info(), layer.param(), context_));
  EXPECT_NE(failure_of([&] {
              kernel_->Forward({tensor({1, 1, 1, 8}, 8)}, outputs, context_);
            }),
            "");
  EXPECT_NE(failure_of([&] {
              kernel_->Forward({tensor({2, 1, 1, 8}, 8, {}, DataType::FLOAT32)}, outputs, context_);
            }),
            "");
  EXPECT_TRUE(outputs.empty());
}

TEST_F(Int16Convolution, FillsRefuseOtherTensors) {
  const auto output = tensor({1, 2, 2, 8}, 8);
  EXPECT_EQ(kernel::FillZero_Int16(output), 0);
  EXPECT_EQ(numbers_of(*output), std::vector<int16_t>(32, 0));
  EXPECT_EQ(kernel::FillZero_Int16(tensor({1, 2, 2, 8}, 8, {}, DataType::FLOAT32)), -2);
  const auto bias = tensor({1, 8}, 8, {1, 2, 3, 4, 5, 6, 7, 8}, DataType::INT16, LayoutType::GN);
  EXPECT_EQ(kernel::FillBias_C8HW8_Int16_SSE(bias, output), 0);
  EXPECT_EQ(numbers_of(*output)[31], 8);
  EXPECT_EQ(kernel::FillBias_C8HW8_Int16_SSE(output, output), -2);
}

#endif

}  // namespace
}  // namespace marlo::test

#include "qrt_core/kernel/layout/concatenate.h"

#include <gtest/gtest.h>

#include <numeric>

#include "qrt_core/runtime/model/layers.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;
using Dims = std::vector<uint32_t>;
using Tensors = runtime::IKernel::Tensors;

constexpr char kChannels[] = "Concatenate_C_Fallback_CnHWn_M1";
constexpr char kAnyAxis[] = "Concatenate_MainMemory_Fallback";

std::shared_ptr<runtime::ConcatenateInfo> description(uint16_t dim) {
  auto info = std::make_shared<runtime::ConcatenateInfo>();
  info->dim = dim;
  return info;
}

class Concatenate : public testing::Test {
 protected:
  std::shared_ptr<runtime::IKernel> configured(const char* name, uint16_t dim) {
    auto kernel = make_kernel(name);
    EXPECT_TRUE(kernel->Config(description(dim), nullptr, context_));
    return kernel;
  }

  // Values count up over all tensors that were made.
  std::shared_ptr<runtime::Tensor> counted(const Dims& dims, LayoutType layout = LayoutType::CHW) {
    const TensorShape shape(dims, DataType::FLOAT32, layout);
    std::vector<float> values(runtime::ElementCount(shape));
    std::iota(values.begin(), values.end(), next_);
    next_ += static_cast<float>(values.size());
    return context_.floats(dims, layout, values);
  }

  std::shared_ptr<runtime::Tensor> run(runtime::IKernel& kernel, const Tensors& inputs) {
    Tensors outputs;
    EXPECT_EQ(kernel.Forward(inputs, outputs, context_), 0);
    EXPECT_EQ(outputs.size(), 1u);
    return outputs.at(0);
  }

  TestContext context_;
  float next_ = 1.0f;
};

// Element by element, from the coordinates of the result.
std::vector<float> joined(const Tensors& inputs, size_t axis) {
  std::vector<float> result;
  const Dims& first = inputs[0]->shape.dims;
  size_t outer = 1;
  for (size_t k = 0; k < axis; ++k) outer *= first[k];
  size_t inner = 1;
  for (size_t k = axis + 1; k < first.size(); ++k) inner *= first[k];
  for (size_t o = 0; o < outer; ++o) {
    for (const auto& input : inputs) {
      const std::vector<float> values = values_of(*input);
      const size_t size = input->shape.dims[axis];
      for (size_t a = 0; a < size; ++a) {
        for (size_t i = 0; i < inner; ++i) result.push_back(values[(o * size + a) * inner + i]);
      }
    }
  }
  return result;
}

TEST_F(Concatenate, JoinsChannelsInAllThreeLayouts) {
  const auto kernel = configured(kChannels, 1);
  const Tensors chw{counted({2, 3, 4}), counted({5, 3, 4}), counted({1, 3, 4})};
  EXPECT_EQ(kernel->CheckInputs(chw), 0);
  EXPECT_EQ(run(*kernel, chw)->shape.dims, (Dims{8, 3, 4}));
  EXPECT_TRUE(same_bits(values_of(*run(*kernel, chw)), joined(chw, 0)));
  const Tensors c8{counted({1, 2, 2, 8}, LayoutType::C8HW8),
                   counted({2, 2, 2, 8}, LayoutType::C8HW8)};
  const auto output = run(*kernel, c8);
  EXPECT_EQ(output->shape.layout, LayoutType::C8HW8);
  EXPECT_TRUE(same_bits(values_of(*output), joined(c8, 0)));
}

TEST_F(Concatenate, C4HW4TensorsOf8And12ChannelsGive5Blocks) {
  const auto kernel = configured(kChannels, 1);
  const Tensors inputs{counted({2, 3, 3, 4}, LayoutType::C4HW4),
                       counted({3, 3, 3, 4}, LayoutType::C4HW4)};
  EXPECT_EQ(run(*kernel, inputs)->shape.dims, (Dims{5, 3, 3, 4}));
}

TEST_F(Concatenate, OneInputIsCopied) {
  const auto kernel = configured(kChannels, 1);
  const Tensors one{counted({3, 2, 2})};
  EXPECT_EQ(kernel->CheckInputs(one), 0);
  const auto output = run(*kernel, one);
  EXPECT_NE(output, one[0]);
  EXPECT_TRUE(same_bits(values_of(*output), values_of(*one[0])));
}

TEST_F(Concatenate, TheChannelKernelTakesDim1Only) {
  const auto kernel = make_kernel(kChannels);
  EXPECT_EQ(kernel->CheckConfig(description(1), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(description(0), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(description(2), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(
      kernel->CheckConfig(description(1), std::make_shared<runtime::InferenceParamActQuant>()), -1);
}

TEST_F(Concatenate, TheChannelKernelChecksLayoutTypeAndStep) {
  const auto kernel = configured(kChannels, 1);
  const auto first = counted({2, 3, 4});
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckInputs({counted({2, 3, 4}, LayoutType::HWC)}), -2);
  EXPECT_EQ(kernel->CheckInputs({counted({2, 3, 4}, LayoutType::FLEXIABLE)}), -2);
  EXPECT_EQ(kernel->CheckInputs({first, counted({2, 3, 4, 4}, LayoutType::C4HW4)}), -2);
  const auto stepped = context_.device()->CreateTensor(
      TensorShape({2, 3, 4}, DataType::FLOAT32, LayoutType::CHW, runtime::LocationType::MainMemory,
                  TensorShape::Extra(8)),
      nullptr);
  EXPECT_EQ(kernel->CheckInputs({first, stepped}), -2);
  EXPECT_EQ(kernel->CheckOutputs({first}), 0);
  EXPECT_EQ(kernel->CheckOutputs({first, first}), -2);
  EXPECT_EQ(kernel->CheckOutputs({counted({2, 3, 4}, LayoutType::HWC)}), -2);
}

TEST_F(Concatenate, PlanesOfDifferentSizesFailCleanly) {
  const auto kernel = configured(kChannels, 1);
  const Tensors inputs{counted({2, 3, 4}), counted({2, 9, 9})};
  Tensors outputs;
  EXPECT_NE(failure_of([&] { kernel->Forward(inputs, outputs, context_); }), "");
  EXPECT_NE(failure_of([&] { kernel->Forward({}, outputs, context_); }), "");
  EXPECT_TRUE(outputs.empty());
}

TEST_F(Concatenate, JoinsAlongEveryAxis) {
  for (uint16_t axis = 0; axis < 3; ++axis) {
    const auto kernel = configured(kAnyAxis, axis);
    Tensors inputs;
    for (const uint32_t size : {2u, 1u, 4u}) {
      Dims dims{3, 2, 5};
      dims[axis] = size;
      inputs.push_back(counted(dims));
    }
    const auto output = run(*kernel, inputs);
    EXPECT_EQ(output->shape.dims[axis], 7u);
    EXPECT_TRUE(same_bits(values_of(*output), joined(inputs, axis))) << "axis " << axis;
  }
}

TEST_F(Concatenate, Dim1JoinsRowsInOneKernelAndChannelsInTheOther) {
  const Tensors inputs{counted({2, 3, 4}), counted({2, 3, 4})};
  EXPECT_EQ(run(*configured(kAnyAxis, 1), inputs)->shape.dims, (Dims{2, 6, 4}));
  EXPECT_EQ(run(*configured(kChannels, 1), inputs)->shape.dims, (Dims{4, 3, 4}));
}

TEST_F(Concatenate, AnyAxisTakesAnyElementTypeAndKeepsInputZerosShape) {
  const auto kernel = configured(kAnyAxis, 0);
  const uint8_t a[] = {1, 2, 3};
  const uint8_t b[] = {4, 5};
  const TensorShape shape({3}, DataType::UINT8, LayoutType::C, runtime::LocationType::MainMemory,
                          TensorShape::Extra(9));
  const Tensors inputs{context_.device()->CreateTensor(shape, a),
                       context_.device()->CreateU8CHWMainMem({2}, b)};
  const auto output = run(*kernel, inputs);
  EXPECT_EQ(output->shape, TensorShape({5}, DataType::UINT8, LayoutType::C,
                                       runtime::LocationType::MainMemory, TensorShape::Extra(9)));
  const auto* bytes = static_cast<const uint8_t*>(output->handle.cpu);
  EXPECT_EQ(std::vector<uint8_t>(bytes, bytes + 5), (std::vector<uint8_t>{1, 2, 3, 4, 5}));
}

TEST_F(Concatenate, AnyAxisRefusesWhatDoesNotFit) {
  const auto kernel = configured(kAnyAxis, 1);
  const auto tensor = counted({2, 3, 4});
  EXPECT_EQ(kernel->CheckInputs({tensor}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor, counted({3, 3, 4})}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor, counted({2, 3})}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor, counted({2, 9, 4})}), 0);
  Tensors outputs;
  const auto text = failure_of([&] {
    kernel->Forward({tensor, counted({3, 3, 4})}, outputs, context_);
  });
  EXPECT_NE(text.find("Invalid forward input param"), std::string::npos) << text;
  const auto shapes = failure_of([&] {
    kernel->InferOutputShapes({tensor->shape, counted({3, 3, 4})->shape});
  });
  EXPECT_NE(shapes.find("input tensor shapes error."), std::string::npos) << shapes;
}

TEST_F(Concatenate, AnAxisThatIsNotThereFailsCleanly) {
  const auto kernel = configured(kAnyAxis, 7);
  const Tensors inputs{counted({2, 3, 4}), counted({2, 3, 4})};
  Tensors outputs;
  EXPECT_NE(failure_of([&] { kernel->Forward(inputs, outputs, context_); }), "");
}

}  // namespace
}  // namespace marlo::test

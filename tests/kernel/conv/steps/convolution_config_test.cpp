#include <gtest/gtest.h>

#include <cstdint>

#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "tests/support/compare.h"
#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// What convolution kernels accept, and what a second configuration leaves of the first.

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;

class ConvolutionConfig : public testing::TestWithParam<ConvRow> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(row().name); }

  const ConvRow& row() const { return GetParam(); }

  // A small layer: 2 channels of 1 x 4 to 3 of 1 x 4, so that planes and lines look alike.
  static ConvCase small() {
    return ConvTester().channels(2, 3).size(1, 4).kernel(1, 3).padding(1, 1, 0, 0).sizes();
  }

  std::shared_ptr<runtime::TensorCPU> input(const ConvCase& sizes, const ConvData& data) {
    return context_.floats(row().dims(sizes.in_channels, static_cast<int>(sizes.height),
                                      static_cast<int>(sizes.width)),
                           row().layout, data.input);
  }

  std::vector<float> run(IKernel& kernel, const ConvCase& sizes, const ConvData& data) {
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel.Forward({input(sizes, data)}, outputs, context_), 0);
    return values_of(*outputs.at(0));
  }

  TestContext context_;
};

TEST_P(ConvolutionConfig, TakesItsOwnDescriptionOnly) {
  const auto kernel = make_kernel(row().name);
  const ConvData data = integer_data(small(), 1);
  const auto info = row().describe(small(), data);
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_EQ(kernel->CheckConfig(info, nullptr), 0);
  EXPECT_FALSE(kernel->IsConfigured()) << "a check changes nothing";
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::ActivationInfo>(), nullptr), -1);
  for (const ConvRow& other : reference_convolution_rows()) {
    if (other.is_line == row().is_line && other.is_transposed == row().is_transposed) continue;
    EXPECT_EQ(kernel->CheckConfig(other.describe(small(), data), nullptr), -1) << other.name;
  }
}

TEST_P(ConvolutionConfig, RefusesAParameter) {
  const auto kernel = make_kernel(row().name);
  const auto info = row().describe(small(), integer_data(small(), 1));
  const auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
  EXPECT_EQ(kernel->CheckConfig(info, param), -1);
  EXPECT_FALSE(kernel->Config(info, param, context_));
}

TEST_P(ConvolutionConfig, RefusesEachFieldOfZero) {
  const ConvData data = integer_data(small(), 1);
  using Field = uint32_t ConvCase::*;
  std::vector<Field> fields{&ConvCase::in_channels, &ConvCase::out_channels, &ConvCase::groups,
                            &ConvCase::kernel_x,    &ConvCase::stride_x,     &ConvCase::dilation_x};
  if (!row().is_line) {
    for (Field field : {&ConvCase::kernel_y, &ConvCase::stride_y, &ConvCase::dilation_y}) {
      fields.push_back(field);
    }
  }
  for (size_t i = 0; i < fields.size(); ++i) {
    ConvCase sizes = small();
    sizes.*fields[i] = 0;
    const auto kernel = make_kernel(row().name);
    const auto info = row().describe(sizes, data);
    EXPECT_EQ(kernel->CheckConfig(info, nullptr), -1) << "field " << i;
    EXPECT_FALSE(kernel->Config(info, nullptr, context_)) << "field " << i;
  }
}

TEST_P(ConvolutionConfig, RefusesAWeightTextThatIsTooShort) {
  ConvData data = integer_data(small(), 1);
  data.weight.pop_back();
  const auto kernel = make_kernel(row().name);
  EXPECT_EQ(kernel->CheckConfig(row().describe(small(), data), nullptr), 0);
  EXPECT_FALSE(kernel->Config(row().describe(small(), data), nullptr, context_));
  data.weight.clear();
  EXPECT_FALSE(kernel->Config(row().describe(small(), data), nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
}

TEST_P(ConvolutionConfig, RefusesABiasTextThatIsTooShort) {
  ConvData data = integer_data(small(), 1);
  data.bias.pop_back();
  const auto kernel = make_kernel(row().name);
  EXPECT_FALSE(kernel->Config(row().describe(small(), data), nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
}

TEST_P(ConvolutionConfig, IgnoresNumbersBeyondTheWeights) {
  const ConvData data = integer_data(small(), 1);
  ConvData longer = data;
  longer.weight.push_back(99.0f);
  longer.bias.push_back(99.0f);
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(row().describe(small(), data), nullptr, context_));
  const std::vector<float> expected = run(*kernel, small(), data);
  ASSERT_TRUE(kernel->Config(row().describe(small(), longer), nullptr, context_));
  EXPECT_TRUE(same_bits(run(*kernel, small(), data), expected));
}

// The sizes of a layer can ask for far more numbers than its text holds, or than memory does.
TEST_P(ConvolutionConfig, RefusesHugeSizesWithoutTakingMemory) {
  ConvCase sizes = small();
  const ConvData data = integer_data(sizes, 1);
  sizes.in_channels = sizes.out_channels = sizes.kernel_x = 65535;
  if (!row().is_line) sizes.kernel_y = 65535;
  const auto kernel = make_kernel(row().name);
  EXPECT_FALSE(kernel->Config(row().describe(sizes, data), nullptr, context_));
  EXPECT_EQ(context_.pool().allocations(), 0u);
}

TEST_P(ConvolutionConfig, NeedsADeviceForItsWeights) {
  const auto info = row().describe(small(), integer_data(small(), 1));
  EXPECT_FALSE(make_kernel(row().name)->Config(info, nullptr, nullptr));
}

TEST_P(ConvolutionConfig, IsNotConfiguredAfterAFailureThatFollowsASuccess) {
  const ConvData data = integer_data(small(), 1);
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(row().describe(small(), data), nullptr, context_));
  EXPECT_FALSE(kernel->Config(nullptr, nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
  ASSERT_TRUE(kernel->Config(row().describe(small(), data), nullptr, context_));
  EXPECT_TRUE(kernel->IsConfigured());
}

TEST_P(ConvolutionConfig, WithoutBiasResetsAnEarlierBias) {
  ConvCase sizes = small();
  ConvData data = integer_data(sizes, 1);
  data.weight.assign(data.weight.size(), 0.0f);
  data.bias = {5.0f, 6.0f, 7.0f};
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(row().describe(sizes, data), nullptr, context_));
  EXPECT_EQ(run(*kernel, sizes, data).front(), 5.0f);
  sizes.bias = false;
  ASSERT_TRUE(kernel->Config(row().describe(sizes, data), nullptr, context_));
  const std::vector<float> output = run(*kernel, sizes, data);
  EXPECT_TRUE(same_bits(output, std::vector<float>(output.size(), 0.0f)));
}

TEST_P(ConvolutionConfig, TakesItsMemoryFromThePoolOnce) {
  const ConvData data = integer_data(small(), 1);
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(row().describe(small(), data), nullptr, context_));
  const size_t blocks = context_.pool().blocks_in_use();
  ASSERT_TRUE(kernel->Config(row().describe(small(), data), nullptr, context_));
  EXPECT_EQ(context_.pool().blocks_in_use(), blocks);
  run(*kernel, small(), data);
  EXPECT_EQ(context_.pool().blocks_in_use(), blocks);
}

// Each call of the pool fails in turn; what was taken until then comes back.
TEST_P(ConvolutionConfig, SurvivesAPoolWithoutMemory) {
  const ConvData data = integer_data(small(), 1);
  const auto info = row().describe(small(), data);
  const auto tensor = input(small(), data);
  size_t failures = 0;
  for (bool failed = true; failed && failures < 20; failures += failed) {
    const auto kernel = make_kernel(row().name);
    IKernel::Tensors outputs;
    context_.pool().fail_at(failures + 1);
    try {
      failed = !kernel->Config(info, nullptr, context_) ||
               kernel->Forward({tensor}, outputs, context_) != 0;
    } catch (const std::bad_alloc&) {
      failed = true;
    }
    EXPECT_EQ(outputs.empty(), failed);
    context_.pool().fail_at(0);
  }
  EXPECT_GE(failures, 3u) << "weight, bias and output at least";
  EXPECT_LT(failures, 20u);
  EXPECT_EQ(context_.pool().blocks_in_use(), 1u);
}

TEST_P(ConvolutionConfig, ChecksItsTensors) {
  const ConvData data = integer_data(small(), 1);
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(row().describe(small(), data), nullptr, context_));
  const auto tensor = [&](uint32_t channels, DataType type, LayoutType layout) {
    return context_.device()->CreateTensor({row().dims(channels, 1, 4), type, layout}, nullptr);
  };
  const auto good_input = tensor(2, DataType::FLOAT32, row().layout);
  const auto good_output = tensor(3, DataType::FLOAT32, row().layout);
  EXPECT_EQ(kernel->CheckInputs({good_input}), 0);
  EXPECT_EQ(kernel->CheckOutputs({good_output}), 0);
  EXPECT_EQ(kernel->CheckInputs({good_output}), -2);
  EXPECT_EQ(kernel->CheckOutputs({good_input}), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckInputs({nullptr}), -2);
  EXPECT_EQ(kernel->CheckInputs({good_input, good_input}), -2);
  EXPECT_EQ(kernel->CheckOutputs({good_output, good_output}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor(2, DataType::FLOAT32, LayoutType::FLEXIABLE)}), -2);
  EXPECT_EQ(kernel->CheckOutputs({tensor(3, DataType::FLOAT32, LayoutType::HWC)}), -2);
  for (const DataType type : {DataType::FLOAT16, DataType::INT32}) {
    EXPECT_EQ(kernel->CheckInputs({tensor(2, type, row().layout)}), -2);
    EXPECT_EQ(kernel->CheckOutputs({tensor(3, type, row().layout)}), -2);
  }
  good_input->shape.location = LocationType::MetalBuffer;
  EXPECT_EQ(kernel->CheckInputs({good_input}), -2);
}

INSTANTIATE_TEST_SUITE_P(Rows, ConvolutionConfig, testing::ValuesIn(reference_convolution_rows()),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace marlo::test

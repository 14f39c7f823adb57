#include "qrt_core/kernel/layout/expand.h"

#include <gtest/gtest.h>

#include <cstring>
#include <numeric>

#include "qrt_core/kernel/layout/placeholder.h"
#include "qrt_core/runtime/model/layers.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using kernel::expand_rows;
using kernel::ExpandRow;
using runtime::DataType;
using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Tensors = runtime::IKernel::Tensors;

std::shared_ptr<runtime::TensorExpandInfo> description(const std::vector<int16_t>& shape) {
  auto info = std::make_shared<runtime::TensorExpandInfo>();
  info->new_shape = shape;
  return info;
}

std::shared_ptr<runtime::IKernel> configured(const char* name, const std::vector<int16_t>& shape) {
  auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(description(shape), nullptr, nullptr)) << name;
  return kernel;
}

class ExpandRows : public testing::TestWithParam<const ExpandRow*> {
 protected:
  const ExpandRow& row() const { return *GetParam(); }

  Dims dims(uint32_t channels, uint32_t height, uint32_t width) const {
    Dims dims{channels, height, width};
    if (row().block != 1) dims.push_back(row().block);
    return dims;
  }

  std::vector<int16_t> new_shape(int16_t c, int16_t h, int16_t w) const {
    std::vector<int16_t> shape{1, c, h, w};
    if (row().block != 1) shape.push_back(static_cast<int16_t>(row().block));
    return shape;
  }

  std::shared_ptr<runtime::Tensor> input(const Dims& sizes) {
    std::vector<float> values(runtime::ElementCount({sizes, DataType::FLOAT32, row().layout}));
    std::iota(values.begin(), values.end(), 1.0f);
    return context_.external_floats(sizes, row().layout, values);
  }

  TestContext context_;
};

TEST_P(ExpandRows, RepeatsEachChannelOverItsPlane) {
  QRT_SKIP_WHERE_MISSING(row().name);
  for (const int16_t height : std::vector<int16_t>{1, 2, 3, 7}) {
    for (const int16_t width : std::vector<int16_t>{1, 2, 4, 7, 9}) {
      const auto kernel = configured(row().name, new_shape(5, height, width));
      const auto in = input(dims(5, 1, 1));
      Tensors outputs;
      ASSERT_EQ(kernel->Forward({in}, outputs, context_), 0);
      const auto h = static_cast<uint32_t>(height);
      const auto w = static_cast<uint32_t>(width);
      ASSERT_EQ(outputs.at(0)->shape.dims, dims(5, h, w));
      std::vector<float> expected;
      for (uint32_t channel = 0; channel < 5; ++channel) {
        for (uint32_t pixel = 0; pixel < h * w; ++pixel) {
          for (uint32_t lane = 0; lane < row().block; ++lane) {
            expected.push_back(static_cast<float>(1 + channel * row().block + lane));
          }
        }
      }
      EXPECT_TRUE(same_bits(values_of(*outputs[0]), expected)) << h << " x " << w;
    }
  }
}

TEST_P(ExpandRows, KeepsDimsOfNegativeEntriesAndTheChannels) {
  const auto kernel = configured(row().name, new_shape(77, -1, -1));
  EXPECT_EQ(kernel->InferOutputShapes({input(dims(5, 1, 3))->shape})[0].dims, dims(5, 1, 3));
  const auto no_channels = configured(row().name, new_shape(0, 2, 2));
  EXPECT_EQ(no_channels->InferOutputShapes({input(dims(5, 1, 1))->shape})[0].dims, dims(0, 2, 2));
}

TEST_P(ExpandRows, AnyOtherExpansionLeavesItsTensorUnwritten) {
  const auto kernel = configured(row().name, new_shape(-1, 2, 5));
  Tensors outputs;
  ASSERT_EQ(kernel->Forward({input(dims(6, 2, 1))}, outputs, context_), 0);
  ASSERT_EQ(outputs.at(0)->shape.dims, dims(6, 2, 5));
  for (const float value : values_of(*outputs[0])) {
    ASSERT_EQ(bits_of(value), kFreshBits);
  }
}

TEST_P(ExpandRows, AnInputWithoutADimOf1Fails) {
  const auto kernel = configured(row().name, new_shape(-1, 2, 5));
  Tensors outputs;
  EXPECT_NE(failure_of([&] { kernel->Forward({input(dims(6, 2, 5))}, outputs, context_); }), "");
}

TEST_P(ExpandRows, RepeatsElementsOfTwoBytes) {
  const auto kernel = configured(row().name, new_shape(-1, 3, 2));
  std::vector<int16_t> values(3 * row().block);
  std::iota(values.begin(), values.end(), int16_t{-2});
  const auto in = context_.device()->CreateTensor(
      runtime::TensorShape(dims(3, 1, 1), DataType::INT16, row().layout), values.data());
  EXPECT_EQ(kernel->CheckInputs({in}), 0);
  Tensors outputs;
  ASSERT_EQ(kernel->Forward({in}, outputs, context_), 0);
  const auto* out = static_cast<const int16_t*>(outputs.at(0)->handle.cpu);
  for (uint32_t i = 0; i < 3 * 6 * row().block; ++i) {
    const uint32_t channel = i / (6 * row().block) * row().block + i % row().block;
    ASSERT_EQ(out[i], values[channel]) << i;
  }
}

TEST_P(ExpandRows, ChecksTypeLayoutAndCount) {
  const auto kernel = make_kernel(row().name);
  const auto in = input(dims(2, 1, 1));
  EXPECT_EQ(kernel->CheckInputs({in}), 0);
  EXPECT_EQ(kernel->CheckOutputs({in}), 0);
  EXPECT_EQ(kernel->CheckInputs({in, in}), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckInputs({context_.device()->CreateF32FlexiableMainMemory({2}, nullptr)}),
            -2);
  EXPECT_EQ(kernel->CheckInputs({context_.device()->CreateTensor(
                runtime::TensorShape(dims(2, 1, 1), DataType::UINT8, row().layout), nullptr)}),
            -2);
}

TEST_P(ExpandRows, ChecksTheNewShape) {
  const auto kernel = make_kernel(row().name);
  const auto check = [&](const std::vector<int16_t>& shape) {
    return kernel->CheckConfig(description(shape), nullptr);
  };
  EXPECT_EQ(check({1, 64, 7, 7}), 0);
  EXPECT_EQ(check({1, 64}), 0);
  EXPECT_EQ(check({1, -1, -1, 7}), 0);
  EXPECT_EQ(check({1, -1, -5, 7}), 0);
  EXPECT_EQ(check({1}), -1);
  EXPECT_EQ(check({}), -1);
  EXPECT_EQ(check({2, 64, 7, 7}), -1);
  EXPECT_EQ(check({-1, 64, 7, 7}), -1);
  EXPECT_EQ(check({1, -1, -1, -1}), -1);
  EXPECT_EQ(check({1, -2, -300, -1}), -1);
  EXPECT_EQ(kernel->CheckConfig(description({1, 64, 7, 7}),
                                std::make_shared<runtime::InferenceParamActQuant>()),
            -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
}

TEST_P(ExpandRows, KeepingADimThatIsNotThereFailsCleanly) {
  const auto kernel = configured(row().name, {1, -1, 2, 2, 2, 2, -1});
  EXPECT_NE(failure_of([&] { kernel->InferOutputShapes({input(dims(2, 1, 1))->shape}); }), "");
  EXPECT_NE(failure_of([&] { kernel->InferOutputShapes({}); }), "");
}

INSTANTIATE_TEST_SUITE_P(All, ExpandRows, testing::ValuesIn(expand_rows),
                         [](const auto& row) { return std::string(row.param->name); });

TEST(Expand, AFourEntryShapeOnABlockedTensorGivesThreeDims) {
  const auto kernel = configured("Expand_SSE_C4HW4_Float_M1", {1, 4, 2, 2});
  const runtime::TensorShape blocked({4, 1, 1, 4}, DataType::FLOAT32, LayoutType::C4HW4);
  EXPECT_EQ(kernel->InferOutputShapes({blocked})[0].dims, (Dims{4, 2, 2}));
}

std::shared_ptr<runtime::LayerPlaceholderInfo> placeholder(const std::vector<uint16_t>& shape) {
  auto info = std::make_shared<runtime::LayerPlaceholderInfo>();
  info->output_shape = shape;
  return info;
}

constexpr char kPlaceholder[] = "LayerPlaceholder_Fallback_Float_M1";

TEST(Placeholder, GivesATensorOf128sWhateverTheInput) {
  TestContext context;
  const auto kernel = make_kernel(kPlaceholder);
  ASSERT_TRUE(kernel->Config(placeholder({2, 3}), nullptr, context));
  const auto old = context.device()->CreateF32CMainMemory(1, nullptr);
  Tensors outputs{old};
  ASSERT_EQ(kernel->Forward({old, old}, outputs, context), 0);
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(outputs[0]->shape, runtime::TensorShape({2, 3}, DataType::FLOAT32, LayoutType::CHW));
  EXPECT_TRUE(same_bits(values_of(*outputs[0]), std::vector<float>(6, 128.0f)));
}

TEST(Placeholder, NeedsAnOutputShape) {
  const auto kernel = make_kernel(kPlaceholder);
  EXPECT_EQ(kernel->CheckConfig(placeholder({1}), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(placeholder({}), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::InputInfo>(), nullptr), -1);
  EXPECT_EQ(
      kernel->CheckConfig(placeholder({1}), std::make_shared<runtime::InferenceParamActQuant>()),
      -1);
}

TEST(Placeholder, ChecksTheFirstTensorOnly) {
  TestContext context;
  const auto kernel = make_kernel(kPlaceholder);
  const auto tensor = context.device()->CreateU8CHWMainMem({1}, nullptr);
  const auto elsewhere =
      context.device()->CreateTensor(runtime::TensorShape({1}, DataType::FLOAT32, LayoutType::C,
                                                          runtime::LocationType::OpenGLSSBO),
                                     nullptr);
  EXPECT_EQ(kernel->CheckInputs({tensor, elsewhere}), 0);
  EXPECT_EQ(kernel->CheckInputs({elsewhere}), -2);
  EXPECT_EQ(kernel->CheckOutputs({tensor}), 0);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
}

}  // namespace
}  // namespace marlo::test

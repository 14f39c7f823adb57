#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>

#include "qrt_core/runtime/model/pooling_info.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::AdaptiveAvgPool2dInfo;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;

constexpr const char* kName = "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1";

std::shared_ptr<AdaptiveAvgPool2dInfo> to_size(std::vector<uint16_t> size) {
  auto info = std::make_shared<AdaptiveAvgPool2dInfo>();
  info->output_size = std::move(size);
  return info;
}

// What a kernel makes of planes in its layout, as planes.
std::vector<float> pooled_by(const char* name, LayoutType layout, const std::vector<uint32_t>& dims,
                             uint16_t height, uint16_t width, const std::vector<float>& values) {
  TestContext context;
  const auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(to_size({height, width}), nullptr, context));
  const std::vector<float> elements = to_layout(values, dims[0], layout);
  const auto input = context.floats(dims_in_layout(dims, layout), layout, elements);
  EXPECT_EQ(kernel->CheckInputs({input}), 0);
  IKernel::Tensors outputs;
  EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
  EXPECT_EQ(outputs.size(), 1u);
  EXPECT_TRUE(outputs[0]->shape == TensorShape(dims_in_layout({dims[0], height, width}, layout),
                                               DataType::FLOAT32, layout));
  EXPECT_TRUE(outputs[0]->shape == kernel->InferOutputShapes({input->shape})[0]);
  EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  EXPECT_TRUE(same_bits(values_of(*input), elements)) << "the input changed";
  return from_layout(values_of(*outputs[0]), dims[0], layout);
}

std::vector<float> pooled(const std::vector<uint32_t>& dims, uint16_t height, uint16_t width,
                          const std::vector<float>& values) {
  return pooled_by(kName, LayoutType::CHW, dims, height, width, values);
}

// The windows in whole numbers: from floor(i * size / count) to ceil((i + 1) * size / count).
std::vector<Sum> definition(const std::vector<uint32_t>& dims, uint32_t height, uint32_t width,
                            const std::vector<float>& values) {
  std::vector<Sum> outputs;
  for (size_t c = 0; c < dims[0]; ++c) {
    for (size_t i = 0; i < height; ++i) {
      for (size_t j = 0; j < width; ++j) {
        Sum sum;
        const size_t r0 = i * dims[1] / height;
        const size_t r1 = ((i + 1) * dims[1] + height - 1) / height;
        const size_t c0 = j * dims[2] / width;
        const size_t c1 = ((j + 1) * dims[2] + width - 1) / width;
        for (size_t r = r0; r < r1; ++r) {
          for (size_t k = c0; k < c1; ++k) sum.add(values[(c * dims[1] + r) * dims[2] + k]);
        }
        const auto area = static_cast<double>((r1 - r0) * (c1 - c0));
        sum.value /= area;
        sum.magnitude /= area;
        sum.terms += 2;
        outputs.push_back(sum);
      }
    }
  }
  return outputs;
}

TEST(AdaptivePooling, AgreesWithItsDefinition) {
  Random random(11);
  for (const uint32_t size : {1u, 2u, 5u, 7u, 8u, 13u}) {
    for (const uint16_t target : std::initializer_list<uint16_t>{1, 2, 3, 5, 7}) {
      const std::vector<uint32_t> dims{2, size, 6};
      const auto values = random.floats(size_t{12} * size);
      EXPECT_TRUE(
          within_bounds(pooled(dims, target, 4, values), definition(dims, target, 4, values)))
          << size << " rows to " << target;
      const std::vector<uint32_t> turned{2, 6, size};
      EXPECT_TRUE(
          within_bounds(pooled(turned, 4, target, values), definition(turned, 4, target, values)))
          << size << " columns to " << target;
    }
  }
}

constexpr const char* kBlocks = "AdaptivePooling2D_Avg_FMA_C8HW8_Float_M1";

TEST(BlockAverage, AgreesWithItsDefinition) {
  QRT_SKIP_WHERE_MISSING(kBlocks);
  Random random(12);
  const auto expect = [&random](const std::vector<uint32_t>& dims, uint16_t height,
                                uint16_t width) {
    const auto values = random.floats(size_t{dims[0]} * dims[1] * dims[2]);
    EXPECT_TRUE(within_bounds(pooled_by(kBlocks, LayoutType::C8HW8, dims, height, width, values),
                              definition(dims, height, width, values)))
        << dims[0] << " channels of " << dims[1] << " by " << dims[2] << " to " << height << " by "
        << width;
  };
  for (const uint32_t channels : {1u, 8u, 13u, 24u}) {
    for (const uint32_t size : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 14u}) {
      expect({channels, size, size}, 1, 1);
      expect({channels, size + 3, size}, 1, 1);
    }
  }
  for (const uint16_t target : std::initializer_list<uint16_t>{1, 2, 3, 5, 7}) {
    expect({16, 13, 6}, target, 4);
    expect({16, 6, 13}, 4, target);
  }
}

TEST(BlockAverage, OfInfinitiesAndNaNs) {
  QRT_SKIP_WHERE_MISSING(kBlocks);
  std::vector<float> values(size_t{8} * 3 * 5, 1.0f);
  values[4] = kInfinity;
  values[15 + 7] = -kInfinity;
  values[15 + 8] = kInfinity;
  const auto means = pooled_by(kBlocks, LayoutType::C8HW8, {8, 3, 5}, 1, 1, values);
  EXPECT_EQ(means[0], kInfinity);
  EXPECT_TRUE(std::isnan(means[1]));
  EXPECT_EQ(means[2], 1.0f);
}

TEST(BlockAverage, ToNothingAndOfNothing) {
  QRT_SKIP_WHERE_MISSING(kBlocks);
  const auto blocks = [](const std::vector<uint32_t>& dims, uint16_t height, uint16_t width) {
    return pooled_by(kBlocks, LayoutType::C8HW8, dims, height, width,
                     std::vector<float>(size_t{dims[0]} * dims[1] * dims[2]));
  };
  EXPECT_TRUE(blocks({8, 3, 4}, 0, 5).empty());
  for (const float mean : blocks({8, 0, 4}, 1, 2)) EXPECT_TRUE(std::isnan(mean));
  for (const float mean : blocks({8, 4, 0}, 2, 1)) EXPECT_TRUE(std::isnan(mean));
}

TEST(BlockAverage, TakesBlocksOfEightOnly) {
  QRT_SKIP_WHERE_MISSING(kBlocks);
  TestContext context;
  const auto kernel = make_kernel(kBlocks);
  EXPECT_TRUE(kernel->Config(to_size({1, 1}), nullptr, context));
  const auto planes = context.floats({8, 1, 1}, LayoutType::CHW, std::vector<float>(8));
  const auto fours = context.floats({1, 1, 1, 4}, LayoutType::C8HW8, std::vector<float>(4));
  EXPECT_EQ(kernel->CheckInputs({planes}), -2);
  IKernel::Tensors outputs;
  const LogCapture log;
  EXPECT_THAT(failure_of([&] { kernel->Forward({fours}, outputs, context); }),
              testing::HasSubstr("a pixel must have 8 channels"));
}

TEST(AdaptivePooling, ToTheSameSizeCopies) {
  const auto values = Random(5).floats(3 * 7 * 5);
  EXPECT_TRUE(same_bits(pooled({3, 7, 5}, 7, 5, values), values));
}

TEST(AdaptivePooling, ToALargerSizeRepeatsRows) {
  EXPECT_TRUE(same_bits(pooled({1, 2, 1}, 4, 1, {3, 5}), {3, 3, 5, 5}));
  EXPECT_TRUE(same_bits(pooled({1, 1, 2}, 1, 3, {3, 5}), {3, 4, 5}));
}

TEST(AdaptivePooling, DividesByTheHeightAndThenByTheWidth) {
  // 21 equal numbers, summed in order, then two roundings.
  const std::vector<float> values(21, 2.3f);
  float sum = 0.0f;
  for (const float value : values) sum += value;
  const float expected = sum / 3.0f / 7.0f;
  ASSERT_NE(bits_of(expected), bits_of(sum / 21.0f)) << "these numbers don't tell them apart";
  EXPECT_TRUE(same_bits(pooled({1, 3, 7}, 1, 1, values), {expected}));
}

TEST(AdaptivePooling, ARatioThatRoundsUpDoesNotReachTheNextPlane) {
  // In float, 21 * (3 / 21) lies above 3.
  const auto rows = pooled({2, 3, 1}, 21, 1, {1, 2, 3, 100, 200, 300});
  EXPECT_EQ(rows[20], 3.0f);
  EXPECT_EQ(rows[41], 300.0f);
  const auto columns = pooled({1, 2, 3}, 1, 21, {1, 2, 3, 1, 2, 3});
  EXPECT_EQ(columns[20], 3.0f);
}

TEST(AdaptivePooling, ToNothingGivesNothing) {
  EXPECT_TRUE(pooled({2, 3, 4}, 0, 5, std::vector<float>(24)).empty());
  EXPECT_TRUE(pooled({2, 3, 4}, 5, 0, std::vector<float>(24)).empty());
}

TEST(AdaptivePooling, OfNothingIsNaN) {
  EXPECT_TRUE(same_bits(pooled({1, 0, 4}, 1, 2, {}), {kNaN, kNaN}));
  EXPECT_TRUE(same_bits(pooled({1, 4, 0}, 2, 1, {}), {kNaN, kNaN}));
}

TEST(AdaptivePooling, RefusesOtherDescriptions) {
  TestContext context;
  const auto kernel = make_kernel(kName);
  EXPECT_EQ(kernel->CheckConfig(to_size({1, 1}), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(to_size({1, 1}), std::make_shared<runtime::InferenceParam>()), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::AvgPool2dInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(to_size({1}), nullptr), -1);
  EXPECT_FALSE(kernel->Config(to_size({}), nullptr, context));
  EXPECT_FALSE(kernel->IsConfigured());
}

TEST(AdaptivePooling, TakesOneFloatTensorOfItsLayout) {
  TestContext context;
  const auto kernel = make_kernel(kName);
  EXPECT_TRUE(kernel->Config(to_size({1, 1}), nullptr, context));
  const auto good = context.floats({1, 1, 1}, LayoutType::CHW, {1});
  const auto wrong_layout = context.floats({1, 1, 1}, LayoutType::HWC, {1});
  const auto wrong_dims = context.floats({1, 1}, LayoutType::CHW, {1});
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckInputs({good, good}), -2);
  EXPECT_EQ(kernel->CheckInputs({wrong_layout}), -2);
  EXPECT_EQ(kernel->CheckOutputs({wrong_layout}), -2);
  IKernel::Tensors outputs;
  const LogCapture log;
  EXPECT_THAT(failure_of([&] { kernel->Forward({wrong_dims}, outputs, context); }),
              testing::HasSubstr("must have 3 dims"));
}

}  // namespace
}  // namespace marlo::test

#include "qrt_core/kernel/layout/fill.h"

#include <gtest/gtest.h>

#include "qrt_core/utility/build_options.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// The functions that give an output its bias or zeros.

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;

struct BiasFill {
  std::string name;
  LayoutType layout;
  uint32_t block;  ///< channels of a plane
  int (*fill)(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output);

  std::vector<uint32_t> dims(uint32_t planes, uint32_t height, uint32_t width) const {
    if (layout == LayoutType::CL) return {planes, height * width};
    if (block == 1) return {planes, height, width};
    return {planes, height, width, block};
  }
};

void PrintTo(const BiasFill& fill, std::ostream* out) { *out << fill.name; }

const BiasFill kBiasFills[] = {
    {"FillBias_CHW_Float_Fallback", LayoutType::CHW, 1, kernel::FillBias_CHW_Float_Fallback},
    {"FillBias_CL_Float_Fallback", LayoutType::CL, 1, kernel::FillBias_CL_Float_Fallback},
#if QRT_WITH_SSE
    {"FillBias_CHW_Float_SSE", LayoutType::CHW, 1, kernel::FillBias_CHW_Float_SSE},
    {"FillBias_C4HW4_Float_SSE", LayoutType::C4HW4, 4, kernel::FillBias_C4HW4_Float_SSE},
    {"FillBias_C8HW8_Float_SSE", LayoutType::C8HW8, 8, kernel::FillBias_C8HW8_Float_SSE},
#endif
#if QRT_WITH_AVX
    {"FillBias_CHW_Float_AVX", LayoutType::CHW, 1, kernel::FillBias_CHW_Float_AVX},
    {"FillBias_C8HW8_Float_AVX", LayoutType::C8HW8, 8, kernel::FillBias_C8HW8_Float_AVX},
#endif
};

class FillBias : public testing::TestWithParam<BiasFill> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam().name); }

  // A bias of [groups, per_group] onto as many planes as it fills.
  void expect_filled(uint32_t groups, uint32_t per_group, uint32_t height, uint32_t width) {
    const BiasFill& fill = GetParam();
    SCOPED_TRACE(testing::Message()
                 << groups << " groups of " << per_group << ", " << height << " x " << width);
    TestContext context;
    const uint32_t channels = groups * per_group;
    const std::vector<float> bias = Random(channels).floats(channels);
    const uint32_t planes = (channels + fill.block - 1) / fill.block;
    const auto dims = fill.dims(planes, height, width);
    const size_t size = size_t{planes} * height * width * fill.block;
    const auto output = context.external_floats(dims, fill.layout, std::vector<float>(size, kNaN));
    EXPECT_EQ(fill.fill(context.floats({groups, per_group}, LayoutType::GN, bias), output), 0);

    std::vector<float> expected;
    for (size_t i = 0; i < size; ++i) {
      const size_t plane = i / fill.block / height / width;
      const size_t channel = plane * fill.block + i % fill.block;
      expected.push_back(channel < channels ? bias[channel] : 0.0f);
    }
    EXPECT_TRUE(same_bits(values_of(*output), expected));
  }
};

TEST_P(FillBias, FillsPlanesOfEverySize) {
  const uint32_t channels = 2 * GetParam().block;
  for (uint32_t size = 1; size <= 40; ++size) expect_filled(1, channels, 1, size);
  for (const uint32_t size : {63u, 64u, 65u, 200u, 1027u}) expect_filled(1, channels, 1, size);
  expect_filled(1, channels, 7, 9);
}

TEST_P(FillBias, TakesTheChannelsOfAllGroupsInOrder) {
  expect_filled(2, 8, 3, 5);
  expect_filled(8, 1, 2, 2);
  expect_filled(1, 24, 3, 3);
}

TEST_P(FillBias, FillsChannelsBeyondTheBiasOfABlockWithZero) {
  if (GetParam().block == 1) GTEST_SKIP() << "has no blocks";
  expect_filled(1, GetParam().block + 1, 2, 3);
  expect_filled(1, 1, 2, 3);
}

TEST_P(FillBias, LeavesPlanesBeyondTheBiasAlone) {
  const BiasFill& fill = GetParam();
  if (fill.block != 1) GTEST_SKIP() << "fills whole blocks";
  TestContext context;
  const auto bias = context.floats({1, 2}, LayoutType::GN, {1.0f, 2.0f});
  const auto output = context.floats(fill.dims(3, 1, 2), fill.layout, std::vector<float>(6, 9.0f));
  EXPECT_EQ(fill.fill(bias, output), 0);
  EXPECT_TRUE(same_bits(values_of(*output), {1.0f, 1.0f, 2.0f, 2.0f, 9.0f, 9.0f}));
}

TEST_P(FillBias, FillsNothingWithoutPixels) { expect_filled(1, 8, 3, 0); }

TEST_P(FillBias, RefusesOtherTensorsAndLeavesThemAlone) {
  const BiasFill& fill = GetParam();
  TestContext context;
  const std::vector<float> before(size_t{2} * 2 * fill.block, 3.0f);
  const auto bias =
      context.floats({1, fill.block}, LayoutType::GN, std::vector<float>(fill.block, 1.0f));
  const auto output = context.floats(fill.dims(1, 2, 2), fill.layout, before);
  const auto expect_refusal = [&](const char* what) {
    EXPECT_EQ(fill.fill(bias, output), -2) << what;
    output->shape.data_type = DataType::FLOAT32;
    EXPECT_TRUE(same_bits(values_of(*output), before)) << what;
    for (TensorCPU* tensor : {bias.get(), output.get()}) {
      tensor->shape.data_type = DataType::FLOAT32;
      tensor->shape.location = LocationType::MainMemory;
    }
    bias->shape.layout = LayoutType::GN;
    output->shape.layout = fill.layout;
  };
  bias->shape.layout = LayoutType::C;
  expect_refusal("layout of the bias");
  output->shape.layout = LayoutType::HWC;
  expect_refusal("layout of the output");
  bias->shape.data_type = DataType::INT32;
  expect_refusal("type of the bias");
  output->shape.data_type = DataType::INT32;
  expect_refusal("type of the output");
  bias->shape.location = LocationType::MetalBuffer;
  expect_refusal("location of the bias");
  output->shape.location = LocationType::MetalBuffer;
  expect_refusal("location of the output");
  EXPECT_EQ(fill.fill(bias, output), 0);
}

INSTANTIATE_TEST_SUITE_P(All, FillBias, testing::ValuesIn(kBiasFills),
                         [](const auto& test) { return test.param.name; });

TEST(FillZero, ClearsEveryElementAndNoMore) {
  TestContext context;
  for (uint32_t size = 0; size <= 40; ++size) {
    const auto tensor =
        context.external_floats({size}, LayoutType::FLEXIABLE, std::vector<float>(size, kNaN));
    EXPECT_EQ(kernel::FillZero_Float(tensor), 0);
    EXPECT_TRUE(same_bits(values_of(*tensor), std::vector<float>(size, 0.0f)));
  }
}

TEST(FillZero, RefusesOtherTensors) {
  TestContext context;
  const auto tensor = context.floats({2}, LayoutType::C, {1.0f, 2.0f});
  tensor->shape.data_type = DataType::INT32;
  EXPECT_EQ(kernel::FillZero_Float(tensor), -2);
  tensor->shape.data_type = DataType::FLOAT32;
  tensor->shape.location = LocationType::OpenGLSSBO;
  EXPECT_EQ(kernel::FillZero_Float(tensor), -2);
  EXPECT_TRUE(same_bits(values_of(*tensor), {1.0f, 2.0f}));
}

struct BiasAddition {
  std::string name;
  LayoutType layout;
  uint32_t block;
  int (*add)(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output);
};

void PrintTo(const BiasAddition& addition, std::ostream* out) { *out << addition.name; }

class AddBias : public testing::TestWithParam<BiasAddition> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam().name); }
};

TEST_P(AddBias, AddsOntoEveryPixelOfEachChannel) {
  const auto& [name, layout, block, add] = GetParam();
  for (uint32_t width = 1; width <= 35; ++width) {
    TestContext context;
    std::vector<uint32_t> dims = {2, 1, width};
    if (block > 1) dims.push_back(block);
    Random random(width);
    const std::vector<float> before = random.floats(size_t{2} * width * block);
    const std::vector<float> biases = random.floats(size_t{2} * block);
    const auto output = context.floats(dims, layout, before);
    const auto bias = context.floats({1, 2 * block}, LayoutType::GN, biases);
    ASSERT_EQ(add(bias, output), 0);
    context.pool().check();
    std::vector<float> expected = before;
    for (size_t i = 0; i < expected.size(); ++i) {
      expected[i] += biases[i / (width * block) * block + i % block];
    }
    EXPECT_TRUE(same_bits(values_of(*output), expected)) << width << " pixels";
  }
}

TEST_P(AddBias, RefusesOtherLayouts) {
  const auto& [name, layout, block, add] = GetParam();
  TestContext context;
  const auto bias = context.floats({1, 8}, LayoutType::GN, std::vector<float>(8));
  const auto output = context.floats({1, 1, 1, 8}, layout, std::vector<float>(8));
  const auto other = context.floats({1, 1, 1, 8}, LayoutType::FLEXIABLE, std::vector<float>(8));
  EXPECT_EQ(add(other, output), -2);
  EXPECT_EQ(add(bias, other), -2);
}

const BiasAddition kBiasAdditions[] = {
    {"AddBias_CHW_Float_SSE", LayoutType::CHW, 1, kernel::AddBias_CHW_Float_SSE},
#if QRT_WITH_AVX
    {"AddBias_C8HW8_Float_AVX", LayoutType::C8HW8, 8, kernel::AddBias_C8HW8_Float_AVX},
#endif
};

INSTANTIATE_TEST_SUITE_P(Functions, AddBias, testing::ValuesIn(kBiasAdditions),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace marlo::test

#include "qrt_core/kernel/layout/pixel_shuffle.h"

#include <gtest/gtest.h>

#include <numeric>

#include "qrt_core/runtime/model/layers.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using kernel::pixel_shuffle_rows;
using kernel::PixelShuffleRow;
using runtime::LayoutType;

uint32_t block_of(LayoutType layout) {
  return layout == LayoutType::C4HW4 ? 4 : layout == LayoutType::C8HW8 ? 8 : 1;
}

/// A picture addressed by true channel, whatever its layout.
struct Picture {
  LayoutType layout;
  uint32_t channels;
  uint32_t height;
  uint32_t width;
  std::vector<float> values;

  Picture(LayoutType order, uint32_t c, uint32_t h, uint32_t w)
      : layout(order), channels(c), height(h), width(w), values(size_t{c} * h * w) {
    std::iota(values.begin(), values.end(), 1.0f);
  }

  std::vector<uint32_t> dims() const {
    const uint32_t n = block_of(layout);
    if (n == 1) return {channels, height, width};
    return {channels / n, height, width, n};
  }

  float& at(uint32_t c, uint32_t h, uint32_t w) {
    const uint32_t n = block_of(layout);
    return values[((size_t{c / n} * height + h) * width + w) * n + c % n];
  }
};

// From the definition, by true channels.
Picture shuffled(Picture in, uint32_t r, bool up) {
  const uint32_t square = r * r;
  const uint32_t n = block_of(in.layout);
  if (up) {
    Picture out(in.layout, in.channels / square / n * n, in.height * r, in.width * r);
    for (uint32_t c = 0; c < out.channels * square; ++c) {
      for (uint32_t h = 0; h < in.height; ++h) {
        for (uint32_t w = 0; w < in.width; ++w) {
          out.at(c / square, h * r + c % square / r, w * r + c % r) = in.at(c, h, w);
        }
      }
    }
    return out;
  }
  Picture out(in.layout, in.channels * square, in.height / r, in.width / r);
  for (uint32_t c = 0; c < out.channels; ++c) {
    for (uint32_t h = 0; h < out.height; ++h) {
      for (uint32_t w = 0; w < out.width; ++w) {
        out.at(c, h, w) = in.at(c / square, h * r + c % square / r, w * r + c % r);
      }
    }
  }
  return out;
}

std::shared_ptr<runtime::PixelShuffleInfo> description(float factor) {
  auto info = std::make_shared<runtime::PixelShuffleInfo>();
  info->upscale_factor = factor;
  return info;
}

std::shared_ptr<runtime::IKernel> configured(const TestContext& context, const char* name,
                                             float factor) {
  auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(description(factor), nullptr, context)) << name;
  return kernel;
}

std::shared_ptr<runtime::Tensor> run(TestContext& context, const char* name, float factor,
                                     const Picture& in) {
  const auto kernel = configured(context, name, factor);
  runtime::IKernel::Tensors outputs;
  const auto input = context.external_floats(in.dims(), in.layout, in.values);
  EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
  EXPECT_EQ(outputs.size(), 1u);
  return outputs.at(0);
}

void expect_shuffled(const char* name, float factor, uint32_t r, const Picture& in) {
  TestContext context;
  const auto output = run(context, name, factor, in);
  const Picture expected = shuffled(in, r, factor > 1.0f);
  EXPECT_EQ(output->shape.dims, expected.dims());
  EXPECT_EQ(output->shape.layout, in.layout);
  EXPECT_TRUE(same_bits(values_of(*output), expected.values));
}

constexpr char kPortable[] = "Pixelshuffle_Fallback_CHW_Float_M1";

class PixelShuffleRows : public testing::TestWithParam<const PixelShuffleRow*> {};

TEST_P(PixelShuffleRows, MovesEveryPixelToItsPlace) {
  const PixelShuffleRow& row = *GetParam();
  QRT_SKIP_WHERE_MISSING(row.name);
  const uint32_t n = block_of(row.layout);
  for (const float factor : {2.0f, 0.5f}) {
    if (row.factor != 0.0f && row.factor != factor) continue;
    const uint32_t step = factor > 1.0f ? 4 * n : n;
    for (uint32_t channels : {step, 2 * step, 5 * step}) {
      for (uint32_t height : {1u, 2u, 3u, 6u}) {
        for (uint32_t width : {1u, 2u, 5u, 8u}) {
          SCOPED_TRACE(testing::Message() << channels << " x " << height << " x " << width);
          expect_shuffled(row.name, factor, 2, Picture(row.layout, channels, height, width));
        }
      }
    }
  }
}

TEST_P(PixelShuffleRows, LeavesOutChannelsThatMakeNoWholeSquare) {
  const PixelShuffleRow& row = *GetParam();
  if (row.up == nullptr) GTEST_SKIP() << row.name << " scales down only";
  QRT_SKIP_WHERE_MISSING(row.name);
  const uint32_t n = block_of(row.layout);
  expect_shuffled(row.name, 2.0f, 2, Picture(row.layout, 7 * n, 2, 3));
  expect_shuffled(row.name, 2.0f, 2, Picture(row.layout, 3 * n, 2, 3));
}

TEST_P(PixelShuffleRows, AcceptsItsFactorOnly) {
  const PixelShuffleRow& row = *GetParam();
  const auto kernel = make_kernel(row.name);
  for (const float factor : {2.0f, 0.5f, 0.25f, 3.0f, 1.0f, 2.0000002f}) {
    const bool accepted = row.factor == 0.0f || factor == row.factor;
    EXPECT_EQ(kernel->CheckConfig(description(factor), nullptr), accepted ? 0 : -1) << factor;
    EXPECT_EQ(kernel->Config(description(factor), nullptr, nullptr), accepted) << factor;
  }
  const auto param = std::make_shared<runtime::InferenceParamActQuant>();
  EXPECT_EQ(kernel->CheckConfig(description(row.factor), param), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::ActivationInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
}

TEST_P(PixelShuffleRows, ChecksOneFloatTensorOfItsLayout) {
  const PixelShuffleRow& row = *GetParam();
  TestContext context;
  const auto kernel = make_kernel(row.name);
  const Picture fitting(row.layout, 8, 2, 2);
  const auto tensor = context.floats(fitting.dims(), row.layout, fitting.values);
  EXPECT_EQ(kernel->CheckInputs({tensor}), 0);
  EXPECT_EQ(kernel->CheckOutputs({tensor}), 0);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckInputs({tensor, tensor}), -2);
  const auto other = context.floats(fitting.dims(), LayoutType::HWC, fitting.values);
  EXPECT_EQ(kernel->CheckInputs({other}), -2);
  EXPECT_EQ(kernel->CheckOutputs({other}), -2);
}

INSTANTIATE_TEST_SUITE_P(All, PixelShuffleRows, testing::ValuesIn(pixel_shuffle_rows),
                         [](const auto& row) { return std::string(row.param->name); });

TEST(PixelShuffle, FactorOneCountsAsDownscalingByOne) {
  const Picture in(LayoutType::CHW, 3, 4, 5);
  TestContext context;
  EXPECT_TRUE(same_bits(values_of(*run(context, kPortable, 1.0f, in)), in.values));
}

TEST(PixelShuffle, FactorThreeOn18ChannelsGivesTwo) {
  expect_shuffled(kPortable, 3.0f, 3, Picture(LayoutType::CHW, 18, 2, 3));
}

TEST(PixelShuffle, FactorAQuarterDownscalesByFour) {
  expect_shuffled(kPortable, 0.25f, 4, Picture(LayoutType::CHW, 2, 8, 9));
}

TEST(PixelShuffle, UsesTheIntegerPartOfAFactor) {
  expect_shuffled(kPortable, 2.75f, 2, Picture(LayoutType::CHW, 8, 2, 2));
  expect_shuffled(kPortable, 0.4f, 2, Picture(LayoutType::CHW, 2, 4, 4));
}

TEST(PixelShuffle, UpAndDownGivesBackTheInput) {
  const Picture in(LayoutType::CHW, 18, 4, 5);
  TestContext context;
  const auto up = run(context, kPortable, 3.0f, in);
  Picture wide(LayoutType::CHW, 2, 12, 15);
  wide.values = values_of(*up);
  EXPECT_TRUE(same_bits(values_of(*run(context, kPortable, 1.0f / 3.0f, wide)), in.values));
}

TEST(PixelShuffle, OddSizesAreRefusedByTheAvxDownscaleOnly) {
  TestContext context;
  const auto avx = make_kernel("PixelShuffle_Downscale2_AVX_C8HW8_Float_M1");
  const auto sse = make_kernel("PixelShuffle_Downscale2_SSE_C4HW4_Float_M1");
  for (const auto& [height, width] : {std::pair{2u, 3u}, std::pair{3u, 2u}}) {
    const Picture c8(LayoutType::C8HW8, 8, height, width);
    EXPECT_EQ(avx->CheckInputs({context.floats(c8.dims(), c8.layout, c8.values)}), -2);
    const Picture c4(LayoutType::C4HW4, 8, height, width);
    EXPECT_EQ(sse->CheckInputs({context.floats(c4.dims(), c4.layout, c4.values)}), 0);
  }
}

TEST(PixelShuffle, FactorsWithoutAnIntegerFailCleanly) {
  TestContext context;
  const Picture in(LayoutType::CHW, 4, 2, 2);
  const auto input = context.floats(in.dims(), in.layout, in.values);
  for (const float factor : {0.0f, -2.0f, -0.5f, 1e30f, 1e-30f, kNaN}) {
    const auto kernel = configured(context, kPortable, factor);
    runtime::IKernel::Tensors outputs;
    EXPECT_NE(failure_of([&] { kernel->Forward({input}, outputs, context); }), "") << factor;
  }
}

TEST(PixelShuffle, OutputsBeyond32BitsFailCleanly) {
  TestContext context;
  const auto kernel = configured(context, kPortable, 60000.0f);
  const runtime::TensorShape shape({1, 100000, 100000}, runtime::DataType::FLOAT32,
                                   LayoutType::CHW);
  EXPECT_NE(failure_of([&] { kernel->InferOutputShapes({shape}); }), "");
}

}  // namespace
}  // namespace marlo::test
